#include "app/ApplicationPlatform.h"

#include "desktop/DesktopSessionFacts.h"
#include "runtime/AppBundle.h"

#include <QCoreApplication>

#include <QProcessEnvironment>
#include <QString>
#include <QtGlobal>

#include <cstdio>

namespace sayvo {

bool prepareDesktopSession()
{
    if (!qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) {
        return true;
    }
    switch (sessionKind(QProcessEnvironment::systemEnvironment())) {
    case SessionKind::wayland:
        // Qt's own Wayland platform; XWayland only where qt6-wayland is not installed.
        qputenv("QT_QPA_PLATFORM", "wayland;xcb");
        return true;
    case SessionKind::x11:
        qputenv("QT_QPA_PLATFORM", "xcb");
        return true;
    case SessionKind::none:
        break;
    }
    std::fprintf(stderr,
        "sayvo: no desktop to run on (neither DISPLAY nor WAYLAND_DISPLAY is set).\n"
        "To see a whole dictation without a desktop, run ./dev demo.\n");
    return false;
}

void installSystemLog()
{
    // stderr is the system log here: systemd and desktop session managers route it into the
    // journal. The prefix tells Sayvo's lines from the rest of the session's.
    qSetMessagePattern(
        QStringLiteral("sayvo %{if-category}[%{category}] %{endif}%{type}: %{message}"));
}

QString launchCommandPath()
{
    return mainAppBundle().bundlePath.value_or(QCoreApplication::applicationFilePath());
}

void becomeAccessoryApplication()
{
    // A tray application has no dock entry or application menu bar on Linux desktops.
}

void activateIgnoringOtherApps()
{
    // X11 window managers activate the window itself; there is no application to activate.
}

} // namespace sayvo
