// The cloud print store control against the Apache share: every chain of
// requests, the events it raises, what it logs and shows.
#include "cloud/cloudshare.h"
#include "cloud/uccloudsrvr.h"
#include "common/log.h"
#include "common/runtimeerror.h"
#include "common/settings.h"
#include "davtest.h"

#include <QLineEdit>
#include <QMetaMethod>
#include <QTest>
#include <QTimer>

// The control with the ids typed in, its four events recorded in the order they come.
class Uc : public UcCloudSrvr
{
public:
    explicit Uc(const QString& user = {}, const QString& server = {})
    {
        setUcCloudUserId(user);
        setUcCloudServerId(server);
        // Connected as a host window does, through the run-time error guard.
        connect(this, &UcCloudSrvr::ClientInfoReturn, this,
                Guarded([this](QString& id, QString& list) {
                    events << QStringLiteral("ClientInfoReturn:") + id + u'|' + list;
                }));
        connect(this, &UcCloudSrvr::ServerInfoReturn, this,
                [this](QString& list) { events << QStringLiteral("ServerInfoReturn:") + list; });
        connect(this, &UcCloudSrvr::ValidateUser, this, Guarded([this](bool& found) {
                    events << QStringLiteral("ValidateUser:") + (found ? "true" : "false");
                }));
        connect(this, &UcCloudSrvr::CloudFileReceived, this,
                [this](QString& text) { events << QStringLiteral("CloudFileReceived:") + text; });
    }
    bool logEnds(const QString& tail) const { return txtLog->text().endsWith(tail); }
    bool idle() const
    {
        return isEnabled() && cursor().shape() == Qt::ArrowCursor && !TimerEnabled();
    }
    QStringList events;
};

// Runs one call of the control and waits until the share has answered n requests.
#define SETTLE(uc, n, call) QVERIFY(settle(uc, n, [&] { (uc).call; }))

class TestUcCloudSrvr : public QObject
{
    Q_OBJECT
    DavShare share;
    QString user; // a user id on the share, lower case
    ShownMessages messages;

    // Prepares the share as its owner would, through the client itself.
    void makeCollections(const QStringList& paths)
    {
        DavClient api(share);
        for (const QString& p : paths) {
            DAV_RUN(api, MakeDir(p));
            QVERIFY2(api.last().status == 201 || api.last().status == 405, qPrintable(p));
        }
    }
    // Runs one action and waits until the share has answered n requests.
    bool settle(UcCloudSrvr& uc, int requests, const std::function<void()>& action)
    {
        QSignalSpy spy(uc.Dav(), &ThinDavApi::Complete);
        action();
        for (int i = 0; i < 1000 && spy.count() < requests; ++i)
            QTest::qWait(10);
        return spy.count() == requests && uc.Dav()->ReadyState() == 4;
    }
    void useAccount(const QString& url, const QString& user, const QString& password)
    {
        SettingsStore::put(CloudShare::kBaseUrlKey, url);
        SettingsStore::put(CloudShare::kUserKey, user);
        SettingsStore::put(CloudShare::kPasswordKey, password);
    }
    QByteArray stored(const QString& path) const
    {
        return share.bytes("CloudPrint/" + user + u'/' + path);
    }

private slots:
    void initTestCase()
    {
        share = DavShare::fromFixture();
        QVERIFY2(share.ok(), "the webdav fixture is not running");
        user = uniqueName("user");
        useAccount(share.url, share.user, share.password);
        makeCollections({"CloudPrint", "CloudPrint/" + user, "CloudPrint/" + user + "/srv1"});
    }
    void init() { messages.clear(); }

