#pragma once

#include "audio/AudioInputDevice.h"

#include <QString>

#include <functional>
#include <optional>
#include <vector>

namespace sayvo {

// How a device is attached. Only the distinctions the device list acts on are kept.
enum class AudioTransportType {
    unknown,
    builtIn,
    usb,
    bluetooth,
    bluetoothLowEnergy,
    // A device the system composes from others (a macOS aggregate device).
    aggregate,
    // A loopback of what an output plays (a PulseAudio monitor source), never a microphone.
    outputMonitor,
    virtualDevice,
};

struct SampleRateRange
{
    double minimumHz = 0.0;
    double maximumHz = 0.0;
};

// The sound system's device registry, read property by property. Every read may fail
// (nullopt) because a device can vanish between two reads; callers absorb that. Reads and
// writes may be called from any thread and may block briefly on the sound server.
class AudioHardware
{
public:
    using ListenerId = int;

    virtual ~AudioHardware() = default;

    // Every device the system knows, inputs and outputs, in the system's order.
    virtual std::optional<std::vector<AudioObjectId>> deviceIds() = 0;
    // Sum of the channels of the device's input streams; 0 for output-only devices.
    virtual std::optional<quint32> inputChannelCount(AudioObjectId device) = 0;
    virtual std::optional<QString> deviceUID(AudioObjectId device) = 0;
    virtual std::optional<QString> deviceName(AudioObjectId device) = 0;
    virtual std::optional<AudioTransportType> transportType(AudioObjectId device) = 0;
    // The "private" flag of an aggregate's composition; nullopt when the composition is
    // unreadable or carries no such flag.
    virtual std::optional<bool> aggregateIsPrivate(AudioObjectId device) = 0;
    virtual std::optional<double> nominalSampleRate(AudioObjectId device) = 0;
    virtual std::optional<std::vector<SampleRateRange>> availableSampleRates(AudioObjectId device)
        = 0;
    // True when the system accepted the new rate.
    virtual bool setNominalSampleRate(AudioObjectId device, double rateHz) = 0;

    // The callback runs on a thread of the sound system whenever the device list may have
    // changed (also for changes that turn out to be unrelated). After
    // removeDeviceListListener returns, it is never called again.
    virtual ListenerId addDeviceListListener(std::function<void()> callback) = 0;
    virtual void removeDeviceListListener(ListenerId id) = 0;

    // The callback runs on a thread of the sound system whenever the system's default input
    // may have changed: the user picked another input, or a headset that took over came or
    // went. After removeDefaultInputListener returns, it is never called again.
    virtual ListenerId addDefaultInputListener(std::function<void()> callback) = 0;
    virtual void removeDefaultInputListener(ListenerId id) = 0;
};

} // namespace sayvo
