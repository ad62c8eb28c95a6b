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

QList<ProvisioningStep> ProvisioningStep::initialSteps()
{
    const auto step = [](const char *id, const char *label) {
        return ProvisioningStep {QString::fromUtf8(id), QString::fromUtf8(label), Status::Pending};
    };
    return {
        step("mac", "Check this Mac"),
        step("uv", "Install uv toolchain"),
        step("copy", "Copy engine files"),
        step("venv", "Create Python environment"),
        step("deps", "Install engine + backends"),
        step("models_stream", "Download speech models"),
        step("models_final", "Download transcription model"),
        step("models_gec", "Download language model"),
        step("finalize", "Finalize"),
    };
}

} // namespace sayvo
