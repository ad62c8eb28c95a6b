#include "support/audio/pulse/PulseAudioServer.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFileInfo>
#include <QProcessEnvironment>
#include <QThread>

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace sayvo::test {

namespace {

constexpr int kStartTimeoutMs = 15000;

} // namespace

PipeMicrophone::PipeMicrophone(QString name, int moduleIndex, int fd, int bytesPerSecond)
    : m_name(std::move(name)),
      m_moduleIndex(moduleIndex),
      m_fd(fd),
      m_bytesPerSecond(bytesPerSecond)
{ }

PipeMicrophone::~PipeMicrophone()
{
    stopStreaming();
    ::close(m_fd);
}

bool PipeMicrophone::writeAll(const char *data, qsizetype length)
{
    qsizetype written = 0;
    while (written < length) {
        const ssize_t n = ::write(m_fd, data + written, size_t(length - written));
        if (n <= 0) {
            return false;
        }
        written += n;
    }
    return true;
}

void PipeMicrophone::startStreaming()
{
    stopStreaming();
    m_streaming = true;
    m_streamer = std::thread([this] {
        const QByteArray silence(m_bytesPerSecond / 100, '\0');
        auto next = std::chrono::steady_clock::now();
        while (m_streaming) {
            if (!writeAll(silence.constData(), silence.size())) {
                return;
            }
            next += std::chrono::milliseconds(10);
            std::this_thread::sleep_until(next);
        }
    });
}

void PipeMicrophone::stopStreaming()
{
    m_streaming = false;
    if (m_streamer.joinable()) {
        m_streamer.join();
    }
}

void PipeMicrophone::play(const QByteArray &samples)
{
    const int piece = m_bytesPerSecond / 10;
    for (qsizetype offset = 0; offset < samples.size(); offset += piece) {
        const qsizetype length = std::min<qsizetype>(piece, samples.size() - offset);
        qsizetype written = 0;
        while (written < length) {
            const ssize_t n
                = ::write(m_fd, samples.constData() + offset + written, size_t(length - written));
            if (n <= 0) {
                return;
            }
            written += n;
        }
        QThread::msleep(40);
    }
}

PulseAudioServer::PulseAudioServer() = default;

PulseAudioServer::~PulseAudioServer()
{
    stop();
}

QString PulseAudioServer::address() const
{
    return QStringLiteral("unix:") + m_directory.filePath(QStringLiteral("pulse/native"));
}

void PulseAudioServer::useForThisProcess() const
{
    qputenv("PULSE_SERVER", address().toUtf8());
}

bool PulseAudioServer::start()
{
    if (!m_directory.isValid()) {
        m_error = QStringLiteral("no temporary directory");
        return false;
    }
    QDir(m_directory.path()).mkpath(QStringLiteral("pulse"));
    QDir(m_directory.path()).mkpath(QStringLiteral("home"));
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("PULSE_RUNTIME_PATH"), m_directory.filePath("pulse"));
    environment.insert(QStringLiteral("PULSE_STATE_PATH"), m_directory.filePath("pulse"));
    environment.insert(QStringLiteral("HOME"), m_directory.filePath("home"));
    environment.insert(QStringLiteral("XDG_CONFIG_HOME"), m_directory.filePath("home"));
    environment.remove(QStringLiteral("PULSE_SERVER"));

    m_daemon = std::make_unique<QProcess>();
    m_daemon->setProcessEnvironment(environment);
    m_daemon->setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_daemon->setStandardOutputFile(QProcess::nullDevice());
    // A crashed test must not leave a daemon behind.
    m_daemon->setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGTERM); });
    m_daemon->start(QStringLiteral("pulseaudio"),
        {QStringLiteral("-n"), QStringLiteral("--daemonize=no"),
            QStringLiteral("--exit-idle-time=-1"), QStringLiteral("--disallow-exit"),
            QStringLiteral("--log-level=error"),
            QStringLiteral("--load=module-native-protocol-unix auth-anonymous=1 socket=")
                + m_directory.filePath("pulse/native"),
            QStringLiteral("--load=module-null-sink")});
    if (!m_daemon->waitForStarted(kStartTimeoutMs)) {
        m_error = QStringLiteral("pulseaudio did not start: ") + m_daemon->errorString();
        return false;
    }
    const QDeadlineTimer deadline(kStartTimeoutMs);
    while (!deadline.hasExpired()) {
        if (pactl({QStringLiteral("info")}).exitCode == 0) {
            return true;
        }
        if (m_daemon->state() == QProcess::NotRunning) {
            break;
        }
        QThread::msleep(50);
    }
    m_error = QStringLiteral("pulseaudio did not answer");
    stop();
    return false;
}

