#include "platform/rawsocket.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

std::int64_t rawsocket::receive(std::intptr_t fd, char* into, std::int64_t max)
{
    for (;;) {
        const ssize_t n = ::recv(int(fd), into, size_t(max), 0);
        if (n >= 0)
            return n;
        if (errno == EINTR)
            continue;
        return (errno == EAGAIN || errno == EWOULDBLOCK) ? WouldBlock : Failed;
    }
}

void rawsocket::setNonBlocking(std::intptr_t fd)
{
    const int flags = ::fcntl(int(fd), F_GETFL);
    ::fcntl(int(fd), F_SETFL, flags | O_NONBLOCK);
}

void rawsocket::setReceiveBuffer(std::intptr_t fd, int bytes)
{
    ::setsockopt(int(fd), SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes);
}

bool rawsocket::peerName(std::intptr_t fd, sockaddr_storage& address)
{
    socklen_t len = sizeof address;
    return ::getpeername(int(fd), reinterpret_cast<sockaddr*>(&address), &len) == 0;
}

void rawsocket::close(std::intptr_t fd)
{
    ::close(int(fd));
}
