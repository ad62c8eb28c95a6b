#pragma once

#include <QObject>

#include <functional>

namespace sayvo {

// Whether the desktop shows tray icons (some GNOME and Wayland sessions show none), and when
// that changes. It asks only when told to (recheck(): the platform watches for a tray host
// starting or stopping), so an idle app wakes nobody, tray or not. Main thread only.
class TrayAvailability : public QObject
{
    Q_OBJECT

public:
    using Probe = std::function<bool()>;

    // The probe answers whether a tray is there now (QSystemTrayIcon::isSystemTrayAvailable).
    explicit TrayAvailability(Probe probe, QObject *parent = nullptr);

    bool isAvailable() const { return m_available; }
    // Asks the probe again; announces a change.
    void recheck();

signals:
    void availabilityChanged(bool available);

private:
    Probe m_probe;
    bool m_available = false;
};

} // namespace sayvo
