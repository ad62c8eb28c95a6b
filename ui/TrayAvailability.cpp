#include "ui/TrayAvailability.h"

namespace sayvo {

TrayAvailability::TrayAvailability(Probe probe, QObject *parent)
    : QObject(parent), m_probe(std::move(probe)), m_available(m_probe())
{ }

void TrayAvailability::recheck()
{
    const bool available = m_probe();
    if (available == m_available) {
        return;
    }
    m_available = available;
    emit availabilityChanged(m_available);
}

} // namespace sayvo
