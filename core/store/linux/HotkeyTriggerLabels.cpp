#include "store/HotkeyTrigger.h"

namespace sayvo {

// On a PC keyboard the Fn key never reaches the desktop, so the keys that play the roles of
// Fn/Globe and Right Option are Right Ctrl and Right Alt (AltGr).
QString displayName(HotkeyTrigger trigger)
{
    switch (trigger) {
    case HotkeyTrigger::fnGlobe:
        return QStringLiteral("Right Ctrl");
    case HotkeyTrigger::f5:
        return QStringLiteral("F5");
    case HotkeyTrigger::rightOption:
        return QStringLiteral("Right Alt");
    case HotkeyTrigger::menuBarToggle:
        return QStringLiteral("Tray icon click (toggle)");
    }
    return {};
}

} // namespace sayvo
