#include "support/desktop/DesktopSession.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QTest>
#include <QThread>

#include <csignal>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

namespace sayvo::testing {

DesktopSession::DesktopSession() : DesktopSession(Options {}) { }

DesktopSession::DesktopSession(Options options) : m_wayland(options.wayland)
{
    m_previousDisplay = qgetenv("DISPLAY");
    m_previousBus = qgetenv("DBUS_SESSION_BUS_ADDRESS");
    m_previousWaylandDisplay = qgetenv("WAYLAND_DISPLAY");
    m_previousRuntimeDir = qgetenv("XDG_RUNTIME_DIR");
    m_environment = QProcessEnvironment::systemEnvironment();
    // Toolkits write caches and settings under the home directory; keep them in ours.
    m_environment.insert(QStringLiteral("HOME"), m_directory.path());
    m_environment.insert(QStringLiteral("XDG_RUNTIME_DIR"), m_directory.path());
    m_environment.insert(QStringLiteral("XDG_CONFIG_HOME"), m_directory.path() + "/config");
    m_environment.insert(QStringLiteral("XDG_CACHE_HOME"), m_directory.path() + "/cache");
    m_environment.insert(QStringLiteral("GDK_BACKEND"), QStringLiteral("x11"));
    m_environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));
    m_environment.remove(QStringLiteral("NO_AT_BRIDGE"));
    m_environment.remove(QStringLiteral("WAYLAND_DISPLAY"));
    if (!m_directory.isValid()) {
        m_failure = QStringLiteral("no temporary directory");
        return;
    }
    if (m_wayland) {
        if (!startCompositor(options.xwayland)) {
            return;
        }
    } else {
        if (!startXServer()) {
            return;
        }
        if (options.windowManager && !startWindowManager()) {
            return;
        }
    }
    if (!startSessionBus()) {
        return;
    }
    if (options.accessibility) {
        startAccessibilityBus();
    }
}

DesktopSession::~DesktopSession()
{
    // Clients first, the X server last, each with whatever it started.
    for (auto process = m_processes.rbegin(); process != m_processes.rend(); ++process) {
        stop(process->get());
    }
    m_processes.clear();
    const auto restore = [](const char *name, const QByteArray &value) {
        if (value.isNull()) {
            qunsetenv(name);
        } else {
            qputenv(name, value);
        }
    };
    restore("DISPLAY", m_previousDisplay);
    restore("DBUS_SESSION_BUS_ADDRESS", m_previousBus);
    restore("WAYLAND_DISPLAY", m_previousWaylandDisplay);
    restore("XDG_RUNTIME_DIR", m_previousRuntimeDir);
}

QProcess *DesktopSession::launch(
    const QProcessEnvironment &environment, const QString &program, const QStringList &arguments)
{
    auto process = std::make_unique<QProcess>();
    process->setProcessEnvironment(environment);
    process->setChildProcessModifier([] {
        setsid();
        // A test killed on a time-out takes its daemons with it.
        prctl(PR_SET_PDEATHSIG, SIGKILL);
    });
    process->setProgram(program);
    process->setArguments(arguments);
    process->start();
    if (!process->waitForStarted(5000)) {
        return nullptr;
    }
    m_processes.push_back(std::move(process));
    return m_processes.back().get();
}

QProcess *DesktopSession::start(const QString &program, const QStringList &arguments)
{
    return launch(m_environment, program, arguments);
}

QProcess *DesktopSession::start(
    const QProcessEnvironment &environment, const QString &program, const QStringList &arguments)
{
    return launch(environment, program, arguments);
}

void DesktopSession::stop(QProcess *process)
{
    if (!process || process->state() == QProcess::NotRunning) {
        return;
    }
    const pid_t group = pid_t(process->processId());
    ::kill(-group, SIGTERM);
    if (!process->waitForFinished(2000)) {
        ::kill(-group, SIGKILL);
        process->waitForFinished(2000);
    }
    // Children the daemon started in its group (the accessibility bus's dbus-daemon).
    ::kill(-group, SIGKILL);
}

bool DesktopSession::waitUntil(const std::function<bool()> &condition, int timeoutMs)
{
    QDeadlineTimer deadline(timeoutMs);
    while (!condition()) {
        if (deadline.hasExpired()) {
            return false;
        }
        QTest::qWait(20);
    }
    return true;
}

QByteArray DesktopSession::run(
    const QString &program, const QStringList &arguments, int *exitCode, int timeoutMs)
{
    QProcess process;
    process.setProcessEnvironment(m_environment);
    process.start(program, arguments);
    const bool finished = process.waitForStarted(5000)
        && waitUntil([&] { return process.state() == QProcess::NotRunning; }, timeoutMs);
    if (!finished) {
        process.kill();
        process.waitForFinished(2000);
    }
    if (exitCode) {
        *exitCode
            = finished && process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    }
    return process.readAllStandardOutput();
}

