// The cloud print store control against the Apache share: every chain of
// requests, the events it raises, what it logs and shows.
#include "cloud/cloudshare.h"
#include "cloud/uccloudsrvr.h"
#include "common/log.h"
#include "common/msgbox.h"
#include "common/runtimeerror.h"
#include "common/settings.h"
#include "davtest.h"

#include <QLabel>
#include <QLineEdit>
#include <QMetaMethod>
#include <QPushButton>
#include <QTest>
#include <QTimer>

namespace
{
const QString kCrLf = QStringLiteral("\r\n");
}

// Records the control's four events in the order they come.
class EventLog : public QObject
{
public:
    explicit EventLog(UcCloudSrvr& uc)
    {
        // Connected as a host window does, through the run-time error guard.
        connect(&uc, &UcCloudSrvr::ClientInfoReturn, this,
                Guarded([this](QString& id, QString& list) {
                    events << QStringLiteral("ClientInfoReturn:") + id + u'|' + list;
                }));
        connect(&uc, &UcCloudSrvr::ServerInfoReturn, this,
                [this](QString& list) { events << QStringLiteral("ServerInfoReturn:") + list; });
        connect(&uc, &UcCloudSrvr::ValidateUser, this, Guarded([this](bool& found) {
            events << QStringLiteral("ValidateUser:") + (found ? "true" : "false");
        }));
        connect(&uc, &UcCloudSrvr::CloudFileReceived, this,
                [this](QString& text) { events << QStringLiteral("CloudFileReceived:") + text; });
    }
    QStringList events;
};

class TestUcCloudSrvr : public QObject
{
    Q_OBJECT
    DavShare share;
    QString user; // a user id on the share, lower case
    QList<Message> messages;

