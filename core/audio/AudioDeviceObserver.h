#pragma once

#include "audio/AudioHardware.h"
#include "audio/AudioInputDevice.h"

#include <QObject>

#include <atomic>

namespace sayvo {

// Publishes the input-device list and keeps it current. Lives on the main thread; the
// hardware must outlive it. `devices` changes (and devicesChanged is emitted) only when a
// refresh finds a list that differs, field by field and in order, from the current one. A
// burst of notifications that arrives before the queued refresh runs is one enumeration.
// A change of the system's default input is passed on as defaultInputChanged, once per burst.
class AudioDeviceObserver : public QObject
{
    Q_OBJECT
    Q_PROPERTY(sayvo::AudioInputDeviceList devices READ devices NOTIFY devicesChanged)

public:
    explicit AudioDeviceObserver(AudioHardware &hardware, QObject *parent = nullptr);
    ~AudioDeviceObserver() override;

    AudioInputDeviceList devices() const { return m_devices; }

public slots:
    void refresh();

signals:
    void devicesChanged(const sayvo::AudioInputDeviceList &devices);
    void defaultInputChanged();

private:
    void announceDefaultInput();

    AudioInputDeviceList m_devices;
    AudioHardware &m_system;
    AudioHardware::ListenerId m_listener = 0;
    AudioHardware::ListenerId m_defaultInputListener = 0;
    // Set on the sound system's thread when a refresh is queued, cleared when it starts.
    std::atomic<bool> m_refreshQueued {false};
    std::atomic<bool> m_defaultInputQueued {false};
};

} // namespace sayvo
