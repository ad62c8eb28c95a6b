#include "desktop/wayland/WaylandConnection.h"

#include "base/Logging.h"

#include <QDeadlineTimer>
#include <QSocketNotifier>

#include <wayland-client.h>

#include <algorithm>
#include <cerrno>
#include <poll.h>
#include <system_error>

namespace sayvo {

namespace {

bool readable(int fd, int timeoutMs)
{
    pollfd descriptor {fd, POLLIN, 0};
    return ::poll(&descriptor, 1, timeoutMs) > 0;
}

} // namespace

std::unique_ptr<WaylandConnection> WaylandConnection::open(const QString &purpose)
{
    wl_display *display = wl_display_connect(nullptr);
    if (!display) {
        return nullptr;
    }
    std::unique_ptr<WaylandConnection> connection(new WaylandConnection(display, purpose));
    static const wl_registry_listener kRegistryListener = {registryGlobal, registryGlobalRemove};
    connection->m_registry = wl_display_get_registry(display);
    wl_registry_add_listener(connection->m_registry, &kRegistryListener, connection.get());
    if (!connection->roundtrip()) {
        return nullptr;
    }
    connection->m_seat = static_cast<wl_seat *>(connection->bind(&wl_seat_interface, 1));
    return connection;
}

WaylandConnection::WaylandConnection(wl_display *display, QString purpose)
    : m_display(display), m_purpose(std::move(purpose))
{
    m_notifier = std::make_unique<QSocketNotifier>(fd(), QSocketNotifier::Read);
    connect(
        m_notifier.get(), &QSocketNotifier::activated, this, &WaylandConnection::dispatchPending);
}

WaylandConnection::~WaylandConnection()
{
    m_notifier.reset();
    if (m_seat) {
        wl_proxy_destroy(reinterpret_cast<wl_proxy *>(m_seat));
    }
    if (m_registry) {
        wl_registry_destroy(m_registry);
    }
    wl_display_disconnect(m_display);
}

int WaylandConnection::fd() const
{
    return wl_display_get_fd(m_display);
}

void WaylandConnection::registryGlobal(
    void *data, wl_registry *, uint32_t name, const char *interface, uint32_t version)
{
    static_cast<WaylandConnection *>(data)->m_globals.push_back(
        {name, QString::fromLatin1(interface), version});
}

void WaylandConnection::registryGlobalRemove(void *data, wl_registry *, uint32_t name)
{
    auto &globals = static_cast<WaylandConnection *>(data)->m_globals;
    globals.erase(std::remove_if(globals.begin(), globals.end(),
                      [name](const Global &global) { return global.name == name; }),
        globals.end());
}

bool WaylandConnection::offers(const char *interfaceName) const
{
    return std::any_of(m_globals.begin(), m_globals.end(), [interfaceName](const Global &global) {
        return global.interface == QLatin1String(interfaceName);
    });
}

void *WaylandConnection::bind(const wl_interface *interface, uint32_t maxVersion)
{
    for (const Global &global : m_globals) {
        if (global.interface == QLatin1String(interface->name)) {
            return wl_registry_bind(
                m_registry, global.name, interface, std::min(global.version, maxVersion));
        }
    }
    return nullptr;
}

bool WaylandConnection::checkError()
{
    const int error = wl_display_get_error(m_display);
    if (error == 0 || m_lost) {
        return m_lost;
    }
    m_lost = true;
    m_notifier->setEnabled(false);
    Logging::shared().error(
        QStringLiteral("wayland (%1): the compositor ended the connection: %2")
            .arg(m_purpose, QString::fromStdString(std::generic_category().message(error))));
    emit lost();
    return true;
}

void WaylandConnection::flush()
{
    if (m_lost) {
        return;
    }
    // A full socket (EAGAIN) keeps the rest for the next flush.
    if (wl_display_flush(m_display) < 0 && errno != EAGAIN) {
        checkError();
    }
}

void WaylandConnection::dispatchPending()
{
    if (m_lost) {
        return;
    }
    while (wl_display_prepare_read(m_display) != 0) {
        if (wl_display_dispatch_pending(m_display) < 0) {
            checkError();
            return;
        }
    }
    flush();
    if (readable(fd(), 0)) {
        if (wl_display_read_events(m_display) < 0) {
            checkError();
            return;
        }
    } else {
        wl_display_cancel_read(m_display);
    }
    if (wl_display_dispatch_pending(m_display) < 0) {
        checkError();
    }
}

bool WaylandConnection::roundtrip(int timeoutMs)
{
    if (m_lost) {
        return false;
    }
    bool done = false;
    static const wl_callback_listener kDone = {[](void *data, wl_callback *callback, uint32_t) {
        if (data) {
            *static_cast<bool *>(data) = true;
        }
        wl_callback_destroy(callback);
    }};
    wl_callback *callback = wl_display_sync(m_display);
    wl_callback_add_listener(callback, &kDone, &done);
    flush();
    const QDeadlineTimer deadline(timeoutMs);
    while (!done && !m_lost) {
        dispatchPending();
        if (done || m_lost) {
            break;
        }
        const qint64 remaining = deadline.remainingTime();
        if (remaining <= 0) {
            // The answer may still come; it must not write to this frame then.
            wl_callback_set_user_data(callback, nullptr);
            return false;
        }
        readable(fd(), int(remaining));
    }
    return done;
}

} // namespace sayvo
