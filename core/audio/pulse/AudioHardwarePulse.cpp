#include "audio/pulse/AudioHardwarePulse.h"

#include <cstring>

namespace sayvo {

namespace {

AudioTransportType transportOf(const pa_source_info &info)
{
    if (info.monitor_of_sink != PA_INVALID_INDEX) {
        return AudioTransportType::outputMonitor;
    }
    const char *bus = pa_proplist_gets(info.proplist, PA_PROP_DEVICE_BUS);
    if (bus && std::strcmp(bus, "bluetooth") == 0) {
        return AudioTransportType::bluetooth;
    }
    if (bus && std::strcmp(bus, "usb") == 0) {
        return AudioTransportType::usb;
    }
    if (bus && (std::strcmp(bus, "pci") == 0 || std::strcmp(bus, "isa") == 0)) {
        return AudioTransportType::builtIn;
    }
    if (!(info.flags & PA_SOURCE_HARDWARE)) {
        return AudioTransportType::virtualDevice;
    }
    return AudioTransportType::unknown;
}

// Whether a subscription event can change the list of input devices. Sources report a
// change event for every volume or mute step, which leaves the list as it was; only a
// source that comes or goes changes it.
bool changesDeviceList(pa_subscription_event_type_t event)
{
    const auto facility = event & PA_SUBSCRIPTION_EVENT_FACILITY_MASK;
    const auto kind = event & PA_SUBSCRIPTION_EVENT_TYPE_MASK;
    return facility == PA_SUBSCRIPTION_EVENT_SOURCE
        && (kind == PA_SUBSCRIPTION_EVENT_NEW || kind == PA_SUBSCRIPTION_EVENT_REMOVE);
}

// The server reports a change event whenever its default sink or source is set (again).
bool mayChangeDefaultSource(pa_subscription_event_type_t event)
{
    return (event & PA_SUBSCRIPTION_EVENT_FACILITY_MASK) == PA_SUBSCRIPTION_EVENT_SERVER;
}

} // namespace

AudioHardwarePulse::AudioHardwarePulse() : m_connection("Sayvo")
{
    m_connection.setReadyHandler([this](pa_context *context) {
        // A server that was missing comes with devices of its own.
        if (m_serverWasMissing && !m_listeners.empty()) {
            notifyListeners(m_listeners);
        }
        m_serverWasMissing = false;
        pa_context_set_subscribe_callback(
            context,
            [](pa_context *context, pa_subscription_event_type_t event, uint32_t, void *userdata) {
                auto *hardware = static_cast<AudioHardwarePulse *>(userdata);
                if (changesDeviceList(event)) {
                    hardware->notifyListeners(hardware->m_listeners);
                }
                if (mayChangeDefaultSource(event)) {
                    hardware->readDefaultSource(context);
                }
            },
            this);
        pa_operation *operation = pa_context_subscribe(context,
            pa_subscription_mask_t(PA_SUBSCRIPTION_MASK_SOURCE | PA_SUBSCRIPTION_MASK_SERVER),
            nullptr, nullptr);
        if (operation) {
            pa_operation_unref(operation);
        }
        // Also learns what the default was while no server answered.
        readDefaultSource(context);
    });
    m_connection.setFailureHandler([this](bool wasReady) {
        m_serverWasMissing = true;
        if (wasReady) {
            notifyListeners(m_listeners);
        }
        // While anyone listens, keep looking for a server that comes back: its devices
        // are a change of the list too.
        if (!m_listeners.empty() || !m_defaultInputListeners.empty()) {
            m_connection.reconnectLater(kReconnectDelayMs);
        }
    });
}

AudioHardwarePulse::~AudioHardwarePulse()
{
    // The subscription and server-info callbacks use the listeners and the default source,
    // which go before the connection does.
    m_connection.close();
}

void AudioHardwarePulse::notifyListeners(const Listeners &listeners)
{
    for (const auto &[id, listener] : listeners) {
        listener();
    }
}

void AudioHardwarePulse::readDefaultSource(pa_context *context)
{
    // On the loop thread, which must not wait: the answer arrives in the callback.
    pa_operation *operation = pa_context_get_server_info(
        context,
        [](pa_context *, const pa_server_info *info, void *userdata) {
            if (!info) {
                return;
            }
            auto *hardware = static_cast<AudioHardwarePulse *>(userdata);
            const QString name
                = QString::fromUtf8(info->default_source_name ? info->default_source_name : "");
            const bool changed = hardware->m_defaultSource && *hardware->m_defaultSource != name;
            hardware->m_defaultSource = name;
            if (changed) {
                hardware->notifyListeners(hardware->m_defaultInputListeners);
            }
        },
        this);
    if (operation) {
        pa_operation_unref(operation);
    }
}

AudioHardware::ListenerId AudioHardwarePulse::addListener(
    Listeners &listeners, std::function<void()> callback)
{
    PulseConnection::Lock lock(m_connection);
    const ListenerId id = m_nextListener++;
    listeners.emplace(id, std::move(callback));
    // Events flow only over a live connection; make one so that changes are heard even
    // before anyone reads the list.
    QString ignored;
    m_connection.readyContext(&ignored);
    return id;
}

void AudioHardwarePulse::removeListener(Listeners &listeners, ListenerId id)
{
    PulseConnection::Lock lock(m_connection);
    listeners.erase(id);
}

AudioHardware::ListenerId AudioHardwarePulse::addDeviceListListener(std::function<void()> callback)
{
    return addListener(m_listeners, std::move(callback));
}

void AudioHardwarePulse::removeDeviceListListener(ListenerId id)
{
    removeListener(m_listeners, id);
}

AudioHardware::ListenerId AudioHardwarePulse::addDefaultInputListener(
    std::function<void()> callback)
{
    return addListener(m_defaultInputListeners, std::move(callback));
}

void AudioHardwarePulse::removeDefaultInputListener(ListenerId id)
{
    removeListener(m_defaultInputListeners, id);
}

std::optional<std::vector<AudioObjectId>> AudioHardwarePulse::deviceIds()
{
    PulseConnection::Lock lock(m_connection);
    QString error;
    pa_context *context = m_connection.readyContext(&error);
    if (!context) {
        return std::nullopt;
    }
    struct Collect
    {
        PulseConnection *connection;
        std::vector<AudioObjectId> ids;
        bool failed = false;
    } collect {&m_connection, {}};
    pa_operation *operation = pa_context_get_source_info_list(
        context,
        [](pa_context *, const pa_source_info *info, int eol, void *userdata) {
            auto *collect = static_cast<Collect *>(userdata);
            if (eol < 0) {
                collect->failed = true;
            } else if (info) {
                collect->ids.push_back(info->index);
            }
            collect->connection->signal();
        },
        &collect);
    if (!m_connection.complete(operation) || collect.failed) {
        return std::nullopt;
    }
    return collect.ids;
}

std::optional<AudioHardwarePulse::Source> AudioHardwarePulse::source(AudioObjectId device)
{
    PulseConnection::Lock lock(m_connection);
    QString error;
    pa_context *context = m_connection.readyContext(&error);
    if (!context) {
        return std::nullopt;
    }
    struct Lookup
    {
        PulseConnection *connection;
        std::optional<Source> source;
    } lookup {&m_connection, std::nullopt};
    pa_operation *operation = pa_context_get_source_info_by_index(
        context, device,
        [](pa_context *, const pa_source_info *info, int, void *userdata) {
            auto *lookup = static_cast<Lookup *>(userdata);
            if (info) {
                Source source;
                source.name = QString::fromUtf8(info->name);
                source.description = QString::fromUtf8(info->description ? info->description : "");
                source.channels = info->sample_spec.channels;
                source.sampleRate = info->sample_spec.rate;
                source.transport = transportOf(*info);
                lookup->source = source;
            }
            lookup->connection->signal();
        },
        &lookup);
    if (!m_connection.complete(operation)) {
        return std::nullopt;
    }
    return lookup.source;
}

std::optional<quint32> AudioHardwarePulse::inputChannelCount(AudioObjectId device)
{
    const auto found = source(device);
    return found ? std::optional<quint32>(found->channels) : std::nullopt;
}

std::optional<QString> AudioHardwarePulse::deviceUID(AudioObjectId device)
{
    const auto found = source(device);
    return found ? std::optional<QString>(found->name) : std::nullopt;
}

std::optional<QString> AudioHardwarePulse::deviceName(AudioObjectId device)
{
    const auto found = source(device);
    return found ? std::optional<QString>(found->description) : std::nullopt;
}

std::optional<AudioTransportType> AudioHardwarePulse::transportType(AudioObjectId device)
{
    const auto found = source(device);
    return found ? std::optional<AudioTransportType>(found->transport) : std::nullopt;
}

std::optional<bool> AudioHardwarePulse::aggregateIsPrivate(AudioObjectId)
{
    return std::nullopt;
}

std::optional<double> AudioHardwarePulse::nominalSampleRate(AudioObjectId device)
{
    const auto found = source(device);
    return found ? std::optional<double>(found->sampleRate) : std::nullopt;
}

std::optional<std::vector<SampleRateRange>> AudioHardwarePulse::availableSampleRates(
    AudioObjectId device)
{
    const auto found = source(device);
    if (!found) {
        return std::nullopt;
    }
    return std::vector<SampleRateRange> {{found->sampleRate, found->sampleRate}};
}

bool AudioHardwarePulse::setNominalSampleRate(AudioObjectId, double)
{
    return false;
}

} // namespace sayvo
