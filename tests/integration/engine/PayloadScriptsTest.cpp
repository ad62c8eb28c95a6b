// The payload scripts as the client runs them: bootstrap into a temporary install root,
// run_engine.sh from the runtime it built, and uninstall.sh with its refusals.
#include "runtime/EngineSupervisor.h"
#include "support/engine/EngineProcess.h"
#include "support/engine/EngineTestClient.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

namespace sayvo::test {
namespace {

const QString kPayload = QStringLiteral(SAYVO_ENGINE_PAYLOAD_DIR);

struct ScriptRun
{
    int exitCode = -1;
    QStringList lines;

    bool has(const QString &line) const { return lines.contains(line); }
    QString text() const { return lines.join('\n'); }
};

// Runs a script by its path, or one of the payload's by its name.
ScriptRun runScript(const QString &script, const QStringList &arguments,
    const QProcessEnvironment &environment = QProcessEnvironment::systemEnvironment())
{
    QProcess process;
    process.setProcessEnvironment(environment);
    process.setProcessChannelMode(QProcess::MergedChannels);
    const QString path = script.startsWith('/') ? script : kPayload + "/scripts/" + script;
    process.start(QStringLiteral("/bin/bash"), QStringList {path} + arguments);
    process.waitForFinished(60000);
    ScriptRun run;
    run.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    run.lines = QString::fromUtf8(process.readAll()).split('\n', Qt::SkipEmptyParts);
    return run;
}

class PayloadScripts : public ::testing::Test
{
protected:
    // A loopback port nobody listens on at the moment.
    static int freePort()
    {
        QTcpServer server;
        EXPECT_TRUE(server.listen(QHostAddress::LocalHost));
        return server.serverPort();
    }

    QString root() const { return m_dir.filePath("SayvoApp/runtime"); }
    ScriptRun bootstrap(
        const QProcessEnvironment &environment = QProcessEnvironment::systemEnvironment())
    {
        return runScript("bootstrap_runtime.sh",
            {"--payload", kPayload, "--install-root", root(), "--version", "1.4.0"}, environment);
    }

