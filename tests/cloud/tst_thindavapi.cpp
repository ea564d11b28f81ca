// ThinDavApi against a real Apache mod_dav share, a closed port and a raw
// HTTP server on 127.0.0.1.
#include "cloud/thindavapi.h"
#include "davtest.h"
#include "rawhttp.h"

#include <QDir>
#include <QTest>

class TestThinDavApi : public QObject
{
    Q_OBJECT
    DavShare share;
    QString folder; // this run's own collection on the share
    ShownMessages messages;

private slots:
    void initTestCase()
    {
        share = DavShare::fromFixture();
        QVERIFY2(share.ok(), "the webdav fixture is not running");
        folder = uniqueName("api");
    }
    void init() { messages.clear(); }

    void requestUrls()
    {
        ThinDavApi api;
        api.setBaseUrl(QStringLiteral("https://share.example:8443/remote/dav"));
        const QString base = QStringLiteral("https://share.example:8443/remote/dav/");
        QCOMPARE(api.BaseUrl(), base);
        QCOMPARE(api.Origin(), QStringLiteral("https://share.example:8443"));
        QCOMPARE(api.RequestUrl(QString()), base + QStringLiteral("/"));
        QCOMPARE(api.RequestUrl(QStringLiteral("/a/b/")), base + QStringLiteral("a/b"));
        QCOMPARE(api.RequestUrl(QStringLiteral("CloudPrint\\bob\\srv/job 1.ps")),
                 base + QStringLiteral("CloudPrint%5Cbob%5Csrv/job%201.ps"));
        // Already escaped text is not escaped again.
        QCOMPARE(api.RequestUrl(QStringLiteral("a%20b")), base + QStringLiteral("a%20b"));
    }

    void fileRoundTrip()
    {
        DavClient api(share);
        DAV_EXPECT(api, MakeDir(folder), 201);
        QCOMPARE(api.last().request, int(ThinDavApi::rqMakeDir));
        QVERIFY(QFileInfo(share.root + u'/' + folder).isDir());
        DAV_EXPECT(api, MakeDir(folder + u'/'), 405);
        QCOMPARE(api.last().statusText, QStringLiteral("Method Not Allowed"));

        const QString file = folder + QStringLiteral("/a b.ps");
        const QString text = QStringLiteral("%!PS-Adobe-3.0\r\n(h\u00e9llo) show\r\n");
        DAV_EXPECT(api, PutFileText(file, text, "text/plain"), 201);
        QCOMPARE(api.last().request, int(ThinDavApi::rqPutFileText));
        QCOMPARE(messages.size(), 1);
        QCOMPARE(messages[0].text,
                 QStringLiteral("Print Uploaded to Cloud...\r\nPress Button 'Get Cloud Data' in "
                                "server program to print."));
        QCOMPARE(share.bytes(file), text.toUtf8());

        DAV_EXPECT(api, GetFileLength(file), 200);
        QCOMPARE(api.last().request, int(ThinDavApi::rqGetFileLength));
        QCOMPARE(api.last().length, qint32(text.toUtf8().size()));
        QCOMPARE(api.Length(), 0); // response data lives only during Complete

        QObject token;
        DAV_RUN(api, GetFileText(u'/' + file, QVariant::fromValue<QObject*>(&token)));
        QCOMPARE(api.last().request, int(ThinDavApi::rqGetFileText));
        QCOMPARE(api.last().text, text);
        QCOMPARE(api.last().tag.value<QObject*>(), &token);
        QCOMPARE(api.last().readyState, 4);
        QVERIFY(api.FileText().isEmpty());
        QVERIFY(!api.Tag().isValid());
        QCOMPARE(api.Status(), 200); // status, text and code stay
        QCOMPARE(api.StatusText(), QStringLiteral("OK"));
        QCOMPARE(api.Request(), int(ThinDavApi::rqGetFileText));

        DAV_RUN(api, GetFileBytes(file));
        QCOMPARE(api.last().request, int(ThinDavApi::rqGetFileBytes));
        QCOMPARE(api.last().bytes, text.toUtf8());
        QVERIFY(api.FileBytes().isEmpty());

        const QByteArray binary("\x00\x01\xff\xfe", 4);
        DAV_EXPECT(api, PutFileBytes(folder + "/raw.bin", binary, "application/x-raw"), 201);
        QCOMPARE(messages.size(), 1); // only PutFileText tells the user
        DAV_RUN(api, GetFileBytes(folder + "/raw.bin"));
        QCOMPARE(api.last().bytes, binary);

        // A zero-length file gives empty bytes; a missing one a length of 0.
        DAV_RUN(api, PutFileBytes(folder + "/empty", QByteArray(), "x/y"));
        DAV_EXPECT(api, GetFileBytes(folder + "/empty"), 200);
        QVERIFY(api.last().bytes.isEmpty());
        DAV_EXPECT(api, GetFileLength(folder + "/missing.ps"), 404);
        QCOMPARE(api.last().length, 0);
    }

