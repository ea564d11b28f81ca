#include "platform/rawsocket.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{
// Connections stop being taken while fewer than these descriptors are free:
// saving, converting and logging a job need some of their own.
constexpr rlim_t kSpareDescriptors = 16;

bool fewDescriptorsLeft(int listener)
{
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY)
        return false;
    const int lowestFree = ::fcntl(listener, F_DUPFD_CLOEXEC, 0);
    if (lowestFree < 0)
        return true;
    ::close(lowestFree);
    return rlim_t(lowestFree) + kSpareDescriptors >= limit.rlim_cur;
}
} // namespace

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

bool rawsocket::peerName(std::intptr_t fd, sockaddr_storage& address)
{
    socklen_t len = sizeof address;
    return ::getpeername(int(fd), reinterpret_cast<sockaddr*>(&address), &len) == 0;
}

void rawsocket::close(std::intptr_t fd)
{
    ::close(int(fd));
}

std::intptr_t rawsocket::accept(std::intptr_t listener, AcceptResult& result, std::string& why)
{
    if (fewDescriptorsLeft(int(listener))) {
        result = AcceptResult::CannotAccept;
        why = std::strerror(EMFILE);
        return -1;
    }
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
            why = std::strerror(errno);
        }
        return -1;
    }
}
