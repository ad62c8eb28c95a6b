#include "support/e2e/DictationDesk.h"

#include "protocol/WireCodec.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QSettings>
#include <QStandardPaths>
#include <QTcpServer>
#include <QTest>

#include <csignal>

namespace sayvo::test {

namespace {

quint16 freePort()
{
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost, 0);
    return probe.serverPort();
}

// Runs a short command to the end; its standard output, or nullopt when it failed.
std::optional<QByteArray> runTool(const QString &program, const QStringList &arguments,
    const QProcessEnvironment &environment = QProcessEnvironment::systemEnvironment(),
    int timeoutMs = 120000)
{
    QProcess process;
    process.setProcessEnvironment(environment);
    process.start(program, arguments);
    if (!process.waitForStarted(5000) || !process.waitForFinished(timeoutMs)) {
        process.kill();
        process.waitForFinished(2000);
        return std::nullopt;
    }
    if (process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0) {
        return std::nullopt;
    }
    return process.readAllStandardOutput();
}

} // namespace

DictationDesk::DictationDesk(Options options, std::optional<Installation> installation)
    : m_options(std::move(options)), m_installation(std::move(installation))
{
    if (!m_home.isValid()) {
        m_failure = QStringLiteral("no temporary directory");
        return;
    }
    testing::DesktopSession::Options desktop;
    desktop.wayland = m_options.wayland;
    m_desktop = std::make_unique<testing::DesktopSession>(desktop);
    if (!m_desktop->isReady()) {
        m_failure = QStringLiteral("desktop: ") + m_desktop->failure();
        return;
    }
    if (m_options.portal) {
        m_portal = std::make_unique<testing::TestPortal>(*m_desktop);
        if (!m_portal->isReady()) {
            m_failure = QStringLiteral("desktop portal: ") + m_portal->failure();
            return;
        }
        // A desktop has a keyboard, the headless sway none: with no keyboard on its seat no
        // window gets the keyboard focus, and GTK tells accessibility of no active window. On
        // the wlroots path Sayvo's own virtual keyboard gives the seat one; here a virtual
        // keyboard that this desk holds (and never types on) stands in for the user's.
        m_seatKeyboard = std::make_unique<KeySynthesizerWayland>();
        if (!m_seatKeyboard->isAvailable()) {
            m_failure = QStringLiteral("no keyboard for the compositor's seat");
            return;
        }
    }
    m_pulse = std::make_unique<PulseAudioServer>();
    if (!m_pulse->start()) {
        m_failure = QStringLiteral("sound server: ") + m_pulse->error();
        return;
    }
    m_microphone = m_pulse->addMicrophone(
        QStringLiteral("desk_mic"), 16000, 1, QStringLiteral("Desk Microphone"));
    if (!m_microphone || !m_pulse->setDefaultSource(QStringLiteral("desk_mic"))) {
        m_failure = QStringLiteral("no virtual microphone");
        return;
    }
    if (m_options.scriptedFinal) {
        if (!startScriptedEngine()) {
            return;
        }
    } else {
        if (!m_installation && !prepareRuntime()) {
            return;
        }
        m_port = freePort();
    }
    writeSettings();
    m_editor = std::make_unique<testing::TestEditor>(*m_desktop, m_options.editorTitle);
    if (!m_editor->isReady() || !m_editor->activate()) {
        m_failure = QStringLiteral("the test editor did not come up");
    }
}

DictationDesk::~DictationDesk()
{
    if (isSayvoRunning()) {
        quitSayvo();
    }
    if (m_sayvo && m_sayvo->state() != QProcess::NotRunning) {
        m_sayvo->kill();
        m_sayvo->waitForFinished(3000);
    }
    // An engine that outlived Sayvo would keep the port: end it here, and let the test say so.
    for (qint64 pid : enginePids()) {
        ::kill(static_cast<pid_t>(pid), SIGKILL);
    }
    m_editor.reset();
    m_microphone.reset();
    m_pulse.reset();
    m_portal.reset();
    m_seatKeyboard.reset();
    m_desktop.reset();
}

