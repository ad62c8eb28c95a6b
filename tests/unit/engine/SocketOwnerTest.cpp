#include "engine/server/SocketOwner.h"

#include <gtest/gtest.h>

#include <cstring>

namespace sayvo {
namespace {

// How the kernel prints an address: 32-bit words in this machine's byte order.
std::string words(const std::array<std::uint8_t, 16> &bytes, std::size_t count)
{
    std::string out;
    for (std::size_t w = 0; w < count; ++w) {
        std::uint32_t value = 0;
        std::memcpy(&value, bytes.data() + 4 * w, 4);
        char hex[9];
        std::snprintf(hex, sizeof hex, "%08X", value);
        out += hex;
    }
    return out;
}

std::string v4(std::array<std::uint8_t, 4> address, std::uint16_t port)
{
    std::array<std::uint8_t, 16> bytes {};
    std::copy(address.begin(), address.end(), bytes.begin());
    char text[8];
    std::snprintf(text, sizeof text, ":%04X", port);
    return words(bytes, 1) + text;
}

std::string v6(std::array<std::uint8_t, 16> address, std::uint16_t port)
{
    char text[8];
    std::snprintf(text, sizeof text, ":%04X", port);
    return words(address, 4) + text;
}

std::string row(int slot, const std::string &local, const std::string &remote, int uid)
{
    return "   " + std::to_string(slot) + ": " + local + " " + remote
        + " 01 00000000:00000000 00:00000000 00000000  " + std::to_string(uid)
        + "        0 4242 1 0000000000000000 20 4 30 10 -1\n";
}

const std::string kHeader = "  sl  local_address rem_address   st tx_queue rx_queue tr tm->when "
                            "retrnsmt   uid  timeout inode\n";
const std::array<std::uint8_t, 4> kLoopback {127, 0, 0, 1};

TEST(SocketOwner, FindsTheOwnerOfTheSocketWithBothEnds)
{
    const std::string listing = kHeader + row(0, v4({0, 0, 0, 0}, 8765), v4({0, 0, 0, 0}, 0), 1000)
        + row(1, v4(kLoopback, 8765), v4(kLoopback, 40000), 1000) // the engine's side
        + row(2, v4(kLoopback, 40000), v4(kLoopback, 8765), 65534) // the client's side
        + row(3, v4(kLoopback, 40001), v4(kLoopback, 8765), 1000);
    const auto engine = SocketEndpoint::ipv4(kLoopback, 8765);
    EXPECT_EQ(tcpSocketOwner(listing, SocketEndpoint::ipv4(kLoopback, 40000), engine), 65534u);
    EXPECT_EQ(tcpSocketOwner(listing, SocketEndpoint::ipv4(kLoopback, 40001), engine), 1000u);
    EXPECT_EQ(
        tcpSocketOwner(listing, SocketEndpoint::ipv4(kLoopback, 40002), engine), std::nullopt);
}

TEST(SocketOwner, ReadsIpv6AndIpv4MappedAddresses)
{
    std::array<std::uint8_t, 16> one {};
    one[15] = 1;
    std::array<std::uint8_t, 16> mapped {};
    mapped[10] = mapped[11] = 0xff;
    std::copy(kLoopback.begin(), kLoopback.end(), mapped.begin() + 12);
    const std::string listing = kHeader + row(0, v6(one, 50000), v6(one, 8765), 1001)
        + row(1, v6(mapped, 50001), v6(mapped, 8765), 1002);
    EXPECT_EQ(
        tcpSocketOwner(listing, SocketEndpoint::ipv6(one, 50000), SocketEndpoint::ipv6(one, 8765)),
        1001u);
    EXPECT_EQ(tcpSocketOwner(listing, SocketEndpoint::ipv4(kLoopback, 50001),
                  SocketEndpoint::ipv4(kLoopback, 8765)),
        1002u)
        << "an IPv4 peer of a dual-stack socket is listed in IPv6 form";
}

TEST(SocketOwner, SkipsLinesThatDoNotParse)
{
    const auto peer = SocketEndpoint::ipv4(kLoopback, 40000);
    const auto engine = SocketEndpoint::ipv4(kLoopback, 8765);
    const std::string good = row(9, v4(kLoopback, 40000), v4(kLoopback, 8765), 7);
    for (const std::string &bad : {std::string("garbage\n"), std::string("0: X:Y Z:W 01 a b c 1\n"),
             row(1, v4(kLoopback, 40000), v4(kLoopback, 8765), 7).replace(0, 5, "   1 "),
             std::string("   1: 0100007F:9C40 0100007F:223D 01 0 0 0 notanumber\n"),
             std::string("   1: 0100007F:9C40\n")}) {
        EXPECT_EQ(tcpSocketOwner(kHeader + bad, peer, engine), std::nullopt) << bad;
        std::string withGood = kHeader;
        withGood += bad;
        withGood += good;
        EXPECT_EQ(tcpSocketOwner(withGood, peer, engine), 7u) << bad;
    }
    EXPECT_EQ(tcpSocketOwner("", peer, engine), std::nullopt);
}

} // namespace
} // namespace sayvo
