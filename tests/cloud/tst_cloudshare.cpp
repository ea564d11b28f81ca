// The WebDAV client and cloud control on the QUORVEL_DAV_SERVICE share (default webdav), odd ports.
#include "cloud/cloudshare.h"
#include "cloud/uccloudsrvr.h"
#include "common/log.h"
#include "testsupport.h"

#include <QDateTime>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QSslKey>
#include <QSslServer>
#include <QTimer>
#include <unistd.h>

using Call = std::function<void(ThinDavApi&, const QString&)>; // a request in a folder
Q_DECLARE_METATYPE(Call)

namespace
{
// A job of all 256 byte values; the control's text holds one character per byte.
const QByteArray kJob = allByteValues();
const QString kJobText = QString::fromLatin1(kJob);
QStringList seen; // messages shown and control events raised, in order
QString logged;   // the log's lines, each with CR LF

// "2xx" or "err" (what the control branches on) for an HTTP status; other numbers as they are.
QString statusClass(int s)
{
    return s / 100 == 2 ? "2xx" : s / 100 > 2 && s < 600 ? "err" : QString::number(s);
}

// The default port is one nothing listens on.
QString davUrl(quint16 port = freePort())
{
    return QStringLiteral("http://127.0.0.1:%1/dav/").arg(port);
}

// A server giving the requests (one per connection) the answers in turn, each after delay ms
// (below 0: at once, staying connected), then gone; "@name": a 207 of that data file.
QString answering(QObject* owner, QByteArrayList answers, int delay = 0)
{
    auto* server = new QTcpServer(owner);
    server->listen(QHostAddress::LocalHost, 0);
    QObject::connect(server, &QTcpServer::newConnection, server, [=]() mutable {
        QTcpSocket* s = server->nextPendingConnection();
        QByteArray answer = "HTTP/1.1 " + answers.takeFirst();
        if (answer.startsWith("HTTP/1.1 @")) {
            const QByteArray xml = readFile(CLOUD_TEST_DATA "/" + answer.mid(10));
            answer = "HTTP/1.1 207 M\r\nContent-Length: " + QByteArray::number(xml.size()) +
                     "\r\n\r\n" + xml;
        }
        if (answers.isEmpty())
            server->close();
        QObject::connect(s, &QTcpSocket::readyRead, s, [=, in = QByteArray()]() mutable {
            in += s->readAll(); // with a listing's body: an answer before it resets the line
            if (in.contains("\r\n\r\n") && (!in.startsWith("PROPFIND") || in.endsWith("propfind>")))
                QTimer::singleShot(qMax(delay, 0), s, [=] {
                    s->write(answer);
                    if (delay >= 0)
                        s->disconnectFromHost();
                });
        });
    });
    return davUrl(server->serverPort());
}

// Runs an action; true once n requests completed and none is pending (bounded).
bool settle(ThinDavApi* api, int n, const std::function<void()>& action)
{
    QSignalSpy spy(api, &ThinDavApi::Complete);
    action();
    const auto pending = [api] { return api->ReadyState() % 4 != 0; }; // 1 to 3: under way
    for (int i = 0; i < 1000 && (spy.count() < n || pending()); ++i)
        QTest::qWait(10);
    return spy.count() == n && !pending();
}

// What Complete saw while it ran.
struct Completion {
    int readyState, length;
    QList<DirEntry> entries;
    QByteArray bytes;
    DavCollection headers;
    QString xml;
    QVariant tag;
};

// A client that keeps what each Complete saw.
struct DavClient : ThinDavApi {
    DavClient(const QString& url, const QString& user, const QString& pw)
    {
        setBaseUrl(url), User = user, PW = pw;
        connect(this, &ThinDavApi::Complete, this, [this](int request) {
            static const QStringList names = QStringLiteral("Copy Delete GetDir GetFileBytes "
                                                            "GetFileLength GetFileText GetOptions "
                                                            "MakeDir Move PutFileBytes PutFileText")
                                                 .split(u' ');
            steps << names.value(request) + u' ' + statusClass(Status());
            all.append(
                {ReadyState(), Length(), DirEntries(), FileBytes(), RespHeaders(), XML(), Tag()});
        });
    }
    const Completion& last() const { return all.last(); }
    QStringList steps; // each Complete as "<request> <status>"
    QList<Completion> all;
};
// Runs one request of client c to its Complete.
#define DAV(c, call) QVERIFY(settle(&(c), 1, [&] { (c).call; }))

// The control with the ids typed in; its events go to `seen`.
struct Uc : UcCloudSrvr {
    Uc(const QString& userId, const QString& serverId)
    {
        setUcCloudUserId(userId), setUcCloudServerId(serverId);
        // The servers sorted: their order is the share's own.
        connect(this, &UcCloudSrvr::ClientInfoReturn, this, [](QString& id, QString& list) {
            QStringList names = list.split(u',');
            names.sort();
            seen << "ClientInfoReturn:" + id + u'|' + names.join(u',');
        });
        connect(this, &UcCloudSrvr::ServerInfoReturn, this, [](QString& list) { // long: the count
            seen << "ServerInfoReturn:" +
                        (list.size() < 9999 ? list : QString::number(list.count(u',') + 1));
        });
        connect(this, &UcCloudSrvr::ValidateUser, this,
                [](bool& found) { seen << (found ? "ValidateUser:true" : "ValidateUser:false"); });
        connect(this, &UcCloudSrvr::CloudFileReceived, this,
                [](QString& text) { seen << "CloudFileReceived:" + text; });
    }
    // The log (the client's lines too) with "|" for a line end and the status lines as their class.
    QString log() const
    {
        static const QRegularExpression ok("(?m)^2\\d\\d [^\r\n]*"),
            err("(?m)^[3-5]\\d\\d [^\r\n]*");
        return QString(logged).replace(ok, "2xx").replace(err, "err").replace("\r\n", "|");
    }
    bool idle() const
    {
        return isEnabled() && cursor().shape() == Qt::ArrowCursor && !TimerEnabled();
    }
};
} // namespace

