#include "cloud/davxmlreader.h"

#include <QSet>

#include <algorithm>
#include <cstring>

namespace
{
inline bool isBlank(char c)
{
    return c == ' ' || c == '\n' || c == '\r' || c == '\t';
}
inline bool isNameStart(unsigned char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || c == ':' || c >= 0x80;
}
inline bool isNameChar(unsigned char c)
{
    return isNameStart(c) || (c >= '0' && c <= '9') || c == '-' || c == '.';
}
inline bool startsWith(const char* p, const char* end, const char* literal)
{
    const size_t n = std::strlen(literal);
    return size_t(end - p) >= n && std::memcmp(p, literal, n) == 0;
}
const char* find(const char* p, const char* end, const char* literal)
{
    const size_t n = std::strlen(literal);
    while (p < end) {
        p = static_cast<const char*>(std::memchr(p, literal[0], size_t(end - p)));
        if (!p || size_t(end - p) < n)
            return nullptr;
        if (std::memcmp(p, literal, n) == 0)
            return p;
        ++p;
    }
    return nullptr;
}
const QByteArrayView kXmlPrefix("xml");
const QByteArrayView kXmlUri("http://www.w3.org/XML/1998/namespace");

// The code point of a character reference body ("#65", "#x41"), or -1.
long charRef(const char* from, const char* to)
{
    if (to - from < 2 || *from != '#')
        return -1;
    ++from;
    int base = 10;
    if (*from == 'x') {
        base = 16;
        ++from;
    }
    if (from == to || to - from > 8)
        return -1;
    long value = 0;
    for (; from < to; ++from) {
        const char c = *from;
        int d;
        if (c >= '0' && c <= '9')
            d = c - '0';
        else if (base == 16 && c >= 'a' && c <= 'f')
            d = c - 'a' + 10;
        else if (base == 16 && c >= 'A' && c <= 'F')
            d = c - 'A' + 10;
        else
            return -1;
        value = value * base + d;
    }
    if (value == 0 || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF))
        return -1;
    return value;
}

// The replacement of a predefined entity name, or 0.
char predefined(QByteArrayView name)
{
    if (name == "lt")
        return '<';
    if (name == "gt")
        return '>';
    if (name == "amp")
        return '&';
    if (name == "apos")
        return '\'';
    if (name == "quot")
        return '"';
    return 0;
}
} // namespace

DavXmlReader::DavXmlReader(const QByteArray& data) : m_data(data)
{
    m_p = m_data.constData();
    m_end = m_p + m_data.size();
    if (startsWith(m_p, m_end, "\xEF\xBB\xBF"))
        m_p += 3;
    m_open.reserve(16);
    m_bindings.reserve(16);
}

bool DavXmlReader::IsUtf8(const QByteArray& data)
{
    if (data.startsWith("\xEF\xBB\xBF"))
        return true;
    if (data.startsWith("\xFF\xFE") || data.startsWith("\xFE\xFF") || data.startsWith('\0') ||
        (data.size() > 1 && data.at(1) == '\0'))
        return false;
    if (!data.startsWith("<?xml"))
        return true;
    const qsizetype end = data.indexOf("?>");
    const QByteArray decl = data.left(end < 0 ? 0 : end).toLower();
    const qsizetype at = decl.indexOf("encoding");
    if (at < 0)
        return true;
    QByteArray value = decl.mid(at + 8);
    value = value.mid(value.indexOf('=') + 1).trimmed();
    if (value.isEmpty())
        return true;
    const char quote = value.at(0);
    value = value.mid(1, value.indexOf(quote, 1) - 1).trimmed();
    return value == "utf-8" || value == "utf8" || value == "us-ascii" || value == "ascii";
}

QXmlStreamReader::TokenType DavXmlReader::fail(const char* reason)
{
    if (m_error.isEmpty()) {
        const char* at = std::min(m_p, m_end);
        qsizetype line = 1;
        const char* lineStart = m_data.constData();
        for (const char* c = m_data.constData(); c < at; ++c)
            if (*c == '\n') {
                ++line;
                lineStart = c + 1;
            }
        m_error = QStringLiteral("%1 (line %2, column %3)")
                      .arg(QLatin1StringView(reason))
                      .arg(line)
                      .arg(at - lineStart + 1);
    }
    m_atEnd = true;
    m_token = QXmlStreamReader::Invalid;
    return m_token;
}

bool DavXmlReader::isWhitespace() const
{
    if (m_token != QXmlStreamReader::Characters)
        return false;
    for (const char* c = m_textFrom; c < m_textTo; ++c)
        if (!isBlank(*c))
            return false;
    return true;
}

