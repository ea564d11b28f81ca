#include "cloud/cloudcheck.h"

#include "cloud/cloudshare.h"
#include "cloud/thindavapi.h"
#include "common/doevents.h"

#include <QDateTime>
#include <QDeadlineTimer>
#include <QRandomGenerator>
#include <QSslSocket>
#include <QUrl>
#include <algorithm>

namespace
{
// "CN=..., O=..." of a certificate's subject.
QString subjectOf(const QSslCertificate& cert)
{
    QStringList parts;
    for (const QByteArray& attribute : cert.subjectInfoAttributes())
        parts << QString::fromLatin1(attribute) + u'=' + cert.subjectInfo(attribute).join(u'+');
    return parts.isEmpty() ? QStringLiteral("(no certificate)") : parts.join(QStringLiteral(", "));
}
} // namespace

CloudCheck::Share CloudCheck::configured()
{
    return {CloudShare::BaseUrl(), CloudShare::User(), CloudShare::Password(),
            CloudShare::CaCertificates(), CloudShare::PasswordLocked()};
}

CloudCheck::CloudCheck(Share share, QString userId, QString serverId, QObject* parent)
    : QObject(parent), m_share(std::move(share)), m_userId(userId.trimmed().toLower()),
      m_serverId(serverId.trimmed()), m_dav(new ThinDavApi(this))
{
    m_dav->setBaseUrl(m_share.baseUrl);
    m_dav->User = m_share.user;
    m_dav->PW = m_share.password;
    m_dav->setCaCertificates(m_share.cas);
}

bool CloudCheck::run()
{
    if (!reach())
        return false;
    if (m_share.locked) {
        emit line(QStringLiteral("user: the password of %1 is in the credential store, which is "
                                 "locked: unlock it and check again")
                      .arg(m_share.user));
        return false;
    }
    // The share's base itself: does it take the user?
    const Answer a = request([this] { m_dav->GetDir(QString(), false); });
    if (a.status == 401) {
        emit line(QStringLiteral("user: the share refused user %1: check the password")
                      .arg(m_share.user));
        return false;
    }
    if (!a.ok()) {
        emit line(
            QStringLiteral("user: the share answered %1 at %2").arg(a.said(), m_share.baseUrl));
        return false;
    }
    emit line(QStringLiteral("user: the share accepted user %1").arg(m_share.user));
    return collections() && probe();
}

CloudCheck::Answer CloudCheck::request(const std::function<void()>& send)
{
    Answer a;
    bool done = false;
    const auto c = connect(m_dav, &ThinDavApi::Complete, this, [&] {
        a = {m_dav->Status(), m_dav->StatusText(), m_dav->DirEntries(), m_dav->FileBytes()};
        done = true;
    });
    send();
    const QDeadlineTimer deadline(kStepMs);
    waitUntil([&] { return done || deadline.hasExpired(); });
    if (!done) {
        m_dav->AbortRequest();
        a = {0, QStringLiteral("no answer in %1 s").arg(kStepMs / 1000), {}, {}};
    }
    disconnect(c);
    return a;
}

bool CloudCheck::reach()
{
    const QUrl url(m_share.baseUrl);
    const QString scheme = url.scheme().toLower();
    if (!url.isValid() || url.host().isEmpty() ||
        (scheme != QLatin1String("http") && scheme != QLatin1String("https"))) {
        emit line(QStringLiteral("address: %1 is not an http:// or https:// address")
                      .arg(m_share.baseUrl));
        return false;
    }
    const bool tls = scheme == QLatin1String("https");
    const QString where = url.host() + u':' + QString::number(url.port(tls ? 443 : 80));
    QSslSocket socket;
    if (!m_share.cas.isEmpty()) {
        QSslConfiguration config = QSslConfiguration::defaultConfiguration();
        config.addCaCertificates(m_share.cas);
        socket.setSslConfiguration(config);
    }
    bool connected = false, encrypted = false, failed = false;
    QList<QSslError> errors;
    connect(&socket, &QSslSocket::connected, this, [&] { connected = true; });
    connect(&socket, &QSslSocket::encrypted, this, [&] { encrypted = true; });
    connect(&socket, &QSslSocket::sslErrors, this, [&](const QList<QSslError>& e) { errors = e; });
    connect(&socket, &QSslSocket::errorOccurred, this, [&] { failed = true; });
    const auto wait = [&](const bool& done) {
        const QDeadlineTimer deadline(kStepMs);
        waitUntil([&] { return done || failed || deadline.hasExpired(); });
        return done;
    };
    socket.connectToHost(url.host(), quint16(url.port(tls ? 443 : 80)));
    if (!wait(connected)) {
        emit line(QStringLiteral("address: %1 cannot be reached: %2")
                      .arg(where, failed
                                      ? socket.errorString()
                                      : QStringLiteral("no answer in %1 s").arg(kStepMs / 1000)));
        return false;
    }
    emit line(QStringLiteral("address: %1 can be reached").arg(where));
    if (!tls) {
        emit line(QStringLiteral("tls: not used (http://): the password travels unencrypted"));
        return true;
    }
    socket.startClientEncryption();
    if (!wait(encrypted)) {
        QSslCertificate cert = socket.peerCertificate();
        QStringList reasons;
        for (const QSslError& e : errors) {
            reasons << e.errorString();
            if (cert.isNull())
                cert = e.certificate();
        }
        if (reasons.isEmpty())
            reasons << socket.errorString();
        emit line(QStringLiteral("tls: the certificate of %1 is not trusted: %2; if the share "
                                 "is yours, set CloudCaFile to its CA's PEM file")
                      .arg(subjectOf(cert), reasons.join(QStringLiteral("; "))));
        return false;
    }
    emit line(QStringLiteral("tls: the certificate of %1 is trusted")
                  .arg(subjectOf(socket.peerCertificate())));
    return true;
}

