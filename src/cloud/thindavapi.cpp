#include "cloud/thindavapi.h"

#include "common/log.h"
#include "common/msgbox.h"
#include "common/runtimeerror.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QScopeGuard>
#include <QStringDecoder>
#include <QUrl>
#include <cctype>
#include <cstdint>
#include <cstring>

// ---- DavCollection ---------------------------------------------------------

qsizetype DavCollection::indexOf(const QString& key) const
{
    for (qsizetype i = 0; i < m_items.size(); ++i)
        if (m_items[i].first.compare(key, Qt::CaseInsensitive) == 0)
            return i;
    return -1;
}

QString DavCollection::Item(const QString& key) const
{
    const qsizetype i = indexOf(key);
    return i < 0 ? QString() : m_items[i].second;
}

QStringList DavCollection::Keys() const
{
    QStringList keys;
    for (const auto& pair : m_items)
        keys.append(pair.first);
    return keys;
}

bool DavCollection::Add(const QString& item, const QString& key)
{
    if (Contains(key))
        return false;
    m_items.append({key, item});
    return true;
}

void DavCollection::Remove(const QString& key)
{
    const qsizetype i = indexOf(key);
    if (i >= 0)
        m_items.removeAt(i);
}

DavCollection BuildRespHeaders(const QString& allHeaders)
{
    DavCollection headers;
    for (const QString& raw : allHeaders.split(QStringLiteral("\r\n"))) {
        const QString line = raw.trimmed();
        if (line.isEmpty())
            continue;
        const qsizetype colon = line.indexOf(u':');
        QString key, item;
        if (colon < 0) {
            key = line;
        } else {
            key = line.left(colon).trimmed();
            item = key + u':' + line.mid(colon + 1).trimmed();
        }
        if (!headers.Add(item, key)) {
            // A repeated header: joined to the first, then added again.
            const QString joined = headers.Item(key) + QStringLiteral(", ") + item;
            headers.Remove(key);
            headers.Add(joined, key);
        }
    }
    return headers;
}

// ---- ThinDavApi ------------------------------------------------------------

namespace
{
// A "Content-Length" that is not a number (or does not fit) reads as 0.
qint32 contentLength(const QNetworkReply* reply)
{
    bool ok = false;
    const qlonglong value = reply->rawHeader("Content-Length").trimmed().toLongLong(&ok);
    if (!ok || value < INT32_MIN || value > INT32_MAX)
        return 0;
    return qint32(value);
}

QString decodeText(const QByteArray& body, const QNetworkReply* reply)
{
    const QString type = reply->header(QNetworkRequest::ContentTypeHeader).toString();
    const qsizetype at = type.indexOf(QLatin1StringView("charset="), 0, Qt::CaseInsensitive);
    if (at >= 0) {
        QString charset = type.mid(at + 8).section(u';', 0, 0).trimmed();
        charset.remove(u'"');
        QStringDecoder decoder(charset.toLatin1().constData());
        if (decoder.isValid())
            return decoder.decode(body);
    }
    return QString::fromUtf8(body);
}
} // namespace

ThinDavApi::ThinDavApi(QObject* parent)
    : QObject(parent), m_http(new QNetworkAccessManager(this)),
      m_userAgent(QStringLiteral("ThinDavApi/") + QString::number(Version().toDouble()))
{
}

ThinDavApi::~ThinDavApi()
{
    dropReply();
}

qint64 ThinDavApi::ReceivedBytes() const
{
    return m_reply ? m_reply->bytesAvailable() : 0;
}

void ThinDavApi::setBaseUrl(const QString& url)
{
    m_baseUrl = url.endsWith(u'/') ? url : url + u'/';
    m_origin = DavOrigin(m_baseUrl);
    m_baseLength = m_baseUrl.size();
}

void ThinDavApi::setCaCertificates(const QList<QSslCertificate>& cas)
{
    m_ssl.reset();
    if (cas.isEmpty())
        return;
    m_ssl = QSslConfiguration::defaultConfiguration();
    m_ssl->addCaCertificates(cas);
}

QString ThinDavApi::NormalisePath(const QString& name)
{
    if (name.isEmpty())
        return QStringLiteral("/");
    QString path = name;
    if (path.startsWith(u'/'))
        path.remove(0, 1);
    if (path.endsWith(u'/'))
        path.chop(1);
    return path;
}

