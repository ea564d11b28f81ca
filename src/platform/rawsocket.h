#pragma once

#include <QString>

#ifdef Q_OS_WIN
#include <winsock2.h>
#else
#include <sys/socket.h>
#endif

// The few calls on an accepted TCP socket that the job intake makes itself,
// so that received bytes go straight into the job buffer.
namespace rawsocket
{
constexpr qint64 WouldBlock = -1;
constexpr qint64 Failed = -2;
// > 0: bytes received; 0: the peer closed; WouldBlock; Failed.
qint64 receive(qintptr fd, char* into, qint64 max);
void setNonBlocking(qintptr fd);
void setReceiveBuffer(qintptr fd, int bytes);
bool peerName(qintptr fd, sockaddr_storage& address);
QString peerAddress(qintptr fd); // IPv4 peers as a.b.c.d, also behind a dual-stack listener
void close(qintptr fd);

enum class AcceptResult {
    Accepted,
    NoneWaiting,
    Dropped,     // the peer went away before it was taken: take the next one
    CannotAccept // out of descriptors or buffers (why says which): try again later
};
// Takes one waiting connection off a non-blocking listening socket; the
// new socket is non-blocking too. -1 unless Accepted.
qintptr accept(qintptr listener, AcceptResult& result, QString& why);
} // namespace rawsocket
