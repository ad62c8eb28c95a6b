#include "store/HotkeyTrigger.h"

namespace sayvo {

QString displayName(HotkeyTrigger trigger)
{
    switch (trigger) {
    case HotkeyTrigger::fnGlobe:
        return QString::fromUtf8("Fn / 🌐 (Globe)");
    case HotkeyTrigger::f5:
        return QStringLiteral("F5");
    case HotkeyTrigger::rightOption:
        return QStringLiteral("Right Option");
    case HotkeyTrigger::menuBarToggle:
        return QStringLiteral("Menu bar click (toggle)");
    }
    return {};
}

} // namespace sayvo
