#include "cloud/davlisting.h"

#include "cloud/davxmlreader.h"

#include <QUrl>
#include <QXmlStreamReader>
#include <cmath>

namespace
{
inline bool same(QStringView a, const char* b)
{
    return a == QLatin1StringView(b);
}
inline bool same(QByteArrayView a, const char* b)
{
    return a == QByteArrayView(b);
}

template <class Reader> bool isDav(const Reader& xml, const char* name)
{
    return same(xml.name(), name) && same(xml.namespaceUri(), "DAV:");
}

// Leading number of a text ("05" -> 5, "5x" -> 5, "x" -> 0).
int leadingNumber(QStringView text)
{
    int value = 0;
    qsizetype i = 0;
    while (i < text.size() && text[i] == u' ')
        ++i;
    bool negative = false;
    if (i < text.size() && (text[i] == u'+' || text[i] == u'-')) {
        negative = text[i] == u'-';
        ++i;
    }
    for (; i < text.size() && text[i].isDigit(); ++i)
        value = value * 10 + text[i].digitValue();
    return negative ? -value : value;
}

bool allDigits(QStringView text)
{
    if (text.isEmpty())
        return false;
    for (QChar c : text)
        if (c < u'0' || c > u'9')
            return false;
    return true;
}

int monthNumber(QStringView month)
{
    static const char* const names[] = {"JANUARY",   "FEBRUARY", "MARCH",    "APRIL",
                                        "MAY",       "JUNE",     "JULY",     "AUGUST",
                                        "SEPTEMBER", "OCTOBER",  "NOVEMBER", "DECEMBER"};
    if (allDigits(month))
        return month.toInt();
    if (month.size() < 3)
        return 0;
    for (int m = 0; m < 12; ++m) {
        const QLatin1StringView full(names[m]);
        // The abbreviation or the whole name.
        if ((month.size() == 3 && full.startsWith(month)) || month == full)
            return m + 1;
    }
    return 0;
}

// H:MM or H:MM:SS.
QTime clockTime(QStringView text)
{
    const auto fields = text.split(u':');
    if (fields.size() < 2 || fields.size() > 3)
        return {};
    int hms[3] = {0, 0, 0};
    for (qsizetype i = 0; i < fields.size(); ++i) {
        if (!allDigits(fields[i]) || fields[i].size() > 2)
            return {};
        hms[i] = fields[i].toInt();
    }
    return QTime(hms[0], hms[1], hms[2]);
}
} // namespace

QByteArray DavPropfindBody()
{
    return QByteArrayLiteral("<?xml version=\"1.0\"?><d:propfind xmlns:d=\"DAV:\"><d:prop>"
                             "<d:getlastmodified/><d:getcontentlength/>"
                             "<d:getcontenttype/><d:resourcetype/></d:prop></d:propfind>");
}

QDateTime DavZeroDate()
{
    // Built once: a local date costs a time-zone lookup.
    static const QDateTime zero(QDate(1899, 12, 30), QTime(0, 0), Qt::LocalTime);
    return zero;
}

QVariant DirEntry::field(int index) const
{
    switch (index) {
    case 0:
        return isCollection;
    case 1:
        return name;
    case 2:
        return relativePath;
    case 3:
        return length;
    case 4:
        return lastModified;
    case 5:
        return contentType;
    default:
        return {};
    }
}

const char* const DavDateParser::kZoneNames =
    "Z,GMT,UTC,A,ACDT,ACST,ADT,AEDT,AEST,AKDT,AKST,AST,AWDT,AWST,B,BST,C,CDT,CEDT,CEST,CET,CST,"
    "CXT,D,E,EDT,EEDT,EEST,EET,EST,F,G,H,HAA,HAC,HADT,HAE,HAP,HAR,HAST,HAT,HAY,HNA,HNC,HNE,HNP,"
    "HNR,HNT,HNY,HST,I,IST,K,L,M,MDT,MESZ,MEZ,MSD,MSK,MST,N,NDT,NFT,NST,O,P,PDT,PST,Q,R,S,T,U,V,"
    "W,WDT,WEDT,WEST,WET,WST,X,Y";
const char* const DavDateParser::kZoneOffsets =
    "0,0,0,1,10.5,9.5,-3,11,10,-8,-9,-4,9,8,2,1,3,-5,2,2,1,-6,7,4,5,-4,3,3,2,-5,6,7,8,-3,-5,-9,"
    "-4,-7,-6,-10,-2.5,-8,-4,-6,-5,-8,-7,-3.5,-9,-10,9,1,10,11,12,-6,2,1,4,3,-7,-1,-2.5,11.5,-3.5,"
    "-2,-3,-7,-8,-4,-5,-6,-7,-8,-9,-10,9,1,1,0,8,-11,-12";

