#include "runtime/EngineState.h"

namespace sayvo {

// The labels say what the bootstrap script does in each step on this platform.
QList<ProvisioningStep> ProvisioningStep::initialSteps()
{
    const auto step = [](const char *id, const char *label) {
        return ProvisioningStep {QString::fromUtf8(id), QString::fromUtf8(label), Status::Pending};
    };
    return {
        step("mac", "Check this Mac"),
        step("uv", "Check the engine's libraries"),
        step("copy", "Copy engine files"),
        step("venv", "Create the engine environment"),
        step("deps", "Check the engine"),
        step("models_stream", "Link the speech model"),
        step("models_final", "Load the transcription model"),
        step("models_gec", "Check the formatting rules"),
        step("finalize", "Finalize"),
    };
}

} // namespace sayvo
