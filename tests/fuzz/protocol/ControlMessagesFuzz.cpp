// Feeds arbitrary bytes, as another process may send them, to the instance channel's decoders:
// whatever they accept must encode back to exactly those bytes.
#include "protocol/ControlMessages.h"

#include <cstdint>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string_view bytes(reinterpret_cast<const char *>(data), size);
    if (const auto request = sayvo::decodeControlRequest(bytes)) {
        if (sayvo::encode(*request) != bytes) {
            __builtin_trap();
        }
    }
    if (const auto reply = sayvo::decodeControlReply(bytes)) {
        if (sayvo::encode(*reply) != bytes) {
            __builtin_trap();
        }
    }
    return 0;
}