QByteArray ThinDavApi::WirePath(const QString& name)
{
    // As a browser sends an http path: "\\" is a level, an escape already made stays, and what
    // cannot stand in a request line (blanks, a lone "%", "?", "#", non-ASCII) is escaped.
    const QByteArray utf8 = name.toUtf8();
    QByteArray out;
    out.reserve(utf8.size());
    for (qsizetype i = 0; i < utf8.size(); ++i) {
        const char c = utf8[i];
        const bool escape = c == '%' && i + 2 < utf8.size() && isxdigit(uchar(utf8[i + 1])) &&
                            isxdigit(uchar(utf8[i + 2]));
        if (c == '\\')
            out += '/';
        else if (escape || (uchar(c) > 0x20 && uchar(c) < 0x7f && !strchr("%?#\"<>^`{|}", c)))
            out += c;
        else
            out += '%' + QByteArray::number(uchar(c), 16).toUpper().rightJustified(2, '0');
    }
    return out;
}

QString ThinDavApi::RequestUrl(const QString& name) const
{
    return QString::fromLatin1(url(NormalisePath(name)).toEncoded());
}

QUrl ThinDavApi::url(const QString& name) const
{
    // An empty level (a server id left empty) would make "//", which not every server merges.
    QByteArray path = WirePath(name);
    while (path.contains("//"))
        path.replace("//", "/");
    if (path.startsWith('/'))
        path.remove(0, 1);
    return QUrl::fromEncoded(WirePath(m_baseUrl).append(path), QUrl::StrictMode);
}

QString ThinDavApi::UploadMessage()
{
    return QStringLiteral("Print Uploaded to Cloud...\r\n"
                          "Press Button 'Get Cloud Data' in server program to print.");
}

void ThinDavApi::start(RequestCode code, const QVariant& tag)
{
    m_request = code;
    m_tag = tag;
    m_aborted = false;
}

void ThinDavApi::dropReply()
{
    // A new request replaces the pending one; its answer is never reported.
    if (QNetworkReply* reply = m_reply.data()) {
        m_reply = nullptr;
        reply->disconnect(this);
        reply->abort();
        reply->deleteLater();
    }
}

QNetworkRequest ThinDavApi::open(const QString& name)
{
    dropReply();
    QNetworkRequest request(url(name));
    m_readyState = 1;
    if (m_ssl)
        request.setSslConfiguration(*m_ssl);
    request.setRawHeader("User-Agent", m_userAgent.toUtf8());
    request.setRawHeader("If-Modified-Since", "Tue, 1 Jan 1980 00:00:00 GMT");
    request.setRawHeader("Cache-Control", "no-cache");
    request.setRawHeader("Pragma", "no-cache");
    return request;
}

void ThinDavApi::send(QNetworkRequest& request, const QByteArray& verb, const QByteArray& body,
                      bool hasBody)
{
    if (!User.isEmpty() || !PW.isEmpty())
        request.setRawHeader("Authorization", "Basic " + (User + u':' + PW).toUtf8().toBase64());
    QNetworkReply* reply = nullptr;
    if (verb == "HEAD")
        reply = m_http->head(request);
    else if (hasBody)
        reply = m_http->sendCustomRequest(request, verb, body);
    else
        reply = m_http->sendCustomRequest(request, verb);
    m_reply = reply;
    connect(reply, &QNetworkReply::metaDataChanged, this, Guarded([this, reply] {
                if (refuseLarge(reply))
                    return;
                if (reply == m_reply && m_readyState < 2)
                    m_readyState = 2;
                ReadyStateAsyncCallback();
            }));
    connect(reply, &QNetworkReply::readyRead, this, Guarded([this, reply] {
                if (refuseLarge(reply))
                    return;
                if (reply == m_reply && m_readyState < 3)
                    m_readyState = 3;
                ReadyStateAsyncCallback();
            }));
    if (m_request == rqGetFileBytes || m_request == rqGetFileText)
        connect(reply, &QNetworkReply::downloadProgress, this,
                [this, reply](qint64 received, qint64 total) {
                    if (reply == m_reply)
                        emit FileProgress(received, total);
                });
    connect(reply, &QNetworkReply::finished, this, Guarded([this, reply] {
                if (reply != m_reply) {
                    reply->deleteLater();
                    return;
                }
                m_readyState = 4;
                ReadyStateAsyncCallback();
            }));
}

