#include "integration/runtime/RealSupervisorFixture.h"

#include <QFile>

#include <csignal>

using namespace sayvo;
using namespace sayvo::test;
namespace es = sayvo::engine_state;

namespace {

class EngineProcessTest : public RealSupervisorFixture
{
protected:
    void useRunScript(const char *name)
    {
        sandbox.writePayload(QString::fromLatin1(name));
        sandbox.provision(QStringLiteral("1.0.0"));
    }
    void setExitStatus(int status)
    {
        QFile file(sandbox.appDir() + QStringLiteral("/exit_status"));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(QByteArray::number(status));
    }
};

TEST_F(EngineProcessTest, RunsTheScriptWithAppDirAndExplicitPort)
{
    useRunScript("run_engine_stays.sh");
    EngineSupervisor &s = make();
    const int port = freePort();
    s.start(loopback(port));
    EXPECT_EQ(s.state(), EngineState(es::Running {}));
    ASSERT_TRUE(waitForLines(QStringLiteral("app/launches"), 1));
    EXPECT_EQ(sandbox.readLines(QStringLiteral("app/launches")),
        QStringList {QStringLiteral("args=--app-dir %1 host=127.0.0.1 port=%2")
                         .arg(sandbox.appDir())
                         .arg(port)});
    ASSERT_TRUE(waitForLog(QStringLiteral("engine: up\n")));
    QTest::qWait(100);
    // The last line never got its line feed, so it is not in the log.
    EXPECT_EQ(s.log(), QStringLiteral("engine: up\n"));
}

TEST_F(EngineProcessTest, DefaultPortIsProbedAndNotPassed)
{
    useRunScript("run_engine_stays.sh");
    QList<std::pair<QString, int>> probes;
    EngineSupervisor &s = make(QStringLiteral("1.0.0"), 1.0, [&](const QString &host, int port) {
        probes.append({host, port});
        return false; // whatever runs on this machine, pretend 8765 is free
    });
    s.start(QUrl(QStringLiteral("ws://127.0.0.1")));
    EXPECT_EQ(probes, (QList<std::pair<QString, int>> {{QStringLiteral("127.0.0.1"), 8765}}));
    ASSERT_TRUE(waitForLines(QStringLiteral("app/launches"), 1));
    EXPECT_TRUE(sandbox.readLines(QStringLiteral("app/launches"))
                    .first()
                    .endsWith(QStringLiteral("port=unset")));
}

TEST_F(EngineProcessTest, OpenPortMeansNothingIsLaunchedAndMockFailsAtOnce)
{
    useRunScript("run_engine_stays.sh");
    QTcpServer someoneElse;
    ASSERT_TRUE(someoneElse.listen(QHostAddress::LocalHost));
    EngineSupervisor &s = make();
    s.start(loopback(someoneElse.serverPort()));
    EXPECT_EQ(s.state(), EngineState(es::Running {}));
    EXPECT_FALSE(s.isEngineLaunched());
    s.handleMockBackends();
    EXPECT_TRUE(std::holds_alternative<es::Failed>(s.state()));
    EXPECT_TRUE(std::get<es::Failed>(s.state()).message.startsWith(
        QStringLiteral("A placeholder (mock) engine is running on this endpoint.")));
    QTest::qWait(200);
    EXPECT_TRUE(sandbox.readLines(QStringLiteral("app/launches")).isEmpty());
}

TEST_F(EngineProcessTest, AnEngineOnEveryLoopbackFormIsFoundAndNoSecondOneLaunched)
{
    useRunScript("run_engine_stays.sh");
    const std::vector<std::pair<QHostAddress, QString>> cases = {
        {QHostAddress::LocalHost, QStringLiteral("ws://localhost:%1")},
        {QHostAddress::LocalHostIPv6, QStringLiteral("ws://[::1]:%1")},
        {QHostAddress::LocalHostIPv6, QStringLiteral("ws://localhost:%1")},
        {QHostAddress::LocalHost, QStringLiteral("ws://0.0.0.0:%1")},
    };
    for (const auto &[address, endpoint] : cases) {
        QTcpServer someoneElse;
        ASSERT_TRUE(someoneElse.listen(address));
        EngineSupervisor &s = make();
        s.start(QUrl(endpoint.arg(someoneElse.serverPort())));
        EXPECT_EQ(s.state(), EngineState(es::Running {})) << endpoint.toStdString();
        EXPECT_TRUE(s.isEngineExternallyManaged()) << endpoint.toStdString();
        EXPECT_FALSE(s.isEngineLaunched()) << endpoint.toStdString();
    }
    EXPECT_TRUE(sandbox.readLines(QStringLiteral("app/launches")).isEmpty());
}

TEST_F(EngineProcessTest, ListeningEngineIsFoundUpOnTheSecondStart)
{
    useRunScript("run_engine_listens.sh");
    EngineSupervisor &s = make();
    const int port = freePort();
    s.start(loopback(port));
    ASSERT_TRUE(QTest::qWaitFor(
        [&] { return EngineSupervisor::isPortOpen(QStringLiteral("127.0.0.1"), port); }, 10000));
    s.start(loopback(port));
    EXPECT_FALSE(s.isEngineExternallyManaged());
    EXPECT_EQ(sandbox.readLines(QStringLiteral("app/launches")).size(), 1);
    s.shutdown();
    EXPECT_TRUE(waitUntilGone(sandbox.recordedPids(), 5000));
    EXPECT_FALSE(EngineSupervisor::isPortOpen(QStringLiteral("127.0.0.1"), port));
}

TEST_F(EngineProcessTest, FiveExitsBackOffTwoFourSixEightEightAndTheSixthFails)
{
    useRunScript("run_engine_exits.sh");
    setExitStatus(7);
    EngineSupervisor &s = make(); // real delays: 28 seconds in all
    s.start(loopback(freePort()));
    ASSERT_TRUE(waitForState(
        es::Failed {QStringLiteral("The engine keeps stopping (exited 7). See the log.")}, 40000));
    const QString log = s.log();
    qsizetype from = 0;
    for (int delay : {2, 4, 6, 8, 8}) {
        const QString note
            = QStringLiteral("\n== engine exited (7); restarting in %1s ==\n").arg(delay);
        const qsizetype at = log.indexOf(note, from);
        ASSERT_GE(at, 0) << "missing restart after " << delay << "s";
        from = at + note.size();
    }
    EXPECT_EQ(log.count(QStringLiteral("== engine exited")), 5);
    EXPECT_EQ(sandbox.readLines(QStringLiteral("app/launches")).size(), 6);
    EXPECT_FALSE(s.hasPendingRestart());
}

TEST_F(EngineProcessTest, BackOffAtAShorterScaleKeepsTheLoggedDelays)
{
    useRunScript("run_engine_exits.sh");
    setExitStatus(42);
    EngineSupervisor &s = make(QStringLiteral("1.0.0"), 0.02);
    s.start(loopback(freePort()));
    ASSERT_TRUE(waitForState(
        es::Failed {QStringLiteral("The engine keeps stopping (exited 42). See the log.")}, 10000));
    EXPECT_TRUE(s.log().contains(QStringLiteral("\n== engine exited (42); restarting in 8s ==\n")));
    EXPECT_EQ(sandbox.readLines(QStringLiteral("app/launches")).size(), 6);
    EXPECT_EQ(s.log().count(QStringLiteral("engine: starting\n")), 6);
}

TEST_F(EngineProcessTest, KilledEngineReportsTheSignal)
{
    useRunScript("run_engine_stays.sh");
    EngineSupervisor &s = make(QStringLiteral("1.0.0"), 0.02);
    s.start(loopback(freePort()));
    ASSERT_TRUE(waitForLines(QStringLiteral("app/pids"), 1));
    const pid_t shell = sandbox.recordedPids().first();
    ::kill(shell, SIGKILL);
    ASSERT_TRUE(waitForLog(QStringLiteral("\n== engine exited (9); restarting in 2s ==\n")));
    ASSERT_TRUE(waitForLines(QStringLiteral("app/launches"), 2));
}

TEST_F(EngineProcessTest, ThreeCharactersWithoutLineFeedProduceNoLine)
{
    useRunScript("run_engine_partial.sh");
    EngineSupervisor &s = make();
    s.start(loopback(freePort()));
    ASSERT_TRUE(waitForLog(QStringLiteral("== engine exited (0); restarting in 2s ==")));
    s.shutdown();
    EXPECT_EQ(s.log(), QStringLiteral("\n== engine exited (0); restarting in 2s ==\n"));
}

TEST_F(EngineProcessTest, ShutdownLeavesNoChildRunning)
{
    useRunScript("run_engine_stays.sh");
    EngineSupervisor &s = make();
    s.start(loopback(freePort()));
    ASSERT_TRUE(waitForLines(QStringLiteral("app/pids"), 1));
    const QList<pid_t> pids = sandbox.recordedPids();
    ASSERT_EQ(pids.size(), 2); // the shell and the child it started
    s.shutdown();
    EXPECT_TRUE(waitUntilGone(pids, 2000));
    QTest::qWait(100);
    EXPECT_EQ(sandbox.readLines(QStringLiteral("app/launches")).size(), 1);
}

TEST_F(EngineProcessTest, AnEngineIgnoringTerminationIsKilledAfterTheGracePeriod)
{
    useRunScript("run_engine_ignores_term.sh");
    EngineSupervisor &s = make();
    s.start(loopback(freePort()));
    ASSERT_TRUE(waitForLog(QStringLiteral("engine: ignoring SIGTERM\n")));
    const QList<pid_t> pids = sandbox.recordedPids();
    s.shutdown();
    QTest::qWait(1000);
    EXPECT_TRUE(std::all_of(pids.begin(), pids.end(), processAlive))
        << "stopped before the grace period";
    EXPECT_TRUE(waitUntilGone(pids, 5000));
}

TEST_F(EngineProcessTest, DestroyingTheSupervisorEndsAnEngineIgnoringTermination)
{
    useRunScript("run_engine_ignores_term.sh");
    make().start(loopback(freePort()));
    ASSERT_TRUE(waitForLog(QStringLiteral("engine: ignoring SIGTERM\n")));
    const QList<pid_t> pids = sandbox.recordedPids();
    supervisor.reset();
    EXPECT_TRUE(waitUntilGone(pids, 1000));
}

TEST_F(EngineProcessTest, MockBackendsRelaunchTwiceThenFail)
{
    useRunScript("run_engine_stays.sh");
    EngineSupervisor &s = make(QStringLiteral("1.0.0"), 0.05);
    s.start(loopback(freePort()));
    for (int attempt = 1; attempt <= 2; ++attempt) {
        ASSERT_TRUE(waitForLines(QStringLiteral("app/pids"), attempt));
        s.handleMockBackends();
        ASSERT_TRUE(waitForLines(QStringLiteral("app/launches"), attempt + 1));
        EXPECT_EQ(s.crashCount(), 0);
    }
    ASSERT_TRUE(waitForLines(QStringLiteral("app/pids"), 3));
    s.handleMockBackends();
    EXPECT_TRUE(std::get_if<es::Failed>(&s.state()));
    EXPECT_TRUE(s.log().contains(QStringLiteral("(attempt 2/2) ==\n")));
    // The two replaced engines are gone; the third still runs until shutdown.
    const QList<pid_t> pids = sandbox.recordedPids();
    EXPECT_TRUE(waitUntilGone(pids.mid(0, 4), 5000));
    EXPECT_TRUE(processAlive(pids[4]));
}

TEST_F(EngineProcessTest, RestartCancelsThePendingRelaunch)
{
    useRunScript("run_engine_exits.sh");
    EngineSupervisor &s = make(QStringLiteral("1.0.0"), 0.2); // first relaunch after 400 ms
    QTcpServer later;
    const int port = freePort();
    s.start(loopback(port));
    ASSERT_TRUE(QTest::qWaitFor([&] { return s.hasPendingRestart(); }, 5000));
    ASSERT_TRUE(later.listen(QHostAddress::LocalHost, port)); // someone else takes the port
    s.restartEngine();
    EXPECT_FALSE(s.hasPendingRestart());
    QTest::qWait(800);
    EXPECT_EQ(sandbox.readLines(QStringLiteral("app/launches")).size(), 1);
    EXPECT_TRUE(s.isEngineExternallyManaged());
}

} // namespace
