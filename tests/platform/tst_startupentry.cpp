// The start-up entry on Linux: an XDG autostart file that really starts the
// program (launched here with GLib's own desktop-entry launcher).
#include "common/msgbox.h"
#include "platform/startupentry.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>
#include <memory>

class TestStartupEntry : public QObject
{
    Q_OBJECT
    std::unique_ptr<QTemporaryDir> m_dir;
    QList<Message> m_messages;

    QString config() const { return m_dir->filePath(QStringLiteral("config")); }
    static QByteArray contents(const QString& path)
    {
        QFile f(path);
        return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
    }

private slots:
    void init()
    {
        m_dir = std::make_unique<QTemporaryDir>();
        qputenv("XDG_CONFIG_HOME", config().toUtf8());
        m_messages.clear();
        setMsgRecorder([this](const Message& m) { m_messages << m; });
    }
    void cleanup() { setMsgRecorder({}); }

    void roundTrip()
    {
        QVERIFY(!RunEntryExists(QStringLiteral("quorvel")));
        RunEntrySet(QStringLiteral("quorvel"), QStringLiteral("/opt/quorvel"), true);
        const QString file = config() + QStringLiteral("/autostart/quorvel.desktop");
        QCOMPARE(RunEntryLocation(QStringLiteral("quorvel")), file);
        QVERIFY(RunEntryExists(QStringLiteral("quorvel")));
        QVERIFY(!RunEntryExists(QStringLiteral("other")));
        const QString text = QString::fromUtf8(contents(file));
        QVERIFY(text.startsWith(QStringLiteral("[Desktop Entry]\n")));
        QVERIFY(text.contains(QStringLiteral("\nType=Application\n")));
        QVERIFY(text.contains(QStringLiteral("\nExec=\"/opt/quorvel/quorvel\"\n")));
        RunEntrySet(QStringLiteral("quorvel"), QStringLiteral("/opt/quorvel"), false);
        QVERIFY(!RunEntryExists(QStringLiteral("quorvel")));
        RunEntrySet(QStringLiteral("q"), QStringLiteral("/opt/100% \"q\""), true);
        QVERIFY(contents(RunEntryLocation(QStringLiteral("q")))
                    .contains("\nExec=\"/opt/100%% \\\\\"q\\\\\"/q\"\n"));
        // Removing what is not there says nothing.
        RunEntrySet(QStringLiteral("quorvel"), QStringLiteral("/opt/quorvel"), false);
        QVERIFY(m_messages.isEmpty());
    }

    void entryReallyStartsTheProgram()
    {
        // A folder name with the characters the Exec quoting rules care about
        // ("%" is left out: GLib looks for the program before expanding "%%").
        const QString folder =
            m_dir->filePath(QStringLiteral("Program Files/Q \"v\" $HOME `x` \\ end"));
        QVERIFY(QDir().mkpath(folder));
        const QString marker = m_dir->filePath(QStringLiteral("started"));
        const QString program = folder + QStringLiteral("/quorvel-probe");
        QFile script(program);
        QVERIFY(script.open(QIODevice::WriteOnly));
        script.write("#!/bin/sh\necho \"$0\" > '" + marker.toUtf8() + "'\n");
        script.close();
        QVERIFY(script.setPermissions(script.permissions() | QFile::ExeOwner));

        RunEntrySet(QStringLiteral("quorvel-probe"), folder, true);
        QVERIFY(m_messages.isEmpty());
        QProcess gio;
        gio.start(QStringLiteral("gio"),
                  {QStringLiteral("launch"), RunEntryLocation(QStringLiteral("quorvel-probe"))});
        QVERIFY(gio.waitForFinished(20000));
        QCOMPARE(gio.exitCode(), 0);
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(marker), 10000);
        QCOMPARE(QString::fromUtf8(contents(marker)).trimmed(), program);
    }

    void failuresAreShown()
    {
        // Each failure gives one message with the system's error code.
        const auto setGives = [this](const char* pattern) {
            m_messages.clear();
            RunEntrySet(QStringLiteral("quorvel"), QStringLiteral("/opt/quorvel"), true);
            return m_messages.size() == 1 &&
                   QRegularExpression(QLatin1String(pattern)).match(m_messages[0].text).hasMatch();
        };
        // The autostart folder cannot be made: a file is in the way.
        QVERIFY(QDir().mkpath(config()));
        QFile blocker(config() + QStringLiteral("/autostart"));
        QVERIFY(blocker.open(QIODevice::WriteOnly));
        blocker.close();
        QVERIFY(setGives("^Error [1-9][0-9]* opening key\n.+"));
        QVERIFY(!RunEntryExists(QStringLiteral("quorvel")));
        // The entry cannot be written: a folder has its name.
        QVERIFY(blocker.remove());
        QVERIFY(QDir().mkpath(config() + QStringLiteral("/autostart/quorvel.desktop")));
        QVERIFY(setGives("^Error [1-9][0-9]* setting key\n"));
    }
};

QTEST_GUILESS_MAIN(TestStartupEntry)
#include "tst_startupentry.moc"