std::unique_ptr<DictationDesk> DictationDesk::launched(Options options, QString &failure)
{
    auto desk = std::make_unique<DictationDesk>(std::move(options));
    if (!desk->isReady()) {
        failure = desk->failure();
        return nullptr;
    }
    if (!desk->launchSayvo()) {
        failure = desk->log().join(QLatin1Char('\n'));
        return nullptr;
    }
    return desk;
}

bool DictationDesk::startScriptedEngine()
{
    m_engine = std::make_unique<TestEngine>();
    if (!m_engine->listen()) {
        m_failure = QStringLiteral("the scripted engine could not listen");
        return false;
    }
    m_port = m_engine->port();
    m_engine->answerEveryEndWith(*m_options.scriptedFinal, Stats {1.0, 8, 300.0, 0.2, 0.1, 0, 0.0});
    return true;
}

bool DictationDesk::prepareRuntime()
{
    const QString payload = QStringLiteral(SAYVO_ENGINE_PAYLOAD_DIR);
    const QString installRoot = m_home.filePath(QStringLiteral("runtime"));
    const auto output = runTool(payload + QStringLiteral("/scripts/bootstrap_runtime.sh"),
        {QStringLiteral("--payload"), payload, QStringLiteral("--install-root"), installRoot,
            QStringLiteral("--version"), QStringLiteral("dev")});
    if (!output) {
        m_failure = QStringLiteral("the engine runtime could not be built");
        return false;
    }
    m_runtimeApp = installRoot + QStringLiteral("/app");
    return true;
}

QString DictationDesk::settingsFile() const
{
    return m_home.filePath(QStringLiteral("config/SayvoApp/Sayvo.conf"));
}

void DictationDesk::writeSettings()
{
    QDir().mkpath(QFileInfo(settingsFile()).absolutePath());
    QSettings file(settingsFile(), QSettings::IniFormat);
    file.setValue(
        QStringLiteral("sayvo.endpointURL"), QStringLiteral("ws://127.0.0.1:%1").arg(m_port));
    file.setValue(QStringLiteral("sayvo.hotkeyTrigger"), QStringLiteral("f5"));
    for (auto it = m_options.settings.cbegin(); it != m_options.settings.cend(); ++it) {
        file.setValue(it.key(), it.value());
    }
    file.sync();
}

QProcessEnvironment DictationDesk::sayvoEnvironment() const
{
    QProcessEnvironment environment = m_desktop->environment();
    // Sayvo picks Qt's platform itself from the session.
    environment.remove(QStringLiteral("QT_QPA_PLATFORM"));
    environment.insert(QStringLiteral("PULSE_SERVER"), m_pulse->address());
    environment.insert(
        QStringLiteral("XDG_CONFIG_HOME"), m_home.filePath(QStringLiteral("config")));
    environment.insert(QStringLiteral("XDG_DATA_HOME"), m_home.filePath(QStringLiteral("data")));
    if (m_options.portal) {
        environment.insert(
            QStringLiteral("SAYVO_TEST_IGNORE_WLROOTS_PROTOCOLS"), QStringLiteral("1"));
    }
    if (!m_runtimeApp.isEmpty()) {
        environment.insert(QStringLiteral("SAYVO_RUNTIME_ROOT"), m_runtimeApp);
    }
    environment.insert(QStringLiteral("SAYVO_ENGINE_ASR"), m_options.asr);
    environment.insert(
        QStringLiteral("SAYVO_ENGINE_DATA_DIR"), m_home.filePath(QStringLiteral("engine-data")));
    if (m_installation) {
        for (auto it = m_installation->environment.cbegin();
             it != m_installation->environment.cend(); ++it) {
            environment.insert(it.key(), it.value());
        }
    }
    return environment;
}