    void builtInAccountUnlessSet()
    {
        for (const QString& key :
             {CloudShare::kBaseUrlKey, CloudShare::kUserKey, CloudShare::kPasswordKey})
            SettingsStore::remove(key);
        {
            UcCloudSrvr uc;
            QVERIFY(uc.Dav()->BaseUrl().startsWith(QStringLiteral("https://")));
            QVERIFY(uc.Dav()->User.contains(u'@'));
            QCOMPARE(uc.Dav()->PW, QStringLiteral("Rwm402719"));
        }
        useAccount(share.url.chopped(1), share.user, share.password); // no trailing "/"
        UcCloudSrvr uc;
        QCOMPARE(uc.Dav()->BaseUrl(), share.url);
        QCOMPARE(uc.Dav()->User, share.user);
        QCOMPARE(uc.Dav()->PW, share.password);
        SettingsStore::put(CloudShare::kBaseUrlKey, share.url);
    }

    void openingLogTimerAndEvents()
    {
        UcCloudSrvr uc;
        QCOMPARE(uc.txtLog->text(), "ThinDavApi Version = 001.000\r\nRequesting OPTIONS\r\n"
                                    "BaseURL = " +
                                        share.url + "\r\n\r\nOpening DAV share\r\n");
        // Enabled, but an interval of 0 never ticks.
        QCOMPARE(uc.tmrTimeout->interval(), 0);
        QVERIFY(uc.TimerEnabled());
        QVERIFY(!uc.tmrTimeout->isActive());
        // The four events in their declared order.
        const QMetaObject& mo = UcCloudSrvr::staticMetaObject;
        int at = -1;
        for (const char* event :
             {"ClientInfoReturn(QString&,QString&)", "ServerInfoReturn(QString&)",
              "ValidateUser(bool&)", "CloudFileReceived(QString&)"}) {
            QVERIFY2(mo.indexOfSignal(event) > at, event);
            at = mo.indexOfSignal(event);
        }
    }

    void findServerCreatesMissingServer()
    {
        Uc uc("  " + user.toUpper() + " ", QStringLiteral(" newsrv "));
        const QString before = uc.txtLog->text();
        QVERIFY(settle(uc, 3, [&] {
            uc.UcFindServerInfo();
            // Busy until the share answers.
            QVERIFY(!uc.isEnabled());
            QCOMPARE(uc.cursor().shape(), Qt::WaitCursor);
            QVERIFY(uc.TimerEnabled());
            QVERIFY(!uc.tmrTimeout->isActive());
            QCOMPARE(uc.Stage(), QStringLiteral("Root"));
            QCOMPARE(uc.txtDirectory->text(), QStringLiteral("CloudPrint"));
        }));
        QCOMPARE(uc.events, QStringList({"ValidateUser:true"}));
        QCOMPARE(messages.texts(), QStringList({"User Id Found..." + user}));
        QCOMPARE(messages[0].icon, MsgIcon::None);
        QCOMPARE(uc.Stage(), QStringLiteral("RootServer"));
        QCOMPARE(uc.txtDirectory->text(), "CloudPrint\\" + user);
        QVERIFY(QFileInfo(share.root + "/CloudPrint/" + user + "/newsrv").isDir());
        QCOMPARE(uc.txtLog->text().mid(before.size()),
                 QStringLiteral("Requesting PROPFIND\r\n207 Multi-Status\r\n\r\n"
                                "Requesting PROPFIND\r\n207 Multi-Status\r\n\r\n"
                                "Requesting MKCOL\r\n201 Created\r\n"));
        QVERIFY(uc.idle());
        QVERIFY(share.accessLog().contains("\"MKCOL /dav/CloudPrint%5C" + user +
                                           "/newsrv HTTP/1.1\" 201"));

        // Now it exists: two listings and nothing more.
        messages.clear();
        SETTLE(uc, 2, UcFindServerInfo());
        QCOMPARE(uc.events, QStringList({"ValidateUser:true", "ValidateUser:true"}));
        QCOMPARE(uc.Dav()->Request(), int(ThinDavApi::rqGetDir));
        QVERIFY(uc.logEnds("207 Multi-Status\r\n\r\n"));
        QVERIFY(uc.idle());
    }

