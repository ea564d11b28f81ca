#pragma once

#include <QTcpServer>

// Element 0 of the socket array: listens and raises a connection request
// for every incoming connection, carrying its descriptor as request id.
class SocketListener : public QTcpServer
{
    Q_OBJECT
public:
    using QTcpServer::QTcpServer;

signals:
    void ConnectionRequest(qintptr requestID);

protected:
    void incomingConnection(qintptr handle) override { emit ConnectionRequest(handle); }
};