void PulseAudioServer::stop()
{
    if (!m_daemon) {
        return;
    }
    if (m_daemon->state() != QProcess::NotRunning) {
        m_daemon->terminate();
        if (!m_daemon->waitForFinished(5000)) {
            m_daemon->kill();
            m_daemon->waitForFinished(5000);
        }
    }
    m_daemon.reset();
    // A later start must create a fresh socket.
    QFile::remove(m_directory.filePath("pulse/native"));
}

bool PulseAudioServer::isRunning() const
{
    return m_daemon && m_daemon->state() == QProcess::Running;
}

PulseAudioServer::Result PulseAudioServer::pactl(const QStringList &arguments) const
{
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("PULSE_SERVER"), address());
    environment.insert(QStringLiteral("HOME"), m_directory.filePath("home"));
    process.setProcessEnvironment(environment);
    process.start(QStringLiteral("pactl"), arguments);
    Result result;
    if (!process.waitForFinished(10000)) {
        process.kill();
        process.waitForFinished();
        return result;
    }
    result.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    result.output = QString::fromUtf8(process.readAllStandardOutput());
    return result;
}

std::optional<int> PulseAudioServer::loadModule(const QString &module, const QString &arguments)
{
    const Result result = pactl({QStringLiteral("load-module"), module, arguments});
    bool ok = false;
    const int index = result.output.trimmed().toInt(&ok);
    if (result.exitCode != 0 || !ok) {
        return std::nullopt;
    }
    return index;
}

bool PulseAudioServer::unloadModule(int index)
{
    return pactl({QStringLiteral("unload-module"), QString::number(index)}).exitCode == 0;
}

bool PulseAudioServer::setDefaultSource(const QString &name)
{
    return pactl({QStringLiteral("set-default-source"), name}).exitCode == 0;
}

bool PulseAudioServer::killRecordStreams()
{
    const QString cli = m_directory.filePath(QStringLiteral("pulse/cli"));
    if (!QFileInfo::exists(cli)
        && !loadModule(
            QStringLiteral("module-cli-protocol-unix"), QStringLiteral("socket=") + cli)) {
        return false;
    }
    const Result outputs = pactl(
        {QStringLiteral("list"), QStringLiteral("short"), QStringLiteral("source-outputs")});
    QByteArray commands;
    for (const QString &line : outputs.output.split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
        commands += "kill-source-output " + line.section(QLatin1Char('\t'), 0, 0).toUtf8() + "\n";
    }
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("PULSE_RUNTIME_PATH"), m_directory.filePath("pulse"));
    environment.insert(QStringLiteral("HOME"), m_directory.filePath("home"));
    process.setProcessEnvironment(environment);
    process.start(QStringLiteral("pacmd"), QStringList {});
    process.write(commands);
    process.closeWriteChannel();
    if (!process.waitForFinished(10000)) {
        process.kill();
        process.waitForFinished();
        return false;
    }
    return process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
}

int PulseAudioServer::recordStreamCount() const
{
    const Result result = pactl(
        {QStringLiteral("list"), QStringLiteral("short"), QStringLiteral("source-outputs")});
    return int(result.output.split(QLatin1Char('\n'), Qt::SkipEmptyParts).size());
}

std::unique_ptr<PipeMicrophone> PulseAudioServer::addMicrophone(const QString &name, int rate,
    int channels, const QString &description, const QString &extraProperties)
{
    const QString fifo = m_directory.filePath(name + QStringLiteral(".fifo"));
    QString properties = QStringLiteral("device.description=\"%1\"").arg(description);
    if (!extraProperties.isEmpty()) {
        properties += QLatin1Char(' ') + extraProperties;
    }
    const auto index = loadModule(QStringLiteral("module-pipe-source"),
        QStringLiteral("source_name=%1 file=%2 format=s16le rate=%3 channels=%4 "
                       "source_properties='%5'")
            .arg(name, fifo)
            .arg(rate)
            .arg(channels)
            .arg(properties));
    if (!index) {
        return nullptr;
    }
    // Read-write, so the source never sees the writer go away.
    const int fd = ::open(QFile::encodeName(fifo).constData(), O_RDWR | O_CLOEXEC);
    if (fd < 0) {
        unloadModule(*index);
        return nullptr;
    }
    return std::make_unique<PipeMicrophone>(name, *index, fd, rate * channels * 2);
}

} // namespace sayvo::test
