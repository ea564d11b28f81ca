#include "language/joblanguage.h"

#include <array>

namespace
{
// A literal's bytes, NULs included.
template <qsizetype N> constexpr QByteArrayView bin(const char (&s)[N])
{
    return QByteArrayView(s, N - 1);
}

struct Magic {
    JobLanguage language;
    QByteArrayView head;   // the first bytes of the language's data
    QByteArrayView then{}; // must follow head at once (empty: nothing more)
};

// First match wins: longer, stricter heads before shorter ones.
constexpr std::array kMagic{
    Magic{JobLanguage::PostScript, bin("%!")},
    Magic{JobLanguage::PostScript, bin("\xC5\xD0\xD3\xC6")}, // DOS EPS binary header
    Magic{JobLanguage::Pdf, bin("%PDF-")},
    Magic{JobLanguage::PclXl, bin(") HP-PCL XL;")},
    Magic{JobLanguage::Pcl, bin("\x1B"
                                "E")},
    Magic{JobLanguage::Pcl, bin("\x1B"
                                "&")},
    Magic{JobLanguage::Pcl, bin("\x1B"
                                "*")},
    Magic{JobLanguage::Pcl, bin("\x1B"
                                "(")},
    Magic{JobLanguage::Pcl, bin("\x1B"
                                ")")},
    Magic{JobLanguage::Pcl, bin("\x1B"
                                "9")},
    Magic{JobLanguage::Pcl, bin("\x1B"
                                "%")}, // HP-GL/2 in PCL (the UEL is taken off before)
    Magic{JobLanguage::Jpeg, bin("\xFF\xD8\xFF")},
    Magic{JobLanguage::Png, bin("\x89PNG\r\n\x1A\n")},
    Magic{JobLanguage::Tiff, bin("II*\0")},
    Magic{JobLanguage::Tiff, bin("MM\0*")},
    Magic{JobLanguage::Tiff, bin("II+\0")}, // BigTIFF
    Magic{JobLanguage::PwgRaster, bin("RaS2"), bin("PwgRaster\0")},
    Magic{JobLanguage::Urf, bin("UNIRAST\0")},
    Magic{JobLanguage::Xps, bin("PK\x03\x04")}, // a ZIP: XPS only with its document sequence
};

// The names PJL's ENTER LANGUAGE gives, upper case.
struct PjlName {
    QByteArrayView name;
    JobLanguage language;
};
constexpr std::array kPjlNames{
    PjlName{"POSTSCRIPT", JobLanguage::PostScript},
    PjlName{"PDF", JobLanguage::Pdf},
    PjlName{"PCL", JobLanguage::Pcl},
    PjlName{"PCLXL", JobLanguage::PclXl},
    PjlName{"XPS", JobLanguage::Xps},
    PjlName{"JPEG", JobLanguage::Jpeg},
    PjlName{"PWG", JobLanguage::PwgRaster},
    PjlName{"URF", JobLanguage::Urf},
};

constexpr QByteArrayView kUel = bin("\x1B%-12345X");
// Where a ZIP's member names are looked for: its first entries and its central directory.
constexpr qsizetype kZipWindow = 64 * 1024;

// QByteArrayView::mid, which this Qt lacks: clamped, never past the end.
QByteArrayView mid(QByteArrayView v, qsizetype at, qsizetype n = -1)
{
    at = qBound<qsizetype>(0, at, v.size());
    const qsizetype left = v.size() - at;
    return v.sliced(at, n < 0 || n > left ? left : n);
}

bool blank(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\f' || c == '\x04' || c == '\0';
}

qsizetype skipBlanks(QByteArrayView b, qsizetype at)
{
    while (at < b.size() && blank(b[at]))
        ++at;
    return at;
}

QByteArray upper(QByteArrayView v)
{
    return v.toByteArray().toUpper();
}

// The value of KEY = value in a PJL line (quotes taken off), or null when the key is absent.
QByteArray pjlValue(QByteArrayView line, QByteArrayView key)
{
    const QByteArray up = upper(line);
    qsizetype at = up.indexOf(key);
    if (at < 0)
        return QByteArray();
    at += key.size();
    while (at < line.size() && (line[at] == ' ' || line[at] == '\t'))
        ++at;
    if (at >= line.size() || line[at] != '=')
        return QByteArray();
    ++at;
    while (at < line.size() && (line[at] == ' ' || line[at] == '\t'))
        ++at;
    QByteArrayView value = mid(line, at);
    if (value.startsWith('"')) {
        value = mid(value, 1);
        const qsizetype end = value.indexOf('"');
        if (end >= 0)
            value = value.first(end);
    } else {
        value = value.trimmed();
    }
    return value.isEmpty() ? QByteArray("") : value.toByteArray();
}

bool isXps(QByteArrayView zip)
{
    const auto has = [&](QByteArrayView window) {
        return window.indexOf(QByteArrayView("FixedDocumentSequence")) >= 0 ||
               window.indexOf(QByteArrayView("FixedDocSeq")) >= 0;
    };
    return has(zip.first(qMin(zip.size(), kZipWindow))) ||
           (zip.size() > kZipWindow && has(zip.last(kZipWindow)));
}

JobLanguage byMagic(QByteArrayView data)
{
    for (const Magic& m : kMagic) {
        if (!data.startsWith(m.head) || !mid(data, m.head.size()).startsWith(m.then))
            continue;
        if (m.language == JobLanguage::Xps && !isXps(data))
            return JobLanguage::Unknown;
        return m.language;
    }
    return JobLanguage::Unknown;
}
} // namespace