QByteArrayView DavXmlReader::readName()
{
    const char* start = m_p;
    if (m_p >= m_end || !isNameStart(static_cast<unsigned char>(*m_p)))
        return {};
    ++m_p;
    while (m_p < m_end && isNameChar(static_cast<unsigned char>(*m_p)))
        ++m_p;
    return QByteArrayView(start, m_p - start);
}

QByteArrayView DavXmlReader::lookup(QByteArrayView prefix, bool& found) const
{
    qsizetype at = -1;
    if (m_bindings.size() > kScanned)
        at = m_scope.value(prefix, -1);
    else
        for (qsizetype i = m_bindings.size() - 1; i >= 0 && at < 0; --i)
            if (m_bindings[i].prefix == prefix)
                at = i;
    if (at >= 0) {
        found = true;
        return m_bindings[at].uri;
    }
    if (prefix == kXmlPrefix) {
        found = true;
        return kXmlUri;
    }
    found = prefix.isEmpty(); // no default namespace: none
    return {};
}

void DavXmlReader::bind(QByteArrayView prefix, QByteArrayView uri)
{
    m_bindings.append({prefix, uri, -1});
    // Indexed only while there are many: for a prefix or two a scan is quicker than hashing.
    const qsizetype size = m_bindings.size();
    if (size <= kScanned)
        return;
    // Crossing the line indexes all in scope; after that, each new one.
    for (qsizetype i = size == kScanned + 1 ? 0 : size - 1; i < size; ++i) {
        m_bindings[i].shadowed = m_scope.value(m_bindings[i].prefix, -1);
        m_scope.insert(m_bindings[i].prefix, i);
    }
}

void DavXmlReader::unbindTo(qsizetype count)
{
    if (count <= kScanned) {
        m_scope.clear();
        m_bindings.resize(count);
    }
    while (m_bindings.size() > count) {
        const Binding gone = m_bindings.takeLast();
        if (gone.shadowed < 0)
            m_scope.remove(gone.prefix);
        else
            m_scope.insert(gone.prefix, gone.shadowed);
    }
}

bool DavXmlReader::checkEntities(const char* from, const char* to)
{
    while (from < to) {
        const char* amp = static_cast<const char*>(std::memchr(from, '&', size_t(to - from)));
        if (!amp)
            return true;
        const char* semi = static_cast<const char*>(std::memchr(amp, ';', size_t(to - amp)));
        if (!semi) {
            m_p = amp;
            fail("Unterminated entity reference");
            return false;
        }
        const QByteArrayView body(amp + 1, semi - amp - 1);
        if (!predefined(body) && charRef(amp + 1, semi) < 0) {
            m_p = amp;
            fail("Undeclared entity or bad character reference");
            return false;
        }
        from = semi + 1;
    }
    return true;
}

void DavXmlReader::appendDecoded(QByteArray& out, const char* from, const char* to) const
{
    while (from < to) {
        const char* amp = static_cast<const char*>(std::memchr(from, '&', size_t(to - from)));
        if (!amp) {
            out.append(from, to - from);
            return;
        }
        out.append(from, amp - from);
        const char* semi = static_cast<const char*>(std::memchr(amp, ';', size_t(to - amp)));
        const QByteArrayView body(amp + 1, semi - amp - 1);
        if (const char c = predefined(body)) {
            out.append(c);
        } else {
            const char32_t code = char32_t(charRef(amp + 1, semi));
            out.append(QString::fromUcs4(&code, 1).toUtf8());
        }
        from = semi + 1;
    }
}

bool DavXmlReader::attributeValue(QByteArrayView& value)
{
    if (m_p >= m_end || (*m_p != '"' && *m_p != '\'')) {
        fail("Expected a quoted attribute value");
        return false;
    }
    const char quote = *m_p++;
    const char* start = m_p;
    const char* close = static_cast<const char*>(std::memchr(m_p, quote, size_t(m_end - m_p)));
    if (!close) {
        fail("Unterminated attribute value");
        return false;
    }
    if (std::memchr(start, '<', size_t(close - start))) {
        m_p = static_cast<const char*>(std::memchr(start, '<', size_t(close - start)));
        fail("'<' in an attribute value");
        return false;
    }
    if (!checkEntities(start, close))
        return false;
    m_p = close + 1;
    if (std::memchr(start, '&', size_t(close - start))) {
        QByteArray decoded;
        appendDecoded(decoded, start, close);
        m_decodedValues.append(decoded);
        value = QByteArrayView(m_decodedValues.last());
    } else {
        value = QByteArrayView(start, close - start);
    }
    return true;
}

