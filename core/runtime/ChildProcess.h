#pragma once

#include "base/Expected.h"

#include <QByteArray>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

#include <functional>
#include <memory>
#include <optional>

namespace sayvo {

// What to run: the program, its arguments, and the environment (absent: inherited).
struct ProcessLaunch
{
    QString program;
    QStringList arguments;
    std::optional<QProcessEnvironment> environment;
};

// Why a child could not be started, in the platform's words.
struct ProcessLaunchError
{
    QString description;
    QString describe() const { return description; }
};

// A child process whose standard output and standard error share one pipe. Created and
// driven from the main thread; the handlers run on a background thread, the output handler
// once per chunk in arrival order and the exit handler once, after the last chunk.
// Dropping the object lets a process that is still running finish in the background: a
// process that was never asked to stop is asked then.
class ChildProcess
{
public:
    using OutputHandler = std::function<void(const QByteArray &bytes)>;
    using ExitHandler = std::function<void(int status)>;

    virtual ~ChildProcess() = default;

    // Set both before start().
    virtual void setOutputHandler(OutputHandler handler) = 0;
    // The status is the exit code, or the signal number for a process killed by a signal.
    virtual void setExitHandler(ExitHandler handler) = 0;

    virtual Status<ProcessLaunchError> start(const ProcessLaunch &launch) = 0;
    virtual bool isRunning() const = 0;
    // Asks the process (and whatever it started) to stop, without waiting for it.
    virtual void terminate() = 0;
};

// Makes child processes; the seam tests replace to script launches and exits.
class ChildProcessLauncher
{
public:
    virtual ~ChildProcessLauncher() = default;

    virtual std::unique_ptr<ChildProcess> create() = 0;
    // Starts a process that is no child of ours and outlives the application, with its
    // output (both streams) in outputFile when that can be opened for writing.
    virtual Status<ProcessLaunchError> startDetached(
        const ProcessLaunch &launch, const QString &outputFile)
        = 0;
};

} // namespace sayvo
