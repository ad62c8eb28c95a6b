#pragma once

#include "protocol/InboundMessages.h"

#include <QString>

#include <variant>

namespace sayvo {

// The engine client's connection, as its delegate hears it.
struct ConnectionState
{
    struct Connected
    {
        Backends backends; // from the "hello.ack" of the current socket
        bool operator==(const Connected &) const = default;
    };
    struct Failed
    {
        QString message; // "hello handshake failed: …" or "connection lost: …"
        bool operator==(const Failed &) const = default;
    };
    struct Disconnected
    {
        bool operator==(const Disconnected &) const = default;
    };
    struct Connecting
    {
        bool operator==(const Connecting &) const = default;
    };

    std::variant<Connected, Failed, Disconnected, Connecting> value = Disconnected {};

    static ConnectionState connected(Backends backends)
    {
        return {Connected {std::move(backends)}};
    }
    static ConnectionState failed(QString message) { return {Failed {std::move(message)}}; }
    static ConnectionState disconnected() { return {Disconnected {}}; }
    static ConnectionState connecting() { return {Connecting {}}; }

    template <typename Case> bool is() const { return std::holds_alternative<Case>(value); }
    template <typename Case> const Case *as() const { return std::get_if<Case>(&value); }

    bool operator==(const ConnectionState &) const = default;
};

QString describe(const ConnectionState &state);

} // namespace sayvo
