#include "platform/rawsocket.h"

#include <winsock2.h>
#include <ws2tcpip.h>

std::int64_t rawsocket::receive(std::intptr_t fd, char* into, std::int64_t max)
{
    const int n = ::recv(SOCKET(fd), into, int(max > 0x7fffffff ? 0x7fffffff : max), 0);
    if (n >= 0)
        return n;
    return WSAGetLastError() == WSAEWOULDBLOCK ? WouldBlock : Failed;
}

void rawsocket::setNonBlocking(std::intptr_t fd)
{
    u_long on = 1;
    ::ioctlsocket(SOCKET(fd), FIONBIO, &on);
}

bool rawsocket::peerName(std::intptr_t fd, sockaddr_storage& address)
{
    int len = sizeof address;
    return ::getpeername(SOCKET(fd), reinterpret_cast<sockaddr*>(&address), &len) == 0;
}

void rawsocket::close(std::intptr_t fd)
{
    ::closesocket(SOCKET(fd));
}

std::intptr_t rawsocket::accept(std::intptr_t listener, AcceptResult& result, std::string& why)
{
    const SOCKET s = ::accept(SOCKET(listener), nullptr, nullptr);
    if (s != INVALID_SOCKET) {
        setNonBlocking(std::intptr_t(s));
        result = AcceptResult::Accepted;
        return std::intptr_t(s);
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
        why = "Windows Sockets error " + std::to_string(error);
    }
    return -1;
}
