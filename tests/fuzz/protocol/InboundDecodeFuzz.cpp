// Feeds arbitrary bytes to the client's inbound decoder; whatever decodes must encode and
// decode again to the same message.
#include "protocol/WireCodec.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string_view bytes(reinterpret_cast<const char *>(data), size);
    const auto decoded = sayvo::decodeInbound(bytes);
    if (decoded) {
        const auto again = sayvo::decodeInbound(sayvo::encode(decoded.value()));
        if (!again || !(again.value() == decoded.value())) {
            std::abort();
        }
    }
    // The engine reads client frames with the same machinery.
    (void)sayvo::decodeOutbound(bytes);
    return 0;
}