    void capitalServerIdRepeatsMakeDir()
    {
        Uc uc(user, QStringLiteral(" BigBox "));
        SETTLE(uc, 3, UcFindServerInfo());
        QVERIFY(QFileInfo(share.root + "/CloudPrint/" + user + "/BigBox").isDir());
        QVERIFY(uc.logEnds("Requesting MKCOL\r\n201 Created\r\n"));

        // Looked up as "bigbox", never found: the MKCOL comes again and fails, only logged.
        messages.clear();
        SETTLE(uc, 3, UcFindServerInfo());
        QVERIFY(uc.logEnds("Requesting MKCOL\r\n405 Method Not Allowed\r\nFailed\r\n\r\n"));
        QCOMPARE(messages.texts(), QStringList({"User Id Found..." + user}));
        QCOMPARE(uc.events, QStringList({"ValidateUser:true", "ValidateUser:true"}));
        QVERIFY(uc.idle());
    }

    void findClientListsServers()
    {
        const QString client = uniqueName("client"), lonely = uniqueName("lonely");
        makeCollections({"CloudPrint/" + client, "CloudPrint/" + client + "/alpha",
                         "CloudPrint/" + client + "/Beta", "CloudPrint/" + lonely});
        DavClient api(share); // a file beside the servers is not a server
        DAV_RUN(api, PutFileText("CloudPrint/" + client + "/note.ps", "n", "text/plain"));
        messages.clear();

        Uc uc(" " + client.toUpper());
        SETTLE(uc, 2, UcFindClientInfo());
        QCOMPARE(uc.events.size(), 1);
        QVERIFY(uc.events[0].startsWith("ClientInfoReturn: " + client.toUpper() + u'|'));
        QStringList servers = uc.events[0].section(u'|', 1).split(u',');
        servers.sort();
        QCOMPARE(servers, QStringList({"Beta", "alpha"}));
        QCOMPARE(uc.Stage(), QStringLiteral("ClientServers"));
        QVERIFY(messages.isEmpty());
        QVERIFY(uc.idle());

        // A user without servers.
        uc.events.clear();
        uc.setUcCloudUserId(lonely);
        SETTLE(uc, 2, UcFindClientInfo());
        QCOMPARE(uc.events, QStringList({"ClientInfoReturn:" + lonely + "|"}));

        // An unknown user: the message, then the event with an empty list.
        uc.events.clear();
        uc.setUcCloudUserId(QStringLiteral("ghost"));
        SETTLE(uc, 1, UcFindClientInfo());
        QCOMPARE(messages.texts(), QStringList({"User Id Not Found...ghost"}));
        QCOMPARE(uc.events, QStringList({"ClientInfoReturn:ghost|"}));
    }

    void uploadNeverOverwrites()
    {
        Uc uc;
        const QString dir = "CloudPrint\\" + user + "\\srv1";
        const QString job = QStringLiteral("%!PS-Adobe-3.0\r\n(first) show showpage\r\n");
        SETTLE(uc, 2, UcUploadToCloudFile(dir, QStringLiteral("File_1"), job));
        QCOMPARE(messages.texts(), QStringList({ThinDavApi::UploadMessage()}));
        QCOMPARE(stored("srv1/File_1.ps"), job.toUtf8());
        QVERIFY(
            uc.logEnds("Requesting HEAD\r\n404 Not Found\r\nRequesting PUT\r\n201 Created\r\n"));
        QVERIFY(uc.idle());

        // The same name again: found by HEAD, never PUT; the run-time error reaches the user.
        messages.clear();
        SETTLE(uc, 1, UcUploadToCloudFile(dir, QStringLiteral("File_1"), "other"));
        QCOMPARE(messages.texts(), QStringList({"Run-time error '424': Object required"}));
        QCOMPARE(messages[0].icon, MsgIcon::Critical);
        QVERIFY(uc.logEnds("Requesting HEAD\r\n200 OK\r\nFailed, already exists\r\n\r\n"));
        QCOMPARE(stored("srv1/File_1.ps"), job.toUtf8());
        QCOMPARE(uc.Dav()->Request(), int(ThinDavApi::rqGetFileLength));
        QVERIFY(uc.idle());
    }

