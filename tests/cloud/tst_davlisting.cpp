// Listing and date parsing under TZ=CET-1; listings in data/listings.txt (Apache's and made up).
#include "cloud/davlisting.h"
#include "testsupport.h"

namespace
{
const QString kBase = QStringLiteral("http://127.0.0.1:30608/dav/");
const QString kNoMultistatus = QStringLiteral("no \"multistatus\" found");

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
} // namespace

class TestDavListing : public QObject
{
    Q_OBJECT
    DavDateParser dates;

private slots:
    void initTestCase() { QCOMPARE(DavDateParser::LocalBias(), -1.0f); }

    void origin()
    {
        QCOMPARE(DavOrigin(QStringLiteral("http://h:8080/dav/")), QStringLiteral("http://h:8080"));
        QCOMPARE(DavOrigin(QStringLiteral("https://a.b/x/y/")), QStringLiteral("https://a.b"));
        QCOMPARE(DavOrigin(QStringLiteral("http://h/")), QStringLiteral("http://h"));
        // Names compared by the control: escapes of either case decoded as UTF-8.
        QCOMPARE(DavDecodedName("printer%40example.org j%c3%b6rg%C3%B6"),
                 QStringLiteral("printer@example.org j\u00f6rg\u00f6"));
    }

    void httpDates_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("utc"); // empty: not a date
        // Zone names (the program's picks where a name is ambiguous) and numbers.
        const QDateTime noon(QDate(1980, 1, 1), QTime(12, 0), Qt::UTC);
        for (const auto& [zone, hours] : std::initializer_list<std::pair<const char*, double>>{
                 {"Z", 0},       {"GMT", 0},      {"UTC", 0},    {"A", 1},       {"ACDT", 10.5},
                 {"ACST", 9.5},  {"AKDT", -8},    {"CEST", 2},   {"CET", 1},     {"EST", -5},
                 {"HAT", -2.5},  {"HNT", -3.5},   {"IST", 1},    {"M", 12},      {"MESZ", 2},
                 {"N", -1},      {"NDT", -2.5},   {"NFT", 11.5}, {"PST", -8},    {"WDT", 9},
                 {"WEST", 1},    {"WST", 8},      {"X", -11},    {"Y", -12},     {"YST", 0},
                 {"+0530", 5.5}, {"-0230", -2.5}, {"+0000", 0},  {"-1100", -11}, {"0100", 0}})
            QTest::addRow("zone %s", zone) << "Tue, 1 Jan 1980 12:00:00 " + QString(zone)
                                           << wall(noon.addSecs(qint64(-hours * 3600)));
        const auto add = [](const char* tag, const char* text, const char* utc) {
            QTest::newRow(tag) << QString::fromUtf8(text) << QString::fromUtf8(utc);
        };
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
    void httpDates()
    {
        QFETCH(QString, text);
        QFETCH(QString, utc);
        const QDateTime atZero = dates.Parse(text, 0.0f), here = dates.Parse(text);
        QCOMPARE(wall(atZero), utc);
        // Here (UTC+1) the same instant, shown an hour later.
        QCOMPARE(here, atZero);
        QCOMPARE(wall(here), wall(atZero.addSecs(3600)));
    }

    // The cases of data/listings.txt (see there): both readers give the same.
    void listings_data()
    {
        QTest::addColumn<QByteArray>("xml");
        QTest::addColumn<QStringList>("expected");
        const QStringList cases =
            QString::fromUtf8(readFile(CLOUD_TEST_DATA "/listings.txt")).split("\n== ");
        QVERIFY(cases.size() > 1);
        for (const QString& c : cases.mid(1)) {
            const qsizetype eol = c.indexOf(u'\n'), end = c.indexOf("\n--\n");
            const QString tag = c.left(eol);
            QVERIFY2(eol > 0 && end >= eol, qPrintable(tag));
            const QByteArray doc = c.left(end).mid(eol + 1).toUtf8();
            QTest::newRow(qPrintable(tag.section(" < ", 0, 0)))
                << (tag.contains(" < ") ? readFile(CLOUD_TEST_DATA "/" + tag.section(" < ", 1))
                                        : QByteArray::fromPercentEncoding(doc, '\\'))
                << c.mid(end + 4).split(u'\n', Qt::SkipEmptyParts);
        }
    }
    void listings()
    {
        QFETCH(QByteArray, xml);
        QFETCH(QStringList, expected);
        for (const auto reader : {DavListingParser::Reader::Fast, DavListingParser::Reader::Qt}) {
            DavListingParser p(DavOrigin(kBase), kBase.size(), dates);
            p.setBaseUrl(kBase);
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
