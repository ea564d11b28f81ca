#include "platform/rawsocket.h"

#include <winsock2.h>
#include <ws2tcpip.h>

#include <QHostAddress>

qint64 rawsocket::receive(qintptr fd, char* into, qint64 max)
{
    const int n = ::recv(SOCKET(fd), into, int(max > 0x7fffffff ? 0x7fffffff : max), 0);
    if (n >= 0)
        return n;
    return WSAGetLastError() == WSAEWOULDBLOCK ? WouldBlock : Failed;
}

void rawsocket::setNonBlocking(qintptr fd)
{
    u_long on = 1;
    ::ioctlsocket(SOCKET(fd), FIONBIO, &on);
}

void rawsocket::setReceiveBuffer(qintptr fd, int bytes)
{
    ::setsockopt(SOCKET(fd), SOL_SOCKET, SO_RCVBUF, reinterpret_cast<const char*>(&bytes),
                 sizeof bytes);
}

QString rawsocket::peerAddress(qintptr fd)
{
    sockaddr_storage ss{};
    int len = sizeof ss;
    if (::getpeername(SOCKET(fd), reinterpret_cast<sockaddr*>(&ss), &len) != 0)
        return QString();
    QHostAddress a(reinterpret_cast<const sockaddr*>(&ss));
    bool isV4 = false;
    const quint32 v4 = a.toIPv4Address(&isV4);
    return isV4 ? QHostAddress(v4).toString() : a.toString();
}

void rawsocket::close(qintptr fd)
{
    ::closesocket(SOCKET(fd));
}
