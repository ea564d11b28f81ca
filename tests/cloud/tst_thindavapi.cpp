// ThinDavApi against a real Apache mod_dav share, a closed port and a raw
// HTTP server on 127.0.0.1.
#include "cloud/thindavapi.h"
#include "common/msgbox.h"
#include "davtest.h"
#include "rawhttp.h"

#include <QDir>
#include <QTest>

class TestThinDavApi : public QObject
{
    Q_OBJECT
    DavShare share;
    QString folder; // this run's own collection on the share
    QList<Message> messages;

    void connectTo(ThinDavApi& api)
    {
        api.setBaseUrl(share.url);
        api.User = share.user;
        api.PW = share.password;
    }

private slots:
    void initTestCase()
    {
        share = DavShare::fromFixture();
        QVERIFY2(share.ok, "the webdav fixture is not running");
        folder = uniqueName("api");
    }
    void init()
    {
        messages.clear();
        setMsgRecorder([this](const Message& m) { messages.append(m); });
    }
    void cleanup() { setMsgRecorder({}); }

    void identityAndUrls()
    {
        ThinDavApi api;
        QCOMPARE(ThinDavApi::Version(), QStringLiteral("001.000"));
        QCOMPARE(api.UserAgent(), QStringLiteral("ThinDavApi/1"));
        QCOMPARE(api.ReadyState(), 0);
        api.setBaseUrl(QStringLiteral("https://share.example:8443/remote/dav"));
        QCOMPARE(api.BaseUrl(), QStringLiteral("https://share.example:8443/remote/dav/"));
        QCOMPARE(api.Origin(), QStringLiteral("https://share.example:8443"));
        const QString base = api.BaseUrl();
        QCOMPARE(api.RequestUrl(QString()), base + QStringLiteral("/"));
        QCOMPARE(api.RequestUrl(QStringLiteral("/a/b/")), base + QStringLiteral("a/b"));
        QCOMPARE(api.RequestUrl(QStringLiteral("CloudPrint\\bob\\srv/job 1.ps")),
                 base + QStringLiteral("CloudPrint%5Cbob%5Csrv/job%201.ps"));
        // Already escaped text is not escaped again.
        QCOMPARE(api.RequestUrl(QStringLiteral("a%20b")), base + QStringLiteral("a%20b"));
    }

