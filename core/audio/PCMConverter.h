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
// from one buffer to the next, so consecutive outputs join without a seam, until drain()
// ends the stream (the end of an utterance) or reset() drops it; the next buffer then starts
// a new one. Samples outside [-1, 1] are clipped symmetrically (to +-32767) and NaN counts as
// silence. One converter per preparation; not thread-safe, callers serialise their calls.
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
    // Ends the stream: the samples the resampler's filter still holds (20 to 40 ms, the last
    // of what was said), then a fresh start. Nothing when nothing is held.
    std::optional<QByteArray> drain();
    // Drops whatever the resampler holds, so the next buffer starts a new stream.
    void reset();

    // The level of one buffer: root mean square of channel 0; 0.0 for an empty buffer.
    static float rms(const AudioBufferView &buffer);

private:
    PCMConverter(AudioStreamFormat sourceFormat, soxr *resampler);
    // Runs the resampler over `frames` samples of m_mono (none: the end of the stream) until
    // it has taken them all and has nothing more ready; the output lands in m_resampled.
    std::optional<std::size_t> resample(std::size_t frames);
    static QByteArray encode(const float *samples, std::size_t count);

    AudioStreamFormat m_sourceFormat;
    // Null when the source already runs at the target rate: a unity-ratio resampler would
    // still filter and delay the signal for nothing.
    soxr *m_resampler = nullptr;
    std::vector<float> m_mono;
    std::vector<float> m_resampled;
};

} // namespace sayvo
