#pragma once

#include <QByteArray>
#include <QObject>
#include <QSocketNotifier>

#include <X11/Xlib.h>

#include <functional>
#include <memory>
#include <optional>

namespace sayvo {

// One private Xlib connection of an adapter, with its events dispatched on the main thread.
// Main thread only. Xlib reads events into its own queue during round trips, where the socket
// notifier cannot see them, so every round trip is followed by a queued look at that queue.
//
// When the X server goes away the connection is lost, not fatal: Xlib's default is to end the
// process, which would skip Sayvo's own shutdown. A lost connection reads no more events and
// every request on it fails at once.
class X11Connection : public QObject
{
    Q_OBJECT

public:
    // Null when the display named by $DISPLAY cannot be opened.
    static std::unique_ptr<X11Connection> open();
    ~X11Connection() override;

    Display *display() const { return m_display; }
    Window root() const { return m_root; }
    // The X server closed the connection or stopped answering on it.
    bool isLost() const { return m_lost; }
    Atom atom(const char *name) const;

    void setEventHandler(std::function<void(XEvent &)> handler);
    // Runs the handler for every event Xlib has already read.
    void dispatchPending();

    // Forgets earlier protocol errors; hadError() then says whether a request since failed.
    void clearError();
    // Waits for the server to process every request sent so far.
    bool hadError();

    // Waits up to timeoutMs for an event that matches; other events go to the handler
    // meanwhile, so a selection owner can still be served while it waits on someone else.
    bool waitForEvent(
        const std::function<bool(const XEvent &)> &matches, XEvent &event, int timeoutMs);

    // The property's raw bytes when it exists with this type and format 8 or 32 (format-32
    // items come back as one unsigned long each, as Xlib stores them).
    struct Property
    {
        Atom type = None;
        int format = 0;
        QByteArray data;
        unsigned long itemCount = 0;
    };
    std::optional<Property> property(Window window, Atom name, bool deleteAfterRead = false);
    std::optional<unsigned long> cardinal(Window window, Atom name);
    std::optional<Window> windowProperty(Window window, Atom name);

private:
    explicit X11Connection(Display *display);
    void scheduleDispatch();
    void markLost();
    static int handleIOError(Display *display);

    Display *m_display = nullptr;
    Window m_root = None;
    std::unique_ptr<QSocketNotifier> m_notifier;
    std::function<void(XEvent &)> m_handler;
    bool m_dispatchScheduled = false;
    bool m_lost = false;
};

} // namespace sayvo