    QTemporaryDir m_dir;
};

const QStringList kSteps = {
    "mac", "uv", "copy", "venv", "deps", "models_stream", "models_final", "models_gec", "finalize"};

TEST_F(PayloadScripts, BootstrapBuildsTheRuntimeTheLocatorExpects)
{
    const ScriptRun run = bootstrap();
    ASSERT_EQ(run.exitCode, 0) << run.text().toStdString();
    for (const QString &step : kSteps) {
        EXPECT_TRUE(run.has("STEP " + step + " run")) << step.toStdString();
        EXPECT_TRUE(run.has("STEP " + step + " ok")) << step.toStdString();
    }
    EXPECT_TRUE(run.lines.filter(QRegularExpression("^PROGRESS \\d+ .+")).size() >= 9);
    EXPECT_EQ(run.lines.last(), "DONE");
    for (const char *path : {"app/.venv", "app/engine", "app/models/streaming", "VERSION"}) {
        EXPECT_TRUE(QFileInfo::exists(root() + "/" + path)) << path;
    }
    QFile version(root() + "/VERSION");
    ASSERT_TRUE(version.open(QIODevice::ReadOnly));
    EXPECT_EQ(version.readAll().trimmed(), "1.4.0");
}

TEST_F(PayloadScripts, BootstrapCanRunAgainAndKeepsTheLearningStore)
{
    ASSERT_EQ(bootstrap().exitCode, 0);
    QFile kept(root() + "/app/data/learning.sqlite3");
    ASSERT_TRUE(kept.open(QIODevice::WriteOnly));
    kept.write("precious");
    kept.close();
    const ScriptRun again = bootstrap();
    ASSERT_EQ(again.exitCode, 0) << again.text().toStdString();
    EXPECT_EQ(again.lines.last(), "DONE");
    EXPECT_TRUE(QFileInfo::exists(root() + "/app/models/streaming/en-us.lm.bin"));
    ASSERT_TRUE(kept.open(QIODevice::ReadOnly));
    EXPECT_EQ(kept.readAll(), "precious");
    EXPECT_FALSE(QFileInfo::exists(root() + "/app/engine.new"));
}

TEST_F(PayloadScripts, BootstrapCanInstallAFreshlyBuiltEngine)
{
    // A developer runtime: the payload's scripts, and the engine just built.
    const QString payload = m_dir.filePath("payload");
    QDir().mkpath(payload + "/engine");
    const ScriptRun run = runScript("bootstrap_runtime.sh",
        {"--payload", payload, "--install-root", root(), "--version", "dev", "--engine-binary",
            QStringLiteral(SAYVO_ENGINE_BINARY)});
    ASSERT_EQ(run.exitCode, 0) << run.text().toStdString();
    QFile installed(root() + "/app/engine/bin/sayvo-engine");
    QFile built(QStringLiteral(SAYVO_ENGINE_BINARY));
    ASSERT_TRUE(installed.open(QIODevice::ReadOnly) && built.open(QIODevice::ReadOnly));
    EXPECT_EQ(installed.readAll(), built.readAll());
    EXPECT_TRUE(QFileInfo(root() + "/app/.venv/bin/sayvo-engine").isExecutable());
}

TEST_F(PayloadScripts, BootstrapLinksTheModelThePayloadCarries)
{
    // An application bundle on a system without the model carries its own copy.
    const QString payload = m_dir.filePath("bundle-payload");
    QDir().mkpath(payload + "/engine");
    QDir().mkpath(payload + "/model");
    const QString system = QStringLiteral("/usr/share/pocketsphinx/model/en-us");
    for (const char *part : {"en-us", "en-us.lm.bin", "cmudict-en-us.dict"}) {
        ASSERT_TRUE(QFile::link(system + "/" + part, payload + "/model/" + part)) << part;
    }
    const ScriptRun run = runScript("bootstrap_runtime.sh",
        {"--payload", payload, "--install-root", root(), "--version", "dev", "--engine-binary",
            QStringLiteral(SAYVO_ENGINE_BINARY)});
    ASSERT_EQ(run.exitCode, 0) << run.text().toStdString();
    EXPECT_EQ(QFileInfo(root() + "/app/models/streaming/en-us.lm.bin").symLinkTarget(),
        QFileInfo(payload + "/model/en-us.lm.bin").absoluteFilePath());
    EXPECT_TRUE(run.has("STEP models_final ok")) << run.text().toStdString();
}

TEST_F(PayloadScripts, BootstrapWithoutAnEngineFailsItsStep)
{
    const QString payload = m_dir.filePath("empty-payload");
    QDir().mkpath(payload + "/engine");
    const ScriptRun run = runScript("bootstrap_runtime.sh",
        {"--payload", payload, "--install-root", root(), "--version", "dev"});
    EXPECT_NE(run.exitCode, 0);
    EXPECT_TRUE(run.has("STEP uv fail")) << run.text().toStdString();
    EXPECT_FALSE(run.has("DONE"));
}

TEST_F(PayloadScripts, BootstrapNeverReplacesAFolderItDidNotMake)
{
    QDir().mkpath(root() + "/app/engine/src");
    QFile source(root() + "/app/engine/CMakeLists.txt");
    ASSERT_TRUE(source.open(QIODevice::WriteOnly));
    source.close();
    const ScriptRun run = bootstrap();
    EXPECT_NE(run.exitCode, 0);
    EXPECT_TRUE(run.has("STEP copy fail")) << run.text().toStdString();
    EXPECT_TRUE(QFileInfo::exists(root() + "/app/engine/CMakeLists.txt"));
}

TEST_F(PayloadScripts, AMissingModelIsANeedAndLeavesNoVersion)
{
    auto environment = QProcessEnvironment::systemEnvironment();
    environment.insert("SAYVO_MODEL_SOURCE", m_dir.filePath("nowhere"));
    const ScriptRun run = bootstrap(environment);
    EXPECT_NE(run.exitCode, 0);
    const QStringList needs = run.lines.filter(QRegularExpression("^NEED "));
    ASSERT_EQ(needs.size(), 1);
    EXPECT_TRUE(needs[0].startsWith("NEED speech-model ")) << needs[0].toStdString();
    EXPECT_TRUE(needs[0].contains("pocketsphinx-en-us"));
    EXPECT_TRUE(run.has("STEP models_stream fail"));
    EXPECT_FALSE(run.has("DONE"));
    EXPECT_FALSE(QFileInfo::exists(root() + "/VERSION"));
}

TEST_F(PayloadScripts, RunEngineStartsTheInstalledEngineOnLoopback)
{
    ASSERT_EQ(bootstrap().exitCode, 0);
    QFile replay(m_dir.filePath("replay.txt"));
    ASSERT_TRUE(replay.open(QIODevice::WriteOnly));
    replay.write("hello\n");
    replay.close();
    auto environment = QProcessEnvironment::systemEnvironment();
    environment.insert("ENGINE_PORT", "0");
    environment.insert("ENGINE_HOST", "0.0.0.0"); // what the client passes; ignored without opt-in
    environment.insert("SAYVO_ENGINE_ASR", "replay:" + replay.fileName());
    EngineProcess engine;
    ASSERT_TRUE(engine.startCommand("/bin/bash",
        {kPayload + "/scripts/run_engine.sh", "--app-dir", root() + "/app"}, environment))
        << engine.log().toStdString();
    EXPECT_EQ(engine.host(), "127.0.0.1");
    EXPECT_TRUE(engine.log().contains(root() + "/app/data/learning.sqlite3"));
    EngineTestClient client;
    ASSERT_TRUE(client.connectTo(engine.url()));
    client.send(HelloMessage {.version = "0.1.0"});
    ASSERT_TRUE(client.waitFor<HelloAckMessage>());

    // Every loopback form the client may name is bound as named.
    for (const auto &[named, bound] : std::vector<std::pair<QString, QString>> {{"::1", "[::1]"},
             {"localhost", "127.0.0.1"}, {"LOCALHOST", "127.0.0.1"}, {"127.0.0.1", "127.0.0.1"}}) {
        engine.kill();
        environment.insert("ENGINE_HOST", named);
        ASSERT_TRUE(engine.startCommand("/bin/bash",
            {kPayload + "/scripts/run_engine.sh", "--app-dir", root() + "/app"}, environment))
            << engine.log().toStdString();
        EXPECT_EQ(engine.host(), bound) << named.toStdString();
    }

    engine.kill();
    environment.insert("SAYVO_ENGINE_ALLOW_REMOTE", "1");
    environment.insert("ENGINE_HOST", "127.0.0.2");
    ASSERT_TRUE(engine.startCommand("/bin/bash",
        {kPayload + "/scripts/run_engine.sh", "--app-dir", root() + "/app"}, environment));
    EXPECT_EQ(engine.host(), "127.0.0.2");
}

TEST_F(PayloadScripts, TheSupervisorShowsWhyAnEngineWithADamagedModelCannotStart)
{
    ASSERT_EQ(bootstrap().exitCode, 0);
    // The model the runtime links to is damaged after set-up, as a full disk might leave it.
    const QString model = root() + "/app/models/streaming";
    QFile::remove(model + "/en-us.lm.bin");
    QFile damaged(model + "/en-us.lm.bin");
    ASSERT_TRUE(damaged.open(QIODevice::WriteOnly));
    damaged.write(QByteArray(4096, 'x'));
    damaged.close();

    EngineSupervisor supervisor(RuntimeLocator(kPayload, root(), QStringLiteral("1.4.0")));
    supervisor.start(QUrl(QStringLiteral("ws://127.0.0.1:%1").arg(freePort())));
    ASSERT_TRUE(QTest::qWaitFor(
        [&] { return std::holds_alternative<engine_state::Failed>(supervisor.state()); }, 30000))
        << supervisor.log().toStdString();
    const QString message = std::get<engine_state::Failed>(supervisor.state()).message;
    EXPECT_TRUE(message.contains(model + "/en-us.lm.bin")) << message.toStdString();
    EXPECT_EQ(supervisor.crashCount(), 0) << "not restarted: it would only fail again";
    EXPECT_FALSE(supervisor.hasPendingRestart());
}

TEST_F(PayloadScripts, RunEngineWithoutARuntimeFails)
{
    const ScriptRun run = runScript("run_engine.sh", {"--app-dir", m_dir.filePath("empty")});
    EXPECT_NE(run.exitCode, 0);
    EXPECT_TRUE(run.text().contains("no runtime"));
}

class Uninstall : public PayloadScripts
{
protected:
    void SetUp() override
    {
        ASSERT_EQ(bootstrap().exitCode, 0);
        QDir(m_dir.path()).mkpath("home/.config/SayvoApp");
        touch("home/.config/SayvoApp/Sayvo.conf");
        QDir(m_dir.path()).mkpath("home/.config/autostart");
        touch("home/.config/autostart/com.sayvoapp.Sayvo.desktop");
        touch("home/.config/autostart/sayvo.desktop");
        touch("home/.config/autostart/another-app.desktop");
        QDir(m_dir.path()).mkpath("home/.local/share/SayvoApp/engine");
        touch("home/.local/share/SayvoApp/engine/learning.sqlite3");
        QDir(m_dir.path()).mkpath("home/.local/state/SayvoApp");
        touch("home/.local/state/SayvoApp/uninstall.log");
        QDir(m_dir.path()).mkpath("Applications/Sayvo.app/Contents");
        QDir(m_dir.path()).mkpath("SayvoApp/shared/models");
        QDir(m_dir.path()).mkpath("tmp");
        m_environment.insert("HOME", m_dir.filePath("home"));
        m_environment.insert("TMPDIR", m_dir.filePath("tmp"));
        for (const char *name : {"XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_STATE_HOME"}) {
            m_environment.remove(name);
        }
        m_environment.insert("SAYVO_UNINSTALL_WAIT_SECONDS", "10");
    }

