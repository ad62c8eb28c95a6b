#include "ui/PlatformTexts.h"

namespace sayvo {

QString PlatformTexts::uninstallSummary(const QString &)
{
    return QStringLiteral("This removes the app, its engine runtime (~3 GB under Application "
                          "Support), the login LaunchAgent, and your saved preferences. The shared "
                          "uv toolchain is left in place.");
}

QString PlatformTexts::uninstallDevelopmentNote()
{
    return QStringLiteral(
        "\n\nThis is a development build: your source checkout and its runtime "
        "are NOT touched \u2014 only the built app, LaunchAgent and preferences.");
}

std::optional<QString> PlatformTexts::uninstallSharedModelsOption()
{
    return QStringLiteral(
        "Also remove downloaded models (GEC + Whisper, in the Hugging Face cache)");
}

QString PlatformTexts::uninstallFailure(const UninstallCommand &)
{
    return QStringLiteral("Run scripts/uninstall.sh manually from the source checkout.");
}

QString PlatformTexts::remoteEndpointMessage()
{
    return QStringLiteral(
        "Configured to use a remote engine endpoint. This Mac isn't running a local engine.");
}

QString PlatformTexts::missingPayloadMessage()
{
    return QStringLiteral("This build has no bundled engine. Start it manually from the repo with "
                          "scripts/start_sayvo.sh.");
}

QString PlatformTexts::setupNeededMessage()
{
    return QStringLiteral("Sayvo needs a one-time setup to run fully on-device: it downloads the "
                          "speech-recognition and grammar models (about 3 GB) and installs a local "
                          "engine. Nothing is sent to the cloud.");
}

QString PlatformTexts::setupNeededDetail()
{
    return QStringLiteral(
        "This runs in the background \u2014 you can keep using your Mac. It only happens once.");
}

QString PlatformTexts::provisioningNote()
{
    return QStringLiteral(
        "One-time setup, downloads ~3 GB of models. You can keep working; the mic "
        "icon turns on when it's ready.");
}

QString PlatformTexts::pasteDescription()
{
    return QStringLiteral("Copies the transcript to the clipboard and simulates \u2318V. Works in "
                          "nearly any app, but briefly overwrites your clipboard.");
}

QString PlatformTexts::usageNote()
{
    return QStringLiteral(
        "ASR speed is Whisper transcription alone. Pipeline speed also includes the "
        "grammar-correction pass that runs after transcription, so it's normally "
        "lower. Both compare against how fast you spoke; above 1x is faster than "
        "realtime.");
}

QString PlatformTexts::footprintNote()
{
    return QStringLiteral(
        "Memory and CPU are the app plus its out-of-process engine (the transcription and "
        "grammar-correction models). GPU is system-wide utilization \u2014 macOS exposes no "
        "per-process GPU figure \u2014 and rises when the Whisper final pass runs, just after you "
        "stop speaking. Memory is resident-set size and double-counts shared pages, so treat it "
        "as an upper-ish estimate.");
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
