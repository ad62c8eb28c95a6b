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
