#include "unit/runtime/SupervisorFixture.h"

#include <QDir>
#include <QFile>

using namespace sayvo;
using namespace sayvo::test;
namespace es = sayvo::engine_state;
using StepStatus = ProvisioningStep::Status;

namespace {

class ProvisioningTest : public SupervisorFixture
{
protected:
    void SetUp() override
    {
        SupervisorFixture::SetUp();
        QFile::remove(sandbox.installRoot() + QStringLiteral("/VERSION")); // not provisioned
    }

    // `copy` holds the payload's uninstaller; it is removed.
    static void expectACopyOfTheUninstaller(const QString &copy)
    {
        QFile copied(copy);
        ASSERT_TRUE(copied.open(QIODevice::ReadOnly)) << copy.toStdString();
        QFile original(fixtureScript(QStringLiteral("uninstall_records.sh")));
        ASSERT_TRUE(original.open(QIODevice::ReadOnly));
        EXPECT_EQ(copied.readAll(), original.readAll());
        QFile::remove(copy);
    }

    // Starts set-up the way the set-up window does and returns the bootstrap child.
    std::shared_ptr<FakeProcessRecord> beginSetup()
    {
        EngineSupervisor &s = supervisor ? *supervisor : make();
        s.start(url("ws://127.0.0.1:8765"));
        EXPECT_EQ(s.state(), EngineState(es::NeedsSetup {}));
        s.beginProvisioning();
        return lastProcess();
    }