DetectedLanguage DetectJobLanguage(QByteArrayView bytes)
{
    DetectedLanguage found;
    qsizetype at = skipBlanks(bytes, 0);
    // UELs and PJL lines, in any number, before the data.
    for (;;) {
        if (mid(bytes, at).startsWith(kUel)) {
            at = skipBlanks(bytes, at + kUel.size());
            continue;
        }
        if (!upper(mid(bytes, at, 4)).startsWith("@PJL"))
            break;
        qsizetype end = bytes.indexOf('\n', at);
        if (end < 0)
            end = bytes.size();
        const QByteArrayView line = bytes.sliced(at, end - at);
        at = qMin(end + 1, bytes.size());
        const QByteArray command = upper(mid(line, 4).trimmed());
        if (command.startsWith("JOB")) {
            const QByteArray name = pjlValue(line, "NAME");
            if (!name.isNull() && found.pjlTitle.isNull())
                found.pjlTitle = name;
        } else if (command.startsWith("SET")) {
            const QByteArray name = pjlValue(line, "JOBNAME");
            if (!name.isNull() && found.pjlTitle.isNull())
                found.pjlTitle = name;
            const QByteArray user = pjlValue(line, "USERNAME");
            if (!user.isNull() && found.pjlUser.isNull())
                found.pjlUser = user;
        } else if (command.startsWith("ENTER")) {
            // The data begin right after this line.
            const QByteArray name = upper(pjlValue(line, "LANGUAGE").trimmed());
            found.byPjl = true;
            found.start = at;
            for (const PjlName& p : kPjlNames)
                if (name == p.name)
                    found.language = p.language;
            return found;
        }
        at = skipBlanks(bytes, at);
    }
    found.start = at;
    found.language = byMagic(mid(bytes, at));
    return found;
}

bool IsConverted(JobLanguage language)
{
    return language != JobLanguage::Unknown && !IsPrinterLanguage(language);
}

bool IsPrinterLanguage(JobLanguage language)
{
    return language == JobLanguage::Pcl || language == JobLanguage::PclXl;
}

QString LanguageName(JobLanguage language)
{
    switch (language) {
    case JobLanguage::PostScript:
        return QStringLiteral("PostScript");
    case JobLanguage::Pdf:
        return QStringLiteral("PDF");
    case JobLanguage::Pcl:
        return QStringLiteral("PCL 5");
    case JobLanguage::PclXl:
        return QStringLiteral("PCL XL");
    case JobLanguage::Xps:
        return QStringLiteral("XPS");
    case JobLanguage::Jpeg:
        return QStringLiteral("JPEG");
    case JobLanguage::Png:
        return QStringLiteral("PNG");
    case JobLanguage::Tiff:
        return QStringLiteral("TIFF");
    case JobLanguage::PwgRaster:
        return QStringLiteral("PWG raster");
    case JobLanguage::Urf:
        return QStringLiteral("Apple raster (URF)");
    case JobLanguage::Unknown:
        break;
    }
    return QStringLiteral("an unknown language");
}

QString KeptExtension(JobLanguage language)
{
    switch (language) {
    case JobLanguage::PostScript:
        return QStringLiteral(".ps");
    case JobLanguage::Pdf:
        return QStringLiteral(".pdf");
    case JobLanguage::Pcl:
        return QStringLiteral(".pcl");
    case JobLanguage::PclXl:
        return QStringLiteral(".pxl");
    case JobLanguage::Xps:
        return QStringLiteral(".xps");
    case JobLanguage::Jpeg:
        return QStringLiteral(".jpeg"); // not .jpg: that is a page made from a job
    case JobLanguage::Png:
        return QStringLiteral(".png");
    case JobLanguage::Tiff:
        return QStringLiteral(".tiff"); // not .tif: that is Ghostscript's output
    case JobLanguage::PwgRaster:
        return QStringLiteral(".pwg");
    case JobLanguage::Urf:
        return QStringLiteral(".urf");
    case JobLanguage::Unknown:
        break;
    }
    return QStringLiteral(".bin");
}