bool CloudCheck::collections()
{
    const QString user = QStringLiteral("CloudPrint/") + m_userId;
    const struct {
        QString path, what;
    } wanted[] = {{QStringLiteral("CloudPrint"), QStringLiteral("the share's root for jobs")},
                  {user, QStringLiteral("the user's collection")},
                  {user + u'/' + m_serverId, QStringLiteral("the server's collection")}};
    bool all = true;
    for (const auto& w : wanted) {
        if (w.path == user + u'/') {
            emit line(QStringLiteral("collection: no user e-mail id is set (EMailId, "
                                     "--register): the server's collection is not checked"));
            break;
        }
        const Answer a = request([&] { m_dav->GetDir(w.path, false); });
        QString state = QStringLiteral("found");
        if (a.status == 404 || a.status == 409)
            state = QStringLiteral("missing");
        else if (!a.ok())
            state = QStringLiteral("not readable: the share answered ") + a.said();
        else if (a.entries.isEmpty() || !a.entries.first().isCollection)
            state = QStringLiteral("not a collection");
        emit line(QStringLiteral("collection %1 (%2): %3").arg(w.path, w.what, state));
        all = all && state == QLatin1String("found");
    }
    return all;
}

bool CloudCheck::probe()
{
    // In CloudPrint itself: no poller prints what lies there.
    const QString name =
        QStringLiteral("quorvel-check-%1.tmp").arg(QRandomGenerator::global()->generate64(), 0, 36);
    const QString path = QStringLiteral("CloudPrint/") + name;
    QByteArray bytes(256, 0);
    for (int i = 0; i < 256; ++i)
        bytes[i] = char(i);
    bytes += QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs).toLatin1();

    const auto fail = [&](const QString& step, const QString& why) {
        emit line(QStringLiteral("probe: %1 could not be %2: %3").arg(path, step, why));
        return false;
    };
    Answer a = request([&] { m_dav->PutFileBytes(path, bytes, QStringLiteral("text/plain")); });
    if (!a.ok())
        return fail(QStringLiteral("written"), a.said());
    // Whatever fails after the upload, the probe is deleted.
    QString step, why;
    a = request([&] { m_dav->GetDir(QStringLiteral("CloudPrint"), true); });
    const bool listed = std::any_of(a.entries.begin(), a.entries.end(), [&](const DirEntry& e) {
        return !e.isCollection && e.name == name && qint64(e.length) == bytes.size();
    });
    if (!listed) {
        step = QStringLiteral("listed with its size");
        why = a.ok() ? QStringLiteral("not in the listing of CloudPrint") : a.said();
    } else {
        a = request([&] { m_dav->GetFileBytes(path); });
        if (!a.ok() || a.bytes != bytes) {
            step = QStringLiteral("read back byte-exact");
            why = a.ok() ? QStringLiteral("%1 bytes came back, not these %2")
                               .arg(a.bytes.size())
                               .arg(bytes.size())
                         : a.said();
        }
    }
    a = request([&] { m_dav->Delete(path); });
    if (!step.isEmpty())
        return fail(step, why);
    if (!a.ok())
        return fail(QStringLiteral("deleted"), a.said());
    emit line(QStringLiteral("probe: %1 was written, listed, read back byte-exact and deleted")
                  .arg(path));
    return true;
}
