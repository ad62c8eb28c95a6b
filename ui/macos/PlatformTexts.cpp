#include "ui/PlatformTexts.h"

namespace sayvo {

// The speech model is copied into the app bundle, so it leaves with the app; the login item is
// the system's (SMAppService), not a file of Sayvo's.
QString PlatformTexts::uninstallSummary(const QString &installRoot)
{
    return QStringLiteral("This removes the app with the speech model inside it, its engine "
                          "runtime (%1), the login item, and your saved preferences.")
        .arg(homeRelative(installRoot));
}

QString PlatformTexts::uninstallDevelopmentNote()
{
    return QStringLiteral(
        "\n\nThis is a development build: your source checkout and its runtime "
        "are NOT touched \u2014 only the built app, the login item and preferences.");
}

QString PlatformTexts::remoteEndpointMessage()
{
    return QStringLiteral(
        "Configured to use a remote engine endpoint. This Mac isn't running a local engine.");
}

QString PlatformTexts::setupNeededDetail()
{
    return QStringLiteral(
        "This runs in the background \u2014 you can keep using your Mac. It only happens once.");
}

QString PlatformTexts::pasteDescription()
{
    return QStringLiteral("Copies the transcript to the clipboard and simulates \u2318V. Works in "
                          "nearly any app, but briefly overwrites your clipboard.");
}

QString PlatformTexts::footprintNote()
{
    return QStringLiteral(
        "Memory and CPU are the app plus its out-of-process engine (PocketSphinx and the "
        "formatting rules). GPU is system-wide utilization \u2014 macOS exposes no per-process "
        "GPU figure \u2014 and the engine itself runs on the CPU. Memory is resident-set size and "
        "double-counts shared pages, so treat it as an upper-ish estimate.");
}

QString PlatformTexts::privacyCaption()
{
    return QStringLiteral(
        "Records what you actually kept after editing \u2014 and the results of any accuracy "
        "calibration \u2014 so repeated misrecognitions can be suggested as dictionary entries. "
        "Text only: your audio is never stored. Stays on this Mac, off by default, and nothing "
        "is added to your dictionary without you accepting it.");
}

QString PlatformTexts::loginApprovalNote()
{
    return QStringLiteral("macOS opens Sayvo at login once you allow it in System Settings \u2192 "
                          "General \u2192 Login Items.");
}

QString PlatformTexts::loginApprovalButton()
{
    return QStringLiteral("Open Login Items\u2026");
}

} // namespace sayvo
