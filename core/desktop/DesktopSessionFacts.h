#pragma once

#include <QProcessEnvironment>
#include <QString>

namespace sayvo {

// Which kind of graphical session Sayvo was started in.
enum class SessionKind {
    x11,
    wayland,
    none,
};

// Read from the session's variables, not from whether an X display happens to answer: under
// Wayland an XWayland display answers too, but only for the X11 windows.
SessionKind sessionKind(const QProcessEnvironment &environment);

// What the session offers Sayvo, gathered once at launch by this platform's factory.
struct DesktopSessionFacts
{
    SessionKind kind = SessionKind::none;
    // XDG_CURRENT_DESKTOP ("sway", "GNOME", "KDE", ...), for advice only.
    QString desktopName;
    // The Wayland protocols the compositor offers Sayvo.
    bool dataControl = false;
    bool virtualKeyboard = false;
    bool foreignToplevel = false;
    // The desktop portal offers its Clipboard interface (xdg-desktop-portal 1.18 and later).
    bool portalClipboard = false;
};

} // namespace sayvo
