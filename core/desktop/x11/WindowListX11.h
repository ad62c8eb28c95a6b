#pragma once

#include "desktop/WindowList.h"

#include <memory>

namespace sayvo {

class X11Connection;

// The window manager's client list in stacking order (_NET_CLIENT_LIST_STACKING), front to
// back, mapped windows only, with _NET_WM_PID and _NET_WM_NAME (WM_NAME for clients that set
// only that). Main thread only.
class WindowListX11 : public WindowList
{
public:
    WindowListX11();
    ~WindowListX11() override;

    std::optional<std::vector<WindowInfo>> onScreenWindows() override;

private:
    std::unique_ptr<X11Connection> m_connection;
};

} // namespace sayvo
