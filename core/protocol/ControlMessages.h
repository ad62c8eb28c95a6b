#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace sayvo {

// What another process of the same user asks of the running Sayvo over its instance channel:
// the trigger key's press and release from a compositor key binding (`sayvo trigger`), and a
// second launch's request to show the settings window. Free of Qt, so the small `sayvo`
// launcher that runs the trigger command shares it without loading Qt.
enum class ControlRequest {
    triggerPress,
    triggerRelease,
    triggerToggle,
    showSettings,
};

// The running Sayvo's answer.
enum class ControlReply {
    done,
    // Asked by a process of another user.
    refused,
    // Not a request this version knows.
    unknown,
};

// One request per connection, one line each way ("trigger press\n", "ok\n").
std::string encode(ControlRequest request);
std::string encode(ControlReply reply);
// `bytes` is what arrived up to and including the first newline; absent when it names no
// request.
std::optional<ControlRequest> decodeControlRequest(std::string_view bytes);
std::optional<ControlReply> decodeControlReply(std::string_view bytes);

// The request of `sayvo trigger <verb>`: press, release or toggle.
std::optional<ControlRequest> triggerRequest(std::string_view verb);

} // namespace sayvo