bool DesktopSession::startXServer()
{
    // The server picks the first free display number and writes it to our pipe.
    // -noreset: by default the server resets whenever its last client disconnects, which
    // drops every connection still being set up and everything clients left on the display
    // (root properties, atoms). The readiness probes below are short-lived clients: without
    // it, a window manager that connects just as a probe leaves is turned away.
    QProcess *server = launch(m_environment, QStringLiteral("Xvfb"),
        {QStringLiteral("-displayfd"), QStringLiteral("1"), QStringLiteral("-screen"),
            QStringLiteral("0"), QStringLiteral("1280x800x24"), QStringLiteral("-nolisten"),
            QStringLiteral("tcp"), QStringLiteral("-noreset")});
    if (!server) {
        m_failure = QStringLiteral("Xvfb did not start");
        return false;
    }
    if (!waitUntil(
            [server] { return server->canReadLine() || server->state() == QProcess::NotRunning; },
            10000)
        || !server->canReadLine()) {
        m_failure = QStringLiteral("Xvfb did not report a display: ")
            + QString::fromLocal8Bit(server->readAllStandardError());
        return false;
    }
    m_display = QStringLiteral(":") + QString::fromLatin1(server->readLine().trimmed());
    m_environment.insert(QStringLiteral("DISPLAY"), m_display);
    m_environment.insert(QStringLiteral("XDG_SESSION_TYPE"), QStringLiteral("x11"));
    qputenv("DISPLAY", m_display.toLocal8Bit());
    qunsetenv("WAYLAND_DISPLAY");
    return true;
}

bool DesktopSession::startWindowManager()
{
    QProcess *manager
        = launch(m_environment, QStringLiteral("openbox"), {QStringLiteral("--sm-disable")});
    if (!manager) {
        m_failure = QStringLiteral("openbox did not start");
        return false;
    }
    const bool ready = waitUntil(
        [this, manager] {
            if (manager->state() == QProcess::NotRunning) {
                return true;
            }
            int code = 0;
            const QByteArray out = run(QStringLiteral("xprop"),
                {QStringLiteral("-root"), QStringLiteral("_NET_SUPPORTING_WM_CHECK")}, &code);
            return code == 0 && out.contains("window id");
        },
        20000);
    if (ready && manager->state() == QProcess::Running) {
        return true;
    }
    // openbox reports why it gave up on standard output.
    m_failure = QStringLiteral("openbox did not take over the display: ")
        + QString::fromLocal8Bit(
            manager->readAllStandardOutput() + manager->readAllStandardError());
    return false;
}

bool DesktopSession::startCompositor(bool xwayland)
{
    // sway refuses to run as root: as root, it runs as an unprivileged user in a runtime
    // directory that user owns with mode 0700, which the test process, as root, still reaches.
    const bool asRoot = ::geteuid() == 0;
    const QString runDir = m_directory.path() + QStringLiteral("/run");
    QDir().mkpath(runDir);
    if (asRoot) {
        ::chmod(QFile::encodeName(m_directory.path()).constData(), 0711);
        if (::chown(QFile::encodeName(runDir).constData(), kUnprivilegedUid, kUnprivilegedUid)
            != 0) {
            m_failure = QStringLiteral("the compositor's runtime directory could not be handed over");
            return false;
        }
    }
    ::chmod(QFile::encodeName(runDir).constData(), 0700);
    const QString config = runDir + QStringLiteral("/sway.conf");
    QFile file(config);
    if (!file.open(QIODevice::WriteOnly)) {
        m_failure = QStringLiteral("no compositor configuration");
        return false;
    }
    file.write("output HEADLESS-1 resolution 1280x800\n");
    file.write(xwayland ? "xwayland enable\n" : "xwayland disable\n");
    file.close();
    file.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ReadOther);

    m_environment.remove(QStringLiteral("DISPLAY"));
    m_environment.insert(QStringLiteral("XDG_RUNTIME_DIR"), runDir);
    m_environment.insert(QStringLiteral("XDG_SESSION_TYPE"), QStringLiteral("wayland"));
    m_environment.insert(QStringLiteral("XDG_CURRENT_DESKTOP"), QStringLiteral("sway"));
    m_environment.insert(QStringLiteral("GDK_BACKEND"), QStringLiteral("wayland"));
    m_environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("wayland"));
    QProcessEnvironment compositorEnvironment = m_environment;
    compositorEnvironment.insert(QStringLiteral("HOME"), runDir);
    compositorEnvironment.insert(QStringLiteral("WLR_BACKENDS"), QStringLiteral("headless"));
    compositorEnvironment.insert(QStringLiteral("WLR_LIBINPUT_NO_DEVICES"), QStringLiteral("1"));
    compositorEnvironment.insert(QStringLiteral("WLR_RENDERER"), QStringLiteral("pixman"));
    QStringList arguments {QStringLiteral("sway"), QStringLiteral("-c"), config};
    QString program = QStringLiteral("sway");
    if (asRoot) {
        program = QStringLiteral("setpriv");
        arguments.prepend(QStringLiteral("--clear-groups"));
        arguments.prepend(QStringLiteral("--regid=%1").arg(kUnprivilegedUid));
        arguments.prepend(QStringLiteral("--reuid=%1").arg(kUnprivilegedUid));
    } else {
        arguments.removeFirst();
    }
    m_compositor = launch(compositorEnvironment, program, arguments);
    if (!m_compositor) {
        m_failure = QStringLiteral("sway did not start");
        return false;
    }
    QString socket;
    QString ipc;
    const bool ready = waitUntil(
        [&] {
            const QDir dir(runDir);
            const QStringList sockets = dir.entryList({QStringLiteral("wayland-*")}, QDir::System);
            const QStringList ipcs = dir.entryList({QStringLiteral("sway-ipc.*")}, QDir::System);
            for (const QString &name : sockets) {
                if (!name.endsWith(QLatin1String(".lock"))) {
                    socket = name;
                }
            }
            if (!ipcs.isEmpty()) {
                ipc = dir.filePath(ipcs.constFirst());
            }
            return (!socket.isEmpty() && !ipc.isEmpty())
                || m_compositor->state() == QProcess::NotRunning;
        },
        20000);
    if (!ready || m_compositor->state() == QProcess::NotRunning) {
        m_failure = QStringLiteral("sway did not come up: ")
            + QString::fromLocal8Bit(m_compositor->readAllStandardError().right(2000));
        return false;
    }
    m_display = socket;
    m_environment.insert(QStringLiteral("WAYLAND_DISPLAY"), socket);
    m_environment.insert(QStringLiteral("SWAYSOCK"), ipc);
    qunsetenv("DISPLAY");
    qputenv("WAYLAND_DISPLAY", socket.toLocal8Bit());
    qputenv("XDG_RUNTIME_DIR", runDir.toLocal8Bit());
    if (!waitUntil([this] { return sway(QStringLiteral("nop")); }, 10000)) {
        m_failure = QStringLiteral("sway does not answer on its IPC socket");
        return false;
    }
    if (xwayland) {
        // sway names its XWayland display in the environment of what it starts.
        const QString file = runDir + QStringLiteral("/xwayland-display");
        sway(QStringLiteral("exec printf %s \"$DISPLAY\" > ") + file);
        if (!waitUntil([&] { return QFile(file).size() > 0; }, 10000)) {
            m_failure = QStringLiteral("sway did not name an XWayland display");
            return false;
        }
        QFile named(file);
        named.open(QIODevice::ReadOnly);
        m_xwaylandDisplay = QString::fromLocal8Bit(named.readAll()).trimmed();
    }
    return true;
}

