#include "app/WindowFactory.h"

#include "app/ApplicationPlatform.h"
#include "app/Permissions.h"
#include "calibration/CalibrationController.h"
#include "engineclient/EngineClient.h"
#include "ui/CalibrationWindow.h"
#include "ui/EngineSetupWindow.h"
#include "ui/LoginItem.h"
#include "ui/SettingsWindow.h"

namespace sayvo {

std::unique_ptr<QWidget> makeSettingsWindow(SettingsStore &settings, UsageStatsStore &usageStats,
    SayvoCoordinator &coordinator, EngineSupervisor &, Permissions &permissions,
    const std::vector<DesktopCapabilityStatus> &desktopCapabilities)
{
    auto window = std::make_unique<SettingsWindow>(
        settings, usageStats, coordinator, [&permissions] { return permissions.snapshot(); },
        [&permissions](Permission permission) { permissions.openSettings(permission); },
        makeLoginItem(launchCommandPath()));
    window->setDesktopCapabilities(desktopCapabilities);
    return window;
}

std::unique_ptr<QWidget> makeSetupWindow(EngineSupervisor &engineSupervisor)
{
    return std::make_unique<EngineSetupWindow>(engineSupervisor);
}

std::unique_ptr<QWidget> makeCalibrationWindow(
    SayvoCoordinator &coordinator, EngineClient &engineClient, SettingsStore &settings)
{
    auto *controller = new CalibrationController(
        coordinator, engineClient, settings, CalibrationPrompt::readSlice());
    auto window = std::make_unique<CalibrationWindow>(*controller);
    // The controller lives exactly as long as its window, which the app keeps for good.
    controller->setParent(window.get());
    return window;
}

} // namespace sayvo
