#pragma once

#include <QProcess>
#include <QString>
#include <QStringList>

namespace sayvo::test {

// A sayvo-engine child process on a free loopback port. Start blocks until the engine
// says it listens; the destructor kills it. Test thread only.
class EngineProcess
{
public:
    EngineProcess() = default;
    ~EngineProcess();

    // Arguments besides --port (which is always 0, a free port) go to the engine as given.
    bool start(const QStringList &arguments, int timeoutMs = 15000);
    // Runs an arbitrary command (e.g. run_engine.sh) that ends up exec'ing the engine.
    bool startCommand(const QString &program, const QStringList &arguments,
        const QProcessEnvironment &environment, int timeoutMs = 15000);
    void kill();

    quint16 port() const { return m_port; }
    QString host() const { return m_host; }
    QString url() const;
    // Everything the engine wrote to standard error so far.
    QString log();
    qint64 pid() const { return m_process.processId(); }
    bool isRunning() const { return m_process.state() != QProcess::NotRunning; }

private:
    bool waitForListening(int timeoutMs);

    QProcess m_process;
    QString m_log;
    QString m_host;
    quint16 m_port = 0;
};

} // namespace sayvo::test
