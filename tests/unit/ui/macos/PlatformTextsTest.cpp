#include "ui/PlatformTexts.h"

#include <gtest/gtest.h>

namespace sayvo {
namespace {

using Texts = PlatformTexts;

TEST(PlatformTextsMac, KeepTheTextsOfTheMacProduct)
{
    EXPECT_EQ(Texts::uninstallSummary(QStringLiteral("/ignored")),
        QStringLiteral("This removes the app, its engine runtime (~3 GB under Application "
                       "Support), the login LaunchAgent, and your saved preferences. The shared uv "
                       "toolchain is left in place."));
    EXPECT_EQ(Texts::uninstallSharedModelsOption(),
        QStringLiteral("Also remove downloaded models (GEC + Whisper, in the Hugging Face cache)"));
    EXPECT_EQ(Texts::uninstallFailure({}),
        QStringLiteral("Run scripts/uninstall.sh manually from the source checkout."));
    EXPECT_EQ(Texts::remoteEndpointMessage(),
        QStringLiteral("Configured to use a remote engine endpoint. This Mac isn't running a local "
                       "engine."));
    EXPECT_EQ(Texts::pasteDescription(),
        QString::fromUtf8("Copies the transcript to the clipboard and simulates \xE2\x8C\x98V. "
                          "Works in nearly any app, but briefly overwrites your clipboard."));
    EXPECT_TRUE(Texts::privacyCaption().contains(QStringLiteral("Stays on this Mac")));
    EXPECT_TRUE(Texts::loginApprovalNote().contains(QStringLiteral("Login Items")));
}

} // namespace
} // namespace sayvo
