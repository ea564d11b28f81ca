#include "cloud/cloudshare.h"

#include "common/doevents.h"
#include "common/log.h"
#include "common/settings.h"

#include <QFileInfo>
#include <QScopeGuard>
#include <cstdio>
#include <iostream>
#include <memory>
#include <qt6keychain/keychain.h>
#include <string>

#ifdef QUORVEL_HAVE_SECRET_SERVICE
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusVariant>
#endif

namespace
{
QString setting(const QString& key, const QString& fallback)
{
    const QString value = SettingsStore::get(key);
    return value.trimmed().isEmpty() ? fallback : value;
}

// What the credential store holds for the share: read once per account.
struct Stored {
    QString account; // whose password was read
    QString password;
    bool locked = false;
};
Stored& stored()
{
    static Stored s;
    return s;
}

const QString kService = QStringLiteral("Quorvel");

// One password per user and share, so a password never goes to another server.
QString accountKey()
{
    QString url = CloudShare::BaseUrl();
    if (!url.endsWith(u'/'))
        url += u'/';
    return CloudShare::User() + QStringLiteral(" at ") + url;
}

bool ownShare()
{
    return !SettingsStore::get(CloudShare::kUserKey).trimmed().isEmpty();
}

struct Answer {
    QKeychain::Error error = QKeychain::NoError;
    QString reason;
    QString text;
};

// No session bus to reach a Secret Service through (a service or a plain ssh login): asking the
// store would only load its backend and wait for it to give up, at every start.
bool noSessionBus()
{
#ifdef QUORVEL_HAVE_SECRET_SERVICE
    if (!qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS") ||
        !qEnvironmentVariableIsEmpty("DISPLAY")) // the bus may be started for the display
        return false;
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    return runtime.isEmpty() || !QFileInfo::exists(runtime + QStringLiteral("/bus"));
#else
    return false;
#endif
}

// Runs a store job to its end; events run meanwhile (the store may ask the user to unlock it).
Answer run(QKeychain::Job* job)
{
    std::unique_ptr<QKeychain::Job> owned(job);
    if (noSessionBus())
        return {QKeychain::NoBackendAvailable, QStringLiteral("no session bus"), {}};
    job->setAutoDelete(false);
    job->setKey(accountKey());
    bool done = false;
    QObject::connect(job, &QKeychain::Job::finished, job, [&done] { done = true; });
    job->start();
    waitUntil([&done] { return done; });
    Answer a{job->error(), job->errorString(), {}};
    if (auto* read = qobject_cast<QKeychain::ReadPasswordJob*>(job))
        a.text = read->textData();
    return a;
}

// "No backend", error 7 (no session bus, no Secret Service) or no store for this system at all:
// nowhere to keep a password but the settings.
bool noStore(QKeychain::Error e)
{
    return e == QKeychain::NoBackendAvailable || e == QKeychain::OtherError ||
           e == QKeychain::NotImplemented;
}

#ifdef QUORVEL_HAVE_SECRET_SERVICE
QVariant secretCall(const QString& path, const QString& interface, const QString& method,
                    const QVariantList& args)
{
    QDBusMessage m = QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.secrets"), path,
                                                    interface, method);
    m.setArguments(args);
    QDBusPendingCallWatcher watcher(QDBusConnection::sessionBus().asyncCall(m));
    waitUntil([&watcher] { return watcher.isFinished(); });
    const QDBusMessage reply = watcher.reply();
    return reply.type() == QDBusMessage::ReplyMessage && !reply.arguments().isEmpty()
               ? reply.arguments().constFirst()
               : QVariant();
}

// A locked collection reads as "not found": ask the Secret Service itself.
bool storeLocked()
{
    const QString collection = secretCall(QStringLiteral("/org/freedesktop/secrets"),
                                          QStringLiteral("org.freedesktop.Secret.Service"),
                                          QStringLiteral("ReadAlias"), {QStringLiteral("default")})
                                   .value<QDBusObjectPath>()
                                   .path();
    if (collection.isEmpty() || collection == QLatin1String("/"))
        return false;
    return secretCall(
               collection, QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"),
               {QStringLiteral("org.freedesktop.Secret.Collection"), QStringLiteral("Locked")})
        .value<QDBusVariant>()
        .variant()
        .toBool();
}

// Once: the Secret Service says when a collection changes (an unlock among them).
void watchStore()
{
    static bool watching = false;
    if (watching)
        return;
    // QtDBus offers only this string-based connect for bus signals.
    watching = QDBusConnection::sessionBus().connect(
        QStringLiteral("org.freedesktop.secrets"), QStringLiteral("/org/freedesktop/secrets"),
        QStringLiteral("org.freedesktop.Secret.Service"), QStringLiteral("CollectionChanged"),
        CloudPasswordNotifier::instance(), SLOT(collectionChanged()));
}
#else
bool storeLocked()
{
    return false;
}
void watchStore() {}
#endif

void logLocked(const QString& what)
{
    Log::line(QStringLiteral("The credential store is locked: %1; the cloud share is used once "
                             "it is unlocked")
                  .arg(what),
              true);
    watchStore();
}

// The password stays in the settings file, made private first.
void keepInSettings(const QString& password, const QString& reason)
{
    const QString file = SettingsStore::fileName();
    if (!SettingsStore::makePrivate()) {
        Log::line(QStringLiteral("No credential store (%1), and %2 cannot be made private: the "
                                 "cloud password is not saved")
                      .arg(reason, file),
                  true);
        return;
    }
    if (SettingsStore::get(CloudShare::kPasswordKey) != password)
        SettingsStore::put(CloudShare::kPasswordKey, password);
    Log::line(QStringLiteral("No credential store (%1): the cloud password stays in plain text "
                             "in %2, readable by this user only")
                  .arg(reason, file),
              true);
}
} // namespace

