// Sayvo: push-to-talk dictation from the system tray or the menu bar.
#include "app/AppDelegate.h"
#include "app/ApplicationPlatform.h"
#include "app/ControlCommand.h"
#include "app/ShutdownSignals.h"
#include "app/SingleInstance.h"
#include "store/NativePreferenceStore.h"
#include "store/PreferenceStoreQSettings.h"

#include <QApplication>

int main(int argc, char **argv)
{
    // `sayvo trigger press|release|toggle`, run by a compositor's key binding.
    if (const std::optional<int> exitCode = sayvo::runControlCommand(argc, argv)) {
        return *exitCode;
    }
    // One Sayvo per user: a second launch shows the running one's settings window and ends.
    sayvo::SingleInstance instance;
    if (const std::optional<int> exitCode = instance.handOffIfRunning()) {
        return *exitCode;
    }
    if (!sayvo::prepareDesktopSession()) {
        return 1;
    }
    sayvo::installSystemLog();

    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Sayvo"));
    QApplication::setOrganizationName(
        QString::fromLatin1(sayvo::PreferenceStoreQSettings::kOrganization));
    QApplication::setApplicationDisplayName(QStringLiteral("Sayvo"));

    const std::unique_ptr<sayvo::PreferenceStore> preferences
        = sayvo::createNativePreferenceStore();
    sayvo::AppDelegate delegate(*preferences, sayvo::AppPlatform::native());
    QObject::connect(&app, &QCoreApplication::aboutToQuit, &delegate,
        &sayvo::AppDelegate::applicationWillTerminate);
    // SIGTERM and SIGINT end the run like Quit does, so the engine is shut down too.
    sayvo::ShutdownSignals shutdownSignals(&app);
    delegate.applicationDidFinishLaunching();
    instance.serve(delegate);
    return QApplication::exec();
}
