// The XDG autostart entry, launched for real with GLib's own desktop-entry launcher.
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
    const QString m_config = m_dir.filePath("config");
    QStringList m_messages;

private slots:
    void init()
    {
        QDir(m_config).removeRecursively();
        qputenv("XDG_CONFIG_HOME", m_config.toUtf8());
        m_messages.clear();
        setMsgRecorder([this](const Message& m) { m_messages << m.text; });
    }

    void entryReallyStartsTheProgram()
    {
        // A folder with the characters the Exec quoting cares about ("%" is
        // left out: GLib looks for the program before expanding "%%").
        const QString folder = m_dir.filePath("Program Files/Q \"v\" $HOME `x` \\ end");
        QFile program(folder + "/quorvel"), started(m_dir.filePath("started"));
        QVERIFY(QDir().mkpath(folder) && program.open(QIODevice::WriteOnly));
        program.write("#!/bin/sh\necho \"$0\" > '" + started.fileName().toUtf8() + "'\n");
        QVERIFY(program.setPermissions(program.permissions() | QFile::ExeOwner));
        program.close();
        RunEntrySet("quorvel", folder, true);
        QCOMPARE(RunEntryLocation("quorvel"), m_config + "/autostart/quorvel.desktop");
        QVERIFY(RunEntryExists("quorvel") && !RunEntryExists("other"));
        // GLib starts only a well-formed application entry.
        QCOMPARE(QProcess::execute("gio", {"launch", RunEntryLocation("quorvel")}), 0);
        QTRY_VERIFY_WITH_TIMEOUT(started.size() > 0, 10000);
        QVERIFY(started.open(QIODevice::ReadOnly));
        QCOMPARE(started.readAll().trimmed(), program.fileName().toUtf8());

        RunEntrySet("q", "/opt/100% \"q\" $HOME", true);
        QFile q(RunEntryLocation("q"));
        QVERIFY(q.open(QIODevice::ReadOnly));
        QVERIFY(q.readAll().contains("\nExec=\"/opt/100%% \\\\\"q\\\\\" \\\\$HOME/q\"\n"));
        RunEntrySet("quorvel", folder, false);
        QVERIFY(!RunEntryExists("quorvel"));
        RunEntrySet("quorvel", folder, false); // removing what is not there says nothing
        QVERIFY(m_messages.isEmpty());
    }

    void failuresAreShown()
    {
        QVERIFY(QDir().mkpath(m_config));
        QFile blocker(m_config + "/autostart"); // a file in the way of the folder
        QVERIFY(blocker.open(QIODevice::WriteOnly));
        RunEntrySet("quorvel", "/opt/quorvel", true);
        QVERIFY(blocker.remove() && QDir().mkpath(blocker.fileName() + "/quorvel.desktop"));
        RunEntrySet("quorvel", "/opt/quorvel", true); // a folder in the way of the entry
        QVERIFY(!RunEntryExists("quorvel"));
        QCOMPARE(m_messages.size(), 2); // each with the system's error code
        QVERIFY(m_messages[0].contains(QRegularExpression("^Error [1-9][0-9]* opening key\n.+")));
        QVERIFY(m_messages[1].contains(QRegularExpression("^Error [1-9][0-9]* setting key\n")));
    }
};

QTEST_GUILESS_MAIN(TestStartupEntry)
#include "tst_startupentry.moc"
