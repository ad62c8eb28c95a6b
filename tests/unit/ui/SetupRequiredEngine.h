#pragma once

#include "runtime/EngineSupervisor.h"
#include "support/runtime/FakeChildProcess.h"
#include "support/runtime/RuntimeSandbox.h"

#include <QUrl>

#include <memory>

namespace sayvo::test {

// A supervisor for a local endpoint whose runtime still needs setting up, with fake child
// processes: what the engine set-up window shows on a first run.
struct SetupRequiredEngine
{
    SetupRequiredEngine()
    {
        sandbox.writePayload(QStringLiteral("run_engine_stays.sh"));
        EngineSupervisor::Options options;
        auto launcher = std::make_unique<FakeChildProcessLauncher>();
        launches = launcher->log;
        options.launcher = std::move(launcher);
        options.portProbe = [](const QString &, int) { return false; };
        supervisor = std::make_unique<EngineSupervisor>(sandbox.locator(), std::move(options));
        supervisor->start(QUrl(QStringLiteral("ws://127.0.0.1:8765")));
    }

    RuntimeSandbox sandbox;
    std::shared_ptr<FakeChildProcessLauncher::Log> launches;
    std::unique_ptr<EngineSupervisor> supervisor;
};

} // namespace sayvo::test
