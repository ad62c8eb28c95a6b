// The kernel's socket listings as the engine reads them to learn who is connecting: any
// text, looked up for a fixed pair of ends. It must never crash or read out of bounds.
#include "engine/server/SocketOwner.h"

#include <cstdint>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string_view listing(reinterpret_cast<const char *>(data), size);
    const auto peer = sayvo::SocketEndpoint::ipv4({127, 0, 0, 1}, 40000);
    const auto engine = sayvo::SocketEndpoint::ipv4({127, 0, 0, 1}, 8765);
    sayvo::tcpSocketOwner(listing, peer, engine);
    sayvo::tcpSocketOwner(listing, engine, peer);
    return 0;
}
