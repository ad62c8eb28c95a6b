// Delay from startForwarding() to the first converted buffer on a real PulseAudio daemon.
// The microphone opens only at that call, so this is the audio a user loses at the start of
// an utterance.
#include "audio/AudioCapture.h"
#include "audio/AudioPlatform.h"
#include "support/audio/pulse/PulseAudioServer.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <vector>

using namespace sayvo;

namespace {

void BM_StartToFirstConvertedBuffer(benchmark::State &state)
{
    test::PulseAudioServer server;
    if (!server.start()) {
        state.SkipWithError(server.error().toStdString().c_str());
        return;
    }
    server.useForThisProcess();
    // A 48 kHz stereo microphone in a quiet room, delivering 10 ms pieces in real time.
    auto microphone = server.addMicrophone(
        QStringLiteral("mic48"), 48000, 2, QStringLiteral("Studio Microphone"));
    if (!microphone || !server.setDefaultSource(QStringLiteral("mic48"))) {
        state.SkipWithError("no microphone");
        return;
    }
    microphone->startStreaming();
    auto hardware = createAudioHardware();
    AudioCapture capture(createAudioInputEngine(), *hardware);
    std::mutex mutex;
    std::condition_variable liveSignal;
    bool live = false;
    capture.setOnCaptureLive([&] {
        std::lock_guard lock(mutex);
        live = true;
        liveSignal.notify_one();
    });
    if (!capture.prepare().ok()) {
        state.SkipWithError("capture did not prepare");
        return;
    }
    std::vector<double> delaysMs;
    for (auto _ : state) {
        {
            std::lock_guard lock(mutex);
            live = false;
        }
        const auto begin = std::chrono::steady_clock::now();
        capture.startForwarding();
        std::unique_lock lock(mutex);
        const bool arrived
            = liveSignal.wait_for(lock, std::chrono::seconds(2), [&] { return live; });
        const auto end = std::chrono::steady_clock::now();
        lock.unlock();
        capture.stopForwarding(false);
        if (!arrived) {
            state.SkipWithError("no audio within 2 s");
            return;
        }
        const double ms = std::chrono::duration<double, std::milli>(end - begin).count();
        delaysMs.push_back(ms);
        state.SetIterationTime(ms / 1000.0);
    }
    std::sort(delaysMs.begin(), delaysMs.end());
    const auto percentile = [&](double p) {
        return delaysMs[std::min(delaysMs.size() - 1, std::size_t(p * double(delaysMs.size())))];
    };
    state.counters["p50_ms"] = percentile(0.50);
    state.counters["p95_ms"] = percentile(0.95);
    state.counters["max_ms"] = delaysMs.back();
}
BENCHMARK(BM_StartToFirstConvertedBuffer)
    ->Iterations(50)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
