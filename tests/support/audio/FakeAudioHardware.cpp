#include "support/audio/FakeAudioHardware.h"

#include <algorithm>

namespace sayvo {

void FakeAudioHardware::setDevices(std::vector<FakeAudioDevice> devices)
{
    std::lock_guard lock(m_mutex);
    m_devices = std::move(devices);
}

void FakeAudioHardware::addDevice(FakeAudioDevice device)
{
    std::lock_guard lock(m_mutex);
    m_devices.push_back(std::move(device));
}

void FakeAudioHardware::removeDevice(const QString &uid)
{
    std::lock_guard lock(m_mutex);
    std::erase_if(m_devices, [&](const FakeAudioDevice &device) { return device.uid == uid; });
}

void FakeAudioHardware::setListReadable(bool readable)
{
    std::lock_guard lock(m_mutex);
    m_listReadable = readable;
}

void FakeAudioHardware::notifyDeviceListChanged()
{
    notify(m_listeners);
}

void FakeAudioHardware::notifyDefaultInputChanged()
{
    notify(m_defaultInputListeners);
}

void FakeAudioHardware::notify(const std::map<ListenerId, std::function<void()>> &registered)
{
    std::vector<std::function<void()>> listeners;
    {
        std::lock_guard lock(m_mutex);
        for (const auto &[id, listener] : registered) {
            listeners.push_back(listener);
        }
    }
    for (const auto &listener : listeners) {
        listener();
    }
}

int FakeAudioHardware::listenerCount() const
{
    std::lock_guard lock(m_mutex);
    return int(m_listeners.size());
}

int FakeAudioHardware::defaultInputListenerCount() const
{
    std::lock_guard lock(m_mutex);
    return int(m_defaultInputListeners.size());
}

std::vector<FakeAudioHardware::RateWrite> FakeAudioHardware::rateWrites() const
{
    std::lock_guard lock(m_mutex);
    return m_rateWrites;
}

int FakeAudioHardware::nameReads(AudioObjectId device) const
{
    std::lock_guard lock(m_mutex);
    const auto found = m_nameReads.find(device);
    return found == m_nameReads.end() ? 0 : found->second;
}

FakeAudioDevice *FakeAudioHardware::find(AudioObjectId device)
{
    const auto found = std::find_if(m_devices.begin(), m_devices.end(),
        [&](const FakeAudioDevice &d) { return d.id == device; });
    return found == m_devices.end() ? nullptr : &*found;
}

int FakeAudioHardware::deviceListReads() const
{
    std::lock_guard lock(m_mutex);
    return m_deviceListReads;
}

std::optional<std::vector<AudioObjectId>> FakeAudioHardware::deviceIds()
{
    std::lock_guard lock(m_mutex);
    ++m_deviceListReads;
    if (!m_listReadable) {
        return std::nullopt;
    }
    std::vector<AudioObjectId> ids;
    for (const FakeAudioDevice &device : m_devices) {
        ids.push_back(device.id);
    }
    return ids;
}

std::optional<quint32> FakeAudioHardware::inputChannelCount(AudioObjectId device)
{
    std::lock_guard lock(m_mutex);
    const FakeAudioDevice *found = find(device);
    return found ? std::optional<quint32>(found->inputChannels) : std::nullopt;
}

std::optional<QString> FakeAudioHardware::deviceUID(AudioObjectId device)
{
    std::lock_guard lock(m_mutex);
    const FakeAudioDevice *found = find(device);
    return found && found->uidReadable ? std::optional<QString>(found->uid) : std::nullopt;
}

std::optional<QString> FakeAudioHardware::deviceName(AudioObjectId device)
{
    std::lock_guard lock(m_mutex);
    FakeAudioDevice *found = find(device);
    ++m_nameReads[device];
    if (!found) {
        return std::nullopt;
    }
    if (found->failingNameReads > 0) {
        --found->failingNameReads;
        return std::nullopt;
    }
    return found->name;
}

std::optional<AudioTransportType> FakeAudioHardware::transportType(AudioObjectId device)
{
    std::lock_guard lock(m_mutex);
    const FakeAudioDevice *found = find(device);
    return found && found->transportReadable ? std::optional<AudioTransportType>(found->transport)
                                             : std::nullopt;
}

std::optional<bool> FakeAudioHardware::aggregateIsPrivate(AudioObjectId device)
{
    std::lock_guard lock(m_mutex);
    const FakeAudioDevice *found = find(device);
    return found ? found->aggregatePrivate : std::nullopt;
}

std::optional<double> FakeAudioHardware::nominalSampleRate(AudioObjectId device)
{
    std::lock_guard lock(m_mutex);
    const FakeAudioDevice *found = find(device);
    return found ? std::optional<double>(found->sampleRate) : std::nullopt;
}

std::optional<std::vector<SampleRateRange>> FakeAudioHardware::availableSampleRates(
    AudioObjectId device)
{
    std::lock_guard lock(m_mutex);
    const FakeAudioDevice *found = find(device);
    return found ? std::optional<std::vector<SampleRateRange>>(found->sampleRates) : std::nullopt;
}

bool FakeAudioHardware::setNominalSampleRate(AudioObjectId device, double rateHz)
{
    std::lock_guard lock(m_mutex);
    FakeAudioDevice *found = find(device);
    m_rateWrites.push_back({device, rateHz});
    if (!found || !found->rateWritable) {
        return false;
    }
    found->sampleRate = rateHz;
    return true;
}

AudioHardware::ListenerId FakeAudioHardware::addListener(
    std::map<ListenerId, std::function<void()>> &listeners, std::function<void()> callback)
{
    std::lock_guard lock(m_mutex);
    const ListenerId id = m_nextListener++;
    listeners.emplace(id, std::move(callback));
    return id;
}

AudioHardware::ListenerId FakeAudioHardware::addDeviceListListener(std::function<void()> callback)
{
    return addListener(m_listeners, std::move(callback));
}

void FakeAudioHardware::removeDeviceListListener(ListenerId id)
{
    std::lock_guard lock(m_mutex);
    m_listeners.erase(id);
}

AudioHardware::ListenerId FakeAudioHardware::addDefaultInputListener(std::function<void()> callback)
{
    return addListener(m_defaultInputListeners, std::move(callback));
}

void FakeAudioHardware::removeDefaultInputListener(ListenerId id)
{
    std::lock_guard lock(m_mutex);
    m_defaultInputListeners.erase(id);
}

} // namespace sayvo