QString DictationDesk::sayvoBinary() const
{
    return m_installation ? m_installation->sayvoBinary : QStringLiteral(SAYVO_APP_BINARY);
}

bool DictationDesk::launchSayvo(int timeoutMs)
{
    if (!startSayvo()) {
        return false;
    }
    if (!waitForLog(QRegularExpression(QStringLiteral("connected: server=.* mock=")), timeoutMs)) {
        return false;
    }
    // The desktop's shortcut presses nothing before Sayvo has bound it, nor is anything typed
    // before the desktop let Sayvo type.
    if (m_portal
        && (!waitForLog(QRegularExpression(QStringLiteral(
                            "trigger key: desktop portal .*\\(The desktop's shortcut")),
                timeoutMs)
            || !waitForLog(
                // Without a clipboard the allowed keystrokes type the text.
                QRegularExpression(QStringLiteral("pasting: desktop portal .*\\(Types the text")),
                timeoutMs))) {
        return false;
    }
    // With no tray host on this desktop the settings window opens at launch and takes the
    // focus; a user clicks back into the field they type in before dictating.
    if (countLog(QRegularExpression(QStringLiteral("no system tray"))) > 0) {
        return m_editor->activate();
    }
    return true;
}

bool DictationDesk::startSayvo()
{
    if (!isReady()) {
        return false;
    }
    const QProcessEnvironment environment = sayvoEnvironment();
    m_sayvo = std::make_unique<QProcess>();
    m_sayvo->setProcessEnvironment(environment);
    m_sayvo->setProcessChannelMode(QProcess::MergedChannels);
    QObject::connect(m_sayvo.get(), &QProcess::readyRead, [this] { readOutput(); });
    m_log.clear();
    m_sayvo->start(sayvoBinary(), {});
    return m_sayvo->waitForStarted(5000);
}

bool DictationDesk::quitSayvo(int timeoutMs)
{
    if (!isSayvoRunning()) {
        return true;
    }
    ::kill(static_cast<pid_t>(m_sayvo->processId()), SIGTERM);
    return QTest::qWaitFor([this] { return m_sayvo->state() == QProcess::NotRunning; }, timeoutMs);
}

bool DictationDesk::isSayvoRunning() const
{
    return m_sayvo && m_sayvo->state() != QProcess::NotRunning;
}

bool DictationDesk::crashed() const
{
    return m_sayvo && m_sayvo->state() == QProcess::NotRunning
        && m_sayvo->exitStatus() == QProcess::CrashExit;
}

qint64 DictationDesk::sayvoPid() const
{
    return m_sayvo ? m_sayvo->processId() : 0;
}

QProcess::ExitStatus DictationDesk::sayvoExitStatus() const
{
    return m_sayvo ? m_sayvo->exitStatus() : QProcess::NormalExit;
}

int DictationDesk::sayvoExitCode() const
{
    return m_sayvo ? m_sayvo->exitCode() : 0;
}

void DictationDesk::readOutput()
{
    m_partialLine += m_sayvo->readAll();
    qsizetype newline = 0;
    while ((newline = m_partialLine.indexOf('\n')) >= 0) {
        m_log.append(QString::fromUtf8(m_partialLine.left(newline)));
        m_partialLine.remove(0, newline + 1);
    }
}

QStringList DictationDesk::log()
{
    if (m_sayvo) {
        readOutput();
    }
    return m_log;
}

bool DictationDesk::waitForLog(const QRegularExpression &pattern, int timeoutMs)
{
    return QTest::qWaitFor(
        [&] {
            const QStringList lines = log();
            return std::any_of(lines.begin(), lines.end(),
                [&](const QString &line) { return pattern.match(line).hasMatch(); });
        },
        timeoutMs);
}

int DictationDesk::countLog(const QRegularExpression &pattern)
{
    const QStringList lines = log();
    return static_cast<int>(std::count_if(lines.begin(), lines.end(),
        [&](const QString &line) { return pattern.match(line).hasMatch(); }));
}

