#include "runtime/UnixSocket.h"

#include <sys/socket.h>

namespace sayvo {

int openLocalStreamSocket()
{
    return ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
}

ssize_t sendWithoutSignal(int socket, const void *data, size_t size)
{
    return ::send(socket, data, size, MSG_NOSIGNAL);
}

std::optional<uid_t> peerUserId(int socket)
{
    ucred credentials {};
    socklen_t size = sizeof credentials;
    if (::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0) {
        return std::nullopt;
    }
    return credentials.uid;
}

} // namespace sayvo
