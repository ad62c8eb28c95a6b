#include "ui/TrayAvailability.h"

namespace sayvo {

TrayAvailability::TrayAvailability(Probe probe, QObject *parent)
    : QObject(parent), m_probe(std::move(probe)), m_available(m_probe())
{
    m_recheck.setInterval(kRecheckIntervalMs);
    connect(&m_recheck, &QTimer::timeout, this, &TrayAvailability::recheck);
    followAvailability();
}

void TrayAvailability::recheck()
{
    const bool available = m_probe();
    if (available == m_available) {
        return;
    }
    m_available = available;
    followAvailability();
    emit availabilityChanged(m_available);
}

void TrayAvailability::followAvailability()
{
    if (m_available) {
        m_recheck.stop();
    } else {
        m_recheck.start();
    }
}

} // namespace sayvo
