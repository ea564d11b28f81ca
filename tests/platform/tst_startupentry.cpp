// The XDG autostart entry, launched for real with GLib's own desktop-entry launcher.
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
    // A set answers its message: empty when all went well.
    static QString set(const wchar_t* exe, const QString& dir, bool on)
    {
        return QString::fromStdWString(RunEntrySet(exe, dir.toStdWString(), on));
    }
    static QString where(const wchar_t* e) { return QString::fromStdWString(RunEntryLocation(e)); }

private slots:
    void init()
    {
        QDir(m_config).removeRecursively();
        qputenv("XDG_CONFIG_HOME", m_config.toUtf8());
    }

    void entryReallyStartsTheProgram()
    {
        // The characters Exec quoting cares about; not "%": GLib looks for the program first.
        const QString folder = m_dir.filePath("Program Files/Q \"v\" $HOME `x` \\ end");
        QFile program(folder + "/quorvel"), started(m_dir.filePath("started"));
        QVERIFY(QDir().mkpath(folder) && program.open(QIODevice::WriteOnly));
        program.write("#!/bin/sh\necho \"$0\" > '" + started.fileName().toUtf8() + "'\n");
        QVERIFY(program.setPermissions(program.permissions() | QFile::ExeOwner));
        program.close();
        QCOMPARE(set(L"quorvel", folder, true), "");
        QCOMPARE(where(L"quorvel"), m_config + "/autostart/quorvel.desktop");
        QVERIFY(RunEntryExists(L"quorvel") && !RunEntryExists(L"other"));
        // GLib starts only a well-formed application entry.
        QCOMPARE(QProcess::execute("gio", {"launch", where(L"quorvel")}), 0);
        QTRY_VERIFY_WITH_TIMEOUT(started.size() > 0, 10000);
        QVERIFY(started.open(QIODevice::ReadOnly));
        QCOMPARE(started.readAll().trimmed(), program.fileName().toUtf8());

        QCOMPARE(set(L"q", "/opt/100% \"q\" $HOME", true), "");
        QFile q(where(L"q"));
        QVERIFY(q.open(QIODevice::ReadOnly));
        QVERIFY(q.readAll().contains("\nExec=\"/opt/100%% \\\\\"q\\\\\" \\\\$HOME/q\"\n"));
        QCOMPARE(set(L"quorvel", folder, false), "");
        QVERIFY(!RunEntryExists(L"quorvel"));
        QCOMPARE(set(L"quorvel", folder, false), ""); // removing what is not there says nothing
    }

    void failuresAreShown()
    {
        QVERIFY(QDir().mkpath(m_config));
        QFile blocker(m_config + "/autostart"); // a file in the way of the folder
        QVERIFY(blocker.open(QIODevice::WriteOnly));
        // Each with the system's error code.
        QVERIFY(set(L"quorvel", "/opt/quorvel", true)
                    .contains(QRegularExpression("^Error [1-9][0-9]* opening key\n.+")));
        QVERIFY(blocker.remove() && QDir().mkpath(blocker.fileName() + "/quorvel.desktop"));
        // A folder in the way of the entry.
        QVERIFY(set(L"quorvel", "/opt/quorvel", true)
                    .contains(QRegularExpression("^Error [1-9][0-9]* setting key\n")));
        QVERIFY(!RunEntryExists(L"quorvel"));
    }
};

QTEST_GUILESS_MAIN(TestStartupEntry)
#include "tst_startupentry.moc"
