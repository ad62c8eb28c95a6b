#pragma once

#include "audio/AudioHardware.h"

#include <map>
#include <mutex>
#include <optional>
#include <vector>

namespace sayvo {

// One device of the fake registry, with switches for the read failures the device list
// must absorb.
struct FakeAudioDevice
{
    AudioObjectId id = 0;
    QString uid;
    QString name;
    quint32 inputChannels = 1;
    AudioTransportType transport = AudioTransportType::builtIn;
    std::optional<bool> aggregatePrivate;
    double sampleRate = 48000.0;
    std::vector<SampleRateRange> sampleRates;
    bool uidReadable = true;
    bool transportReadable = true;
    bool rateWritable = true;
    // How many name reads fail before one succeeds.
    int failingNameReads = 0;
};

// A scriptable AudioHardware: tests set the devices, fire list-change notifications and
// read back what was written. Thread-safe.
class FakeAudioHardware : public AudioHardware
{
public:
    struct RateWrite
    {
        AudioObjectId device;
        double rateHz;
    };

    void setDevices(std::vector<FakeAudioDevice> devices);
    void addDevice(FakeAudioDevice device);
    void removeDevice(const QString &uid);
    // false: the device list itself cannot be read.
    void setListReadable(bool readable);

    // Calls every listener on the calling thread, as the sound system would on its own.
    void notifyDeviceListChanged();
    int listenerCount() const;
    // The same for the system's default input: the user picked another one.
    void notifyDefaultInputChanged();
    int defaultInputListenerCount() const;

    std::vector<RateWrite> rateWrites() const;
    // How many times the whole list was read: one enumeration each.
    int deviceListReads() const;
    int nameReads(AudioObjectId device) const;

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
    FakeAudioDevice *find(AudioObjectId device);
    void notify(const std::map<ListenerId, std::function<void()>> &registered);
    ListenerId addListener(
        std::map<ListenerId, std::function<void()>> &listeners, std::function<void()> callback);

    mutable std::recursive_mutex m_mutex;
    std::vector<FakeAudioDevice> m_devices;
    bool m_listReadable = true;
    std::map<ListenerId, std::function<void()>> m_listeners;
    std::map<ListenerId, std::function<void()>> m_defaultInputListeners;
    ListenerId m_nextListener = 1;
    std::vector<RateWrite> m_rateWrites;
    std::map<AudioObjectId, int> m_nameReads;
    int m_deviceListReads = 0;
};

} // namespace sayvo