    void fileRoundTrip()
    {
        ThinDavApi api;
        connectTo(api);
        CompletionLog log(api);

        QVERIFY(log.run([&] { api.MakeDir(folder); }));
        QCOMPARE(log.last().request, int(ThinDavApi::rqMakeDir));
        QCOMPARE(log.last().status, 201);
        QVERIFY(QFileInfo(share.root + u'/' + folder).isDir());

        QVERIFY(log.run([&] { api.MakeDir(folder + u'/'); }));
        QCOMPARE(log.last().status, 405);
        QCOMPARE(log.last().statusText, QStringLiteral("Method Not Allowed"));

        const QString text = QStringLiteral("%!PS-Adobe-3.0\r\n(h\u00e9llo) show\r\n");
        QVERIFY(log.run(
            [&] { api.PutFileText(folder + QStringLiteral("/a b.ps"), text, "text/plain"); }));
        QCOMPARE(log.last().request, int(ThinDavApi::rqPutFileText));
        QCOMPARE(log.last().status, 201);
        QCOMPARE(messages.size(), 1);
        QCOMPARE(messages[0].text,
                 QStringLiteral("Print Uploaded to Cloud...\r\nPress Button 'Get Cloud Data' in "
                                "server program to print."));
        QFile stored(share.root + u'/' + folder + QStringLiteral("/a b.ps"));
        QVERIFY(stored.open(QIODevice::ReadOnly));
        QCOMPARE(stored.readAll(), text.toUtf8());

        QVERIFY(log.run([&] { api.GetFileLength(folder + QStringLiteral("/a b.ps")); }));
        QCOMPARE(log.last().request, int(ThinDavApi::rqGetFileLength));
        QCOMPARE(log.last().status, 200);
        QCOMPARE(log.last().length, qint32(text.toUtf8().size()));
        QCOMPARE(api.Length(), 0); // response data lives only during Complete

        QObject token;
        QVERIFY(log.run([&] {
            api.GetFileText(QStringLiteral("/") + folder + "/a b.ps",
                            QVariant::fromValue<QObject*>(&token));
        }));
        QCOMPARE(log.last().request, int(ThinDavApi::rqGetFileText));
        QCOMPARE(log.last().text, text);
        QCOMPARE(log.last().tag.value<QObject*>(), &token);
        QCOMPARE(log.last().readyState, 4);
        QVERIFY(api.FileText().isEmpty());
        QVERIFY(!api.Tag().isValid());
        QCOMPARE(api.Status(), 200); // status, text and code stay
        QCOMPARE(api.StatusText(), QStringLiteral("OK"));
        QCOMPARE(api.Request(), int(ThinDavApi::rqGetFileText));

        QVERIFY(log.run([&] { api.GetFileBytes(folder + QStringLiteral("/a b.ps")); }));
        QCOMPARE(log.last().request, int(ThinDavApi::rqGetFileBytes));
        QCOMPARE(log.last().bytes, text.toUtf8());
        QVERIFY(api.FileBytes().isEmpty());

        const QByteArray binary("\x00\x01\xff\xfe", 4);
        QVERIFY(log.run([&] {
            api.PutFileBytes(folder + QStringLiteral("/raw.bin"), binary, "application/x-raw");
        }));
        QCOMPARE(log.last().status, 201);
        QCOMPARE(messages.size(), 1); // only PutFileText tells the user
        QVERIFY(log.run([&] { api.GetFileBytes(folder + QStringLiteral("/raw.bin")); }));
        QCOMPARE(log.last().bytes, binary);

        // A zero-length file gives empty bytes.
        QVERIFY(log.run(
            [&] { api.PutFileBytes(folder + QStringLiteral("/empty"), QByteArray(), "x/y"); }));
        QVERIFY(log.run([&] { api.GetFileBytes(folder + QStringLiteral("/empty")); }));
        QCOMPARE(log.last().status, 200);
        QVERIFY(log.last().bytes.isEmpty());

        QVERIFY(log.run([&] { api.GetFileLength(folder + QStringLiteral("/missing.ps")); }));
        QCOMPARE(log.last().status, 404);
        QCOMPARE(log.last().length, 0);
    }

    void listing()
    {
        ThinDavApi api;
        connectTo(api);
        CompletionLog log(api);
        const QString dir = folder + QStringLiteral("-list");
        QVERIFY(log.run([&] { api.MakeDir(dir); }));
        QVERIFY(log.run([&] { api.MakeDir(dir + QStringLiteral("/sub")); }));
        QVERIFY(
            log.run([&] { api.PutFileText(dir + QStringLiteral("/x y.ps"), "x", "text/plain"); }));

        QVERIFY(log.run([&] { api.GetDir(dir, true); }));
        const Completion& c = log.last();
        QCOMPARE(c.request, int(ThinDavApi::rqGetDir));
        QCOMPARE(c.status, 207);
        QVERIFY(c.xml.contains(QStringLiteral("multistatus")));
        QVERIFY(api.DirEntries().isEmpty() && api.XML().isEmpty());
        QCOMPARE(api.Status(), 207);
        QCOMPARE(c.entries.size(), 3);
        QCOMPARE(c.entries[0].name, dir); // the listed collection itself
        QVERIFY(c.entries[0].isCollection);
        QStringList names;
        for (int i = 1; i < c.entries.size(); ++i)
            names << c.entries[i].name + (c.entries[i].isCollection ? "/" : "");
        names.sort();
        QCOMPARE(names, QStringList({"sub/", "x%20y.ps"}));
        for (const DirEntry& e : c.entries)
            QVERIFY(e.lastModified.isValid() && e.lastModified.date().year() >= 2024);

        QVERIFY(log.run([&] { api.GetDir(dir, false); }));
        QCOMPARE(log.last().entries.size(), 1);

        QVERIFY(log.run([&] { api.GetDir(dir + QStringLiteral("/nothing"), true); }));
        QCOMPARE(log.last().status, 404);
        QVERIFY(log.last().entries.isEmpty());
    }

