#pragma once

#include <cstdint>
#include <string>

#ifdef _WIN32
#include <winsock2.h>
#else
#include <sys/socket.h>
#endif

// The few calls on an accepted TCP socket that the job intake makes itself,
// so that received bytes go straight into the job buffer.
namespace rawsocket
{
constexpr std::int64_t WouldBlock = -1;
constexpr std::int64_t Failed = -2;
// > 0: bytes received; 0: the peer closed; WouldBlock; Failed.
std::int64_t receive(std::intptr_t fd, char* into, std::int64_t max);
void setNonBlocking(std::intptr_t fd);
bool peerName(std::intptr_t fd, sockaddr_storage& address);
void close(std::intptr_t fd);

enum class AcceptResult {
    Accepted,
    NoneWaiting,
    Dropped,     // the peer went away before it was taken: take the next one
    CannotAccept // out of descriptors or buffers (why says which): try again later
};
// Takes one waiting connection off a non-blocking listening socket; the
// new socket is non-blocking too. -1 unless Accepted.
std::intptr_t accept(std::intptr_t listener, AcceptResult& result, std::string& why);
} // namespace rawsocket
