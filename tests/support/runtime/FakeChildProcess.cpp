#include "support/runtime/FakeChildProcess.h"

namespace sayvo::test {

namespace {

class FakeChildProcess : public ChildProcess
{
public:
    explicit FakeChildProcess(std::shared_ptr<FakeChildProcessLauncher::Log> log)
        : m_log(std::move(log))
    { }

    ~FakeChildProcess() override
    {
        if (m_record) {
            m_record->dropped = true;
        }
    }

    void setOutputHandler(OutputHandler handler) override { m_output = std::move(handler); }
    void setExitHandler(ExitHandler handler) override { m_exit = std::move(handler); }

    Status<ProcessLaunchError> start(const ProcessLaunch &launch) override
    {
        if (m_log->failStartWith) {
            return ProcessLaunchError {*m_log->failStartWith};
        }
        m_record = std::make_shared<FakeProcessRecord>();
        m_record->launch = launch;
        m_record->output = m_output;
        m_record->exit = m_exit;
        m_record->running = true;
        m_log->started.append(m_record);
        return {};
    }

    bool isRunning() const override { return m_record && m_record->running; }

    void terminate() override
    {
        if (m_record) {
            m_record->terminated = true;
            if (m_record->onTerminate) {
                m_record->onTerminate();
            }
        }
    }

private:
    std::shared_ptr<FakeChildProcessLauncher::Log> m_log;
    std::shared_ptr<FakeProcessRecord> m_record;
    OutputHandler m_output;
    ExitHandler m_exit;
};

} // namespace

void FakeProcessRecord::write(const QByteArray &bytes) const
{
    if (output) {
        output(bytes);
    }
}

void FakeProcessRecord::exitWith(int status)
{
    running = false;
    if (exit) {
        exit(status);
    }
}

std::unique_ptr<ChildProcess> FakeChildProcessLauncher::create()
{
    ++log->created;
    return std::make_unique<FakeChildProcess>(log);
}

Status<ProcessLaunchError> FakeChildProcessLauncher::startDetached(
    const ProcessLaunch &launch, const QString &outputFile)
{
    if (log->failDetachedWith) {
        return ProcessLaunchError {*log->failDetachedWith};
    }
    log->detached.append({launch, outputFile});
    return {};
}

} // namespace sayvo::test
