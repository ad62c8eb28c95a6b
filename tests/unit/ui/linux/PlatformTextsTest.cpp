#include "ui/PlatformTexts.h"

#include <QDir>
#include <QRegularExpression>

#include <gtest/gtest.h>

namespace sayvo {
namespace {

using Texts = PlatformTexts;

// Nothing Linux shows names a Mac, its keys or its services, the macOS engine's models, or a
// download that set-up does not make.
TEST(PlatformTextsLinux, NameNothingThatLinuxDoesNotHave)
{
    const QStringList all {Texts::uninstallSummary(QDir::homePath() + "/.local/share/SayvoApp"),
        Texts::uninstallDevelopmentNote(),
        Texts::uninstallFailure({"/usr/share/sayvo/engine-payload/scripts/uninstall.sh",
            "/home/u/.local/share/SayvoApp/runtime", "/usr/bin/sayvo"}),
        Texts::remoteEndpointMessage(), Texts::missingPayloadMessage(), Texts::setupNeededMessage(),
        Texts::setupNeededDetail(), Texts::provisioningNote(), Texts::pasteDescription(),
        Texts::usageNote(), Texts::footprintNote(), Texts::privacyCaption()};
    const QRegularExpression foreign(QStringLiteral(
        "Mac\\b|macOS|\u2318|LaunchAgent|Application Support|\\buv\\b|Whisper|Hugging Face|GEC|"
        "\\d+ ?GB|scripts/start_sayvo|source checkout\\.$"));
    for (const QString &text : all) {
        EXPECT_FALSE(foreign.match(text).hasMatch()) << text.toStdString();
    }
    EXPECT_FALSE(Texts::uninstallSharedModelsOption().has_value());
}

TEST(PlatformTextsLinux, TheUninstallAlertNamesTheRuntimeFolderAndTheAutostartEntry)
{
    EXPECT_EQ(Texts::uninstallSummary(QDir::homePath() + "/.local/share/SayvoApp/runtime"),
        QStringLiteral(
            "This removes the app, its engine runtime (~/.local/share/SayvoApp/runtime), "
            "the autostart entry, and your saved preferences. The speech model belongs "
            "to the pocketsphinx-en-us package and stays installed."));
    EXPECT_EQ(Texts::uninstallDevelopmentNote(),
        QString::fromUtf8(
            "\n\nThis is a development build: your source checkout and its runtime "
            "are NOT touched \xE2\x80\x94 only the built app, the autostart entry and "
            "preferences."));
}

TEST(PlatformTextsLinux, TheUninstallFailureGivesACommandThatSurvivesAnyPath)
{
    EXPECT_EQ(Texts::uninstallFailure(
                  {"/opt/my apps/uninstall.sh", "/home/o'neil/runtime", "/usr/bin/sayvo"}),
        QStringLiteral("Nothing was removed. To uninstall by hand, quit Sayvo and run in a "
                       "terminal:\n\nbash '/opt/my apps/uninstall.sh' --yes --install-root "
                       "'/home/o'\\''neil/runtime' --app '/usr/bin/sayvo'"));
}

TEST(PlatformTextsLinux, TheSettingsTextsDescribeTheLinuxEngineAndKeys)
{
    EXPECT_EQ(Texts::pasteDescription(),
        QStringLiteral("Copies the transcript to the clipboard and simulates Ctrl+V "
                       "(Ctrl+Shift+V in terminals). Works in nearly any app, but briefly "
                       "overwrites your clipboard."));
    EXPECT_EQ(Texts::usageNote(),
        QStringLiteral("ASR speed is PocketSphinx transcription alone. Pipeline speed also "
                       "includes the formatting rules that run after transcription, so it's "
                       "normally a little lower. Both compare against how fast you spoke; above "
                       "1x is faster than realtime."));
    EXPECT_EQ(Texts::footprintNote(),
        QStringLiteral("Memory and CPU are the app plus its out-of-process engine (PocketSphinx "
                       "and the formatting rules). GPU is system-wide utilization as the graphics "
                       "driver reports it; the engine itself runs on the CPU. Memory is "
                       "resident-set size and double-counts shared pages, so treat it as an "
                       "upper-ish estimate."));
    EXPECT_TRUE(Texts::privacyCaption().contains(QStringLiteral("Stays on this computer")));
}

TEST(PlatformTextsLinux, TheSetUpTextsSayNothingIsDownloaded)
{
    EXPECT_EQ(Texts::setupNeededMessage(),
        QStringLiteral("Sayvo needs a one-time setup to run fully on-device: it installs a local "
                       "engine that recognises speech with PocketSphinx and formats it with "
                       "built-in rules. Nothing is downloaded and nothing is sent to the cloud."));
    EXPECT_EQ(Texts::provisioningNote(),
        QStringLiteral("One-time setup; nothing is downloaded. You can keep working; the mic icon "
                       "turns on when it's ready."));
    EXPECT_EQ(Texts::missingPayloadMessage(),
        QString::fromUtf8("This build has no bundled engine. Start one yourself with sayvo-engine "
                          "--port 8765, or enter another engine's address in Settings "
                          "\xE2\x86\x92 General."));
}

} // namespace
} // namespace sayvo
