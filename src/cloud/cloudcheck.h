#pragma once

// Checks the cloud share step by step, from the receiving installation's
// side: the address, TLS, the user, the collections, a probe file. Each step
// gives one plain line; --cloud-test prints them, a settings window can show them.

#include "cloud/davlisting.h"

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QSslCertificate>
#include <QString>
#include <functional>

class ThinDavApi;

class CloudCheck : public QObject
{
    Q_OBJECT
public:
    struct Share {
        QString baseUrl, user, password;
        QList<QSslCertificate> cas; // trusted besides the system's
        bool locked = false;        // the password is in a locked credential store
    };
    // The share the settings name (CloudShare).
    static Share configured();

    // userId: the installation id (the user's collection CloudPrint/<it>); serverId: the user
    // e-mail id (the server's collection below it; empty: not checked).
    CloudCheck(Share share, QString userId, QString serverId, QObject* parent = nullptr);

    // Runs the steps (events run meanwhile) until one fails; true when all passed.
    bool run();

    // A step that waits longer than this fails.
    static constexpr int kStepMs = 30000;

signals:
    void line(const QString& text);

private:
    struct Answer {
        int status = 0;
        QString text;
        QList<DirEntry> entries;
        QByteArray bytes;
        bool ok() const { return status >= 200 && status <= 299; }
        QString said() const { return QString::number(status) + u' ' + text; }
    };
    Answer request(const std::function<void()>& send);
    bool reach();
    bool collections();
    bool probe();

    Share m_share;
    QString m_userId, m_serverId;
    ThinDavApi* m_dav = nullptr;
};
