#pragma once

#include "desktop/Workspace.h"

#include <memory>

namespace sayvo {

class X11Connection;

// The owner of the window manager's active window (_NET_ACTIVE_WINDOW): its process id
// (_NET_WM_PID), WM_CLASS class as the bundle identifier and WM_CLASS instance as the
// application name (the ICCCM's "application name"). Main thread only.
class WorkspaceX11 : public Workspace
{
public:
    WorkspaceX11();
    ~WorkspaceX11() override;

    std::optional<FrontApplication> frontmostApplication() override;

private:
    std::unique_ptr<X11Connection> m_connection;
};

} // namespace sayvo