class TestCloudShare : public QObject
{
    Q_OBJECT
    QString service, url, user, password, root; // the share
    QString dir, owner;                         // this run's client folder and user id

    DavClient share() const { return DavClient(url, user, password); }
    QByteArray onShare(const QString& path) const { return readFile(root + u'/' + path); }
    void useAccount(const QString& baseUrl)
    {
        SettingsStore::put(CloudShare::kBaseUrlKey, baseUrl);
        SettingsStore::put(CloudShare::kUserKey, user);
        SettingsStore::put(CloudShare::kPasswordKey, password);
    }

private slots:
    void initTestCase()
    {
        service = qEnvironmentVariable("QUORVEL_DAV_SERVICE", "webdav");
        const auto env = serviceEnv(service);
        url = env.value("DAV_URL"), user = env.value("DAV_USER");
        password = env.value("DAV_PASSWORD"), root = env.value("DAV_ROOT");
        QVERIFY2(!url.isEmpty(), "the share's fixture is not running");
        // This run's own names: nothing another run left is in the way.
        const QString run = QString::number(QDateTime::currentMSecsSinceEpoch(), 36);
        dir = "api" + run;
        owner = "\u00fc" + run; // escaped in the share's hrefs
        setMsgRecorder([](const Message& m) {
            static const QStringList icons = {
                "", "Critical: ", "Question: ", "Exclamation: ", "Info: "};
            seen << icons[int(m.icon)] + m.text;
        });
        Log::setSink([](const QString& line) { logged += line + "\r\n"; });
        useAccount(url);
        DavClient api = share();
        const QString own = "CloudPrint/" + owner, client = own + "-client";
        for (const QString& p : {dir, QStringLiteral("CloudPrint"), own, own + "/srv1",
                                 own + "/empty", own + "/BigBox", own + "/big", own + "-none",
                                 client, client + "/alpha", client + "/Beta"}) {
            DAV(api, MakeDir(p));
            QVERIFY2(api.steps.last() == "MakeDir 2xx" || p == "CloudPrint", qPrintable(p));
        }
        DAV(api, PutFileBytes(own + "/srv1/File_1.ps", kJob, "x/y"));
        DAV(api, PutFileBytes(client + "/note.ps", "n", "x/y")); // a file is not a server
        QCOMPARE(api.steps.last(), QStringLiteral("PutFileBytes 2xx"));
        const QString locked = root + u'/' + own + "/srv1/locked.ps"; // the share's server: 403
        QVERIFY(writeFile(locked, "x") && QFile::setPermissions(locked, {}));
        const QByteArray big = QFile::encodeName(root + u'/' + own + "/big/" + QString(230, u'j'));
        for (int i = 0; i < 20000; ++i) // a listing of over 10 MB, of links (quicker to make)
            QVERIFY(::link(QFile::encodeName(locked), big + QByteArray::number(i)) == 0);
        DAV(api, GetDir(own + "/big", true));
        QVERIFY(api.last().xml.size() > 10 << 20);
    }
    void cleanupTestCase()
    {
        DavClient api = share();
        for (const QString& p : {dir, "CloudPrint/" + owner, "CloudPrint/" + owner + "-none",
                                 "CloudPrint/" + owner + "-client"})
            settle(&api, 1, [&] { api.Delete(p); });
        setMsgRecorder({});
    }
    void init() { seen.clear(), logged.clear(); }

