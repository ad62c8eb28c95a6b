#include "audio/pulse/AudioInputEnginePulse.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace sayvo {

AudioInputEnginePulse::AudioInputEnginePulse() : m_connection("Sayvo") { }

AudioInputEnginePulse::~AudioInputEnginePulse()
{
    PulseConnection::Lock lock(m_connection);
    m_tap = nullptr;
    dropStream();
}

int AudioInputEnginePulse::setCurrentDevice(std::optional<AudioObjectId> device)
{
    PulseConnection::Lock lock(m_connection);
    if (!device) {
        m_sourceName.clear();
        return 0;
    }
    QString error;
    pa_context *context = m_connection.readyContext(&error);
    if (!context) {
        return PA_ERR_CONNECTIONREFUSED;
    }
    struct Lookup
    {
        PulseConnection *connection;
        std::optional<std::string> name;
    } lookup {&m_connection, std::nullopt};
    pa_operation *operation = pa_context_get_source_info_by_index(
        context, *device,
        [](pa_context *, const pa_source_info *info, int, void *userdata) {
            auto *lookup = static_cast<Lookup *>(userdata);
            if (info) {
                lookup->name = info->name;
            }
            lookup->connection->signal();
        },
        &lookup);
    if (!m_connection.complete(operation) || !lookup.name) {
        return PA_ERR_NOENTITY;
    }
    m_sourceName = *lookup.name;
    return 0;
}

std::string AudioInputEnginePulse::sourceToRecord(pa_context *context)
{
    if (!m_sourceName.empty()) {
        return m_sourceName;
    }
    struct Sources
    {
        PulseConnection *connection;
        std::string defaultName;
        // Sources that are not monitors, in the server's order.
        std::vector<std::string> inputs;
    } sources {&m_connection, {}, {}};
    pa_operation *server = pa_context_get_server_info(
        context,
        [](pa_context *, const pa_server_info *info, void *userdata) {
            auto *sources = static_cast<Sources *>(userdata);
            if (info && info->default_source_name) {
                sources->defaultName = info->default_source_name;
            }
            sources->connection->signal();
        },
        &sources);
    pa_operation *list = pa_context_get_source_info_list(
        context,
        [](pa_context *, const pa_source_info *info, int, void *userdata) {
            auto *sources = static_cast<Sources *>(userdata);
            if (info && info->monitor_of_sink == PA_INVALID_INDEX) {
                sources->inputs.emplace_back(info->name);
            }
            sources->connection->signal();
        },
        &sources);
    if (!m_connection.complete(server) || !m_connection.complete(list) || sources.inputs.empty()) {
        return {};
    }
    if (std::find(sources.inputs.begin(), sources.inputs.end(), sources.defaultName)
        != sources.inputs.end()) {
        return sources.defaultName;
    }
    return sources.inputs.front();
}

Expected<AudioStreamFormat, QString> AudioInputEnginePulse::inputFormat()
{
    PulseConnection::Lock lock(m_connection);
    QString error;
    pa_context *context = m_connection.readyContext(&error);
    if (!context) {
        return Expected<AudioStreamFormat, QString>::failure(error);
    }
    m_resolvedSource = sourceToRecord(context);
    // No input at all reads as 0 Hz and 0 channels, the capture's "no microphone".
    if (m_resolvedSource.empty()) {
        return AudioStreamFormat {};
    }
    struct Lookup
    {
        PulseConnection *connection;
        AudioStreamFormat format;
    } lookup {&m_connection, {}};
    pa_operation *operation = pa_context_get_source_info_by_name(
        context, m_resolvedSource.c_str(),
        [](pa_context *, const pa_source_info *info, int, void *userdata) {
            auto *lookup = static_cast<Lookup *>(userdata);
            if (info) {
                lookup->format = {double(info->sample_spec.rate), info->sample_spec.channels};
            }
            lookup->connection->signal();
        },
        &lookup);
    if (!m_connection.complete(operation)) {
        return Expected<AudioStreamFormat, QString>::failure(
            QStringLiteral("the server did not answer"));
    }
    return lookup.format;
}

std::optional<QString> AudioInputEnginePulse::installTap(
    quint32 bufferFrames, AudioStreamFormat format, Tap tap)
{
    PulseConnection::Lock lock(m_connection);
    m_bufferFrames = bufferFrames;
    m_format = format;
    m_tap = std::move(tap);
    return std::nullopt;
}

void AudioInputEnginePulse::setOnInterruption(InterruptionHandler handler)
{
    PulseConnection::Lock lock(m_connection);
    m_onInterruption = std::move(handler);
}

void AudioInputEnginePulse::removeTap()
{
    // The read callback runs under the same lock, so once this returns no tap call is in
    // flight.
    PulseConnection::Lock lock(m_connection);
    m_tap = nullptr;
}

