#include "ui/PlatformTexts.h"

#include <QDir>

namespace sayvo {

namespace {

// One shell word, whatever the path holds.
QString shellQuoted(const QString &word)
{
    QString quoted = word;
    quoted.replace(QLatin1Char('\''), QStringLiteral("'\\''"));
    return QLatin1Char('\'') + quoted + QLatin1Char('\'');
}

} // namespace

QString PlatformTexts::homeRelative(const QString &path)
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

std::optional<QString> PlatformTexts::uninstallSharedModelsOption()
{
    // Set-up links the speech model that came with the system or the app and downloads
    // nothing, so there is nothing shared to offer to remove.
    return std::nullopt;
}

QString PlatformTexts::uninstallFailure(const UninstallCommand &command)
{
    return QStringLiteral("Nothing was removed. To uninstall by hand, quit Sayvo and run in a "
                          "terminal:\n\nbash %1 --yes --install-root %2 --app %3")
        .arg(shellQuoted(command.script), shellQuoted(command.installRoot),
            shellQuoted(command.application));
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

QString PlatformTexts::provisioningNote()
{
    return QStringLiteral("One-time setup; nothing is downloaded. You can keep working; the mic "
                          "icon turns on when it's ready.");
}

QString PlatformTexts::usageNote()
{
    return QStringLiteral("ASR speed is PocketSphinx transcription alone. Pipeline speed also "
                          "includes the formatting rules that run after transcription, so it's "
                          "normally a little lower. Both compare against how fast you spoke; above "
                          "1x is faster than realtime.");
}

} // namespace sayvo
