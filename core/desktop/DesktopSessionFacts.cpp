#include "desktop/DesktopSessionFacts.h"

namespace sayvo {

SessionKind sessionKind(const QProcessEnvironment &environment)
{
    const QString type = environment.value(QStringLiteral("XDG_SESSION_TYPE"));
    // A compositor names its socket for its clients; a nested one inside an X11 session too.
    if (!environment.value(QStringLiteral("WAYLAND_DISPLAY")).isEmpty()
        || type == QLatin1String("wayland")) {
        return SessionKind::wayland;
    }
    if (!environment.value(QStringLiteral("DISPLAY")).isEmpty() || type == QLatin1String("x11")) {
        return SessionKind::x11;
    }
    return SessionKind::none;
}

} // namespace sayvo
