#include "runtime/PeerCredentials.h"

#include <sys/socket.h>

namespace sayvo {

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
