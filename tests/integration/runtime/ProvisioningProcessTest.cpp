#include "integration/runtime/RealSupervisorFixture.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>

using namespace sayvo;
using namespace sayvo::test;
namespace es = sayvo::engine_state;
using StepStatus = ProvisioningStep::Status;

namespace {

class ProvisioningProcessTest : public RealSupervisorFixture
{
protected:
    // An unprovisioned runtime whose set-up is the given fixture; the engine stays up.
    EngineSupervisor &withBootstrap(const char *bootstrap)
    {
        sandbox.writePayload(QStringLiteral("run_engine_stays.sh"), QString::fromLatin1(bootstrap),
            QStringLiteral("uninstall_records.sh"));
        EngineSupervisor &s = make();
        QObject::connect(&s, &EngineSupervisor::stateChanged,
            [this](const EngineState &state) { states.append(state); });
        s.start(loopback(freePort()));
        EXPECT_EQ(s.state(), EngineState(es::NeedsSetup {}));
        return s;
    }
    StepStatus statusOf(const char *id) const
    {
        for (const ProvisioningStep &step : supervisor->steps()) {
            if (step.id == QLatin1String(id)) {
                return step.status;
            }
        }
        ADD_FAILURE() << "no step " << id;
        return StepStatus::Pending;
    }

