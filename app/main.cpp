// Sayvo: push-to-talk dictation from the system tray or the menu bar.
#include "app/AppDelegate.h"
#include "app/ApplicationPlatform.h"
#include "app/CommandLine.h"
#include "app/ShutdownSignals.h"
#include "app/SingleInstance.h"
#include "base/AppIdentity.h"
#include "store/NativePreferenceStore.h"
#include "store/PreferenceStoreQSettings.h"

#include <QApplication>
#include <QIcon>

int main(int argc, char **argv)
{
    // Before any desktop connection: --help, --version and `sayvo trigger ...` work without
    // a display (the `sayvo` launcher answers them the same way before it gets here).
    if (const std::optional<int> exitCode = sayvo::CommandLine::handle(argc, argv)) {
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
    // Desktops tie windows to the installed desktop entry by this name (the Wayland app id);
    // the icon comes from the icon theme where an installation put it.
    QGuiApplication::setDesktopFileName(QString::fromLatin1(sayvo::kAppId));
    if (const QIcon icon = QIcon::fromTheme(QString::fromLatin1(sayvo::kAppId)); !icon.isNull()) {
        QApplication::setWindowIcon(icon);
    }

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
