// Listing and date parsing on replies captured from Apache mod_dav and on
// hand-made edge cases. Runs under TZ=CET-1 (UTC+1, no daylight time).
#include "cloud/davlisting.h"

#include <QFile>
#include <QTest>

namespace
{
const QString kOrigin = QStringLiteral("http://127.0.0.1:30608");
const QString kBase = QStringLiteral("http://127.0.0.1:30608/dav/");

QByteArray captured(const char* name)
{
    QFile f(QStringLiteral(CLOUD_TEST_DATA "/") + QLatin1StringView(name));
    if (!f.open(QIODevice::ReadOnly))
        qFatal("missing test data %s", name);
    return f.readAll();
}

QByteArray multistatus(const QByteArray& responses)
{
    return "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<D:multistatus xmlns:D=\"DAV:\">" +
           responses + "</D:multistatus>";
}

QDateTime local(int y, int mo, int d, int h, int mi, int s = 0)
{
    return QDateTime(QDate(y, mo, d), QTime(h, mi, s), Qt::LocalTime);
}

// The wall clock a date shows, whatever its zone.
QString wall(const QDateTime& t)
{
    return t.toString(QStringLiteral("yyyy-MM-dd hh:mm:ss"));
}
} // namespace

class TestDavListing : public QObject
{
    Q_OBJECT
    DavDateParser dates;

    bool parse(DavListingParser& p, const QByteArray& xml) { return p.Parse(xml, -1.0f); }

private slots:
    void propfindBodyIsExact()
    {
        QCOMPARE(DavPropfindBody(),
                 QByteArray("<?xml version=\"1.0\"?><d:propfind xmlns:d=\"DAV:\"><d:prop>"
                            "<d:getlastmodified/><d:getcontentlength/><d:getcontenttype/>"
                            "<d:resourcetype/></d:prop></d:propfind>"));
    }

    void zoneTablesPairUp()
    {
        QStringList names = dates.ZoneNames();
        const QStringList offsets = dates.ZoneOffsets();
        QCOMPARE(names.size(), 83);
        QCOMPARE(offsets.size(), 83);
        QCOMPARE(names.removeDuplicates(), 0);
        // The program's own picks among ambiguous names, and a few others.
        const QList<QPair<const char*, double>> picks = {
            {"Z", 0},      {"GMT", 0},    {"UTC", 0},    {"A", 1},    {"ACDT", 10.5},
            {"ACST", 9.5}, {"AKDT", -8},  {"CEST", 2},   {"CET", 1},  {"EST", -5},
            {"HAT", -2.5}, {"HNT", -3.5}, {"IST", 1},    {"M", 12},   {"MESZ", 2},
            {"N", -1},     {"NDT", -2.5}, {"NFT", 11.5}, {"PST", -8}, {"WDT", 9},
            {"WEST", 1},   {"WST", 8},    {"X", -11},    {"Y", -12},  {"YST", 0}};
        for (const auto& [name, hours] : picks)
            QCOMPARE(dates.ZoneOffset(QString::fromLatin1(name)), hours);
        for (int i = 0; i < names.size(); ++i)
            QCOMPARE(dates.ZoneOffset(names[i]), offsets[i].toDouble());
    }

    void numericZones()
    {
        QCOMPARE(dates.ZoneOffset(QStringLiteral("+0530")), 5.5);
        QCOMPARE(dates.ZoneOffset(QStringLiteral("-0230")), -2.5);
        QCOMPARE(dates.ZoneOffset(QStringLiteral("+0000")), 0.0);
        QCOMPARE(dates.ZoneOffset(QStringLiteral("-1100")), -11.0);
        QCOMPARE(dates.ZoneOffset(QStringLiteral("0100")), 0.0); // no sign, no name
    }

    void gmtUnderFixedZone()
    {
        // The test runs at UTC+1 without daylight time.
        QCOMPARE(DavDateParser::LocalBias(), -1.0f);
        QCOMPARE(wall(dates.Parse(QStringLiteral("Tue, 1 Jan 1980 00:00:00 GMT"))),
                 wall(local(1980, 1, 1, 1, 0)));
        // The same instant.
        QCOMPARE(dates.Parse(QStringLiteral("Tue, 1 Jan 1980 00:00:00 GMT")).toUTC(),
                 QDateTime(QDate(1980, 1, 1), QTime(0, 0), Qt::UTC));
        QCOMPARE(wall(dates.Parse(QStringLiteral("Sun, 22 Nov 2026 19:48:32 GMT"))),
                 wall(local(2026, 11, 22, 20, 48, 32)));
    }

