#include "platform/rawsocket.h"

#include <QHostAddress>

QString rawsocket::peerAddress(qintptr fd)
{
    sockaddr_storage ss{};
    if (!peerName(fd, ss))
        return QString();
    const QHostAddress a(reinterpret_cast<const sockaddr*>(&ss));
    bool isV4 = false;
    const quint32 v4 = a.toIPv4Address(&isV4);
    return isV4 ? QHostAddress(v4).toString() : a.toString();
}
