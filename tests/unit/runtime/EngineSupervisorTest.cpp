#include "unit/runtime/SupervisorFixture.h"

#include <QDir>
#include <QFile>
#include <QTcpServer>

using namespace sayvo;
using namespace sayvo::test;
namespace es = sayvo::engine_state;

namespace {

const char16_t kPlaceholderNotOurs[]
    = u"A placeholder (mock) engine is running on this endpoint. Stop it (or fix its backends) and "
      u"restart — the app can't get real transcripts until then.";
const char16_t kPlaceholderOurs[]
    = u"The engine started in placeholder (mock) mode — its ASR/GEC backends failed to load. Open "
      u"Engine Setup to reinstall the backends.";

using EngineSupervisorTest = SupervisorFixture;

TEST(EngineSupervisorStatic, LoopbackHosts)
{
    EXPECT_TRUE(EngineSupervisor::isLoopback(url("ws://LOCALHOST:8765")));
    EXPECT_TRUE(EngineSupervisor::isLoopback(url("ws://127.0.0.1")));
    EXPECT_TRUE(EngineSupervisor::isLoopback(url("ws://[::1]:8765")));
    EXPECT_TRUE(EngineSupervisor::isLoopback(url("wss://0.0.0.0:1")));
    EXPECT_FALSE(EngineSupervisor::isLoopback(url("ws://192.168.1.5:8765")));
    EXPECT_FALSE(EngineSupervisor::isLoopback(url("ws://127.0.0.2:8765")));
    EXPECT_FALSE(EngineSupervisor::isLoopback(url("ws:///nohost")));
}

TEST_F(EngineSupervisorTest, StartsIdleWithEmptyLogAndSteps)
{
    EngineSupervisor &s = make();
    EXPECT_EQ(s.state(), EngineState(es::Idle {}));
    EXPECT_TRUE(s.log().isEmpty());
    EXPECT_TRUE(s.steps().isEmpty());
    EXPECT_FALSE(s.isDevRuntime());
    EXPECT_TRUE(s.canUninstall());
}

TEST_F(EngineSupervisorTest, PrivateNetworkAddressIsRemoteAndStopsTheEngine)
{
    EngineSupervisor &s = make();
    s.start(url("ws://127.0.0.1:9000"));
    ASSERT_EQ(launches(), 1);
    const auto engine = lastProcess();
    s.start(url("ws://192.168.1.5:8765"));
    EXPECT_EQ(s.state(), EngineState(es::RemoteEndpoint {}));
    EXPECT_TRUE(engine->terminated);
    EXPECT_TRUE(engine->dropped);
    EXPECT_EQ(probes.size(), 1); // the remote endpoint is never probed
    engine->exitWith(15);
    settle();
    EXPECT_EQ(launches(), 1);
    EXPECT_FALSE(s.hasPendingRestart());
}

TEST_F(EngineSupervisorTest, LoopbackWithoutPortProbesDefaultAndPassesNoPort)
{
    EngineSupervisor &s = make();
    s.start(url("ws://127.0.0.1"));
    ASSERT_EQ(probes, (QList<std::pair<QString, int>> {{QStringLiteral("127.0.0.1"), 8765}}));
    ASSERT_EQ(launches(), 1);
    const ProcessLaunch &launch = lastProcess()->launch;
    EXPECT_EQ(launch.program, QStringLiteral("/bin/bash"));
    EXPECT_EQ(launch.arguments,
        (QStringList {sandbox.payloadDir() + QStringLiteral("/scripts/run_engine.sh"),
            QStringLiteral("--app-dir"), sandbox.appDir()}));
    ASSERT_TRUE(launch.environment);
    EXPECT_EQ(
        launch.environment->value(QStringLiteral("ENGINE_HOST")), QStringLiteral("127.0.0.1"));
    EXPECT_FALSE(launch.environment->contains(QStringLiteral("ENGINE_PORT")));
    // The rest of the application's environment is passed on.
    EXPECT_EQ(launch.environment->value(QStringLiteral("PATH")), qEnvironmentVariable("PATH"));
    EXPECT_EQ(s.state(), EngineState(es::Running {}));
}

TEST_F(EngineSupervisorTest, LoopbackWithPortProbesItAndPassesIt)
{
    EngineSupervisor &s = make();
    s.start(url("ws://localhost:9000/stream"));
    ASSERT_EQ(probes, (QList<std::pair<QString, int>> {{QStringLiteral("localhost"), 9000}}));
    ASSERT_EQ(launches(), 1);
    EXPECT_EQ(lastProcess()->launch.environment->value(QStringLiteral("ENGINE_PORT")),
        QStringLiteral("9000"));
}

TEST_F(EngineSupervisorTest, TheEngineIsToldToListenWhereTheEndpointPoints)
{
    for (const auto &[endpoint, host] :
        std::vector<std::pair<const char *, const char *>> {{"ws://[::1]:9000", "::1"},
            {"ws://localhost:9000", "localhost"}, {"ws://LOCALHOST:9000", "localhost"},
            {"ws://127.0.0.1:9000", "127.0.0.1"}, {"ws://0.0.0.0:9000", "0.0.0.0"}}) {
        EngineSupervisor &s = make();
        s.start(url(endpoint));
        ASSERT_TRUE(lastProcess()) << endpoint;
        EXPECT_EQ(lastProcess()->launch.environment->value(QStringLiteral("ENGINE_HOST")),
            QString::fromLatin1(host))
            << endpoint;
        EXPECT_EQ(probes.last(), std::make_pair(QString::fromLatin1(host), 9000)) << endpoint;
    }
}

TEST_F(EngineSupervisorTest, AChangedEndpointRelaunchesTheEngineWhereItNowPoints)
{
    EngineSupervisor &s = make();
    s.start(url("ws://127.0.0.1:8765"));
    const auto first = lastProcess();
    s.start(url("ws://127.0.0.1:8765"));
    EXPECT_EQ(launches(), 1) << "the same endpoint again finds the engine up";
    s.start(url("ws://[::1]:9000"));
    ASSERT_EQ(launches(), 2);
    EXPECT_TRUE(first->terminated);
    EXPECT_EQ(lastProcess()->launch.environment->value(QStringLiteral("ENGINE_HOST")),
        QStringLiteral("::1"));
    EXPECT_EQ(lastProcess()->launch.environment->value(QStringLiteral("ENGINE_PORT")),
        QStringLiteral("9000"));
    first->exitWith(15);
    settle();
    EXPECT_EQ(s.crashCount(), 0) << "the engine stopped on purpose";
    EXPECT_EQ(s.state(), EngineState(es::Running {}));
}

TEST_F(EngineSupervisorTest, OpenPortMeansExternalEngineAndMockReportFailsAtOnce)
{
    portOpen = true;
    EngineSupervisor &s = make();
    s.start(url("ws://127.0.0.1:8765"));
    EXPECT_EQ(s.state(), EngineState(es::Running {}));
    EXPECT_TRUE(s.isEngineExternallyManaged());
    EXPECT_EQ(processes->created, 0);
    s.handleMockBackends();
    EXPECT_EQ(s.state(), EngineState(es::Failed {QString::fromUtf16(kPlaceholderNotOurs)}));
    EXPECT_EQ(processes->created, 0);
}

TEST_F(EngineSupervisorTest, MissingPayload)
{
    QFile::remove(sandbox.payloadDir() + QStringLiteral("/scripts/bootstrap_runtime.sh"));
    EngineSupervisor &s = make();
    s.start(url("ws://127.0.0.1:8765"));
    EXPECT_EQ(s.state(), EngineState(es::MissingPayload {}));
    EXPECT_TRUE(probes.isEmpty());
    EXPECT_EQ(processes->created, 0);
}

TEST_F(EngineSupervisorTest, UnprovisionedRuntimeWaitsForSetup)
{
    QFile::remove(sandbox.installRoot() + QStringLiteral("/VERSION"));
    EngineSupervisor &s = make();
    s.start(url("ws://127.0.0.1:8765"));
    EXPECT_EQ(s.state(), EngineState(es::NeedsSetup {}));
    EXPECT_EQ(processes->created, 0);
}

TEST_F(EngineSupervisorTest, OutdatedRuntimeIsUpdatedFirst)
{
    sandbox.provision(QStringLiteral("0.9.0"));
    EngineSupervisor &s = make();
    s.start(url("ws://127.0.0.1:8765"));
    EXPECT_EQ(s.state(), EngineState(es::Provisioning {0, QStringLiteral("Preparing setup…")}));
    ASSERT_EQ(launches(), 1);
    EXPECT_EQ(lastProcess()->launch.arguments.first(),
        sandbox.payloadDir() + QStringLiteral("/scripts/bootstrap_runtime.sh"));
}

TEST_F(EngineSupervisorTest, LaunchFailureIsReported)
{
    EngineSupervisor &s = make();
    processes->failStartWith = QStringLiteral("execve: No such file or directory");
    s.start(url("ws://127.0.0.1:8765"));
    EXPECT_EQ(s.state(),
        EngineState(es::Failed {
            QStringLiteral("Could not start the engine: execve: No such file or directory")}));
    EXPECT_FALSE(s.isEngineLaunched());
}

TEST_F(EngineSupervisorTest, SecondStartAtLaunchFindsTheEngineUp)
{
    EngineSupervisor &s = make();
    s.start(url("ws://127.0.0.1:8765"));
    s.start(url("ws://127.0.0.1:8765"));
    EXPECT_EQ(launches(), 1);
    EXPECT_EQ(probes.size(), 1);
    EXPECT_EQ(s.state(), EngineState(es::Running {}));
}

TEST_F(EngineSupervisorTest, FiveCrashesBackOffAndTheSixthFails)
{
    EngineSupervisor &s = make();
    s.start(url("ws://127.0.0.1:8765"));
    const int delays[] = {2, 4, 6, 8, 8};
    for (int crash = 1; crash <= 5; ++crash) {
        ASSERT_EQ(launches(), crash);
        lastProcess()->exitWith(7);
        settle();
        EXPECT_TRUE(s.hasPendingRestart());
        EXPECT_EQ(s.state(), EngineState(es::Running {}));
        EXPECT_TRUE(
            s.log().endsWith(QStringLiteral("\n== engine exited (7); restarting in %1s ==\n")
                                 .arg(delays[crash - 1])));
        ASSERT_TRUE(QTest::qWaitFor([&] { return launches() == crash + 1; }, 2000));
    }
    lastProcess()->exitWith(9);
    settle();
    EXPECT_EQ(s.state(),
        EngineState(
            es::Failed {QStringLiteral("The engine keeps stopping (exited 9). See the log.")}));
    EXPECT_FALSE(s.hasPendingRestart());
    QTest::qWait(200);
    EXPECT_EQ(launches(), 6);
    EXPECT_EQ(s.crashCount(), 6);
}

TEST_F(EngineSupervisorTest, AnEngineThatCannotLoadItsModelFailsWithItsLastLineAndIsNotRestarted)
{
    EngineSupervisor &s = make();
    s.start(url("ws://127.0.0.1:8765"));
    lastProcess()->write("run_engine: starting\n"
                         "sayvo-engine: speech model missing: /srv/model/en-us.lm.bin\n");
    lastProcess()->exitWith(EngineSupervisor::kEngineCannotStartStatus);
    settle();
    EXPECT_EQ(s.state(),
        EngineState(es::Failed {
            QStringLiteral("sayvo-engine: speech model missing: /srv/model/en-us.lm.bin")}));
    EXPECT_FALSE(s.hasPendingRestart());
    QTest::qWait(100);
    EXPECT_EQ(launches(), 1);
}

TEST_F(EngineSupervisorTest, AnEngineThatCannotStartAndSaysNothingFailsWithItsStatus)
{
    EngineSupervisor &s = make();
    s.start(url("ws://127.0.0.1:8765"));
    lastProcess()->exitWith(EngineSupervisor::kEngineCannotStartStatus);
    settle();
    EXPECT_EQ(s.state(),
        EngineState(
            es::Failed {QStringLiteral("The engine cannot start (exited 3). See the log.")}));
}

TEST_F(EngineSupervisorTest, HealthyHandshakeResetsTheCrashCount)
{
    EngineSupervisor &s = make();
    s.start(url("ws://127.0.0.1:8765"));
    lastProcess()->exitWith(1);
    settle();
    ASSERT_TRUE(QTest::qWaitFor([&] { return launches() == 2; }, 2000));
    lastProcess()->exitWith(1);
    settle();
    EXPECT_EQ(s.crashCount(), 2);
    ASSERT_TRUE(QTest::qWaitFor([&] { return launches() == 3; }, 2000));
    s.handleHealthyBackends();
    EXPECT_EQ(s.crashCount(), 0);
    lastProcess()->exitWith(1);
    settle();
    EXPECT_TRUE(s.log().endsWith(QStringLiteral("\n== engine exited (1); restarting in 2s ==\n")));
}

TEST_F(EngineSupervisorTest, HealthyHandshakeRecoversFailedAndIdleOnly)
{
    EngineSupervisor &s = make();
    s.handleHealthyBackends();
    EXPECT_EQ(s.state(), EngineState(es::Running {}));

    portOpen = true;
    s.start(url("ws://127.0.0.1:8765"));
    s.handleMockBackends();
    ASSERT_TRUE(std::holds_alternative<es::Failed>(s.state()));
    s.handleHealthyBackends();
    EXPECT_EQ(s.state(), EngineState(es::Running {}));

    s.start(url("ws://10.0.0.1:8765"));
    s.handleHealthyBackends();
    EXPECT_EQ(s.state(), EngineState(es::RemoteEndpoint {}));
}

TEST_F(EngineSupervisorTest, MockBackendsRelaunchTwiceThenFail)
{
    EngineSupervisor &s = make();
    s.start(url("ws://127.0.0.1:8765"));
    for (int attempt = 1; attempt <= 2; ++attempt) {
        const auto engine = lastProcess();
        s.handleMockBackends();
        EXPECT_TRUE(engine->terminated);
        EXPECT_TRUE(s.log().endsWith(QStringLiteral(
            "\n== engine reported mock backends; relaunching in 3s (attempt %1/2) ==\n")
                                         .arg(attempt)));
        EXPECT_TRUE(s.hasPendingRestart());
        engine->exitWith(15); // the stop we asked for is no crash
        settle();
        EXPECT_EQ(s.crashCount(), 0);
        ASSERT_TRUE(QTest::qWaitFor([&] { return launches() == attempt + 1; }, 2000));
        EXPECT_EQ(s.state(), EngineState(es::Running {}));
    }
    s.handleMockBackends();
    EXPECT_EQ(s.state(), EngineState(es::Failed {QString::fromUtf16(kPlaceholderOurs)}));
    EXPECT_FALSE(lastProcess()->terminated);
}

TEST_F(EngineSupervisorTest, MockRelaunchWaitsThreeSeconds)
{
    EngineSupervisor &s = make(1.0);
    s.start(url("ws://127.0.0.1:8765"));
    s.handleMockBackends();
    QTest::qWait(2700);
    EXPECT_EQ(launches(), 1);
    EXPECT_TRUE(QTest::qWaitFor([&] { return launches() == 2; }, 1500));
}

TEST_F(EngineSupervisorTest, HealthyHandshakeRestoresTheMockBudget)
{
    EngineSupervisor &s = make();
    s.start(url("ws://127.0.0.1:8765"));
    s.handleMockBackends();
    ASSERT_TRUE(QTest::qWaitFor([&] { return launches() == 2; }, 2000));
    s.handleMockBackends();
    ASSERT_TRUE(QTest::qWaitFor([&] { return launches() == 3; }, 2000));
    s.handleHealthyBackends();
    s.handleMockBackends();
    EXPECT_TRUE(s.log().endsWith(QStringLiteral("(attempt 1/2) ==\n")));
}

TEST_F(EngineSupervisorTest, MockBackendsOfAnUnprovisionedRuntimeFail)
{
    EngineSupervisor &s = make();
    s.start(url("ws://127.0.0.1:8765"));
    QFile::remove(sandbox.installRoot() + QStringLiteral("/VERSION"));
    s.handleMockBackends();
    EXPECT_EQ(s.state(), EngineState(es::Failed {QString::fromUtf16(kPlaceholderOurs)}));
}

TEST_F(EngineSupervisorTest, MockBackendsWithoutAnEngineProcessFailAsNotOurs)
{
    EngineSupervisor &s = make();
    s.handleMockBackends();
    EXPECT_EQ(s.state(), EngineState(es::Failed {QString::fromUtf16(kPlaceholderNotOurs)}));
}

TEST_F(EngineSupervisorTest, RestartCancelsAPendingRelaunch)
{
    EngineSupervisor &s = make(0.05); // a 100 ms relaunch
    s.start(url("ws://127.0.0.1:8765"));
    lastProcess()->exitWith(1);
    settle();
    ASSERT_TRUE(s.hasPendingRestart());
    portOpen = true; // by now someone else serves the endpoint
    s.restartEngine();
    EXPECT_FALSE(s.hasPendingRestart());
    EXPECT_EQ(s.crashCount(), 0);
    QTest::qWait(300);
    EXPECT_EQ(launches(), 1);
    EXPECT_EQ(s.state(), EngineState(es::Running {}));
    EXPECT_TRUE(s.isEngineExternallyManaged());
}

TEST_F(EngineSupervisorTest, RestartReplacesTheEngineAndIgnoresTheOldOnesExit)
{
    EngineSupervisor &s = make();
    QList<EngineState> states;
    QObject::connect(
        &s, &EngineSupervisor::stateChanged, [&](const EngineState &st) { states.append(st); });
    s.start(url("ws://127.0.0.1:8765"));
    const auto old = lastProcess();
    s.restartEngine();
    EXPECT_TRUE(old->terminated);
    ASSERT_EQ(launches(), 2);
    EXPECT_EQ(states, (QList<EngineState> {es::Running {}, es::Idle {}, es::Running {}}));
    old->exitWith(143);
    settle();
    EXPECT_EQ(s.crashCount(), 0);
    EXPECT_FALSE(s.hasPendingRestart());
    EXPECT_TRUE(s.isEngineLaunched());
}

TEST_F(EngineSupervisorTest, RestartAndRetryWithoutEndpointDoNothing)
{
    EngineSupervisor &s = make();
    s.restartEngine();
    s.retry();
    s.beginProvisioning();
    EXPECT_EQ(s.state(), EngineState(es::Idle {}));
    EXPECT_EQ(processes->created, 0);
}

TEST_F(EngineSupervisorTest, LogKeepsItsLast40000Characters)
{
    EngineSupervisor &s = make();
    s.start(url("ws://127.0.0.1:8765"));
    const QString first = QString(39989, QLatin1Char('a'));
    const QString second = QStringLiteral("0123456789abcdefghi"); // 19 + line feed = 20
    lastProcess()->write(first.toUtf8() + '\n');
    settle();
    ASSERT_EQ(s.log().size(), 39990);
    lastProcess()->write(second.toUtf8() + '\n');
    settle();
    EXPECT_EQ(s.log().size(), 40000);
    EXPECT_EQ(s.log(), (first + QLatin1Char('\n')).mid(10) + second + QLatin1Char('\n'));
}

TEST_F(EngineSupervisorTest, OutputLinesReachTheLogInOrder)
{
    EngineSupervisor &s = make();
    s.start(url("ws://127.0.0.1:8765"));
    lastProcess()->write("loading\r\nmodel ");
    lastProcess()->write("ready\n\xff\xfe\nserving\npart");
    settle();
    EXPECT_EQ(s.log(), QStringLiteral("loading\r\nmodel ready\nserving\n"));
}

TEST_F(EngineSupervisorTest, ThreeCharactersWithoutLineFeedProduceNoLine)
{
    EngineSupervisor &s = make();
    s.start(url("ws://127.0.0.1:8765"));
    lastProcess()->write("abc");
    lastProcess()->exitWith(0);
    settle();
    EXPECT_FALSE(s.log().contains(QStringLiteral("abc")));
    EXPECT_EQ(s.log(), QStringLiteral("\n== engine exited (0); restarting in 2s ==\n"));
}

TEST_F(EngineSupervisorTest, ShutdownStopsEverythingAndNothingRestarts)
{
    EngineSupervisor &s = make();
    s.start(url("ws://127.0.0.1:8765"));
    const auto engine = lastProcess();
    s.shutdown();
    EXPECT_TRUE(engine->terminated);
    EXPECT_FALSE(s.isEngineLaunched());
    engine->exitWith(15);
    QTest::qWait(100);
    EXPECT_EQ(launches(), 1);
    EXPECT_FALSE(s.hasPendingRestart());
}

TEST_F(EngineSupervisorTest, ShutdownCancelsAPendingRelaunch)
{
    EngineSupervisor &s = make(0.05);
    s.start(url("ws://127.0.0.1:8765"));
    lastProcess()->exitWith(1);
    settle();
    ASSERT_TRUE(s.hasPendingRestart());
    s.shutdown();
    QTest::qWait(300);
    EXPECT_EQ(launches(), 1);
}

TEST_F(EngineSupervisorTest, AdoptedRuntimeIsADevRuntime)
{
    QDir().mkpath(sandbox.root() + QStringLiteral("/checkout/.venv"));
    auto launcher = std::make_unique<FakeChildProcessLauncher>();
    processes = launcher->log;
    EngineSupervisor::Options options;
    options.launcher = std::move(launcher);
    options.portProbe = [](const QString &, int) { return false; };
    EngineSupervisor s(
        RuntimeLocator(sandbox.payloadDir(), sandbox.root() + QStringLiteral("/empty"),
            QStringLiteral("1.0.0"), sandbox.root() + QStringLiteral("/checkout")),
        std::move(options));
    EXPECT_TRUE(s.isDevRuntime());
    s.start(url("ws://127.0.0.1:8765"));
    ASSERT_EQ(launches(), 1);
    EXPECT_EQ(lastProcess()->launch.arguments.last(), sandbox.root() + QStringLiteral("/checkout"));
}

TEST(EngineSupervisorPortProbe, EveryLoopbackFormFindsAnEngineListeningOnIpv4)
{
    QTcpServer server;
    ASSERT_TRUE(server.listen(QHostAddress::LocalHost));
    const int port = server.serverPort();
    for (const QString &host : {QStringLiteral("127.0.0.1"), QStringLiteral("0.0.0.0"), QString(),
             QStringLiteral("localhost"), QStringLiteral("LocalHost")}) {
        EXPECT_TRUE(EngineSupervisor::isPortOpen(host, port)) << host.toStdString();
    }
    EXPECT_FALSE(EngineSupervisor::isPortOpen(QStringLiteral("example.org"), port))
        << "no name lookup";
    server.close();
    for (const QString &host :
        {QStringLiteral("127.0.0.1"), QStringLiteral("localhost"), QStringLiteral("::1")}) {
        EXPECT_FALSE(EngineSupervisor::isPortOpen(host, port)) << host.toStdString();
    }
}

TEST(EngineSupervisorPortProbe, EveryLoopbackFormFindsAnEngineListeningOnIpv6)
{
    QTcpServer server;
    ASSERT_TRUE(server.listen(QHostAddress::LocalHostIPv6));
    const int port = server.serverPort();
    EXPECT_TRUE(EngineSupervisor::isPortOpen(QStringLiteral("::1"), port));
    EXPECT_TRUE(EngineSupervisor::isPortOpen(QStringLiteral("localhost"), port));
    EXPECT_FALSE(EngineSupervisor::isPortOpen(QStringLiteral("127.0.0.1"), port));
    server.close();
    EXPECT_FALSE(EngineSupervisor::isPortOpen(QStringLiteral("::1"), port));
}

TEST(EngineSupervisorPortProbeDeathTest, PortOutsideRangeAborts)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(EngineSupervisor::isPortOpen(QStringLiteral("127.0.0.1"), 70000), "outside");
}

} // namespace
