#include "audio/PCMConverter.h"

#include <soxr.h>

#include <cmath>
#include <limits>

namespace sayvo {

namespace {

constexpr quint32 kCapacityMarginFrames = 16;

qint16 toSample(float value)
{
    const float scaled = std::nearbyint(value * 32768.0f);
    if (!(scaled > -32768.0f)) {
        return -32768;
    }
    if (scaled > 32767.0f) {
        return 32767;
    }
    return static_cast<qint16>(scaled);
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
    // Linear phase, high quality. The filter holds back 20 to 40 ms, and since the stream
    // never ends that tail only comes out at the start of the next utterance; it is the
    // moment after the key was released, normally silence. A minimum-phase filter would
    // hold back only ~6 ms but costs more than ten times the CPU on the audio thread.
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

std::optional<quint32> PCMConverter::outputCapacityFrames(double sourceSampleRate, quint32 frames)
{
    const double product = std::floor(kTargetSampleRate / sourceSampleRate * frames);
    if (!std::isfinite(product) || product < 0.0
        || product > double(std::numeric_limits<quint32>::max() - kCapacityMarginFrames)) {
        return std::nullopt;
    }
    return quint32(product) + kCapacityMarginFrames;
}

std::optional<QByteArray> PCMConverter::convert(const AudioBufferView &buffer)
{
    if (!buffer.samples || buffer.frameLength == 0 || buffer.channels != m_sourceFormat.channels) {
        return std::nullopt;
    }
    const auto capacity = outputCapacityFrames(m_sourceFormat.sampleRate, buffer.frameLength);
    if (!capacity) {
        return std::nullopt;
    }

    // Channel 0 only, not an average of all channels: many USB and headset microphones
    // carry the voice on the first channel and a dead, duplicated or phase-inverted copy
    // on the others, which an average would attenuate or cancel. It is also the channel
    // the level meter reads, so the level and the transcribed audio always agree.
    m_mono.resize(buffer.frameLength);
    for (quint32 frame = 0; frame < buffer.frameLength; ++frame) {
        m_mono[frame] = buffer.samples[std::size_t(frame) * buffer.channels];
    }

    const float *output = m_mono.data();
    std::size_t outputFrames = buffer.frameLength;
    if (m_resampler) {
        m_resampled.resize(*capacity);
        std::size_t consumed = 0;
        outputFrames = 0;
        // The resampler stops at the end of the output space and keeps the rest for later,
        // which would let the delay grow with every buffer. So keep asking (growing the
        // space) until it has taken all input and has nothing more ready; without ever
        // flushing it, so its state runs on into the next buffer.
        for (;;) {
            if (m_resampled.size() - outputFrames < kCapacityMarginFrames) {
                m_resampled.resize(m_resampled.size() + *capacity);
            }
            std::size_t inputDone = 0;
            std::size_t outputDone = 0;
            const soxr_error_t error = soxr_process(m_resampler, m_mono.data() + consumed,
                buffer.frameLength - consumed, &inputDone, m_resampled.data() + outputFrames,
                m_resampled.size() - outputFrames, &outputDone);
            if (error) {
                return std::nullopt;
            }
            consumed += inputDone;
            outputFrames += outputDone;
            if (outputDone == 0 && (inputDone == 0 || consumed == buffer.frameLength)) {
                break;
            }
        }
        output = m_resampled.data();
    }
    if (outputFrames == 0) {
        return std::nullopt;
    }

    QByteArray bytes(qsizetype(outputFrames) * kTargetBytesPerSample, Qt::Uninitialized);
    auto *out = reinterpret_cast<uchar *>(bytes.data());
    for (std::size_t i = 0; i < outputFrames; ++i) {
        const auto sample = quint16(toSample(output[i]));
        out[2 * i] = uchar(sample & 0xff);
        out[2 * i + 1] = uchar(sample >> 8);
    }
    return bytes;
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
