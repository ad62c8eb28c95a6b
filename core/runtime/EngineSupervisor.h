#pragma once

#include "runtime/ChildProcess.h"
#include "runtime/EngineState.h"
#include "runtime/RuntimeLocator.h"

#include <QList>
#include <QObject>
#include <QString>
#include <QTimer>
#include <QUrl>

#include <functional>
#include <memory>
#include <optional>

namespace sayvo {

// Keeps the local speech engine alive for the endpoint the client connects to: launches the
// payload's run script when the endpoint is on this machine and nothing listens there yet,
// restarts it with a growing delay when it exits, relaunches an engine whose backends came
// up as mock placeholders, runs first-run set-up and updates, and starts the uninstaller.
// Lives on the main thread for the whole run; every signal is emitted there. Child output is
// read on a background thread and delivered here in order.
class EngineSupervisor : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QString log READ log NOTIFY logChanged)

public:
    using State = EngineState;
    using ProvisioningStep = sayvo::ProvisioningStep;
    // Whether something accepts connections at host:port.
    using PortProbe = std::function<bool(const QString &host, int port)>;

    // Collaborators, each with a production default when left empty.
    struct Options
    {
        std::unique_ptr<ChildProcessLauncher> launcher; // default: QProcess-backed
        PortProbe portProbe; // default: isPortOpen
        QString applicationPath; // default: the running application
        qint64 applicationPid = 0; // default: this process
        // Multiplies every delay before a relaunch; the logged delays stay unscaled. Only tests
        // change it, to walk through the back-off without waiting half a minute.
        double delayScale = 1.0;
        // Where the uninstaller's output goes. Default: "SayvoApp/uninstall.log" in the
        // user's state directory, a folder only the user can reach (never a shared one such
        // as /tmp, where another user could plant a link in its place).
        QString uninstallLogPath;
    };

    explicit EngineSupervisor(RuntimeLocator locator, QObject *parent = nullptr);
    EngineSupervisor(RuntimeLocator locator, Options options, QObject *parent = nullptr);
    // Shuts down and waits for the children's brief grace period to end.
    ~EngineSupervisor() override;

    const State &state() const { return m_state; }
    const QString &log() const { return m_log; }
    const QList<ProvisioningStep> &steps() const { return m_steps; }
    const RuntimeLocator &locator() const { return m_locator; }
    // The application the uninstaller removes.
    const QString &applicationPath() const { return m_applicationPath; }
    const std::optional<QUrl> &lastEndpoint() const { return m_lastEndpoint; }
    int crashCount() const { return m_crashCount; }
    int mockRelaunchCount() const { return m_mockRelaunchCount; }
    bool isEngineExternallyManaged() const { return m_engineExternallyManaged; }
    bool isEngineLaunched() const { return m_engineProcess != nullptr; }
    bool isProvisioningRunning() const { return m_provisioningProcess != nullptr; }
    bool hasPendingRestart() const { return m_restartWork.isActive(); }
    // The engine runs from an adopted runtime (a developer checkout or SAYVO_RUNTIME_ROOT).
    bool isDevRuntime() const { return m_locator.isAdopted(); }
    // The payload ships an uninstaller.
    bool canUninstall() const;
    const QString &uninstallLogPath() const { return m_uninstallLogPath; }

    // Called at launch (twice: tolerated) and whenever the endpoint setting changes.
    void start(const QUrl &endpoint);
    // The set-up window's retry: set-up again while the runtime is still not provisioned.
    void retry();
    // Menu bar's restart: forgets past crashes and starts afresh for the last endpoint.
    void restartEngine();
    // The set-up window's install action.
    void beginProvisioning();
    // The engine's handshake reported placeholder backends.
    void handleMockBackends();
    // The engine's handshake reported real backends.
    void handleHealthyBackends();
    // Stops the engine and any set-up; nothing is restarted afterwards.
    void shutdown();
    // Starts the payload's uninstaller from a temporary copy, detached so that it outlives the
    // app, its output in `uninstallLogPath()`; true when it was launched, after which the
    // caller quits the application.
    bool performUninstall(bool removeSharedModels);

    static bool isLoopback(const QUrl &url);
    // A blocking connect to an IPv4 or IPv6 address, or to both loopback addresses for
    // "localhost"; loopback refuses a closed port at once. Other host names answer false.
    // Aborts for a port outside 0...65535.
    static bool isPortOpen(const QString &host, int port);

    static constexpr int kMaxCrashRestarts = 5;
    static constexpr int kMaxMockRelaunches = 2;
    static constexpr double kMockRelaunchDelaySeconds = 3.0;
    static constexpr int kMaxLogChars = 40000;
    static constexpr const char *kDefaultHost = "127.0.0.1";
    static constexpr int kDefaultPort = 8765;
    // The engine's exit status when it cannot run at all (its speech model is missing or
    // damaged); its last line of output says why. Restarting would only say it again.
    static constexpr int kEngineCannotStartStatus = 3;

signals:
    void stateChanged(const sayvo::EngineState &state);
    void logChanged(const QString &log);
    // Just the text that `log` grew by, for views that append rather than redraw.
    void logAppended(const QString &text);
    void stepsChanged(const QList<sayvo::ProvisioningStep> &steps);

private:
    static bool connectsTo(const QString &address, uint16_t port);

    struct BootstrapOutcome
    {
        int status = 0;
        bool sawDone = false;
        std::optional<std::pair<QString, QString>> need;
    };

    void setState(State state);
    void launchEngine();
    void teardownEngine();
    void stopProvisioning();
    void engineExited(int status, quint64 generation);
    void append(const QString &text);
    void attachOutput(ChildProcess &process, std::function<void(const QString &)> onLine);
    void runBootstrap();
    void applyBootstrapLine(const QString &line, quint64 generation);
    void finishBootstrap(const BootstrapOutcome &outcome, quint64 generation);
    void updateStep(const QString &id, const QString &token);
    void scheduleRelaunch(double delaySeconds);

    State m_state = engine_state::Idle {};
    QString m_log;
    QList<ProvisioningStep> m_steps;
    RuntimeLocator m_locator;
    std::unique_ptr<ChildProcessLauncher> m_launcher;
    std::unique_ptr<ChildProcess> m_provisioningProcess;
    std::unique_ptr<ChildProcess> m_engineProcess;
    bool m_shouldRunEngine = false;
    bool m_engineExternallyManaged = false;
    int m_crashCount = 0;
    int m_mockRelaunchCount = 0;
    QTimer m_restartWork;
    std::optional<QUrl> m_lastEndpoint;
    PortProbe m_portProbe;
    QString m_applicationPath;
    qint64 m_applicationPid;
    QString m_uninstallLogPath;
    double m_delayScale;
    // Exits and output of processes that were replaced or dropped are ignored.
    quint64 m_engineGeneration = 0;
    QString m_lastEngineLine;
    quint64 m_bootstrapGeneration = 0;
};

} // namespace sayvo