    void touch(const QString &relative)
    {
        QFile file(m_dir.filePath(relative));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly)) << relative.toStdString();
    }

    ScriptRun uninstall(const QStringList &arguments)
    {
        return runScript("uninstall.sh", arguments, m_environment);
    }
    QString app() const { return m_dir.filePath("Applications/Sayvo.app"); }
    bool exists(const QString &relative) const
    {
        return QFileInfo::exists(m_dir.filePath(relative));
    }

    // A process that is not this test's child, so that once it exits no zombie is left for
    // kill -0 to find; it lives for `seconds`.
    static QString standInForTheApp(const QString &seconds)
    {
        QProcess launcher;
        launcher.start("/bin/sh", {"-c", "sleep " + seconds + " >/dev/null 2>&1 & echo $!"});
        launcher.waitForFinished();
        return QString::fromUtf8(launcher.readAllStandardOutput()).trimmed();
    }

    QProcessEnvironment m_environment = QProcessEnvironment::systemEnvironment();
};

TEST_F(Uninstall, WaitsForTheAppThenRemovesEverythingItOwns)
{
    // Run as the application runs it: from a temporary copy, with the payload it came from.
    const QString copy = m_dir.filePath("tmp/sayvo-uninstall-1234.sh");
    ASSERT_TRUE(QFile::copy(kPayload + "/scripts/uninstall.sh", copy));
    touch("tmp/sayvo-uninstall-left-by-an-earlier-run.sh");
    const QString payload = m_dir.filePath("share/sayvo/engine-payload");
    QDir().mkpath(payload + "/scripts");
    QDir().mkpath(payload + "/engine/bin");
    ASSERT_TRUE(QFile::copy(
        kPayload + "/scripts/bootstrap_runtime.sh", payload + "/scripts/bootstrap_runtime.sh"));

    const QString pid = standInForTheApp("1");
    const ScriptRun run = runScript(copy,
        {"--yes", "--wait-pid", pid, "--install-root", root(), "--app", this->app(), "--payload",
            payload, "--purge-shared"},
        m_environment);
    ASSERT_EQ(run.exitCode, 0) << run.text().toStdString();
    EXPECT_TRUE(run.text().contains("waiting for process"));
    EXPECT_TRUE(run.text().contains("removed runtime: " + root()));
    EXPECT_FALSE(QFileInfo::exists(root()));
    EXPECT_FALSE(QFileInfo::exists(this->app()));
    EXPECT_FALSE(QFileInfo::exists(payload));
    EXPECT_FALSE(exists("home/.config/SayvoApp"));
    EXPECT_FALSE(exists("home/.config/autostart/com.sayvoapp.Sayvo.desktop"));
    EXPECT_FALSE(exists("home/.config/autostart/sayvo.desktop"));
    EXPECT_TRUE(exists("home/.config/autostart/another-app.desktop"));
    EXPECT_FALSE(exists("home/.local/share/SayvoApp/engine"));
    EXPECT_FALSE(exists("SayvoApp/shared"));
    EXPECT_FALSE(QFileInfo::exists(copy));
    EXPECT_FALSE(exists("tmp/sayvo-uninstall-left-by-an-earlier-run.sh"));
    EXPECT_TRUE(
        run.has("uninstall: kept this log in " + m_dir.filePath("home/.local/state/SayvoApp")
            + ": delete the folder once you have read it"))
        << run.text().toStdString();
    EXPECT_TRUE(QFileInfo::exists("/usr/share/pocketsphinx/model/en-us/en-us.lm.bin"))
        << "the linked system model is untouched";
}

