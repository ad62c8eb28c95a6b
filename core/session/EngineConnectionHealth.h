#pragma once

#include "engineclient/ConnectionState.h"

#include <QMetaType>

#include <variant>

namespace sayvo {

// The engine connection as the coordinator reports it to the user interface.
struct EngineConnectionHealth
{
    struct Connected
    {
        bool mockBackends = false; // a placeholder engine that cannot transcribe
        bool operator==(const Connected &) const = default;
    };
    struct Idle
    {
        bool operator==(const Idle &) const = default;
    };
    struct Connecting
    {
        bool operator==(const Connecting &) const = default;
    };
    struct Offline
    {
        bool operator==(const Offline &) const = default;
    };

    std::variant<Connected, Idle, Connecting, Offline> value = Idle {};

    static EngineConnectionHealth connected(bool mockBackends)
    {
        return {Connected {mockBackends}};
    }
    static EngineConnectionHealth idle() { return {Idle {}}; }
    static EngineConnectionHealth connecting() { return {Connecting {}}; }
    static EngineConnectionHealth offline() { return {Offline {}}; }

    // disconnected → idle, connecting → connecting, failed → offline whatever its message,
    // connected → connected with the backends' mock test.
    static EngineConnectionHealth from(const ConnectionState &state);

    template <typename Case> bool is() const { return std::holds_alternative<Case>(value); }
    template <typename Case> const Case *as() const { return std::get_if<Case>(&value); }

    bool operator==(const EngineConnectionHealth &) const = default;
};

} // namespace sayvo

Q_DECLARE_METATYPE(sayvo::EngineConnectionHealth)
