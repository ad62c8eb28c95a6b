#pragma once

#include "audio/AudioInputEngine.h"

#include <QByteArray>

#include <memory>
#include <optional>
#include <vector>

struct soxr;

namespace sayvo {

// Turns captured float buffers of one source format into the engine's wire format
// (16 kHz, mono, signed 16-bit little-endian). Streaming: the resampler's state runs on
// from one buffer to the next, so consecutive outputs join without a seam; it is never
// reset while the converter lives. One converter per preparation, used from the audio
// thread only.
class PCMConverter
{
public:
    static constexpr double kTargetSampleRate = 16000.0;
    static constexpr quint32 kTargetChannels = 1;
    static constexpr int kTargetBytesPerSample = 2;

    // Nothing when no conversion from the source format can be built.
    static std::unique_ptr<PCMConverter> create(AudioStreamFormat sourceFormat);
    ~PCMConverter();

    PCMConverter(const PCMConverter &) = delete;
    PCMConverter &operator=(const PCMConverter &) = delete;

    const AudioStreamFormat &sourceFormat() const { return m_sourceFormat; }

    // The converted samples of one buffer, or nothing when the buffer does not match the
    // source format or produced no output yet (the resampler's look-ahead).
    std::optional<QByteArray> convert(const AudioBufferView &buffer);

    // Output frames one call may produce for `frames` input frames: the resampled length
    // plus a margin for the resampler's carry-over. Nothing when out of range.
    static std::optional<quint32> outputCapacityFrames(double sourceSampleRate, quint32 frames);

    // The level of one buffer: root mean square of channel 0; 0.0 for an empty buffer.
    static float rms(const AudioBufferView &buffer);

private:
    PCMConverter(AudioStreamFormat sourceFormat, soxr *resampler);

    AudioStreamFormat m_sourceFormat;
    // Null when the source already runs at the target rate: a unity-ratio resampler would
    // still filter and delay the signal for nothing.
    soxr *m_resampler = nullptr;
    std::vector<float> m_mono;
    std::vector<float> m_resampled;
};

} // namespace sayvo
