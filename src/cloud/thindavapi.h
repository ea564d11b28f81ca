#pragma once

// A small asynchronous WebDAV client: one request at a time, one Complete
// signal per request, response data valid only while Complete runs.

#include "cloud/davlisting.h"

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QPair>
#include <QPointer>
#include <QSslConfiguration>
#include <QString>
#include <QVariant>
#include <optional>

class QNetworkAccessManager;
class QNetworkReply;
class QNetworkRequest;
class QUrl;

// The response headers of an OPTIONS request: items under keys, keys
// compared without regard to case, in the order they were added.
class DavCollection
{
public:
    int Count() const { return int(m_items.size()); }
    bool isEmpty() const { return m_items.isEmpty(); }
    bool Contains(const QString& key) const { return indexOf(key) >= 0; }
    // "" when the key is absent.
    QString Item(const QString& key) const;
    QString Item(int index) const { return m_items.value(index).second; }
    QStringList Keys() const;
    // False (nothing added) when the key is present already.
    bool Add(const QString& item, const QString& key);
    void Remove(const QString& key);
    void Clear() { m_items.clear(); }

private:
    qsizetype indexOf(const QString& key) const;
    QList<QPair<QString, QString>> m_items; // key, item
};

// All response headers as text ("Name: value" lines split by CR LF) to the
// collection: item "Name:value" under key "Name"; a repeated name is joined
// to the first with ", " and moves to the end.
DavCollection BuildRespHeaders(const QString& allHeaders);

class ThinDavApi : public QObject
{
    Q_OBJECT
public:
    // The value of Request and the argument of Complete.
    enum RequestCode {
        rqCopy = 0,
        rqDelete = 1,
        rqGetDir = 2,
        rqGetFileBytes = 3,
        rqGetFileLength = 4,
        rqGetFileText = 5,
        rqGetOptions = 6,
        rqMakeDir = 7,
        rqMove = 8,
        rqPutFileBytes = 9,
        rqPutFileText = 10,
    };

    explicit ThinDavApi(QObject* parent = nullptr);
    ~ThinDavApi() override;

    // Basic credentials sent with every request.
    QString User;
    QString PW;

    // Certificate authorities trusted besides the system's, for https shares.
    void setCaCertificates(const QList<QSslCertificate>& cas);

    bool Aborted() const { return m_aborted; }
    const QString& BaseUrl() const { return m_baseUrl; }
    void setBaseUrl(const QString& url);
    const QList<DirEntry>& DirEntries() const { return m_dirEntries; }
    const QByteArray& FileBytes() const { return m_fileBytes; }
    // One character per byte of the body (Latin-1), whatever charset the server names.
    const QString& FileText() const { return m_fileText; }
    qint32 Length() const { return m_length; }
    bool IsStatus2XX() const { return m_status >= 200 && m_status <= 299; }
    // The request's state now: 0 none or aborted, 1 sent, 2 headers
    // received, 3 receiving the body, 4 done.
    int ReadyState() const { return m_readyState; }
    // Body bytes of the pending request received so far.
    qint64 ReceivedBytes() const;
    int Request() const { return m_request; }
    const DavCollection& RespHeaders() const { return m_respHeaders; }
    int Status() const { return m_status; }
    const QString& StatusText() const { return m_statusText; }
    const QVariant& Tag() const { return m_tag; }
    const QString& XML() const { return m_xml; }
    static QString Version() { return QStringLiteral("001.000"); }
    const QString& UserAgent() const { return m_userAgent; }
    const QString& Origin() const { return m_origin; }

    void Copy(const QString& DirOrFileFromName, const QString& DirOrFileToName, bool OverWrite,
              bool RecurseDir, const QVariant& Tag = {});
    void Delete(const QString& DirOrFileName, const QVariant& Tag = {});
    void GetDir(const QString& DirOrFileName, bool ChildInfo, const QVariant& Tag = {});
    void GetFileBytes(const QString& DirOrFileName, const QVariant& Tag = {});
    void GetFileLength(const QString& DirOrFileName, const QVariant& Tag = {});
    void GetFileText(const QString& DirOrFileName, const QVariant& Tag = {});
    void GetOptions(const QVariant& Tag = {});
    // The path goes out with a final "/".
    void MakeDir(const QString& DirName, const QVariant& Tag = {});
    void Move(const QString& DirOrFileOldName, const QString& DirOrFileNewName, bool OverWrite,
              const QVariant& Tag = {});
    void PutFileBytes(const QString& DirOrFileName, const QByteArray& FileBytes,
                      const QString& ContentType, const QVariant& Tag = {});
    // The body is one byte per character (Latin-1), as FileText reads it back.
    void PutFileText(const QString& DirOrFileName, const QString& FileText,
                     const QString& ContentType, const QVariant& Tag = {});
    void AbortRequest(const QVariant& Tag = {});

    // Runs at every change of the pending request's state; acts on "done".
    void ReadyStateAsyncCallback();

    // An empty name is "/"; otherwise one leading and one trailing "/" go.
    static QString NormalisePath(const QString& name);
    // The URL a name is requested at: base URL followed by the normalised
    // name, as WirePath puts it on the wire.
    QString RequestUrl(const QString& name) const;
    // A name as an http URL path: a backslash is "/", escapes stay, blanks, a lone "%", "?",
    // "#" and non-ASCII are percent-encoded (UTF-8).
    static QByteArray WirePath(const QString& name);

    // Text of the user message that PutFileText shows.
    static QString UploadMessage();

    // A larger reply is not read: its call completes with Status -1 and the reason. A fetched
    // job (GET) may be larger than any other reply.
    static constexpr qint64 kMaxFileBytes = qint64(1) << 30;
    static constexpr qint64 kMaxReplyBytes = qint64(64) << 20;

signals:
    // Once per request; response properties are valid only while it runs.
    void Complete(int Request);
    // A file being fetched: bytes so far, of total (-1 while the share has not said).
    void FileProgress(qint64 received, qint64 total);

private:
    void start(RequestCode code, const QVariant& tag);
    QNetworkRequest open(const QString& name);
    QUrl url(const QString& name) const;
    void send(QNetworkRequest& request, const QByteArray& verb, const QByteArray& body = {},
              bool hasBody = false);
    void dropReply();
    bool refuseLarge(QNetworkReply* reply);
    void sendFailed(int number, const QString& description);
    void sendTransfer(const QByteArray& method, const QString& fromName, const QString& toName,
                      bool overWrite, const QByteArray& depth);
    void raiseComplete();
    void clearResponse();

    QNetworkAccessManager* m_http = nullptr;
    std::optional<QSslConfiguration> m_ssl;
    QPointer<QNetworkReply> m_reply;
    DavDateParser m_dates;

    bool m_aborted = false;
    QString m_baseUrl;
    QList<DirEntry> m_dirEntries;
    QByteArray m_fileBytes;
    QString m_fileText;
    qint32 m_length = 0;
    int m_request = 0;
    DavCollection m_respHeaders;
    int m_status = 0;
    QString m_statusText;
    QVariant m_tag;
    QString m_xml;
    qsizetype m_baseLength = 0;
    QString m_origin;
    QString m_parseError;
    QString m_userAgent;
    int m_readyState = 0;
};
