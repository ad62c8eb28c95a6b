#include "audio/AudioCapture.h"

#include "audio/AudioDevices.h"
#include "audio/PCMConverter.h"
#include "base/Logging.h"

#include <algorithm>
#include <cmath>

namespace sayvo {

AudioCapture::AudioCapture(std::unique_ptr<AudioInputEngine> engine, AudioHardware &hardware)
    : m_engine(std::move(engine)),
      m_hardware(hardware),
      m_queue(std::make_unique<SerialQueue>(kQueueLabel))
{
    m_engine->setOnInterruption([this](const QString &reason) {
        std::lock_guard lock(m_onInterruptedMutex);
        if (m_onInterrupted) {
            m_onInterrupted(reason);
        }
    });
}

AudioCapture::~AudioCapture()
{
    m_engine->setOnInterruption({});
    // The tap and the queued work refer to this object: silence the tap first, then the
    // queue (the last member) discards what is still pending.
    if (m_isPrepared) {
        m_engine->removeTap();
    }
    if (m_engine->isRunning()) {
        m_engine->stop();
    }
}

void AudioCapture::setOnChunk(ChunkHandler handler)
{
    m_queue->sync([&] { m_onChunk = std::move(handler); });
}

void AudioCapture::setOnRMS(RMSHandler handler)
{
    auto shared = handler ? std::make_shared<const RMSHandler>(std::move(handler)) : nullptr;
    std::lock_guard lock(m_onRMSMutex);
    m_onRMS = std::move(shared);
}

void AudioCapture::setOnCaptureLive(LiveHandler handler)
{
    m_queue->sync([&] { m_onCaptureLive = std::move(handler); });
}

void AudioCapture::setOnInterrupted(InterruptionHandler handler)
{
    std::lock_guard lock(m_onInterruptedMutex);
    m_onInterrupted = std::move(handler);
}

Status<AudioCaptureError> AudioCapture::prepare()
{
    if (m_isPrepared) {
        return {};
    }
    m_activeDeviceUID = selectConfiguredDevice();

    const auto format = m_engine->inputFormat();
    if (!format) {
        return AudioCaptureError::soundServerUnavailable(format.error());
    }
    if (!(format->sampleRate > 0.0) || format->channels == 0) {
        return AudioCaptureError::invalidInputFormat(format->sampleRate, format->channels);
    }
    auto converter = PCMConverter::create(*format);
    if (!converter) {
        return AudioCaptureError::converterUnavailable(format->sampleRate, format->channels);
    }
    {
        std::lock_guard lock(m_converterMutex);
        m_converter = std::move(converter);
    }
    const auto bufferFrames
        = quint32(std::max(1L, std::lround(format->sampleRate * kTapBufferMs / 1000.0)));
    if (const auto refused = m_engine->installTap(bufferFrames, *format,
            [this](const AudioBufferView &buffer) { handleBuffer(buffer); })) {
        std::lock_guard lock(m_converterMutex);
        m_converter.reset();
        return AudioCaptureError::tapRefused(*refused);
    }
    m_preparedFormat = *format;
    m_isPrepared = true;
    Logging::shared().info(
        QStringLiteral("audio ready (idle): input %1 Hz, %2 ch \u2014 mic opens only while "
                       "dictating")
            .arg(formatSampleRate(format->sampleRate))
            .arg(format->channels));
    return {};
}

std::optional<QString> AudioCapture::selectConfiguredDevice()
{
    std::optional<QString> desired;
    m_queue->sync([&] { desired = m_desiredDeviceUID; });

    // Every way out without the chosen device binds the system default, so a device that
    // vanished is never left half-selected.
    const auto useDefault = [this]() -> std::optional<QString> {
        m_engine->setCurrentDevice(std::nullopt);
        return std::nullopt;
    };
    if (!desired) {
        return useDefault();
    }
    const auto device = AudioDevices::inputDevice(m_hardware, *desired);
    if (!device) {
        return useDefault();
    }
    if (!m_engine->canSelectDevice()) {
        Logging::shared().error(
            QStringLiteral("input node has no audio unit; using system default input"));
        return std::nullopt;
    }
    const int status = m_engine->setCurrentDevice(device->id);
    if (status != 0) {
        Logging::shared().error(
            QStringLiteral("could not select input '%1' (OSStatus %2); using default")
                .arg(device->name)
                .arg(status));
        return useDefault();
    }
    if (device->isBluetooth) {
        if (const auto rate = AudioDevices::raiseToHighestSampleRate(m_hardware, device->id)) {
            Logging::shared().info(QStringLiteral("input '%1': %2 Hz (best available)")
                                       .arg(device->name)
                                       .arg(qint64(std::llround(*rate))));
        }
    }
    Logging::shared().info(QStringLiteral("input device: %1").arg(device->name));
    return desired;
}

void AudioCapture::handleBuffer(const AudioBufferView &buffer)
{
    const float rms = PCMConverter::rms(buffer);
    std::shared_ptr<const RMSHandler> onRMS;
    {
        std::lock_guard lock(m_onRMSMutex);
        onRMS = m_onRMS;
    }
    if (onRMS) {
        (*onRMS)(rms);
    }
    // Under the lock, so a stop that drains the converter waits for this buffer and its
    // audio is queued before the tail.
    std::lock_guard lock(m_converterMutex);
    if (!m_isForwarding || !m_converter) {
        return;
    }
    if (auto converted = m_converter->convert(buffer)) {
        deliverConverted(std::move(*converted), rms);
    }
}

void AudioCapture::deliverConverted(QByteArray bytes, float rms)
{
    const qint64 byteCount = bytes.size();
    m_queue->async([this, rms, byteCount] {
        if (!m_didSignalLive) {
            m_didSignalLive = true;
            if (m_onCaptureLive) {
                m_onCaptureLive();
            }
        }
        m_lastUtterancePeakRMS = std::max(m_lastUtterancePeakRMS, rms);
        m_lastUtteranceBytes += byteCount;
    });
    enqueue(std::move(bytes));
}

void AudioCapture::enqueue(QByteArray bytes)
{
    m_queue->async([this, bytes = std::move(bytes)] {
        m_pendingBytes.append(bytes);
        while (m_pendingBytes.size() >= kChunkByteSize) {
            const QByteArray chunk(m_pendingBytes.constData(), kChunkByteSize);
            m_pendingBytes.remove(0, kChunkByteSize);
            if (m_onChunk) {
                m_onChunk(chunk);
            }
        }
    });
}

void AudioCapture::startForwarding()
{
    m_queue->sync([this] {
        m_pendingBytes.clear();
        m_lastUtterancePeakRMS = 0.0f;
        m_lastUtteranceBytes = 0;
        m_didSignalLive = false;
    });
    {
        std::lock_guard lock(m_converterMutex);
        if (m_converter) {
            m_converter->reset();
        }
    }
    openMicrophone();
    m_isForwarding = true;
}

void AudioCapture::openMicrophone()
{
    if (m_isPrepared && !m_engine->isRunning()) {
        if (const auto failure = m_engine->start()) {
            Logging::shared().error(
                QStringLiteral("could not start mic capture: %1").arg(*failure));
        }
    }
}

void AudioCapture::stopForwarding(bool flush)
{
    {
        std::lock_guard lock(m_converterMutex);
        m_isForwarding = false;
        // The last 20 to 40 ms of speech are still inside the resampler's filter.
        if (m_converter) {
            auto tail = m_converter->drain();
            if (tail && flush) {
                deliverConverted(std::move(*tail), 0.0f);
            }
        }
    }
    m_queue->sync([this, flush] {
        if (flush && !m_pendingBytes.isEmpty() && m_onChunk) {
            m_onChunk(QByteArray(m_pendingBytes.constData(), m_pendingBytes.size()));
        }
        m_pendingBytes.clear();
    });
    if (m_isPrepared && m_engine->isRunning()) {
        m_engine->stop();
    }
}

void AudioCapture::setInputDevice(const std::optional<QString> &uid)
{
    m_queue->sync([&] { m_desiredDeviceUID = uid; });
    if (m_isPrepared) {
        rebuild();
    }
}

void AudioCapture::reconcile(const QSet<QString> &availableUIDs)
{
    if (!m_isPrepared) {
        return;
    }
    const auto desired = desiredDeviceUID();
    if (desired && availableUIDs.contains(*desired)) {
        if (m_activeDeviceUID != desired) {
            rebuild();
        }
        return;
    }
    // The choice is unavailable or there is none: the default input is the right binding.
    if (m_activeDeviceUID) {
        rebuild();
    }
}

void AudioCapture::followDefaultInput()
{
    // A chosen device stays bound whatever the system prefers.
    if (!m_isPrepared || m_activeDeviceUID) {
        return;
    }
    rebuildAndResume();
}

void AudioCapture::recover()
{
    if (m_isPrepared && m_engine->isRunning() == m_isForwarding.load()) {
        const auto format = m_engine->inputFormat();
        if (format && *format == m_preparedFormat) {
            return;
        }
    }
    rebuildAndResume();
}

void AudioCapture::rebuildAndResume()
{
    rebuild();
    if (m_isForwarding) {
        openMicrophone();
    }
}

void AudioCapture::rebuild()
{
    m_engine->removeTap();
    if (m_engine->isRunning()) {
        m_engine->stop();
    }
    m_isPrepared = false;
    {
        std::lock_guard lock(m_converterMutex);
        m_converter.reset();
    }
    if (const auto status = prepare(); !status) {
        Logging::shared().error(
            QStringLiteral("audio device switch failed: %1").arg(status.error().describe()));
    }
}

std::optional<QString> AudioCapture::desiredDeviceUID() const
{
    std::optional<QString> uid;
    m_queue->sync([&] { uid = m_desiredDeviceUID; });
    return uid;
}

std::optional<QString> AudioCapture::activeDeviceUID() const
{
    return m_activeDeviceUID;
}

float AudioCapture::lastUtterancePeakRMS() const
{
    float peak = 0.0f;
    m_queue->sync([&] { peak = m_lastUtterancePeakRMS; });
    return peak;
}

qint64 AudioCapture::lastUtteranceBytes() const
{
    qint64 bytes = 0;
    m_queue->sync([&] { bytes = m_lastUtteranceBytes; });
    return bytes;
}

} // namespace sayvo
