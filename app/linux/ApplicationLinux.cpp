#include "app/ApplicationPlatform.h"

#include "desktop/DesktopSessionFacts.h"
#include "runtime/AppBundle.h"

#include <QAbstractNativeEventFilter>
#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusServiceWatcher>
#include <QGuiApplication>
#include <QProcessEnvironment>
#include <QString>
#include <QtGlobal>

#include <X11/Xlib.h>
#include <X11/extensions/Xfixes.h>
#include <xcb/xcb.h>

#include <cstdio>

namespace sayvo {

namespace {

// Tells when the owner of the XEmbed tray selection changes: a panel with a tray started or
// went away. The X server sends the event, so nothing has to ask again while idle.
class TraySelectionWatch : public QObject, public QAbstractNativeEventFilter
{
public:
    TraySelectionWatch(int eventBase, std::function<void()> changed, QObject *parent)
        : QObject(parent), m_eventBase(eventBase), m_changed(std::move(changed))
    {
        QCoreApplication::instance()->installNativeEventFilter(this);
    }
    ~TraySelectionWatch() override { QCoreApplication::instance()->removeNativeEventFilter(this); }
    TraySelectionWatch(const TraySelectionWatch &) = delete;
    TraySelectionWatch &operator=(const TraySelectionWatch &) = delete;

    bool nativeEventFilter(const QByteArray &eventType, void *message, qintptr *) override
    {
        if (eventType != "xcb_generic_event_t") {
            return false;
        }
        const auto *event = static_cast<const xcb_generic_event_t *>(message);
        if ((event->response_type & 0x7f) == m_eventBase + XFixesSelectionNotify) {
            m_changed();
        }
        return false;
    }

private:
    int m_eventBase;
    std::function<void()> m_changed;
};

void watchTraySelection(QObject *context, const std::function<void()> &changed)
{
    auto *x11 = qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    Display *display = x11 ? x11->display() : nullptr;
    int eventBase = 0;
    int errorBase = 0;
    if (!display || !XFixesQueryExtension(display, &eventBase, &errorBase)) {
        return;
    }
    const QByteArray name
        = QByteArrayLiteral("_NET_SYSTEM_TRAY_S") + QByteArray::number(DefaultScreen(display));
    const Atom selection = XInternAtom(display, name.constData(), False);
    XFixesSelectSelectionInput(display, DefaultRootWindow(display), selection,
        XFixesSetSelectionOwnerNotifyMask | XFixesSelectionWindowDestroyNotifyMask
            | XFixesSelectionClientCloseNotifyMask);
    XFlush(display);
    new TraySelectionWatch(eventBase, changed, context);
}

} // namespace

bool prepareDesktopSession()
{
    if (!qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) {
        return true;
    }
    switch (sessionKind(QProcessEnvironment::systemEnvironment())) {
    case SessionKind::wayland:
        // Qt's own Wayland platform; XWayland only where qt6-wayland is not installed.
        qputenv("QT_QPA_PLATFORM", "wayland;xcb");
        return true;
    case SessionKind::x11:
        qputenv("QT_QPA_PLATFORM", "xcb");
        return true;
    case SessionKind::none:
        break;
    }
    std::fprintf(stderr,
        "sayvo: no desktop to run on (neither DISPLAY nor WAYLAND_DISPLAY is set).\n"
        "To see a whole dictation without a desktop, run ./dev demo.\n");
    return false;
}

void installSystemLog()
{
    // stderr is the system log here: systemd and desktop session managers route it into the
    // journal. The prefix tells Sayvo's lines from the rest of the session's.
    qSetMessagePattern(
        QStringLiteral("sayvo %{if-category}[%{category}] %{endif}%{type}: %{message}"));
}

QString launchCommandPath()
{
    return mainAppBundle().bundlePath.value_or(QCoreApplication::applicationFilePath());
}

void becomeAccessoryApplication()
{
    // A tray application has no dock entry or application menu bar on Linux desktops.
}

void activateIgnoringOtherApps()
{
    // X11 window managers activate the window itself; there is no application to activate.
}

void watchTrayHost(QObject *context, std::function<void()> changed)
{
    // Panels show tray icons through the StatusNotifierItem watcher on the session bus, or
    // as an XEmbed tray that owns an X selection; either starting or stopping is the change.
    watchTraySelection(context, changed);
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        return;
    }
    auto *watcher = new QDBusServiceWatcher(QStringLiteral("org.kde.StatusNotifierWatcher"), bus,
        QDBusServiceWatcher::WatchForOwnerChange, context);
    QObject::connect(watcher, &QDBusServiceWatcher::serviceOwnerChanged, context,
        [changed = std::move(changed)] { changed(); });
}

} // namespace sayvo
