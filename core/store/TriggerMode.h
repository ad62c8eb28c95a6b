#pragma once

#include <QString>

#include <array>
#include <optional>

namespace sayvo {

// Whether the trigger is held while speaking or pressed once to start and once to stop.
enum class TriggerMode {
    holdToTalk,
    toggle,
};

inline constexpr std::array kAllTriggerModes {TriggerMode::holdToTalk, TriggerMode::toggle};

QString rawValue(TriggerMode mode);
std::optional<TriggerMode> triggerModeFromRaw(const QString &raw);
QString displayName(TriggerMode mode);

} // namespace sayvo