    // Prepares the share as its owner would, through the client itself.
    void makeCollections(const QStringList& paths)
    {
        ThinDavApi api;
        api.setBaseUrl(share.url);
        api.User = share.user;
        api.PW = share.password;
        CompletionLog log(api);
        for (const QString& p : paths) {
            QVERIFY(log.run([&] { api.MakeDir(p); }));
            QVERIFY2(log.last().status == 201 || log.last().status == 405, qPrintable(p));
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
    QStringList texts() const
    {
        QStringList t;
        for (const Message& m : messages)
            t << m.text;
        return t;
    }
    QString stored(const QString& path) const
    {
        QFile f(share.root + u'/' + path);
        return f.open(QIODevice::ReadOnly) ? QString::fromUtf8(f.readAll())
                                           : QStringLiteral("<none>");
    }
    bool idle(UcCloudSrvr& uc) const
    {
        return uc.isEnabled() && uc.cursor().shape() == Qt::ArrowCursor && !uc.TimerEnabled();
    }

private slots:
    void initTestCase()
    {
        share = DavShare::fromFixture();
        QVERIFY2(share.ok, "the webdav fixture is not running");
        user = uniqueName("user");
        SettingsStore::put(CloudShare::kBaseUrlKey, share.url);
        SettingsStore::put(CloudShare::kUserKey, share.user);
        SettingsStore::put(CloudShare::kPasswordKey, share.password);
        makeCollections({"CloudPrint", "CloudPrint/" + user, "CloudPrint/" + user + "/srv1"});
    }
    void init()
    {
        messages.clear();
        setMsgRecorder([this](const Message& m) { messages.append(m); });
    }
    void cleanup() { setMsgRecorder({}); }

    void builtInAccountUnlessSet()
    {
        SettingsStore::remove(CloudShare::kBaseUrlKey);
        SettingsStore::remove(CloudShare::kUserKey);
        SettingsStore::remove(CloudShare::kPasswordKey);
        {
            UcCloudSrvr uc;
            QVERIFY(uc.Dav()->BaseUrl().startsWith(QStringLiteral("https://")));
            QVERIFY(uc.Dav()->User.contains(u'@'));
            QCOMPARE(uc.Dav()->PW, QStringLiteral("Rwm402719"));
        }
        SettingsStore::put(CloudShare::kBaseUrlKey, share.url.chopped(1)); // no trailing "/"
        SettingsStore::put(CloudShare::kUserKey, share.user);
        SettingsStore::put(CloudShare::kPasswordKey, share.password);
        UcCloudSrvr uc;
        QCOMPARE(uc.Dav()->BaseUrl(), share.url);
        QCOMPARE(uc.Dav()->User, share.user);
        QCOMPARE(uc.Dav()->PW, share.password);
        SettingsStore::put(CloudShare::kBaseUrlKey, share.url);
    }

    void controlsAndOpeningLog()
    {
        UcCloudSrvr uc;
        QCOMPARE(uc.Label1->text(), QStringLiteral("CloudUser"));
        QCOMPARE(uc.Label2->text(), QStringLiteral("Cloud Server"));
        QCOMPARE(uc.Command4->text(), QStringLiteral("Check Directory"));
        QCOMPARE(uc.txtLog->text(), QStringLiteral("ThinDavApi Version = 001.000\r\n"
                                                   "Requesting OPTIONS\r\n"
                                                   "BaseURL = ") +
                                        share.url +
                                        QStringLiteral("\r\n\r\nOpening DAV share\r\n"));
        // Enabled, but an interval of 0 never ticks.
        QCOMPARE(uc.tmrTimeout->interval(), 0);
        QVERIFY(uc.TimerEnabled());
        QVERIFY(!uc.tmrTimeout->isActive());
        uc.setUcCloudUserId(QStringLiteral("Someone"));
        uc.setUcCloudServerId(QStringLiteral("Box"));
        QCOMPARE(uc.UcCloudUserId(), QStringLiteral("Someone"));
        QCOMPARE(uc.Text3->text(), QStringLiteral("Someone"));
        QCOMPARE(uc.UcCloudServerId(), QStringLiteral("Box"));
        QCOMPARE(uc.Text4->text(), QStringLiteral("Box"));
    }

    void eventsInDeclaredOrder()
    {
        const QMetaObject& mo = UcCloudSrvr::staticMetaObject;
        const int a = mo.indexOfSignal("ClientInfoReturn(QString&,QString&)");
        const int b = mo.indexOfSignal("ServerInfoReturn(QString&)");
        const int c = mo.indexOfSignal("ValidateUser(bool&)");
        const int d = mo.indexOfSignal("CloudFileReceived(QString&)");
        QVERIFY(a >= 0 && a < b && b < c && c < d);
    }

    void findServerCreatesMissingServer()
    {
        UcCloudSrvr uc;
        EventLog ev(uc);
        uc.setUcCloudUserId(QStringLiteral("  ") + user.toUpper() + QStringLiteral(" "));
        uc.setUcCloudServerId(QStringLiteral(" newsrv "));
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
        QCOMPARE(ev.events, QStringList({"ValidateUser:true"}));
        QCOMPARE(texts(), QStringList({"User Id Found..." + user}));
        QCOMPARE(messages[0].icon, MsgIcon::None);
        QCOMPARE(uc.Stage(), QStringLiteral("RootServer"));
        QCOMPARE(uc.txtDirectory->text(), QStringLiteral("CloudPrint\\") + user);
        QVERIFY(QFileInfo(share.root + "/CloudPrint/" + user + "/newsrv").isDir());
        QCOMPARE(uc.txtLog->text().mid(before.size()),
                 QStringLiteral("Requesting PROPFIND\r\n207 Multi-Status\r\n\r\n"
                                "Requesting PROPFIND\r\n207 Multi-Status\r\n\r\n"
                                "Requesting MKCOL\r\n201 Created\r\n"));
        QVERIFY(idle(uc));
        QVERIFY(share.accessLog().contains("\"MKCOL /dav/CloudPrint%5C" + user +
                                           "/newsrv HTTP/1.1\" 201"));

        // Now it exists: two listings and nothing more.
        messages.clear();
        QVERIFY(settle(uc, 2, [&] { uc.UcFindServerInfo(); }));
        QCOMPARE(ev.events, QStringList({"ValidateUser:true", "ValidateUser:true"}));
        QCOMPARE(uc.Dav()->Request(), int(ThinDavApi::rqGetDir));
        QVERIFY(uc.txtLog->text().endsWith(QStringLiteral("207 Multi-Status\r\n\r\n")));
        QVERIFY(idle(uc));
    }

    void capitalServerIdRepeatsMakeDir()
    {
        UcCloudSrvr uc;
        EventLog ev(uc);
        uc.setUcCloudUserId(user);
        uc.setUcCloudServerId(QStringLiteral(" BigBox "));
        QVERIFY(settle(uc, 3, [&] { uc.UcFindServerInfo(); }));
        QVERIFY(QFileInfo(share.root + "/CloudPrint/" + user + "/BigBox").isDir());
        QVERIFY(uc.txtLog->text().endsWith(QStringLiteral("Requesting MKCOL\r\n201 Created\r\n")));

        // Looked up as "bigbox", never found: the MKCOL comes again and fails, only logged.
        messages.clear();
        QVERIFY(settle(uc, 3, [&] { uc.UcFindServerInfo(); }));
        QVERIFY(uc.txtLog->text().endsWith(
            QStringLiteral("Requesting MKCOL\r\n405 Method Not Allowed\r\nFailed\r\n\r\n")));
        QCOMPARE(texts(), QStringList({"User Id Found..." + user}));
        QCOMPARE(ev.events, QStringList({"ValidateUser:true", "ValidateUser:true"}));
        QVERIFY(idle(uc));
    }

    void findServerUnknownUser()
    {
        UcCloudSrvr uc;
        EventLog ev(uc);
        uc.setUcCloudUserId(QStringLiteral(" Nobody") + user);
        uc.setUcCloudServerId(QStringLiteral("srv1"));
        QVERIFY(settle(uc, 1, [&] { uc.UcFindServerInfo(); }));
        QCOMPARE(texts(), QStringList({"User Id Not Found...nobody" + user}));
        QCOMPARE(ev.events, QStringList({"ValidateUser:false"}));
        QVERIFY(!QFileInfo::exists(share.root + "/CloudPrint/nobody" + user));
        QVERIFY(idle(uc));
    }

    void findClientListsServers()
    {
        const QString client = uniqueName("client");
        makeCollections({"CloudPrint/" + client, "CloudPrint/" + client + "/alpha",
                         "CloudPrint/" + client + "/Beta", "CloudPrint/" + uniqueName("lonely")});
        {
            ThinDavApi api; // a file beside the servers is not a server
            api.setBaseUrl(share.url);
            api.User = share.user;
            api.PW = share.password;
            CompletionLog log(api);
            QVERIFY(log.run(
                [&] { api.PutFileText("CloudPrint/" + client + "/note.ps", "n", "text/plain"); }));
        }
        messages.clear();
        UcCloudSrvr uc;
        EventLog ev(uc);
        const QString typed = QStringLiteral(" ") + client.toUpper();
        uc.setUcCloudUserId(typed);
        QVERIFY(settle(uc, 2, [&] { uc.UcFindClientInfo(); }));
        QCOMPARE(ev.events.size(), 1);
        const QString event = ev.events[0];
        QVERIFY(event.startsWith(QStringLiteral("ClientInfoReturn:") + typed + u'|'));
        QStringList servers = event.section(u'|', 1).split(u',');
        servers.sort();
        QCOMPARE(servers, QStringList({"Beta", "alpha"}));
        QCOMPARE(uc.Stage(), QStringLiteral("ClientServers"));
        QVERIFY(messages.isEmpty());
        QVERIFY(idle(uc));

        // A user without servers.
        ev.events.clear();
        uc.setUcCloudUserId(uniqueName("lonely"));
        QVERIFY(settle(uc, 2, [&] { uc.UcFindClientInfo(); }));
        QCOMPARE(ev.events, QStringList({"ClientInfoReturn:" + uniqueName("lonely") + "|"}));

        // An unknown user: the message, then the event with an empty list.
        ev.events.clear();
        uc.setUcCloudUserId(QStringLiteral("ghost"));
        QVERIFY(settle(uc, 1, [&] { uc.UcFindClientInfo(); }));
        QCOMPARE(texts(), QStringList({"User Id Not Found...ghost"}));
        QCOMPARE(ev.events, QStringList({"ClientInfoReturn:ghost|"}));
    }

    void uploadNeverOverwrites()
    {
        UcCloudSrvr uc;
        const QString dir = "CloudPrint\\" + user + "\\srv1";
        const QString job = QStringLiteral("%!PS-Adobe-3.0\r\n(first) show showpage\r\n");
        QVERIFY(settle(uc, 2, [&] { uc.UcUploadToCloudFile(dir, QStringLiteral("File_1"), job); }));
        QCOMPARE(texts(), QStringList({ThinDavApi::UploadMessage()}));
        QCOMPARE(stored("CloudPrint/" + user + "/srv1/File_1.ps"), job);
        QVERIFY(uc.txtLog->text().endsWith(QStringLiteral(
            "Requesting HEAD\r\n404 Not Found\r\nRequesting PUT\r\n201 Created\r\n")));
        QVERIFY(idle(uc));

        // The same name again: found by HEAD, never PUT; the run-time error reaches the user.
        messages.clear();
        QVERIFY(
            settle(uc, 1, [&] { uc.UcUploadToCloudFile(dir, QStringLiteral("File_1"), "other"); }));
        QCOMPARE(texts(), QStringList({"Run-time error '424': Object required"}));
        QCOMPARE(messages[0].icon, MsgIcon::Critical);
        QVERIFY(uc.txtLog->text().endsWith(
            QStringLiteral("Requesting HEAD\r\n200 OK\r\nFailed, already exists\r\n\r\n")));
        QCOMPARE(stored("CloudPrint/" + user + "/srv1/File_1.ps"), job);
        QCOMPARE(uc.Dav()->Request(), int(ThinDavApi::rqGetFileLength));
        QVERIFY(idle(uc));
    }

    void uploadIntoMissingFolder()
    {
        UcCloudSrvr uc;
        QVERIFY(settle(uc, 2, [&] {
            uc.UcUploadToCloudFile("CloudPrint\\" + user + "\\nofolder", "job", "x");
        }));
        QCOMPARE(texts(), QStringList({ThinDavApi::UploadMessage(), "Make file job.ps" + kCrLf +
                                                                        kCrLf + "failed" + kCrLf +
                                                                        kCrLf + "Conflict"}));
        QCOMPARE(messages[1].icon, MsgIcon::Exclamation);
        QVERIFY(uc.txtLog->text().endsWith(QStringLiteral("409 Conflict\r\nFailed\r\n\r\n")));
    }

    void listThenDownloadLeavesFile()
    {
        const QString srv = QStringLiteral("PrintBox");
        makeCollections({"CloudPrint/" + user + "/" + srv});
        UcCloudSrvr up;
        QVERIFY(settle(up, 2, [&] {
            up.UcUploadToCloudFile("CloudPrint\\" + user + "\\" + srv, "File_A", "job A");
        }));
        makeCollections({"CloudPrint/" + user + "/" + srv + "/sub"}); // not a job

        UcCloudSrvr uc;
        EventLog ev(uc);
        uc.setUcCloudUserId(QStringLiteral(" ") + user.toUpper());
        uc.setUcCloudServerId(QStringLiteral(" ") + srv + QStringLiteral(" "));
        // As the main window does: fetch the first listed file when the list comes.
        connect(&uc, &UcCloudSrvr::ServerInfoReturn, &uc, [&uc](QString& list) {
            if (!list.isEmpty())
                uc.UcCheckDownloadList(list.section(u',', 0, 0));
        });
        messages.clear();
        QVERIFY(settle(uc, 2, [&] { uc.UcCheckCloudList(); }));
        QCOMPARE(uc.txtDirectory->text(), "CloudPrint\\" + user + "\\" + srv);
        QCOMPARE(ev.events, QStringList({"ServerInfoReturn:File_A.ps", "CloudFileReceived:job A"}));
        QVERIFY(messages.isEmpty());
        QVERIFY(uc.txtLog->text().endsWith(QStringLiteral("Requesting GET\r\n200 OK\r\n")));
        QCOMPARE(stored("CloudPrint/" + user + "/" + srv + "/File_A.ps"), QStringLiteral("job A"));

        // Still there: listed again.
        ev.events.clear();
        QVERIFY(settle(uc, 2, [&] { uc.UcCheckCloudList(); }));
        QCOMPARE(ev.events, QStringList({"ServerInfoReturn:File_A.ps", "CloudFileReceived:job A"}));
        QVERIFY(uc.isEnabled());
    }

    void listingWithoutJobs()
    {
        UcCloudSrvr uc;
        EventLog ev(uc);
        uc.setUcCloudUserId(user);
        uc.setUcCloudServerId(QStringLiteral("newsrv")); // exists, empty
        QVERIFY(settle(uc, 1, [&] { uc.UcCheckCloudList(); }));
        uc.setUcCloudServerId(QStringLiteral("missing"));
        QVERIFY(settle(uc, 1, [&] { uc.UcCheckCloudList(); }));
        QCOMPARE(ev.events, QStringList({"ServerInfoReturn:", "ServerInfoReturn:"}));
        QVERIFY(
            uc.txtLog->text().endsWith(QStringLiteral("Requesting PROPFIND\r\n404 Not Found\r\n")));
        QVERIFY(messages.isEmpty());
        QVERIFY(idle(uc));
    }

    void downloadOfMissingFile()
    {
        UcCloudSrvr uc;
        EventLog ev(uc);
        uc.setUcCloudUserId(user);
        uc.setUcCloudServerId(QStringLiteral("srv1"));
        QVERIFY(settle(uc, 1, [&] { uc.UcCheckDownloadList(QStringLiteral("gone.ps")); }));
        QVERIFY(ev.events.isEmpty());
        QCOMPARE(texts(), QStringList({"Open file gone.ps" + kCrLf + kCrLf + "failed" + kCrLf +
                                       kCrLf + "Not Found"}));
        QCOMPARE(messages[0].icon, MsgIcon::Exclamation);
        QVERIFY(uc.txtLog->text().endsWith(QStringLiteral("404 Not Found\r\nFailed\r\n\r\n")));
    }

    void wrongPassword()
    {
        SettingsStore::put(CloudShare::kPasswordKey, QStringLiteral("wrong"));
        UcCloudSrvr uc;
        SettingsStore::put(CloudShare::kPasswordKey, share.password);
        EventLog ev(uc);
        uc.setUcCloudUserId(user);
        QVERIFY(settle(uc, 1, [&] { uc.UcFindServerInfo(); }));
        QVERIFY(uc.txtLog->text().endsWith(QStringLiteral("401 Unauthorized\r\n")));
        QCOMPARE(texts(), QStringList({"User Id Not Found..." + user}));
        QCOMPARE(ev.events, QStringList({"ValidateUser:false"}));
    }

    void serverStopped()
    {
        UcCloudSrvr uc;
        uc.Dav()->setBaseUrl(QStringLiteral("http://127.0.0.1:%1/dav/").arg(closedPort()));
        EventLog ev(uc);
        uc.setUcCloudUserId(user);
        uc.setUcCloudServerId(QStringLiteral("srv1"));

        QVERIFY(settle(uc, 1, [&] { uc.UcFindServerInfo(); }));
        QCOMPARE(ev.events, QStringList({"ValidateUser:false"}));
        QCOMPARE(texts(), QStringList({"User Id Not Found..." + user}));
        QVERIFY(uc.txtLog->text().endsWith(QStringLiteral("1 Connection refused\r\n")));

        QVERIFY(settle(uc, 1, [&] { uc.UcCheckCloudList(); }));
        QCOMPARE(ev.events.last(), QStringLiteral("ServerInfoReturn:"));

        messages.clear();
        QVERIFY(settle(uc, 1, [&] { uc.UcCheckDownloadList(QStringLiteral("f.ps")); }));
        QCOMPARE(texts(), QStringList({"Open file f.ps" + kCrLf + kCrLf + "failed" + kCrLf + kCrLf +
                                       "Connection refused"}));

        // HEAD fails, so the PUT goes out; it fails without Complete and the
        // control stays busy.
        messages.clear();
        QSignalSpy spy(uc.Dav(), &ThinDavApi::Complete);
        uc.UcUploadToCloudFile(QStringLiteral("CloudPrint\\x\\y"), QStringLiteral("job"), "data");
        QTRY_COMPARE(spy.count(), 1);
        QCOMPARE(texts(), QStringList({ThinDavApi::UploadMessage()}));
        QTRY_COMPARE(uc.Dav()->ReadyState(), 4);
        QCOMPARE(uc.Dav()->Request(), int(ThinDavApi::rqPutFileText));
        QCOMPARE(uc.Dav()->Status(), 405);
        QCOMPARE(spy.count(), 1);
        QVERIFY(!uc.isEnabled());
        QCOMPARE(uc.cursor().shape(), Qt::WaitCursor);
        QVERIFY(uc.txtLog->text().endsWith(QStringLiteral("Requesting PUT\r\n")));
    }

    void timerTickAbortsRequestWithoutAnswer()
    {
        // A server that accepts and never answers; an armed timer aborts.
        QTcpServer silent;
        QVERIFY(silent.listen(QHostAddress::LocalHost, 0));
        UcCloudSrvr uc;
        EventLog ev(uc);
        uc.Dav()->setBaseUrl(QStringLiteral("http://127.0.0.1:%1/dav/").arg(silent.serverPort()));
        uc.tmrTimeout->setInterval(50);
        QSignalSpy spy(uc.Dav(), &ThinDavApi::Complete);
        uc.UcFindServerInfo();
        QVERIFY(uc.tmrTimeout->isActive());
        QTRY_COMPARE(spy.count(), 1);
        QVERIFY(uc.txtLog->text().endsWith(QStringLiteral("Aborted due to timeout\r\n\r\n")));
        QVERIFY(ev.events.isEmpty());
        QVERIFY(messages.isEmpty());
        QVERIFY(idle(uc));
    }

    void longLogKeepsItsTail()
    {
        UcCloudSrvr uc;
        uc.Dav()->setBaseUrl(QStringLiteral("http://127.0.0.1:%1/dav/").arg(closedPort()));
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
