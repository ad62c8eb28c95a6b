#pragma once

#include <QString>

#include <optional>

namespace sayvo {

// The sentences of the tray and the windows that name things which differ between platforms:
// the paste chord, where the runtime lives, how Sayvo starts at login, where the speech model
// comes from. What every platform's build says alike (the bundled engine recognises with
// PocketSphinx and set-up downloads nothing) is written once; the rest once per platform.
class PlatformTexts
{
public:
    // What the uninstaller needs to be run by hand.
    struct UninstallCommand
    {
        QString script;
        QString installRoot;
        QString application;
    };

    // The uninstall alert's text; `installRoot` is where the engine runtime lives.
    static QString uninstallSummary(const QString &installRoot);
    static QString uninstallDevelopmentNote();
    // The offer to remove the shared models as well; none where set-up downloaded nothing.
    static std::optional<QString> uninstallSharedModelsOption();
    // What to do when the uninstaller could not be started.
    static QString uninstallFailure(const UninstallCommand &command);

    // Engine set-up window.
    static QString remoteEndpointMessage();
    static QString missingPayloadMessage();
    static QString setupNeededMessage();
    static QString setupNeededDetail();
    static QString provisioningNote();

    // Settings window.
    static QString pasteDescription();
    static QString usageNote();
    static QString footprintNote();
    static QString privacyCaption();
    // Under the launch-at-login switch while the system waits for the user to allow it.
    static QString loginApprovalNote();
    static QString loginApprovalButton();

    // A path as the user would type it: the home folder as "~".
    static QString homeRelative(const QString &path);
};

} // namespace sayvo