    void listing()
    {
        DavClient api(share);
        const QString dir = folder + QStringLiteral("-list");
        DAV_RUN(api, MakeDir(dir));
        DAV_RUN(api, MakeDir(dir + "/sub"));
        DAV_RUN(api, PutFileText(dir + "/x y.ps", "x", "text/plain"));

        DAV_EXPECT(api, GetDir(dir, true), 207);
        const Completion& c = api.last();
        QCOMPARE(c.request, int(ThinDavApi::rqGetDir));
        QVERIFY(c.xml.contains(QStringLiteral("multistatus")));
        QVERIFY(api.DirEntries().isEmpty() && api.XML().isEmpty());
        QCOMPARE(api.Status(), 207);
        QCOMPARE(c.entries.size(), 3);
        QCOMPARE(c.entries[0].name, dir); // the listed collection itself
        QVERIFY(c.entries[0].isCollection);
        QStringList names;
        for (const DirEntry& e : c.entries.mid(1))
            names << e.name + (e.isCollection ? "/" : "");
        names.sort();
        QCOMPARE(names, QStringList({"sub/", "x%20y.ps"}));
        for (const DirEntry& e : c.entries)
            QVERIFY(e.lastModified.isValid() && e.lastModified.date().year() >= 2024);

        DAV_RUN(api, GetDir(dir, false));
        QCOMPARE(api.last().entries.size(), 1);
        DAV_EXPECT(api, GetDir(dir + "/nothing", true), 404);
        QVERIFY(api.last().entries.isEmpty());
    }

    void backslashSeparatesLevels()
    {
        // The share treats "\" (sent as %5C) like "/".
        DavClient api(share);
        DAV_RUN(api, MakeDir(folder + "-bs"));
        DAV_EXPECT(api, PutFileText(folder + "-bs\\in.ps", "in", "text/plain"), 201);
        QVERIFY(share.has(folder + "-bs/in.ps"));
        QVERIFY(share.accessLog().contains(folder + "-bs%5Cin.ps"));
    }

    void copyMoveDelete()
    {
        DavClient api(share);
        const QString dir = folder + QStringLiteral("-cmd");
        DAV_RUN(api, MakeDir(dir));
        DAV_RUN(api, PutFileText(dir + "/one.ps", "1", "text/plain"));

        DAV_EXPECT(api, Copy(dir + "/one.ps", dir + "/two.ps", false, false), 201);
        QCOMPARE(api.last().request, int(ThinDavApi::rqCopy));
        DAV_EXPECT(api, Copy(dir + "/one.ps", dir + "/two.ps", false, false), 412); // Overwrite F
        DAV_EXPECT(api, Copy(dir + "/one.ps", dir + "/two.ps", true, false), 204);

        DAV_EXPECT(api, Move(dir + "/two.ps", dir + "/three.ps", false), 201);
        QCOMPARE(api.last().request, int(ThinDavApi::rqMove));
        QVERIFY(!share.has(dir + "/two.ps") && share.has(dir + "/three.ps"));

        DAV_EXPECT(api, Copy(dir, dir + "-copy", false, true), 201);
        QVERIFY(share.has(dir + "-copy/three.ps"));

        DAV_EXPECT(api, Delete(dir + "/three.ps"), 204);
        QCOMPARE(api.last().request, int(ThinDavApi::rqDelete));
        QVERIFY(!share.has(dir + "/three.ps"));
    }

