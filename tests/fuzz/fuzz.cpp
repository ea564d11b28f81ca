// One libFuzzer entry per parser, picked by FUZZ_<name>; abort() marks a broken promise.
#include "cloud/davlisting.h"
#include "cloud/thindavapi.h"
#include "common/runtimeerror.h"
#include "netscan/netviewparser.h"
#include "server/jobbuffer.h"
#include "tray/notifyicondata.h"
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char*>(data), qsizetype(size));
    const QString text = QString::fromUtf8(bytes);
    static const DavDateParser dates;
#if defined(FUZZ_listing) || defined(FUZZ_listing_qt)
    const QString base = QStringLiteral("http://127.0.0.1:30608/dav/");
    DavListingParser parser(DavOrigin(base), base.size(), dates);
    const bool ok =
        parser.Parse(bytes, 1.0f,
                     QByteArrayView(FUZZ_NAME) == "listing_qt" ? DavListingParser::Reader::Qt
                                                               : DavListingParser::Reader::Fast);
    if (ok != parser.error().isEmpty() || (!ok && !parser.entries().isEmpty()))
        abort();
#elif defined(FUZZ_http_date)
    if (dates.Parse(text, 1.0f).isValid() && dates.Parse(text, 1.0f).offsetFromUtc() != -3600)
        abort();
    dates.ZoneOffset(text);
#elif defined(FUZZ_resp_headers)
    if (BuildRespHeaders(text).Count() > text.count(QStringLiteral("\r\n")) + 1)
        abort();
#elif defined(FUZZ_net_view)
    NetViewNames view;
    try {
        view = ParseNetView(text);
    } catch (const RuntimeError&) { // a part cut before its name: raised on purpose
        return 0;
    }
    for (const QString& name : view.names)
        NetScanLine(TrimBlanks(name), view.nameWidth, QStringLiteral("10.0.0.1"));
#elif defined(FUZZ_tray_text)
    QByteArray field(size ? 2 * (data[0] % 300) : 0, 'x'); // even, as the record's
    QString wide(size > 1 ? qsizetype(size - 1) / 2 : 0, Qt::Uninitialized);
    memcpy(wide.data(), data + 1, size_t(wide.size()) * 2);
    const qsizetype fieldSize = field.size();
    StringToFixedBuffer(field, wide);
    if (field.size() != fieldSize ||
        (!wide.isEmpty() && fieldSize >= 2 && !field.endsWith(QByteArray(2, '\0'))) ||
        !(wide.isEmpty() || wide.startsWith(FixedBufferText(field))))
        abort();
#elif defined(FUZZ_job_buffer)
    JobBuffer buffer;
    QByteArray expected;
    for (size_t at = 0; at < size;) {
        const size_t n = std::min<size_t>(data[at] & 0x1F, size - at - 1),
                     times = 1u << (data[at] >> 5);
        for (size_t i = 0; i < times; ++i) {
            buffer.append(reinterpret_cast<const char*>(data + at + 1), qsizetype(n));
            expected.append(reinterpret_cast<const char*>(data + at + 1), qsizetype(n));
        }
        at += n + 1;
    }
    const bool blanksOnly = std::all_of(expected.cbegin(), expected.cend(),
                                        [](char c) { return strchr(" \t\r\n\f\v", c) && c; });
    if (buffer.view() != expected || buffer.holdsMoreThanBlanks() == blanksOnly)
        abort();
#endif
    return 0;
}