DavDateParser::DavDateParser()
    : m_zoneNames(QString::fromLatin1(kZoneNames).split(u',')),
      m_zoneOffsets(QString::fromLatin1(kZoneOffsets).split(u','))
{
    m_offsetValues.reserve(m_zoneOffsets.size());
    for (const QString& o : m_zoneOffsets)
        m_offsetValues.append(o.toDouble());
}

float DavDateParser::LocalBias()
{
    // Minutes west of UTC now, as the platform's time-zone state gives it.
    const int biasMinutes = -QDateTime::currentDateTime().offsetFromUtc() / 60;
    return float(biasMinutes) / 60.0f;
}

double DavDateParser::ZoneOffset(const QString& zoneText) const
{
    const QString zone = zoneText.toUpper();
    if (zone.isEmpty())
        return 0;
    const QChar first = zone.front();
    if (first >= u'A' && first <= u'Z') {
        const qsizetype i = m_zoneNames.indexOf(zone);
        return i >= 0 && i < m_offsetValues.size() ? m_offsetValues[i] : 0;
    }
    if (first == u'+' || first == u'-') {
        const double hours = leadingNumber(QStringView(zone).mid(1, 2));
        const double minutes = leadingNumber(QStringView(zone).right(2));
        const double offset = hours + minutes / 60.0;
        return first == u'-' ? -offset : offset;
    }
    return 0;
}

QDateTime DavDateParser::Parse(const QString& text, float localBias) const
{
    // Drop the weekday and ", ".
    const QString rest = text.mid(5).toUpper();
    const QList<QStringView> parts = QStringView(rest).split(u' ');
    if (parts.size() < 4)
        return {};
    const QStringView day = parts[0], month = parts[1], year = parts[2];
    QStringView time = parts[3];
    QString zone;
    if (parts.size() >= 5) {
        zone = parts[4].toString();
    } else {
        // The zone is glued to the time ("00:00:00GMT"): split off what
        // follows the hours, minutes and seconds.
        qsizetype end = 0;
        while (end < time.size() && (time[end].isDigit() || time[end] == u':'))
            ++end;
        zone = time.mid(end).trimmed().toString();
        time = time.left(end);
        if (zone.isEmpty())
            zone = QStringLiteral("Z");
    }
    const double offset = ZoneOffset(zone);

    if (!allDigits(day) || !allDigits(year) || year.size() > 4)
        return {};
    int y = year.toInt();
    if (year.size() <= 2)
        y += y < 30 ? 2000 : 1900;
    const QDate date(y, monthNumber(month), day.toInt());
    const QTime clock = clockTime(time);
    if (!date.isValid() || !clock.isValid())
        return {};

    // Same instant in local time: shift by the zone and by the local bias.
    const qint64 shift = std::llround(-(offset + double(localBias)) * 3600.0);
    // The wall clock of that instant at the machine's present offset from UTC.
    QDateTime wall = QDateTime(date, clock, Qt::UTC).addSecs(shift);
    wall.setOffsetFromUtc(-int(std::lround(double(localBias) * 3600.0)));
    return wall;
}

QString DavDecodedName(const QString& name)
{
    return QUrl::fromPercentEncoding(name.toUtf8());
}

QString DavOrigin(const QString& baseUrl)
{
    // The first "/" at or after the ninth character ends the host.
    const qsizetype slash = baseUrl.indexOf(u'/', 8);
    return slash < 0 ? baseUrl : baseUrl.left(slash);
}

void DavListingParser::ApplyHref(const QString& href, DirEntry& entry) const
{
    QString full;
    if (href.startsWith(QLatin1StringView("http:"), Qt::CaseInsensitive) ||
        href.startsWith(QLatin1StringView("https:"), Qt::CaseInsensitive))
        full = href;
    else if (href.startsWith(u'/'))
        full = m_origin + href;
    else
        full = m_origin + u'/' + href;
    const QString below = full + u'/'; // the base itself may come without its final "/"
    if (!m_base.isEmpty() && !below.startsWith(m_base, Qt::CaseInsensitive) &&
        !DavDecodedName(below).startsWith(DavDecodedName(m_base), Qt::CaseInsensitive)) {
        m_outside.append(href);
        entry.relativePath.clear();
        entry.name.clear();
        return;
    }
    QString path = full.mid(m_baseLength);
    if (path.endsWith(u'/'))
        path.chop(1);
    entry.relativePath = path;
    entry.name = path.isEmpty() ? QString() : path.mid(path.lastIndexOf(u'/') + 1);
}

