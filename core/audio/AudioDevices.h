#pragma once

#include "audio/AudioHardware.h"
#include "audio/AudioInputDevice.h"

#include <optional>

namespace sayvo {

// Stateless queries over the device registry: the input devices a user may choose, lookup
// by persistent UID, and the Bluetooth sample-rate raise. Any thread.
class AudioDevices
{
public:
    AudioDevices() = delete;

    // Input-capable, visible devices in the system's order; empty when the list is
    // unreadable.
    static AudioInputDeviceList inputDevices(AudioHardware &hardware);
    static std::optional<AudioInputDevice> inputDevice(AudioHardware &hardware, const QString &uid);
    // Sets the device's nominal rate to the best it offers; yields the rate it runs at
    // afterwards, or nothing when the device reports no usable rates.
    static std::optional<double> raiseToHighestSampleRate(
        AudioHardware &hardware, AudioObjectId device);

    // The name given to a device whose own name cannot be read.
    static constexpr const char *kFallbackName = "Microphone";

private:
    static bool isHidden(
        AudioHardware &hardware, AudioObjectId device, const QString &uid, const QString &name);
    static bool isHiddenAggregate(
        AudioHardware &hardware, AudioObjectId device, const QString &uid, const QString &name);
};

} // namespace sayvo
