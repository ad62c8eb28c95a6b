// Engine performance on real speech synthesised at start-up with festival:
//  - Recognition: PocketSphinx's real-time factor on one core (processing time over audio
//    time, so the audio duration is the baseline), against a bare pass over the same samples.
//  - Latency: a real engine process streamed at real time, as a microphone delivers; the time
//    from sending "utterance.end" to receiving "final", p50 and p95 (the same measurement
//    as the end-to-end bench's engine baseline).
//  - Memory: the engine's resident set with the recogniser loaded, against the same engine
//    running its placeholder recogniser.
//  - Formatting: the formatter on the calibration sentences, against splitting them into words.
//  - Responsiveness: a second client's hello -> hello.ack round trip while another client's
//    60-second utterance is being recognised and finalised, against the same round trip on
//    the idle engine, p50 and p95.
#include "engine/asr/PocketSphinxRecognizer.h"
#include "engine/format/Formatter.h"
#include "support/engine/EngineProcess.h"
#include "support/engine/EngineTestClient.h"

#include "support/ProcessStatus.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <QWebSocket>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <sched.h>
#include <time.h>

namespace {

using namespace sayvo;

const std::vector<std::string> kSentences = {
    "please send me the report before the meeting",
    "the meeting is at three pm in room two oh four",
    "can you send me the file when you're done",
    "there's a bug in the checkout flow we should fix it",
    "we need to update the budget for next year",
    "the weather is nice today",
};

// 200 ms of silence: what a speaker leaves before letting go of the key.
constexpr qsizetype kTrailingSilenceBytes = qsizetype {200} * 32;

QTemporaryDir &workDir()
{
    static QTemporaryDir dir;
    return dir;
}

const std::vector<QByteArray> &speech()
{
    static const std::vector<QByteArray> audio = [] {
        std::vector<QByteArray> out;
        for (std::size_t i = 0; i < kSentences.size(); ++i) {
            const QString wav = workDir().filePath(QString("b%1.wav").arg(i));
            const QString raw = workDir().filePath(QString("b%1.raw").arg(i));
            QProcess tts;
            tts.start("text2wave", {"-eval", "(voice_cmu_us_slt_arctic_hts)", "-o", wav});
            tts.write(QByteArray::fromStdString(kSentences[i]));
            tts.closeWriteChannel();
            tts.waitForFinished(60000);
            QProcess sox;
            sox.start("sox",
                {wav, "-r", "16000", "-c", "1", "-b", "16", "-e", "signed-integer", "-t", "raw",
                    raw});
            sox.waitForFinished(30000);
            QFile file(raw);
            out.push_back(file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray());
        }
        return out;
    }();
    return audio;
}

double audioSeconds(const QByteArray &pcm)
{
    return static_cast<double>(pcm.size()) / 2.0 / 16000.0;
}

// This thread on one core while it exists, its own cores again afterwards: the benchmarks
// after, and the engine processes they start (which inherit it), must not run pinned.
class PinnedToOneCore
{
public:
    PinnedToOneCore()
    {
        sched_getaffinity(0, sizeof m_previous, &m_previous);
        cpu_set_t set;
        CPU_ZERO(&set);
        CPU_SET(0, &set);
        sched_setaffinity(0, sizeof set, &set);
    }
    ~PinnedToOneCore() { sched_setaffinity(0, sizeof m_previous, &m_previous); }
    PinnedToOneCore(const PinnedToOneCore &) = delete;
    PinnedToOneCore &operator=(const PinnedToOneCore &) = delete;

private:
    cpu_set_t m_previous {};
};

std::span<const std::int16_t> samples(const QByteArray &pcm)
{
    return {reinterpret_cast<const std::int16_t *>(pcm.constData()),
        static_cast<std::size_t>(pcm.size() / 2)};
}

// CPU time of this thread, so that other work on a shared machine does not count.
double threadCpuSeconds()
{
    timespec t {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) / 1e9;
}

void BM_RecognitionRealTimeFactor(benchmark::State &state)
{
    const PinnedToOneCore pinned;
    auto factory
        = PocketSphinxRecognizerFactory::load(PocketSphinxRecognizerFactory::defaultModelDir());
    if (!factory) {
        state.SkipWithError(factory.error().c_str());
        return;
    }
    double processed = 0.0;
    double cpu = 0.0;
    double audio = 0.0;
    // The recogniser's work after the last sample: what utterance.end waits for.
    double finishCpu = 0.0;
    int utterances = 0;
    std::size_t next = 0;
    for (auto _ : state) {
        const QByteArray &pcm = speech()[next++ % speech().size()];
        QElapsedTimer timer;
        timer.start();
        const double cpuStart = threadCpuSeconds();
        auto recognizer = (*factory)->create();
        const auto all = samples(pcm);
        for (std::size_t at = 0; at < all.size(); at += 1600) {
            recognizer->feed(all.subspan(at, std::min<std::size_t>(1600, all.size() - at)));
        }
        const double finishStart = threadCpuSeconds();
        benchmark::DoNotOptimize(recognizer->finish());
        processed += static_cast<double>(timer.nsecsElapsed()) / 1e9;
        cpu += threadCpuSeconds() - cpuStart;
        finishCpu += threadCpuSeconds() - finishStart;
        ++utterances;
        audio += audioSeconds(pcm);
    }
    state.counters["rtf"] = processed / audio;
    state.counters["rtf_cpu"] = cpu / audio;
    state.counters["audio_s"] = audio;
    state.counters["finish_cpu_ms"] = utterances > 0 ? finishCpu * 1000.0 / utterances : 0.0;
}
BENCHMARK(BM_RecognitionRealTimeFactor)->Iterations(12)->Unit(benchmark::kMillisecond);

// The baseline for the recogniser: touching every sample once.
void BM_RecognitionBaselineSampleSum(benchmark::State &state)
{
    double audio = 0.0;
    double processed = 0.0;
    std::size_t next = 0;
    for (auto _ : state) {
        const QByteArray &pcm = speech()[next++ % speech().size()];
        QElapsedTimer timer;
        timer.start();
        long long sum = 0;
        for (const std::int16_t s : samples(pcm)) {
            sum += s;
        }
        benchmark::DoNotOptimize(sum);
        processed += static_cast<double>(timer.nsecsElapsed()) / 1e9;
        audio += audioSeconds(pcm);
    }
    state.counters["rtf"] = processed / audio;
}
BENCHMARK(BM_RecognitionBaselineSampleSum)->Iterations(12)->Unit(benchmark::kMicrosecond);

void BM_EndToFinalLatency(benchmark::State &state)
{
    test::EngineProcess engine;
    if (!engine.start({"--data-dir", workDir().filePath("data")})) {
        state.SkipWithError("engine did not start");
        return;
    }
    test::EngineTestClient client;
    if (!client.connectTo(engine.url()) || !client.greet()) {
        state.SkipWithError("the engine did not answer hello");
        return;
    }
    std::vector<double> latencies;
    std::vector<double> engineTotals;
    std::size_t next = 0;
    for (auto _ : state) {
        // The same utterance the end-to-end bench's baseline sends: the sentence, then the
        // pause before the speaker lets go of the key.
        const QByteArray pcm
            = speech()[next % speech().size()] + QByteArray(kTrailingSilenceBytes, '\0');
        const auto latency = client.endToFinalMs("B" + std::to_string(next++), pcm);
        if (!latency) {
            state.SkipWithError("the engine gave no final");
            return;
        }
        latencies.push_back(*latency);
        const auto finals = client.received<FinalMessage>();
        if (finals.back().timingsMs) {
            engineTotals.push_back(finals.back().timingsMs->total.value_or(0.0));
        }
    }
    std::sort(latencies.begin(), latencies.end());
    std::sort(engineTotals.begin(), engineTotals.end());
    auto percentile = [](const std::vector<double> &v, double p) {
        return v.empty() ? 0.0
                         : v[std::min(v.size() - 1,
                             static_cast<std::size_t>(p * static_cast<double>(v.size())))];
    };
    state.counters["p50_ms"] = percentile(latencies, 0.50);
    state.counters["p95_ms"] = percentile(latencies, 0.95);
    state.counters["engine_p50_ms"] = percentile(engineTotals, 0.50);
    state.counters["rss_MiB"] = static_cast<double>(test::residentKiB(engine.pid())) / 1024.0;

    test::EngineProcess placeholder;
    if (placeholder.start({"--asr", "mock", "--data-dir", workDir().filePath("data-mock")})) {
        const double baseline = static_cast<double>(test::residentKiB(placeholder.pid())) / 1024.0;
        state.counters["rss_mock_MiB"] = baseline;
        state.counters["rss_ratio"] = baseline > 0 ? state.counters["rss_MiB"] / baseline : 0.0;
    }
}
BENCHMARK(BM_EndToFinalLatency)->Iterations(18)->Unit(benchmark::kMillisecond)->UseRealTime();

// One hello -> hello.ack round trip on `socket`, in milliseconds; negative on a time-out.
double helloRoundTripMs(QWebSocket &socket)
{
    QEventLoop loop;
    QTimer timeout;
    timeout.setSingleShot(true);
    bool acked = false;
    const auto connection
        = QObject::connect(&socket, &QWebSocket::textMessageReceived, [&](const QString &text) {
              if (text.contains(QLatin1String("hello.ack"))) {
                  acked = true;
                  loop.quit();
              }
          });
    QObject::connect(&timeout, &QTimer::timeout, &loop, &QEventLoop::quit);
    QElapsedTimer timer;
    timer.start();
    socket.sendTextMessage(QString::fromStdString(encode(HelloMessage {.version = "bench"})));
    timeout.start(30000);
    loop.exec();
    QObject::disconnect(connection);
    return acked ? static_cast<double>(timer.nsecsElapsed()) / 1e6 : -1.0;
}

double percentileOf(std::vector<double> values, double p)
{
    if (values.empty()) {
        return 0.0;
    }
    std::sort(values.begin(), values.end());
    return values[std::min(
        values.size() - 1, static_cast<std::size_t>(p * static_cast<double>(values.size())))];
}

void BM_HelloWhileAnotherFinalPassRuns(benchmark::State &state)
{
    QByteArray minute;
    for (std::size_t i = 0; minute.size() < qsizetype {60} * 32000; ++i) {
        minute += speech()[i % speech().size()];
        minute += QByteArray(16000, '\0'); // half a second between sentences
    }
    test::EngineProcess engine;
    if (!engine.start({"--data-dir", workDir().filePath("data-hello")})) {
        state.SkipWithError("engine did not start");
        return;
    }
    QWebSocket arriving;
    arriving.open(QUrl(engine.url()));
    if (!QTest::qWaitFor([&] { return arriving.state() == QAbstractSocket::ConnectedState; })) {
        state.SkipWithError("could not connect");
        return;
    }
    std::vector<double> idle;
    std::vector<double> busy;
    double finalPassSeconds = 0.0;
    for (auto _ : state) {
        for (int i = 0; i < 50; ++i) {
            idle.push_back(helloRoundTripMs(arriving));
            QTest::qWait(10);
        }
        test::EngineTestClient talking;
        if (!talking.connectTo(engine.url()) || !talking.greet()) {
            state.SkipWithError("the engine did not answer hello");
            return;
        }
        const std::size_t finalsBefore = talking.received<FinalMessage>().size();
        talking.send(UtteranceStartMessage {.utteranceId = "MINUTE"});
        for (qsizetype at = 0; at < minute.size(); at += 3200) {
            talking.sendAudio(minute.mid(at, 3200));
        }
        talking.send(UtteranceEndMessage {.utteranceId = "MINUTE"});
        QElapsedTimer finalPass;
        finalPass.start();
        while (talking.received<FinalMessage>().size() == finalsBefore
            && finalPass.elapsed() < 300000) {
            busy.push_back(helloRoundTripMs(arriving));
            QTest::qWait(10);
        }
        finalPassSeconds = static_cast<double>(finalPass.elapsed()) / 1000.0;
    }
    state.counters["idle_p50_ms"] = percentileOf(idle, 0.50);
    state.counters["idle_p95_ms"] = percentileOf(idle, 0.95);
    state.counters["busy_p50_ms"] = percentileOf(busy, 0.50);
    state.counters["busy_p95_ms"] = percentileOf(busy, 0.95);
    state.counters["busy_max_ms"]
        = busy.empty() ? 0.0 : *std::max_element(busy.begin(), busy.end());
    state.counters["p95_ratio"] = percentileOf(idle, 0.95) > 0.0
        ? percentileOf(busy, 0.95) / percentileOf(idle, 0.95)
        : 0.0;
    state.counters["busy_samples"] = static_cast<double>(busy.size());
    state.counters["final_pass_s"] = finalPassSeconds;
}
BENCHMARK(BM_HelloWhileAnotherFinalPassRuns)
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

const char *const kPrompts[]
    = {"the meeting is at three pm in room two oh four", "the total comes to forty two dollars",
        "can you send me the file when you're done", "i can't make it to the call at four thirty",
        "there's a bug in the checkout flow period we should fix it",
        "hi maren just following up on the proposal we sent last week",
        "circling back on this dash can we chat tomorrow",
        "the effective date is january first twenty twenty six"};

void BM_FormatterPrompts(benchmark::State &state)
{
    Formatter formatter;
    for (auto _ : state) {
        for (const char *p : kPrompts) {
            benchmark::DoNotOptimize(formatter.format(p, "legal", {"Maren"}));
        }
    }
}
BENCHMARK(BM_FormatterPrompts);

void BM_FormatterBaselineSplitWords(benchmark::State &state)
{
    for (auto _ : state) {
        for (const char *p : kPrompts) {
            benchmark::DoNotOptimize(Formatter::normalizedWords(p));
        }
    }
}
BENCHMARK(BM_FormatterBaselineSplitWords);

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    speech();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
