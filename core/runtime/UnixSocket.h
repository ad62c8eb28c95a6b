#pragma once

#include <cstddef>
#include <optional>
#include <sys/types.h>

namespace sayvo {

// The few things about local (Unix) stream sockets that each platform spells its own way.
// Free of Qt. Defined once per platform.

// A new socket for connecting, close-on-exec and non-blocking, whose sends never raise
// SIGPIPE; -1 on failure.
int openLocalStreamSocket();
// send() on such a socket: a peer that went away is EPIPE, not a signal.
ssize_t sendWithoutSignal(int socket, const void *data, size_t size);
// The user id of the process at the other end of a connected socket; absent when the system
// does not say.
std::optional<uid_t> peerUserId(int socket);

} // namespace sayvo
