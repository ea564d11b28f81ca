// Listing and date parsing on replies captured from Apache mod_dav and on
// hand-made edge cases. Runs under TZ=CET-1 (UTC+1, no daylight time).
#include "cloud/davlisting.h"

#include <QFile>
#include <QTest>

namespace
{
const QString kOrigin = QStringLiteral("http://127.0.0.1:30608");
const qsizetype kBaseLength = QStringLiteral("http://127.0.0.1:30608/dav/").size();
const QString kNoMultistatus = QStringLiteral("no \"multistatus\" found");
const QString kNoDate = QStringLiteral("1899-12-30 00:00:00");

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

// The wall clock a date shows, whatever its zone; empty when invalid.
QString wall(const QDateTime& t)
{
    return t.toString(QStringLiteral("yyyy-MM-dd hh:mm:ss"));
}

// The six fields of an entry, by index: "D|name|path|length|modified|type" ("F" for a file).
QString row(const DirEntry& e)
{
    return QStringList({e.field(0).toBool() ? "D" : "F", e.field(1).toString(),
                        e.field(2).toString(), QString::number(e.field(3).toDouble()),
                        wall(e.field(4).toDateTime()), e.field(5).toString()})
        .join(u'|');
}
// A file with nothing but its href "/dav/<path>".
QString bare(const QString& path)
{
    return QStringLiteral("F|%1|%2|0|%3|").arg(path.section(u'/', -1), path, kNoDate);
}
} // namespace

class TestDavListing : public QObject
{
    Q_OBJECT
    DavDateParser dates;

private slots:
    void fixedTexts()
    {
        QCOMPARE(DavPropfindBody(),
                 QByteArray("<?xml version=\"1.0\"?><d:propfind xmlns:d=\"DAV:\"><d:prop>"
                            "<d:getlastmodified/><d:getcontentlength/><d:getcontenttype/>"
                            "<d:resourcetype/></d:prop></d:propfind>"));
        QCOMPARE(DavOrigin(QStringLiteral("http://h:8080/dav/")), QStringLiteral("http://h:8080"));
        QCOMPARE(DavOrigin(QStringLiteral("https://a.b/x/y/")), QStringLiteral("https://a.b"));
        QCOMPARE(DavOrigin(QStringLiteral("http://h/")), QStringLiteral("http://h"));
    }

    void zoneOffsets()
    {
        QStringList names = dates.ZoneNames();
        const QStringList offsets = dates.ZoneOffsets();
        QCOMPARE(names.size(), 83);
        QCOMPARE(offsets.size(), 83);
        QCOMPARE(names.removeDuplicates(), 0);
        for (int i = 0; i < names.size(); ++i)
            QCOMPARE(dates.ZoneOffset(names[i]), offsets[i].toDouble());
        // The program's own picks among ambiguous names, a few others, numeric zones.
        const QList<QPair<const char*, double>> picks = {
            {"Z", 0},       {"GMT", 0},      {"UTC", 0},    {"A", 1},       {"ACDT", 10.5},
            {"ACST", 9.5},  {"AKDT", -8},    {"CEST", 2},   {"CET", 1},     {"EST", -5},
            {"HAT", -2.5},  {"HNT", -3.5},   {"IST", 1},    {"M", 12},      {"MESZ", 2},
            {"N", -1},      {"NDT", -2.5},   {"NFT", 11.5}, {"PST", -8},    {"WDT", 9},
            {"WEST", 1},    {"WST", 8},      {"X", -11},    {"Y", -12},     {"YST", 0},
            {"+0530", 5.5}, {"-0230", -2.5}, {"+0000", 0},  {"-1100", -11}, {"0100", 0}};
        for (const auto& [name, hours] : picks)
            QVERIFY2(dates.ZoneOffset(QString::fromLatin1(name)) == hours, name);
    }

    void gmtUnderFixedZone()
    {
        // The test runs at UTC+1 without daylight time.
        QCOMPARE(DavDateParser::LocalBias(), -1.0f);
        const QDateTime t = dates.Parse(QStringLiteral("Tue, 1 Jan 1980 00:00:00 GMT"));
        QCOMPARE(wall(t), QStringLiteral("1980-01-01 01:00:00"));
        QCOMPARE(t.toUTC(), QDateTime(QDate(1980, 1, 1), QTime(0, 0), Qt::UTC)); // same instant
        QCOMPARE(wall(dates.Parse(QStringLiteral("Sun, 22 Nov 2026 19:48:32 GMT"))),
                 QStringLiteral("2026-11-22 20:48:32"));
    }

