#include "desktop/DesktopShortcut.h"

namespace sayvo {

QString shortcutNotation(HotkeyTrigger trigger)
{
    switch (trigger) {
    case HotkeyTrigger::fnGlobe:
        return QStringLiteral("Control_R");
    case HotkeyTrigger::f5:
        return QStringLiteral("F5");
    case HotkeyTrigger::rightOption:
        return QStringLiteral("Alt_R");
    case HotkeyTrigger::menuBarToggle:
        break;
    }
    return {};
}

} // namespace sayvo
