#include "desktop/wayland/WorkspaceWayland.h"

#include "desktop/wayland/WaylandConnection.h"

#include "wlr-foreign-toplevel-management-unstable-v1-client-protocol.h"

#include <QMetaObject>

#include <wayland-client.h>

namespace sayvo {

struct WorkspaceWayland::Listeners
{
    static WorkspaceWayland &workspace(void *data)
    {
        return *static_cast<WorkspaceWayland *>(data);
    }

    static void toplevel(
        void *data, zwlr_foreign_toplevel_manager_v1 *, zwlr_foreign_toplevel_handle_v1 *handle)
    {
        workspace(data).m_toplevels[handle];
        zwlr_foreign_toplevel_handle_v1_add_listener(handle, &kHandle, data);
    }
    static void finished(void *data, zwlr_foreign_toplevel_manager_v1 *)
    {
        workspace(data).m_finished = true;
    }
    static void title(void *data, zwlr_foreign_toplevel_handle_v1 *handle, const char *title)
    {
        workspace(data).m_toplevels[handle].title = QString::fromUtf8(title);
    }
    static void appId(void *data, zwlr_foreign_toplevel_handle_v1 *handle, const char *appId)
    {
        workspace(data).m_toplevels[handle].appId = QString::fromUtf8(appId);
    }
    static void outputEnter(void *, zwlr_foreign_toplevel_handle_v1 *, wl_output *) { }
    static void outputLeave(void *, zwlr_foreign_toplevel_handle_v1 *, wl_output *) { }
    static void state(void *data, zwlr_foreign_toplevel_handle_v1 *handle, wl_array *states)
    {
        bool activated = false;
        const auto *values = static_cast<const uint32_t *>(states->data);
        for (size_t i = 0; i < states->size / sizeof(uint32_t); ++i) {
            activated = activated || values[i] == ZWLR_FOREIGN_TOPLEVEL_HANDLE_V1_STATE_ACTIVATED;
        }
        workspace(data).m_toplevels[handle].pendingActivated = activated;
    }
    static void done(void *data, zwlr_foreign_toplevel_handle_v1 *handle)
    {
        workspace(data).handleDone(handle);
    }
    static void closed(void *data, zwlr_foreign_toplevel_handle_v1 *handle)
    {
        workspace(data).handleClosed(handle);
    }
    static void parent(void *, zwlr_foreign_toplevel_handle_v1 *, zwlr_foreign_toplevel_handle_v1 *)
    { }

    static constexpr zwlr_foreign_toplevel_manager_v1_listener kManager {toplevel, finished};
    static constexpr zwlr_foreign_toplevel_handle_v1_listener kHandle {
        title, appId, outputEnter, outputLeave, state, done, closed, parent};
};

WorkspaceWayland::WorkspaceWayland()
{
    m_connection = WaylandConnection::open(QStringLiteral("focused window"));
    if (!m_connection) {
        return;
    }
    m_manager = m_connection->bind(&zwlr_foreign_toplevel_manager_v1_interface, 3);
    if (!m_manager) {
        m_connection.reset();
        return;
    }
    zwlr_foreign_toplevel_manager_v1_add_listener(
        static_cast<zwlr_foreign_toplevel_manager_v1 *>(m_manager), &Listeners::kManager, this);
    // The toplevels that exist already arrive at once, each with its state.
    m_connection->roundtrip();
}

WorkspaceWayland::~WorkspaceWayland()
{
    if (!m_manager) {
        return;
    }
    for (const auto &[handle, toplevel] : m_toplevels) {
        zwlr_foreign_toplevel_handle_v1_destroy(
            static_cast<zwlr_foreign_toplevel_handle_v1 *>(handle));
    }
    zwlr_foreign_toplevel_manager_v1_destroy(
        static_cast<zwlr_foreign_toplevel_manager_v1 *>(m_manager));
    m_connection->flush();
}

bool WorkspaceWayland::isAvailable() const
{
    return m_manager && !m_finished && !m_connection->isLost();
}

void WorkspaceWayland::handleDone(void *handle)
{
    Toplevel &toplevel = m_toplevels[handle];
    toplevel.activated = toplevel.pendingActivated;
    if (toplevel.activated && m_active != handle) {
        m_active = handle;
        // Posted, so the handler's own questions are not asked from inside the dispatch.
        QMetaObject::invokeMethod(
            m_connection.get(), [this] { announceActivation(); }, Qt::QueuedConnection);
    } else if (!toplevel.activated && m_active == handle) {
        m_active = nullptr;
    }
}

void WorkspaceWayland::handleClosed(void *handle)
{
    if (m_active == handle) {
        m_active = nullptr;
    }
    m_toplevels.erase(handle);
    zwlr_foreign_toplevel_handle_v1_destroy(static_cast<zwlr_foreign_toplevel_handle_v1 *>(handle));
}

std::optional<FrontApplication> WorkspaceWayland::frontmostApplication()
{
    if (!isAvailable()) {
        return std::nullopt;
    }
    m_connection->dispatchPending();
    const auto found = m_toplevels.find(m_active);
    if (found == m_toplevels.end()) {
        return std::nullopt;
    }
    FrontApplication front;
    if (!found->second.appId.isEmpty()) {
        front.bundleId = found->second.appId;
        front.name = found->second.appId;
    }
    front.windowTitle = found->second.title;
    return front;
}

} // namespace sayvo
