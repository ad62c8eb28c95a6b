#pragma once

#include <QObject>
#include <QString>

#include <cstdint>
#include <memory>
#include <vector>

class QSocketNotifier;
struct wl_display;
struct wl_interface;
struct wl_registry;
struct wl_seat;

namespace sayvo {

// One adapter's own connection to the compositor named by WAYLAND_DISPLAY, with its events
// dispatched on the main thread. Each adapter has a connection of its own, as the X11 adapters
// do, so a protocol error that one of them provokes (a compositor refusing a virtual keyboard
// ends the connection) leaves the others working. Every wait is bounded: a compositor that
// stops answering costs at most the stated time-out. Main thread only.
class WaylandConnection : public QObject
{
    Q_OBJECT

public:
    static constexpr int kRoundtripTimeoutMs = 500;

    // Null when no compositor answers. `purpose` names the connection in the log.
    static std::unique_ptr<WaylandConnection> open(const QString &purpose);
    ~WaylandConnection() override;

    wl_display *display() const { return m_display; }
    int fd() const;
    // The first seat, bound at open; null when the compositor offers none.
    wl_seat *seat() const { return m_seat; }

    bool offers(const char *interfaceName) const;
    // Binds the compositor's global of this interface at no more than maxVersion; null when
    // it offers none.
    void *bind(const wl_interface *interface, uint32_t maxVersion);

    // Sends the requests made so far.
    void flush();
    // Reads whatever the compositor has sent and runs the handlers, without waiting.
    void dispatchPending();
    // Waits until the compositor has handled every request so far and its answers were
    // dispatched. False after the time-out or when the connection is gone.
    bool roundtrip(int timeoutMs = kRoundtripTimeoutMs);

    // The compositor closed the connection or ended it with a protocol error; reported once.
    bool isLost() const { return m_lost; }

signals:
    void lost();

private:
    struct Global
    {
        uint32_t name = 0;
        QString interface;
        uint32_t version = 0;
    };

    WaylandConnection(wl_display *display, QString purpose);
    bool checkError();
    static void registryGlobal(
        void *data, wl_registry *registry, uint32_t name, const char *interface, uint32_t version);
    static void registryGlobalRemove(void *data, wl_registry *registry, uint32_t name);

    wl_display *m_display = nullptr;
    wl_registry *m_registry = nullptr;
    wl_seat *m_seat = nullptr;
    QString m_purpose;
    std::vector<Global> m_globals;
    std::unique_ptr<QSocketNotifier> m_notifier;
    bool m_lost = false;
};

} // namespace sayvo
