#include "runtime/EngineState.h"

#include <QFile>
#include <QRegularExpression>

#include <gtest/gtest.h>

namespace sayvo {
namespace {

QStringList labels()
{
    QStringList all;
    for (const ProvisioningStep &step : ProvisioningStep::initialSteps()) {
        all.append(step.label);
    }
    return all;
}

// The checklist says what the Linux bootstrap does: it checks and links, it downloads nothing.
TEST(ProvisioningStepsLinux, NameWhatTheBootstrapDoes)
{
    EXPECT_EQ(labels(),
        (QStringList {"Check this computer", "Check the engine's libraries", "Copy engine files",
            "Create the engine environment", "Check the engine", "Link the speech model",
            "Load the transcription model", "Check the formatting rules", "Finalize"}));
    for (const QString &label : labels()) {
        EXPECT_FALSE(label.contains(QStringLiteral("Mac"))) << label.toStdString();
        EXPECT_FALSE(label.contains(QStringLiteral("uv"))) << label.toStdString();
        EXPECT_FALSE(label.contains(QStringLiteral("Download"))) << label.toStdString();
    }
}

// Each step the bootstrap script reports is on the checklist, in the same order.
TEST(ProvisioningStepsLinux, FollowTheStepsOfTheBootstrapScript)
{
    QFile script(QStringLiteral(SAYVO_BOOTSTRAP_SCRIPT));
    ASSERT_TRUE(script.open(QIODevice::ReadOnly)) << SAYVO_BOOTSTRAP_SCRIPT;
    const QString text = QString::fromUtf8(script.readAll());
    QStringList reported;
    const QRegularExpression step(
        QStringLiteral("^step (\\w+) \\d+ "), QRegularExpression::MultilineOption);
    for (auto it = step.globalMatch(text); it.hasNext();) {
        reported.append(it.next().captured(1));
    }
    QStringList ids;
    for (const ProvisioningStep &s : ProvisioningStep::initialSteps()) {
        ids.append(s.id);
    }
    EXPECT_EQ(reported, ids);
}

} // namespace
} // namespace sayvo
