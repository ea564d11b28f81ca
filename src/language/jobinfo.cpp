#include "language/jobinfo.h"

#include <QStringDecoder>
#include <array>

namespace
{
// Where comments and the Info dictionary are looked for: a job's head, a PDF's tail too.
constexpr qsizetype kWindow = 256 * 1024;

QByteArrayView part(QByteArrayView v, qsizetype at, qsizetype n)
{
    at = qBound<qsizetype>(0, at, v.size());
    return v.sliced(at, qMin(n, v.size() - at));
}

// PDFDocEncoding where it differs from Latin-1: 0x18-0x1F and 0x80-0xA0.
constexpr std::array<char16_t, 8> kPdfDoc18{0x02D8, 0x02C7, 0x02C6, 0x02D9,
                                            0x02DD, 0x02DB, 0x02DA, 0x02DC};
constexpr std::array<char16_t, 33> kPdfDoc80{
    0x2022, 0x2020, 0x2021, 0x2026, 0x2014, 0x2013, 0x0192, 0x2044, 0x2039, 0x203A, 0x2212,
    0x2030, 0x201E, 0x201C, 0x201D, 0x2018, 0x2019, 0x201A, 0x2122, 0xFB01, 0xFB02, 0x0141,
    0x0152, 0x0160, 0x0178, 0x017D, 0x0131, 0x0142, 0x0153, 0x0161, 0x017E, 0xFFFD, 0x20AC};

QString pdfDocEncoding(QByteArrayView b)
{
    QString s;
    for (const char ch : b) {
        const auto c = uchar(ch);
        s += c >= 0x18 && c <= 0x1F   ? QChar(kPdfDoc18[c - 0x18])
             : c >= 0x80 && c <= 0xA0 ? QChar(kPdfDoc80[c - 0x80])
                                      : QChar(c);
    }
    return s;
}

// The bytes of a PostScript/PDF literal string "(...)": escapes and nesting undone.
QByteArray unescapeLiteral(QByteArrayView b)
{
    QByteArray out;
    int depth = 0;
    for (qsizetype i = 1; i < b.size(); ++i) {
        char c = b[i];
        if (c == '(') {
            ++depth;
        } else if (c == ')') {
            if (depth-- == 0)
                break;
        } else if (c == '\\' && i + 1 < b.size()) {
            c = b[++i];
            static const QByteArrayView from = "nrtbf", to = "\n\r\t\b\f";
            if (const qsizetype k = from.indexOf(c); k >= 0) {
                c = to[k];
            } else if (c >= '0' && c <= '7') {
                int v = c - '0';
                for (int n = 1; n < 3 && i + 1 < b.size() && b[i + 1] >= '0' && b[i + 1] <= '7';
                     ++n)
                    v = v * 8 + (b[++i] - '0');
                c = char(v);
            } else if (c == '\n' || c == '\r') {
                continue; // a line broken inside the string
            }
        }
        out += c;
    }
    return out;
}

QByteArray unhex(QByteArrayView b)
{
    QByteArray digits;
    for (const char c : part(b, 1, b.size()))
        if (c == '>')
            break;
        else if (std::isxdigit(uchar(c)))
            digits += c;
    return QByteArray::fromHex(digits);
}

// The value after key up to the end of its line (DSC comments).
QByteArray dscValue(QByteArrayView head, QByteArrayView key)
{
    for (qsizetype at = 0; (at = head.indexOf(key, at)) >= 0; at += key.size()) {
        if (at > 0 && head[at - 1] != '\n' && head[at - 1] != '\r')
            continue;
        qsizetype end = at + key.size();
        while (end < head.size() && head[end] != '\n' && head[end] != '\r')
            ++end;
        return part(head, at + key.size(), end - at - key.size()).trimmed().toByteArray();
    }
    return QByteArray();
}

// The string after /key in a PDF: "(literal)" or "<hex>", as it stands.
QByteArray pdfValue(QByteArrayView pdf, QByteArrayView key)
{
    for (qsizetype at = 0; (at = pdf.indexOf(key, at)) >= 0; at += key.size()) {
        qsizetype v = at + key.size();
        while (v < pdf.size() && (pdf[v] == ' ' || pdf[v] == '\r' || pdf[v] == '\n'))
            ++v;
        if (v >= pdf.size() || (pdf[v] != '(' && pdf[v] != '<'))
            continue;
        const char close = pdf[v] == '(' ? ')' : '>';
        // To the closing character not escaped, bounded: a title is short.
        const QByteArrayView rest = part(pdf, v, 4096);
        qsizetype end = 1;
        for (int depth = 0; end < rest.size(); ++end) {
            if (rest[end] == '\\' && close == ')')
                ++end;
            else if (close == ')' && rest[end] == '(')
                ++depth;
            else if (rest[end] == close && depth-- == 0)
                break;
        }
        return rest.first(qMin(end + 1, rest.size())).toByteArray();
    }
    return QByteArray();
}
} // namespace

QString DecodeTitle(QByteArrayView raw, bool pdf)
{
    QByteArray b = raw.toByteArray();
    if (b.startsWith('('))
        b = unescapeLiteral(b);
    else if (pdf && b.startsWith('<'))
        b = unhex(b);
    QString text;
    if (b.startsWith("\xFE\xFF")) {
        for (qsizetype i = 2; i + 1 < b.size(); i += 2)
            text += QChar(char16_t(uchar(b[i]) << 8 | uchar(b[i + 1])));
    } else {
        QStringDecoder utf8(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
        text = utf8(b);
        if (utf8.hasError())
            text = pdf ? pdfDocEncoding(b) : QString::fromLatin1(b);
    }
    QString clean;
    for (const QChar c : text)
        if (c.category() != QChar::Other_Control && c.category() != QChar::Other_Format &&
            !c.isSurrogate())
            clean += c;
    return clean.simplified();
}

JobInfo ReadJobInfo(QByteArrayView bytes, const DetectedLanguage& detected)
{
    JobInfo info;
    info.title = DecodeTitle(detected.pjlTitle);
    info.user = DecodeTitle(detected.pjlUser);
    const QByteArrayView data = part(bytes, detected.start, bytes.size());
    const QByteArrayView head = part(data, 0, kWindow);
    const auto fill = [](QString& field, const QString& value) {
        if (field.isEmpty())
            field = value;
    };
    if (detected.language == JobLanguage::PostScript) {
        fill(info.title, DecodeTitle(dscValue(head, "%%Title:")));
        fill(info.user, DecodeTitle(dscValue(head, "%%For:")));
    } else if (detected.language == JobLanguage::Pdf) {
        // The Info dictionary: at the end of most PDFs, at the start of linearised ones.
        const QByteArrayView tail = part(data, data.size() - kWindow, kWindow);
        for (const QByteArrayView where : {tail, head}) {
            fill(info.title, DecodeTitle(pdfValue(where, "/Title"), true));
            fill(info.user, DecodeTitle(pdfValue(where, "/Author"), true));
        }
    }
    return info;
}