namespace
{
// The walk over a multistatus document, the same for both readers.
template <class Reader>
bool walkListing(Reader& xml, const DavListingParser& parser, const DavDateParser& dates,
                 float localBias, QList<DirEntry>& entries, QString& error)
{
    auto fail = [&](const QString& reason) {
        entries.clear();
        error = reason;
        return false;
    };
    // A document that is not well-formed fails with the parser's reason,
    // wherever the fault is; so the rest is read even after a wrong root.
    auto drainAndFail = [&] {
        while (!xml.atEnd())
            xml.readNext();
        return fail(xml.hasError() ? xml.errorString()
                                   : QStringLiteral("no \"multistatus\" found"));
    };
    if (!xml.readNextStartElement() || !isDav(xml, "multistatus"))
        return drainAndFail();

    while (xml.readNextStartElement()) {
        if (!isDav(xml, "response")) {
            xml.skipCurrentElement();
            continue;
        }
        DirEntry entry;
        bool pendingCollection = false;
        while (xml.readNextStartElement()) {
            if (isDav(xml, "href")) {
                parser.ApplyHref(
                    xml.readElementText(QXmlStreamReader::IncludeChildElements).trimmed(), entry);
                continue;
            }
            if (!isDav(xml, "propstat")) {
                xml.skipCurrentElement();
                continue;
            }
            bool good = false;
            while (xml.readNextStartElement()) {
                if (isDav(xml, "status")) {
                    good = xml.readElementText(QXmlStreamReader::IncludeChildElements)
                               .contains(QLatin1StringView(" 200 OK"));
                    continue;
                }
                if (!isDav(xml, "prop")) {
                    xml.skipCurrentElement();
                    continue;
                }
                while (xml.readNextStartElement()) {
                    if (!same(xml.namespaceUri(), "DAV:")) {
                        xml.skipCurrentElement();
                        continue;
                    }
                    if (same(xml.name(), "resourcetype")) {
                        // Any child but blanks makes it a collection.
                        int depth = 1;
                        while (depth > 0 && !xml.atEnd()) {
                            switch (xml.readNext()) {
                            case QXmlStreamReader::StartElement:
                                pendingCollection = true;
                                ++depth;
                                break;
                            case QXmlStreamReader::EndElement:
                                --depth;
                                break;
                            case QXmlStreamReader::Characters:
                                if (!xml.isWhitespace())
                                    pendingCollection = true;
                                break;
                            case QXmlStreamReader::Comment:
                            case QXmlStreamReader::ProcessingInstruction:
                            case QXmlStreamReader::EntityReference:
                                pendingCollection = true;
                                break;
                            default:
                                break;
                            }
                        }
                        continue;
                    }
                    const bool lastModified = same(xml.name(), "getlastmodified");
                    const bool length = same(xml.name(), "getcontentlength");
                    const bool type = same(xml.name(), "getcontenttype");
                    if (!lastModified && !length && !type) {
                        xml.skipCurrentElement();
                        continue;
                    }
                    const QString text =
                        xml.readElementText(QXmlStreamReader::IncludeChildElements).trimmed();
                    if (text.isEmpty())
                        continue;
                    if (lastModified) {
                        const QDateTime when = dates.Parse(text, localBias);
                        if (when.isValid())
                            entry.lastModified = when;
                    } else if (length) {
                        bool ok = false;
                        const double value = text.toDouble(&ok);
                        if (ok)
                            entry.length = value;
                    } else {
                        entry.contentType = text;
                    }
                }
            }
            if (good)
                entry.isCollection = pendingCollection;
        }
        entries.append(std::move(entry));
    }
    while (!xml.atEnd())
        xml.readNext();
    if (xml.hasError())
        return fail(xml.errorString());
    return true;
}
} // namespace

bool DavListingParser::Parse(const QByteArray& data, float localBias, Reader reader)
{
    m_entries.clear();
    m_error.clear();
    m_outside.clear();
    if (reader == Reader::Fast && DavXmlReader::IsUtf8(data)) {
        DavXmlReader xml(data);
        return walkListing(xml, *this, m_dates, localBias, m_entries, m_error);
    }
    // Other encodings, and the cross-check in tests.
    QXmlStreamReader xml(data);
    return walkListing(xml, *this, m_dates, localBias, m_entries, m_error);
}
