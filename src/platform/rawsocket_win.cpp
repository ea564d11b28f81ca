#include "platform/rawsocket.h"

#include <winsock2.h>
#include <ws2tcpip.h>

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

bool rawsocket::peerName(qintptr fd, sockaddr_storage& address)
{
    int len = sizeof address;
    return ::getpeername(SOCKET(fd), reinterpret_cast<sockaddr*>(&address), &len) == 0;
}

void rawsocket::close(qintptr fd)
{
    ::closesocket(SOCKET(fd));
}

qintptr rawsocket::accept(qintptr listener, AcceptResult& result, QString& why)
{
    const SOCKET s = ::accept(SOCKET(listener), nullptr, nullptr);
    if (s != INVALID_SOCKET) {
        setNonBlocking(qintptr(s));
        result = AcceptResult::Accepted;
        return qintptr(s);
    }
    const int error = WSAGetLastError();
    switch (error) {
    case WSAEWOULDBLOCK:
        result = AcceptResult::NoneWaiting;
        break;
    case WSAECONNRESET:
    case WSAEINTR:
    case WSAENETDOWN:
        result = AcceptResult::Dropped;
        break;
    default: // WSAEMFILE, WSAENOBUFS, or worse
        result = AcceptResult::CannotAccept;
        why = qt_error_string(error);
    }
    return -1;
}