    void zonesShiftToLocalTime_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QDateTime>("expected");
        // Bias 0: the result is UTC wall time.
        QTest::newRow("+0530") << "Tue, 1 Jan 1980 12:00:00 +0530" << local(1980, 1, 1, 6, 30);
        QTest::newRow("-0230") << "Tue, 1 Jan 1980 12:00:00 -0230" << local(1980, 1, 1, 14, 30);
        QTest::newRow("EST") << "Tue, 1 Jan 1980 10:00:00 EST" << local(1980, 1, 1, 15, 0);
        QTest::newRow("lower case") << "tue, 1 jan 1980 10:00:00 cest" << local(1980, 1, 1, 8, 0);
        QTest::newRow("unknown zone") << "Tue, 1 Jan 1980 10:00:00 XYZ" << local(1980, 1, 1, 10, 0);
        QTest::newRow("day rolls back")
            << "Tue, 1 Jan 1980 02:00:00 +0530" << local(1979, 12, 31, 20, 30);
        QTest::newRow("glued name") << "Tue, 1 Jan 1980 00:00:00GMT" << local(1980, 1, 1, 0, 0);
        QTest::newRow("glued number") << "Tue, 1 Jan 1980 10:00:00+0100" << local(1980, 1, 1, 9, 0);
        QTest::newRow("no zone is Z") << "Tue, 1 Jan 1980 10:00:00" << local(1980, 1, 1, 10, 0);
        QTest::newRow("full month")
            << "Wed, 15 October 2025 08:05:09 UTC" << local(2025, 10, 15, 8, 5, 9);
        QTest::newRow("two-digit year")
            << "Sun, 06 Nov 94 08:49:37 GMT" << local(1994, 11, 6, 8, 49, 37);
    }
    void zonesShiftToLocalTime()
    {
        QFETCH(QString, text);
        QFETCH(QDateTime, expected);
        QCOMPARE(wall(dates.Parse(text, 0.0f)), wall(expected));
    }

    void unreadableDatesAreInvalid_data()
    {
        QTest::addColumn<QString>("text");
        QTest::newRow("empty") << "";
        QTest::newRow("words") << "not a date at all";
        QTest::newRow("31 February") << "Tue, 31 Feb 1980 00:00:00 GMT";
        QTest::newRow("bad month") << "Tue, 1 Foo 1980 00:00:00 GMT";
        QTest::newRow("bad time") << "Tue, 1 Jan 1980 25:00:00 GMT";
        QTest::newRow("too short") << "Tue, 1 Jan";
    }
    void unreadableDatesAreInvalid()
    {
        QFETCH(QString, text);
        QVERIFY(!dates.Parse(text, 0.0f).isValid());
    }

    void originSkipsTheScheme()
    {
        QCOMPARE(DavOrigin(QStringLiteral("http://h:8080/dav/")), QStringLiteral("http://h:8080"));
        QCOMPARE(DavOrigin(QStringLiteral("https://a.b/x/y/")), QStringLiteral("https://a.b"));
        QCOMPARE(DavOrigin(QStringLiteral("http://h/")), QStringLiteral("http://h"));
    }

    void capturedCollectionListing()
    {
        DavListingParser p(kOrigin, kBase.size(), dates);
        QVERIFY2(parse(p, captured("apache-srv1-depth1.xml")), qPrintable(p.error()));
        const QList<DirEntry> e = p.entries();
        QCOMPARE(e.size(), 3);
        // The listed collection first; the 404 propstat does not undo it.
        QVERIFY(e[0].isCollection);
        QCOMPARE(e[0].relativePath, QStringLiteral("CloudPrint/alice/Srv1"));
        QCOMPARE(e[0].name, QStringLiteral("Srv1"));
        QCOMPARE(e[0].contentType, QStringLiteral("httpd/unix-directory"));
        QCOMPARE(e[0].length, 0.0);
        QCOMPARE(wall(e[0].lastModified), wall(local(2026, 11, 22, 21, 13, 7)));

        QVERIFY(!e[1].isCollection);
        QCOMPARE(e[1].name, QStringLiteral("job%201.ps")); // never decoded
        QCOMPARE(e[1].relativePath, QStringLiteral("CloudPrint/alice/Srv1/job%201.ps"));
        QCOMPARE(e[1].length, 5.0);
        QCOMPARE(e[1].contentType, QStringLiteral("application/postscript"));
        QCOMPARE(wall(e[1].lastModified), wall(local(2026, 11, 22, 21, 12, 54)));
        QCOMPARE(e[2].name, QStringLiteral("File_261122_201500.ps"));
        QCOMPARE(e[2].length, 8.0);

        // The six fields by index.
        QCOMPARE(e[1].field(0).toBool(), false);
        QCOMPARE(e[1].field(1).toString(), e[1].name);
        QCOMPARE(e[1].field(2).toString(), e[1].relativePath);
        QCOMPARE(e[1].field(3).toDouble(), 5.0);
        QCOMPARE(e[1].field(4).toDateTime(), e[1].lastModified);
        QCOMPARE(e[1].field(5).toString(), e[1].contentType);
    }

    void capturedUserListing()
    {
        DavListingParser p(kOrigin, kBase.size(), dates);
        QVERIFY(parse(p, captured("apache-alice-depth1.xml")));
        QStringList collections;
        for (const DirEntry& e : p.entries())
            if (e.isCollection)
                collections << e.name;
        QCOMPARE(collections, QStringList({"alice", "Srv1", "empty"}));
    }

    void capturedDepthZeroFile()
    {
        DavListingParser p(kOrigin, kBase.size(), dates);
        QVERIFY(parse(p, captured("apache-file-depth0.xml")));
        QCOMPARE(p.entries().size(), 1);
        QCOMPARE(p.entries()[0].name, QStringLiteral("job%201.ps"));
        QVERIFY(!p.entries()[0].isCollection);
    }

    void listedBaseHasEmptyName()
    {
        DavListingParser p(kOrigin, kBase.size(), dates);
        QVERIFY(parse(p, multistatus("<D:response><D:href>/dav/</D:href></D:response>")));
        QCOMPARE(p.entries()[0].relativePath, QString());
        QCOMPARE(p.entries()[0].name, QString());
        QCOMPARE(wall(p.entries()[0].lastModified), QStringLiteral("1899-12-30 00:00:00"));
    }

    void hrefForms_data()
    {
        QTest::addColumn<QString>("href");
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("name");
        QTest::newRow("absolute path") << "/dav/CloudPrint/alice/"
                                       << "CloudPrint/alice"
                                       << "alice";
        QTest::newRow("absolute url") << "http://127.0.0.1:30608/dav/x/a%20b"
                                      << "x/a%20b"
                                      << "a%20b";
        QTest::newRow("scheme in capitals") << "HTTP://127.0.0.1:30608/dav/top/"
                                            << "top"
                                            << "top";
        QTest::newRow("no leading slash") << "dav/one/two.ps"
                                          << "one/two.ps"
                                          << "two.ps";
        QTest::newRow("single level") << "/dav/file.ps"
                                      << "file.ps"
                                      << "file.ps";
        QTest::newRow("encoded backslash") << "/dav/CloudPrint%5calice/"
                                           << "CloudPrint%5calice"
                                           << "CloudPrint%5calice";
    }
    void hrefForms()
    {
        QFETCH(QString, href);
        QFETCH(QString, path);
        QFETCH(QString, name);
        DavListingParser p(kOrigin, kBase.size(), dates);
        DirEntry e;
        p.ApplyHref(href, e);
        QCOMPARE(e.relativePath, path);
        QCOMPARE(e.name, name);
    }

    void anyPrefixAndSecondPropstat()
    {
        const QByteArray xml =
            "<?xml version=\"1.0\"?><z:multistatus xmlns:z=\"DAV:\" xmlns:o=\"urn:other\">"
            "<z:response><z:href>/dav/d/</z:href>"
            "<z:propstat><z:prop><q:resourcetype xmlns:q=\"DAV:\"><z:collection/></q:resourcetype>"
            "<q:getcontenttype xmlns:q=\"DAV:\">text/x-dir</q:getcontenttype>"
            "<q:getlastmodified xmlns:q=\"DAV:\">Tue, 1 Jan 1980 00:00:00 GMT</q:getlastmodified>"
            "</z:prop><z:status>HTTP/1.1 200 OK</z:status></z:propstat>"
            "<z:propstat><z:prop><z:getcontentlength/><z:getlastmodified/><z:resourcetype/>"
            "<z:getcontenttype/></z:prop><z:status>HTTP/1.1 404 Not Found</z:status></z:propstat>"
            "</z:response>"
            // Elements outside DAV: are not entries or properties.
            "<o:response><z:href>/dav/ghost</z:href></o:response>"
            "<z:response><z:href>/dav/d/f.ps</z:href><z:propstat><z:prop>"
            "<o:getcontentlength>99</o:getcontentlength><z:getcontentlength> 42 "
            "</z:getcontentlength>"
            "<z:unknownprop>x</z:unknownprop><z:resourcetype/></z:prop>"
            "<z:status>HTTP/1.1 200 OK</z:status></z:propstat></z:response>"
            "</z:multistatus>";
        DavListingParser p(kOrigin, kBase.size(), dates);
        QVERIFY2(parse(p, xml), qPrintable(p.error()));
        QCOMPARE(p.entries().size(), 2);
        const DirEntry& d = p.entries()[0];
        QVERIFY(d.isCollection);
        QCOMPARE(d.contentType, QStringLiteral("text/x-dir"));
        QCOMPARE(wall(d.lastModified), wall(local(1980, 1, 1, 1, 0)));
        const DirEntry& f = p.entries()[1];
        QCOMPARE(f.name, QStringLiteral("f.ps"));
        QCOMPARE(f.length, 42.0);
        QVERIFY(!f.isCollection);
    }

    void resourcetypeNeedsChildrenAndGoodStatus_data()
    {
        QTest::addColumn<QByteArray>("propstat");
        QTest::addColumn<bool>("collection");
        const QByteArray ok = "<D:status>HTTP/1.1 200 OK</D:status>";
        QTest::newRow("self-closing") << "<D:prop><D:resourcetype/></D:prop>" + ok << false;
        QTest::newRow("empty pair")
            << "<D:prop><D:resourcetype></D:resourcetype></D:prop>" + ok << false;
        QTest::newRow("blanks only")
            << "<D:prop><D:resourcetype>\n  </D:resourcetype></D:prop>" + ok << false;
        QTest::newRow("collection")
            << "<D:prop><D:resourcetype><D:collection/></D:resourcetype></D:prop>" + ok << true;
        QTest::newRow("foreign child")
            << "<D:prop><D:resourcetype><x:calendar xmlns:x=\"urn:x\"/></D:resourcetype></D:prop>" +
                   ok
            << true;
        QTest::newRow("status not 200")
            << QByteArray("<D:prop><D:resourcetype><D:collection/></D:resourcetype></D:prop>"
                          "<D:status>HTTP/1.1 403 Forbidden</D:status>")
            << false;
        QTest::newRow("no status")
            << QByteArray("<D:prop><D:resourcetype><D:collection/></D:resourcetype></D:prop>")
            << false;
    }
    void resourcetypeNeedsChildrenAndGoodStatus()
    {
        QFETCH(QByteArray, propstat);
        QFETCH(bool, collection);
        DavListingParser p(kOrigin, kBase.size(), dates);
        QVERIFY(parse(p, multistatus("<D:response><D:href>/dav/x/</D:href><D:propstat>" + propstat +
                                     "</D:propstat></D:response>")));
        QCOMPARE(p.entries().size(), 1);
        QCOMPARE(p.entries()[0].isCollection, collection);
    }

    void badNumbersAndDatesAreIgnored()
    {
        DavListingParser p(kOrigin, kBase.size(), dates);
        QVERIFY(parse(p, multistatus("<D:response><D:href>/dav/f</D:href><D:propstat><D:prop>"
                                     "<D:getcontentlength>12abc</D:getcontentlength>"
                                     "<D:getlastmodified>yesterday</D:getlastmodified>"
                                     "</D:prop><D:status>HTTP/1.1 200 OK</D:status></D:propstat>"
                                     "</D:response>")));
        QCOMPARE(p.entries()[0].length, 0.0);
        QCOMPARE(wall(p.entries()[0].lastModified), QStringLiteral("1899-12-30 00:00:00"));
    }

    void emptyMultistatusHasNoEntries()
    {
        DavListingParser p(kOrigin, kBase.size(), dates);
        QVERIFY(parse(p, multistatus("")));
        QVERIFY(p.entries().isEmpty());
    }

    void failures_data()
    {
        QTest::addColumn<QByteArray>("xml");
        QTest::addColumn<bool>("notMultistatus");
        QTest::newRow("other root") << QByteArray("<D:propfind xmlns:D=\"DAV:\"/>") << true;
        QTest::newRow("root outside DAV:")
            << QByteArray("<multistatus><response/></multistatus>") << true;
        QTest::newRow("html page") << QByteArray("<html><body>Error</body></html>") << true;
        QTest::newRow("empty") << QByteArray() << false;
        QTest::newRow("not xml") << QByteArray("Internal Server Error") << false;
        QTest::newRow("broken after entries")
            << multistatus("<D:response><D:href>/dav/a</D:href></D:response><D:response>")
                   .replace("</D:multistatus>", "")
            << false;
        QTest::newRow("wrong root, broken later")
            << QByteArray("<D:other xmlns:D=\"DAV:\"><a></b></D:other>") << false;
    }
    void failures()
    {
        QFETCH(QByteArray, xml);
        QFETCH(bool, notMultistatus);
        DavListingParser p(kOrigin, kBase.size(), dates);
        QVERIFY(!parse(p, xml));
        QVERIFY(p.entries().isEmpty());
        if (notMultistatus) {
            QCOMPARE(p.error(), QStringLiteral("no \"multistatus\" found"));
        } else {
            QVERIFY(!p.error().isEmpty());
            QVERIFY(p.error() != QStringLiteral("no \"multistatus\" found"));
        }
    }
    // Both readers give the same entries (and both fail) on the same text.
    void readersAgree_data()
    {
        QTest::addColumn<QByteArray>("xml");
        QTest::newRow("captured srv1") << captured("apache-srv1-depth1.xml");
        QTest::newRow("captured alice") << captured("apache-alice-depth1.xml");
        QTest::newRow("captured file") << captured("apache-file-depth0.xml");
        QTest::newRow("default namespace")
            << QByteArray("<multistatus xmlns=\"DAV:\"><response><href>/dav/d/</href><propstat>"
                          "<prop><resourcetype><collection/></resourcetype></prop>"
                          "<status>HTTP/1.1 200 OK</status></propstat></response></multistatus>");
        QTest::newRow("entities and cdata")
            << multistatus("<D:response><D:href>/dav/a&amp;b&#x20;c&#233;</D:href><D:propstat>"
                           "<D:prop><D:getcontenttype><![CDATA[text/<x>]]></D:getcontenttype>"
                           "<D:getcontentlength>1<!-- c -->2</D:getcontentlength>"
                           "</D:prop><D:status>HTTP/1.1 200 OK</D:status></D:propstat>"
                           "</D:response>");
        QTest::newRow("doctype, comments, pi")
            << QByteArray("\xEF\xBB\xBF<?xml version=\"1.0\"?>\n<!DOCTYPE x [ <!ELEMENT x ANY> ]>"
                          "<!-- c --><?pi x?><D:multistatus xmlns:D=\"DAV:\"><?pi?><D:response>"
                          "<D:href>/dav/f</D:href></D:response></D:multistatus>\n<!-- end -->\n");
        QTest::newRow("prefix rebound inside")
            << QByteArray("<a:multistatus xmlns:a=\"DAV:\"><a:response xmlns:a=\"urn:x\">"
                          "<a:href>/dav/no</a:href></a:response><a:response><a:href>/dav/yes"
                          "</a:href></a:response></a:multistatus>");
        QTest::newRow("attributes") << QByteArray(
            "<D:multistatus xmlns:D='DAV:' xml:lang=\"en\"><D:response x = 'a&lt;b' y=\"\">"
            "<D:href>/dav/f</D:href></D:response></D:multistatus>");
        QTest::newRow("undeclared prefix")
            << QByteArray("<D:multistatus xmlns:D=\"DAV:\"><x:response/></D:multistatus>");
        QTest::newRow("prefix out of scope")
            << QByteArray("<D:multistatus xmlns:D=\"DAV:\"><D:response xmlns:p=\"DAV:\"/>"
                          "<p:response/></D:multistatus>");
        QTest::newRow("undeclared attribute prefix")
            << QByteArray("<D:multistatus xmlns:D=\"DAV:\" q:x=\"1\"/>");
        QTest::newRow("tag mismatch")
            << QByteArray("<D:multistatus xmlns:D=\"DAV:\"><D:response></D:href></D:multistatus>");
        QTest::newRow("unknown entity")
            << multistatus("<D:response><D:href>/dav/&nbsp;</D:href></D:response>");
        QTest::newRow("bad char ref")
            << multistatus("<D:response><D:href>/dav/&#0;</D:href></D:response>");
        QTest::newRow("two roots")
            << QByteArray("<D:multistatus xmlns:D=\"DAV:\"/><D:x xmlns:D=\"DAV:\"/>");
        QTest::newRow("text after root") << multistatus("") + "junk";
        QTest::newRow("text before root") << QByteArray("junk<D:multistatus xmlns:D=\"DAV:\"/>");
        QTest::newRow("unterminated comment") << multistatus("<!-- x");
        QTest::newRow("lt in attribute") << QByteArray("<D:multistatus xmlns:D=\"a<b\"/>");
        QTest::newRow("duplicate attribute")
            << QByteArray("<D:multistatus xmlns:D=\"DAV:\" a=\"1\" a=\"2\"/>");
        QTest::newRow("unquoted attribute") << QByteArray("<D:multistatus xmlns:D=DAV:/>");
        QTest::newRow("cut inside a tag") << QByteArray("<D:multistatus xmlns:D=\"DAV:\"><D:resp");
        QTest::newRow("empty") << QByteArray();
        QTest::newRow("blanks") << QByteArray(" \n ");
    }
    void readersAgree()
    {
        QFETCH(QByteArray, xml);
        DavListingParser fast(kOrigin, kBase.size(), dates);
        DavListingParser qt(kOrigin, kBase.size(), dates);
        const bool fastOk = fast.Parse(xml, -1.0f, DavListingParser::Reader::Fast);
        const bool qtOk = qt.Parse(xml, -1.0f, DavListingParser::Reader::Qt);
        QCOMPARE(fastOk, qtOk);
        QCOMPARE(fast.error().isEmpty(), qt.error().isEmpty());
        QCOMPARE(fast.entries().size(), qt.entries().size());
        for (qsizetype i = 0; i < fast.entries().size(); ++i)
            for (int f = 0; f < 6; ++f)
                QCOMPARE(fast.entries()[i].field(f), qt.entries()[i].field(f));
    }

    void decodedText()
    {
        DavListingParser p(kOrigin, kBase.size(), dates);
        QVERIFY(parse(p, multistatus("<D:response><D:href>/dav/a&amp;b&#x20;c&#233;</D:href>"
                                     "<D:propstat><D:prop><D:getcontenttype><![CDATA[text/<x>]]>"
                                     "</D:getcontenttype><D:getcontentlength>1<!-- c -->2"
                                     "</D:getcontentlength></D:prop>"
                                     "<D:status>HTTP/1.1 200 OK</D:status></D:propstat>"
                                     "</D:response>")));
        QCOMPARE(p.entries()[0].name, QStringLiteral("a&b c\u00e9"));
        QCOMPARE(p.entries()[0].contentType, QStringLiteral("text/<x>"));
        QCOMPARE(p.entries()[0].length, 12.0);
    }

    void otherEncodings()
    {
        // Latin-1 text goes through Qt's reader.
        DavListingParser p(kOrigin, kBase.size(), dates);
        QVERIFY(parse(p, "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>"
                         "<D:multistatus xmlns:D=\"DAV:\"><D:response><D:href>/dav/caf\xe9"
                         "</D:href></D:response></D:multistatus>"));
        QCOMPARE(p.entries()[0].name, QStringLiteral("caf\u00e9"));
        QVERIFY(
            parse(p, multistatus("<D:response><D:href>/dav/caf\xc3\xa9</D:href></D:response>")));
        QCOMPARE(p.entries()[0].name, QStringLiteral("caf\u00e9"));
    }
};

QTEST_GUILESS_MAIN(TestDavListing)
#include "tst_davlisting.moc"
