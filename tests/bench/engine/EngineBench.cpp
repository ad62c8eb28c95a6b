// Engine performance on real speech synthesised at start-up with festival:
//  - Recognition: PocketSphinx's real-time factor on one core (processing time over audio
//    time, so the audio duration is the baseline), against a bare pass over the same samples.
//  - Final pass: the recogniser's work after the last sample of a 4 s utterance, with the
//    final pass the engine runs (best path through the streaming search's lattice) against
//    PocketSphinx's default second, flat search over the whole utterance, alternating
//    utterance by utterance in the same run; both as thread CPU time on one core.
//  - Accuracy: the word error rate of both final passes over 40 festival sentences.
//  - Latency: a real engine process streamed at real time, as a microphone delivers; the time
//    from sending "utterance.end" to receiving "final", p50 and p95 (the same measurement
//    as the end-to-end bench's engine baseline).
//  - Memory: the engine's resident set with the recogniser loaded, against the same engine
//    running its placeholder recogniser.
//  - Formatting: the formatter on the calibration sentences, against splitting them into words.
//  - Responsiveness: a second client's hello -> hello.ack round trip while another client's
//    60-second utterance is being recognised and finalised, against the same round trip on
//    the idle engine, p50 and p95.
#include "calibration/WordErrorRate.h"
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

// Festival's US English voice saying each sentence, as 16 kHz mono PCM; `tag` keeps the
// files of one set apart from another's.
std::vector<QByteArray> synthesise(const std::vector<std::string> &sentences, const QString &tag)
{
    std::vector<QByteArray> out;
    for (std::size_t i = 0; i < sentences.size(); ++i) {
        const QString wav = workDir().filePath(QString("%1%2.wav").arg(tag).arg(i));
        const QString raw = workDir().filePath(QString("%1%2.raw").arg(tag).arg(i));
        QProcess tts;
        tts.start("text2wave", {"-eval", "(voice_cmu_us_slt_arctic_hts)", "-o", wav});
        tts.write(QByteArray::fromStdString(sentences[i]));
        tts.closeWriteChannel();
        tts.waitForFinished(60000);
        QProcess sox;
        sox.start("sox",
            {wav, "-r", "16000", "-c", "1", "-b", "16", "-e", "signed-integer", "-t", "raw", raw});
        sox.waitForFinished(30000);
        QFile file(raw);
        out.push_back(file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray());
    }
    return out;
}

