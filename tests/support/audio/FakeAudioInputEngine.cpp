#include "support/audio/FakeAudioInputEngine.h"

#include <algorithm>

namespace sayvo {

FakeAudioInputEngine::FakeAudioInputEngine(AudioStreamFormat format) : m_format(format) { }

void FakeAudioInputEngine::setFormat(AudioStreamFormat format)
{
    std::lock_guard lock(m_mutex);
    m_format = format;
}

void FakeAudioInputEngine::setUnavailable(std::optional<QString> reason)
{
    std::lock_guard lock(m_mutex);
    m_unavailable = std::move(reason);
}

void FakeAudioInputEngine::setStartFailure(std::optional<QString> reason)
{
    std::lock_guard lock(m_mutex);
    m_startFailure = std::move(reason);
}

void FakeAudioInputEngine::setCanSelectDevice(bool canSelect)
{
    std::lock_guard lock(m_mutex);
    m_canSelectDevice = canSelect;
}

void FakeAudioInputEngine::setDeviceStatus(AudioObjectId device, int status)
{
    std::lock_guard lock(m_mutex);
    m_deviceStatus[device] = status;
}

bool FakeAudioInputEngine::deliver(const float *interleaved, quint32 frames)
{
    // The lock is held through the tap call so that removeTap() waits for a call in
    // flight, as a real backend guarantees.
    std::lock_guard lock(m_mutex);
    if (!m_running || !m_tap) {
        return false;
    }
    m_tap(AudioBufferView {interleaved, frames, m_tapFormat.channels});
    return true;
}

int FakeAudioInputEngine::play(const std::vector<float> &interleaved, quint32 framesPerBuffer)
{
    quint32 channels = 0;
    {
        std::lock_guard lock(m_mutex);
        channels = m_tapFormat.channels ? m_tapFormat.channels : m_format.channels;
    }
    if (channels == 0 || framesPerBuffer == 0) {
        return 0;
    }
    const std::size_t totalFrames = interleaved.size() / channels;
    int delivered = 0;
    for (std::size_t frame = 0; frame < totalFrames; frame += framesPerBuffer) {
        const auto frames = quint32(std::min<std::size_t>(framesPerBuffer, totalFrames - frame));
        if (deliver(interleaved.data() + frame * channels, frames)) {
            ++delivered;
        }
    }
    return delivered;
}

int FakeAudioInputEngine::playS16(const QByteArray &s16le, quint32 framesPerBuffer)
{
    std::vector<float> samples(std::size_t(s16le.size() / 2));
    const auto *bytes = reinterpret_cast<const uchar *>(s16le.constData());
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const auto value = qint16(quint16(bytes[2 * i]) | quint16(bytes[2 * i + 1]) << 8);
        samples[i] = float(value) / 32768.0f;
    }
    return play(samples, framesPerBuffer);
}

std::optional<AudioObjectId> FakeAudioInputEngine::currentDevice() const
{
    std::lock_guard lock(m_mutex);
    return m_currentDevice;
}

int FakeAudioInputEngine::setCurrentDeviceCalls() const
{
    std::lock_guard lock(m_mutex);
    return m_setCurrentDeviceCalls;
}

bool FakeAudioInputEngine::hasTap() const
{
    std::lock_guard lock(m_mutex);
    return bool(m_tap);
}

quint32 FakeAudioInputEngine::tapBufferFrames() const
{
    std::lock_guard lock(m_mutex);
    return m_tapBufferFrames;
}

AudioStreamFormat FakeAudioInputEngine::tapFormat() const
{
    std::lock_guard lock(m_mutex);
    return m_tapFormat;
}

int FakeAudioInputEngine::installTapCalls() const
{
    std::lock_guard lock(m_mutex);
    return m_installTapCalls;
}

int FakeAudioInputEngine::removeTapCalls() const
{
    std::lock_guard lock(m_mutex);
    return m_removeTapCalls;
}

int FakeAudioInputEngine::startCalls() const
{
    std::lock_guard lock(m_mutex);
    return m_startCalls;
}

int FakeAudioInputEngine::stopCalls() const
{
    std::lock_guard lock(m_mutex);
    return m_stopCalls;
}

bool FakeAudioInputEngine::canSelectDevice() const
{
    std::lock_guard lock(m_mutex);
    return m_canSelectDevice;
}

int FakeAudioInputEngine::setCurrentDevice(std::optional<AudioObjectId> device)
{
    std::lock_guard lock(m_mutex);
    ++m_setCurrentDeviceCalls;
    if (device) {
        const auto status = m_deviceStatus.find(*device);
        if (status != m_deviceStatus.end() && status->second != 0) {
            return status->second;
        }
    }
    m_currentDevice = device;
    return 0;
}

Expected<AudioStreamFormat, QString> FakeAudioInputEngine::inputFormat()
{
    std::lock_guard lock(m_mutex);
    if (m_unavailable) {
        return Expected<AudioStreamFormat, QString>::failure(*m_unavailable);
    }
    return m_format;
}

std::optional<QString> FakeAudioInputEngine::installTap(
    quint32 bufferFrames, AudioStreamFormat format, Tap tap)
{
    std::lock_guard lock(m_mutex);
    ++m_installTapCalls;
    if (m_tapFailure) {
        return m_tapFailure;
    }
    m_tapBufferFrames = bufferFrames;
    m_tapFormat = format;
    m_tap = std::move(tap);
    return std::nullopt;
}

void FakeAudioInputEngine::setTapFailure(std::optional<QString> reason)
{
    std::lock_guard lock(m_mutex);
    m_tapFailure = std::move(reason);
}

void FakeAudioInputEngine::interrupt(const QString &reason)
{
    InterruptionHandler handler;
    {
        std::lock_guard lock(m_mutex);
        m_running = false;
        handler = m_onInterruption;
    }
    if (handler) {
        handler(reason);
    }
}

void FakeAudioInputEngine::setOnInterruption(InterruptionHandler handler)
{
    std::lock_guard lock(m_mutex);
    m_onInterruption = std::move(handler);
}

void FakeAudioInputEngine::removeTap()
{
    std::lock_guard lock(m_mutex);
    ++m_removeTapCalls;
    m_tap = nullptr;
}

std::optional<QString> FakeAudioInputEngine::start()
{
    std::lock_guard lock(m_mutex);
    ++m_startCalls;
    if (m_startFailure) {
        return m_startFailure;
    }
    m_running = true;
    return std::nullopt;
}

void FakeAudioInputEngine::stop()
{
    std::lock_guard lock(m_mutex);
    ++m_stopCalls;
    m_running = false;
}

bool FakeAudioInputEngine::isRunning() const
{
    std::lock_guard lock(m_mutex);
    return m_running;
}

} // namespace sayvo
