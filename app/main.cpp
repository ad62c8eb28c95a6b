// Sayvo: push-to-talk dictation from the system tray.
#include "AppDelegate.h"
#include "PreferenceStoreQSettings.h"
#include "ShutdownSignals.h"

#include <QApplication>

#include <cstdio>

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM") && qEnvironmentVariableIsEmpty("DISPLAY")
        && qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY")) {
        std::fprintf(stderr,
            "sayvo: no desktop to run on (neither DISPLAY nor WAYLAND_DISPLAY is set).\n"
            "To see a whole dictation without a desktop, run ./dev demo.\n");
        return 1;
    }
    // Key grabs, synthetic paste and the window list go through X11; under Wayland, XWayland
    // provides them.
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM") && !qEnvironmentVariableIsEmpty("DISPLAY")) {
        qputenv("QT_QPA_PLATFORM", "xcb");
    }
    qSetMessagePattern(
        QStringLiteral("sayvo %{if-category}[%{category}] %{endif}%{type}: %{message}"));

    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Sayvo"));
    QApplication::setOrganizationName(
        QString::fromLatin1(sayvo::PreferenceStoreQSettings::kOrganization));
    QApplication::setApplicationDisplayName(QStringLiteral("Sayvo"));

    sayvo::PreferenceStoreQSettings preferences;
    sayvo::AppDelegate delegate(preferences, sayvo::AppPlatform::native());
    QObject::connect(&app, &QCoreApplication::aboutToQuit, &delegate,
        &sayvo::AppDelegate::applicationWillTerminate);
    // SIGTERM and SIGINT end the run like Quit does, so the engine is shut down too.
    sayvo::ShutdownSignals shutdownSignals(&app);
    delegate.applicationDidFinishLaunching();
    return QApplication::exec();
}
