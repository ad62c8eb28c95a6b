#pragma once

#include "desktop/WindowList.h"

namespace sayvo::testing {

// The on-screen windows are whatever the test sets (absent: the list cannot be read).
class FakeWindowList : public WindowList
{
public:
    std::optional<std::vector<WindowInfo>> onScreenWindows() override
    {
        ++queryCount;
        return windows;
    }

    std::optional<std::vector<WindowInfo>> windows;
    int queryCount = 0;
};

} // namespace sayvo::testing
