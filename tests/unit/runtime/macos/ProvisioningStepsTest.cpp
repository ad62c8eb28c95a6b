#include "runtime/EngineState.h"

#include <gtest/gtest.h>

namespace sayvo {
namespace {

// The Mac runs the same bootstrap as Linux: it checks and links the model inside the app, it
// downloads nothing.
TEST(ProvisioningStepsMac, NameWhatTheBootstrapDoes)
{
    QStringList labels;
    for (const ProvisioningStep &step : ProvisioningStep::initialSteps()) {
        labels.append(step.label);
    }
    EXPECT_EQ(labels,
        (QStringList {"Check this Mac", "Check the engine's libraries", "Copy engine files",
            "Create the engine environment", "Check the engine", "Link the speech model",
            "Load the transcription model", "Check the formatting rules", "Finalize"}));
}

} // namespace
} // namespace sayvo