TEST_F(Uninstall, RemovesItsOwnCopyWhereverItWasPutAndATMPDIRNamingNoFolderIsNoBother)
{
    QDir(m_dir.path()).mkpath("elsewhere");
    const QString copy = m_dir.filePath("elsewhere/sayvo-uninstall-Ab12Cd.sh");
    ASSERT_TRUE(QFile::copy(kPayload + "/scripts/uninstall.sh", copy));
    touch("elsewhere/sayvo-uninstall-notes.txt");
    m_environment.insert("TMPDIR", m_dir.filePath("no-such-folder"));
    const ScriptRun run
        = runScript(copy, {"--yes", "--install-root", root(), "--app", app()}, m_environment);
    ASSERT_EQ(run.exitCode, 0) << run.text().toStdString();
    EXPECT_FALSE(QFileInfo::exists(copy));
    EXPECT_TRUE(run.has("uninstall: removed temporary file: " + copy)) << run.text().toStdString();
    EXPECT_TRUE(exists("elsewhere/sayvo-uninstall-notes.txt")) << "only the copy itself goes";
}

TEST_F(Uninstall, APayloadAndProgramThePackageManagerInstalledAreLeftToIt)
{
    // A private package database that lists the payload and the program as the sayvo
    // package's, as an installed package does.
    const QString payload = m_dir.filePath("usr/lib/sayvo/engine-payload");
    QDir().mkpath(payload + "/scripts");
    QDir().mkpath(payload + "/engine/bin");
    ASSERT_TRUE(QFile::copy(
        kPayload + "/scripts/bootstrap_runtime.sh", payload + "/scripts/bootstrap_runtime.sh"));
    QDir().mkpath(m_dir.filePath("usr/bin"));
    touch("usr/bin/sayvo");
    const QString program = m_dir.filePath("usr/bin/sayvo");
    QDir(m_dir.path()).mkpath("admin/info");
    QDir(m_dir.path()).mkpath("admin/updates");
    touch("admin/available");
    QFile status(m_dir.filePath("admin/status"));
    ASSERT_TRUE(status.open(QIODevice::WriteOnly));
    status.write("Package: sayvo\nStatus: install ok installed\nPriority: optional\n"
                 "Section: utils\nMaintainer: Sayvo <maintainers@sayvoapp.com>\n"
                 "Architecture: amd64\nVersion: 0.1.0\nDescription: dictation\n\n");
    status.close();
    QFile list(m_dir.filePath("admin/info/sayvo.list"));
    ASSERT_TRUE(list.open(QIODevice::WriteOnly));
    list.write((payload + "\n" + program + "\n").toUtf8());
    list.close();
    m_environment.insert("DPKG_ADMINDIR", m_dir.filePath("admin"));

    const ScriptRun run
        = uninstall({"--yes", "--install-root", root(), "--app", program, "--payload", payload});
    ASSERT_EQ(run.exitCode, 0) << run.text().toStdString();
    EXPECT_FALSE(QFileInfo::exists(root()));
    EXPECT_TRUE(QFileInfo::exists(program));
    EXPECT_TRUE(QFileInfo::exists(payload + "/scripts/bootstrap_runtime.sh"));
    EXPECT_TRUE(run.has("uninstall: kept engine payload: " + payload
        + " belongs to the package sayvo; remove it with the package manager (apt remove sayvo)"))
        << run.text().toStdString();
    EXPECT_TRUE(run.has("uninstall: kept application: " + program
        + " belongs to the package sayvo; remove it with the package manager (apt remove sayvo)"));
}

