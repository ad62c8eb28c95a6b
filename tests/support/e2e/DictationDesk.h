#pragma once

#include "desktop/wayland/KeySynthesizerWayland.h"
#include "support/audio/pulse/PulseAudioServer.h"
#include "support/desktop/DesktopSession.h"
#include "support/desktop/TestEditor.h"
#include "support/desktop/TestPortal.h"
#include "support/engine/TestEngine.h"

#include <QProcess>
#include <QRegularExpression>
#include <QStringList>
#include <QTemporaryDir>

#include <memory>
#include <optional>

namespace sayvo::test {

// A whole desktop for end-to-end runs of the real Sayvo: an X server with a window manager
// (or a headless sway with no X display), the session and accessibility buses, a sound server
// whose default microphone this object speaks into, a GTK editor with the focus, a runtime
// with the reference engine (or a scripted engine in this process), and Sayvo itself as a
// child process reading its settings from a private configuration directory. Everything
// stops when the desk is destroyed, also when the test fails.
class DictationDesk
{
public:
    struct Options
    {
        // "pocketsphinx", "mock" or "replay:<file>".
        QString asr = QStringLiteral("pocketsphinx");
        // Settings written before launch, under their stored keys ("sayvo.triggerMode", ...).
        QMap<QString, QString> settings;
        QString editorTitle = QStringLiteral("Sayvo Test Editor");
        // A headless sway instead of Xvfb: the trigger is `sayvo trigger`, as a key binding
        // of the compositor would run it.
        bool wayland = false;
        // With wayland: the session as GNOME offers it, sway standing in for its compositor.
        // The trigger and the keystrokes go through the desktop portal (Debian's frontend with
        // the project's test backend, see portal()), the window in front comes from
        // accessibility, and Sayvo is told to overlook sway's wlroots protocols. The trigger is
        // the portal's shortcut "Dictate", pressed by the backend's Activated and Deactivated.
        bool portal = false;
        // When set, no reference engine: a scripted one in this process answers every
        // utterance with this text (its frames and close codes readable through engine()).
        std::optional<QString> scriptedFinal = std::nullopt;
    };
    // An installed Sayvo instead of the build's. The build's program runs with a runtime the
    // desk sets up from the build's payload; an installed one finds none, and its Engine
    // Setup window sets one up from the payload installed next to it (see pressButton()).
    struct Installation
    {
        QString sayvoBinary;
        // More environment for Sayvo, over the desk's own.
        QMap<QString, QString> environment;
    };

    explicit DictationDesk(Options options, std::optional<Installation> installation = {});
    ~DictationDesk();
    // A desk with Sayvo launched on it and connected to its engine; null when the desk or
    // Sayvo did not come up, with why in `failure` (the desk's failure or Sayvo's log).
    static std::unique_ptr<DictationDesk> launched(Options options, QString &failure);

    bool isReady() const { return m_failure.isEmpty(); }
    QString failure() const { return m_failure; }

    // Starts Sayvo and waits until it has connected to its engine.
    bool launchSayvo(int timeoutMs = 60000);
    // Starts Sayvo without waiting for anything.
    bool startSayvo();
    // SIGTERM, as a logout would send; waits for the process to end.
    bool quitSayvo(int timeoutMs = 15000);
    bool isSayvoRunning() const;
    // Sayvo ended by a signal (a crash or an abort) rather than by exiting.
    bool crashed() const;
    qint64 sayvoPid() const;
    // How the Sayvo process ended, once it has.
    QProcess::ExitStatus sayvoExitStatus() const;
    int sayvoExitCode() const;
    // Sayvo's settings file, as it is on disk.
    QString settingsFile() const;

    QStringList log();
    bool waitForLog(const QRegularExpression &pattern, int timeoutMs);
    int countLog(const QRegularExpression &pattern);
    // The dictation states Sayvo went through, as it logged them ("listening(chars=5)", ...).
    QStringList states();

    // The trigger key (xdotool on X11; `sayvo trigger press` and `release` on Wayland; the
    // portal's Activated and Deactivated with a portal).
    void pressTrigger(const QString &key = QStringLiteral("F5"));
    void releaseTrigger(const QString &key = QStringLiteral("F5"));
    // Runs `sayvo trigger <verb>` in the desk's session; its exit code.
    int trigger(const QString &verb);
    // Plays 16 kHz mono s16le into the microphone, a little faster than real time.
    void speak(const QByteArray &pcm);
    // The sentence in festival's US English voice, 16 kHz mono s16le (cached per text).
    static QByteArray synthesize(const QString &text);
    // Holds the trigger, speaks, lets go, and waits for the outcome to be logged.
    bool dictate(const QByteArray &pcm, int timeoutMs = 30000);

    // With no tray host on the desktop Sayvo opens its settings window in the tray menu's
    // stead, which shows the live footprint while it is open; this closes it as a user would,
    // with Escape. Empty when there was none or it closed, else what went wrong.
    QString closeStandInSettingsWindow();

    // The clipboard's text as another application reads it (wl-paste on Wayland, xclip on
    // X11); empty when the clipboard is.
    QByteArray clipboard();

    bool screenshot(const QString &path);
    // Presses a button of one of Sayvo's windows through the accessibility bus, as a user
    // would click it; false when no such button showed up within the time.
    bool pressButton(const QString &windowTitle, const QString &buttonText, int timeoutMs = 20000);
    // The desk's own home: Sayvo's configuration and data folders are inside it.
    QString homeDir() const { return m_home.path(); }

    PipeMicrophone &microphone() { return *m_microphone; }
    testing::TestEditor &editor() { return *m_editor; }
    testing::DesktopSession &desktop() { return *m_desktop; }
    // The desktop portal's test backend; only with Options::portal.
    testing::TestPortal &portal() { return *m_portal; }
    quint16 enginePort() const { return m_port; }
    // The scripted engine; null with the reference engine.
    TestEngine *engine() const { return m_engine.get(); }
    // Sayvo's environment.
    QProcessEnvironment sayvoEnvironment() const;
    // The `sayvo` command this desk runs.
    QString sayvoBinary() const;
    QString runtimeDir() const { return m_runtimeApp; }
    // Processes of the engine serving this desk's port.
    QList<qint64> enginePids() const;

private:
    bool prepareRuntime();
    bool startScriptedEngine();
    void writeSettings();
    void readOutput();

    Options m_options;
    std::optional<Installation> m_installation;
    QString m_failure;
    QTemporaryDir m_home;
    std::unique_ptr<testing::DesktopSession> m_desktop;
    std::unique_ptr<testing::TestPortal> m_portal;
    // The user's keyboard where Sayvo brings none of its own (see the constructor).
    std::unique_ptr<KeySynthesizerWayland> m_seatKeyboard;
    std::unique_ptr<PulseAudioServer> m_pulse;
    std::unique_ptr<PipeMicrophone> m_microphone;
    std::unique_ptr<testing::TestEditor> m_editor;
    std::unique_ptr<TestEngine> m_engine;
    std::unique_ptr<QProcess> m_sayvo;
    QString m_runtimeApp;
    quint16 m_port = 0;
    QStringList m_log;
    QByteArray m_partialLine;
};

} // namespace sayvo::test