    void backslashSeparatesLevels()
    {
        // The share treats "\" (sent as %5C) like "/".
        ThinDavApi api;
        connectTo(api);
        CompletionLog log(api);
        QVERIFY(log.run([&] { api.MakeDir(folder + QStringLiteral("-bs")); }));
        QVERIFY(log.run(
            [&] { api.PutFileText(folder + QStringLiteral("-bs\\in.ps"), "in", "text/plain"); }));
        QCOMPARE(log.last().status, 201);
        QVERIFY(QFile::exists(share.root + u'/' + folder + QStringLiteral("-bs/in.ps")));
        QVERIFY(share.accessLog().contains(folder + QStringLiteral("-bs%5Cin.ps")));
    }

    void copyMoveDelete()
    {
        ThinDavApi api;
        connectTo(api);
        CompletionLog log(api);
        const QString dir = folder + QStringLiteral("-cmd");
        QVERIFY(log.run([&] { api.MakeDir(dir); }));
        QVERIFY(log.run([&] { api.PutFileText(dir + "/one.ps", "1", "text/plain"); }));

        QVERIFY(log.run([&] { api.Copy(dir + "/one.ps", dir + "/two.ps", false, false); }));
        QCOMPARE(log.last().request, int(ThinDavApi::rqCopy));
        QCOMPARE(log.last().status, 201);
        QVERIFY(log.run([&] { api.Copy(dir + "/one.ps", dir + "/two.ps", false, false); }));
        QCOMPARE(log.last().status, 412); // Overwrite F
        QVERIFY(log.run([&] { api.Copy(dir + "/one.ps", dir + "/two.ps", true, false); }));
        QCOMPARE(log.last().status, 204);

        QVERIFY(log.run([&] { api.Move(dir + "/two.ps", dir + "/three.ps", false); }));
        QCOMPARE(log.last().request, int(ThinDavApi::rqMove));
        QCOMPARE(log.last().status, 201);
        QVERIFY(!QFile::exists(share.root + u'/' + dir + "/two.ps"));
        QVERIFY(QFile::exists(share.root + u'/' + dir + "/three.ps"));

        QVERIFY(log.run([&] { api.Copy(dir, dir + "-copy", false, true); }));
        QCOMPARE(log.last().status, 201);
        QVERIFY(QFile::exists(share.root + u'/' + dir + "-copy/three.ps"));

        QVERIFY(log.run([&] { api.Delete(dir + "/three.ps"); }));
        QCOMPARE(log.last().request, int(ThinDavApi::rqDelete));
        QCOMPARE(log.last().status, 204);
        QVERIFY(!QFile::exists(share.root + u'/' + dir + "/three.ps"));
    }

    void optionsJoinRepeatedHeaders()
    {
        ThinDavApi api;
        connectTo(api);
        CompletionLog log(api);
        QVERIFY(log.run([&] { api.GetOptions(QStringLiteral("opt")); }));
        const Completion& c = log.last();
        QCOMPARE(c.request, int(ThinDavApi::rqGetOptions));
        QCOMPARE(c.status, 200);
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
        ThinDavApi api;
        connectTo(api);
        api.PW = QStringLiteral("not the password");
        CompletionLog log(api);
        QVERIFY(log.run([&] { api.GetDir(QString(), true); }));
        QCOMPARE(log.last().status, 401);
        QCOMPARE(log.last().statusText, QStringLiteral("Unauthorized"));
        QVERIFY(log.last().entries.isEmpty());
        QVERIFY(!api.IsStatus2XX());
    }

