// The program's --cloud-test on real shares (Apache, nginx over https), and where its password
// goes: a real Secret Service (gnome-keyring in a private D-Bus session), or none.
#include "testsupport.h"

#include "prefs/frmpreferences.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusVariant>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QRegularExpression>
#include <QScopeGuard>

namespace
{
const QString kInstallation = QStringLiteral("check-host");
const QString kEmail = QStringLiteral("alice@example.org");

using Keys = QMap<QString, QString>;

struct Run {
    int exit = -1;
    QStringList lines; // stdout
    QString log;       // stderr
};
} // namespace

class TestCloudCheck : public QObject
{
    Q_OBJECT
    QTemporaryDir m_home; // HOME: the keyring's files
    Keys m_dav = serviceEnv("webdav");

    // SCRIPT ("$Q" is the program; $URL, $USR and $PW the Apache share's account) with the
    // settings in FOLDER, in a D-Bus session with the keyring "unlocked" or "locked" (started
    // without its password), or with no bus at all ("none").
    void start(QProcess& p, const QString& folder, const QString& store, const QString& script)
    {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.remove("DBUS_SESSION_BUS_ADDRESS"), env.remove("DISPLAY");
        env.insert("QUORVEL_SETTINGS_DIR", folder);
        env.insert("HOME", m_home.path());
        env.insert("Q", qEnvironmentVariable("QUORVEL_BINARY"));
        env.insert("URL", m_dav["DAV_URL"]), env.insert("USR", m_dav["DAV_USER"]);
        env.insert("PW", m_dav["DAV_PASSWORD"]);
        p.setProcessEnvironment(env);
        const QString keyring = store == "locked" ? "gnome-keyring-daemon --start"
                                                  : "echo -n kr | gnome-keyring-daemon --unlock";
        if (store == "none")
            p.start("sh", {"-c", script});
        else
            p.start("dbus-run-session",
                    {"--", "sh", "-c",
                     keyring +
                         " --components=secrets >/dev/null && gdbus wait --session "
                         "--timeout 10 org.freedesktop.secrets && " +
                         script});
    }
    Run run(const QString& folder, const QString& store, const QString& script,
            const QByteArray& in = {})
    {
        QProcess p;
        start(p, folder, store, script);
        p.write(in), p.closeWriteChannel();
        if (!p.waitForFinished(60000))
            p.kill(), p.waitForFinished();
        return {p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1,
                QString::fromUtf8(p.readAllStandardOutput()).split(u'\n', Qt::SkipEmptyParts),
                QString::fromUtf8(p.readAllStandardError())};
    }
    // A new keyring; with the share's password given while it was open.
    void newKeyring(const QString& folder, bool stored)
    {
        QDir(m_home.path()).removeRecursively();
        QDir().mkpath(m_home.path());
        QCOMPARE(run(folder, "unlocked",
                     stored ? "printf '%s\\n' \"$PW\" | \"$Q\" --cloud-url \"$URL\" --cloud-user "
                              "\"$USR\" --cloud-password-stdin --cloud-test"
                            : "true")
                     .exit,
                 0);
    }

    // The settings of a receiving installation, with KEYS.
    static void put(const QString& folder, const Keys& keys)
    {
        QSettings s(folder + "/Quorvel.ini", QSettings::IniFormat);
        s.beginGroup("Quorvel");
        s.setValue("InstallationId", kInstallation), s.setValue("EMailId", kEmail);
        for (auto it = keys.begin(); it != keys.end(); ++it)
            s.setValue(it.key(), it.value());
    }

private slots:
    void initTestCase()
    {
        // Both shares hold the receiving side's collections, owned by the servers' user.
        for (const char* name : {"webdav", "nginx-tls"}) {
            const QString root = serviceEnv(name).value("DAV_ROOT");
            QVERIFY2(!root.isEmpty(), name);
            QVERIFY(QDir().mkpath(root + "/CloudPrint/" + kInstallation + u'/' + kEmail));
            QCOMPARE(QProcess::execute("chown", {"-R", "www-data:www-data", root + "/CloudPrint"}),
                     0);
        }
    }