    void uploadIntoMissingFolder()
    {
        Uc uc;
        SETTLE(uc, 2, UcUploadToCloudFile("CloudPrint\\" + user + "\\nofolder", "job", "x"));
        QCOMPARE(messages.texts(), QStringList({ThinDavApi::UploadMessage(),
                                                "Make file job.ps\r\n\r\nfailed\r\n\r\nConflict"}));
        QCOMPARE(messages[1].icon, MsgIcon::Exclamation);
        QVERIFY(uc.logEnds("409 Conflict\r\nFailed\r\n\r\n"));
    }

    void listThenDownloadLeavesFile()
    {
        const QString srv = QStringLiteral("PrintBox");
        makeCollections({"CloudPrint/" + user + "/" + srv});
        Uc up;
        SETTLE(up, 2, UcUploadToCloudFile("CloudPrint\\" + user + "\\" + srv, "File_A", "job A"));
        makeCollections({"CloudPrint/" + user + "/" + srv + "/sub"}); // not a job

        Uc uc(" " + user.toUpper(), " " + srv + " ");
        // As the main window does: fetch the first listed file when the list comes.
        connect(&uc, &UcCloudSrvr::ServerInfoReturn, &uc, [&uc](QString& list) {
            if (!list.isEmpty())
                uc.UcCheckDownloadList(list.section(u',', 0, 0));
        });
        messages.clear();
        for (int round = 0; round < 2; ++round) { // still there: listed again
            uc.events.clear();
            SETTLE(uc, 2, UcCheckCloudList());
            QCOMPARE(uc.txtDirectory->text(), "CloudPrint\\" + user + "\\" + srv);
            QCOMPARE(uc.events,
                     QStringList({"ServerInfoReturn:File_A.ps", "CloudFileReceived:job A"}));
            QVERIFY(messages.isEmpty());
            QVERIFY(uc.logEnds("Requesting GET\r\n200 OK\r\n"));
            QCOMPARE(stored(srv + "/File_A.ps"), QByteArray("job A"));
            QVERIFY(uc.isEnabled());
        }
    }

    void listingWithoutJobs()
    {
        Uc uc(user, QStringLiteral("newsrv")); // exists, empty
        SETTLE(uc, 1, UcCheckCloudList());
        uc.setUcCloudServerId(QStringLiteral("missing"));
        SETTLE(uc, 1, UcCheckCloudList());
        QCOMPARE(uc.events, QStringList({"ServerInfoReturn:", "ServerInfoReturn:"}));
        QVERIFY(uc.logEnds("Requesting PROPFIND\r\n404 Not Found\r\n"));
        QVERIFY(messages.isEmpty());
        QVERIFY(uc.idle());
    }

    void downloadOfMissingFile()
    {
        Uc uc(user, QStringLiteral("srv1"));
        SETTLE(uc, 1, UcCheckDownloadList(QStringLiteral("gone.ps")));
        QVERIFY(uc.events.isEmpty());
        QCOMPARE(messages.texts(),
                 QStringList({"Open file gone.ps\r\n\r\nfailed\r\n\r\nNot Found"}));
        QCOMPARE(messages[0].icon, MsgIcon::Exclamation);
        QVERIFY(uc.logEnds("404 Not Found\r\nFailed\r\n\r\n"));
    }