    void serverStopped()
    {
        // Nothing listens: no HTTP answer at all.
        ThinDavApi api;
        api.setBaseUrl(QStringLiteral("http://127.0.0.1:%1/dav/").arg(closedPort()));
        api.User = share.user;
        api.PW = share.password;
        CompletionLog log(api);

        QVERIFY(log.run([&] { api.GetDir(QStringLiteral("CloudPrint"), true); }));
        QCOMPARE(log.last().request, int(ThinDavApi::rqGetDir));
        QVERIFY(log.last().status > 0 && log.last().status < 100);
        QVERIFY(!log.last().statusText.isEmpty());
        QVERIFY(!api.IsStatus2XX());

        QVERIFY(log.run([&] { api.GetOptions(); }));
        QCOMPARE(log.last().status, 400);
        QCOMPARE(log.last().statusText, QStringLiteral("Bad Request"));

        // The PUTs answer 405 and raise no Complete; PutFileText still tells the user.
        const qsizetype before = log.all.size();
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
        QVERIFY(log.run([&] { api.Delete(QStringLiteral("f.ps")); }));
        QCOMPARE(log.all.size(), before + 1);
        QCOMPARE(log.last().request, int(ThinDavApi::rqDelete));
    }

    void abortAndReplace()
    {
        ThinDavApi api;
        connectTo(api);
        CompletionLog log(api);
        api.GetDir(QString(), true, QStringLiteral("first"));
        QCOMPARE(api.ReadyState(), 1);
        api.AbortRequest(QStringLiteral("stop"));
        QCOMPARE(log.all.size(), 1);
        QVERIFY(log.last().aborted);
        QCOMPARE(log.last().request, int(ThinDavApi::rqGetDir));
        QCOMPARE(log.last().tag.toString(), QStringLiteral("stop"));
        QVERIFY(!api.Tag().isValid());
        QVERIFY(api.Aborted());
        QCOMPARE(api.ReadyState(), 0);

        // A new request clears the flag; the one it replaces never completes.
        api.GetFileText(QStringLiteral("nowhere.ps"));
        QVERIFY(!api.Aborted());
        QVERIFY(log.run([&] { api.GetOptions(QStringLiteral("second")); }));
        QCOMPARE(log.all.size(), 2);
        QCOMPARE(log.last().request, int(ThinDavApi::rqGetOptions));
        QCOMPARE(log.last().tag.toString(), QStringLiteral("second"));
        QVERIFY(!log.last().aborted);
    }

    void requestHeadersInOrder()
    {
        RawHttpServer raw("HTTP/1.1 207 Multi-Status\r\nContent-Type: text/xml\r\n"
                          "Content-Length: 43\r\nConnection: close\r\n\r\n"
                          "<D:multistatus xmlns:D=\"DAV:\"/>           ");
        ThinDavApi api;
        api.setBaseUrl(raw.url());
        api.User = QStringLiteral("me@example.com");
        api.PW = QStringLiteral("p w");
        CompletionLog log(api);
        QVERIFY(log.run([&] { api.GetDir(QStringLiteral("CloudPrint\\me"), true); }));
        QCOMPARE(log.last().status, 207);
        QCOMPARE(raw.requestLine(0), QByteArray("PROPFIND /dav/CloudPrint%5Cme HTTP/1.1"));
        const QList<QByteArray> lines = raw.headerLines(0);
        const QList<QByteArray> expected = {"User-Agent: ThinDavApi/1",
                                            "If-Modified-Since: Tue, 1 Jan 1980 00:00:00 GMT",
                                            "Cache-Control: no-cache",
                                            "Pragma: no-cache",
                                            "Content-Type: text/xml",
                                            "Accept: */*",
                                            "Depth: 1"};
        qsizetype at = -1;
        for (const QByteArray& e : expected) {
            const qsizetype i = lines.indexOf(e);
            QVERIFY2(i > at, e.constData());
            at = i;
        }
        QVERIFY(
            lines.contains("Authorization: Basic " + QByteArray("me@example.com:p w").toBase64()));
        const QByteArray& request = raw.requests[0];
        QVERIFY(request.endsWith("\r\n\r\n" + DavPropfindBody()));

        QVERIFY(log.run([&] { api.Move(QStringLiteral("/a/"), QStringLiteral("b c/"), true); }));
        QVERIFY(raw.headerLines(1).contains("Destination: " + raw.url().toUtf8() + "b c"));
        QVERIFY(raw.headerLines(1).contains("Overwrite: T"));
        QVERIFY(raw.headerLines(1).contains("Depth: infinity"));
        QVERIFY(log.run([&] { api.Copy(QStringLiteral("a"), QStringLiteral("b"), false, false); }));
        QVERIFY(raw.headerLines(2).contains("Overwrite: F"));
        QVERIFY(raw.headerLines(2).contains("Depth: 0"));
        QVERIFY(log.run([&] { api.GetDir(QString(), false); }));
        QCOMPARE(raw.requestLine(3), QByteArray("PROPFIND /dav// HTTP/1.1"));
        QVERIFY(raw.headerLines(3).contains("Depth: 0"));
    }