    // One line per step, in order; LINE is one of them (the last for a pass) and the exit status.
    void check_data()
    {
        QTest::addColumn<QString>("service");
        QTest::addColumn<Keys>("settings"); // "%p": the share's password
        QTest::addColumn<QString>("line");  // "%u": the user
        QTest::addColumn<int>("exit");
        const Keys pw{{"CloudPassword", "%p"}};
        const QString probe = "probe: CloudPrint/quorvel-check-\\w+\\.tmp was written, listed, "
                              "read back byte-exact and deleted";
        const QString untrusted = "tls: the certificate of CN=127.0.0.1, O=Quorvel test share is "
                                  "not trusted: The issuer certificate .*; if the share is yours, "
                                  "set CloudCaFile to its CA's PEM file";
        QTest::newRow("healthy share") << "webdav" << pw << probe << 0;
        QTest::newRow("wrong password")
            << "webdav" << Keys{{"CloudPassword", "wrong"}}
            << "user: the share refused user %u: check the password" << 1;
        QTest::newRow("unreachable port")
            << "webdav"
            << Keys{{"CloudPassword", "%p"},
                    {"CloudBaseUrl", QStringLiteral("http://127.0.0.1:%1/dav/").arg(freePort())}}
            << "address: 127.0.0.1:\\d+ cannot be reached: Connection refused" << 1;
        QTest::newRow("missing user collection")
            << "webdav" << Keys{{"CloudPassword", "%p"}, {"InstallationId", "nobody-here"}}
            << "collection CloudPrint/nobody-here \\(the user's collection\\): missing" << 1;
        QTest::newRow("untrusted certificate") << "nginx-tls" << pw << untrusted << 1;
        QTest::newRow("no certificate in CloudCaFile")
            << "nginx-tls" << Keys{{"CloudPassword", "%p"}, {"CloudCaFile", "%h"}} << untrusted
            << 1;
        QTest::newRow("private CA")
            << "nginx-tls" << Keys{{"CloudPassword", "%p"}, {"CloudCaFile", "%ca"}} << probe << 0;
    }
    void check()
    {
        QFETCH(QString, service);
        QFETCH(Keys, settings);
        QFETCH(QString, line);
        QFETCH(int, exit);
        auto share = serviceEnv(service);
        settings.insert("CloudBaseUrl", settings.value("CloudBaseUrl", share["DAV_URL"]));
        settings.insert("CloudUser", share["DAV_USER"]);
        for (QString& v : settings) // %h: a folder, no certificate
            v.replace("%p", share["DAV_PASSWORD"])
                .replace("%ca", share["DAV_CA"])
                .replace("%h", share["DAV_HOME"]);
        QTemporaryDir dir;
        put(dir.path(), settings);
        const Run r = run(dir.path(), "none", "exec \"$Q\" --cloud-test");
        const QString all = r.lines.join(u'\n') + u'\n' + r.log;
        QVERIFY2(r.exit == exit, qPrintable(all));
        static const QStringList steps = {"address: ",   "tls: ",       "user: ", "collection ",
                                          "collection ", "collection ", "probe: "};
        for (int i = 0; i < r.lines.size(); ++i)
            QVERIFY2(r.lines[i].startsWith(steps.value(i, "?")), qPrintable(all));
        QCOMPARE(r.lines.size() == steps.size(), exit == 0);
        const QRegularExpression want(
            "^" + line.replace("%u", QRegularExpression::escape(share["DAV_USER"])) + "$");
        QVERIFY2(r.lines.indexOf(want) >= 0, qPrintable(all));
        if (settings.value("CloudCaFile") == share["DAV_HOME"])
            QVERIFY(r.log.contains("CloudCaFile: no PEM certificate in " + share["DAV_HOME"]));
        // The preferences' "Test connection": the same check, the same lines.
        SettingsStore::setFolder(dir.path());
        FrmPreferences prefs;
        prefs.cmdTest->click();
        SettingsStore::setFolder({});
        QStringList shown = prefs.txtTest->toPlainText().split(u'\n');
        QCOMPARE(shown.takeLast(), exit == 0 ? "All checks passed." : "The check failed.");
        const QRegularExpression probeName("quorvel-check-\\w+");
        QCOMPARE(shown.join(u'\n').replace(probeName, "P"),
                 r.lines.join(u'\n').replace(probeName, "P"));
        // The probe never stays.
        QCOMPARE(QDir(share["DAV_ROOT"] + "/CloudPrint").entryList({"quorvel-check-*"}),
                 QStringList());
    }