    void client()
    {
        DavClient api = share();
        // Aborted: Complete at once, with the tag given then; the flag stays till the next request.
        api.GetDir(QString(), true, QStringLiteral("first"));
        api.AbortRequest(QStringLiteral("stop"));
        QCOMPARE(api.steps.size(), 1);
        QVERIFY(api.steps[0].startsWith("GetDir ") && api.Aborted() && !api.Tag().isValid());
        QCOMPARE(api.ReadyState(), 0);
        QCOMPARE(api.last().tag.toString(), QStringLiteral("stop"));
        api.steps.clear();
        api.GetFileText(QStringLiteral("nowhere.ps")); // replaced by the next: never completes
        QVERIFY(!api.Aborted());

        const QByteArray binary("\x00\x01\xff\xfe", 4);
        // "\" is a level on the wire, escapes stay, the rest is escaped as UTF-8.
        QCOMPARE(api.RequestUrl("a\\b c%20d"), url + "a/b%20c%20d");
        QCOMPARE(api.RequestUrl("\\x\\\\y?#%zz\u00fc/"), url + "x/y%3F%23%25zz%C3%BC");
        DAV(api, PutFileBytes(dir + "/job 1.ps", binary, "application/x-raw"));
        DAV(api, MakeDir(dir + "\\sub"));
        DAV(api, GetFileLength(dir + "/job%201.ps"));
        QCOMPARE(api.last().length, 4);
        DAV(api, GetFileBytes(u'/' + dir + "/job 1.ps/"));
        QCOMPARE(api.last().bytes, binary);
        QCOMPARE(api.last().readyState, 4);
        DAV(api, GetDir(dir, true));
        QVERIFY(api.last().xml.contains(QStringLiteral("multistatus")));
        QStringList names;
        for (const DirEntry& e : api.last().entries) {
            names << e.name + (e.isCollection ? QString("/") : u' ' + QString::number(e.length));
            QVERIFY(e.lastModified.date().year() >= 2024);
        }
        names.sort();
        QCOMPARE(names, QStringList({dir + "/", "job%201.ps 4", "sub/"}));
        DAV(api, GetDir(QString(), false)); // the base itself
        QCOMPARE(api.last().entries.size(), 1);
        DAV(api, Copy(dir + "/job 1.ps", dir + "/two", false, false));
        DAV(api, Copy(dir + "/job 1.ps", dir + "/two", false, false)); // not over a file
        DAV(api, PutFileBytes(dir + "/one", "1", "x/y"));
        DAV(api, Copy(dir + "/one", dir + "/two", true, false));
        DAV(api, Move(dir + "/two", dir + "/sub/three", false));
        // nginx copies or moves a collection only by a name ending in "/", which names lose.
        const bool trees = service != "nginx";
        if (trees) {
            DAV(api, Copy(dir + "/sub", dir + "/deep", false, true));
            DAV(api, Copy(dir + "/sub", dir + "/flat", false, false)); // the collection alone
            DAV(api, Move(dir + "/deep", dir + "/moved", true));       // all of it
        }
        DAV(api, Delete(dir + "/sub/three"));
        DAV(api, GetOptions(QStringLiteral("opt")));
        QCOMPARE(api.steps,
                 QStringList({"PutFileBytes 2xx", "MakeDir 2xx", "GetFileLength 2xx",
                              "GetFileBytes 2xx", "GetDir 2xx", "GetDir 2xx", "Copy 2xx",
                              "Copy err", "PutFileBytes 2xx", "Copy 2xx", "Move 2xx"}) +
                     (trees ? QStringList({"Copy 2xx", "Copy 2xx", "Move 2xx"}) : QStringList()) +
                     QStringList({"Delete 2xx", "GetOptions 2xx"}));
        QCOMPARE(onShare(dir + (trees ? "/moved/three" : "/one")), QByteArray("1"));
        QVERIFY(QFileInfo(root + u'/' + dir + "/flat").isDir() == trees);
        for (const char* gone : {"/two", "/sub/three", "/flat/three", "/deep"})
            QVERIFY2(!QFile::exists(root + u'/' + dir + gone), gone);

        QCOMPARE(api.last().tag.toString(), QStringLiteral("opt"));
        // "Name:value" items found by names in any case; OPTIONS asks the base URL itself.
        QVERIFY(api.last().headers.Item(QStringLiteral("dav")).startsWith(QStringLiteral("DAV:")));
        QVERIFY(api.last().headers.Item(QStringLiteral("ALLOW")).startsWith("Allow:"));
        // The server's request log is beside the share.
        QVERIFY(onShare("../../logs/access.log").contains("\"OPTIONS /dav/ HTTP/1.1\" 200"));
        // Answer data lives only while Complete runs; the status, its text and the request stay.
        QVERIFY(api.DirEntries().isEmpty() && api.XML().isEmpty() && api.FileBytes().isEmpty());
        QVERIFY(api.Length() == 0 && api.RespHeaders().isEmpty() && !api.Tag().isValid());
        QVERIFY(api.Status() == 200 && !api.StatusText().isEmpty() &&
                api.Request() == ThinDavApi::rqGetOptions);
    }

