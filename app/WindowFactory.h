#pragma once

#include "desktop/DesktopPlan.h"

#include <functional>
#include <memory>
#include <vector>

class QWidget;

namespace sayvo {

class EngineClient;
class EngineSupervisor;
class Permissions;
class SayvoCoordinator;
class SettingsStore;
class TrayAvailability;
class UsageStatsStore;

// The content of the three auxiliary windows, built on first request. The settings window
// says so while the desktop has no tray, and offers `quit` then.
std::unique_ptr<QWidget> makeSettingsWindow(SettingsStore &settings, UsageStatsStore &usageStats,
    SayvoCoordinator &coordinator, EngineSupervisor &engineSupervisor, Permissions &permissions,
    TrayAvailability &tray, const std::vector<DesktopCapabilityStatus> &desktopCapabilities,
    std::function<void()> quit);
std::unique_ptr<QWidget> makeSetupWindow(EngineSupervisor &engineSupervisor);
std::unique_ptr<QWidget> makeCalibrationWindow(
    SayvoCoordinator &coordinator, EngineClient &engineClient, SettingsStore &settings);

} // namespace sayvo
