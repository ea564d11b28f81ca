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
        QVERIFY(QFile::exists(file));
        QVERIFY(RunEntryExists(QStringLiteral("quorvel")));
        QVERIFY(!RunEntryExists(QStringLiteral("other")));
        QFile f(file);
        QVERIFY(f.open(QIODevice::ReadOnly));
        const QString text = QString::fromUtf8(f.readAll());
        QVERIFY(text.startsWith(QStringLiteral("[Desktop Entry]\n")));
        QVERIFY(text.contains(QStringLiteral("\nType=Application\n")));
        QVERIFY(text.contains(QStringLiteral("\nExec=\"/opt/quorvel/quorvel\"\n")));
        RunEntrySet(QStringLiteral("quorvel"), QStringLiteral("/opt/quorvel"), false);
        QVERIFY(!RunEntryExists(QStringLiteral("quorvel")));
        RunEntrySet(QStringLiteral("q"), QStringLiteral("/opt/100% \"q\""), true);
        QFile q(RunEntryLocation(QStringLiteral("q")));
        QVERIFY(q.open(QIODevice::ReadOnly));
        QVERIFY(q.readAll().contains("\nExec=\"/opt/100%% \\\\\"q\\\\\"/q\"\n"));
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
        QFile m(marker);
        QVERIFY(m.open(QIODevice::ReadOnly));
        QCOMPARE(QString::fromUtf8(m.readAll()).trimmed(), program);
    }

    void failuresAreShown()
    {
        // The autostart folder cannot be made: a file is in the way.
        QVERIFY(QDir().mkpath(config()));
        QFile blocker(config() + QStringLiteral("/autostart"));
        QVERIFY(blocker.open(QIODevice::WriteOnly));
        blocker.close();
        RunEntrySet(QStringLiteral("quorvel"), QStringLiteral("/opt/quorvel"), true);
        QCOMPARE(m_messages.size(), 1);
        QVERIFY2(QRegularExpression(QStringLiteral("^Error [1-9][0-9]* opening key\n.+"))
                     .match(m_messages[0].text)
                     .hasMatch(),
                 qPrintable(m_messages[0].text));
        QVERIFY(!RunEntryExists(QStringLiteral("quorvel")));

        // The entry cannot be written: a folder has its name.
        m_messages.clear();
        QVERIFY(blocker.remove());
        QVERIFY(QDir().mkpath(config() + QStringLiteral("/autostart/quorvel.desktop")));
        RunEntrySet(QStringLiteral("quorvel"), QStringLiteral("/opt/quorvel"), true);
        QCOMPARE(m_messages.size(), 1);
        QVERIFY2(QRegularExpression(QStringLiteral("^Error [1-9][0-9]* setting key\n"))
                     .match(m_messages[0].text)
                     .hasMatch(),
                 qPrintable(m_messages[0].text));
    }
};

QTEST_GUILESS_MAIN(TestStartupEntry)
#include "tst_startupentry.moc"
