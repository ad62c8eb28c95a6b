#pragma once

#include "desktop/Workspace.h"

#include <map>
#include <memory>

namespace sayvo {

class WaylandConnection;

// The activated toplevel of zwlr_foreign_toplevel_manager_v1: its app id stands for the bundle
// identifier and the name, its title for the window title; the protocol names no process.
// Each change of the activated toplevel runs the activation handler. Main thread only.
class WorkspaceWayland : public Workspace
{
public:
    WorkspaceWayland();
    ~WorkspaceWayland() override;

    // False when the compositor offers no foreign-toplevel manager, or the connection is gone.
    bool isAvailable() const;

    std::optional<FrontApplication> frontmostApplication() override;

    // Called by the protocol's listeners, defined with the adapter.
    struct Listeners;

private:
    struct Toplevel
    {
        QString title;
        QString appId;
        // The state of the latest `done`, and the one being announced before it.
        bool activated = false;
        bool pendingActivated = false;
    };

    void handleDone(void *handle);
    void handleClosed(void *handle);

    std::unique_ptr<WaylandConnection> m_connection;
    void *m_manager = nullptr;
    std::map<void *, Toplevel> m_toplevels;
    void *m_active = nullptr;
    bool m_finished = false;
};

} // namespace sayvo
