#pragma once

#include "desktop/DesktopShortcut.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QObject>
#include <QString>
#include <QVariantMap>

namespace sayvo {

// The trigger as the desktop's shortcut "Dictate", through the GlobalShortcuts portal (KDE
// Plasma 5.27+, GNOME 48+, Hyprland): a new session at every launch, one shortcut bound in
// it, Activated and Deactivated as the key's down and up. The desktop chooses the key and
// the user may change it in the desktop's settings, which ShortcutsChanged reports. Signals
// for another session or another shortcut are ignored. Main thread only.
class GlobalShortcutsPortal : public QObject, public DesktopShortcut
{
    Q_OBJECT

public:
    static constexpr const char *kShortcutId = "dictate";

    // requestTimeoutMs bounds each request, the desktop's dialog included.
    GlobalShortcutsPortal(QString desktopName, int requestTimeoutMs = 120000);
    ~GlobalShortcutsPortal() override;

    void start(const QString &preferredTrigger, Handlers handlers) override;

private Q_SLOTS:
    // Taken as whole messages: Debian's frontend sends the options of Activated with an
    // element type of its own, and a signal's arguments are outside input anyway.
    void onActivated(const QDBusMessage &message);
    void onDeactivated(const QDBusMessage &message);
    void onShortcutsChanged(const QDBusMessage &message);

private:
    void bind(const QString &preferredTrigger);
    void report(PortalState state, const QString &label, const QString &reason);
    // Whether a signal names our session and, with an id, our shortcut.
    bool isOurs(const QDBusMessage &message, bool withId) const;
    void showShortcuts(const QVariant &shortcuts);

    QString m_desktopName;
    int m_requestTimeoutMs;
    QDBusConnection m_bus;
    Handlers m_handlers;
    QString m_sessionPath;
};

} // namespace sayvo
