// Sayvo: push-to-talk dictation from the system tray or the menu bar.
#include "app/AbruptExitGuard.h"
#include "app/AppDelegate.h"
#include "app/ApplicationPlatform.h"
#include "app/ShutdownSignals.h"
#include "store/NativePreferenceStore.h"
#include "store/PreferenceStoreQSettings.h"

#include <QApplication>

int main(int argc, char **argv)
{
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
    // Qt ends the process itself when the X server goes away; the engine is stopped first.
    sayvo::AbruptExitGuard abruptExit([&] {
        delegate.terminateNow();
        preferences->sync();
    });
    return QApplication::exec();
}