    void failures_data()
    {
        QTest::addColumn<QString>("where"); // "share", "closed" or what a raw server answers
        QTest::addColumn<Call>("call");
        QTest::addColumn<QString>("status"); // and its text unless the server's own
        QTest::addColumn<bool>("completes");
        QTest::addColumn<QString>("header"); // item "N" of the answer's headers
        const auto row = [](const char* tag, const char* where, const Call& call,
                            const char* status, bool completes = true, const char* header = "") {
            QTest::newRow(tag) << where << call << status << completes << header;
        };
        using A = ThinDavApi;
        const Call putText = [](A& a, const QString& d) { a.PutFileText(d, "x", "text/plain"); };
        const Call putBytes = [](A& a, const QString& d) { a.PutFileBytes(d, "x", "x/y"); };
        const Call list = [](A& a, const QString& d) { a.GetDir(d + "/nothing", true); };
        const Call length = [](A& a, const QString& d) { a.GetFileLength(d + "/no.ps"); };
        const Call options = [](A& a, const QString&) { a.GetOptions(); };
        row("missing file", "share", length, "404"); // its answer has a length, the file none
        row("closed: options", "closed", options, "400 Bad Request");
        // The PUTs raise no Complete; PutFileText still tells the user.
        row("closed: text upload", "closed", putText, "405 Method Not Allowed", false);
        row("closed: bytes upload", "closed", putBytes, "405 Method Not Allowed", false);
        row("length not a number", "200 OK\r\nContent-Length: lots\r\n\r\n", length, "200");
        // A 207 that is not a multistatus fails the listing with the parser's reason.
        row("listing not xml", "207 Multi-Status\r\nContent-Length: 9\r\n\r\n<D:a><b>x", list,
            "-1");
        // Qt hands repeated header lines over joined (same meaning in HTTP): one item.
        row("header twice", "200 OK\r\nN: x\r\nN: y\r\nContent-Length: 0\r\n\r\n", options, "200",
            true, "N:x, y");
    }
    void failures()
    {
        QFETCH(QString, where);
        QFETCH(Call, call);
        QFETCH(QString, status);
        QFETCH(bool, completes);
        QFETCH(QString, header);
        QObject scope;
        DavClient api(where == "share"    ? url
                      : where == "closed" ? davUrl()
                                          : answering(&scope, {where.toUtf8()}),
                      user, password);
        QVERIFY(settle(&api, completes, [&] {
            call(api, dir);
            QCOMPARE(api.ReadyState(), 1);
        }));
        QVERIFY(!api.StatusText().isEmpty());
        const QString got = QString::number(api.Status()) + u' ' + api.StatusText();
        QCOMPARE(status.contains(u' ') ? got : got.section(u' ', 0, 0), status);
        QCOMPARE(api.IsStatus2XX(), status.startsWith(u'2'));
        QCOMPARE(seen.size(), api.Request() == ThinDavApi::rqPutFileText ? 1 : 0);
        if (completes) {
            QVERIFY(api.last().entries.isEmpty() && api.last().bytes.isEmpty());
            QCOMPARE(api.last().length, 0);
            QCOMPARE(api.last().headers.Item(QStringLiteral("N")), header);
        }
    }

