#include "desktop/x11/WindowListX11.h"

#include "desktop/x11/X11Connection.h"

#include <X11/Xatom.h>

namespace sayvo {

// Connected now: the first dictation may look through the windows as its key goes down, and
// the connection handshake there would hold the microphone up.
WindowListX11::WindowListX11() : m_connection(X11Connection::open()) { }
WindowListX11::~WindowListX11() = default;

std::optional<std::vector<WindowInfo>> WindowListX11::onScreenWindows()
{
    if (!m_connection) {
        m_connection = X11Connection::open();
        if (!m_connection) {
            return std::nullopt;
        }
    }
    const auto stacking = m_connection->property(
        m_connection->root(), m_connection->atom("_NET_CLIENT_LIST_STACKING"));
    if (!stacking || stacking->format != 32 || stacking->type != XA_WINDOW) {
        return std::nullopt;
    }
    const auto *windows = reinterpret_cast<const unsigned long *>(stacking->data.constData());
    const Atom pidAtom = m_connection->atom("_NET_WM_PID");
    const Atom netName = m_connection->atom("_NET_WM_NAME");
    const Atom utf8 = m_connection->atom("UTF8_STRING");
    std::vector<WindowInfo> result;
    // The list runs bottom to top.
    for (unsigned long i = stacking->itemCount; i-- > 0;) {
        const Window window = Window(windows[i]);
        XWindowAttributes attributes;
        m_connection->clearError();
        if (!XGetWindowAttributes(m_connection->display(), window, &attributes)
            || m_connection->hadError() || attributes.map_state != IsViewable) {
            continue;
        }
        WindowInfo info;
        if (const auto pid = m_connection->cardinal(window, pidAtom)) {
            info.ownerPid = qint64(*pid);
        }
        if (const auto name = m_connection->property(window, netName);
            name && name->format == 8 && name->type == utf8) {
            info.name = QString::fromUtf8(name->data);
        } else if (const auto legacy = m_connection->property(window, XA_WM_NAME);
                   legacy && legacy->format == 8 && legacy->type == XA_STRING) {
            info.name = QString::fromLatin1(legacy->data);
        }
        result.push_back(std::move(info));
    }
    return result;
}

} // namespace sayvo