    // The user is not found: unknown on the share, refused (401), or no answer at all.
    void userNotFound_data()
    {
        QTest::addColumn<QString>("typed");
        QTest::addColumn<QString>("url");      // empty: the share's
        QTest::addColumn<QString>("password"); // empty: the right one
        QTest::addColumn<QString>("logTail");
        QTest::newRow("unknown") << " Nobody" + user << ""
                                 << ""
                                 << "Requesting PROPFIND\r\n207 Multi-Status\r\n\r\n";
        QTest::newRow("wrong password") << user << ""
                                        << "wrong"
                                        << "401 Unauthorized\r\n";
        QTest::newRow("server stopped") << user << closedUrl() << ""
                                        << "1 Connection refused\r\n";
    }
    void userNotFound()
    {
        QFETCH(QString, typed);
        QFETCH(QString, url);
        QFETCH(QString, password);
        QFETCH(QString, logTail);
        SettingsStore::put(CloudShare::kPasswordKey,
                           password.isEmpty() ? share.password : password);
        Uc uc(typed, QStringLiteral("srv1"));
        SettingsStore::put(CloudShare::kPasswordKey, share.password);
        if (!url.isEmpty())
            uc.Dav()->setBaseUrl(url);
        SETTLE(uc, 1, UcFindServerInfo());
        QVERIFY(uc.logEnds(logTail));
        QCOMPARE(messages.texts(),
                 QStringList({"User Id Not Found..." + typed.trimmed().toLower()}));
        QCOMPARE(uc.events, QStringList({"ValidateUser:false"}));
        QVERIFY(!QFileInfo::exists(share.root + "/CloudPrint/nobody" + user));
        QVERIFY(uc.idle());
    }

    void serverStopped()
    {
        Uc uc(user, QStringLiteral("srv1"));
        uc.Dav()->setBaseUrl(closedUrl());
        SETTLE(uc, 1, UcCheckCloudList());
        QCOMPARE(uc.events, QStringList({"ServerInfoReturn:"}));

        messages.clear();
        SETTLE(uc, 1, UcCheckDownloadList(QStringLiteral("f.ps")));
        QCOMPARE(messages.texts(),
                 QStringList({"Open file f.ps\r\n\r\nfailed\r\n\r\nConnection refused"}));

        // HEAD fails, so the PUT goes out; it fails without Complete and the
        // control stays busy.
        messages.clear();
        QSignalSpy spy(uc.Dav(), &ThinDavApi::Complete);
        uc.UcUploadToCloudFile(QStringLiteral("CloudPrint\\x\\y"), QStringLiteral("job"), "data");
        QTRY_COMPARE(spy.count(), 1);
        QCOMPARE(messages.texts(), QStringList({ThinDavApi::UploadMessage()}));
        QTRY_COMPARE(uc.Dav()->ReadyState(), 4);
        QCOMPARE(uc.Dav()->Request(), int(ThinDavApi::rqPutFileText));
        QCOMPARE(uc.Dav()->Status(), 405);
        QCOMPARE(spy.count(), 1);
        QVERIFY(!uc.isEnabled());
        QCOMPARE(uc.cursor().shape(), Qt::WaitCursor);
        QVERIFY(uc.logEnds("Requesting PUT\r\n"));
    }

    void timerTickAbortsRequestWithoutAnswer()
    {
        // A server that accepts and never answers; an armed timer aborts.
        QTcpServer silent;
        QVERIFY(silent.listen(QHostAddress::LocalHost, 0));
        Uc uc;
        uc.Dav()->setBaseUrl(QStringLiteral("http://127.0.0.1:%1/dav/").arg(silent.serverPort()));
        uc.tmrTimeout->setInterval(50);
        QSignalSpy spy(uc.Dav(), &ThinDavApi::Complete);
        uc.UcFindServerInfo();
        QVERIFY(uc.tmrTimeout->isActive());
        QTRY_COMPARE(spy.count(), 1);
        QVERIFY(uc.logEnds("Aborted due to timeout\r\n\r\n"));
        QVERIFY(uc.events.isEmpty());
        QVERIFY(messages.isEmpty());
        QVERIFY(uc.idle());
    }

    void longLogKeepsItsTail()
    {
        UcCloudSrvr uc;
        uc.Dav()->setBaseUrl(closedUrl());
        uc.txtLog->setText(QString(29980, u'x'));
        QVERIFY(settle(uc, 1, [&] {
            uc.UcFindServerInfo(); // 29980 + "Requesting PROPFIND\r\n" passes 30000
            QCOMPARE(uc.txtLog->text().size(), 25000);
            QVERIFY(uc.txtLog->text().endsWith(QStringLiteral("xRequesting PROPFIND\r\n")));
        }));
    }
};

QTEST_MAIN(TestUcCloudSrvr)
#include "tst_uccloudsrvr.moc"