TEST_F(Uninstall, RunningItAgainRemovesNothingMoreAndSucceeds)
{
    const QStringList arguments {"--yes", "--install-root", root(), "--app", app()};
    ASSERT_EQ(uninstall(arguments).exitCode, 0);
    const ScriptRun again = uninstall(arguments);
    EXPECT_EQ(again.exitCode, 0) << again.text().toStdString();
    EXPECT_TRUE(again.has("uninstall: no runtime at " + root()));
    EXPECT_TRUE(again.has(
        "uninstall: no login item at " + m_dir.filePath("home/.config/autostart/sayvo.desktop")));
    EXPECT_FALSE(again.text().contains("removed"));
}

TEST_F(Uninstall, KeepsSharedModelsUnlessAskedAndNeedsConfirmation)
{
    ScriptRun run = uninstall({"--install-root", root(), "--app", app()});
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_TRUE(QFileInfo::exists(root()));
    run = uninstall({"--yes", "--install-root", root(), "--app", app()});
    EXPECT_EQ(run.exitCode, 0) << run.text().toStdString();
    EXPECT_FALSE(QFileInfo::exists(root()));
    EXPECT_TRUE(exists("SayvoApp/shared/models"));
    EXPECT_TRUE(run.has("uninstall: kept shared models at " + m_dir.filePath("SayvoApp/shared")
        + ": pass --purge-shared to remove them"))
        << run.text().toStdString();
}

