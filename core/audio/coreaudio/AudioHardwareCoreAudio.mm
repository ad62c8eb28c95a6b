#include "audio/coreaudio/AudioHardwareCoreAudio.h"

#include <CoreAudio/CoreAudio.h>
#include <dispatch/dispatch.h>

#include <atomic>
#include <cstddef>
#include <cstring>

namespace sayvo {

namespace {

AudioObjectPropertyAddress globalAddress(AudioObjectPropertySelector selector)
{
    return {selector, kAudioObjectPropertyScopeGlobal, kAudioObjectPropertyElementMain};
}

template <typename T>
std::optional<T> readValue(AudioObjectID object, AudioObjectPropertyAddress address)
{
    T value {};
    UInt32 size = sizeof(T);
    if (AudioObjectGetPropertyData(object, &address, 0, nullptr, &size, &value) != noErr
        || size != sizeof(T)) {
        return std::nullopt;
    }
    return value;
}

// A property whose size varies (lists, buffer lists), as raw bytes.
std::optional<std::vector<char>> readBytes(AudioObjectID object, AudioObjectPropertyAddress address)
{
    UInt32 size = 0;
    if (AudioObjectGetPropertyDataSize(object, &address, 0, nullptr, &size) != noErr) {
        return std::nullopt;
    }
    std::vector<char> bytes(size);
    if (size > 0
        && AudioObjectGetPropertyData(object, &address, 0, nullptr, &size, bytes.data()) != noErr) {
        return std::nullopt;
    }
    bytes.resize(size);
    return bytes;
}

// A property holding a CF object the reader owns.
template <typename Ref>
std::optional<Ref> readObject(AudioObjectID object, AudioObjectPropertySelector selector)
{
    Ref value = nullptr;
    UInt32 size = sizeof(Ref);
    const AudioObjectPropertyAddress address = globalAddress(selector);
    if (AudioObjectGetPropertyData(object, &address, 0, nullptr, &size, &value) != noErr
        || !value) {
        return std::nullopt;
    }
    return value;
}

std::optional<QString> readString(AudioObjectID object, AudioObjectPropertySelector selector)
{
    const auto string = readObject<CFStringRef>(object, selector);
    if (!string) {
        return std::nullopt;
    }
    const QString result = QString::fromCFString(*string);
    CFRelease(*string);
    return result;
}

} // namespace

struct AudioHardwareCoreAudio::Listeners
{
    struct Entry
    {
        AudioObjectPropertySelector selector;
        AudioObjectPropertyListenerBlock block;
        std::shared_ptr<std::atomic<bool>> active;
    };
    std::map<ListenerId, Entry> entries;
};

AudioHardwareCoreAudio::AudioHardwareCoreAudio() : m_listeners(std::make_unique<Listeners>()) { }

AudioHardwareCoreAudio::~AudioHardwareCoreAudio()
{
    std::vector<ListenerId> ids;
    for (const auto &[id, entry] : m_listeners->entries) {
        ids.push_back(id);
    }
    for (ListenerId id : ids) {
        removeListener(id);
    }
}

std::optional<std::vector<AudioObjectId>> AudioHardwareCoreAudio::deviceIds()
{
    const auto bytes
        = readBytes(kAudioObjectSystemObject, globalAddress(kAudioHardwarePropertyDevices));
    if (!bytes) {
        return std::nullopt;
    }
    std::vector<AudioObjectId> ids(bytes->size() / sizeof(AudioObjectID));
    std::memcpy(ids.data(), bytes->data(), ids.size() * sizeof(AudioObjectID));
    return ids;
}

std::optional<quint32> AudioHardwareCoreAudio::inputChannelCount(AudioObjectId device)
{
    const auto bytes = readBytes(device,
        {kAudioDevicePropertyStreamConfiguration, kAudioObjectPropertyScopeInput,
            kAudioObjectPropertyElementMain});
    if (!bytes || bytes->size() < offsetof(AudioBufferList, mBuffers)) {
        return std::nullopt;
    }
    const auto *list = reinterpret_cast<const AudioBufferList *>(bytes->data());
    const size_t room = (bytes->size() - offsetof(AudioBufferList, mBuffers)) / sizeof(AudioBuffer);
    quint32 channels = 0;
    for (UInt32 index = 0; index < list->mNumberBuffers && index < room; ++index) {
        channels += list->mBuffers[index].mNumberChannels;
    }
    return channels;
}

std::optional<QString> AudioHardwareCoreAudio::deviceUID(AudioObjectId device)
{
    return readString(device, kAudioDevicePropertyDeviceUID);
}

std::optional<QString> AudioHardwareCoreAudio::deviceName(AudioObjectId device)
{
    return readString(device, kAudioObjectPropertyName);
}

std::optional<AudioTransportType> AudioHardwareCoreAudio::transportType(AudioObjectId device)
{
    const auto type = readValue<UInt32>(device, globalAddress(kAudioDevicePropertyTransportType));
    if (!type) {
        return std::nullopt;
    }
    switch (*type) {
    case kAudioDeviceTransportTypeBuiltIn:
        return AudioTransportType::builtIn;
    case kAudioDeviceTransportTypeUSB:
        return AudioTransportType::usb;
    case kAudioDeviceTransportTypeBluetooth:
        return AudioTransportType::bluetooth;
    case kAudioDeviceTransportTypeBluetoothLE:
        return AudioTransportType::bluetoothLowEnergy;
    case kAudioDeviceTransportTypeAggregate:
        return AudioTransportType::aggregate;
    case kAudioDeviceTransportTypeVirtual:
        return AudioTransportType::virtualDevice;
    default:
        return AudioTransportType::unknown;
    }
}

std::optional<bool> AudioHardwareCoreAudio::aggregateIsPrivate(AudioObjectId device)
{
    const auto composition
        = readObject<CFDictionaryRef>(device, kAudioAggregateDevicePropertyComposition);
    if (!composition) {
        return std::nullopt;
    }
    std::optional<bool> isPrivate;
    const CFTypeRef value
        = CFDictionaryGetValue(*composition, CFSTR(kAudioAggregateDeviceIsPrivateKey));
    int number = 0;
    if (value && CFGetTypeID(value) == CFNumberGetTypeID()
        && CFNumberGetValue(static_cast<CFNumberRef>(value), kCFNumberIntType, &number)) {
        isPrivate = number != 0;
    }
    CFRelease(*composition);
    return isPrivate;
}

std::optional<double> AudioHardwareCoreAudio::nominalSampleRate(AudioObjectId device)
{
    return readValue<Float64>(device, globalAddress(kAudioDevicePropertyNominalSampleRate));
}

std::optional<std::vector<SampleRateRange>> AudioHardwareCoreAudio::availableSampleRates(
    AudioObjectId device)
{
    const auto bytes
        = readBytes(device, globalAddress(kAudioDevicePropertyAvailableNominalSampleRates));
    if (!bytes) {
        return std::nullopt;
    }
    std::vector<SampleRateRange> ranges;
    const size_t count = bytes->size() / sizeof(AudioValueRange);
    for (size_t index = 0; index < count; ++index) {
        AudioValueRange range;
        std::memcpy(&range, bytes->data() + index * sizeof(AudioValueRange), sizeof range);
        ranges.push_back({range.mMinimum, range.mMaximum});
    }
    return ranges;
}

bool AudioHardwareCoreAudio::setNominalSampleRate(AudioObjectId device, double rateHz)
{
    const AudioObjectPropertyAddress address = globalAddress(kAudioDevicePropertyNominalSampleRate);
    const Float64 rate = rateHz;
    return AudioObjectSetPropertyData(device, &address, 0, nullptr, sizeof rate, &rate) == noErr;
}

AudioHardware::ListenerId AudioHardwareCoreAudio::addDeviceListListener(
    std::function<void()> callback)
{
    return addListener(kAudioHardwarePropertyDevices, std::move(callback));
}

void AudioHardwareCoreAudio::removeDeviceListListener(ListenerId id)
{
    removeListener(id);
}

AudioHardware::ListenerId AudioHardwareCoreAudio::addDefaultInputListener(
    std::function<void()> callback)
{
    return addListener(kAudioHardwarePropertyDefaultInputDevice, std::move(callback));
}

void AudioHardwareCoreAudio::removeDefaultInputListener(ListenerId id)
{
    removeListener(id);
}

AudioHardware::ListenerId AudioHardwareCoreAudio::addListener(
    AudioObjectPropertySelector selector, std::function<void()> callback)
{
    auto active = std::make_shared<std::atomic<bool>>(true);
    AudioObjectPropertyListenerBlock block = ^(UInt32, const AudioObjectPropertyAddress *) {
        if (active->load()) {
            callback();
        }
    };
    const AudioObjectPropertyAddress address = globalAddress(selector);
    if (AudioObjectAddPropertyListenerBlock(
            kAudioObjectSystemObject, &address, dispatch_get_main_queue(), block)
        != noErr) {
        return 0;
    }
    std::lock_guard lock(m_mutex);
    const ListenerId id = m_nextId++;
    m_listeners->entries.emplace(id, Listeners::Entry {selector, block, active});
    return id;
}

void AudioHardwareCoreAudio::removeListener(ListenerId id)
{
    std::lock_guard lock(m_mutex);
    const auto found = m_listeners->entries.find(id);
    if (found == m_listeners->entries.end()) {
        return;
    }
    found->second.active->store(false);
    const AudioObjectPropertyAddress address = globalAddress(found->second.selector);
    // Removal must name the very block that was added, on the same queue.
    AudioObjectRemovePropertyListenerBlock(
        kAudioObjectSystemObject, &address, dispatch_get_main_queue(), found->second.block);
    m_listeners->entries.erase(found);
}

std::optional<AudioObjectId> AudioHardwareCoreAudio::defaultInputDevice()
{
    const auto device = readValue<AudioObjectID>(
        kAudioObjectSystemObject, globalAddress(kAudioHardwarePropertyDefaultInputDevice));
    if (!device || *device == kAudioObjectUnknown) {
        return std::nullopt;
    }
    return *device;
}

} // namespace sayvo
