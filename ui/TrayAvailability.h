#pragma once

#include <QObject>
#include <QTimer>

#include <functional>

namespace sayvo {

// Whether the desktop shows tray icons (some GNOME and Wayland sessions show none), and when
// that changes. While there is no tray it asks again every kRecheckIntervalMs, since a panel
// may start after Sayvo; while there is one it only asks when told to (recheck()), so an idle
// app wakes nobody. Main thread only.
class TrayAvailability : public QObject
{
    Q_OBJECT

public:
    using Probe = std::function<bool()>;

    static constexpr int kRecheckIntervalMs = 2000;

    // The probe answers whether a tray is there now (QSystemTrayIcon::isSystemTrayAvailable).
    explicit TrayAvailability(Probe probe, QObject *parent = nullptr);

    bool isAvailable() const { return m_available; }
    // Asks the probe again; announces a change.
    void recheck();

signals:
    void availabilityChanged(bool available);

private:
    void followAvailability();

    Probe m_probe;
    bool m_available = false;
    QTimer m_recheck;
};

} // namespace sayvo
