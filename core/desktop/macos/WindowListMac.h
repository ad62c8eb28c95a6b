#pragma once

#include "desktop/WindowList.h"

namespace sayvo {

// The window server's list of on-screen windows, front to back, with each window's owner
// process and name. Names of other applications' windows need the Screen Recording
// permission; without it they are simply absent.
class WindowListMac : public WindowList
{
public:
    std::optional<std::vector<WindowInfo>> onScreenWindows() override;
};

} // namespace sayvo