QXmlStreamReader::TokenType DavXmlReader::startTag()
{
    if (m_rootSeen && m_open.isEmpty())
        return fail("Extra content at end of document");
    ++m_p; // '<'
    const QByteArrayView qname = readName();
    if (qname.isEmpty())
        return fail("Invalid element name");
    const qsizetype bindingsBefore = m_bindings.size();
    QList<QByteArrayView> attributeNames;
    QSet<QByteArrayView> seen; // once there are many, so that a huge tag stays linear
    bool empty = false;
    for (;;) {
        const char* beforeBlank = m_p;
        while (m_p < m_end && isBlank(*m_p))
            ++m_p;
        if (m_p >= m_end)
            return fail("Premature end of document");
        if (*m_p == '>') {
            ++m_p;
            break;
        }
        if (*m_p == '/') {
            if (m_p + 1 >= m_end || m_p[1] != '>')
                return fail("Expected '>' after '/'");
            m_p += 2;
            empty = true;
            break;
        }
        if (m_p == beforeBlank)
            return fail("Expected blank before an attribute");
        const QByteArrayView attr = readName();
        if (attr.isEmpty())
            return fail("Invalid attribute name");
        if (attributeNames.size() >= kScanned && seen.isEmpty())
            seen = QSet<QByteArrayView>(attributeNames.cbegin(), attributeNames.cend());
        if (seen.isEmpty() ? attributeNames.contains(attr) : seen.contains(attr))
            return fail("Duplicate attribute");
        if (!seen.isEmpty())
            seen.insert(attr);
        attributeNames.append(attr);
        while (m_p < m_end && isBlank(*m_p))
            ++m_p;
        if (m_p >= m_end || *m_p != '=')
            return fail("Expected '=' after an attribute name");
        ++m_p;
        while (m_p < m_end && isBlank(*m_p))
            ++m_p;
        QByteArrayView value;
        if (!attributeValue(value))
            return m_token;
        if (attr == "xmlns") {
            bind(QByteArrayView(), value);
        } else if (attr.startsWith("xmlns:")) {
            if (value.isEmpty())
                return fail("Empty namespace name for a prefix");
            bind(attr.sliced(6), value);
        }
    }
    // Prefixes of the element and of its attributes must be declared.
    for (QByteArrayView attr : attributeNames) {
        const qsizetype colon = attr.indexOf(':');
        if (colon > 0 && attr.first(colon) != "xmlns") {
            bool found = false;
            lookup(attr.first(colon), found);
            if (!found)
                return fail("Namespace prefix not declared");
        }
    }
    const qsizetype colon = qname.indexOf(':');
    const QByteArrayView prefix = colon < 0 ? QByteArrayView() : qname.first(colon);
    bool found = false;
    m_uri = lookup(prefix, found);
    if (!found)
        return fail("Namespace prefix not declared");
    m_name = colon < 0 ? qname : qname.sliced(colon + 1);
    m_open.append({qname, bindingsBefore});
    m_rootSeen = true;
    m_pendingEnd = empty;
    return m_token = QXmlStreamReader::StartElement;
}

QXmlStreamReader::TokenType DavXmlReader::endTag()
{
    m_p += 2; // "</"
    const QByteArrayView qname = readName();
    while (m_p < m_end && isBlank(*m_p))
        ++m_p;
    if (m_p >= m_end)
        return fail("Premature end of document");
    if (*m_p != '>')
        return fail("Expected '>' to end a closing tag");
    if (m_open.isEmpty() || m_open.last().qname != qname)
        return fail("Opening and ending tag mismatch");
    ++m_p;
    const Open closing = m_open.takeLast();
    const qsizetype colon = qname.indexOf(':');
    const QByteArrayView prefix = colon < 0 ? QByteArrayView() : qname.first(colon);
    bool found = false;
    m_uri = lookup(prefix, found);
    m_name = colon < 0 ? qname : qname.sliced(colon + 1);
    unbindTo(closing.bindings);
    return m_token = QXmlStreamReader::EndElement;
}

QXmlStreamReader::TokenType DavXmlReader::text()
{
    const char* start = m_p;
    const char* lt = static_cast<const char*>(std::memchr(m_p, '<', size_t(m_end - m_p)));
    const char* stop = lt ? lt : m_end;
    if (m_open.isEmpty()) {
        for (const char* c = start; c < stop; ++c)
            if (!isBlank(*c)) {
                m_p = c;
                return fail(m_rootSeen ? "Extra content at end of document" : "Start tag expected");
            }
        m_p = stop;
        return readNext();
    }
    if (!lt) {
        m_p = m_end;
        return fail("Premature end of document");
    }
    if (!checkEntities(start, stop))
        return m_token;
    if (find(start, stop, "]]>")) {
        m_p = find(start, stop, "]]>");
        return fail("']]>' in text");
    }
    m_p = stop;
    m_textFrom = start;
    m_textTo = stop;
    m_textRaw = false;
    return m_token = QXmlStreamReader::Characters;
}