bool DesktopSession::sway(const QString &command)
{
    int code = 0;
    run(QStringLiteral("swaymsg"), {command}, &code);
    return code == 0;
}

void DesktopSession::stopCompositor()
{
    stop(m_compositor);
}

bool DesktopSession::startSessionBus()
{
    const QString socket = m_directory.path() + QStringLiteral("/session-bus");
    const QString address = QStringLiteral("unix:path=") + socket;
    if (!launch(m_environment, QStringLiteral("dbus-daemon"),
            {QStringLiteral("--session"), QStringLiteral("--nofork"),
                QStringLiteral("--address=") + address})) {
        m_failure = QStringLiteral("dbus-daemon did not start");
        return false;
    }
    if (!waitUntil([&socket] { return QFile::exists(socket); }, 10000)) {
        m_failure = QStringLiteral("the session bus did not come up");
        return false;
    }
    m_environment.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), address);
    qputenv("DBUS_SESSION_BUS_ADDRESS", address.toLocal8Bit());
    return true;
}

bool DesktopSession::startAccessibilityBus()
{
    if (!launch(m_environment, QStringLiteral("/usr/libexec/at-spi-bus-launcher"),
            {QStringLiteral("--launch-immediately")})) {
        m_failure = QStringLiteral("at-spi-bus-launcher did not start");
        return false;
    }
    const QStringList getAddress {QStringLiteral("--session"), QStringLiteral("--print-reply"),
        QStringLiteral("--dest=org.a11y.Bus"), QStringLiteral("/org/a11y/bus"),
        QStringLiteral("org.a11y.Bus.GetAddress")};
    if (!waitUntil(
            [&] {
                int code = 0;
                run(QStringLiteral("dbus-send"), getAddress, &code);
                return code == 0;
            },
            10000)) {
        m_failure = QStringLiteral("the accessibility bus did not come up");
        return false;
    }
    // What a screen reader does when it starts: toolkits and clients see accessibility on.
    int code = 0;
    run(QStringLiteral("dbus-send"),
        {QStringLiteral("--session"), QStringLiteral("--print-reply"),
            QStringLiteral("--dest=org.a11y.Bus"), QStringLiteral("/org/a11y/bus"),
            QStringLiteral("org.freedesktop.DBus.Properties.Set"),
            QStringLiteral("string:org.a11y.Status"), QStringLiteral("string:IsEnabled"),
            QStringLiteral("variant:boolean:true")},
        &code);
    if (code != 0) {
        m_failure = QStringLiteral("accessibility could not be enabled");
        return false;
    }
    return true;
}

} // namespace sayvo::testing
