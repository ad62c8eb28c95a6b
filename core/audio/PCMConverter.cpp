#include "audio/PCMConverter.h"

#include <soxr.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace sayvo {

namespace {

constexpr quint32 kCapacityMarginFrames = 16;

// Output frames one resampler call may produce for `frames` input frames: the resampled
// length plus a margin for its carry-over. Only a first guess: resample() grows the space.
std::size_t outputCapacityFrames(double sourceSampleRate, std::size_t frames)
{
    return std::size_t(
               std::ceil(PCMConverter::kTargetSampleRate / sourceSampleRate * double(frames)))
        + kCapacityMarginFrames;
}

// Out-of-range samples are clipped alike on both sides, so a clipped wave stays centred; a
// NaN (a glitch of the capture path) is silence rather than full scale.
float sanitized(float value)
{
    if (std::isnan(value)) {
        return 0.0f;
    }
    return std::clamp(value, -1.0f, 1.0f);
}

qint16 toSample(float value)
{
    // Scaled by 32768 so every 16-bit source sample passes through exactly; only -32768 is
    // clipped to -32767, the mirror of the positive limit.
    const float scaled = std::nearbyint(sanitized(value) * 32768.0f);
    return static_cast<qint16>(std::clamp(scaled, -32767.0f, 32767.0f));
}

} // namespace

std::unique_ptr<PCMConverter> PCMConverter::create(AudioStreamFormat sourceFormat)
{
    if (!(sourceFormat.sampleRate > 0.0) || !std::isfinite(sourceFormat.sampleRate)
        || sourceFormat.channels == 0) {
        return nullptr;
    }
    if (sourceFormat.sampleRate == kTargetSampleRate) {
        return std::unique_ptr<PCMConverter>(new PCMConverter(sourceFormat, nullptr));
    }
    soxr_error_t error = nullptr;
    const soxr_io_spec_t io = soxr_io_spec(SOXR_FLOAT32_I, SOXR_FLOAT32_I);
    // Linear phase, high quality. The filter holds back 20 to 40 ms, which drain() lets out
    // at the end of each utterance. A minimum-phase filter would hold back only ~6 ms but
    // costs more than ten times the CPU on the audio thread.
    const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_HQ, 0);
    soxr_t resampler = soxr_create(sourceFormat.sampleRate, kTargetSampleRate, kTargetChannels,
        &error, &io, &quality, nullptr);
    if (error || !resampler) {
        soxr_delete(resampler);
        return nullptr;
    }
    return std::unique_ptr<PCMConverter>(new PCMConverter(sourceFormat, resampler));
}

PCMConverter::PCMConverter(AudioStreamFormat sourceFormat, soxr *resampler)
    : m_sourceFormat(sourceFormat), m_resampler(resampler)
{ }

PCMConverter::~PCMConverter()
{
    soxr_delete(m_resampler);
}

std::optional<std::size_t> PCMConverter::resample(std::size_t frames)
{
    const bool ending = frames == 0;
    m_resampled.resize(
        outputCapacityFrames(m_sourceFormat.sampleRate, std::max<std::size_t>(frames, 1600)));
    std::size_t consumed = 0;
    std::size_t outputFrames = 0;
    // The resampler stops at the end of the output space and keeps the rest for later, which
    // would let the delay grow with every buffer. So keep asking (growing the space) until it
    // has taken all input and has nothing more ready.
    for (;;) {
        if (m_resampled.size() - outputFrames < kCapacityMarginFrames) {
            m_resampled.resize(m_resampled.size() * 2);
        }
        std::size_t inputDone = 0;
        std::size_t outputDone = 0;
        const soxr_error_t error = soxr_process(m_resampler,
            ending ? nullptr : m_mono.data() + consumed, frames - consumed, &inputDone,
            m_resampled.data() + outputFrames, m_resampled.size() - outputFrames, &outputDone);
        if (error) {
            soxr_clear(m_resampler);
            return std::nullopt;
        }
        consumed += inputDone;
        outputFrames += outputDone;
        if (outputDone == 0 && (ending || inputDone == 0 || consumed == frames)) {
            return outputFrames;
        }
    }
}

QByteArray PCMConverter::encode(const float *samples, std::size_t count)
{
    QByteArray bytes(qsizetype(count) * kTargetBytesPerSample, Qt::Uninitialized);
    auto *out = reinterpret_cast<uchar *>(bytes.data());
    for (std::size_t i = 0; i < count; ++i) {
        const auto sample = quint16(toSample(samples[i]));
        out[2 * i] = uchar(sample & 0xff);
        out[2 * i + 1] = uchar(sample >> 8);
    }
    return bytes;
}

std::optional<QByteArray> PCMConverter::convert(const AudioBufferView &buffer)
{
    if (!buffer.samples || buffer.frameLength == 0 || buffer.channels != m_sourceFormat.channels) {
        return std::nullopt;
    }

    // Channel 0 only, not an average of all channels: many USB and headset microphones
    // carry the voice on the first channel and a dead, duplicated or phase-inverted copy
    // on the others, which an average would attenuate or cancel. It is also the channel
    // the level meter reads, so the level and the transcribed audio always agree. Cleaned
    // before the filter, which would smear one NaN over the filter's whole length.
    m_mono.resize(buffer.frameLength);
    for (quint32 frame = 0; frame < buffer.frameLength; ++frame) {
        m_mono[frame] = sanitized(buffer.samples[std::size_t(frame) * buffer.channels]);
    }
    if (!m_resampler) {
        return encode(m_mono.data(), m_mono.size());
    }
    const auto outputFrames = resample(buffer.frameLength);
    if (!outputFrames || *outputFrames == 0) {
        return std::nullopt;
    }
    return encode(m_resampled.data(), *outputFrames);
}

std::optional<QByteArray> PCMConverter::drain()
{
    if (!m_resampler) {
        return std::nullopt;
    }
    const auto outputFrames = resample(0);
    soxr_clear(m_resampler);
    if (!outputFrames || *outputFrames == 0) {
        return std::nullopt;
    }
    return encode(m_resampled.data(), *outputFrames);
}

void PCMConverter::reset()
{
    if (m_resampler) {
        soxr_clear(m_resampler);
    }
}

float PCMConverter::rms(const AudioBufferView &buffer)
{
    if (!buffer.samples || buffer.frameLength == 0 || buffer.channels == 0) {
        return 0.0f;
    }
    float sum = 0.0f;
    for (quint32 frame = 0; frame < buffer.frameLength; ++frame) {
        const float sample = buffer.samples[std::size_t(frame) * buffer.channels];
        sum += sample * sample;
    }
    return std::sqrt(sum / float(buffer.frameLength));
}

} // namespace sayvo
