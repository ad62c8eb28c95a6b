// Conversion speed against a naive baseline in the same run, and the cost of one tap call.
#include "audio/AudioCapture.h"
#include "audio/PCMConverter.h"
#include "support/audio/FakeAudioHardware.h"
#include "support/audio/FakeAudioInputEngine.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <numbers>
#include <vector>

using namespace sayvo;

namespace {

constexpr double kSourceRate = 48000.0;
constexpr quint32 kChannels = 2;
constexpr quint32 kBufferFrames = 1600;
// One second of 48 kHz stereo speech-band signal per iteration.
constexpr quint32 kFramesPerIteration = 48000;

std::vector<float> testSignal()
{
    std::vector<float> samples(std::size_t(kFramesPerIteration) * kChannels);
    for (std::size_t frame = 0; frame < kFramesPerIteration; ++frame) {
        const double t = double(frame) / kSourceRate;
        const float value = float(0.3 * std::sin(2.0 * std::numbers::pi * 220.0 * t)
            + 0.1 * std::sin(2.0 * std::numbers::pi * 3100.0 * t));
        samples[2 * frame] = value;
        samples[2 * frame + 1] = -value;
    }
    return samples;
}

// The baseline: channel 0, linear interpolation between neighbouring input samples (no
// anti-alias filter), rounding to 16 bits. Position carried across buffers.
class LinearResampler
{
public:
    QByteArray convert(const float *interleaved, quint32 frames, quint32 channels)
    {
        QByteArray out;
        out.reserve(int(frames / 3 + 2) * 2);
        const double step = kSourceRate / 16000.0;
        while (m_position < double(frames)) {
            const auto index = std::size_t(m_position);
            const double fraction = m_position - double(index);
            const float a = index == 0 ? m_previous : interleaved[(index - 1) * channels];
            const float b = interleaved[index * channels];
            const float value = float(a + (b - a) * fraction);
            const auto sample
                = quint16(qint16(std::clamp(std::lround(value * 32768.0f), -32768L, 32767L)));
            out.append(char(sample & 0xff));
            out.append(char(sample >> 8));
            m_position += step;
        }
        m_position -= double(frames);
        m_previous = interleaved[std::size_t(frames - 1) * channels];
        return out;
    }

private:
    double m_position = 0.0;
    float m_previous = 0.0f;
};

void reportRealTime(benchmark::State &state)
{
    // Seconds of audio converted per second of CPU: the factor faster than real time.
    state.counters["x_realtime"]
        = benchmark::Counter(double(state.iterations()) * kFramesPerIteration / kSourceRate,
            benchmark::Counter::kIsRate);
}

void BM_LinearInterpolationBaseline(benchmark::State &state)
{
    const auto signal = testSignal();
    LinearResampler resampler;
    for (auto _ : state) {
        for (quint32 frame = 0; frame < kFramesPerIteration; frame += kBufferFrames) {
            auto bytes = resampler.convert(
                signal.data() + std::size_t(frame) * kChannels, kBufferFrames, kChannels);
            benchmark::DoNotOptimize(bytes);
        }
    }
    reportRealTime(state);
}
BENCHMARK(BM_LinearInterpolationBaseline)->Unit(benchmark::kMillisecond);

void BM_PCMConverter(benchmark::State &state)
{
    const auto signal = testSignal();
    auto converter = PCMConverter::create({kSourceRate, kChannels});
    for (auto _ : state) {
        for (quint32 frame = 0; frame < kFramesPerIteration; frame += kBufferFrames) {
            auto bytes = converter->convert(
                {signal.data() + std::size_t(frame) * kChannels, kBufferFrames, kChannels});
            benchmark::DoNotOptimize(bytes);
        }
    }
    reportRealTime(state);
}
BENCHMARK(BM_PCMConverter)->Unit(benchmark::kMillisecond);

// One whole tap call as the audio thread makes it while dictating: level, conversion and
// the two posts to the capture queue, with the queue's consumer running on its own thread.
void BM_TapCallPerBuffer(benchmark::State &state)
{
    const auto signal = testSignal();
    FakeAudioHardware hardware;
    auto fake = std::make_unique<FakeAudioInputEngine>(AudioStreamFormat {kSourceRate, kChannels});
    FakeAudioInputEngine *engine = fake.get();
    AudioCapture capture(std::move(fake), hardware);
    std::size_t chunks = 0;
    capture.setOnChunk([&](const QByteArray &) { ++chunks; });
    capture.setOnRMS([](float level) { benchmark::DoNotOptimize(level); });
    if (!capture.prepare().ok()) {
        state.SkipWithError("capture did not prepare");
        return;
    }
    capture.startForwarding();
    std::vector<double> durationsUs;
    quint32 frame = 0;
    for (auto _ : state) {
        const auto begin = std::chrono::steady_clock::now();
        engine->deliver(signal.data() + std::size_t(frame) * kChannels, kBufferFrames);
        const auto end = std::chrono::steady_clock::now();
        durationsUs.push_back(std::chrono::duration<double, std::micro>(end - begin).count());
        frame = (frame + kBufferFrames) % kFramesPerIteration;
    }
    capture.stopForwarding(false);
    std::sort(durationsUs.begin(), durationsUs.end());
    const auto percentile = [&](double p) {
        return durationsUs[std::min(
            durationsUs.size() - 1, std::size_t(p * double(durationsUs.size())))];
    };
    state.counters["p50_us"] = percentile(0.50);
    state.counters["p99_us"] = percentile(0.99);
    state.counters["max_us"] = durationsUs.back();
}
BENCHMARK(BM_TapCallPerBuffer)->Iterations(3000)->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
