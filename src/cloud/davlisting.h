#pragma once

// WebDAV directory listing and HTTP dates: what ThinDavApi does with a
// PROPFIND answer. Qt Core only, so tests and benchmarks need no window.

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QString>
#include <QStringList>
#include <QVariant>

// The body GetDir sends with PROPFIND, byte for byte.
QByteArray DavPropfindBody();

// The zero date of a directory entry that has no usable "getlastmodified".
QDateTime DavZeroDate();

// One listed resource. The fields keep the order of the six-field record
// (field(0) .. field(5)) that callers index.
struct DirEntry {
    bool isCollection = false;              // 0: "resourcetype" has children in a good propstat
    QString name;                           // 1: last segment of the relative path
    QString relativePath;                   // 2: href less origin, base path and trailing "/"
    double length = 0;                      // 3: "getcontentlength"
    QDateTime lastModified = DavZeroDate(); // 4: "getlastmodified", in local time
    QString contentType;                    // 5: "getcontenttype"

    QVariant field(int index) const;
};

// HTTP dates ("Tue, 1 Jan 1980 00:00:00 GMT") to local date and time.
class DavDateParser
{
public:
    DavDateParser();

    // The machine's current distance from UTC in hours, positive west of
    // UTC, as the platform reports it now (daylight time included).
    static float LocalBias();

    // The same instant as the wall clock of this machine at its present
    // offset from UTC (the local bias), as an offset-from-UTC date and time.
    // An invalid QDateTime when the text is not a date.
    QDateTime Parse(const QString& text, float localBias) const;
    QDateTime Parse(const QString& text) const { return Parse(text, LocalBias()); }

    // Hours east of UTC for a zone text (a name of the table or +hhmm / -hhmm).
    double ZoneOffset(const QString& zone) const;

    const QStringList& ZoneNames() const { return m_zoneNames; }
    const QStringList& ZoneOffsets() const { return m_zoneOffsets; }

    static const char* const kZoneNames;
    static const char* const kZoneOffsets;

private:
    QStringList m_zoneNames;
    QStringList m_zoneOffsets;
    QList<double> m_offsetValues;
};

// The 207 multistatus parser.
class DavListingParser
{
public:
    // baseUrl always ends in "/"; origin is its scheme and host part.
    DavListingParser(const QString& origin, qsizetype baseLength, const DavDateParser& dates)
        : m_origin(origin), m_baseLength(baseLength), m_dates(dates)
    {
    }

    // The small reader for UTF-8, or Qt's (other encodings; cross-checks).
    enum class Reader { Fast, Qt };

    // True with the entries in document order; false with the reason in error().
    bool Parse(const QByteArray& xml, float localBias, Reader reader = Reader::Fast);
    bool Parse(const QByteArray& xml) { return Parse(xml, DavDateParser::LocalBias()); }

    const QList<DirEntry>& entries() const { return m_entries; }
    QList<DirEntry> takeEntries() { return std::move(m_entries); }
    const QString& error() const { return m_error; }

    // Fields 2 and 1 from an href.
    void ApplyHref(const QString& href, DirEntry& entry) const;

    // Once set, an href outside this base URL gives an entry without name and path, and is
    // kept in outside(): a name of another place would be fetched from this share.
    void setBaseUrl(const QString& baseUrl) { m_base = baseUrl; }
    const QStringList& outside() const { return m_outside; }

private:
    QString m_origin;
    qsizetype m_baseLength;
    const DavDateParser& m_dates;
    QList<DirEntry> m_entries;
    QString m_error;
    QString m_base;
    mutable QStringList m_outside;
};

// A name of a listing as a name: percent escapes decoded as UTF-8 (servers
// differ in what they escape and in which case).
QString DavDecodedName(const QString& name);

// The origin (scheme and host) of a base URL that ends in "/".
QString DavOrigin(const QString& baseUrl);