    void datesAtBiasZero_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("expected"); // UTC wall time; empty: not a date
        const auto add = [](const char* tag, const char* text, const char* expected) {
            QTest::newRow(tag) << QString::fromUtf8(text) << QString::fromUtf8(expected);
        };
        add("+0530", "Tue, 1 Jan 1980 12:00:00 +0530", "1980-01-01 06:30:00");
        add("-0230", "Tue, 1 Jan 1980 12:00:00 -0230", "1980-01-01 14:30:00");
        add("EST", "Tue, 1 Jan 1980 10:00:00 EST", "1980-01-01 15:00:00");
        add("lower case", "tue, 1 jan 1980 10:00:00 cest", "1980-01-01 08:00:00");
        add("unknown zone", "Tue, 1 Jan 1980 10:00:00 XYZ", "1980-01-01 10:00:00");
        add("day rolls back", "Tue, 1 Jan 1980 02:00:00 +0530", "1979-12-31 20:30:00");
        add("glued name", "Tue, 1 Jan 1980 00:00:00GMT", "1980-01-01 00:00:00");
        add("glued number", "Tue, 1 Jan 1980 10:00:00+0100", "1980-01-01 09:00:00");
        add("no zone is Z", "Tue, 1 Jan 1980 10:00:00", "1980-01-01 10:00:00");
        add("full month", "Wed, 15 October 2025 08:05:09 UTC", "2025-10-15 08:05:09");
        add("two-digit year", "Sun, 06 Nov 94 08:49:37 GMT", "1994-11-06 08:49:37");
        add("empty", "", "");
        add("words", "not a date at all", "");
        add("31 February", "Tue, 31 Feb 1980 00:00:00 GMT", "");
        add("bad month", "Tue, 1 Foo 1980 00:00:00 GMT", "");
        add("bad time", "Tue, 1 Jan 1980 25:00:00 GMT", "");
        add("too short", "Tue, 1 Jan", "");
    }
    void datesAtBiasZero()
    {
        QFETCH(QString, text);
        QFETCH(QString, expected);
        QCOMPARE(wall(dates.Parse(text, 0.0f)), expected);
    }

    // Both readers give the expected entries, or fail: with kNoMultistatus, or
    // with the XML parser's reason ("error").
    void listings_data()
    {
        QTest::addColumn<QByteArray>("xml");
        QTest::addColumn<QStringList>("expected");
        const QString srv1 =
            "D|Srv1|CloudPrint/alice/Srv1|0|2026-11-22 21:13:07|httpd/unix-directory";
        const QString job = "F|job%201.ps|CloudPrint/alice/Srv1/job%201.ps|5|2026-11-22 21:12:54|"
                            "application/postscript";
        // The listed collection first; its 404 propstat does not undo it.
        QTest::newRow("captured srv1")
            << captured("apache-srv1-depth1.xml")
            << QStringList({srv1, job,
                            "F|File_261122_201500.ps|CloudPrint/alice/Srv1/File_261122_201500.ps|"
                            "8|2026-11-22 21:13:07|application/postscript"});
        QTest::newRow("captured alice")
            << captured("apache-alice-depth1.xml")
            << QStringList({"D|alice|CloudPrint/alice|0|2026-11-22 21:13:07|httpd/unix-directory",
                            srv1,
                            "D|empty|CloudPrint/alice/empty|0|2026-11-22 21:13:07|"
                            "httpd/unix-directory"});
        QTest::newRow("captured file") << captured("apache-file-depth0.xml") << QStringList({job});
        QTest::newRow("listed base has empty name")
            << multistatus("<D:response><D:href>/dav/</D:href></D:response>")
            << QStringList({bare("")});
        QTest::newRow("empty multistatus") << multistatus("") << QStringList();
        // The href less origin, base path and trailing "/"; never decoded.
        const auto href = [](const char* tag, const char* href, const char* path) {
            QTest::newRow(tag) << multistatus("<D:response><D:href>" + QByteArray(href) +
                                              "</D:href></D:response>")
                               << QStringList({bare(QString::fromLatin1(path))});
        };
        href("absolute path", "/dav/CloudPrint/alice/", "CloudPrint/alice");
        href("absolute url", "http://127.0.0.1:30608/dav/x/a%20b", "x/a%20b");
        href("scheme in capitals", "HTTP://127.0.0.1:30608/dav/top/", "top");
        href("no leading slash", "dav/one/two.ps", "one/two.ps");
        href("single level", "/dav/file.ps", "file.ps");
        href("encoded backslash", "/dav/CloudPrint%5calice/", "CloudPrint%5calice");
        QTest::newRow("any prefix, second propstat")
            << QByteArray(
                   "<?xml version=\"1.0\"?><z:multistatus xmlns:z=\"DAV:\" xmlns:o=\"urn:other\">"
                   "<z:response><z:href>/dav/d/</z:href><z:propstat><z:prop>"
                   "<q:resourcetype xmlns:q=\"DAV:\"><z:collection/></q:resourcetype>"
                   "<q:getcontenttype xmlns:q=\"DAV:\">text/x-dir</q:getcontenttype>"
                   "<q:getlastmodified xmlns:q=\"DAV:\">Tue, 1 Jan 1980 00:00:00 GMT"
                   "</q:getlastmodified></z:prop><z:status>HTTP/1.1 200 OK</z:status></z:propstat>"
                   "<z:propstat><z:prop><z:getcontentlength/><z:getlastmodified/><z:resourcetype/>"
                   "<z:getcontenttype/></z:prop><z:status>HTTP/1.1 404 Not Found</z:status>"
                   "</z:propstat></z:response>"
                   // Elements outside DAV: are not entries or properties.
                   "<o:response><z:href>/dav/ghost</z:href></o:response>"
                   "<z:response><z:href>/dav/d/f.ps</z:href><z:propstat><z:prop>"
                   "<o:getcontentlength>99</o:getcontentlength>"
                   "<z:getcontentlength> 42 </z:getcontentlength>"
                   "<z:unknownprop>x</z:unknownprop><z:resourcetype/></z:prop>"
                   "<z:status>HTTP/1.1 200 OK</z:status></z:propstat></z:response>"
                   "</z:multistatus>")
            << QStringList(
                   {"D|d|d|0|1980-01-01 01:00:00|text/x-dir", "F|f.ps|d/f.ps|42|" + kNoDate + "|"});
        // A collection needs children in "resourcetype" and a propstat of 200.
        const auto resourcetype = [](const char* tag, const QByteArray& propstat, bool collection) {
            QTest::newRow(tag) << multistatus("<D:response><D:href>/dav/x/</D:href><D:propstat>" +
                                              propstat + "</D:propstat></D:response>")
                               << QStringList(
                                      {(collection ? "D|x|x|0|" : "F|x|x|0|") + kNoDate + "|"});
        };
        const QByteArray ok = "<D:status>HTTP/1.1 200 OK</D:status>";
        const QByteArray coll = "<D:prop><D:resourcetype><D:collection/></D:resourcetype></D:prop>";
        resourcetype("self-closing", "<D:prop><D:resourcetype/></D:prop>" + ok, false);
        resourcetype("empty pair", "<D:prop><D:resourcetype></D:resourcetype></D:prop>" + ok,
                     false);
        resourcetype("blanks only", "<D:prop><D:resourcetype>\n </D:resourcetype></D:prop>" + ok,
                     false);
        resourcetype("collection", coll + ok, true);
        resourcetype(
            "foreign child",
            "<D:prop><D:resourcetype><x:cal xmlns:x=\"urn:x\"/></D:resourcetype></D:prop>" + ok,
            true);
        resourcetype("status not 200", coll + "<D:status>HTTP/1.1 403 Forbidden</D:status>", false);
        resourcetype("no status", coll, false);
        QTest::newRow("bad number and date ignored")
            << multistatus("<D:response><D:href>/dav/f</D:href><D:propstat><D:prop>"
                           "<D:getcontentlength>12abc</D:getcontentlength>"
                           "<D:getlastmodified>yesterday</D:getlastmodified>"
                           "</D:prop><D:status>HTTP/1.1 200 OK</D:status></D:propstat>"
                           "</D:response>")
            << QStringList({bare("f")});
        QTest::newRow("entities, cdata, comment")
            << multistatus("<D:response><D:href>/dav/a&amp;b&#x20;c&#233;</D:href><D:propstat>"
                           "<D:prop><D:getcontenttype><![CDATA[text/<x>]]></D:getcontenttype>"
                           "<D:getcontentlength>1<!-- c -->2</D:getcontentlength>"
                           "</D:prop><D:status>HTTP/1.1 200 OK</D:status></D:propstat>"
                           "</D:response>")
            << QStringList(
                   {QStringLiteral("F|a&b c\u00e9|a&b c\u00e9|12|") + kNoDate + "|text/<x>"});
        QTest::newRow("default namespace")
            << QByteArray("<multistatus xmlns=\"DAV:\"><response><href>/dav/d/</href><propstat>"
                          "<prop><resourcetype><collection/></resourcetype></prop>"
                          "<status>HTTP/1.1 200 OK</status></propstat></response></multistatus>")
            << QStringList({"D|d|d|0|" + kNoDate + "|"});
        QTest::newRow("doctype, comments, pi")
            << QByteArray("\xEF\xBB\xBF<?xml version=\"1.0\"?>\n<!DOCTYPE x [ <!ELEMENT x ANY> ]>"
                          "<!-- c --><?pi x?><D:multistatus xmlns:D=\"DAV:\"><?pi?><D:response>"
                          "<D:href>/dav/f</D:href></D:response></D:multistatus>\n<!-- end -->\n")
            << QStringList({bare("f")});
        QTest::newRow("prefix rebound inside")
            << QByteArray("<a:multistatus xmlns:a=\"DAV:\"><a:response xmlns:a=\"urn:x\">"
                          "<a:href>/dav/no</a:href></a:response><a:response><a:href>/dav/yes"
                          "</a:href></a:response></a:multistatus>")
            << QStringList({bare("yes")});
        QTest::newRow("attributes")
            << QByteArray("<D:multistatus xmlns:D='DAV:' xml:lang=\"en\"><D:response x = 'a&lt;b' "
                          "y=\"\"><D:href>/dav/f</D:href></D:response></D:multistatus>")
            << QStringList({bare("f")});
        QTest::newRow("latin-1")
            << QByteArray("<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><D:multistatus "
                          "xmlns:D=\"DAV:\"><D:response><D:href>/dav/caf\xe9</D:href></D:response>"
                          "</D:multistatus>")
            << QStringList({bare(QStringLiteral("caf\u00e9"))});
        QTest::newRow("utf-8") << multistatus(
                                      "<D:response><D:href>/dav/caf\xc3\xa9</D:href></D:response>")
                               << QStringList({bare(QStringLiteral("caf\u00e9"))});

        const auto fails = [](const char* tag, const QByteArray& xml,
                              const QString& error = QStringLiteral("error")) {
            QTest::newRow(tag) << xml << QStringList({error});
        };
        fails("other root", "<D:propfind xmlns:D=\"DAV:\"/>", kNoMultistatus);
        fails("root outside DAV:", "<multistatus><response/></multistatus>", kNoMultistatus);
        fails("html page", "<html><body>Error</body></html>", kNoMultistatus);
        fails("empty", QByteArray());
        fails("blanks", " \n ");
        fails("not xml", "Internal Server Error");
        fails("broken after entries",
              multistatus("<D:response><D:href>/dav/a</D:href></D:response><D:response>")
                  .replace("</D:multistatus>", ""));
        fails("wrong root, broken later", "<D:other xmlns:D=\"DAV:\"><a></b></D:other>");
        fails("undeclared prefix", "<D:multistatus xmlns:D=\"DAV:\"><x:response/></D:multistatus>");
        fails("prefix out of scope",
              "<D:multistatus xmlns:D=\"DAV:\"><D:response xmlns:p=\"DAV:\"/><p:response/>"
              "</D:multistatus>");
        fails("undeclared attribute prefix", "<D:multistatus xmlns:D=\"DAV:\" q:x=\"1\"/>");
        fails("tag mismatch",
              "<D:multistatus xmlns:D=\"DAV:\"><D:response></D:href></D:multistatus>");
        fails("unknown entity",
              multistatus("<D:response><D:href>/dav/&nbsp;</D:href></D:response>"));
        fails("bad char ref", multistatus("<D:response><D:href>/dav/&#0;</D:href></D:response>"));
        fails("two roots", "<D:multistatus xmlns:D=\"DAV:\"/><D:x xmlns:D=\"DAV:\"/>");
        fails("text after root", multistatus("") + "junk");
        fails("text before root", "junk<D:multistatus xmlns:D=\"DAV:\"/>");
        fails("unterminated comment", multistatus("<!-- x"));
        fails("lt in attribute", "<D:multistatus xmlns:D=\"a<b\"/>");
        fails("duplicate attribute", "<D:multistatus xmlns:D=\"DAV:\" a=\"1\" a=\"2\"/>");
        fails("unquoted attribute", "<D:multistatus xmlns:D=DAV:/>");
        fails("cut inside a tag", "<D:multistatus xmlns:D=\"DAV:\"><D:resp");
    }
    void listings()
    {
        QFETCH(QByteArray, xml);
        QFETCH(QStringList, expected);
        for (const auto reader : {DavListingParser::Reader::Fast, DavListingParser::Reader::Qt}) {
            DavListingParser p(kOrigin, kBaseLength, dates);
            const bool ok = p.Parse(xml, -1.0f, reader);
            QCOMPARE(p.error().isEmpty(), ok);
            QStringList got;
            for (const DirEntry& e : p.entries())
                got << row(e);
            if (!ok) {
                QVERIFY(got.isEmpty());
                got << (p.error() == kNoMultistatus ? kNoMultistatus : QStringLiteral("error"));
            }
            QCOMPARE(got, expected);
        }
    }
};

QTEST_GUILESS_MAIN(TestDavListing)
#include "tst_davlisting.moc"