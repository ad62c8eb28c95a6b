// From a trigger to the first converted audio buffer, through the whole application in this
// process over real platform services (an X server, a sound server whose microphone streams
// all along, a scripted engine on loopback), by its two ways in, alternated in the same run:
// - baseline: `xdotool keydown F5`, a process that presses the key the X11 adapter watches;
// - command: `sayvo trigger press`, the process a compositor's key binding starts, handing the
//   press over the instance channel.
// Both times start before the process is started, so both include a process start.
#include "app/AppDelegate.h"
#include "app/SingleInstance.h"
#include "audio/AudioPlatform.h"
#include "desktop/HotkeyManager.h"
#include "protocol/WireCodec.h"
#include "session/SayvoCoordinator.h"
#include "store/SettingsStore.h"
#include "support/app/FakeAppPlatform.h"
#include "support/audio/pulse/PulseAudioServer.h"
#include "support/desktop/DesktopSession.h"
#include "support/engine/TestEngine.h"
#include "support/runtime/RuntimeSandbox.h"
#include "support/store/FakePreferenceStore.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <benchmark/benchmark.h>

#include <algorithm>

using namespace sayvo;

namespace {

constexpr int kTrials = 30;

double percentile(std::vector<double> values, double fraction)
{
    std::sort(values.begin(), values.end());
    return values[std::min(values.size() - 1, size_t(fraction * double(values.size())))];
}

void BM_TriggerToFirstConvertedBuffer(benchmark::State &state)
{
    testing::DesktopSession desktop;
    test::PulseAudioServer pulse;
    if (!desktop.isReady() || !pulse.start()) {
        state.SkipWithError("no desktop or sound server");
        return;
    }
    pulse.useForThisProcess();
    auto microphone = pulse.addMicrophone(
        QStringLiteral("bench_mic"), 16000, 1, QStringLiteral("Bench Microphone"));
    if (!microphone || !pulse.setDefaultSource(QStringLiteral("bench_mic"))) {
        state.SkipWithError("no microphone");
        return;
    }
    microphone->startStreaming();
    QTemporaryDir runtime;
    qputenv("XDG_RUNTIME_DIR", runtime.path().toLocal8Bit());

    test::TestEngine engine;
    engine.listen();
    engine.setRecording(false);
    engine.answerEveryEndWith(QStringLiteral("Bench."), Stats {0.4, 1, 300.0, 0.2, 0.1, 0, 0.0});
    FakePreferenceStore preferences;
    preferences.setValue(SettingsStore::kEndpointURLKey, engine.url().toString());
    preferences.setValue(SettingsStore::kHotkeyTriggerKey, QStringLiteral("f5"));
    test::RuntimeSandbox sandbox;
    sandbox.writePayload(QStringLiteral("run_engine_stays.sh"));
    sandbox.provision(QStringLiteral("1.0.0"));
    test::FakeAppPlatform fakes;
    fakes.portProbe = [](const QString &, int) { return true; };
    AppPlatform platform = fakes.platform([&] { return sandbox.locator(QStringLiteral("1.0.0")); });
    platform.audioHardware = createAudioHardware;
    platform.audioInputEngine = createAudioInputEngine;
    platform.desktopServices = createDesktopServices;

    SingleInstance instance;
    if (instance.handOffIfRunning()) {
        state.SkipWithError("the instance channel is taken");
        return;
    }
    AppDelegate app(preferences, std::move(platform));
    app.applicationDidFinishLaunching();
    instance.serve(app);
    SayvoCoordinator &coordinator = *app.coordinator();
    coordinator.setDisplayDurations({0.005, 0.005});
    if (!QTest::qWaitFor(
            [&] {
                return coordinator.connectionHealth().is<EngineConnectionHealth::Connected>()
                    && coordinator.inputReady();
            },
            15000)) {
        state.SkipWithError("the application did not become ready");
        return;
    }

    QProcessEnvironment environment = desktop.environment();
    environment.insert(QStringLiteral("XDG_RUNTIME_DIR"), runtime.path());
    // Runs a short command to its end while this process's event loop keeps running.
    const auto run = [&](const QString &program, const QStringList &arguments) {
        QProcess process;
        process.setProcessEnvironment(environment);
        process.start(program, arguments);
        process.waitForStarted(5000);
        return QTest::qWaitFor([&] { return process.state() == QProcess::NotRunning; }, 5000);
    };
    // Presses, waits for the first converted buffer, lets go, waits for idle again.
    QElapsedTimer clock;
    std::optional<qint64> liveAtNs;
    QObject::connect(&coordinator, &SayvoCoordinator::isCaptureLiveChanged, [&](bool live) {
        if (live && !liveAtNs) {
            liveAtNs = clock.nsecsElapsed();
        }
    });
    const auto trial = [&](const QString &program, const QStringList &down, const QStringList &up) {
        liveAtNs.reset();
        clock.start();
        QProcess press;
        press.setProcessEnvironment(environment);
        press.start(program, down);
        const bool live = QTest::qWaitFor([&] { return liveAtNs.has_value(); }, 5000);
        const double elapsedMs = live ? double(*liveAtNs) / 1e6 : 0.0;
        press.waitForFinished(5000);
        run(program, up);
        const bool idle
            = QTest::qWaitFor([&] { return coordinator.state().is<AppState::Idle>(); }, 10000);
        return live && idle ? std::optional(elapsedMs) : std::nullopt;
    };

    const QString sayvo = QStringLiteral(SAYVO_APP_BINARY);
    std::vector<double> keyMs;
    std::vector<double> commandMs;
    for (auto _ : state) {
        for (int i = 0; i < kTrials; ++i) {
            const auto key = trial(QStringLiteral("xdotool"),
                {QStringLiteral("keydown"), QStringLiteral("F5")},
                {QStringLiteral("keyup"), QStringLiteral("F5")});
            const auto command = trial(sayvo, {QStringLiteral("trigger"), QStringLiteral("press")},
                {QStringLiteral("trigger"), QStringLiteral("release")});
            if (!key || !command) {
                state.SkipWithError("a trial did not reach the microphone");
                return;
            }
            keyMs.push_back(*key);
            commandMs.push_back(*command);
        }
        state.SetIterationTime(percentile(commandMs, 0.5) / 1000.0);
    }
    state.counters["x11_key_p50_ms"] = percentile(keyMs, 0.50);
    state.counters["x11_key_p95_ms"] = percentile(keyMs, 0.95);
    state.counters["command_p50_ms"] = percentile(commandMs, 0.50);
    state.counters["command_p95_ms"] = percentile(commandMs, 0.95);
    state.counters["added_p95_ms"] = percentile(commandMs, 0.95) - percentile(keyMs, 0.95);
    app.applicationWillTerminate();
}

} // namespace

BENCHMARK(BM_TriggerToFirstConvertedBuffer)
    ->Iterations(1)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }
    QApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
