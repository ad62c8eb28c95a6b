// The application as a whole, in this process over fakes of the platform services, with the
// real engine client talking to the scripted engine on loopback:
// - launch: from applicationDidFinishLaunching() to the tray icon shown, beside the cost of
//   showing one empty window in the same run;
// - memory: resident size after launch and after 100 utterances (must not grow by 5 MB);
// - idle: timer events delivered on the main thread over 30 s once ready and idle.
#include "app/AppDelegate.h"
#include "audio/AudioCapture.h"
#include "protocol/WireCodec.h"
#include "session/SayvoCoordinator.h"
#include "store/SettingsStore.h"
#include "support/app/FakeAppPlatform.h"
#include "support/engine/TestEngine.h"
#include "support/runtime/RuntimeSandbox.h"
#include "support/store/FakePreferenceStore.h"
#include "ui/MenuBarController.h"

#include "support/ProcessStatus.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QSystemTrayIcon>
#include <QTest>
#include <QTimer>

#include <benchmark/benchmark.h>

#include <cmath>

using namespace sayvo;

namespace {

// Everything one in-process application needs.
struct Rig
{
    sayvo::test::TestEngine engine;
    FakePreferenceStore preferences;
    sayvo::test::RuntimeSandbox sandbox;
    sayvo::test::FakeAppPlatform fakes;
    std::unique_ptr<AppDelegate> app;

    Rig()
    {
        engine.listen();
        engine.setRecording(false);
        engine.answerEveryEndWith(
            QStringLiteral("Benchmark text."), Stats {0.4, 2, 300.0, 0.2, 0.1, 0, 0.0});
        preferences.setValue(SettingsStore::kEndpointURLKey, engine.url().toString());
        sandbox.writePayload(QStringLiteral("run_engine_stays.sh"));
        sandbox.provision(QStringLiteral("1.0.0"));
    }

    AppPlatform platform()
    {
        // The test engine already listens where the supervisor looks.
        fakes.portProbe = [](const QString &, int) { return true; };
        return fakes.platform([this] { return sandbox.locator(QStringLiteral("1.0.0")); });
    }

    bool launchAndConnect()
    {
        app = std::make_unique<AppDelegate>(preferences, platform());
        app->applicationDidFinishLaunching();
        return QTest::qWaitFor(
            [this] {
                return app->coordinator()
                    ->connectionHealth()
                    .is<EngineConnectionHealth::Connected>();
            },
            5000);
    }

    bool utterance(const QByteArray &pcm)
    {
        SayvoCoordinator &c = *app->coordinator();
        c.handleTriggerDown();
        fakes.audioEngine->playS16(pcm, 1600);
        c.handleTriggerUp();
        return QTest::qWaitFor([&] { return c.state().is<AppState::Success>(); }, 5000)
            && QTest::qWaitFor([&] { return c.state().is<AppState::Idle>(); }, 5000);
    }
};

QByteArray tone()
{
    QByteArray pcm(6400, '\0');
    for (int i = 0; i + 1 < pcm.size(); i += 2) {
        const auto sample = static_cast<qint16>(6000.0 * std::sin(i / 2 * 0.17));
        pcm[i] = static_cast<char>(sample & 0xff);
        pcm[i + 1] = static_cast<char>((sample >> 8) & 0xff);
    }
    return pcm;
}

void BM_ShowEmptyWindowBaseline(benchmark::State &state)
{
    for (auto _ : state) {
        QWidget window;
        window.resize(200, 100);
        window.show();
        QCoreApplication::processEvents();
    }
}

void BM_LaunchToTrayIcon(benchmark::State &state)
{
    for (auto _ : state) {
        state.PauseTiming();
        auto rig = std::make_unique<Rig>();
        rig->app = std::make_unique<AppDelegate>(rig->preferences, rig->platform());
        state.ResumeTiming();
        rig->app->applicationDidFinishLaunching();
        if (!rig->app->menuBarController()->trayIcon()->isVisible()) {
            state.SkipWithError("the tray icon was not shown");
        }
        state.PauseTiming();
        rig.reset();
        state.ResumeTiming();
    }
}

void BM_ResidentMemoryOverOneHundredUtterances(benchmark::State &state)
{
    for (auto _ : state) {
        Rig rig;
        if (!rig.launchAndConnect()) {
            state.SkipWithError("no connection");
            return;
        }
        const QByteArray pcm = tone();
        rig.app->coordinator()->setDisplayDurations({0.005, 0.005});
        for (int i = 0; i < 3; ++i) {
            rig.utterance(pcm); // warm-up: first-use allocations
        }
        const qint64 afterLaunch = test::residentKiB();
        for (int i = 0; i < 100; ++i) {
            if (!rig.utterance(pcm)) {
                state.SkipWithError("an utterance did not complete");
                return;
            }
        }
        const qint64 after = test::residentKiB();
        state.counters["rss_after_launch_kB"] = static_cast<double>(afterLaunch);
        state.counters["rss_after_100_kB"] = static_cast<double>(after);
        state.counters["growth_kB"] = static_cast<double>(after - afterLaunch);
        if (after - afterLaunch > 5 * 1024) {
            state.SkipWithError("grew by more than 5 MB over 100 utterances");
        }
    }
}

// Counts timer events delivered to objects on the main thread.
class TimerCounter : public QObject
{
public:
    int count = 0;
    QStringList owners;
    QObject *ignored = nullptr;
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (event->type() == QEvent::Timer && watched != ignored) {
            ++count;
            owners << QString::fromLatin1(watched->metaObject()->className());
        }
        return false;
    }
};

void BM_IdleTimerWakeups(benchmark::State &state)
{
    for (auto _ : state) {
        Rig rig;
        if (!rig.launchAndConnect()) {
            state.SkipWithError("no connection");
            return;
        }
        rig.utterance(tone());
        QTest::qWait(500);
        TimerCounter counter;
        QEventLoop idle;
        QTimer end; // the one timer the measurement itself needs; not counted
        end.setSingleShot(true);
        QObject::connect(&end, &QTimer::timeout, &idle, &QEventLoop::quit);
        counter.ignored = &end;
        qApp->installEventFilter(&counter);
        end.start(30000);
        idle.exec();
        qApp->removeEventFilter(&counter);
        state.counters["timer_events_30s"] = counter.count;
        if (counter.count > 0) {
            counter.owners.removeDuplicates();
            state.SetLabel(counter.owners.join(',').toStdString());
        }
    }
}

} // namespace

BENCHMARK(BM_ShowEmptyWindowBaseline)->Iterations(20)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LaunchToTrayIcon)->Iterations(10)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ResidentMemoryOverOneHundredUtterances)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_IdleTimerWakeups)->Iterations(1)->Unit(benchmark::kMillisecond);

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
