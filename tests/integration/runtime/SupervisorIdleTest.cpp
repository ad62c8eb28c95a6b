#include "integration/runtime/RealSupervisorFixture.h"

#include <QAbstractEventDispatcher>
#include <QEventLoop>
#include <QTimer>

using namespace sayvo;
using namespace sayvo::test;

namespace {

// How often the main thread wakes up during `ms` of an otherwise idle event loop.
int mainThreadWakeups(int ms)
{
    int wakeups = 0;
    QAbstractEventDispatcher *dispatcher = QAbstractEventDispatcher::instance();
    const auto connection
        = QObject::connect(dispatcher, &QAbstractEventDispatcher::awake, [&] { ++wakeups; });
    QEventLoop loop;
    QTimer::singleShot(ms, &loop, &QEventLoop::quit);
    loop.exec();
    QObject::disconnect(connection);
    return wakeups;
}

using SupervisorIdleTest = RealSupervisorFixture;

TEST_F(SupervisorIdleTest, NothingWakesTheMainThreadWhileTheEngineRuns)
{
    const int baseline = mainThreadWakeups(1500);
    sandbox.writePayload(QStringLiteral("run_engine_stays.sh"));
    sandbox.provision(QStringLiteral("1.0.0"));
    EngineSupervisor &s = make();
    s.start(loopback(freePort()));
    ASSERT_TRUE(waitForLog(QStringLiteral("engine: up\n")));
    QTest::qWait(200); // let the start-up output settle

    const int withEngine = mainThreadWakeups(1500);
    // A poll of even 10 Hz would add 15 wakeups here.
    EXPECT_LE(withEngine, baseline + 3)
        << "baseline " << baseline << ", with engine " << withEngine;
    EXPECT_LE(withEngine, 5);
}

} // namespace
