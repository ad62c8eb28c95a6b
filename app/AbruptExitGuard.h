#pragma once

#include <functional>
#include <thread>

namespace sayvo {

// Makes an exit() that bypasses the event loop still shut Sayvo down. Qt's X11 platform ends
// the process with exit(1) from inside event processing as soon as its display connection
// breaks (the X server went away), so neither aboutToQuit nor any destructor in main runs:
// the engine would outlive the app and unsaved settings would be lost. While a guard exists,
// such an exit on the main thread first runs `shutdown` and then ends the process at once with
// status 1, skipping the static destructors, which would tear down objects that still refer to
// the lost display. A guard is made on the main thread, one at a time, and made before exit
// handlers that must not run after it.
class AbruptExitGuard
{
public:
    explicit AbruptExitGuard(std::function<void()> shutdown);
    ~AbruptExitGuard();
    AbruptExitGuard(const AbruptExitGuard &) = delete;
    AbruptExitGuard &operator=(const AbruptExitGuard &) = delete;

private:
    static void onExit();

    std::function<void()> m_shutdown;
    std::thread::id m_mainThread;
};

} // namespace sayvo