    void oddAnswers()
    {
        // A "Content-Length" that is not a number reads as 0.
        {
            RawHttpServer raw(
                "HTTP/1.1 200 OK\r\nContent-Length: lots\r\nConnection: close\r\n\r\n");
            ThinDavApi api;
            api.setBaseUrl(raw.url());
            CompletionLog log(api);
            QVERIFY(log.run([&] { api.GetFileLength(QStringLiteral("f")); }));
            QCOMPARE(log.last().status, 200);
            QCOMPARE(log.last().length, 0);
            QVERIFY(log.run([&] { api.GetFileBytes(QStringLiteral("f")); }));
            QVERIFY(log.last().bytes.isEmpty());
        }
        // A 207 that is not XML fails the listing with the parser's reason.
        {
            RawHttpServer raw("HTTP/1.1 207 Multi-Status\r\nContent-Length: 9\r\n"
                              "Connection: close\r\n\r\n<D:a><b>x");
            ThinDavApi api;
            api.setBaseUrl(raw.url());
            CompletionLog log(api);
            QVERIFY(log.run([&] { api.GetDir(QStringLiteral("d"), true); }));
            QCOMPARE(log.last().status, -1);
            QVERIFY(!log.last().statusText.isEmpty());
            QVERIFY(log.last().entries.isEmpty());
            QCOMPARE(api.Status(), -1);
        }
        {
            RawHttpServer raw("HTTP/1.1 207 Multi-Status\r\nContent-Length: 23\r\n"
                              "Connection: close\r\n\r\n<html><p>hi</p></html>\n");
            ThinDavApi api;
            api.setBaseUrl(raw.url());
            CompletionLog log(api);
            QVERIFY(log.run([&] { api.GetDir(QStringLiteral("d"), true); }));
            QCOMPARE(log.last().status, -1);
            QCOMPARE(log.last().statusText, QStringLiteral("no \"multistatus\" found"));
        }
        // Repeated header lines in one answer: Qt's HTTP layer hands them over
        // already joined (same meaning in HTTP), so both values stay in one item.
        {
            RawHttpServer raw("HTTP/1.1 200 OK\r\nN: x\r\nN: y\r\nContent-Length: 0\r\n"
                              "Connection: close\r\n\r\n");
            ThinDavApi api;
            api.setBaseUrl(raw.url());
            CompletionLog log(api);
            QVERIFY(log.run([&] { api.GetOptions(); }));
            QCOMPARE(log.last().headers.Item(QStringLiteral("N")), QStringLiteral("N:x, y"));
        }
    }
};

QTEST_GUILESS_MAIN(TestThinDavApi)
#include "tst_thindavapi.moc"