TEST_F(Uninstall, AWaitThatIsNotANumberIsNeverEvaluated)
{
    const QString planted = m_dir.filePath("evaluated");
    m_environment.insert("SAYVO_UNINSTALL_WAIT_SECONDS", "x[$(touch " + planted + ")]");
    const ScriptRun run = uninstall(
        {"--yes", "--wait-pid", standInForTheApp("0.5"), "--install-root", root(), "--app", app()});
    EXPECT_FALSE(QFileInfo::exists(planted)) << "the variable's text ran as a command";
    EXPECT_EQ(run.exitCode, 0) << run.text().toStdString();
    EXPECT_TRUE(run.text().contains("ignoring SAYVO_UNINSTALL_WAIT_SECONDS"));
}

TEST_F(Uninstall, OnlyARuntimeItsSetUpMarkedIsRemovedOrVouchesForSharedModels)
{
    // A folder that looks like a runtime, but that set-up never marked, beside someone's
    // own "shared" folder.
    QDir(m_dir.path()).mkpath("Documents/runtime/app/.venv");
    touch("Documents/runtime/VERSION");
    QDir(m_dir.path()).mkpath("Documents/shared");
    touch("Documents/shared/precious.txt");
    ScriptRun run = uninstall({"--yes", "--install-root", m_dir.filePath("Documents/runtime"),
        "--app", app(), "--purge-shared"});
    EXPECT_EQ(run.exitCode, 3) << run.text().toStdString();
    EXPECT_TRUE(run.text().contains("no .sayvo-runtime marker"));
    EXPECT_TRUE(exists("Documents/runtime/VERSION"));
    EXPECT_TRUE(exists("Documents/shared/precious.txt"));

    // No runtime at all: nothing vouches for the folder beside where it would be.
    run = uninstall({"--yes", "--install-root", m_dir.filePath("Documents/nothing-here"), "--app",
        app(), "--purge-shared"});
    EXPECT_EQ(run.exitCode, 0) << run.text().toStdString();
    EXPECT_TRUE(exists("Documents/shared/precious.txt"));
    EXPECT_TRUE(run.text().contains("kept shared models at " + m_dir.filePath("Documents/shared")));
}

