#pragma once

#include "protocol/ControlMessages.h"

#include <string>

namespace sayvo {

// The client side of the running Sayvo's instance channel, free of Qt so that the `sayvo`
// launcher runs the trigger command without loading it.

// The per-user directory of the channel: the session's $XDG_RUNTIME_DIR/sayvo, or
// /tmp/sayvo-<uid> where the session has no runtime directory.
std::string instanceDirectory();
std::string instanceSocketPath(const std::string &directory);

// How a request to the running instance ended.
enum class ControlDelivery {
    delivered,
    // No instance: no socket, or one left by a crash, or a directory this user may not enter.
    notRunning,
    // Connected, but no answer within the time-out.
    notAnswering,
    // The instance refused or did not understand it.
    refused,
};

// Sends one request and waits at most timeoutMs for the answer. Needs no event loop.
ControlDelivery sendControlRequest(
    ControlRequest request, const std::string &directory, int timeoutMs);

} // namespace sayvo
