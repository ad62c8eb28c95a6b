#include "support/engine/EngineProcess.h"

#include <QDeadlineTimer>
#include <QRegularExpression>

namespace sayvo::test {

EngineProcess::~EngineProcess()
{
    kill();
}

bool EngineProcess::start(const QStringList &arguments, int timeoutMs)
{
    QStringList args = arguments;
    args << QStringLiteral("--port") << QStringLiteral("0");
    return startCommand(QStringLiteral(SAYVO_ENGINE_BINARY), args,
        QProcessEnvironment::systemEnvironment(), timeoutMs);
}

bool EngineProcess::startCommand(const QString &program, const QStringList &arguments,
    const QProcessEnvironment &environment, int timeoutMs)
{
    m_log.clear();
    m_port = 0;
    m_process.setProcessEnvironment(environment);
    m_process.setProcessChannelMode(QProcess::MergedChannels);
    m_process.start(program, arguments);
    if (!m_process.waitForStarted(timeoutMs)) {
        return false;
    }
    return waitForListening(timeoutMs);
}

bool EngineProcess::waitForListening(int timeoutMs)
{
    static const QRegularExpression listening(QStringLiteral("listening on ws://([^\\s]+):(\\d+)"));
    QDeadlineTimer deadline(timeoutMs);
    while (!deadline.hasExpired()) {
        const auto match = listening.match(log());
        if (match.hasMatch()) {
            m_host = match.captured(1);
            m_port = static_cast<quint16>(match.captured(2).toUInt());
            return true;
        }
        if (m_process.state() == QProcess::NotRunning) {
            return false;
        }
        m_process.waitForReadyRead(50);
    }
    return false;
}

void EngineProcess::kill()
{
    if (m_process.state() != QProcess::NotRunning) {
        m_process.kill();
        m_process.waitForFinished(5000);
    }
}

QString EngineProcess::url() const
{
    return QStringLiteral("ws://127.0.0.1:%1").arg(m_port);
}

QString EngineProcess::log()
{
    m_log += QString::fromUtf8(m_process.readAll());
    return m_log;
}

} // namespace sayvo::test
