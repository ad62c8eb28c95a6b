#pragma once

#include "runtime/ChildProcess.h"

#include <QThread>

namespace sayvo {

class ProcessHost;

// Child processes through QProcess. Every process is driven by one I/O thread that the
// launcher owns, so their output is read off the main thread. Each child runs in a process
// group of its own; terminate() signals the whole group (the shell and the engine it starts)
// and kills what is still there kTerminateGraceMs later. When the child ends on its own, the
// rest of its group is ended the same way. Destroying the launcher waits for
// the rest of that grace period and kills what remains, so no child outlives it.
class ChildProcessLauncherQt : public ChildProcessLauncher
{
public:
    ChildProcessLauncherQt();
    ~ChildProcessLauncherQt() override;

    std::unique_ptr<ChildProcess> create() override;
    Status<ProcessLaunchError> startDetached(
        const ProcessLaunch &launch, const QString &outputFile) override;

    static constexpr int kTerminateGraceMs = 3000;

private:
    QThread m_ioThread;
    QObject *m_registry; // lives on the I/O thread; parent of every ProcessHost
};

} // namespace sayvo
