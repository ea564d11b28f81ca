#include "platform/rawsocket.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

qint64 rawsocket::receive(qintptr fd, char* into, qint64 max)
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

void rawsocket::setNonBlocking(qintptr fd)
{
    const int flags = ::fcntl(int(fd), F_GETFL);
    ::fcntl(int(fd), F_SETFL, flags | O_NONBLOCK);
}

void rawsocket::setReceiveBuffer(qintptr fd, int bytes)
{
    ::setsockopt(int(fd), SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes);
}

bool rawsocket::peerName(qintptr fd, sockaddr_storage& address)
{
    socklen_t len = sizeof address;
    return ::getpeername(int(fd), reinterpret_cast<sockaddr*>(&address), &len) == 0;
}

void rawsocket::close(qintptr fd)
{
    ::close(int(fd));
}

qintptr rawsocket::accept(qintptr listener, AcceptResult& result, QString& why)
{
    for (;;) {
        const int fd = ::accept4(int(listener), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (fd >= 0) {
            result = AcceptResult::Accepted;
            return fd;
        }
        switch (errno) {
        case EINTR:
            continue;
        case EAGAIN:
#if EAGAIN != EWOULDBLOCK
        case EWOULDBLOCK:
#endif
            result = AcceptResult::NoneWaiting;
            break;
        case ECONNABORTED:
        case EPROTO:
        case EPERM:
        case ENETDOWN:
        case ENETUNREACH:
        case EHOSTUNREACH:
        case EHOSTDOWN:
        case ENONET:
        case ENOPROTOOPT:
        case EOPNOTSUPP:
            result = AcceptResult::Dropped;
            break;
        default: // EMFILE, ENFILE, ENOBUFS, ENOMEM, or worse
            result = AcceptResult::CannotAccept;
            why = qt_error_string(errno);
        }
        return -1;
    }
}