    QList<EngineState> states;
};

TEST_F(ProvisioningProcessTest, SuccessfulSetupReportsProgressAndLaunchesTheEngine)
{
    EngineSupervisor &s = withBootstrap("bootstrap_success.sh");
    s.beginProvisioning();
    ASSERT_TRUE(waitForState(es::Running {}));
    EXPECT_EQ(states,
        (QList<EngineState> {es::NeedsSetup {},
            es::Provisioning {0, QStringLiteral("Preparing setup…")},
            es::Provisioning {10, QStringLiteral("Checking")},
            es::Provisioning {42, QStringLiteral("Downloading models")},
            es::Provisioning {100, QString()}, es::Running {}}));
    EXPECT_EQ(statusOf("mac"), StepStatus::Done);
    EXPECT_EQ(statusOf("deps"), StepStatus::Done);
    EXPECT_EQ(statusOf("uv"), StepStatus::Pending);
    EXPECT_TRUE(s.log().startsWith(QStringLiteral(
        "PROGRESS 10 Checking\nSTEP mac run\nSTEP mac ok\nfree text from a tool\n")));
    EXPECT_TRUE(s.log().contains(QStringLiteral("PROGRESS 100\nDONE\n")));
    EXPECT_EQ(sandbox.readLines(QStringLiteral("bootstrap-runs")),
        QStringList {QStringLiteral("args=--payload %1 --install-root %2 --version 1.0.0")
                         .arg(sandbox.payloadDir(), sandbox.installRoot())});
    EXPECT_TRUE(s.locator().isProvisioned());
    ASSERT_TRUE(waitForLines(QStringLiteral("app/launches"), 1));
}

TEST_F(ProvisioningProcessTest, DoneWithExitOneFails)
{
    EngineSupervisor &s = withBootstrap("bootstrap_done_fails.sh");
    s.beginProvisioning();
    ASSERT_TRUE(waitForState(
        es::Failed {QStringLiteral("Setup failed (exit 1). See the log for details.")}));
    EXPECT_EQ(statusOf("uv"), StepStatus::Failed);
    EXPECT_EQ(statusOf("deps"), StepStatus::Pending); // "STEP deps ok now" has three fields
    EXPECT_FALSE(s.isProvisioningRunning());
}

TEST_F(ProvisioningProcessTest, NeedWithExitTwoAsksForThePrerequisite)
{
    EngineSupervisor &s = withBootstrap("bootstrap_needs.sh");
    s.beginProvisioning();
    ASSERT_TRUE(waitForState(es::NeedsPrerequisite {
        QStringLiteral("xcode-clt"), QStringLiteral("Install the command line tools first")}));
    EXPECT_EQ(statusOf("mac"), StepStatus::Failed);
}

TEST_F(ProvisioningProcessTest, FinalDoneWithoutLineFeedIsRecognised)
{
    EngineSupervisor &s = withBootstrap("bootstrap_done_no_newline.sh");
    s.beginProvisioning();
    ASSERT_TRUE(waitForState(es::Running {}));
    EXPECT_TRUE(s.log().endsWith(QStringLiteral("PROGRESS 99 Almost there\nDONE\n")));
    ASSERT_TRUE(waitForLines(QStringLiteral("app/launches"), 1));
}

TEST_F(ProvisioningProcessTest, CleanExitWithoutDoneFails)
{
    EngineSupervisor &s = withBootstrap("bootstrap_exit0_no_done.sh");
    s.beginProvisioning();
    ASSERT_TRUE(waitForState(
        es::Failed {QStringLiteral("Setup failed (exit 0). See the log for details.")}));
}

TEST_F(ProvisioningProcessTest, SecondBeginWhileSetupRunsDoesNothing)
{
    EngineSupervisor &s = withBootstrap("bootstrap_slow.sh");
    s.beginProvisioning();
    ASSERT_TRUE(waitForState(es::Provisioning {1, QStringLiteral("Waiting")}));
    s.beginProvisioning();
    s.retry();
    QTest::qWait(300);
    EXPECT_EQ(sandbox.readLines(QStringLiteral("bootstrap-runs")).size(), 1);
    const QList<pid_t> pids = sandbox.recordedPids();
    ASSERT_EQ(pids.size(), 2);
    s.shutdown();
    EXPECT_TRUE(waitUntilGone(pids, 2000));
    QTest::qWait(200);
    EXPECT_EQ(s.state(), EngineState(es::Provisioning {1, QStringLiteral("Waiting")}));
}

TEST_F(ProvisioningProcessTest, NewAppVersionUpdatesTheRuntimeBeforeLaunching)
{
    sandbox.writePayload(
        QStringLiteral("run_engine_stays.sh"), QStringLiteral("bootstrap_success.sh"));
    sandbox.provision(QStringLiteral("0.9.0"));
    EngineSupervisor &s = make(QStringLiteral("1.0.0"));
    s.start(loopback(freePort()));
    EXPECT_TRUE(std::holds_alternative<es::Provisioning>(s.state()));
    ASSERT_TRUE(waitForState(es::Running {}));
    EXPECT_EQ(s.locator().provisionedVersion(), QStringLiteral("1.0.0"));
    EXPECT_FALSE(s.locator().needsUpdate());
}

TEST_F(ProvisioningProcessTest, UninstallerRecordsItsArgumentsAndLogs)
{
    sandbox.writePayload(QStringLiteral("run_engine_stays.sh"),
        QStringLiteral("bootstrap_success.sh"), QStringLiteral("uninstall_records.sh"));
    sandbox.provision(QStringLiteral("1.0.0"));
    EngineSupervisor &s = make();
    s.start(loopback(freePort()));
    ASSERT_TRUE(waitForLines(QStringLiteral("app/pids"), 1));
    const QList<pid_t> engine = sandbox.recordedPids();

    // A link another user planted where older versions wrote the log is left alone.
    const QString victim = sandbox.root() + QStringLiteral("/victim");
    QFile::remove(QStringLiteral("/tmp/sayvo_uninstall.log"));
    const bool planted = QFile::link(victim, QStringLiteral("/tmp/sayvo_uninstall.log"));
    ASSERT_TRUE(s.performUninstall(true));
    EXPECT_TRUE(waitUntilGone(engine, 2000));
    ASSERT_TRUE(waitForLines(QStringLiteral("uninstall-args"), 11));
    const QStringList args = sandbox.readLines(QStringLiteral("uninstall-args"));
    const QString &copy = args[0];
    EXPECT_TRUE(QFileInfo(copy).fileName().startsWith(QStringLiteral("sayvo-uninstall-")));
    EXPECT_EQ(QFileInfo(copy).path(), QDir::tempPath());
    EXPECT_EQ(args.mid(1),
        (QStringList {"--yes", "--wait-pid", QString::number(QCoreApplication::applicationPid()),
            "--install-root", sandbox.installRoot(), "--app", "/opt/Sayvo/bin/sayvo", "--payload",
            sandbox.payloadDir(), "--purge-shared"}));
    QFile log(s.uninstallLogPath());
    EXPECT_TRUE(log.fileName().startsWith(sandbox.root())) << log.fileName().toStdString();
    ASSERT_TRUE(QTest::qWaitFor(
        [&] {
            return log.open(QIODevice::ReadOnly)
                && log.readAll().contains("uninstall: error stream");
        },
        5000));
    log.close();
    ASSERT_TRUE(log.open(QIODevice::ReadOnly));
    const QByteArray logged = log.readAll();
    EXPECT_TRUE(logged.startsWith(copy.toUtf8() + "\n--yes\n--wait-pid\n"));
    EXPECT_TRUE(logged.contains("--purge-shared\n"));
    QFile::remove(copy);
    if (planted) {
        EXPECT_FALSE(QFileInfo::exists(victim)) << "the planted link was followed";
        QFile::remove(QStringLiteral("/tmp/sayvo_uninstall.log"));
    }
}

} // namespace