    void optionsJoinRepeatedHeaders()
    {
        DavClient api(share);
        DAV_EXPECT(api, GetOptions(QStringLiteral("opt")), 200);
        const Completion& c = api.last();
        QCOMPARE(c.request, int(ThinDavApi::rqGetOptions));
        QCOMPARE(c.tag.toString(), QStringLiteral("opt"));
        QVERIFY(api.RespHeaders().isEmpty());
        QVERIFY(c.headers.Item(QStringLiteral("Allow")).startsWith("Allow:OPTIONS,"));
        // Apache sends "DAV: 1,2" and "DAV: <http://apache.org/dav/propset/fs/1>".
        const QString dav = c.headers.Item(QStringLiteral("dav"));
        QVERIFY2(dav.startsWith(QStringLiteral("DAV:1,2, ")), qPrintable(dav));
        QVERIFY(dav.endsWith(QStringLiteral("<http://apache.org/dav/propset/fs/1>")));
        QVERIFY(share.accessLog().contains(QStringLiteral("\"OPTIONS /dav/ HTTP/1.1\" 200")));
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

    void wrongPassword()
    {
        DavClient api(share.url, share.user, QStringLiteral("not the password"));
        DAV_EXPECT(api, GetDir(QString(), true), 401);
        QCOMPARE(api.last().statusText, QStringLiteral("Unauthorized"));
        QVERIFY(api.last().entries.isEmpty());
        QVERIFY(!api.IsStatus2XX());
    }

    void serverStopped()
    {
        // Nothing listens: no HTTP answer at all.
        DavClient api(closedUrl(), share.user, share.password);
        DAV_RUN(api, GetDir(QStringLiteral("CloudPrint"), true));
        QCOMPARE(api.last().request, int(ThinDavApi::rqGetDir));
        QVERIFY(api.last().status > 0 && api.last().status < 100);
        QVERIFY(!api.last().statusText.isEmpty());
        QVERIFY(!api.IsStatus2XX());

        DAV_EXPECT(api, GetOptions(), 400);
        QCOMPARE(api.last().statusText, QStringLiteral("Bad Request"));

        // The PUTs answer 405 and raise no Complete; PutFileText still tells the user.
        const qsizetype before = api.all.size();
        api.PutFileText(QStringLiteral("f.ps"), QStringLiteral("x"), QStringLiteral("text/plain"));
        QCOMPARE(messages.size(), 1);
        QTRY_COMPARE(api.ReadyState(), 4);
        QCOMPARE(api.Status(), 405);
        QCOMPARE(api.StatusText(), QStringLiteral("Method Not Allowed"));
        api.PutFileBytes(QStringLiteral("f.bin"), QByteArray("x"), QStringLiteral("x/y"));
        QCOMPARE(api.ReadyState(), 1);
        QTRY_COMPARE(api.ReadyState(), 4);
        QCOMPARE(api.Status(), 405);
        QCOMPARE(messages.size(), 1);
        // Only the requests that answer raise Complete.
        DAV_RUN(api, Delete(QStringLiteral("f.ps")));
        QCOMPARE(api.all.size(), before + 1);
        QCOMPARE(api.last().request, int(ThinDavApi::rqDelete));
    }

    void abortAndReplace()
    {
        DavClient api(share);
        api.GetDir(QString(), true, QStringLiteral("first"));
        QCOMPARE(api.ReadyState(), 1);
        api.AbortRequest(QStringLiteral("stop"));
        QCOMPARE(api.all.size(), 1);
        QVERIFY(api.last().aborted);
        QCOMPARE(api.last().request, int(ThinDavApi::rqGetDir));
        QCOMPARE(api.last().tag.toString(), QStringLiteral("stop"));
        QVERIFY(!api.Tag().isValid());
        QVERIFY(api.Aborted());
        QCOMPARE(api.ReadyState(), 0);

        // A new request clears the flag; the one it replaces never completes.
        api.GetFileText(QStringLiteral("nowhere.ps"));
        QVERIFY(!api.Aborted());
        DAV_RUN(api, GetOptions(QStringLiteral("second")));
        QCOMPARE(api.all.size(), 2);
        QCOMPARE(api.last().request, int(ThinDavApi::rqGetOptions));
        QCOMPARE(api.last().tag.toString(), QStringLiteral("second"));
        QVERIFY(!api.last().aborted);
    }

    void requestHeadersInOrder()
    {
        RawHttpServer raw("HTTP/1.1 207 Multi-Status\r\nContent-Type: text/xml\r\n"
                          "Content-Length: 43\r\nConnection: close\r\n\r\n"
                          "<D:multistatus xmlns:D=\"DAV:\"/>           ");
        DavClient api(raw.url(), QStringLiteral("me@example.com"), QStringLiteral("p w"));
        DAV_EXPECT(api, GetDir(QStringLiteral("CloudPrint\\me"), true), 207);
        QCOMPARE(raw.head(0)[0], QByteArray("PROPFIND /dav/CloudPrint%5Cme HTTP/1.1"));
        const QList<QByteArray> lines = raw.head(0);
        qsizetype at = -1;
        for (const char* e :
             {"User-Agent: ThinDavApi/1", "If-Modified-Since: Tue, 1 Jan 1980 00:00:00 GMT",
              "Cache-Control: no-cache", "Pragma: no-cache", "Content-Type: text/xml",
              "Accept: */*", "Depth: 1"}) {
            const qsizetype i = lines.indexOf(e);
            QVERIFY2(i > at, e);
            at = i;
        }
        QVERIFY(
            lines.contains("Authorization: Basic " + QByteArray("me@example.com:p w").toBase64()));
        QVERIFY(raw.requests[0].endsWith("\r\n\r\n" + DavPropfindBody()));

        const auto sent = [&](int i, const QByteArray& line) { return raw.head(i).contains(line); };
        DAV_RUN(api, Move(QStringLiteral("/a/"), QStringLiteral("b c/"), true));
        QVERIFY(sent(1, "Destination: " + raw.url().toUtf8() + "b c"));
        QVERIFY(sent(1, "Overwrite: T") && sent(1, "Depth: infinity"));
        DAV_RUN(api, Copy(QStringLiteral("a"), QStringLiteral("b"), false, false));
        QVERIFY(sent(2, "Overwrite: F") && sent(2, "Depth: 0"));
        DAV_RUN(api, GetDir(QString(), false));
        QCOMPARE(raw.head(3)[0], QByteArray("PROPFIND /dav// HTTP/1.1"));
        QVERIFY(sent(3, "Depth: 0"));
    }

    void oddAnswers()
    {
        // What Complete saw for one request to a server that always gives answer.
        const auto answered = [](const QByteArray& answer, void (*call)(ThinDavApi&)) {
            RawHttpServer raw("HTTP/1.1 " + answer);
            DavClient api(raw.url());
            return api.run([&] { call(api); }) ? api.last() : Completion{};
        };
        const auto getDir = [](ThinDavApi& api) { api.GetDir(QStringLiteral("d"), true); };
        // A "Content-Length" that is not a number reads as 0.
        const Completion lots =
            answered("200 OK\r\nContent-Length: lots\r\nConnection: close\r\n\r\n",
                     [](ThinDavApi& api) { api.GetFileLength("f"); });
        QCOMPARE(lots.status, 200);
        QCOMPARE(lots.length, 0);
        // A 207 that is not XML fails the listing with the parser's reason.
        const Completion broken = answered(
            "207 Multi-Status\r\nContent-Length: 9\r\nConnection: close\r\n\r\n<D:a><b>x", getDir);
        QCOMPARE(broken.status, -1);
        QVERIFY(!broken.statusText.isEmpty() && broken.entries.isEmpty());
        const Completion html = answered("207 Multi-Status\r\nContent-Length: 23\r\n"
                                         "Connection: close\r\n\r\n<html><p>hi</p></html>\n",
                                         getDir);
        QCOMPARE(html.status, -1);
        QCOMPARE(html.statusText, QStringLiteral("no \"multistatus\" found"));
        // Repeated header lines in one answer: Qt's HTTP layer hands them over
        // already joined (same meaning in HTTP), so both values stay in one item.
        const Completion twice =
            answered("200 OK\r\nN: x\r\nN: y\r\nContent-Length: 0\r\nConnection: close\r\n\r\n",
                     [](ThinDavApi& api) { api.GetOptions(); });
        QCOMPARE(twice.headers.Item(QStringLiteral("N")), QStringLiteral("N:x, y"));
    }
};

QTEST_GUILESS_MAIN(TestThinDavApi)
#include "tst_thindavapi.moc"