#pragma once

#include <QString>

#include <array>
#include <optional>

namespace sayvo {

// Which key starts dictation. Stored by its raw value; the order is the order offered to the user.
enum class HotkeyTrigger {
    fnGlobe,
    f5,
    rightOption,
    menuBarToggle,
};

inline constexpr std::array kAllHotkeyTriggers {HotkeyTrigger::fnGlobe, HotkeyTrigger::f5,
    HotkeyTrigger::rightOption, HotkeyTrigger::menuBarToggle};

QString rawValue(HotkeyTrigger trigger);
std::optional<HotkeyTrigger> hotkeyTriggerFromRaw(const QString &raw);

// The key's name as this platform's keyboard labels it (defined per platform).
QString displayName(HotkeyTrigger trigger);

} // namespace sayvo
