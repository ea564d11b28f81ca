#include "server/windowrequest.h"

#include "common/settings.h"

#include <QCryptographicHash>
#include <QLocalServer>
#include <QLocalSocket>

namespace
{
// One name per settings file: instances with settings of their own (tests, portable runs) never
// answer for each other.
QString serverName()
{
    return QStringLiteral("quorvel-") +
           QString::fromLatin1(QCryptographicHash::hash(SettingsStore::fileName().toUtf8(),
                                                        QCryptographicHash::Sha1)
                                   .toHex()
                                   .left(16));
}
} // namespace

bool WindowRequest::sendToRunning(const QString& window)
{
    QLocalSocket socket;
    socket.connectToServer(serverName());
    if (!socket.waitForConnected(2000))
        return false;
    socket.write(window.toUtf8() + '\n');
    return socket.waitForBytesWritten(2000) && socket.waitForReadyRead(5000) &&
           socket.readAll().startsWith("ok");
}

void WindowRequest::listen(QObject* parent, std::function<void(const QString&)> show)
{
    auto* server = new QLocalServer(parent);
    server->setSocketOptions(QLocalServer::UserAccessOption);
    // A server left by a crashed instance would refuse the name.
    QLocalServer::removeServer(serverName());
    if (!server->listen(serverName()))
        return;
    QObject::connect(server, &QLocalServer::newConnection, server, [server, show] {
        QLocalSocket* c = server->nextPendingConnection();
        QObject::connect(c, &QLocalSocket::disconnected, c, &QObject::deleteLater);
        QObject::connect(c, &QLocalSocket::readyRead, c, [c, show] {
            if (!c->canReadLine())
                return;
            const QString window = QString::fromUtf8(c->readLine()).trimmed();
            const bool known =
                window == QLatin1String("preferences") || window == QLatin1String("jobs");
            c->write(known ? "ok\n" : "unknown\n");
            c->flush();
            if (known)
                show(window);
        });
    });
}
