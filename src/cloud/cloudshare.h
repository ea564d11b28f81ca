#pragma once

#include <QList>
#include <QObject>
#include <QSslCertificate>
#include <QString>

// The WebDAV share of the cloud relay: the built-in account, or the user's
// own server when the settings name one.
namespace CloudShare
{
// Settings keys; an empty or absent value keeps the built-in default.
inline const QString kBaseUrlKey = QStringLiteral("CloudBaseUrl");
inline const QString kUserKey = QStringLiteral("CloudUser");
inline const QString kPasswordKey = QStringLiteral("CloudPassword");
// A PEM file of a CA trusted besides the system's.
inline const QString kCaFileKey = QStringLiteral("CloudCaFile");

QString DefaultBaseUrl();
QString DefaultUser();
QString DefaultPassword();

QString BaseUrl();
QString User();
// The password in the settings while there is one (no credential store, or not moved there
// yet), else the store's, else the built-in account's. Empty while a locked store holds it.
QString Password();
// Whether the password is in a credential store that is locked.
bool PasswordLocked();
// The CAs of CloudCaFile; none when it is not set or holds none (logged).
QList<QSslCertificate> CaCertificates();

// At start-up, for the user's own share: moves a password left in the settings into the
// credential store, or reads it from there. Events run while the store answers.
void LoadPassword();
// Keeps a new password in the store; without one, in the settings made private first.
void StorePassword(const QString& password);
// The command line's account: a URL and a user (empty: unchanged) into the settings, and the
// password from one line of standard input, or else the stored one loaded. False (said on
// stderr) when standard input held no password.
bool KeepAccount(const QString& url, const QString& user, bool passwordFromStdin);
} // namespace CloudShare

// Tells the cloud controls that the password changed after they started
// (a locked store was unlocked).
class CloudPasswordNotifier : public QObject
{
    Q_OBJECT
public:
    static CloudPasswordNotifier* instance();
signals:
    void passwordChanged();
private slots:
    // The Secret Service changed a collection: it may have been unlocked.
    void collectionChanged();
};
