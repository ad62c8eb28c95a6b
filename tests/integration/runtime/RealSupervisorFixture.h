#pragma once

#include "runtime/EngineSupervisor.h"
#include "support/runtime/RuntimeSandbox.h"

#include <QTcpServer>
#include <QTest>

#include <gtest/gtest.h>

namespace sayvo::test {

// A supervisor that runs the sandbox's fixture scripts as real children. At the end of every
// test the supervisor is destroyed and every process the fixtures recorded must be gone.
class RealSupervisorFixture : public ::testing::Test
{
protected:
    void TearDown() override
    {
        supervisor.reset();
        const QList<pid_t> pids = sandbox.recordedPids();
        EXPECT_TRUE(waitUntilGone(pids, 5000)) << "a fixture process outlived the supervisor";
    }

    EngineSupervisor &make(const QString &appVersion = QStringLiteral("1.0.0"),
        double delayScale = 1.0, EngineSupervisor::PortProbe probe = {})
    {
        EngineSupervisor::Options options;
        options.delayScale = delayScale;
        options.portProbe = std::move(probe);
        options.applicationPath = QStringLiteral("/opt/Sayvo/bin/sayvo");
        options.uninstallLogPath = sandbox.root() + QStringLiteral("/state/SayvoApp/uninstall.log");
        supervisor
            = std::make_unique<EngineSupervisor>(sandbox.locator(appVersion), std::move(options));
        return *supervisor;
    }

    // A loopback port nobody listens on at the moment.
    static int freePort()
    {
        QTcpServer server;
        EXPECT_TRUE(server.listen(QHostAddress::LocalHost));
        return server.serverPort();
    }

    static QUrl loopback(int port) { return QUrl(QStringLiteral("ws://127.0.0.1:%1").arg(port)); }

    bool waitForState(const EngineState &state, int timeoutMs = 5000)
    {
        return QTest::qWaitFor([&] { return supervisor->state() == state; }, timeoutMs);
    }
    bool waitForLog(const QString &text, int timeoutMs = 5000)
    {
        return QTest::qWaitFor([&] { return supervisor->log().contains(text); }, timeoutMs);
    }
    bool waitForLines(const QString &file, int count, int timeoutMs = 5000)
    {
        return QTest::qWaitFor([&] { return sandbox.readLines(file).size() >= count; }, timeoutMs);
    }

    RuntimeSandbox sandbox;
    std::unique_ptr<EngineSupervisor> supervisor;
};

} // namespace sayvo::test
