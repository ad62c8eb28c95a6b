#pragma once

#include "desktop/DesktopShortcut.h"

#include <QDBusConnection>
#include <QDBusObjectPath>
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
    void onActivated(const QDBusObjectPath &session, const QString &id, qulonglong timestamp,
        const QVariantMap &options);
    void onDeactivated(const QDBusObjectPath &session, const QString &id, qulonglong timestamp,
        const QVariantMap &options);
    void onShortcutsChanged(const QDBusMessage &message);

private:
    void bind(const QString &preferredTrigger);
    void report(PortalState state, const QString &label, const QString &reason);
    bool isOurs(const QDBusObjectPath &session, const QString &id) const;
    void showShortcuts(const QVariant &shortcuts);

    QString m_desktopName;
    int m_requestTimeoutMs;
    QDBusConnection m_bus;
    Handlers m_handlers;
    QString m_sessionPath;
};

} // namespace sayvo
