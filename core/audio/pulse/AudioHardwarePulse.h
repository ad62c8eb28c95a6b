#pragma once

#include "audio/AudioHardware.h"
#include "audio/pulse/PulseConnection.h"

#include <map>
#include <mutex>

namespace sayvo {

// The PulseAudio sources as audio devices: id = source index, UID = source name, name =
// description, transport from the monitor link and the "device.bus" property. PulseAudio
// picks each source's rate itself, so the only rate on offer is the current one and rate
// writes are refused. List changes come from the server's events for sources that appear or
// disappear (not from volume or mute changes); a lost server counts as a change, and so does
// one that comes back, which is looked for every second while anyone listens.
class AudioHardwarePulse : public AudioHardware
{
public:
    AudioHardwarePulse();
    ~AudioHardwarePulse() override;

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

private:
    struct Source
    {
        QString name;
        QString description;
        quint32 channels = 0;
        double sampleRate = 0.0;
        AudioTransportType transport = AudioTransportType::unknown;
    };

    std::optional<Source> source(AudioObjectId device);
    void notifyListeners();

    static constexpr int kReconnectDelayMs = 1000;

    PulseConnection m_connection;
    // Guarded by the connection's lock: the listeners run on its loop thread.
    std::map<ListenerId, std::function<void()>> m_listeners;
    ListenerId m_nextListener = 1;
    // Guarded by the connection's lock. Until a first connection, listeners have seen no
    // server's devices.
    bool m_serverWasMissing = true;
};

} // namespace sayvo
