#pragma once

#include <QSocketNotifier>
#include <QTcpServer>
#include <QTimer>
#include <memory>

// Element 0 of the socket array: listens and raises a connection request
// for every incoming connection, carrying its descriptor as request id.
// It takes the connections itself: Qt's own accept gives up for good when
// the process runs out of descriptors.
class SocketListener : public QTcpServer
{
    Q_OBJECT
public:
    using QTcpServer::QTcpServer;
    bool start(const QHostAddress& address, quint16 port);
    // A descriptor was freed: take what waits now instead of at the next retry.
    void retryNow();

signals:
    void ConnectionRequest(qintptr requestID);
    // Nothing can be taken (why: out of descriptors); waiting clients stay queued.
    void Paused(const QString& why);
    void Resumed();

private:
    void acceptWaiting();

    std::unique_ptr<QSocketNotifier> m_notifier;
    QTimer m_retry;
    bool m_paused = false;
};
