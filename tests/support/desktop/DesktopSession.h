#pragma once

#include <QByteArray>
#include <QProcess>
#include <QProcessEnvironment>
#include <QStringList>
#include <QTemporaryDir>

#include <memory>
#include <vector>

namespace sayvo::testing {

// A private desktop for one test process: Xvfb on a display number the server picks itself
// (so parallel tests never collide), openbox as the EWMH window manager, a private D-Bus
// session bus and the AT-SPI accessibility bus with accessibility enabled. The process's own
// DISPLAY and DBUS_SESSION_BUS_ADDRESS point at it, so adapters created afterwards use it.
// With `wayland`, a headless sway takes the place of Xvfb and openbox, in a runtime directory
// of its own (run as the unprivileged user 65534 when the tests run as root, since sway
// refuses root), and the environment names no X display; WAYLAND_DISPLAY and XDG_RUNTIME_DIR
// point at it instead. Every daemon runs in its own process group and is stopped with its
// children when the session is destroyed, also when the test fails. Main thread only.
class DesktopSession
{
public:
    struct Options
    {
        bool windowManager = true;
        bool accessibility = true;
        bool wayland = false;
        // With wayland: XWayland for X11 clients, on xwaylandDisplay().
        bool xwayland = false;
    };

    // The user id the compositor runs as when the tests run as root.
    static constexpr unsigned kUnprivilegedUid = 65534;

    DesktopSession();
    explicit DesktopSession(Options options);
    ~DesktopSession();
    DesktopSession(const DesktopSession &) = delete;
    DesktopSession &operator=(const DesktopSession &) = delete;

    // False, with the reason in failure(), when a daemon did not come up.
    bool isReady() const { return m_failure.isEmpty(); }
    QString failure() const { return m_failure; }
    // ":N" for X11, the socket name ("wayland-1") for Wayland.
    QString display() const { return m_display; }
    bool isWayland() const { return m_wayland; }
    // The X display XWayland serves under a Wayland session with xwayland.
    QString xwaylandDisplay() const { return m_xwaylandDisplay; }
    QString directory() const { return m_directory.path(); }
    QProcessEnvironment environment() const { return m_environment; }

    // Runs a command-line client against this desktop to the end while the event loop keeps
    // running (this process may own the clipboard the client reads). Returns its standard
    // output; exitCode is -1 after a time-out.
    QByteArray run(const QString &program, const QStringList &arguments, int *exitCode = nullptr,
        int timeoutMs = 10000);
    // Starts a long-running client in its own process group; stopped with the session.
    QProcess *start(const QString &program, const QStringList &arguments);
    QProcess *start(const QProcessEnvironment &environment, const QString &program,
        const QStringList &arguments);
    // Stops one client started by start().
    void stop(QProcess *process);
    // Runs a sway IPC command (swaymsg) under a Wayland session; true when sway accepted it.
    bool sway(const QString &command);
    // Stops the compositor alone, as a crash or a logout would.
    void stopCompositor();

private:
    bool startXServer();
    bool startWindowManager();
    bool startCompositor(bool xwayland);
    bool startSessionBus();
    bool startAccessibilityBus();
    QProcess *launch(const QProcessEnvironment &environment, const QString &program,
        const QStringList &arguments);
    bool waitUntil(const std::function<bool()> &condition, int timeoutMs);

    QTemporaryDir m_directory;
    QString m_failure;
    QString m_display;
    QProcessEnvironment m_environment;
    QByteArray m_previousDisplay;
    QByteArray m_previousBus;
    QByteArray m_previousWaylandDisplay;
    QByteArray m_previousRuntimeDir;
    bool m_wayland = false;
    QString m_xwaylandDisplay;
    QProcess *m_compositor = nullptr;
    std::vector<std::unique_ptr<QProcess>> m_processes;
};

} // namespace sayvo::testing
