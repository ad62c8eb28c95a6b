#include "runtime/EngineState.h"

#include <gtest/gtest.h>

namespace sayvo {
namespace {

TEST(ProvisioningStepsMac, AreTheNineStepsOfTheMacSetUp)
{
    QStringList labels;
    for (const ProvisioningStep &step : ProvisioningStep::initialSteps()) {
        labels.append(step.label);
    }
    EXPECT_EQ(labels,
        (QStringList {"Check this Mac", "Install uv toolchain", "Copy engine files",
            "Create Python environment", "Install engine + backends", "Download speech models",
            "Download transcription model", "Download language model", "Finalize"}));
}

} // namespace
} // namespace sayvo