    StepStatus statusOf(const QString &id) const
    {
        for (const ProvisioningStep &step : supervisor->steps()) {
            if (step.id == id) {
                return step.status;
            }
        }
        ADD_FAILURE() << "no step " << id.toStdString();
        return StepStatus::Pending;
    }
};

TEST_F(ProvisioningTest, BeginsWithPreparingAndNinePendingSteps)
{
    const auto bootstrap = beginSetup();
    ASSERT_TRUE(bootstrap);
    EXPECT_EQ(
        supervisor->state(), EngineState(es::Provisioning {0, QStringLiteral("Preparing setup…")}));
    const QStringList ids {"mac", "uv", "copy", "venv", "deps", "models_stream", "models_final",
        "models_gec", "finalize"};
    ASSERT_EQ(supervisor->steps().size(), 9);
    for (int i = 0; i < 9; ++i) {
        EXPECT_EQ(supervisor->steps()[i],
            (ProvisioningStep {
                ids[i], ProvisioningStep::initialSteps()[i].label, StepStatus::Pending}));
    }
}

TEST_F(ProvisioningTest, BootstrapArgumentsAndInheritedEnvironment)
{
    const auto bootstrap = beginSetup();
    EXPECT_EQ(bootstrap->launch.program, QStringLiteral("/bin/bash"));
    EXPECT_EQ(bootstrap->launch.arguments,
        (QStringList {sandbox.payloadDir() + QStringLiteral("/scripts/bootstrap_runtime.sh"),
            QStringLiteral("--payload"), sandbox.payloadDir(), QStringLiteral("--install-root"),
            sandbox.installRoot(), QStringLiteral("--version"), QStringLiteral("1.0.0")}));
    EXPECT_FALSE(bootstrap->launch.environment);
}

TEST_F(ProvisioningTest, TheBundlesHelperIsTheEngineTheBootstrapInstalls)
{
    bundledEngine = sandbox.root() + QStringLiteral("/Sayvo.app/Contents/Helpers/sayvo-engine");
    const auto bootstrap = beginSetup();
    ASSERT_TRUE(bootstrap);
    EXPECT_EQ(bootstrap->launch.arguments.mid(7),
        (QStringList {QStringLiteral("--engine-binary"), *bundledEngine}));
}

TEST_F(ProvisioningTest, ProgressLinesSetPercentAndMessage)
{
    const auto bootstrap = beginSetup();
    bootstrap->write("PROGRESS 42 Downloading models\n");
    settle();
    EXPECT_EQ(supervisor->state(),
        EngineState(es::Provisioning {42, QStringLiteral("Downloading models")}));
    bootstrap->write("PROGRESS 42\n");
    settle();
    EXPECT_EQ(supervisor->state(), EngineState(es::Provisioning {42, QString()}));
}

TEST_F(ProvisioningTest, StepLinesUpdateTheChecklist)
{
    const auto bootstrap = beginSetup();
    bootstrap->write("STEP deps ok\nSTEP uv run\nSTEP copy fail\n");
    settle();
    EXPECT_EQ(statusOf(QStringLiteral("deps")), StepStatus::Done);
    EXPECT_EQ(statusOf(QStringLiteral("uv")), StepStatus::Running);
    EXPECT_EQ(statusOf(QStringLiteral("copy")), StepStatus::Failed);

    const QList<ProvisioningStep> before = supervisor->steps();
    bootstrap->write("STEP venv ok now\nSTEP nosuch ok\nSTEP venv maybe\n");
    settle();
    EXPECT_EQ(supervisor->steps(), before);
}

TEST_F(ProvisioningTest, EveryLineIsLogged)
{
    const auto bootstrap = beginSetup();
    bootstrap->write("PROGRESS 1 a\nNEED x y\nSTEP mac ok\nfree text\nDONE\n");
    settle();
    EXPECT_EQ(supervisor->log(),
        QStringLiteral("PROGRESS 1 a\nNEED x y\nSTEP mac ok\nfree text\nDONE\n"));
    // A NEED alone changes nothing until the run ends.
    EXPECT_EQ(supervisor->state(), EngineState(es::Provisioning {1, QStringLiteral("a")}));
}

TEST_F(ProvisioningTest, DoneWithFailingExitIsAFailure)
{
    const auto bootstrap = beginSetup();
    bootstrap->write("DONE\n");
    bootstrap->exitWith(1);
    settle();
    EXPECT_EQ(supervisor->state(),
        EngineState(
            es::Failed {QStringLiteral("Setup failed (exit 1). See the log for details.")}));
    EXPECT_FALSE(supervisor->isProvisioningRunning());
}

TEST_F(ProvisioningTest, CleanExitWithoutDoneIsAFailure)
{
    const auto bootstrap = beginSetup();
    bootstrap->exitWith(0);
    settle();
    EXPECT_EQ(supervisor->state(),
        EngineState(
            es::Failed {QStringLiteral("Setup failed (exit 0). See the log for details.")}));
}

TEST_F(ProvisioningTest, LastNeedWinsWhenTheRunFails)
{
    const auto bootstrap = beginSetup();
    bootstrap->write("NEED disk Free some space\nNEED python3 Install Python 3.11\n");
    bootstrap->exitWith(2);
    settle();
    EXPECT_EQ(supervisor->state(),
        EngineState(es::NeedsPrerequisite {
            QStringLiteral("python3"), QStringLiteral("Install Python 3.11")}));
}

TEST_F(ProvisioningTest, FinalDoneWithoutLineFeedLaunchesTheEngine)
{
    const auto bootstrap = beginSetup();
    bootstrap->write("PROGRESS 100 Ready\nDONE");
    settle();
    EXPECT_FALSE(supervisor->log().contains(QStringLiteral("DONE")));
    sandbox.provision(QStringLiteral("1.0.0"));
    bootstrap->exitWith(0);
    settle();
    EXPECT_TRUE(supervisor->log().endsWith(QStringLiteral("DONE\n")));
    ASSERT_EQ(launches(), 2);
    EXPECT_EQ(lastProcess()->launch.arguments.first(),
        sandbox.payloadDir() + QStringLiteral("/scripts/run_engine.sh"));
    EXPECT_EQ(supervisor->state(), EngineState(es::Running {}));
}

TEST_F(ProvisioningTest, SecondBeginWhileRunningDoesNothing)
{
    const auto bootstrap = beginSetup();
    bootstrap->write("PROGRESS 30 Copying\n");
    settle();
    const EngineState during = es::Provisioning {30, QStringLiteral("Copying")};
    ASSERT_EQ(supervisor->state(), during);
    supervisor->beginProvisioning();
    supervisor->retry();
    supervisor->start(url("ws://127.0.0.1:8765"));
    supervisor->restartEngine();
    EXPECT_EQ(launches(), 1);
    EXPECT_EQ(supervisor->state(), during) << "the set-up window keeps showing the running set-up";
    EXPECT_FALSE(bootstrap->terminated);
    EXPECT_TRUE(supervisor->isProvisioningRunning());
}

TEST_F(
    ProvisioningTest, ChangingTheEndpointDuringSetupStartsNoSecondOneAndTheEngineGoesWhereItPoints)
{
    const auto bootstrap = beginSetup();
    supervisor->start(url("ws://127.0.0.1:9000"));
    supervisor->beginProvisioning(); // the set-up window, still open, asked again
    supervisor->start(url("ws://[::1]:9001"));
    supervisor->beginProvisioning();
    EXPECT_EQ(launches(), 1) << "one set-up at a time";
    EXPECT_TRUE(std::holds_alternative<es::Provisioning>(supervisor->state()));
    bootstrap->write("DONE\n");
    sandbox.provision(QStringLiteral("1.0.0"));
    bootstrap->exitWith(0);
    settle();
    ASSERT_EQ(launches(), 2);
    const ProcessLaunch &engine = lastProcess()->launch;
    EXPECT_EQ(
        engine.arguments.first(), sandbox.payloadDir() + QStringLiteral("/scripts/run_engine.sh"));
    EXPECT_EQ(engine.environment->value(QStringLiteral("ENGINE_HOST")), QStringLiteral("::1"));
    EXPECT_EQ(engine.environment->value(QStringLiteral("ENGINE_PORT")), QStringLiteral("9001"));
}

TEST_F(ProvisioningTest, ARemoteEndpointDuringSetupStopsItAndItsEndLaunchesNothing)
{
    const auto bootstrap = beginSetup();
    supervisor->start(url("ws://192.168.1.5:8765"));
    EXPECT_TRUE(bootstrap->terminated);
    EXPECT_EQ(supervisor->state(), EngineState(es::RemoteEndpoint {}));
    bootstrap->write("PROGRESS 90 Almost\nDONE\n");
    bootstrap->exitWith(0);
    settle();
    EXPECT_EQ(launches(), 1);
    EXPECT_EQ(supervisor->state(), EngineState(es::RemoteEndpoint {}));
}

TEST_F(ProvisioningTest, BeginNeedsALoopbackEndpointAndAPayload)
{
    EngineSupervisor &s = make();
    s.start(url("ws://10.1.1.1:8765"));
    s.beginProvisioning();
    EXPECT_EQ(processes->created, 0);

    QFile::remove(sandbox.payloadDir() + QStringLiteral("/scripts/bootstrap_runtime.sh"));
    s.start(url("ws://127.0.0.1:8765"));
    s.beginProvisioning();
    EXPECT_EQ(processes->created, 0);
    EXPECT_EQ(s.state(), EngineState(es::MissingPayload {}));
}

TEST_F(ProvisioningTest, RetryRunsSetupAgainWhileNotProvisioned)
{
    const auto first = beginSetup();
    first->write("NEED python3 Install it\n");
    first->exitWith(2);
    settle();
    supervisor->retry();
    EXPECT_EQ(launches(), 2);
    EXPECT_TRUE(std::holds_alternative<es::Provisioning>(supervisor->state()));
}

TEST_F(ProvisioningTest, RetryWithAProvisionedRuntimeStartsTheEngine)
{
    const auto bootstrap = beginSetup();
    bootstrap->exitWith(1);
    settle();
    ASSERT_TRUE(std::holds_alternative<es::Failed>(supervisor->state()));
    sandbox.provision(QStringLiteral("1.0.0"));
    supervisor->retry();
    ASSERT_EQ(launches(), 2);
    EXPECT_EQ(lastProcess()->launch.arguments.first(),
        sandbox.payloadDir() + QStringLiteral("/scripts/run_engine.sh"));
    EXPECT_EQ(supervisor->state(), EngineState(es::Running {}));
}

TEST_F(ProvisioningTest, BootstrapLaunchFailureIsReported)
{
    make();
    supervisor->start(url("ws://127.0.0.1:8765"));
    processes->failStartWith = QStringLiteral("fork: Resource temporarily unavailable");
    supervisor->beginProvisioning();
    EXPECT_EQ(supervisor->state(),
        EngineState(es::Failed {
            QStringLiteral("Could not start setup: fork: Resource temporarily unavailable")}));
    EXPECT_FALSE(supervisor->isProvisioningRunning());
}

TEST_F(ProvisioningTest, ShutdownStopsSetupAndItsEndChangesNothing)
{
    const auto bootstrap = beginSetup();
    supervisor->shutdown();
    EXPECT_TRUE(bootstrap->terminated);
    bootstrap->write("DONE\n");
    bootstrap->exitWith(0);
    settle();
    EXPECT_EQ(launches(), 1);
    EXPECT_FALSE(supervisor->log().contains(QStringLiteral("DONE")));
}

TEST_F(ProvisioningTest, UninstallRunsACopyDetachedWithItsArguments)
{
    make();
    sandbox.provision(QStringLiteral("1.0.0"));
    supervisor->start(url("ws://127.0.0.1:8765"));
    const auto engine = lastProcess();
    ASSERT_TRUE(supervisor->canUninstall());
    ASSERT_TRUE(supervisor->performUninstall(false));
    EXPECT_TRUE(engine->terminated);
    ASSERT_EQ(processes->detached.size(), 1);
    const auto &detached = processes->detached.first();
    EXPECT_EQ(
        detached.outputFile, sandbox.root() + QStringLiteral("/state/SayvoApp/uninstall.log"));
    EXPECT_EQ(QFileInfo(sandbox.root() + QStringLiteral("/state/SayvoApp")).permissions()
            & (QFileDevice::ReadGroup | QFileDevice::ReadOther | QFileDevice::WriteOther),
        QFileDevice::Permissions {})
        << "the log's folder is the user's alone";
    EXPECT_EQ(detached.launch.program, QStringLiteral("/bin/bash"));
    const QStringList args = detached.launch.arguments;
    ASSERT_EQ(args.size(), 10);
    const QString &copy = args[0];
    EXPECT_EQ(QFileInfo(copy).path(), QDir::tempPath());
    EXPECT_TRUE(QFileInfo(copy).fileName().startsWith(QStringLiteral("sayvo-uninstall-")));
    EXPECT_TRUE(copy.endsWith(QStringLiteral(".sh")));
    expectACopyOfTheUninstaller(copy);
    EXPECT_EQ(args.mid(1),
        (QStringList {"--yes", "--wait-pid", "4242", "--install-root", sandbox.installRoot(),
            "--app", "/opt/Sayvo/bin/sayvo", "--payload", sandbox.payloadDir()}));
    // Nothing ran the copy, so nothing removed it.
    QFile::remove(copy);
}

TEST_F(ProvisioningTest, WithTMPDIRNamingNoFolderTheUninstallCopyIsStillPrivateAndTemporary)
{
    make();
    const QString working = sandbox.root() + QStringLiteral("/working");
    ASSERT_TRUE(QDir().mkpath(working));
    const QString previousFolder = QDir::currentPath();
    const QByteArray previousTmp = qgetenv("TMPDIR");
    ASSERT_TRUE(QDir::setCurrent(working));
    qputenv("TMPDIR", (sandbox.root() + QStringLiteral("/no-such-folder")).toUtf8());
    const bool started = supervisor->performUninstall(false);
    qputenv("TMPDIR", previousTmp);
    QDir::setCurrent(previousFolder);
    ASSERT_TRUE(started);
    ASSERT_EQ(processes->detached.size(), 1);
    const QString copy = processes->detached.first().launch.arguments.first();
    EXPECT_TRUE(QDir(working).isEmpty()) << "nothing lands in the working folder";
    EXPECT_TRUE(QDir::isAbsolutePath(copy)) << copy.toStdString();
    EXPECT_TRUE(QFileInfo(copy).fileName().startsWith(QStringLiteral("sayvo-uninstall-")));
    ASSERT_TRUE(QFileInfo(copy).isFile()) << copy.toStdString();
    EXPECT_EQ(QFileInfo(copy).permissions()
            & (QFileDevice::ReadGroup | QFileDevice::WriteGroup | QFileDevice::ReadOther
                | QFileDevice::WriteOther),
        QFileDevice::Permissions {})
        << "the copy is the user's alone";
    expectACopyOfTheUninstaller(copy);
    QFile::remove(copy);
}

TEST_F(ProvisioningTest, TheUninstallLogIsKeptInTheUsersStateFolderNeverInASharedOne)
{
    const QString state = sandbox.root() + QStringLiteral("/xdg-state");
    const QByteArray previous = qgetenv("XDG_STATE_HOME");
    qputenv("XDG_STATE_HOME", state.toUtf8());
    EngineSupervisor s(sandbox.locator(QStringLiteral("1.0.0")));
    qputenv("XDG_STATE_HOME", previous);
    EXPECT_EQ(s.uninstallLogPath(), state + QStringLiteral("/SayvoApp/uninstall.log"));
}

TEST_F(ProvisioningTest, UninstallPurgesSharedModelsOnlyWhenAsked)
{
    make();
    ASSERT_TRUE(supervisor->performUninstall(true));
    ASSERT_EQ(processes->detached.size(), 1);
    const QStringList args = processes->detached.first().launch.arguments;
    ASSERT_EQ(args.size(), 11);
    EXPECT_EQ(args[10], QStringLiteral("--purge-shared"));
    QFile::remove(args[0]);
}

TEST_F(ProvisioningTest, UninstallWithoutScriptDoesNothing)
{
    QFile::remove(sandbox.payloadDir() + QStringLiteral("/scripts/uninstall.sh"));
    sandbox.provision(QStringLiteral("1.0.0"));
    make();
    supervisor->start(url("ws://127.0.0.1:8765"));
    EXPECT_FALSE(supervisor->canUninstall());
    EXPECT_FALSE(supervisor->performUninstall(true));
    EXPECT_TRUE(processes->detached.isEmpty());
    EXPECT_FALSE(lastProcess()->terminated); // nothing was shut down
}

TEST_F(ProvisioningTest, UninstallLaunchFailureAnswersFalseAndLeavesNoCopyBehind)
{
    make();
    processes->failDetachedWith = QStringLiteral("no");
    const QString temporary = sandbox.root() + QStringLiteral("/tmp");
    ASSERT_TRUE(QDir().mkpath(temporary));
    const QByteArray previousTmp = qgetenv("TMPDIR");
    qputenv("TMPDIR", temporary.toUtf8());
    const bool started = supervisor->performUninstall(false);
    qputenv("TMPDIR", previousTmp);
    EXPECT_FALSE(started);
    EXPECT_TRUE(QDir(temporary).isEmpty()) << QDir(temporary).entryList().join(' ').toStdString();
}

} // namespace
