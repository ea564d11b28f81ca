#pragma once

// A small pull parser for UTF-8 XML with namespaces, enough for WebDAV
// multistatus answers and several times faster than QXmlStreamReader on a
// large listing. It checks well-formedness (tags, attributes, entities,
// namespace prefixes) but reads no DTD. Its calls mirror QXmlStreamReader's.

#include <QByteArray>
#include <QByteArrayView>
#include <QHash>
#include <QList>
#include <QString>
#include <QXmlStreamReader>

class DavXmlReader
{
public:
    using TokenType = QXmlStreamReader::TokenType;

    explicit DavXmlReader(const QByteArray& data);

    // True when the text is UTF-8 (or ASCII) by its BOM and declaration.
    static bool IsUtf8(const QByteArray& data);

    TokenType readNext();
    TokenType tokenType() const { return m_token; }
    bool atEnd() const { return m_atEnd; }
    bool hasError() const { return !m_error.isEmpty(); }
    const QString& errorString() const { return m_error; }

    // The current element's local name and namespace.
    QByteArrayView name() const { return m_name; }
    QByteArrayView namespaceUri() const { return m_uri; }
    // Characters made of blanks only.
    bool isWhitespace() const;

    bool readNextStartElement();
    void skipCurrentElement();
    // All text inside the current element, child elements included.
    QString readElementText(
        QXmlStreamReader::ReadElementTextBehaviour = QXmlStreamReader::IncludeChildElements);

private:
    struct Binding {
        QByteArrayView prefix;
        QByteArrayView uri;
        qsizetype shadowed; // the binding of the same prefix it hides, or -1
    };
    struct Open {
        QByteArrayView qname;
        qsizetype bindings; // size of m_bindings before this element
    };

    TokenType fail(const char* reason);
    TokenType startTag();
    TokenType endTag();
    TokenType text();
    bool skipDoctype();
    bool checkEntities(const char* from, const char* to);
    bool attributeValue(QByteArrayView& value);
    QByteArrayView readName();
    QByteArrayView lookup(QByteArrayView prefix, bool& found) const;
    void bind(QByteArrayView prefix, QByteArrayView uri);
    void unbindTo(qsizetype count);
    void appendDecoded(QByteArray& out, const char* from, const char* to) const;

    QByteArray m_data;
    const char* m_p = nullptr;
    const char* m_end = nullptr;
    TokenType m_token = QXmlStreamReader::NoToken;
    bool m_atEnd = false;
    bool m_rootSeen = false;
    bool m_pendingEnd = false;
    QString m_error;
    QByteArrayView m_name;
    QByteArrayView m_uri;
    const char* m_textFrom = nullptr;
    const char* m_textTo = nullptr;
    bool m_textRaw = false; // CDATA: no entities
    QList<Open> m_open;
    QList<Binding> m_bindings;
    static constexpr qsizetype kScanned = 8;  // up to this many, a scan beats a hash look-up
    QHash<QByteArrayView, qsizetype> m_scope; // prefix: its innermost binding
    QList<QByteArray> m_decodedValues;        // attribute values that held entities
};