const std::vector<QByteArray> &speech()
{
    static const std::vector<QByteArray> audio = synthesise(kSentences, "b");
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

// About 4 s of speech, as a sentence or two a user dictates at once: sentences joined by a
// short pause, cut at 4 s, then the pause before the key is let go.
const std::vector<QByteArray> &fourSecondUtterances()
{
    static const std::vector<QByteArray> audio = [] {
        constexpr qsizetype kFourSecondsBytes = qsizetype {4} * 32000;
        std::vector<QByteArray> out;
        for (std::size_t i = 0; i < speech().size(); ++i) {
            QByteArray pcm;
            for (std::size_t j = i; pcm.size() < kFourSecondsBytes; ++j) {
                pcm += speech()[j % speech().size()] + QByteArray(kTrailingSilenceBytes, '\0');
            }
            out.push_back(pcm.left(kFourSecondsBytes) + QByteArray(kTrailingSilenceBytes, '\0'));
        }
        return out;
    }();
    return audio;
}

// Thread CPU milliseconds of feeding `pcm` in 100 ms frames and of finishing, in `fed` and
// `finished`.
void recognise(RecognizerFactory &factory, const QByteArray &pcm, double &fed, double &finished)
{
    auto recognizer = factory.create();
    const auto all = samples(pcm);
    const double start = threadCpuSeconds();
    for (std::size_t at = 0; at < all.size(); at += 1600) {
        recognizer->feed(all.subspan(at, std::min<std::size_t>(1600, all.size() - at)));
    }
    const double finishStart = threadCpuSeconds();
    benchmark::DoNotOptimize(recognizer->finish());
    const double end = threadCpuSeconds();
    fed += (finishStart - start) * 1000.0;
    finished += (end - finishStart) * 1000.0;
}

void BM_FinalPassOfAFourSecondUtterance(benchmark::State &state)
{
    const PinnedToOneCore pinned;
    const std::string models = PocketSphinxRecognizerFactory::defaultModelDir();
    auto bestPath = PocketSphinxRecognizerFactory::load(models, FinalPass::bestPath);
    auto flat = PocketSphinxRecognizerFactory::load(models, FinalPass::flatRedecode);
    if (!bestPath || !flat) {
        state.SkipWithError("the speech model did not load");
        return;
    }
    double bestPathFed = 0.0;
    double bestPathFinished = 0.0;
    double flatFed = 0.0;
    double flatFinished = 0.0;
    int utterances = 0;
    std::size_t next = 0;
    for (auto _ : state) {
        const QByteArray &pcm = fourSecondUtterances()[next++ % fourSecondUtterances().size()];
        recognise(**bestPath, pcm, bestPathFed, bestPathFinished);
        recognise(**flat, pcm, flatFed, flatFinished);
        ++utterances;
    }
    const double n = utterances > 0 ? utterances : 1.0;
    state.counters["finish_ms"] = bestPathFinished / n;
    state.counters["feed_ms"] = bestPathFed / n;
    state.counters["flat_finish_ms"] = flatFinished / n;
    state.counters["flat_feed_ms"] = flatFed / n;
    state.counters["finish_ratio"] = flatFinished > 0.0 ? bestPathFinished / flatFinished : 0.0;
}
BENCHMARK(BM_FinalPassOfAFourSecondUtterance)->Iterations(12)->Unit(benchmark::kMillisecond);

// Everyday dictation beyond the calibration sentences, for word error rates with less noise.
const std::vector<std::string> kAccuracySentences = {
    "please send me the report before the meeting",
    "the meeting is at three pm in room two oh four",
    "can you send me the file when you're done",
    "there's a bug in the checkout flow we should fix it",
    "i think we should ship it on friday",
    "we need to update the budget for next year",
    "call me when you get home tonight",
    "the weather is nice today",
    "let me know if you have any questions",
    "the total comes to forty two dollars",
    "i will be late for the meeting this morning",
    "could you review the document before lunch",
    "we should talk about the new project next week",
    "my flight leaves at seven in the evening",
    "thanks for your help with the presentation",
    "the printer on the second floor is broken again",
    "please remember to buy milk and bread on the way home",
    "i have attached the latest version of the contract",
    "the team will meet again on monday afternoon",
    "can we move the call to tomorrow morning",
    "she said the results look very good so far",
    "the server went down for about ten minutes last night",
    "we are still waiting for the customer to reply",
    "he wants to know when the order will arrive",
    "let us meet in the lobby at noon",
    "the new design looks much cleaner than the old one",
    "please sign the form and send it back to me",
    "our sales grew by twelve percent this quarter",
    "the kids are playing in the garden",
    "i forgot my password again can you reset it",
    "the train was delayed because of the snow",
    "we need more chairs for the conference room",
    "this is the best coffee i have had in years",
    "the doctor will see you in a few minutes",
    "turn left at the next light and park behind the bank",
    "the package was left at the front door",
    "i am writing to ask about the open position",
    "the library closes at six on weekends",
    "remind me to call my mother on sunday",
    "the numbers in the spreadsheet do not add up",
};

// Word errors of `factory` over the accuracy set, each sentence followed by the pause before
// the key is let go; `words` gets the number of reference words.
double wordErrors(RecognizerFactory &factory, const std::vector<QByteArray> &audio, double &words)
{
    double errors = 0.0;
    words = 0.0;
    for (std::size_t i = 0; i < audio.size(); ++i) {
        auto recognizer = factory.create();
        const QByteArray pcm = audio[i] + QByteArray(kTrailingSilenceBytes, '\0');
        const auto all = samples(pcm);
        for (std::size_t at = 0; at < all.size(); at += 1600) {
            recognizer->feed(all.subspan(at, std::min<std::size_t>(1600, all.size() - at)));
        }
        const QString reference = QString::fromStdString(kAccuracySentences[i]);
        const auto n = static_cast<double>(normalizedWords(reference).size());
        errors += wordErrorRate(reference, QString::fromStdString(recognizer->finish())) * n;
        words += n;
    }
    return errors;
}

// Both final passes over the same 40 sentences: what the cheaper pass costs in accuracy.
void BM_WordErrorRateOfBothFinalPasses(benchmark::State &state)
{
    const std::string models = PocketSphinxRecognizerFactory::defaultModelDir();
    auto bestPath = PocketSphinxRecognizerFactory::load(models, FinalPass::bestPath);
    auto flat = PocketSphinxRecognizerFactory::load(models, FinalPass::flatRedecode);
    if (!bestPath || !flat) {
        state.SkipWithError("the speech model did not load");
        return;
    }
    static const std::vector<QByteArray> audio = synthesise(kAccuracySentences, "w");
    double words = 0.0;
    double errors = 0.0;
    double flatErrors = 0.0;
    for (auto _ : state) {
        errors = wordErrors(**bestPath, audio, words);
        flatErrors = wordErrors(**flat, audio, words);
    }
    state.counters["words"] = words;
    state.counters["wer"] = words > 0.0 ? errors / words : 0.0;
    state.counters["flat_wer"] = words > 0.0 ? flatErrors / words : 0.0;
}
BENCHMARK(BM_WordErrorRateOfBothFinalPasses)->Iterations(1)->Unit(benchmark::kMillisecond);

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

double percentileOf(std::vector<double> values, double p)
{
    if (values.empty()) {
        return 0.0;
    }
    std::sort(values.begin(), values.end());
    return values[std::min(
        values.size() - 1, static_cast<std::size_t>(p * static_cast<double>(values.size())))];
}

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
    std::vector<double> finalPasses;
    std::vector<double> formatting;
    std::vector<double> queued;
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
        if (const auto &t = finals.back().timingsMs) {
            const double total = t->total.value_or(0.0);
            const double finalPass = t->finalPass.value_or(0.0);
            const double format = t->gec.value_or(0.0);
            engineTotals.push_back(total);
            finalPasses.push_back(finalPass);
            formatting.push_back(format);
            // Audio still queued for the recogniser when the end arrived, and the hop there.
            queued.push_back(total - finalPass - format - t->streamFinal.value_or(0.0));
        }
    }
    state.counters["p50_ms"] = percentileOf(latencies, 0.50);
    state.counters["p95_ms"] = percentileOf(latencies, 0.95);
    state.counters["engine_p50_ms"] = percentileOf(engineTotals, 0.50);
    state.counters["engine_p95_ms"] = percentileOf(engineTotals, 0.95);
    state.counters["final_pass_p50_ms"] = percentileOf(finalPasses, 0.50);
    state.counters["final_pass_p95_ms"] = percentileOf(finalPasses, 0.95);
    state.counters["format_p50_ms"] = percentileOf(formatting, 0.50);
    state.counters["queued_p50_ms"] = percentileOf(queued, 0.50);
    state.counters["queued_p95_ms"] = percentileOf(queued, 0.95);
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
