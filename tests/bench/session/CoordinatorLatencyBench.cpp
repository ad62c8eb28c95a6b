// The client's own share of the critical path, with the real engine client and the test
// engine on loopback: from the "final" frame leaving the engine to the text inserter being
// called, and from the trigger's release to "utterance.end" arriving at the engine (the
// capture's flush included). Each is reported as p50/p99 over the iterations, next to a
// loopback round trip of the same size measured in the same run as the baseline.
#include "protocol/WireCodec.h"
#include "support/session/CoordinatorHarness.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTest>
#include <QWebSocket>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <vector>

using namespace sayvo;
using sayvo::test::CoordinatorHarness;

namespace {

double percentile(std::vector<double> values, double p)
{
    if (values.empty()) {
        return 0.0;
    }
    std::sort(values.begin(), values.end());
    const auto index = static_cast<size_t>(p * static_cast<double>(values.size() - 1));
    return values[index];
}

void report(benchmark::State &state, const std::vector<double> &micros)
{
    state.counters["p50_us"] = percentile(micros, 0.50);
    state.counters["p99_us"] = percentile(micros, 0.99);
}

// Baseline: a text frame from the engine to a plain client socket and back on loopback.
void BM_LoopbackRoundTripBaseline(benchmark::State &state)
{
    sayvo::test::TestEngine engine;
    engine.listen();
    engine.setRecording(false);
    engine.setHelloAckBackends(std::nullopt);
    QWebSocket socket;
    socket.open(engine.url());
    if (!QTest::qWaitFor([&] { return socket.state() == QAbstractSocket::ConnectedState; }, 5000)) {
        state.SkipWithError("no loopback connection");
        return;
    }
    bool echoed = false;
    QObject::connect(
        &socket, &QWebSocket::textMessageReceived, [&](const QString &) { echoed = true; });
    engine.setOnText([&](const QByteArray &text, int) { engine.sendText(text); });
    std::vector<double> micros;
    for (auto _ : state) {
        echoed = false;
        QElapsedTimer timer;
        timer.start();
        socket.sendTextMessage(QStringLiteral(R"({"type":"utterance.end","utterance_id":"X"})"));
        while (!echoed) {
            QCoreApplication::processEvents(QEventLoop::AllEvents);
        }
        micros.push_back(static_cast<double>(timer.nsecsElapsed()) / 1000.0);
    }
    report(state, micros);
}

void BM_FinalToInserter(benchmark::State &state)
{
    CoordinatorHarness h;
    h.coordinator->setDisplayDurations({0.001, 0.001});
    h.engine.setRecording(false);
    if (!h.startAndConnect()) {
        state.SkipWithError("engine did not connect");
        return;
    }
    h.answerNothing();
    QElapsedTimer timer;
    std::vector<double> micros;
    bool inserted = false;
    h.synthesizer->onPaste = [&] {
        micros.push_back(static_cast<double>(timer.nsecsElapsed()) / 1000.0);
        inserted = true;
    };
    const QByteArray pcm = CoordinatorHarness::tone(3200);
    for (auto _ : state) {
        state.PauseTiming();
        if (!QTest::qWaitFor([&] { return h.coordinator->state().is<AppState::Idle>(); }, 5000)) {
            state.SkipWithError("the coordinator did not return to idle");
            break;
        }
        h.coordinator->handleTriggerDown();
        const std::string id = h.coordinator->currentUtteranceId()->toStdString();
        h.speak(pcm);
        h.coordinator->handleTriggerUp();
        FinalMessage final = CoordinatorHarness::finalWithText("Latency check.");
        final.utteranceId = id;
        const QByteArray frame = QByteArray::fromStdString(encode(final));
        QTest::qWait(5); // let the utterance's own frames go out first
        inserted = false;
        state.ResumeTiming();
        timer.start();
        h.engine.sendText(frame);
        while (!inserted) {
            QCoreApplication::processEvents(QEventLoop::AllEvents);
        }
    }
    report(state, micros);
}

void BM_TriggerUpToEndFrame(benchmark::State &state)
{
    CoordinatorHarness h;
    h.coordinator->setDisplayDurations({0.001, 0.001});
    if (!h.startAndConnect()) {
        state.SkipWithError("engine did not connect");
        return;
    }
    QElapsedTimer timer;
    std::vector<double> micros;
    bool ended = false;
    h.engine.setRecording(false);
    h.engine.setOnText([&](const QByteArray &text, int) {
        const auto decoded = decodeOutbound(text.toStdString());
        if (decoded && std::holds_alternative<UtteranceEndMessage>(decoded.value())) {
            micros.push_back(static_cast<double>(timer.nsecsElapsed()) / 1000.0);
            ended = true;
            FinalMessage final = CoordinatorHarness::finalWithText("Done.");
            final.utteranceId = std::get<UtteranceEndMessage>(decoded.value()).utteranceId;
            h.engine.sendText(QByteArray::fromStdString(encode(final)));
        }
    });
    // 0.45 s of audio: the flush leaves a partial chunk behind, as a real release does.
    const QByteArray pcm = CoordinatorHarness::tone(14400 + 1000);
    for (auto _ : state) {
        state.PauseTiming();
        if (!QTest::qWaitFor([&] { return h.coordinator->state().is<AppState::Idle>(); }, 5000)) {
            state.SkipWithError("the coordinator did not return to idle");
            break;
        }
        h.coordinator->handleTriggerDown();
        h.speak(pcm);
        QTest::qWait(5);
        ended = false;
        state.ResumeTiming();
        timer.start();
        h.coordinator->handleTriggerUp();
        while (!ended) {
            QCoreApplication::processEvents(QEventLoop::AllEvents);
        }
    }
    report(state, micros);
}

} // namespace

BENCHMARK(BM_LoopbackRoundTripBaseline)->Iterations(500)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_FinalToInserter)->Iterations(300)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_TriggerUpToEndFrame)->Iterations(300)->Unit(benchmark::kMicrosecond);

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
