// First-run set-up, updates and uninstall: the supervisor's side of the payload's bootstrap
// and uninstall scripts.
#include "base/Logging.h"
#include "base/MainThread.h"
#include "runtime/AppBundle.h"
#include "runtime/BootstrapLine.h"
#include "runtime/EngineSupervisor.h"
#include "runtime/OutputLineReader.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QPointer>
#include <QTemporaryFile>

namespace sayvo {

namespace {

// What the background reader remembers of one bootstrap run. Touched only on the thread
// that runs the process's handlers.
struct BootstrapReaderState
{
    QByteArray buffer;
    bool sawDone = false;
    std::optional<std::pair<QString, QString>> need;
};

std::optional<ProvisioningStep::Status> stepStatus(const QString &token)
{
    if (token == QLatin1String("run")) {
        return ProvisioningStep::Status::Running;
    }
    if (token == QLatin1String("ok")) {
        return ProvisioningStep::Status::Done;
    }
    if (token == QLatin1String("fail")) {
        return ProvisioningStep::Status::Failed;
    }
    return std::nullopt;
}

// A copy of `file` that only this user can read, created anew in the temporary folder. Qt
// names no temporary folder when TMPDIR points at none (relative paths would then land in the
// working folder), so /tmp stands in.
std::optional<QString> temporaryCopyOf(const QString &file)
{
    QString folder = QDir::tempPath();
    if (folder.isEmpty() || !QDir::isAbsolutePath(folder)) {
        folder = QStringLiteral("/tmp");
    }
    QFile original(file);
    if (!original.open(QIODevice::ReadOnly)) {
        return std::nullopt;
    }
    QTemporaryFile copy(folder + QStringLiteral("/sayvo-uninstall-XXXXXX.sh"));
    copy.setAutoRemove(false);
    if (!copy.open()) {
        return std::nullopt;
    }
    const QByteArray contents = original.readAll();
    if (copy.write(contents) != contents.size() || !copy.flush()) {
        copy.remove();
        return std::nullopt;
    }
    return copy.fileName();
}

} // namespace

void EngineSupervisor::beginProvisioning()
{
    if (m_lastEndpoint && isLoopback(*m_lastEndpoint) && m_locator.hasPayload()) {
        runBootstrap();
    }
}

void EngineSupervisor::runBootstrap()
{
    // One bootstrap at a time, whatever the state says meanwhile.
    if (m_provisioningProcess) {
        return;
    }
    setState(engine_state::Provisioning {0, QStringLiteral("Preparing setup…")});
    m_steps = ProvisioningStep::initialSteps();
    emit stepsChanged(m_steps);

    ProcessLaunch launch;
    launch.program = QStringLiteral("/bin/bash");
    launch.arguments = {m_locator.bootstrapScript(), QStringLiteral("--payload"),
        m_locator.payloadDir(), QStringLiteral("--install-root"), m_locator.installRoot(),
        QStringLiteral("--version"), m_locator.appVersion()};
    if (const std::optional<QString> &engine = m_locator.bundledEngine()) {
        launch.arguments << QStringLiteral("--engine-binary") << *engine;
    }

    std::unique_ptr<ChildProcess> process = m_launcher->create();
    const quint64 generation = ++m_bootstrapGeneration;
    auto reader = std::make_shared<BootstrapReaderState>();
    QPointer<QObject> guard(this);

    const auto handleLine = [this, guard, generation, reader](const QByteArray &raw) {
        const std::optional<QString> line = decodeLine(raw);
        if (!line) {
            return;
        }
        const bootstrap::Line command = bootstrap::parseLine(*line);
        if (std::holds_alternative<bootstrap::Done>(command)) {
            reader->sawDone = true;
        } else if (const auto *need = std::get_if<bootstrap::Need>(&command)) {
            reader->need = std::make_pair(need->token, need->message);
        }
        postToMainThread(
            guard, [this, generation, text = *line] { applyBootstrapLine(text, generation); });
    };
    process->setOutputHandler([reader, handleLine](const QByteArray &bytes) {
        reader->buffer.append(bytes);
        for (const QByteArray &raw : takeCompleteLines(reader->buffer)) {
            handleLine(raw);
        }
    });
    process->setExitHandler([this, guard, generation, reader, handleLine](int status) {
        // Unlike the engine's output, a last line without a line feed still counts here: a
        // script may well end on "DONE" without one.
        if (!reader->buffer.isEmpty()) {
            handleLine(std::exchange(reader->buffer, QByteArray()));
        }
        BootstrapOutcome outcome {status, reader->sawDone, reader->need};
        postToMainThread(
            guard, [this, generation, outcome] { finishBootstrap(outcome, generation); });
    });

    const Status<ProcessLaunchError> launched = process->start(launch);
    if (!launched) {
        Logging::shared().error(
            QStringLiteral("could not start setup: ") + launched.error().describe());
        setState(engine_state::Failed {
            QStringLiteral("Could not start setup: ") + launched.error().describe()});
        return;
    }
    Logging::shared().info(QStringLiteral("setup started: version=") + m_locator.appVersion());
    m_provisioningProcess = std::move(process);
}

void EngineSupervisor::applyBootstrapLine(const QString &line, quint64 generation)
{
    // A run that was stopped (shutdown, uninstall) no longer drives the state.
    if (generation != m_bootstrapGeneration || !m_provisioningProcess) {
        return;
    }
    const bootstrap::Line command = bootstrap::parseLine(line);
    if (const auto *progress = std::get_if<bootstrap::Progress>(&command)) {
        setState(engine_state::Provisioning {progress->percent, progress->message});
    } else if (const auto *step = std::get_if<bootstrap::Step>(&command)) {
        updateStep(step->id, step->token);
    }
    append(line + QLatin1Char('\n'));
}

void EngineSupervisor::finishBootstrap(const BootstrapOutcome &outcome, quint64 generation)
{
    if (generation != m_bootstrapGeneration || !m_provisioningProcess) {
        return;
    }
    m_provisioningProcess.reset();
    if (outcome.status == 0 && outcome.sawDone) {
        Logging::shared().info(QStringLiteral("setup finished"));
        launchEngine();
        return;
    }
    if (outcome.need) {
        Logging::shared().info(
            QStringLiteral("setup needs a prerequisite: ") + outcome.need->first);
        setState(engine_state::NeedsPrerequisite {outcome.need->first, outcome.need->second});
        return;
    }
    Logging::shared().error(
        QStringLiteral("setup failed: status=") + QString::number(outcome.status));
    setState(engine_state::Failed {
        QStringLiteral("Setup failed (exit %1). See the log for details.").arg(outcome.status)});
}

void EngineSupervisor::updateStep(const QString &id, const QString &token)
{
    const std::optional<ProvisioningStep::Status> status = stepStatus(token);
    if (!status) {
        return;
    }
    const auto step = std::find_if(
        m_steps.begin(), m_steps.end(), [&](const ProvisioningStep &s) { return s.id == id; });
    if (step == m_steps.end()) {
        return;
    }
    step->status = *status;
    emit stepsChanged(m_steps);
}

bool EngineSupervisor::performUninstall(bool removeSharedModels)
{
    const QString script = m_locator.uninstallScript();
    if (!QFileInfo::exists(script)) {
        return false;
    }
    // Run from a copy: the script removes the payload it ships in.
    const std::optional<QString> copy = temporaryCopyOf(script);
    if (!copy) {
        return false;
    }
    shutdown();

    ProcessLaunch launch;
    launch.program = QStringLiteral("/bin/bash");
    launch.arguments = {*copy, QStringLiteral("--yes"), QStringLiteral("--wait-pid"),
        QString::number(m_applicationPid), QStringLiteral("--install-root"),
        m_locator.installRoot(), QStringLiteral("--app"), m_applicationPath,
        QStringLiteral("--payload"), m_locator.payloadDir()};
    if (removeSharedModels) {
        launch.arguments.append(QStringLiteral("--purge-shared"));
    }
    // The log says what was removed and kept; it lives in a folder of the user's own.
    const QString logFolder = QFileInfo(m_uninstallLogPath).absolutePath();
    QDir().mkpath(logFolder);
    QFile::setPermissions(
        logFolder, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    const Status<ProcessLaunchError> launched
        = m_launcher->startDetached(launch, m_uninstallLogPath);
    if (!launched) {
        Logging::shared().error(
            QStringLiteral("could not start the uninstaller: ") + launched.error().describe());
        QFile::remove(*copy);
        return false;
    }
    Logging::shared().info(QStringLiteral("uninstaller started: purge shared models=")
        + (removeSharedModels ? QStringLiteral("yes") : QStringLiteral("no")));
    return true;
}

} // namespace sayvo