bool ThinDavApi::refuseLarge(QNetworkReply* reply)
{
    const bool file = m_request == rqGetFileBytes || m_request == rqGetFileText;
    const qint64 cap = file ? kMaxFileBytes : kMaxReplyBytes;
    // A HEAD answer announces the length of a body it does not carry.
    const qint64 announced = m_request == rqGetFileLength
                                 ? 0
                                 : reply->header(QNetworkRequest::ContentLengthHeader).toLongLong();
    if (reply != m_reply || qMax(announced, reply->bytesAvailable()) <= cap)
        return false;
    const QString text = QStringLiteral("The reply is larger than %1 MB: not read").arg(cap >> 20);
    // Aborted once its signal has returned: Qt may still be reporting on it.
    m_reply = nullptr;
    reply->disconnect(this);
    QMetaObject::invokeMethod(
        reply, [reply] { reply->abort(), reply->deleteLater(); }, Qt::QueuedConnection);
    m_readyState = 4;
    m_status = -1;
    m_statusText = text;
    raiseComplete();
    return true;
}

// COPY and MOVE: the target travels in "Destination" below the base URL.
void ThinDavApi::sendTransfer(const QByteArray& method, const QString& fromName,
                              const QString& toName, bool overWrite, const QByteArray& depth)
{
    QNetworkRequest request = open(NormalisePath(fromName));
    request.setRawHeader("Destination", url(NormalisePath(toName)).toEncoded());
    request.setRawHeader("Overwrite", overWrite ? "T" : "F");
    request.setRawHeader("Depth", depth);
    send(request, method);
}

void ThinDavApi::Copy(const QString& DirOrFileFromName, const QString& DirOrFileToName,
                      bool OverWrite, bool RecurseDir, const QVariant& Tag)
{
    start(rqCopy, Tag);
    sendTransfer("COPY", DirOrFileFromName, DirOrFileToName, OverWrite,
                 RecurseDir ? "infinity" : "0");
}

void ThinDavApi::Delete(const QString& DirOrFileName, const QVariant& Tag)
{
    start(rqDelete, Tag);
    QNetworkRequest request = open(NormalisePath(DirOrFileName));
    send(request, "DELETE");
}

void ThinDavApi::GetDir(const QString& DirOrFileName, bool ChildInfo, const QVariant& Tag)
{
    start(rqGetDir, Tag);
    QNetworkRequest request = open(NormalisePath(DirOrFileName));
    request.setRawHeader("Content-Type", "text/xml");
    request.setRawHeader("Accept", "*/*");
    request.setRawHeader("Depth", ChildInfo ? "1" : "0");
    send(request, "PROPFIND", DavPropfindBody(), true);
}

void ThinDavApi::GetFileBytes(const QString& DirOrFileName, const QVariant& Tag)
{
    start(rqGetFileBytes, Tag);
    QNetworkRequest request = open(NormalisePath(DirOrFileName));
    send(request, "GET");
}

void ThinDavApi::GetFileLength(const QString& DirOrFileName, const QVariant& Tag)
{
    start(rqGetFileLength, Tag);
    QNetworkRequest request = open(NormalisePath(DirOrFileName));
    send(request, "HEAD");
}

void ThinDavApi::GetFileText(const QString& DirOrFileName, const QVariant& Tag)
{
    start(rqGetFileText, Tag);
    QNetworkRequest request = open(NormalisePath(DirOrFileName));
    send(request, "GET");
}

void ThinDavApi::GetOptions(const QVariant& Tag)
{
    start(rqGetOptions, Tag);
    // The base URL itself.
    QNetworkRequest request = open(QString());
    send(request, "OPTIONS");
}

void ThinDavApi::MakeDir(const QString& DirName, const QVariant& Tag)
{
    start(rqMakeDir, Tag);
    // With a final "/": nginx makes no collection without it.
    const QString path = NormalisePath(DirName);
    QNetworkRequest request = open(path.endsWith(u'/') ? path : path + u'/');
    send(request, "MKCOL");
}

void ThinDavApi::Move(const QString& DirOrFileOldName, const QString& DirOrFileNewName,
                      bool OverWrite, const QVariant& Tag)
{
    start(rqMove, Tag);
    sendTransfer("MOVE", DirOrFileOldName, DirOrFileNewName, OverWrite, "infinity");
}

void ThinDavApi::PutFileBytes(const QString& DirOrFileName, const QByteArray& FileBytes,
                              const QString& ContentType, const QVariant& Tag)
{
    start(rqPutFileBytes, Tag);
    QNetworkRequest request = open(NormalisePath(DirOrFileName));
    request.setRawHeader("Content-Type", ContentType.toUtf8());
    send(request, "PUT", FileBytes, true);
}

