#include "desktop/x11/WorkspaceX11.h"

#include "desktop/x11/X11Connection.h"

#include <X11/Xutil.h>

namespace sayvo {

WorkspaceX11::WorkspaceX11() = default;
WorkspaceX11::~WorkspaceX11() = default;

std::optional<FrontApplication> WorkspaceX11::frontmostApplication()
{
    if (!m_connection) {
        m_connection = X11Connection::open();
        if (!m_connection) {
            return std::nullopt;
        }
    }
    const auto window = m_connection->windowProperty(
        m_connection->root(), m_connection->atom("_NET_ACTIVE_WINDOW"));
    if (!window) {
        return std::nullopt;
    }
    FrontApplication front;
    if (const auto pid = m_connection->cardinal(*window, m_connection->atom("_NET_WM_PID"))) {
        front.pid = qint64(*pid);
    }
    XClassHint hint {nullptr, nullptr};
    m_connection->clearError();
    if (XGetClassHint(m_connection->display(), *window, &hint)) {
        if (hint.res_class && *hint.res_class) {
            front.bundleId = QString::fromUtf8(hint.res_class);
        }
        if (hint.res_name && *hint.res_name) {
            front.name = QString::fromUtf8(hint.res_name);
        }
        XFree(hint.res_name);
        XFree(hint.res_class);
    }
    // The active window may have been destroyed since the window manager named it.
    if (m_connection->hadError() && front.pid == 0) {
        return std::nullopt;
    }
    return front;
}

} // namespace sayvo
