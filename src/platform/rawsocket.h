#pragma once

#include <QString>

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
QString peerAddress(qintptr fd); // IPv4 peers as a.b.c.d
void close(qintptr fd);
} // namespace rawsocket
