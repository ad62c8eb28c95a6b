#include "PermissionHelp.h"

namespace sayvo {

// Linux has no privacy panes: each permission is a property of the desktop session, so the
// user is told which part of the session to fix and how.
PermissionHelp permissionHelp(Permission permission)
{
    switch (permission) {
    case Permission::microphone:
        return {QStringLiteral("Microphone"),
            QStringLiteral(
                "Sayvo records through the PulseAudio sound server (PipeWire provides it too). "
                "It counts as granted when the sound server answers.\n\n"
                "Check that it runs with:\n    pactl info\n\n"
                "Choose and unmute your input in your desktop's Sound settings, or with "
                "pavucontrol (Input Devices tab)."),
            {}};
    case Permission::accessibility:
        return {QStringLiteral("Accessibility"),
            QStringLiteral(
                "Sayvo reads the focused text field and types into it through the AT-SPI "
                "accessibility bus. It counts as granted when the bus is enabled.\n\n"
                "Turn it on with:\n"
                "    gsettings set org.gnome.desktop.interface toolkit-accessibility true\n\n"
                "then log out and back in so that running applications join the bus."),
            {}};
    case Permission::inputMonitoring:
        return {QStringLiteral("Input Monitoring"),
            QStringLiteral(
                "Sayvo watches its trigger key through the X server. It counts as granted "
                "when the X server accepts the key grab.\n\n"
                "Use an X11 (Xorg) session: on the login screen, choose the \"on Xorg\" session. "
                "If another application already grabs the key, pick another trigger key in "
                "the Trigger tab."),
            {}};
    }
    return {};
}

} // namespace sayvo
