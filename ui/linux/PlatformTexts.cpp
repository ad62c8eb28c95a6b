#include "ui/PlatformTexts.h"

#include <QDir>

namespace sayvo {

namespace {

// A path as the user would type it: the home folder as "~".
QString tildePath(const QString &path)
{
    const QString home = QDir::homePath();
    if (path == home) {
        return QStringLiteral("~");
    }
    if (path.startsWith(home + QLatin1Char('/'))) {
        return QStringLiteral("~") + path.mid(home.size());
    }
    return path;
}

// One shell word, whatever the path holds.
QString shellQuoted(const QString &word)
{
    QString quoted = word;
    quoted.replace(QLatin1Char('\''), QStringLiteral("'\\''"));
    return QLatin1Char('\'') + quoted + QLatin1Char('\'');
}

} // namespace

QString PlatformTexts::uninstallSummary(const QString &installRoot)
{
    return QStringLiteral("This removes the app, its engine runtime (%1), the autostart entry, and "
                          "your saved preferences. The speech model belongs to the "
                          "pocketsphinx-en-us package and stays installed.")
        .arg(tildePath(installRoot));
}

QString PlatformTexts::uninstallDevelopmentNote()
{
    return QStringLiteral(
        "\n\nThis is a development build: your source checkout and its runtime are NOT touched "
        "\u2014 only the built app, the autostart entry and preferences.");
}

std::optional<QString> PlatformTexts::uninstallSharedModelsOption()
{
    // Set-up links the system's speech model and downloads nothing, so there is nothing to
    // offer to remove.
    return std::nullopt;
}

QString PlatformTexts::uninstallFailure(const UninstallCommand &command)
{
    return QStringLiteral("Nothing was removed. To uninstall by hand, quit Sayvo and run in a "
                          "terminal:\n\nbash %1 --yes --install-root %2 --app %3")
        .arg(shellQuoted(command.script), shellQuoted(command.installRoot),
            shellQuoted(command.application));
}

QString PlatformTexts::remoteEndpointMessage()
{
    return QStringLiteral("Configured to use a remote engine endpoint. This computer isn't "
                          "running a local engine.");
}

QString PlatformTexts::missingPayloadMessage()
{
    return QStringLiteral("This build has no bundled engine. Start one yourself with "
                          "sayvo-engine --port 8765, or enter another engine's address in "
                          "Settings \u2192 General.");
}

QString PlatformTexts::setupNeededMessage()
{
    return QStringLiteral("Sayvo needs a one-time setup to run fully on-device: it installs a "
                          "local engine that recognises speech with PocketSphinx and formats it "
                          "with built-in rules. Nothing is downloaded and nothing is sent to the "
                          "cloud.");
}

QString PlatformTexts::setupNeededDetail()
{
    return QStringLiteral("This runs in the background \u2014 you can keep using your computer. "
                          "It only happens once.");
}

QString PlatformTexts::provisioningNote()
{
    return QStringLiteral("One-time setup; nothing is downloaded. You can keep working; the mic "
                          "icon turns on when it's ready.");
}

QString PlatformTexts::pasteDescription()
{
    return QStringLiteral("Copies the transcript to the clipboard and simulates Ctrl+V "
                          "(Ctrl+Shift+V in terminals). Works in nearly any app, but briefly "
                          "overwrites your clipboard.");
}

QString PlatformTexts::usageNote()
{
    return QStringLiteral("ASR speed is PocketSphinx transcription alone. Pipeline speed also "
                          "includes the formatting rules that run after transcription, so it's "
                          "normally a little lower. Both compare against how fast you spoke; above "
                          "1x is faster than realtime.");
}

QString PlatformTexts::footprintNote()
{
    return QStringLiteral(
        "Memory and CPU are the app plus its out-of-process engine (PocketSphinx and the "
        "formatting rules). GPU is system-wide utilization as the graphics driver reports it; "
        "the engine itself runs on the CPU. Memory is resident-set size and double-counts shared "
        "pages, so treat it as an upper-ish estimate.");
}

QString PlatformTexts::privacyCaption()
{
    return QStringLiteral(
        "Records what you actually kept after editing \u2014 and the results of any accuracy "
        "calibration \u2014 so repeated misrecognitions can be suggested as dictionary entries. "
        "Text only: your audio is never stored. Stays on this computer, off by default, and "
        "nothing is added to your dictionary without you accepting it.");
}

QString PlatformTexts::loginApprovalNote()
{
    return QStringLiteral("Your desktop starts Sayvo at login once you allow it in its settings.");
}

QString PlatformTexts::loginApprovalButton()
{
    return QStringLiteral("Open Settings\u2026");
}

} // namespace sayvo