QStringList DictationDesk::states()
{
    QStringList states;
    static const QRegularExpression statePattern(QStringLiteral("state: (.*)$"));
    for (const QString &line : log()) {
        if (line.contains(QStringLiteral("engine state:"))) {
            continue;
        }
        const auto match = statePattern.match(line);
        if (match.hasMatch()) {
            states << match.captured(1);
        }
    }
    return states;
}

void DictationDesk::pressTrigger(const QString &key)
{
    if (m_portal) {
        m_portal->emitSignal(QStringLiteral("Activated"), QStringLiteral("dictate"));
        return;
    }
    if (m_options.wayland) {
        trigger(QStringLiteral("press"));
        return;
    }
    m_desktop->run(QStringLiteral("xdotool"), {QStringLiteral("keydown"), key});
}

void DictationDesk::releaseTrigger(const QString &key)
{
    if (m_portal) {
        m_portal->emitSignal(QStringLiteral("Deactivated"), QStringLiteral("dictate"));
        return;
    }
    if (m_options.wayland) {
        trigger(QStringLiteral("release"));
        return;
    }
    m_desktop->run(QStringLiteral("xdotool"), {QStringLiteral("keyup"), key});
}

int DictationDesk::trigger(const QString &verb)
{
    // Run to its end while this process's event loop keeps a scripted engine answering.
    QProcess command;
    command.setProcessEnvironment(sayvoEnvironment());
    command.start(sayvoBinary(), {QStringLiteral("trigger"), verb});
    if (!command.waitForStarted(5000)
        || !QTest::qWaitFor([&] { return command.state() == QProcess::NotRunning; }, 10000)) {
        command.kill();
        command.waitForFinished(2000);
        return -1;
    }
    return command.exitStatus() == QProcess::NormalExit ? command.exitCode() : -1;
}

void DictationDesk::speak(const QByteArray &pcm)
{
    m_microphone->play(pcm);
}

QByteArray DictationDesk::synthesize(const QString &text)
{
    const QString cacheDir = QDir::tempPath() + QStringLiteral("/sayvo-speech-cache");
    QDir().mkpath(cacheDir);
    const QString key = QString::fromLatin1(
        QCryptographicHash::hash(text.toUtf8(), QCryptographicHash::Sha1).toHex());
    const QString raw = cacheDir + QStringLiteral("/%1.raw").arg(key);
    if (!QFile::exists(raw)) {
        const QString wav = cacheDir + QStringLiteral("/%1.wav").arg(key);
        QProcess festival;
        festival.start(QStringLiteral("text2wave"),
            {QStringLiteral("-eval"), QStringLiteral("(voice_cmu_us_slt_arctic_hts)"),
                QStringLiteral("-o"), wav});
        festival.waitForStarted(5000);
        festival.write(text.toUtf8() + '\n');
        festival.closeWriteChannel();
        if (!festival.waitForFinished(60000) || festival.exitCode() != 0) {
            return {};
        }
        if (!runTool(QStringLiteral("sox"),
                {wav, QStringLiteral("-r"), QStringLiteral("16000"), QStringLiteral("-c"),
                    QStringLiteral("1"), QStringLiteral("-b"), QStringLiteral("16"),
                    QStringLiteral("-e"), QStringLiteral("signed-integer"), QStringLiteral("-t"),
                    QStringLiteral("raw"), raw + ".part"})) {
            return {};
        }
        QFile::rename(raw + ".part", raw);
    }
    QFile file(raw);
    if (!file.open(QIODevice::ReadOnly)) {
        return {};
    }
    return file.readAll();
}