void ThinDavApi::PutFileText(const QString& DirOrFileName, const QString& FileText,
                             const QString& ContentType, const QVariant& Tag)
{
    start(rqPutFileText, Tag);
    QNetworkRequest request = open(NormalisePath(DirOrFileName));
    request.setRawHeader("Content-Type", ContentType.toUtf8());
    // One byte per character, so a job's bytes reach the share unchanged.
    send(request, "PUT", FileText.toLatin1(), true);
    // Shown whatever becomes of the upload, before any answer.
    MsgBox(UploadMessage());
}

void ThinDavApi::AbortRequest(const QVariant& Tag)
{
    m_tag = Tag;
    m_aborted = true;
    dropReply();
    m_readyState = 0;
    auto emptyTag = qScopeGuard([this] { m_tag = QVariant(); });
    emit Complete(m_request);
}

void ThinDavApi::sendFailed(int number, const QString& description)
{
    // No HTTP answer at all. OPTIONS and the two PUTs answer differently
    // on purpose, and the PUTs raise no Complete.
    switch (m_request) {
    case rqGetOptions:
        m_status = 400;
        m_statusText = QStringLiteral("Bad Request");
        raiseComplete();
        break;
    case rqPutFileBytes:
    case rqPutFileText:
        m_status = 405;
        m_statusText = QStringLiteral("Method Not Allowed");
        break;
    default:
        m_status = number;
        m_statusText = description;
        raiseComplete();
        break;
    }
}

void ThinDavApi::ReadyStateAsyncCallback()
{
    if (m_readyState != 4 || !m_reply)
        return;
    QNetworkReply* reply = m_reply.data();
    m_reply = nullptr;
    reply->deleteLater();

    const QVariant httpStatus = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    if (!httpStatus.isValid()) {
        QString reason = reply->errorString();
        // Nothing went out, not even the credentials.
        if (reply->error() == QNetworkReply::SslHandshakeFailedError)
            reason = QStringLiteral("Refused: the share's certificate is not trusted here (") +
                     reason + QStringLiteral("); nothing was sent");
        sendFailed(int(reply->error()), reason);
        return;
    }
    m_status = httpStatus.toInt();
    m_statusText = QString::fromUtf8(
        reply->attribute(QNetworkRequest::HttpReasonPhraseAttribute).toByteArray());

    const QByteArray body = reply->readAll();
    if (IsStatus2XX()) {
        switch (m_request) {
        case rqGetDir: {
            m_xml = decodeText(body, reply);
            DavListingParser parser(m_origin, m_baseLength, m_dates);
            parser.setBaseUrl(m_baseUrl);
            if (parser.Parse(body)) {
                m_dirEntries = parser.takeEntries();
                if (const QStringList& out = parser.outside(); !out.isEmpty())
                    Log::line(QStringLiteral("Left out of a listing: %1 resources outside the "
                                             "share %2, e.g. %3")
                                  .arg(out.size())
                                  .arg(m_baseUrl, out.first()));
            } else {
                m_parseError = parser.error();
                m_status = -1;
                m_statusText = m_parseError;
            }
            break;
        }
        case rqGetFileBytes:
            if (contentLength(reply) < 1)
                m_fileBytes.clear();
            else
                m_fileBytes = body;
            break;
        case rqGetFileLength:
            m_length = contentLength(reply);
            break;
        case rqGetFileText:
            // One character per byte whatever charset is declared: the job's bytes come back.
            m_fileText = QString::fromLatin1(body);
            break;
        default:
            break;
        }
    }
    if (m_request == rqGetOptions) {
        QString all;
        for (const auto& [name, value] : reply->rawHeaderPairs())
            all += QString::fromLatin1(name) + QStringLiteral(": ") + QString::fromLatin1(value) +
                   QStringLiteral("\r\n");
        m_respHeaders = BuildRespHeaders(all);
    }
    raiseComplete();
}

void ThinDavApi::raiseComplete()
{
    auto clear = qScopeGuard([this] { clearResponse(); });
    emit Complete(m_request);
}

void ThinDavApi::clearResponse()
{
    m_dirEntries.clear();
    m_fileBytes.clear();
    m_fileText.clear();
    m_length = 0;
    m_respHeaders.Clear();
    m_xml.clear();
    m_tag = QVariant();
}
