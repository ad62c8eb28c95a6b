#include "audio/AudioDevices.h"

#include <algorithm>

namespace sayvo {

namespace {

// The system builds these aggregates for its own default-device handling.
constexpr auto kSystemAggregatePrefix = "CADefaultDeviceAggregate";

std::optional<QString> readName(AudioHardware &hardware, AudioObjectId device)
{
    auto name = hardware.deviceName(device);
    if (name && !name->isEmpty()) {
        return name;
    }
    return std::nullopt;
}

} // namespace

AudioInputDeviceList AudioDevices::inputDevices(AudioHardware &hardware)
{
    AudioInputDeviceList result;
    const auto ids = hardware.deviceIds();
    if (!ids) {
        return result;
    }
    for (AudioObjectId id : *ids) {
        const auto channels = hardware.inputChannelCount(id);
        if (!channels || *channels == 0) {
            continue;
        }
        const auto uid = hardware.deviceUID(id);
        if (!uid) {
            continue;
        }
        // A name read can fail transiently right after a device appears; one retry is
        // enough in practice and keeps enumeration bounded.
        auto name = readName(hardware, id);
        if (!name) {
            name = readName(hardware, id);
        }
        const QString deviceName = name.value_or(QString::fromLatin1(kFallbackName));
        if (isHidden(hardware, id, *uid, deviceName)) {
            continue;
        }
        const auto transport = hardware.transportType(id);
        AudioInputDevice device;
        device.id = id;
        device.uid = *uid;
        device.name = deviceName;
        device.isBluetooth = transport == AudioTransportType::bluetooth
            || transport == AudioTransportType::bluetoothLowEnergy;
        device.sampleRate = hardware.nominalSampleRate(id).value_or(0.0);
        result.append(device);
    }
    return result;
}

std::optional<AudioInputDevice> AudioDevices::inputDevice(
    AudioHardware &hardware, const QString &uid)
{
    for (const AudioInputDevice &device : inputDevices(hardware)) {
        if (device.uid == uid) {
            return device;
        }
    }
    return std::nullopt;
}

std::optional<double> AudioDevices::raiseToHighestSampleRate(
    AudioHardware &hardware, AudioObjectId device)
{
    const auto ranges = hardware.availableSampleRates(device);
    if (!ranges || ranges->empty()) {
        return std::nullopt;
    }
    double best = 0.0;
    for (const SampleRateRange &range : *ranges) {
        best = std::max(best, range.maximumHz);
    }
    if (!(best > 0.0)) {
        return std::nullopt;
    }
    const double current = hardware.nominalSampleRate(device).value_or(0.0);
    if (current + 1.0 < best) {
        return hardware.setNominalSampleRate(device, best) ? best : current;
    }
    return current;
}

bool AudioDevices::isHidden(
    AudioHardware &hardware, AudioObjectId device, const QString &uid, const QString &name)
{
    // A monitor only echoes what an output plays; dictating from it would transcribe the
    // speakers.
    if (hardware.transportType(device) == AudioTransportType::outputMonitor) {
        return true;
    }
    return isHiddenAggregate(hardware, device, uid, name);
}

bool AudioDevices::isHiddenAggregate(
    AudioHardware &hardware, AudioObjectId device, const QString &uid, const QString &name)
{
    if (hardware.transportType(device) != AudioTransportType::aggregate) {
        return false;
    }
    const QString prefix = QString::fromLatin1(kSystemAggregatePrefix);
    if (uid.startsWith(prefix) || name.startsWith(prefix)) {
        return true;
    }
    // Aggregates the user built in Audio MIDI Setup stay visible; only those an
    // application marked private are internal plumbing.
    return hardware.aggregateIsPrivate(device).value_or(false);
}

} // namespace sayvo
