#pragma once

#include "audio/AudioHardware.h"

#include <map>
#include <memory>
#include <mutex>

namespace sayvo {

// The Core Audio hardware objects, read and written property by property
// (AudioObjectGetPropertyData / SetPropertyData). The device-list and default-input listeners
// are blocks on the main queue; a shared switch turns off a notification already queued when
// its listener is removed, so none runs after removal. Thread-safe.
class AudioHardwareCoreAudio : public AudioHardware
{
public:
    AudioHardwareCoreAudio();
    ~AudioHardwareCoreAudio() override;

    std::optional<std::vector<AudioObjectId>> deviceIds() override;
    std::optional<quint32> inputChannelCount(AudioObjectId device) override;
    std::optional<QString> deviceUID(AudioObjectId device) override;
    std::optional<QString> deviceName(AudioObjectId device) override;
    std::optional<AudioTransportType> transportType(AudioObjectId device) override;
    std::optional<bool> aggregateIsPrivate(AudioObjectId device) override;
    std::optional<double> nominalSampleRate(AudioObjectId device) override;
    std::optional<std::vector<SampleRateRange>> availableSampleRates(AudioObjectId device) override;
    bool setNominalSampleRate(AudioObjectId device, double rateHz) override;

    ListenerId addDeviceListListener(std::function<void()> callback) override;
    void removeDeviceListListener(ListenerId id) override;
    ListenerId addDefaultInputListener(std::function<void()> callback) override;
    void removeDefaultInputListener(ListenerId id) override;

    // The system's current default input, which the capture binds when no device is chosen.
    static std::optional<AudioObjectId> defaultInputDevice();

private:
    // A listener on one property of the system object (a CoreAudio selector).
    ListenerId addListener(quint32 selector, std::function<void()> callback);
    void removeListener(ListenerId id);

    // The registered blocks, kept in the Objective-C++ source.
    struct Listeners;

    std::mutex m_mutex;
    std::unique_ptr<Listeners> m_listeners;
    ListenerId m_nextId = 1;
};

} // namespace sayvo
