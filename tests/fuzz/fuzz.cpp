// One libFuzzer entry per parser, picked by FUZZ_<name>; abort() marks a broken promise.
#include "cloud/thindavapi.h"
#include "common/runtimeerror.h"
#include "language/jobinfo.h"
#include "netscan/netviewparser.h"
#include "server/jobbuffer.h"
#include "tray/notifyicondata.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char*>(data), qsizetype(size));
    const QString text = QString::fromUtf8(bytes);
    static const DavDateParser dates;
#if defined(FUZZ_listing) || defined(FUZZ_listing_qt)
    DavListingParser parser(QStringLiteral("http://127.0.0.1:30608"), 27, dates); // "/dav/"
    const bool ok = parser.Parse(bytes, 1.0f, DavListingParser::Reader::READER);
    if (ok == parser.error().isEmpty() && (ok || parser.entries().isEmpty()))
        return 0;
#elif defined(FUZZ_http_date)
    dates.ZoneOffset(text);
    const QDateTime date = dates.Parse(text, 1.0f); // one hour west of UTC
    if (!date.isValid() || date.offsetFromUtc() == -3600)
        return 0;
#elif defined(FUZZ_resp_headers)
    if (BuildRespHeaders(text).Count() <= text.count(QStringLiteral("\r\n")) + 1)
        return 0;
#elif defined(FUZZ_net_view)
    NetViewNames view; // a part cut before its name raises an error on purpose: passed over
    ResumeNext([&] { view = ParseNetView(text); });
    for (const QString& name : view.names)
        NetScanLine(TrimBlanks(name), view.nameWidth, QStringLiteral("10.0.0.1"));
    return 0;
#elif defined(FUZZ_tray_text)
    QByteArray field(size ? 2 * (data[0] % 300) : 0, 'x'), before = field; // even, as the record's
    const QString wide = QString::fromUtf8(bytes.mid(1));
    StringToFixedBuffer(field, wide);
    if (wide.isEmpty() ? field == before
                       : field.size() == before.size() && wide.startsWith(FixedBufferText(field)) &&
                             (field.size() < 2 || field.endsWith(QByteArray(2, '\0'))))
        return 0;
#elif defined(FUZZ_job_buffer)
    JobBuffer buffer;
    QByteArray expected;
    for (qsizetype at = 0, n; at < bytes.size(); at += n + 1) { // a length byte and bytes, repeated
        n = qMin<qsizetype>(data[at] & 0x1F, bytes.size() - at - 1);
        const QByteArray chunk = bytes.mid(at + 1, n).repeated(1 << (data[at] >> 5));
        buffer.append(chunk);
        expected += chunk;
    }
    if (buffer.view() == expected && buffer.holdsMoreThanBlanks() != expected.trimmed().isEmpty())
        return 0;
#elif defined(FUZZ_job_language)
    // The data start inside the job; told by its own bytes, they tell the same from there.
    const DetectedLanguage found = DetectJobLanguage(bytes);
    const JobInfo info = ReadJobInfo(bytes, found); // titles come out without control characters
    const auto clean = [](const QString& s) {
        return std::none_of(s.begin(), s.end(), [](QChar c) { return c.unicode() < 0x20; });
    };
    if (clean(info.title) && clean(info.user) && found.start >= 0 && found.start <= bytes.size() &&
        (found.byPjl || DetectJobLanguage(bytes.mid(found.start)).language == found.language) &&
        !KeptExtension(found.language).isEmpty())
        return 0;
#endif
    abort();
}
