#include "desktop/x11/WorkspaceX11.h"

#include "desktop/x11/X11Connection.h"

#include <X11/Xatom.h>

#include <QList>

namespace sayvo {

// Connected now: the first dictation asks for the window in front as its key goes down, and
// the connection handshake there would hold the microphone up.
WorkspaceX11::WorkspaceX11() : m_connection(X11Connection::open()) { }
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
    const auto pid = m_connection->cardinal(*window, m_connection->atom("_NET_WM_PID"));
    if (pid) {
        front.pid = qint64(*pid);
    }
    // WM_CLASS is the instance name and the class, each ending in a zero byte. Read as a
    // property, whose reply carries its own error: no extra round trip to learn of one.
    const auto wmClass = m_connection->property(*window, XA_WM_CLASS);
    if (wmClass && wmClass->format == 8) {
        const QList<QByteArray> parts = wmClass->data.split('\0');
        if (!parts.value(0).isEmpty()) {
            front.name = QString::fromUtf8(parts.value(0));
        }
        if (!parts.value(1).isEmpty()) {
            front.bundleId = QString::fromUtf8(parts.value(1));
        }
    }
    // The active window may have been destroyed since the window manager named it.
    if (!pid && !wmClass) {
        return std::nullopt;
    }
    return front;
}

} // namespace sayvo