    void headerCollectionRules()
    {
        const DavCollection h = BuildRespHeaders(
            QStringLiteral("N: x\r\nServer: test\r\n  \r\nn:y\r\nNoColon\r\nA: b: c \r\n"));
        // The joined item moves to the end, under the key of the later line.
        QCOMPARE(h.Keys(), QStringList({"Server", "n", "NoColon", "A"}));
        QCOMPARE(h.Item(QStringLiteral("N")), QStringLiteral("N:x, n:y"));
        QCOMPARE(h.Item(QStringLiteral("NoColon")), QString());
        QCOMPARE(h.Item(QStringLiteral("a")), QStringLiteral("A:b: c"));
        QCOMPARE(h.Item(QStringLiteral("Missing")), QString());
    }

    void account()
    {
        for (const QString& key :
             {CloudShare::kBaseUrlKey, CloudShare::kUserKey, CloudShare::kPasswordKey})
            SettingsStore::remove(key);
        const auto used = [](const UcCloudSrvr& uc) {
            return QStringList({uc.Dav()->BaseUrl(), uc.Dav()->User, uc.Dav()->PW});
        };
        QCOMPARE(used(UcCloudSrvr()),
                 QStringList({CloudShare::DefaultBaseUrl(), CloudShare::DefaultUser(),
                              CloudShare::DefaultPassword()}));
        useAccount(url.chopped(1)); // no trailing "/"
        UcCloudSrvr uc;
        useAccount(url);
        QCOMPARE(used(uc), QStringList({url, user, password}));
        QCOMPARE(uc.txtLog->text(), "ThinDavApi Version = 001.000\r\nRequesting OPTIONS\r\n"
                                    "BaseURL = " +
                                        url.chopped(1) + "\r\n\r\nOpening DAV share\r\n");
    }

    void uploadListDownload()
    {
        const QString path = "CloudPrint/" + owner + "/PrintBox";
        const QString folder = QString(path).replace(u'/', u'\\');
        DavClient api = share();
        DAV(api, MakeDir(path));
        Uc uc(u' ' + owner.toUpper(), QStringLiteral(" PrintBox "));
        QVERIFY(settle(uc.Dav(), 2, [&] { uc.UcUploadToCloudFile(folder, "File_A", kJobText); }));
        DAV(api, MakeDir(path + "/sub")); // not a job
        // As the main window does: fetch the first listed file when the list comes.
        connect(&uc, &UcCloudSrvr::ServerInfoReturn, &uc, [&uc](QString& list) {
            if (!list.isEmpty())
                uc.UcCheckDownloadList(list.section(u',', 0, 0));
        });
        for (int round = 0; round < 2; ++round) // the job stays on the share: listed again
            QVERIFY(settle(uc.Dav(), 2, [&] { uc.UcCheckCloudList(); }));
        const QStringList round = {"ServerInfoReturn:File_A.ps", "CloudFileReceived:" + kJobText};
        QCOMPARE(seen, QStringList({"Print Uploaded to Cloud...\r\nPress Button 'Get Cloud Data' "
                                    "in server program to print."}) +
                           round + round);
        QCOMPARE(uc.txtDirectory->text(), folder);
        QVERIFY(uc.Dav()->FileText().isEmpty()); // the text only while Complete runs
        QVERIFY(uc.log().endsWith("Requesting GET|2xx|"));
        QCOMPARE(onShare(path + "/File_A.ps"), kJob); // byte for byte
        QVERIFY(uc.idle());
    }

