#include "runtime/EngineState.h"

namespace sayvo {

namespace {

template <typename... Fs> struct Overloaded : Fs...
{
    using Fs::operator()...;
};
template <typename... Fs> Overloaded(Fs...) -> Overloaded<Fs...>;

} // namespace

QString describe(const EngineState &state)
{
    using namespace engine_state;
    return std::visit(
        Overloaded {
            [](const Provisioning &s) {
                return QStringLiteral("provisioning(%1, %2)").arg(s.percent).arg(s.message);
            },
            [](const NeedsPrerequisite &s) {
                return QStringLiteral("needsPrerequisite(%1, %2)").arg(s.token, s.message);
            },
            [](const Failed &s) { return QStringLiteral("failed(%1)").arg(s.message); },
            [](const Idle &) { return QStringLiteral("idle"); },
            [](const RemoteEndpoint &) { return QStringLiteral("remoteEndpoint"); },
            [](const MissingPayload &) { return QStringLiteral("missingPayload"); },
            [](const NeedsSetup &) { return QStringLiteral("needsSetup"); },
            [](const Running &) { return QStringLiteral("running"); },
        },
        state);
}

} // namespace sayvo
