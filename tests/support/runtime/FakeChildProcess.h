#pragma once

#include "runtime/ChildProcess.h"

#include <QList>

#include <functional>
#include <memory>

namespace sayvo::test {

// What happened to one fake child; outlives the process object so tests can look after the
// supervisor has dropped it.
struct FakeProcessRecord
{
    ProcessLaunch launch;
    ChildProcess::OutputHandler output;
    ChildProcess::ExitHandler exit;
    bool running = false;
    bool terminated = false;
    bool dropped = false;
    // Runs when the child is told to terminate.
    std::function<void()> onTerminate;

    // Plays the child's side: output as the reader thread would hand it over, and the exit.
    void write(const QByteArray &bytes) const;
    void exitWith(int status);
};

// A launcher whose children run nothing: tests drive their output and exits by hand.
class FakeChildProcessLauncher : public ChildProcessLauncher
{
public:
    struct Detached
    {
        ProcessLaunch launch;
        QString outputFile;
    };

    std::unique_ptr<ChildProcess> create() override;
    Status<ProcessLaunchError> startDetached(
        const ProcessLaunch &launch, const QString &outputFile) override;

    // Shared so that a test keeps a view after handing the launcher to the supervisor.
    struct Log
    {
        QList<std::shared_ptr<FakeProcessRecord>> started;
        QList<Detached> detached;
        int created = 0;
        std::optional<QString> failStartWith;
        std::optional<QString> failDetachedWith;
    };
    std::shared_ptr<Log> log = std::make_shared<Log>();
};

} // namespace sayvo::test