bool DavXmlReader::skipDoctype()
{
    // <!DOCTYPE name ... [ internal subset ] >, read over, not used.
    int brackets = 0;
    char quote = 0;
    for (m_p += 9; m_p < m_end; ++m_p) {
        const char c = *m_p;
        if (quote) {
            if (c == quote)
                quote = 0;
        } else if (c == '"' || c == '\'') {
            quote = c;
        } else if (c == '[') {
            ++brackets;
        } else if (c == ']') {
            --brackets;
        } else if (c == '>' && brackets <= 0) {
            ++m_p;
            return true;
        }
    }
    fail("Unterminated DOCTYPE");
    return false;
}

QXmlStreamReader::TokenType DavXmlReader::readNext()
{
    if (m_atEnd) {
        if (!hasError())
            m_token = QXmlStreamReader::EndDocument;
        return m_token;
    }
    if (m_pendingEnd) {
        // The end of an empty element "<a/>".
        m_pendingEnd = false;
        const Open closing = m_open.takeLast();
        unbindTo(closing.bindings);
        return m_token = QXmlStreamReader::EndElement;
    }
    if (m_p >= m_end) {
        if (!m_rootSeen || !m_open.isEmpty())
            return fail("Premature end of document");
        m_atEnd = true;
        return m_token = QXmlStreamReader::EndDocument;
    }
    if (*m_p != '<')
        return text();
    if (startsWith(m_p, m_end, "<?")) {
        const char* close = find(m_p + 2, m_end, "?>");
        if (!close)
            return fail("Unterminated processing instruction");
        m_p = close + 2;
        return m_token = QXmlStreamReader::ProcessingInstruction;
    }
    if (startsWith(m_p, m_end, "<!--")) {
        const char* close = find(m_p + 4, m_end, "-->");
        if (!close)
            return fail("Unterminated comment");
        m_p = close + 3;
        return m_token = QXmlStreamReader::Comment;
    }
    if (startsWith(m_p, m_end, "<![CDATA[")) {
        if (m_open.isEmpty())
            return fail("CDATA outside the root element");
        const char* close = find(m_p + 9, m_end, "]]>");
        if (!close)
            return fail("Unterminated CDATA section");
        m_textFrom = m_p + 9;
        m_textTo = close;
        m_textRaw = true;
        m_p = close + 3;
        return m_token = QXmlStreamReader::Characters;
    }
    if (startsWith(m_p, m_end, "<!DOCTYPE")) {
        if (m_rootSeen)
            return fail("DOCTYPE after the root element");
        if (!skipDoctype())
            return m_token;
        return m_token = QXmlStreamReader::DTD;
    }
    if (startsWith(m_p, m_end, "</"))
        return endTag();
    return startTag();
}

bool DavXmlReader::readNextStartElement()
{
    while (readNext() != QXmlStreamReader::Invalid && !m_atEnd) {
        if (m_token == QXmlStreamReader::StartElement)
            return true;
        if (m_token == QXmlStreamReader::EndElement)
            return false;
    }
    return false;
}

void DavXmlReader::skipCurrentElement()
{
    int depth = 1;
    while (depth > 0 && readNext() != QXmlStreamReader::Invalid && !m_atEnd) {
        if (m_token == QXmlStreamReader::StartElement)
            ++depth;
        else if (m_token == QXmlStreamReader::EndElement)
            --depth;
    }
}

QString DavXmlReader::readElementText(QXmlStreamReader::ReadElementTextBehaviour)
{
    // Mostly one run of plain text: decoded without copying twice.
    QByteArray collected;
    const char* onlyFrom = nullptr;
    const char* onlyTo = nullptr;
    int runs = 0;
    int depth = 1;
    while (depth > 0 && readNext() != QXmlStreamReader::Invalid && !m_atEnd) {
        switch (m_token) {
        case QXmlStreamReader::StartElement:
            ++depth;
            break;
        case QXmlStreamReader::EndElement:
            --depth;
            break;
        case QXmlStreamReader::Characters:
            if (runs == 0 && !m_textRaw &&
                !std::memchr(m_textFrom, '&', size_t(m_textTo - m_textFrom))) {
                onlyFrom = m_textFrom;
                onlyTo = m_textTo;
            } else {
                if (onlyFrom) {
                    collected.append(onlyFrom, onlyTo - onlyFrom);
                    onlyFrom = nullptr;
                }
                if (m_textRaw)
                    collected.append(m_textFrom, m_textTo - m_textFrom);
                else
                    appendDecoded(collected, m_textFrom, m_textTo);
            }
            ++runs;
            break;
        default:
            break;
        }
    }
    if (onlyFrom)
        return QString::fromUtf8(onlyFrom, onlyTo - onlyFrom);
    return QString::fromUtf8(collected);
}
