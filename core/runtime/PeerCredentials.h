#pragma once

#include <optional>
#include <sys/types.h>

namespace sayvo {

// The user id of the process at the other end of a connected Unix socket; absent when the
// system does not say. Defined once per platform.
std::optional<uid_t> peerUserId(int socket);

} // namespace sayvo