TEST_F(Uninstall, SetUpNeverTakesOverAFolderThatHoldsSomethingElse)
{
    QDir(m_dir.path()).mkpath("Documents/mine");
    touch("Documents/mine/thesis.txt");
    const ScriptRun run = runScript("bootstrap_runtime.sh",
        {"--payload", kPayload, "--install-root", m_dir.filePath("Documents/mine"), "--version",
            "1.4.0"});
    EXPECT_NE(run.exitCode, 0);
    EXPECT_TRUE(run.has("STEP copy fail")) << run.text().toStdString();
    EXPECT_FALSE(exists("Documents/mine/.sayvo-runtime"));
    EXPECT_TRUE(exists("Documents/mine/thesis.txt"));
}

TEST_F(Uninstall, RemovesAnInstalledProgramFile)
{
    QDir(m_dir.path()).mkpath("opt/bin");
    QFile program(m_dir.filePath("opt/bin/sayvo"));
    ASSERT_TRUE(program.open(QIODevice::WriteOnly));
    program.close();
    const ScriptRun run
        = uninstall({"--yes", "--install-root", root(), "--app", program.fileName()});
    EXPECT_EQ(run.exitCode, 0) << run.text().toStdString();
    EXPECT_FALSE(program.exists());
    EXPECT_TRUE(QFileInfo::exists(m_dir.filePath("opt/bin")));
    EXPECT_TRUE(run.text().contains("removed preferences"));
}

TEST_F(Uninstall, RefusesDangerousPathsAndRemovesNothing)
{
    QDir(m_dir.path()).mkpath("Documents");
    QDir(m_dir.path()).mkpath("sayvo-checkout");
    QFile keep(m_dir.filePath("Documents/thesis.txt"));
    ASSERT_TRUE(keep.open(QIODevice::WriteOnly));
    keep.close();
    const QString home = m_dir.filePath("home");
    const std::vector<std::pair<QStringList, QString>> cases = {
        {{"--install-root", "", "--app", app()}, "empty"},
        {{"--install-root", "/", "--app", app()}, "root folder"},
        {{"--install-root", home, "--app", app()}, "home folder"},
        {{"--install-root", home + "/../home/", "--app", app()}, "home folder"},
        {{"--install-root", m_dir.path(), "--app", app()}, "contains the home folder"},
        {{"--install-root", m_dir.filePath("Documents"), "--app", app()},
            "does not look like a Sayvo runtime"},
        {{"--install-root", root(), "--app", app(), "--payload", m_dir.filePath("Documents")},
            "does not look like a Sayvo engine payload"},
        {{"--install-root", "relative/runtime", "--app", app()}, "not absolute"},
        {{"--install-root", root(), "--app", m_dir.filePath("Documents")},
            "not a Sayvo application"},
        {{"--install-root", root(), "--app", "/"}, "root folder"},
        {{"--install-root", root(), "--app", m_dir.filePath("sayvo-checkout")},
            "not a Sayvo application bundle"},
        {{"--install-root", root(), "--app", home}, "home folder"},
    };
    for (const auto &[arguments, reason] : cases) {
        const ScriptRun run = uninstall(QStringList {"--yes"} + arguments);
        EXPECT_EQ(run.exitCode, 3) << arguments.join(' ').toStdString();
        EXPECT_TRUE(run.text().contains("refusing")) << run.text().toStdString();
        EXPECT_TRUE(run.text().contains(reason)) << run.text().toStdString();
    }
    EXPECT_TRUE(QFileInfo::exists(root() + "/VERSION"));
    EXPECT_TRUE(QFileInfo::exists(app()));
    EXPECT_TRUE(QFileInfo::exists(m_dir.filePath("Documents/thesis.txt")));
    EXPECT_TRUE(QFileInfo::exists(m_dir.filePath("sayvo-checkout")));
    EXPECT_TRUE(QFileInfo::exists(m_dir.filePath("home/.config/SayvoApp/Sayvo.conf")));
}

} // namespace
} // namespace sayvo::test
