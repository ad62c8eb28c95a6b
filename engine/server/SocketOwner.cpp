#include "engine/server/SocketOwner.h"

#include <charconv>
#include <cstring>
#include <vector>

namespace sayvo {

namespace {

std::vector<std::string_view> fields(std::string_view line)
{
    std::vector<std::string_view> out;
    std::size_t at = 0;
    while (at < line.size()) {
        while (at < line.size() && (line[at] == ' ' || line[at] == '\t')) {
            ++at;
        }
        const std::size_t start = at;
        while (at < line.size() && line[at] != ' ' && line[at] != '\t') {
            ++at;
        }
        if (at > start) {
            out.push_back(line.substr(start, at - start));
        }
    }
    return out;
}

template <typename Number> std::optional<Number> hex(std::string_view text)
{
    Number value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, 16);
    if (error != std::errc() || end != text.data() + text.size() || text.empty()) {
        return std::nullopt;
    }
    return value;
}

// "0100007F:1F90" (IPv4) or 32 hex digits and a port (IPv6). The kernel prints the address
// as 32-bit words in the host's byte order, so each word goes back to memory the same way.
std::optional<SocketEndpoint> endpoint(std::string_view text)
{
    const std::size_t colon = text.find(':');
    if (colon == std::string_view::npos) {
        return std::nullopt;
    }
    const std::string_view address = text.substr(0, colon);
    const auto port = hex<std::uint16_t>(text.substr(colon + 1));
    if (!port || (address.size() != 8 && address.size() != 32)) {
        return std::nullopt;
    }
    std::array<std::uint8_t, 16> bytes {};
    for (std::size_t word = 0; word * 8 < address.size(); ++word) {
        const auto value = hex<std::uint32_t>(address.substr(word * 8, 8));
        if (!value) {
            return std::nullopt;
        }
        std::memcpy(bytes.data() + word * 4, &*value, 4);
    }
    if (address.size() == 8) {
        return SocketEndpoint::ipv4({bytes[0], bytes[1], bytes[2], bytes[3]}, *port);
    }
    return SocketEndpoint::ipv6(bytes, *port);
}

} // namespace

SocketEndpoint SocketEndpoint::ipv4(const std::array<std::uint8_t, 4> &address, std::uint16_t port)
{
    SocketEndpoint e;
    e.address[10] = 0xff;
    e.address[11] = 0xff;
    std::memcpy(e.address.data() + 12, address.data(), 4);
    e.port = port;
    return e;
}

SocketEndpoint SocketEndpoint::ipv6(const std::array<std::uint8_t, 16> &address, std::uint16_t port)
{
    return SocketEndpoint {address, port};
}

std::optional<std::uint32_t> tcpSocketOwner(
    std::string_view listing, const SocketEndpoint &local, const SocketEndpoint &remote)
{
    while (!listing.empty()) {
        const std::size_t end = listing.find('\n');
        const std::string_view line = listing.substr(0, end);
        listing.remove_prefix(end == std::string_view::npos ? listing.size() : end + 1);
        // sl, local, remote, st, tx:rx, tr:when, retrnsmt, uid, ...
        const std::vector<std::string_view> f = fields(line);
        if (f.size() < 8 || f[0].empty() || f[0].back() != ':') {
            continue;
        }
        const auto own = endpoint(f[1]);
        const auto other = endpoint(f[2]);
        if (!own || !other || *own != local || *other != remote) {
            continue;
        }
        std::uint32_t uid = 0;
        const auto [at, error] = std::from_chars(f[7].data(), f[7].data() + f[7].size(), uid);
        if (error == std::errc() && at == f[7].data() + f[7].size()) {
            return uid;
        }
    }
    return std::nullopt;
}

} // namespace sayvo
