#include "ui/PlatformTexts.h"

#include <QDir>
#include <QRegularExpression>

#include <gtest/gtest.h>

namespace sayvo {
namespace {

using Texts = PlatformTexts;

// The Mac build ships the same PocketSphinx engine with its model inside the app and starts at
// login through the system's login item: nothing names a download, another engine's models or
// a launch agent file.
TEST(PlatformTextsMac, DescribeTheEngineTheAppShips)
{
    const QStringList all {
        Texts::uninstallSummary(QDir::homePath() + "/Library/Application Support/SayvoApp"),
        Texts::uninstallDevelopmentNote(), Texts::setupNeededMessage(), Texts::setupNeededDetail(),
        Texts::provisioningNote(), Texts::usageNote(), Texts::footprintNote()};
    const QRegularExpression foreign(QStringLiteral(
        "LaunchAgent|\\buv\\b|Whisper|Hugging Face|GEC|\\d+ ?GB|scripts/start_sayvo|Ctrl\\+"));
    for (const QString &text : all) {
        EXPECT_FALSE(foreign.match(text).hasMatch()) << text.toStdString();
    }
    EXPECT_FALSE(Texts::uninstallSharedModelsOption().has_value());
}

TEST(PlatformTextsMac, TheUninstallAlertNamesTheRuntimeFolderAndTheLoginItem)
{
    EXPECT_EQ(Texts::uninstallSummary(QDir::homePath() + "/Library/Application Support/SayvoApp"),
        QStringLiteral("This removes the app with the speech model inside it, its engine runtime "
                       "(~/Library/Application Support/SayvoApp), the login item, and your saved "
                       "preferences."));
    EXPECT_TRUE(Texts::uninstallDevelopmentNote().contains(QStringLiteral("the login item")));
}

TEST(PlatformTextsMac, TheSettingsTextsNameTheMacAndItsKeys)
{
    EXPECT_EQ(Texts::remoteEndpointMessage(),
        QStringLiteral("Configured to use a remote engine endpoint. This Mac isn't running a local "
                       "engine."));
    EXPECT_EQ(Texts::pasteDescription(),
        QString::fromUtf8("Copies the transcript to the clipboard and simulates \xE2\x8C\x98V. "
                          "Works in nearly any app, but briefly overwrites your clipboard."));
    EXPECT_TRUE(Texts::footprintNote().contains(QStringLiteral("no per-process GPU figure")));
    EXPECT_TRUE(Texts::privacyCaption().contains(QStringLiteral("Stays on this Mac")));
    EXPECT_TRUE(Texts::loginApprovalNote().contains(QStringLiteral("Login Items")));
}

} // namespace
} // namespace sayvo
