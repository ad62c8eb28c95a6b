#pragma once

#include "desktop/DesktopPlan.h"

#include <memory>
#include <vector>

class QWidget;

namespace sayvo {

class EngineClient;
class EngineSupervisor;
class Permissions;
class SayvoCoordinator;
class SettingsStore;
class UsageStatsStore;

// The content of the three auxiliary windows, built on first request.
std::unique_ptr<QWidget> makeSettingsWindow(SettingsStore &settings, UsageStatsStore &usageStats,
    SayvoCoordinator &coordinator, EngineSupervisor &engineSupervisor, Permissions &permissions,
    const std::vector<DesktopCapabilityStatus> &desktopCapabilities);
std::unique_ptr<QWidget> makeSetupWindow(EngineSupervisor &engineSupervisor);
std::unique_ptr<QWidget> makeCalibrationWindow(
    SayvoCoordinator &coordinator, EngineClient &engineClient, SettingsStore &settings);

} // namespace sayvo