    // One call of the control, with user "%u" (this run's) typed in as the row says and
    // server "srv1" unless it says otherwise: what it shows and raises, and its log's tail.
    void chains_data()
    {
        // "share", "wrong password", "closed", "tls" (self-signed), or a raw server's "answers"
        // ("slow": after the control's timeout; "slow, stalls": at once, then nothing more)
        QTest::addColumn<QString>("where");
        QTest::addColumn<QString>("typed"); // the user id
        QTest::addColumn<QString>("call"); // "server|list ID", "client", "get FILE", "put DIR NAME"
        QTest::addColumn<int>("requests");
        QTest::addColumn<QStringList>("outcome"); // "%1": the server's reason
        QTest::addColumn<QString>("log");         // "%b": the base URL
        QTest::addColumn<QByteArrayList>("answers");
        const auto row = [](const char* tag, const char* where, const char* typed, const char* call,
                            int requests, const QStringList& outcome, const char* log,
                            const QByteArrayList& answers = {}) {
            QTest::newRow(tag) << where << typed << call << requests << outcome << log << answers;
        };
        const QStringList found = {"User Id Found...%u", "ValidateUser:true"};
        const QStringList notFound = {"User Id Not Found...%u", "ValidateUser:false"};
        const QString openFailed = "Exclamation: Open file gone.ps\r\n\r\nfailed\r\n\r\n%1";
        row("new server", "share", "  %U ", "server NewBox", 3, found, "Requesting MKCOL|2xx|");
        row("known server", "share", "%u", "server srv1", 2, found,
            "Requesting PROPFIND|2xx||Requesting PROPFIND|2xx||");
        // Looked up as "bigbox", never found: the MKCOL comes again and fails, only logged.
        row("capital letters", "share", "%u", "server BigBox", 3, found,
            "Requesting MKCOL|err|Failed|The server collection CloudPrint\\%u\\BigBox could not "
            "be made: jobs for it will fail.||");
        row("unknown user", "share", " Nobody%u", "server srv1", 1,
            {"User Id Not Found...nobody%u", "ValidateUser:false"}, "Requesting PROPFIND|2xx||");
        row("wrong password", "wrong password", "%u", "server srv1", 1, notFound,
            "Requesting PROPFIND|err|");
        row("closed: find server", "closed", "%u", "server srv1", 1, notFound,
            "Requesting PROPFIND|1 Connection refused|");
        // Answers late: an armed timer aborts the request; the answer is left unread.
        row("answer after the timeout", "slow", "%u", "server srv1", 1, {},
            "Requesting PROPFIND|Aborted due to timeout||", {"@apache-alice-depth1.xml"});
        row("body stops", "slow, stalls", "%u", "get gone.ps", 1, {},
            "Requesting GET|Aborted due to timeout||", {"200 OK\r\nContent-Length: 9\r\n\r\nx"});
        // "empty" is a user there; then nothing answers (a failed listing keeps the last folder).
        row("gone in the middle", "answers", "empty", "server srv1", 3,
            {"User Id Found...empty", "ValidateUser:true"},
            "Requesting PROPFIND|1 Connection refused|The user's collection CloudPrint/empty could "
            "not be read, so the server collection goes to CloudPrint/srv1, where no sender will "
            "look.|Requesting MKCOL|1 Connection refused|Failed|The server collection "
            "CloudPrint\\srv1 could not be made: jobs for it will fail.||",
            {"@apache-alice-depth1.xml"});
        row("self-signed certificate", "tls", "%u", "server srv1", 1, notFound,
            "Requesting PROPFIND|6 Refused: the share's certificate is not trusted here (SSL "
            "handshake failed: The certificate is self-signed, and untrusted); nothing was sent|");
        row("listing not xml", "answers", "%u", "server srv1", 1, notFound,
            "Requesting PROPFIND|-1 no \"multistatus\" found|",
            {"207 Multi-Status\r\nContent-Length: 14\r\n\r\n<html></html>\n"});
        row("client's servers", "share", " %U-CLIENT", "client", 2,
            {"ClientInfoReturn: %U-CLIENT|Beta,alpha"}, "Requesting PROPFIND|2xx||");
        row("client without servers", "share", "%u-none", "client", 2,
            {"ClientInfoReturn:%u-none|"}, "Requesting PROPFIND|2xx||");
        row("unknown client", "share", "ghost", "client", 1,
            {"User Id Not Found...ghost", "ClientInfoReturn:ghost|"}, "Requesting PROPFIND|2xx||");
        row("server without jobs", "share", "%u", "list empty", 1, {"ServerInfoReturn:"},
            "Requesting PROPFIND|2xx||");
        row("missing server", "share", "%u", "list missing", 1, {"ServerInfoReturn:"},
            "Requesting PROPFIND|err|");
        row("10 MB listing", "share", "%u", "list big", 1, {"ServerInfoReturn:20000"},
            "Requesting PROPFIND|2xx||");
        row("hrefs outside the share", "answers", "%u", "list srv1", 1, {"ServerInfoReturn:a.ps"},
            "Left out of a listing: 2 resources outside the share %b, e.g. "
            "http://else.where.example/dav/b.ps|2xx||",
            {"@outside.xml"});
        row("reply over the cap", "answers", "%u", "list srv1", 1, {"ServerInfoReturn:"},
            "Requesting PROPFIND|-1 The reply is larger than 64 MB: not read|",
            {"207 Multi-Status\r\nContent-Length: 67108865\r\n\r\n<"});
        row("closed: list", "closed", "%u", "list srv1", 1, {"ServerInfoReturn:"},
            "Requesting PROPFIND|1 Connection refused|");
        row("missing file", "share", "%u", "get gone.ps", 1, {openFailed},
            "Requesting GET|err|Failed||");
        row("closed: download", "closed", "%u", "get gone.ps", 1, {openFailed},
            "Requesting GET|1 Connection refused|Failed||");
        row("unreadable file", "share", "%u", "get locked.ps", 1,
            {QString(openFailed).replace("gone", "locked")}, "Requesting GET|err|Failed||");
        row("server error", "answers", "%u", "get gone.ps", 1, {openFailed},
            "Requesting GET|err|Failed||",
            {"500 Internal Server Error\r\nContent-Length: 0\r\n\r\n"});
        for (const QByteArray charset : {"iso-8859-1", "utf-8", "windows-1252"}) // not applied
            row(("download in " + charset).constData(), "answers", "%u", "get a.ps", 1,
                {"CloudFileReceived:" + kJobText}, "Requesting GET|2xx|",
                {"200 OK\r\nContent-Type: text/plain; charset=" + charset +
                 "\r\nContent-Length: 256\r\n\r\n" + kJob});
        // Found by HEAD, never PUT; the run-time error reaches the user.
        row("job exists", "share", "%u", "put srv1 File_1", 1,
            {"Critical: Run-time error '424': Object required"},
            "Requesting HEAD|2xx|Failed, already exists||");
        row("missing folder", "share", "%u", "put nofolder job", 2,
            {ThinDavApi::UploadMessage(), "Exclamation: Make file job.ps\r\n\r\nfailed\r\n\r\n%1"},
            "Requesting PUT|err|Failed||");
        row("job too large", "answers", "%u", "put srv1 job", 2,
            {ThinDavApi::UploadMessage(), "Exclamation: Make file job.ps\r\n\r\nfailed\r\n\r\n%1"},
            "Requesting PUT|err|Failed|The share refused the job job.ps of 1 bytes as too large: "
            "the server's upload limit must be raised (nginx: client_max_body_size).||",
            {"404 Not Found\r\nContent-Length: 0\r\n\r\n",
             "413 Request Entity Too Large\r\nContent-Length: 0\r\n\r\n"});
        // HEAD fails, so the PUT goes out; it fails without Complete: the control stays busy.
        row("closed: upload", "closed", "%u", "put srv1 job", 1, {ThinDavApi::UploadMessage()},
            "Requesting HEAD|1 Connection refused|Requesting PUT|");
    }
    void chains()
    {
        QFETCH(QString, where);
        QFETCH(QString, typed);
        QFETCH(QString, call);
        QFETCH(int, requests);
        QFETCH(QStringList, outcome);
        QFETCH(QString, log);
        QFETCH(QByteArrayList, answers);
        QObject scope;
        QSslServer tls;
        Uc uc(typed.replace("%u", owner).replace("%U", owner.toUpper()), QStringLiteral("srv1"));
        if (where == "closed")
            uc.Dav()->setBaseUrl(davUrl());
        else if (where == "wrong password")
            uc.Dav()->PW = QStringLiteral("wrong");
        else if (where == "tls") {
            const QByteArray pem = readFile(CLOUD_TEST_DATA "/selfsigned.pem");
            QSslConfiguration config;
            config.setLocalCertificate(QSslCertificate(pem));
            config.setPrivateKey(QSslKey(pem, QSsl::Ec));
            tls.setSslConfiguration(config);
            QVERIFY(tls.listen(QHostAddress::LocalHost, 0));
            uc.Dav()->setBaseUrl(davUrl(tls.serverPort()).replace("http:", "https:"));
        } else if (!answers.isEmpty()) {
            const int delay = where == "slow" ? 1000 : where == "answers" ? 0 : -1;
            uc.Dav()->setBaseUrl(answering(&scope, answers, delay));
            uc.tmrTimeout->setInterval(where.startsWith("slow") ? 50 : 0);
        }
        const QStringList words = call.split(u' ');
        if (words[0] == "server" || words[0] == "list")
            uc.setUcCloudServerId(u' ' + words[1] + u' ');
        const auto act = [&] {
            if (words[0] == "server" || words[0] == "client") {
                words[0] == "server" ? uc.UcFindServerInfo() : uc.UcFindClientInfo();
                QCOMPARE(uc.txtDirectory->text(), QStringLiteral("CloudPrint")); // looked in
            } else if (words[0] == "list")
                uc.UcCheckCloudList();
            else if (words[0] == "get")
                uc.UcCheckDownloadList(words[1]);
            else
                uc.UcUploadToCloudFile("CloudPrint\\" + owner + u'\\' + words[1], words[2], "x");
            // Busy until the share answers; the timer is on, but at interval 0 never ticks.
            QVERIFY(!uc.isEnabled() && uc.cursor().shape() == Qt::WaitCursor && uc.TimerEnabled());
            QCOMPARE(uc.tmrTimeout->isActive(), where.startsWith("slow"));
        };
        QVERIFY(settle(uc.Dav(), requests, act));
        const QString reason = uc.Dav()->StatusText();
        QVERIFY(!outcome.join(QString()).contains("%1") || !reason.isEmpty());
        QCOMPARE(seen, outcome.replaceInStrings("%u", owner)
                           .replaceInStrings("%U", owner.toUpper())
                           .replaceInStrings("%1", reason));
        log.replace("%u", owner).replace("%b", uc.Dav()->BaseUrl());
        QVERIFY2(uc.log().endsWith(log), qPrintable(uc.log().right(80)));
        if (uc.Dav()->Status() >= 100 && uc.idle()) // logged with the server's own reason
            QVERIFY(logged.contains(QString::number(uc.Dav()->Status()) + u' ' + reason));
        QCOMPARE(uc.idle(), !log.endsWith("Requesting PUT|"));
        // A server made is on the share, its levels sent as "/" whatever the name holds.
        if (log.endsWith("MKCOL|2xx|")) {
            QVERIFY(QFileInfo(root + "/CloudPrint/" + owner + u'/' + words[1]).isDir());
            QVERIFY(onShare("../../logs/access.log")
                        .contains("\"MKCOL /dav/CloudPrint/" + QUrl::toPercentEncoding(owner) +
                                  u'/' + words[1].toUtf8() + "/ HTTP/1.1\" 2"));
        }
        // No user made, no job touched.
        QVERIFY(!QFile::exists(root + "/CloudPrint/nobody" + owner));
        QCOMPARE(onShare("CloudPrint/" + owner + "/srv1/File_1.ps"), kJob);
        seen.clear(); // the program goes on: the next chain works
        uc.Dav()->setBaseUrl(url), uc.Dav()->PW = password, uc.setUcCloudUserId(owner);
        QVERIFY(settle(uc.Dav(), 2, [&] { uc.setUcCloudServerId("srv1"), uc.UcFindServerInfo(); }));
        QCOMPARE(seen, QStringList({"User Id Found..." + owner, "ValidateUser:true"}));
    }
};

QTEST_MAIN(TestCloudShare)
#include "tst_cloudshare.moc"
