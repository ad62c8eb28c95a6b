#include "store/HotkeyTrigger.h"
#include "store/InsertionMethod.h"
#include "store/TriggerMode.h"

namespace sayvo {

QString rawValue(HotkeyTrigger trigger)
{
    switch (trigger) {
    case HotkeyTrigger::fnGlobe:
        return QStringLiteral("fnGlobe");
    case HotkeyTrigger::f5:
        return QStringLiteral("f5");
    case HotkeyTrigger::rightOption:
        return QStringLiteral("rightOption");
    case HotkeyTrigger::menuBarToggle:
        return QStringLiteral("menuBarToggle");
    }
    return {};
}

std::optional<HotkeyTrigger> hotkeyTriggerFromRaw(const QString &raw)
{
    for (HotkeyTrigger trigger : kAllHotkeyTriggers) {
        if (rawValue(trigger) == raw) {
            return trigger;
        }
    }
    return std::nullopt;
}

QString rawValue(TriggerMode mode)
{
    return mode == TriggerMode::toggle ? QStringLiteral("toggle") : QStringLiteral("holdToTalk");
}

std::optional<TriggerMode> triggerModeFromRaw(const QString &raw)
{
    for (TriggerMode mode : kAllTriggerModes) {
        if (rawValue(mode) == raw) {
            return mode;
        }
    }
    return std::nullopt;
}

QString displayName(TriggerMode mode)
{
    return mode == TriggerMode::toggle ? QStringLiteral("Toggle") : QStringLiteral("Hold to talk");
}

QString rawValue(InsertionMethod method)
{
    return method == InsertionMethod::axDirect ? QStringLiteral("axDirect")
                                               : QStringLiteral("paste");
}

std::optional<InsertionMethod> insertionMethodFromRaw(const QString &raw)
{
    for (InsertionMethod method : kAllInsertionMethods) {
        if (rawValue(method) == raw) {
            return method;
        }
    }
    return std::nullopt;
}

QString displayName(InsertionMethod method)
{
    return method == InsertionMethod::axDirect ? QStringLiteral("Accessibility (direct)")
                                               : QStringLiteral("Paste (recommended)");
}

} // namespace sayvo
