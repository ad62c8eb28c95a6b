#pragma once

#include "runtime/EngineSupervisor.h"
#include "support/runtime/FakeChildProcess.h"
#include "support/runtime/RuntimeSandbox.h"

#include <QTest>

#include <gtest/gtest.h>

namespace sayvo::test {

// A supervisor over a sandboxed, provisioned payload whose children are fakes and whose
// port probe answers what the test says, recording what it was asked.
class SupervisorFixture : public ::testing::Test
{
protected:
    void SetUp() override
    {
        sandbox.writePayload(QStringLiteral("run_engine_stays.sh"),
            QStringLiteral("bootstrap_success.sh"), QStringLiteral("uninstall_records.sh"));
        sandbox.provision(QStringLiteral("1.0.0"));
    }

    EngineSupervisor &make(double delayScale = 0.01)
    {
        auto launcher = std::make_unique<FakeChildProcessLauncher>();
        processes = launcher->log;
        EngineSupervisor::Options options;
        options.launcher = std::move(launcher);
        options.portProbe = [this](const QString &host, int port) {
            probes.append({host, port});
            return portOpen;
        };
        options.applicationPath = QStringLiteral("/opt/Sayvo/bin/sayvo");
        options.applicationPid = 4242;
        options.delayScale = delayScale;
        options.uninstallLogPath = sandbox.root() + QStringLiteral("/state/SayvoApp/uninstall.log");
        supervisor = std::make_unique<EngineSupervisor>(
            sandbox.locator(QStringLiteral("1.0.0"), bundledEngine), std::move(options));
        return *supervisor;
    }

    std::shared_ptr<FakeProcessRecord> lastProcess() const
    {
        return processes->started.isEmpty() ? nullptr : processes->started.last();
    }
    int launches() const { return int(processes->started.size()); }
    // Lets queued deliveries from the "reader thread" reach the supervisor.
    static void settle() { QTest::qWait(5); }

    RuntimeSandbox sandbox;
    std::shared_ptr<FakeChildProcessLauncher::Log> processes;
    QList<std::pair<QString, int>> probes;
    bool portOpen = false;
    // The engine program shipped beside the payload, as a macOS bundle's helper.
    std::optional<QString> bundledEngine;
    std::unique_ptr<EngineSupervisor> supervisor;
};

inline QUrl url(const char *text)
{
    return QUrl(QString::fromUtf8(text));
}

} // namespace sayvo::test
