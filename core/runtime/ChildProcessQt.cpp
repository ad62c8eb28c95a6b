#include "runtime/ChildProcessQt.h"

#include "runtime/ChildLifetime.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QPointer>
#include <QProcess>
#include <QTimer>

#include <atomic>
#include <csignal>
#include <sys/types.h>
#include <unistd.h>

namespace sayvo {

namespace {

void configure(QProcess &process, const ProcessLaunch &launch)
{
    process.setProgram(launch.program);
    process.setArguments(launch.arguments);
    if (launch.environment) {
        process.setProcessEnvironment(*launch.environment);
    }
}

bool groupAlive(pid_t group)
{
    return group > 0 && ::kill(-group, 0) == 0;
}

} // namespace

// The I/O-thread side of one child. Deletes itself once the process has ended, its group is
// gone or killed, and the main-thread handle has been dropped.
class ProcessHost : public QObject
{
public:
    ProcessHost(ChildProcess::OutputHandler output, ChildProcess::ExitHandler exit,
        std::shared_ptr<std::atomic<bool>> running)
        : m_output(std::move(output)), m_exit(std::move(exit)), m_running(std::move(running))
    { }

    Status<ProcessLaunchError> start(const ProcessLaunch &launch)
    {
        m_process = new QProcess(this);
        configure(*m_process, launch);
        m_process->setProcessChannelMode(QProcess::MergedChannels);
        // A group of its own, so that stopping the shell also stops what it started; and the
        // end of this process ends the child too.
        const pid_t parent = ::getpid();
        m_process->setChildProcessModifier([parent] {
            ::setpgid(0, 0);
            endWithParent(parent);
        });
        connect(m_process, &QProcess::readyReadStandardOutput, this, &ProcessHost::drain);
        connect(m_process, &QProcess::finished, this, &ProcessHost::finished);
        m_process->start(QIODevice::ReadOnly);
        if (!m_process->waitForStarted(-1)) {
            const QString description = m_process->errorString();
            m_ended = true;
            return ProcessLaunchError {description};
        }
        m_group = static_cast<pid_t>(m_process->processId());
        m_running->store(true);
        return {};
    }

    void terminate()
    {
        if (m_terminating || (m_ended && !groupAlive(m_group))) {
            return;
        }
        m_terminating = true;
        m_killDeadline = QDeadlineTimer(ChildProcessLauncherQt::kTerminateGraceMs);
        if (m_group > 0) {
            ::kill(-m_group, SIGTERM);
        }
        QTimer::singleShot(ChildProcessLauncherQt::kTerminateGraceMs, this, [this] {
            killGroup();
            m_killed = true;
            deleteWhenDone();
        });
    }

    void detach()
    {
        m_detached = true;
        if (m_running->load()) {
            terminate();
        }
        deleteWhenDone();
    }

    // Used when the launcher goes away: waits out the grace period, then kills.
    void stopNow()
    {
        if (m_process && m_process->state() != QProcess::NotRunning) {
            terminate();
            m_process->waitForFinished(int(m_killDeadline.remainingTime()));
        }
        if (m_terminating) {
            killGroup();
        }
        if (m_process && m_process->state() != QProcess::NotRunning) {
            m_process->waitForFinished(-1);
        }
    }

private:
    void drain()
    {
        const QByteArray bytes = m_process->readAllStandardOutput();
        if (!bytes.isEmpty() && m_output) {
            m_output(bytes);
        }
    }

    void finished(int exitCode, QProcess::ExitStatus)
    {
        drain();
        m_running->store(false);
        m_ended = true;
        // On Unix the exit code of a killed process is its signal number.
        if (m_exit) {
            m_exit(exitCode);
        }
        // What the child started must not linger once the child is gone: an engine left
        // behind by a crashed run script would keep its port and its memory.
        terminate();
        deleteWhenDone();
    }

    void killGroup()
    {
        if (groupAlive(m_group)) {
            ::kill(-m_group, SIGKILL);
        }
    }

    void deleteWhenDone()
    {
        if (m_detached && m_ended && (!m_terminating || m_killed)) {
            deleteLater();
        }
    }

    ChildProcess::OutputHandler m_output;
    ChildProcess::ExitHandler m_exit;
    std::shared_ptr<std::atomic<bool>> m_running;
    QProcess *m_process = nullptr;
    pid_t m_group = 0;
    QDeadlineTimer m_killDeadline;
    bool m_terminating = false;
    bool m_killed = false;
    bool m_ended = false;
    bool m_detached = false;
};

namespace {

class ChildProcessQt : public ChildProcess
{
public:
    explicit ChildProcessQt(QObject *registry) : m_registry(registry) { }

    ~ChildProcessQt() override
    {
        if (m_host) {
            QMetaObject::invokeMethod(
                m_host, [host = m_host] { host->detach(); }, Qt::QueuedConnection);
        }
    }

    void setOutputHandler(OutputHandler handler) override { m_output = std::move(handler); }
    void setExitHandler(ExitHandler handler) override { m_exit = std::move(handler); }

    Status<ProcessLaunchError> start(const ProcessLaunch &launch) override
    {
        Status<ProcessLaunchError> result;
        QMetaObject::invokeMethod(
            m_registry,
            [&] {
                m_host = new ProcessHost(m_output, m_exit, m_running);
                m_host->setParent(m_registry);
                result = m_host->start(launch);
            },
            Qt::BlockingQueuedConnection);
        return result;
    }

    bool isRunning() const override { return m_running->load(); }

    void terminate() override
    {
        if (m_host) {
            QMetaObject::invokeMethod(
                m_host, [host = m_host] { host->terminate(); }, Qt::QueuedConnection);
        }
    }

private:
    QObject *m_registry;
    ProcessHost *m_host = nullptr;
    OutputHandler m_output;
    ExitHandler m_exit;
    std::shared_ptr<std::atomic<bool>> m_running = std::make_shared<std::atomic<bool>>(false);
};

} // namespace

ChildProcessLauncherQt::ChildProcessLauncherQt() : m_registry(new QObject)
{
    m_ioThread.setObjectName(QStringLiteral("sayvo-child-io"));
    m_registry->moveToThread(&m_ioThread);
    m_ioThread.start();
}

ChildProcessLauncherQt::~ChildProcessLauncherQt()
{
    QMetaObject::invokeMethod(
        m_registry,
        [registry = m_registry] {
            // Every child of the registry is a ProcessHost.
            for (QObject *host : registry->children()) {
                static_cast<ProcessHost *>(host)->stopNow();
            }
            delete registry;
        },
        Qt::BlockingQueuedConnection);
    m_ioThread.quit();
    m_ioThread.wait();
}

std::unique_ptr<ChildProcess> ChildProcessLauncherQt::create()
{
    return std::make_unique<ChildProcessQt>(m_registry);
}

Status<ProcessLaunchError> ChildProcessLauncherQt::startDetached(
    const ProcessLaunch &launch, const QString &outputFile)
{
    QProcess process;
    configure(process, launch);
    QFile log(outputFile);
    if (log.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        log.close();
        // Both streams append to one file, so neither overwrites what the other wrote.
        process.setStandardOutputFile(outputFile, QIODevice::Append);
        process.setStandardErrorFile(outputFile, QIODevice::Append);
    }
    if (!process.startDetached()) {
        return ProcessLaunchError {process.errorString()};
    }
    return {};
}

} // namespace sayvo
