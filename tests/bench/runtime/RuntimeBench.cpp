// What watching the engine costs: one footprint sample of the whole process table (ps plus
// the parse), against the budget of 2% of one core at the settings window's 3-second
// interval; and how often the main thread wakes while a supervised engine runs, against an
// empty event loop.
#include "runtime/EngineSupervisor.h"
#include "runtime/FootprintSampler.h"
#include "runtime/ProcessTable.h"
#include "support/runtime/RuntimeSandbox.h"

#include <QAbstractEventDispatcher>
#include <QCoreApplication>
#include <QEventLoop>
#include <QProcess>
#include <QTest>
#include <QTimer>

#include <benchmark/benchmark.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

constexpr double kSampleIntervalSeconds = 3.0;
constexpr double kCoreBudget = 0.02;

double seconds(const timeval &t)
{
    return double(t.tv_sec) + double(t.tv_usec) / 1e6;
}

// CPU time of this process and of the children it has waited for.
double cpuSecondsIncludingChildren()
{
    rusage self {}, children {};
    getrusage(RUSAGE_SELF, &self);
    getrusage(RUSAGE_CHILDREN, &children);
    return seconds(self.ru_utime) + seconds(self.ru_stime) + seconds(children.ru_utime)
        + seconds(children.ru_stime);
}

void reportCoreShare(benchmark::State &state, double cpuSeconds)
{
    const double perSample = cpuSeconds / double(state.iterations());
    const double share = perSample / kSampleIntervalSeconds;
    state.counters["cpu_ms_per_sample"] = perSample * 1000.0;
    state.counters["core_share_at_3s_pct"] = share * 100.0;
    state.counters["of_budget"] = share / kCoreBudget;
}

// Baseline: starting and reaping a process that does nothing.
void BM_SpawnTrue(benchmark::State &state)
{
    const double before = cpuSecondsIncludingChildren();
    for (auto _ : state) {
        QProcess process;
        process.start(QStringLiteral("/bin/true"), {});
        process.waitForFinished();
    }
    reportCoreShare(state, cpuSecondsIncludingChildren() - before);
}
BENCHMARK(BM_SpawnTrue)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_FootprintSample(benchmark::State &state)
{
    const double before = cpuSecondsIncludingChildren();
    int processes = 0;
    for (auto _ : state) {
        const auto footprint = sayvo::FootprintSampler::sampleTree(::getpid());
        processes = footprint ? footprint->processCount : 0;
        benchmark::DoNotOptimize(processes);
    }
    reportCoreShare(state, cpuSecondsIncludingChildren() - before);
}
BENCHMARK(BM_FootprintSample)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_ParseProcessTable(benchmark::State &state)
{
    QProcess ps;
    ps.start(QStringLiteral("/bin/ps"),
        {QStringLiteral("-axo"), QStringLiteral("pid=,ppid=,rss=,pcpu=")});
    ps.waitForFinished();
    const QByteArray listing = ps.readAllStandardOutput();
    for (auto _ : state) {
        benchmark::DoNotOptimize(sayvo::footprintOfTree(listing, 1));
    }
    state.counters["table_rows"] = double(listing.count('\n'));
}
BENCHMARK(BM_ParseProcessTable)->Unit(benchmark::kMicrosecond);

int wakeupsDuring(int ms)
{
    int wakeups = 0;
    const auto connection = QObject::connect(
        QAbstractEventDispatcher::instance(), &QAbstractEventDispatcher::awake, [&] { ++wakeups; });
    QEventLoop loop;
    QTimer::singleShot(ms, &loop, &QEventLoop::quit);
    loop.exec();
    QObject::disconnect(connection);
    return wakeups;
}

void BM_IdleMainThread(benchmark::State &state)
{
    const bool withEngine = state.range(0) != 0;
    sayvo::test::RuntimeSandbox sandbox;
    std::unique_ptr<sayvo::EngineSupervisor> supervisor;
    if (withEngine) {
        sandbox.writePayload(QStringLiteral("run_engine_stays.sh"));
        sandbox.provision(QStringLiteral("1.0.0"));
        supervisor = std::make_unique<sayvo::EngineSupervisor>(sandbox.locator());
        supervisor->start(QUrl(QStringLiteral("ws://127.0.0.1:1")));
        if (!QTest::qWaitFor(
                [&] { return supervisor->log().contains(QStringLiteral("engine: up")); }, 5000)) {
            state.SkipWithError("the fixture engine did not start");
            return;
        }
    }
    int wakeups = 0;
    for (auto _ : state) {
        wakeups += wakeupsDuring(1000);
    }
    state.counters["wakeups_per_s"] = double(wakeups) / double(state.iterations());
}
BENCHMARK(BM_IdleMainThread)
    ->Arg(0)
    ->Arg(1)
    ->Iterations(3)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
