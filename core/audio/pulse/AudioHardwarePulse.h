#pragma once

#include "audio/AudioHardware.h"
#include "audio/pulse/PulseConnection.h"

#include <map>
#include <mutex>
#include <optional>

namespace sayvo {

// The PulseAudio sources as audio devices: id = source index, UID = source name, name =
// description, transport from the monitor link and the "device.bus" property. PulseAudio
// picks each source's rate itself, so the only rate on offer is the current one and rate
// writes are refused. List changes come from the server's events for sources that appear or
// disappear (not from volume or mute changes); a lost server counts as a change, and so does
// one that comes back, which is looked for every second while anyone listens. A change of
// the server's default source (a new name in its server info) is a default-input change.
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
    ListenerId addDefaultInputListener(std::function<void()> callback) override;
    void removeDefaultInputListener(ListenerId id) override;

private:
    struct Source
    {
        QString name;
        QString description;
        quint32 channels = 0;
        double sampleRate = 0.0;
        AudioTransportType transport = AudioTransportType::unknown;
    };

    using Listeners = std::map<ListenerId, std::function<void()>>;

    ListenerId addListener(Listeners &listeners, std::function<void()> callback);
    void removeListener(Listeners &listeners, ListenerId id);
    std::optional<Source> source(AudioObjectId device);
    void notifyListeners(const Listeners &listeners);
    // On the loop thread: asks for the default source and tells the default-input
    // listeners when it differs from the one last seen.
    void readDefaultSource(pa_context *context);

    static constexpr int kReconnectDelayMs = 1000;

    PulseConnection m_connection;
    // Guarded by the connection's lock: the listeners run on its loop thread.
    Listeners m_listeners;
    Listeners m_defaultInputListeners;
    ListenerId m_nextListener = 1;
    // Guarded by the connection's lock. Until a first connection, listeners have seen no
    // server's devices.
    bool m_serverWasMissing = true;
    // Guarded by the connection's lock: the default source last seen, nullopt before the
    // first answer.
    std::optional<QString> m_defaultSource;
};

} // namespace sayvo
