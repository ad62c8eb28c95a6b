#include "audio/AudioDeviceObserver.h"

#include "audio/AudioDevices.h"

#include <QMetaObject>

namespace sayvo {

AudioDeviceObserver::AudioDeviceObserver(AudioHardware &hardware, QObject *parent)
    : QObject(parent), m_devices(AudioDevices::inputDevices(hardware)), m_system(hardware)
{
    // The sound system notifies on its own thread; the refresh is queued to ours, and Qt
    // drops it if this observer is gone by then.
    m_listener = m_system.addDeviceListListener([this] {
        if (!m_refreshQueued.exchange(true)) {
            QMetaObject::invokeMethod(this, &AudioDeviceObserver::refresh, Qt::QueuedConnection);
        }
    });
    m_defaultInputListener = m_system.addDefaultInputListener([this] {
        if (!m_defaultInputQueued.exchange(true)) {
            QMetaObject::invokeMethod(
                this, &AudioDeviceObserver::announceDefaultInput, Qt::QueuedConnection);
        }
    });
}

AudioDeviceObserver::~AudioDeviceObserver()
{
    m_system.removeDefaultInputListener(m_defaultInputListener);
    m_system.removeDeviceListListener(m_listener);
}

void AudioDeviceObserver::announceDefaultInput()
{
    m_defaultInputQueued = false;
    emit defaultInputChanged();
}

void AudioDeviceObserver::refresh()
{
    // Cleared before reading, so a change during the enumeration queues one more.
    m_refreshQueued = false;
    AudioInputDeviceList current = AudioDevices::inputDevices(m_system);
    if (current == m_devices) {
        return;
    }
    m_devices = std::move(current);
    emit devicesChanged(m_devices);
}

} // namespace sayvo
