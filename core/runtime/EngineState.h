#pragma once

#include <QList>
#include <QMetaType>
#include <QString>

#include <variant>

namespace sayvo {

// What the engine supervisor is doing, as the menu bar and the set-up window show it.
// Published as EngineSupervisor::State; equality compares the case and its payload.
namespace engine_state {

// First-run set-up or an update is running.
struct Provisioning
{
    int percent = 0;
    QString message;
    bool operator==(const Provisioning &) const = default;
};

// Set-up stopped for something the user must install.
struct NeedsPrerequisite
{
    QString token;
    QString message;
    bool operator==(const NeedsPrerequisite &) const = default;
};

// The engine cannot be run; the message is for the user.
struct Failed
{
    QString message;
    bool operator==(const Failed &) const = default;
};

// Nothing started yet.
struct Idle
{
    bool operator==(const Idle &) const = default;
};

// The endpoint is not on this machine; no local engine is managed.
struct RemoteEndpoint
{
    bool operator==(const RemoteEndpoint &) const = default;
};

// The application ships no engine payload.
struct MissingPayload
{
    bool operator==(const MissingPayload &) const = default;
};

// The runtime is not provisioned; set-up waits for the user.
struct NeedsSetup
{
    bool operator==(const NeedsSetup &) const = default;
};

// An engine runs, launched here or already listening when the supervisor started.
struct Running
{
    bool operator==(const Running &) const = default;
};

} // namespace engine_state

using EngineState = std::variant<engine_state::Provisioning, engine_state::NeedsPrerequisite,
    engine_state::Failed, engine_state::Idle, engine_state::RemoteEndpoint,
    engine_state::MissingPayload, engine_state::NeedsSetup, engine_state::Running>;

// A short name of the case, for logs and test output ("provisioning", "failed", ...).
QString describe(const EngineState &state);

// One line of the set-up checklist.
struct ProvisioningStep
{
    enum class Status {
        Pending,
        Running,
        Done,
        Failed
    };

    QString id;
    QString label;
    Status status = Status::Pending;
    bool operator==(const ProvisioningStep &) const = default;

    // The nine steps of a run, in display order, all pending.
    static QList<ProvisioningStep> initialSteps();
};

} // namespace sayvo

Q_DECLARE_METATYPE(sayvo::EngineState)
Q_DECLARE_METATYPE(sayvo::ProvisioningStep)
