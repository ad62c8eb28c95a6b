#include "WindowFactory.h"

#include <QWidget>

namespace sayvo {

std::unique_ptr<QWidget> makeSettingsWindow(
    SettingsStore &, UsageStatsStore &, SayvoCoordinator &, EngineSupervisor &, Permissions &)
{
    auto window = std::make_unique<QWidget>();
    window->resize(640, 440);
    return window;
}

std::unique_ptr<QWidget> makeSetupWindow(EngineSupervisor &)
{
    auto window = std::make_unique<QWidget>();
    window->resize(520, 420);
    return window;
}

std::unique_ptr<QWidget> makeCalibrationWindow(SayvoCoordinator &, EngineClient &)
{
    auto window = std::make_unique<QWidget>();
    window->resize(560, 460);
    return window;
}

} // namespace sayvo
