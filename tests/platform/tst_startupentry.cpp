// The start-up entry on Linux: an XDG autostart file that really starts the
// program (launched here with GLib's own desktop-entry launcher).
#include "common/msgbox.h"
#include "platform/startupentry.h"

#include <QDir>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

class TestStartupEntry : public QObject
{
    Q_OBJECT
    QTemporaryDir m_dir;
    QString m_config = m_dir.filePath("config");
    QStringList m_messages;

    static QByteArray contents(const QString& path)
    {
        QFile f(path);
        return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
    }

private slots:
    void init()
    {
        QDir(m_config).removeRecursively();
        qputenv("XDG_CONFIG_HOME", m_config.toUtf8());
        m_messages.clear();
        setMsgRecorder([this](const Message& m) { m_messages << m.text; });
    }
    void cleanup() { setMsgRecorder({}); }

    void entryReallyStartsTheProgram()
    {
        // A folder with the characters the Exec quoting cares about ("%" is
        // left out: GLib looks for the program before expanding "%%").
        const QString folder = m_dir.filePath("Program Files/Q \"v\" $HOME `x` \\ end");
        const QString program = folder + "/quorvel", marker = m_dir.filePath("started");
        QVERIFY(QDir().mkpath(folder));
        QFile script(program);
        QVERIFY(script.open(QIODevice::WriteOnly));
        script.write("#!/bin/sh\necho \"$0\" > '" + marker.toUtf8() + "'\n");
        QVERIFY(script.setPermissions(script.permissions() | QFile::ExeOwner));
        script.close();
        RunEntrySet("quorvel", folder, true);
        QCOMPARE(RunEntryLocation("quorvel"), m_config + "/autostart/quorvel.desktop");
        QVERIFY(RunEntryExists("quorvel") && !RunEntryExists("other"));
        // GLib starts only a well-formed application entry.
        QCOMPARE(QProcess::execute("gio", {"launch", RunEntryLocation("quorvel")}), 0);
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(marker), 10000);
        QCOMPARE(contents(marker).trimmed(), program.toUtf8());

        RunEntrySet("q", "/opt/100% \"q\"", true);
        QVERIFY(
            contents(RunEntryLocation("q")).contains("\nExec=\"/opt/100%% \\\\\"q\\\\\"/q\"\n"));
        RunEntrySet("quorvel", folder, false);
        QVERIFY(!RunEntryExists("quorvel"));
        RunEntrySet("quorvel", folder, false); // removing what is not there says nothing
        QVERIFY(m_messages.isEmpty());
    }

    void failuresAreShown_data()
    {
        QTest::addColumn<QString>("folder"); // made under the config folder
        QTest::addColumn<QString>("message");
        QTest::newRow("a file in the way of the folder") << ""
                                                         << "^Error [1-9][0-9]* opening key\n.+";
        QTest::newRow("a folder in the way of the entry") << "/autostart/quorvel.desktop"
                                                          << "^Error [1-9][0-9]* setting key\n";
    }
    void failuresAreShown()
    {
        QFETCH(QString, folder);
        QFETCH(QString, message);
        QVERIFY(QDir().mkpath(m_config + folder));
        QFile blocker(m_config + "/autostart");
        QVERIFY(!folder.isEmpty() || blocker.open(QIODevice::WriteOnly));
        RunEntrySet("quorvel", "/opt/quorvel", true);
        QCOMPARE(m_messages.size(), 1); // with the system's error code
        QVERIFY2(QRegularExpression(message).match(m_messages[0]).hasMatch(),
                 qPrintable(m_messages[0]));
        QVERIFY(!RunEntryExists("quorvel"));
    }
};

QTEST_GUILESS_MAIN(TestStartupEntry)
#include "tst_startupentry.moc"