std::optional<QString> AudioInputEnginePulse::start()
{
    PulseConnection::Lock lock(m_connection);
    dropStream();
    QString error;
    pa_context *context = m_connection.readyContext(&error);
    if (!context) {
        return error;
    }
    if (!(m_format.sampleRate > 0.0) || m_format.channels == 0
        || m_format.channels > PA_CHANNELS_MAX) {
        return QStringLiteral("no capture format");
    }
    const pa_sample_spec sampleSpec {PA_SAMPLE_FLOAT32LE,
        uint32_t(std::lround(m_format.sampleRate)), uint8_t(m_format.channels)};
    m_stream = pa_stream_new(context, "Dictation", &sampleSpec, nullptr);
    if (!m_stream) {
        return QString::fromUtf8(pa_strerror(pa_context_errno(context)));
    }
    pa_stream_set_state_callback(m_stream, &AudioInputEnginePulse::streamStateChanged, this);
    pa_stream_set_read_callback(m_stream, &AudioInputEnginePulse::streamReadable, this);

    const uint32_t frameBytes = uint32_t(pa_frame_size(&sampleSpec));
    pa_buffer_attr attributes;
    attributes.maxlength = uint32_t(-1);
    attributes.tlength = uint32_t(-1);
    attributes.prebuf = uint32_t(-1);
    attributes.minreq = uint32_t(-1);
    attributes.fragsize = (m_bufferFrames ? m_bufferFrames : sampleSpec.rate / 50) * frameBytes;
    // Adjusting the source's latency to the fragment keeps the delay to the first buffer
    // at one fragment, which matters because the microphone opens only now.
    if (m_resolvedSource.empty()) {
        dropStream();
        return QStringLiteral("no microphone");
    }
    if (pa_stream_connect_record(
            m_stream, m_resolvedSource.c_str(), &attributes, PA_STREAM_ADJUST_LATENCY)
        < 0) {
        const QString reason = QString::fromUtf8(pa_strerror(pa_context_errno(context)));
        dropStream();
        return reason;
    }
    pa_stream *stream = m_stream;
    m_connection.waitUntil([stream] {
        const pa_stream_state_t state = pa_stream_get_state(stream);
        return state == PA_STREAM_READY || !PA_STREAM_IS_GOOD(state);
    });
    if (pa_stream_get_state(stream) != PA_STREAM_READY) {
        const QString reason = QString::fromUtf8(pa_strerror(pa_context_errno(context)));
        dropStream();
        return reason;
    }
    return std::nullopt;
}

void AudioInputEnginePulse::stop()
{
    PulseConnection::Lock lock(m_connection);
    dropStream();
}

bool AudioInputEnginePulse::isRunning() const
{
    PulseConnection::Lock lock(m_connection);
    return m_stream && PA_STREAM_IS_GOOD(pa_stream_get_state(m_stream));
}

void AudioInputEnginePulse::dropStream()
{
    if (!m_stream) {
        return;
    }
    pa_stream_set_state_callback(m_stream, nullptr, nullptr);
    pa_stream_set_read_callback(m_stream, nullptr, nullptr);
    if (pa_stream_get_state(m_stream) == PA_STREAM_READY
        || pa_stream_get_state(m_stream) == PA_STREAM_CREATING) {
        pa_stream_disconnect(m_stream);
    }
    pa_stream_unref(m_stream);
    m_stream = nullptr;
    m_streamWasReady = false;
}

void AudioInputEnginePulse::streamStateChanged(pa_stream *stream, void *userdata)
{
    auto *self = static_cast<AudioInputEnginePulse *>(userdata);
    const pa_stream_state_t state = pa_stream_get_state(stream);
    if (state == PA_STREAM_READY) {
        self->m_streamWasReady = true;
    } else if (!PA_STREAM_IS_GOOD(state) && self->m_streamWasReady) {
        // Our own stop() silences this callback before it disconnects, so this end came
        // from the server.
        self->m_streamWasReady = false;
        if (self->m_onInterruption) {
            self->m_onInterruption(
                QString::fromUtf8(pa_strerror(pa_context_errno(pa_stream_get_context(stream)))));
        }
    }
    self->m_connection.signal();
}

void AudioInputEnginePulse::streamReadable(pa_stream *stream, size_t, void *userdata)
{
    auto *self = static_cast<AudioInputEnginePulse *>(userdata);
    const quint32 channels = pa_stream_get_sample_spec(stream)->channels;
    const size_t frameBytes = sizeof(float) * channels;
    while (pa_stream_readable_size(stream) > 0) {
        const void *data = nullptr;
        size_t bytes = 0;
        if (pa_stream_peek(stream, &data, &bytes) < 0 || bytes == 0) {
            return;
        }
        // A hole (data null) is a gap the server reports in the stream; there are no
        // samples to pass on for it.
        if (data && self->m_tap) {
            const AudioBufferView buffer {
                static_cast<const float *>(data), quint32(bytes / frameBytes), channels};
            if (buffer.frameLength > 0) {
                self->m_tap(buffer);
            }
        }
        pa_stream_drop(stream);
    }
}

} // namespace sayvo