namespace CloudShare
{
QString DefaultBaseUrl()
{
    return QStringLiteral("https://cloudprint.quorvel.example/dav/");
}
QString DefaultUser()
{
    return QStringLiteral("cloudprint@quorvel.example");
}
QString DefaultPassword()
{
    return QStringLiteral("Rwm402719");
}

QString BaseUrl()
{
    return setting(kBaseUrlKey, DefaultBaseUrl()).trimmed();
}
QString User()
{
    return setting(kUserKey, DefaultUser());
}
QString Password()
{
    const QString plain = SettingsStore::get(kPasswordKey);
    if (!plain.trimmed().isEmpty() || !ownShare())
        return setting(kPasswordKey, DefaultPassword());
    if (stored().account != accountKey())
        LoadPassword();
    return stored().password;
}

bool PasswordLocked()
{
    return ownShare() && SettingsStore::get(kPasswordKey).trimmed().isEmpty() &&
           stored().account == accountKey() && stored().locked;
}

QList<QSslCertificate> CaCertificates()
{
    const QString file = SettingsStore::get(kCaFileKey).trimmed();
    if (file.isEmpty())
        return {};
    const QList<QSslCertificate> cas = QSslCertificate::fromPath(file, QSsl::Pem);
    if (cas.isEmpty())
        Log::line(QStringLiteral("CloudCaFile: no PEM certificate in %1; only the system's "
                                 "certificate authorities are trusted")
                      .arg(file),
                  true);
    return cas;
}

void LoadPassword()
{
    if (!ownShare())
        return;
    Stored& s = stored();
    s = Stored{accountKey(), QString(), false};
    const QString plain = SettingsStore::get(kPasswordKey);
    if (!plain.isEmpty()) {
        // Left in plain text by hand or by an older version: moved into the store.
        auto* job = new QKeychain::WritePasswordJob(kService);
        job->setTextData(plain);
        const Answer a = run(job);
        if (a.error == QKeychain::NoError) {
            SettingsStore::remove(kPasswordKey);
            s.password = plain;
            Log::line(QStringLiteral("The cloud password moved from %1 into the credential store")
                          .arg(SettingsStore::fileName()),
                      true);
        } else if (noStore(a.error)) {
            keepInSettings(plain, a.reason);
        } else {
            logLocked(QStringLiteral("the cloud password stays in %1 until it can be moved there")
                          .arg(SettingsStore::fileName()));
        }
        return;
    }
    const Answer a = run(new QKeychain::ReadPasswordJob(kService));
    if (a.error == QKeychain::NoError) {
        s.password = a.text;
    } else if (a.error == QKeychain::EntryNotFound && !storeLocked()) {
        s.password = DefaultPassword(); // none kept for this share
    } else if (!noStore(a.error)) {
        s.locked = true;
        logLocked(QStringLiteral("the cloud password cannot be read"));
    } else {
        s.password = DefaultPassword();
    }
}

void StorePassword(const QString& password)
{
    if (!ownShare()) {
        Log::line(QStringLiteral("--cloud-password-stdin: no cloud user is set (CloudUser, "
                                 "--cloud-user): the password is not kept"),
                  true);
        return;
    }
    Stored& s = stored();
    auto* job = new QKeychain::WritePasswordJob(kService);
    job->setTextData(password);
    const Answer a = run(job);
    if (a.error == QKeychain::NoError) {
        SettingsStore::remove(kPasswordKey);
        s = Stored{accountKey(), password, false};
        Log::line(QStringLiteral("The cloud password is kept in the credential store"), true);
    } else if (noStore(a.error)) {
        keepInSettings(password, a.reason);
    } else {
        // Never in plain text beside a store that is there: used for this run only.
        SettingsStore::remove(kPasswordKey);
        s = Stored{accountKey(), password, false};
        logLocked(
            QStringLiteral("the new cloud password is used by this run only (%1)").arg(a.reason));
    }
}
} // namespace CloudShare

CloudPasswordNotifier* CloudPasswordNotifier::instance()
{
    static CloudPasswordNotifier notifier;
    return &notifier;
}

void CloudPasswordNotifier::collectionChanged()
{
    // Our own write below changes the collection again while events run.
    static bool busy = false;
    if (busy)
        return;
    busy = true;
    auto done = qScopeGuard([] { busy = false; });
    Stored& s = stored();
    const bool waiting = s.locked || !SettingsStore::get(CloudShare::kPasswordKey).isEmpty();
    if (!waiting || storeLocked())
        return;
    CloudShare::LoadPassword();
    if (!s.locked) {
        Log::line(QStringLiteral("The credential store is unlocked: the cloud share is used "
                                 "again"),
                  true);
        emit passwordChanged();
    }
}

bool CloudShare::KeepAccount(const QString& url, const QString& user, bool passwordFromStdin)
{
    if (!url.isEmpty())
        SettingsStore::put(kBaseUrlKey, url);
    if (!user.isEmpty())
        SettingsStore::put(kUserKey, user);
    if (!passwordFromStdin) {
        LoadPassword();
        return true;
    }
    std::string line;
    std::getline(std::cin, line);
    if (!line.empty() && line.back() == '\r')
        line.pop_back();
    if (line.empty()) {
        std::fprintf(stderr, "--cloud-password-stdin: no password on standard input\n");
        return false;
    }
    StorePassword(QString::fromStdString(line));
    return true;
}