bool DictationDesk::dictate(const QByteArray &pcm, int timeoutMs)
{
    static const QRegularExpression outcome(
        QStringLiteral("state: (success|error|emptyTranscript)"));
    const int before = countLog(outcome);
    pressTrigger();
    // The sound server drops what the microphone hears before Sayvo's record stream exists,
    // which on a busy machine can be a while after "listening".
    if (!waitForLog(QRegularExpression(QStringLiteral("state: listening")), 5000)
        || !QTest::qWaitFor([this] { return m_pulse->recordStreamCount() > 0; }, 10000)) {
        releaseTrigger();
        return false;
    }
    speak(pcm);
    // Trailing silence, as a speaker pauses before letting go of the key.
    speak(QByteArray(6400, '\0'));
    releaseTrigger();
    return QTest::qWaitFor([&] { return countLog(outcome) > before; }, timeoutMs);
}

QByteArray DictationDesk::clipboard()
{
    if (m_options.wayland) {
        return m_desktop->run(QStringLiteral("wl-paste"), {QStringLiteral("--no-newline")});
    }
    return m_desktop->run(QStringLiteral("xclip"),
        {QStringLiteral("-selection"), QStringLiteral("clipboard"), QStringLiteral("-o")});
}

QString DictationDesk::closeStandInSettingsWindow()
{
    if (countLog(QRegularExpression(QStringLiteral("no system tray"))) == 0) {
        return {};
    }
    // The window is mapped a little after the log line; later still on a busy machine.
    const QStringList findSettings {QStringLiteral("search"), QStringLiteral("--onlyvisible"),
        QStringLiteral("--name"), QStringLiteral("^Settings")};
    const auto shown = [&] {
        int found = -1;
        m_desktop->run(QStringLiteral("xdotool"), findSettings, &found);
        return found == 0;
    };
    if (!QTest::qWaitFor(shown, 15000)) {
        return QStringLiteral("the settings window did not appear");
    }
    // Activation can fail while the window manager is still taking the new window in; the
    // user would simply press Escape again. The key goes to the focus on its own: chained
    // to the search, xdotool gives up on the release once the window it pressed into has
    // closed, and the server would hold Escape down from then on.
    const bool closed = QTest::qWaitFor(
        [&] {
            m_desktop->run(QStringLiteral("xdotool"),
                findSettings
                    + QStringList {QStringLiteral("windowactivate"), QStringLiteral("--sync")});
            m_desktop->run(
                QStringLiteral("xdotool"), {QStringLiteral("key"), QStringLiteral("Escape")});
            return !shown();
        },
        15000);
    return closed ? QString() : QStringLiteral("the settings window stayed open");
}

bool DictationDesk::screenshot(const QString &path)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    int exitCode = -1;
    m_desktop->run(QStringLiteral(SAYVO_SCREENSHOT_TOOL), {path}, &exitCode);
    return exitCode == 0 && QFile::exists(path);
}

bool DictationDesk::pressButton(
    const QString &windowTitle, const QString &buttonText, int timeoutMs)
{
    int exitCode = -1;
    // Debian's own Python, which has the GObject bindings.
    const QByteArray output = m_desktop->run(QStringLiteral("/usr/bin/python3"),
        {QStringLiteral(SAYVO_PRESS_BUTTON_SCRIPT), windowTitle, buttonText,
            QString::number(timeoutMs / 1000.0)},
        &exitCode, timeoutMs + 10000);
    if (exitCode != 0) {
        m_log.append(QString::fromUtf8(output).trimmed());
    }
    return exitCode == 0;
}

QList<qint64> DictationDesk::enginePids() const
{
    QList<qint64> pids;
    const auto listing
        = runTool(QStringLiteral("ps"), {QStringLiteral("-eo"), QStringLiteral("pid=,args=")});
    if (!listing || m_port == 0) {
        return pids;
    }
    const QString portArgument = QStringLiteral("--port %1").arg(m_port);
    for (const QByteArray &line : listing->split('\n')) {
        const QString text = QString::fromUtf8(line).trimmed();
        if (text.contains(QStringLiteral("sayvo-engine")) && text.contains(portArgument)) {
            pids << text.section(QLatin1Char(' '), 0, 0).toLongLong();
        }
    }
    return pids;
}

} // namespace sayvo::test
