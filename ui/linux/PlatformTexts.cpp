#include "ui/PlatformTexts.h"

namespace sayvo {

QString PlatformTexts::uninstallSummary(const QString &installRoot)
{
    return QStringLiteral("This removes the app, its engine runtime (%1), the autostart entry, and "
                          "your saved preferences. The speech model belongs to the "
                          "pocketsphinx-en-us package and stays installed.")
        .arg(homeRelative(installRoot));
}

QString PlatformTexts::uninstallDevelopmentNote()
{
    return QStringLiteral(
        "\n\nThis is a development build: your source checkout and its runtime are NOT touched "
        "\u2014 only the built app, the autostart entry and preferences.");
}

QString PlatformTexts::remoteEndpointMessage()
{
    return QStringLiteral("Configured to use a remote engine endpoint. This computer isn't "
                          "running a local engine.");
}

QString PlatformTexts::setupNeededDetail()
{
    return QStringLiteral("This runs in the background \u2014 you can keep using your computer. "
                          "It only happens once.");
}

QString PlatformTexts::pasteDescription()
{
    return QStringLiteral("Copies the transcript to the clipboard and simulates Ctrl+V "
                          "(Ctrl+Shift+V in terminals). Works in nearly any app, but briefly "
                          "overwrites your clipboard.");
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