    // Where the password goes, whether the check gets in with it, and then a second start.
    void credentials_data()
    {
        QTest::addColumn<QString>("store");  // the keyring at the check: see run()
        QTest::addColumn<bool>("plain");     // CloudPassword in the INI before
        QTest::addColumn<bool>("stored");    // the password kept in the keyring before
        QTest::addColumn<bool>("given");     // --cloud-password-stdin
        QTest::addColumn<QString>("logged"); // "%f": the INI
        QTest::addColumn<bool>("inIni");     // CloudPassword in the INI afterwards
        QTest::addColumn<QString>("last");   // the start of the check's last line
        const char* locked = "The credential store is locked: %1; the cloud share is used once it "
                             "is unlocked";
        QTest::newRow("secret service")
            << "unlocked" << false << false << true
            << "The cloud password is kept in the credential store" << false << "probe";
        QTest::newRow("moved out of the INI")
            << "unlocked" << true << false << false
            << "The cloud password moved from %f into the credential store" << false << "probe";
        QTest::newRow("no session bus")
            << "none" << false << false << true
            << "No credential store (no session bus): the cloud "
               "password stays in plain text in %f, readable by this user only"
            << true << "probe";
        QTest::newRow("locked store")
            << "locked" << false << true << false
            << QString(locked).arg("the cloud password cannot be read") << false
            << "user: the password of %u is in the credential store, which is locked";
        QTest::newRow("locked store, new password")
            << "locked" << false << false << true
            << QString(locked).arg("the new cloud password is used by this run only (Cannot "
                                   "create an item in a locked collection)")
            << false << "probe";
        QTest::newRow("locked store, password in the INI")
            << "locked" << true << false << false
            << QString(locked).arg("the cloud password stays in %f until it can be moved there")
            << true << "probe";
    }
    void credentials()
    {
        QFETCH(QString, store);
        QFETCH(bool, plain);
        QFETCH(bool, stored);
        QFETCH(bool, given);
        QFETCH(QString, logged);
        QFETCH(bool, inIni);
        QFETCH(QString, last);
        QTemporaryDir dir;
        const QString folder = dir.filePath("settings"), file = folder + "/Quorvel.ini";
        const QString password = m_dav["DAV_PASSWORD"];
        const QString account = "\"$Q\" --cloud-url \"$URL\" --cloud-user \"$USR\" ";
        put(folder, plain ? Keys{{"CloudPassword", password}} : Keys{});
        newKeyring(folder, stored); // then started locked (without its password), or unlocked
        const Run r =
            run(folder, store,
                "exec " + account + (given ? "--cloud-password-stdin " : "") + "--cloud-test",
                given ? (password + "\n").toUtf8() : QByteArray());
        const QString all = r.lines.join(u'\n') + u'\n' + r.log;
        QVERIFY2(r.log.contains(logged.replace("%f", file)), qPrintable(all));
        QVERIFY2(!r.lines.isEmpty() &&
                     r.lines.last().startsWith(last.replace("%u", m_dav["DAV_USER"])),
                 qPrintable(all));
        QCOMPARE(r.exit, last == "probe" ? 0 : 1);
        QSettings ini(file, QSettings::IniFormat);
        QCOMPARE(ini.value("Quorvel/CloudPassword").toString(), inIni ? password : QString());
        // Private (0600) before the password went in; the first write made it 0644.
        if (inIni && !plain)
            QCOMPARE(int(QFile::permissions(file) & 0x0077), 0);
        if (store == "locked")
            return;
        const Run again = run(folder, store, "exec \"$Q\" --cloud-test");
        QVERIFY2(again.exit == 0, qPrintable(again.lines.join(u'\n') + again.log));
    }

    void unlockedWhileRunning()
    {
        // A receiver polls beside a locked keyring; it gets in once the keyring is unlocked.
        QTemporaryDir dir;
        const QString folder = dir.filePath("settings");
        put(folder, {{"UserValidate", kEmail}});
        newKeyring(folder, true);
        QProcess server;
        start(server, folder, "locked",
              "echo \"$DBUS_SESSION_BUS_ADDRESS\" >\"$HOME/bus\"; echo $$ >\"$HOME/pid\"; exec "
              "\"$Q\" --headless --cloud-poll 1 --port " +
                  QString::number(freePort()));
        // The program ends its session; stopped whatever the test found.
        const auto stop = qScopeGuard([&] {
            QProcess::execute("kill",
                              {QString::fromUtf8(readFile(m_home.filePath("pid")).trimmed())});
            server.waitForFinished(20000);
        });
        QString log;
        const auto logged = [&](const char* text) {
            log +=
                QString::fromUtf8(server.readAllStandardError() + server.readAllStandardOutput());
            return log.contains(text);
        };
        QTRY_VERIFY_WITH_TIMEOUT(logged("401 Unauthorized"), 20000);
        QVERIFY(log.contains("The credential store is locked: the cloud password cannot be read"));
        // As the desktop's unlock prompt would.
        const QString secrets = "org.freedesktop.secrets", root = "/org/freedesktop/secrets";
        QDBusConnection bus = QDBusConnection::connectToBus(
            QString::fromUtf8(readFile(m_home.filePath("bus")).trimmed()), "keyring");
        QDBusMessage open = QDBusMessage::createMethodCall(
            secrets, root, "org.freedesktop.Secret.Service", "OpenSession");
        open << "plain" << QVariant::fromValue(QDBusVariant(QString()));
        QDBusArgument secret;
        secret.beginStructure();
        secret << bus.call(open).arguments().value(1).value<QDBusObjectPath>() << QByteArray()
               << QByteArray("kr") << QString("text/plain");
        secret.endStructure();
        QDBusMessage unlock = QDBusMessage::createMethodCall(
            secrets, root, "org.gnome.keyring.InternalUnsupportedGuiltRiddenInterface",
            "UnlockWithMasterPassword");
        unlock << QVariant::fromValue(QDBusObjectPath(root + "/collection/login"))
               << QVariant::fromValue(secret);
        QCOMPARE(bus.call(unlock).type(), QDBusMessage::ReplyMessage);
        QTRY_VERIFY_WITH_TIMEOUT(logged("The credential store is unlocked"), 20000);
        QTRY_VERIFY_WITH_TIMEOUT(logged("207 Multi-Status"), 20000);
        QDBusConnection::disconnectFromBus("keyring");
    }
};

QTEST_MAIN(TestCloudCheck)
#include "tst_cloudcheck.moc"
