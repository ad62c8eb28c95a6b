#include "desktop/x11/X11Connection.h"

#include <QDeadlineTimer>
#include <QMetaObject>

#include <poll.h>

#include <map>

namespace sayvo {

namespace {

// Xlib reports protocol errors through one process-wide handler. Errors on our connections
// are recorded per display; others go to whoever installed a handler before us.
std::map<Display *, int> &lastErrors()
{
    static std::map<Display *, int> errors;
    return errors;
}

XErrorHandler g_previousHandler = nullptr;

int recordError(Display *display, XErrorEvent *error)
{
    auto &errors = lastErrors();
    if (const auto found = errors.find(display); found != errors.end()) {
        found->second = error->error_code;
        return 0;
    }
    return g_previousHandler ? g_previousHandler(display, error) : 0;
}

} // namespace

std::unique_ptr<X11Connection> X11Connection::open()
{
    Display *display = XOpenDisplay(nullptr);
    if (!display) {
        return nullptr;
    }
    static const bool installed = [] {
        g_previousHandler = XSetErrorHandler(recordError);
        return true;
    }();
    Q_UNUSED(installed);
    return std::unique_ptr<X11Connection>(new X11Connection(display));
}

X11Connection::X11Connection(Display *display)
    : m_display(display), m_root(DefaultRootWindow(display))
{
    lastErrors()[m_display] = Success;
    m_notifier
        = std::make_unique<QSocketNotifier>(ConnectionNumber(m_display), QSocketNotifier::Read);
    connect(m_notifier.get(), &QSocketNotifier::activated, this, [this] {
        XEventsQueued(m_display, QueuedAfterReading);
        dispatchPending();
    });
}

X11Connection::~X11Connection()
{
    m_notifier.reset();
    // Closing flushes and receives the errors still on their way: they must find this
    // display among ours, or the previous handler (Xlib's, which exits) gets them.
    XCloseDisplay(m_display);
    lastErrors().erase(m_display);
}

Atom X11Connection::atom(const char *name) const
{
    return XInternAtom(m_display, name, False);
}

void X11Connection::setEventHandler(std::function<void(XEvent &)> handler)
{
    m_handler = std::move(handler);
    scheduleDispatch();
}

void X11Connection::dispatchPending()
{
    m_dispatchScheduled = false;
    while (XEventsQueued(m_display, QueuedAlready) > 0) {
        XEvent event;
        XNextEvent(m_display, &event);
        if (m_handler) {
            m_handler(event);
        }
    }
}

void X11Connection::scheduleDispatch()
{
    if (m_dispatchScheduled) {
        return;
    }
    m_dispatchScheduled = true;
    QMetaObject::invokeMethod(this, &X11Connection::dispatchPending, Qt::QueuedConnection);
}

void X11Connection::clearError()
{
    XSync(m_display, False);
    lastErrors()[m_display] = Success;
    scheduleDispatch();
}

bool X11Connection::hadError()
{
    XSync(m_display, False);
    scheduleDispatch();
    return lastErrors()[m_display] != Success;
}

bool X11Connection::waitForEvent(
    const std::function<bool(const XEvent &)> &matches, XEvent &event, int timeoutMs)
{
    QDeadlineTimer deadline(timeoutMs);
    for (;;) {
        while (XPending(m_display) > 0) {
            XNextEvent(m_display, &event);
            if (matches(event)) {
                scheduleDispatch();
                return true;
            }
            if (m_handler) {
                m_handler(event);
            }
        }
        const qint64 remaining = deadline.remainingTime();
        if (remaining <= 0) {
            return false;
        }
        pollfd descriptor {ConnectionNumber(m_display), POLLIN, 0};
        poll(&descriptor, 1, int(remaining));
    }
}

std::optional<X11Connection::Property> X11Connection::property(
    Window window, Atom name, bool deleteAfterRead)
{
    Atom type = None;
    int format = 0;
    unsigned long count = 0;
    unsigned long remaining = 0;
    unsigned char *data = nullptr;
    // A reply waits for its own errors, so no extra round trip is needed to see them.
    lastErrors()[m_display] = Success;
    // Up to 64 MiB in one read; larger transfers use INCR.
    const int status = XGetWindowProperty(m_display, window, name, 0, 16L * 1024 * 1024,
        deleteAfterRead ? True : False, AnyPropertyType, &type, &format, &count, &remaining, &data);
    scheduleDispatch();
    if (status != Success || type == None || lastErrors()[m_display] != Success) {
        if (data) {
            XFree(data);
        }
        return std::nullopt;
    }
    Property result;
    result.type = type;
    result.format = format;
    result.itemCount = count;
    const auto unit = qsizetype(format == 8 ? 1 : format == 16 ? sizeof(short) : sizeof(long));
    result.data = QByteArray(reinterpret_cast<const char *>(data), qsizetype(count) * unit);
    XFree(data);
    return result;
}

std::optional<unsigned long> X11Connection::cardinal(Window window, Atom name)
{
    const auto value = property(window, name);
    if (!value || value->format != 32 || value->itemCount < 1) {
        return std::nullopt;
    }
    return reinterpret_cast<const unsigned long *>(value->data.constData())[0];
}

std::optional<Window> X11Connection::windowProperty(Window window, Atom name)
{
    const auto value = cardinal(window, name);
    if (!value || *value == None) {
        return std::nullopt;
    }
    return Window(*value);
}

} // namespace sayvo
