#include "runtime/UnixSocket.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace sayvo {

int openLocalStreamSocket()
{
    const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    if (fd < 0) {
        return -1;
    }
    const int on = 1;
    if (::fcntl(fd, F_SETFD, FD_CLOEXEC) != 0
        || ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK) != 0
        || ::setsockopt(fd, SOL_SOCKET, SO_NOSIGPIPE, &on, sizeof on) != 0) {
        ::close(fd);
        return -1;
    }
    return fd;
}

ssize_t sendWithoutSignal(int socket, const void *data, size_t size)
{
    return ::send(socket, data, size, 0);
}

std::optional<uid_t> peerUserId(int socket)
{
    uid_t user = 0;
    gid_t group = 0;
    if (::getpeereid(socket, &user, &group) != 0) {
        return std::nullopt;
    }
    return user;
}

} // namespace sayvo
