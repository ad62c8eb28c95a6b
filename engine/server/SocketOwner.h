#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace sayvo {

// One end of a TCP connection. IPv4 addresses are held mapped into IPv6 (::ffff:a.b.c.d), so
// that an end compares equal however a listing spells it.
struct SocketEndpoint
{
    std::array<std::uint8_t, 16> address {};
    std::uint16_t port = 0;

    static SocketEndpoint ipv4(const std::array<std::uint8_t, 4> &address, std::uint16_t port);
    static SocketEndpoint ipv6(const std::array<std::uint8_t, 16> &address, std::uint16_t port);
    bool operator==(const SocketEndpoint &) const = default;
};

// The user id that owns the TCP socket whose own end is `local` and whose other end is
// `remote`, read from the text of /proc/net/tcp or /proc/net/tcp6 (a header line, then one
// socket a line: "sl: LOCAL REMOTE st ... uid ..."); nothing when no line names that pair.
// Lines that do not parse are skipped.
std::optional<std::uint32_t> tcpSocketOwner(
    std::string_view listing, const SocketEndpoint &local, const SocketEndpoint &remote);

} // namespace sayvo
