#include "runtime/EngineSupervisor.h"

#include "base/Logging.h"
#include "base/MainThread.h"
#include "runtime/ChildProcessQt.h"
#include "runtime/OutputLineReader.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QPointer>
#include <QProcessEnvironment>

#include <algorithm>
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace sayvo {

namespace {

QString mockEngineNotOurs()
{
    return QStringLiteral("A placeholder (mock) engine is running on this endpoint. Stop it (or "
                          "fix its backends) and "
                          "restart — the app can't get real transcripts until then.");
}

QString mockEngineOurs()
{
    return QStringLiteral(
        "The engine started in placeholder (mock) mode — its ASR/GEC backends failed to load. Open "
        "Engine Setup to reinstall the backends.");
}

} // namespace

EngineSupervisor::EngineSupervisor(RuntimeLocator locator, QObject *parent)
    : EngineSupervisor(std::move(locator), Options {}, parent)
{ }

EngineSupervisor::EngineSupervisor(RuntimeLocator locator, Options options, QObject *parent)
    : QObject(parent),
      m_locator(std::move(locator)),
      m_launcher(options.launcher ? std::move(options.launcher)
                                  : std::make_unique<ChildProcessLauncherQt>()),
      m_portProbe(options.portProbe ? std::move(options.portProbe) : PortProbe(&isPortOpen)),
      m_applicationPath(options.applicationPath),
      m_applicationPid(
          options.applicationPid ? options.applicationPid : QCoreApplication::applicationPid()),
      m_uninstallLogPath(options.uninstallLogPath.isEmpty()
              ? userStateDirectory() + QStringLiteral("/SayvoApp/uninstall.log")
              : options.uninstallLogPath),
      m_delayScale(options.delayScale)
{
    qRegisterMetaType<EngineState>();
    if (m_applicationPath.isEmpty()) {
        m_applicationPath = mainAppBundle().bundlePath.value_or(QString());
    }
    m_restartWork.setSingleShot(true);
    connect(&m_restartWork, &QTimer::timeout, this, &EngineSupervisor::launchEngine);
}

EngineSupervisor::~EngineSupervisor()
{
    shutdown();
    // The launcher outlives its processes and waits for their grace period to end.
    m_engineProcess.reset();
    m_provisioningProcess.reset();
    m_launcher.reset();
}

bool EngineSupervisor::isLoopback(const QUrl &url)
{
    const QString host = url.host().toLower();
    return !host.isEmpty()
        && (host == QLatin1String("127.0.0.1") || host == QLatin1String("localhost")
            || host == QLatin1String("::1") || host == QLatin1String("0.0.0.0"));
}

bool EngineSupervisor::isPortOpen(const QString &host, int port)
{
    if (port < 0 || port > 65535) {
        qFatal("port %d is outside 0...65535", port);
    }
    // Every loopback form reaches the engine wherever it listens on this machine; "localhost"
    // may mean either address, and is not looked up so that the main thread never waits on
    // a resolver.
    const QString name = host.toLower();
    QStringList addresses {name};
    if (name.isEmpty() || name == QLatin1String("0.0.0.0")) {
        addresses = {QString::fromLatin1(kDefaultHost)};
    } else if (name == QLatin1String("localhost")) {
        addresses = {QString::fromLatin1(kDefaultHost), QStringLiteral("::1")};
    }
    return std::any_of(addresses.begin(), addresses.end(), [port](const QString &address) {
        return connectsTo(address, static_cast<uint16_t>(port));
    });
}

bool EngineSupervisor::connectsTo(const QString &address, uint16_t port)
{
    const QByteArray text = address.toLatin1();
    sockaddr_storage storage {};
    socklen_t length = 0;
    if (auto *v4 = reinterpret_cast<sockaddr_in *>(&storage);
        ::inet_pton(AF_INET, text.constData(), &v4->sin_addr) == 1) {
        v4->sin_family = AF_INET;
        v4->sin_port = htons(port);
        length = sizeof(sockaddr_in);
    } else if (auto *v6 = reinterpret_cast<sockaddr_in6 *>(&storage);
               ::inet_pton(AF_INET6, text.constData(), &v6->sin6_addr) == 1) {
        v6->sin6_family = AF_INET6;
        v6->sin6_port = htons(port);
        length = sizeof(sockaddr_in6);
    } else {
        return false;
    }
    // FD_CLOEXEC set afterwards: macOS has no SOCK_CLOEXEC.
    const int fd = ::socket(storage.ss_family, SOCK_STREAM, 0);
    if (fd < 0) {
        return false;
    }
    ::fcntl(fd, F_SETFD, FD_CLOEXEC);
    const bool open = ::connect(fd, reinterpret_cast<const sockaddr *>(&storage), length) == 0;
    ::close(fd);
    return open;
}

bool EngineSupervisor::canUninstall() const
{
    return QFileInfo::exists(m_locator.uninstallScript());
}

void EngineSupervisor::setState(State state)
{
    if (state == m_state) {
        return;
    }
    m_state = std::move(state);
    Logging::shared().debug(QStringLiteral("engine state: ") + describe(m_state));
    emit stateChanged(m_state);
}

void EngineSupervisor::start(const QUrl &endpoint)
{
    // `endpoint` may be a reference to the last one (restart, retry): copy before assigning.
    const std::optional<QUrl> previous = m_lastEndpoint;
    m_lastEndpoint = endpoint;
    if (!isLoopback(endpoint)) {
        stopProvisioning();
        teardownEngine();
        setState(engine_state::RemoteEndpoint {});
        return;
    }
    if (!m_locator.hasPayload()) {
        setState(engine_state::MissingPayload {});
        return;
    }
    // Set-up runs one at a time; when it ends it launches the engine for the endpoint of
    // that moment.
    if (m_provisioningProcess) {
        return;
    }
    if (m_engineProcess && m_engineProcess->isRunning()) {
        // The launch sequence starts the supervisor twice; the second start finds it up. An
        // endpoint that now names another address or port needs the engine there instead.
        if (std::holds_alternative<engine_state::Running>(m_state) && previous
            && previous->host() == endpoint.host()
            && previous->port(kDefaultPort) == endpoint.port(kDefaultPort)) {
            return;
        }
        m_shouldRunEngine = false;
        teardownEngine();
    }
    const QString host
        = endpoint.host().isEmpty() ? QString::fromLatin1(kDefaultHost) : endpoint.host();
    if (m_portProbe(host, endpoint.port(kDefaultPort))) {
        // Someone else's engine: use it, but never launch or restart one over it.
        m_engineExternallyManaged = true;
        setState(engine_state::Running {});
        return;
    }
    m_engineExternallyManaged = false;
    if (!m_locator.isProvisioned()) {
        setState(engine_state::NeedsSetup {});
    } else if (m_locator.needsUpdate()) {
        runBootstrap();
    } else {
        launchEngine();
    }
}

void EngineSupervisor::launchEngine()
{
    m_shouldRunEngine = true;
    m_restartWork.stop();

    ProcessLaunch launch;
    launch.program = QStringLiteral("/bin/bash");
    launch.arguments
        = {m_locator.runScript(), QStringLiteral("--app-dir"), m_locator.effectiveAppDir()};
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    // The engine listens where the client will connect: the endpoint's own loopback form
    // (the run script keeps the engine on loopback whatever it is given).
    const QString host = m_lastEndpoint ? m_lastEndpoint->host() : QString();
    environment.insert(
        QStringLiteral("ENGINE_HOST"), host.isEmpty() ? QString::fromLatin1(kDefaultHost) : host);
    if (m_lastEndpoint && m_lastEndpoint->port() >= 0) {
        environment.insert(QStringLiteral("ENGINE_PORT"), QString::number(m_lastEndpoint->port()));
    }
    launch.environment = environment;

    std::unique_ptr<ChildProcess> process = m_launcher->create();
    const quint64 generation = ++m_engineGeneration;
    m_lastEngineLine.clear();
    attachOutput(*process, [this, generation](const QString &line) {
        if (generation == m_engineGeneration && !line.trimmed().isEmpty()) {
            m_lastEngineLine = line.trimmed();
        }
    });
    QPointer<QObject> guard(this);
    process->setExitHandler([this, guard, generation](int status) {
        postToMainThread(guard, [this, generation, status] { engineExited(status, generation); });
    });
    const Status<ProcessLaunchError> launched = process->start(launch);
    if (!launched) {
        Logging::shared().error(
            QStringLiteral("could not start the engine: ") + launched.error().describe());
        setState(engine_state::Failed {
            QStringLiteral("Could not start the engine: ") + launched.error().describe()});
        return;
    }
    Logging::shared().info(QStringLiteral("engine launched: script=") + m_locator.runScript());
    m_engineProcess = std::move(process);
    // Running from the launch on; whether the engine answers is the client's business.
    setState(engine_state::Running {});
}

void EngineSupervisor::teardownEngine()
{
    m_restartWork.stop();
    if (m_engineProcess && m_engineProcess->isRunning()) {
        m_engineProcess->terminate();
    }
    m_engineProcess.reset();
}

void EngineSupervisor::engineExited(int status, quint64 generation)
{
    // A process that was torn down or replaced is not the engine any more.
    if (generation != m_engineGeneration || !m_engineProcess) {
        return;
    }
    m_engineProcess.reset();
    if (!m_shouldRunEngine) {
        return;
    }
    if (status == kEngineCannotStartStatus) {
        Logging::shared().error(QStringLiteral("engine cannot start: ") + m_lastEngineLine);
        setState(engine_state::Failed {m_lastEngineLine.isEmpty()
                ? QStringLiteral("The engine cannot start (exited %1). See the log.").arg(status)
                : m_lastEngineLine});
        return;
    }
    ++m_crashCount;
    Logging::shared().error(QStringLiteral("engine exited: status=") + QString::number(status));
    if (m_crashCount > kMaxCrashRestarts) {
        setState(engine_state::Failed {QStringLiteral("The engine keeps stopping (exited %1). See "
                                                      "the log.")
                                           .arg(status)});
        return;
    }
    const int delaySeconds = 2 * std::min(m_crashCount, 4);
    append(QStringLiteral("\n== engine exited (%1); restarting in %2s ==\n")
               .arg(status)
               .arg(delaySeconds));
    scheduleRelaunch(delaySeconds);
}

void EngineSupervisor::scheduleRelaunch(double delaySeconds)
{
    m_restartWork.start(static_cast<int>(delaySeconds * 1000.0 * m_delayScale));
}

void EngineSupervisor::append(const QString &text)
{
    m_log.append(text);
    if (m_log.size() > kMaxLogChars) {
        m_log = m_log.right(kMaxLogChars);
    }
    emit logChanged(m_log);
    emit logAppended(text);
}

void EngineSupervisor::attachOutput(
    ChildProcess &process, std::function<void(const QString &)> onLine)
{
    auto reader = std::make_shared<OutputLineReader>(
        this, [this, onLine = std::move(onLine)](const QString &line) {
            onLine(line);
            append(line + QLatin1Char('\n'));
        });
    process.setOutputHandler([reader](const QByteArray &bytes) { reader->consume(bytes); });
}

void EngineSupervisor::handleMockBackends()
{
    if (m_engineExternallyManaged || !m_engineProcess) {
        setState(engine_state::Failed {mockEngineNotOurs()});
        return;
    }
    if (m_locator.isProvisioned() && m_mockRelaunchCount < kMaxMockRelaunches) {
        ++m_mockRelaunchCount;
        append(QStringLiteral("\n== engine reported mock backends; relaunching in 3s (attempt "
                              "%1/%2) ==\n")
                   .arg(m_mockRelaunchCount)
                   .arg(kMaxMockRelaunches));
        m_shouldRunEngine = false;
        teardownEngine();
        scheduleRelaunch(kMockRelaunchDelaySeconds);
        return;
    }
    setState(engine_state::Failed {mockEngineOurs()});
}

void EngineSupervisor::handleHealthyBackends()
{
    m_mockRelaunchCount = 0;
    m_crashCount = 0;
    if (std::holds_alternative<engine_state::Failed>(m_state)
        || std::holds_alternative<engine_state::Idle>(m_state)) {
        setState(engine_state::Running {});
    }
}

void EngineSupervisor::retry()
{
    if (!m_lastEndpoint) {
        return;
    }
    if (!m_locator.isProvisioned() && m_locator.hasPayload() && isLoopback(*m_lastEndpoint)) {
        runBootstrap();
    } else {
        start(*m_lastEndpoint);
    }
}

void EngineSupervisor::restartEngine()
{
    // During set-up there is no engine to restart; set-up launches it when it is done.
    if (!m_lastEndpoint || m_provisioningProcess) {
        return;
    }
    m_crashCount = 0;
    m_mockRelaunchCount = 0;
    m_shouldRunEngine = false;
    teardownEngine();
    setState(engine_state::Idle {});
    start(*m_lastEndpoint);
}

void EngineSupervisor::shutdown()
{
    m_shouldRunEngine = false;
    m_restartWork.stop();
    teardownEngine();
    stopProvisioning();
}

void EngineSupervisor::stopProvisioning()
{
    if (m_provisioningProcess) {
        m_provisioningProcess->terminate();
        m_provisioningProcess.reset();
    }
}

} // namespace sayvo
