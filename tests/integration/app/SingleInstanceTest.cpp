// One Sayvo per user, with the real executable: a second launch hands over to the first.
#include <QDir>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

#include <csignal>

namespace {

// Sayvo without a display or sound server, on its own runtime and configuration directories.
class SingleInstanceTest : public ::testing::Test
{
protected:
    SingleInstanceTest() { QDir().mkpath(m_home.filePath(QStringLiteral("run"))); }

    std::unique_ptr<QProcess> launch()
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        for (const char *name : {"DISPLAY", "WAYLAND_DISPLAY", "DBUS_SESSION_BUS_ADDRESS",
                 "PULSE_SERVER", "SAYVO_RUNTIME_ROOT"}) {
            environment.remove(QString::fromLatin1(name));
        }
        environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
        environment.insert(QStringLiteral("HOME"), m_home.path());
        environment.insert(
            QStringLiteral("XDG_RUNTIME_DIR"), m_home.filePath(QStringLiteral("run")));
        environment.insert(
            QStringLiteral("XDG_CONFIG_HOME"), m_home.filePath(QStringLiteral("config")));
        environment.insert(
            QStringLiteral("XDG_DATA_HOME"), m_home.filePath(QStringLiteral("data")));
        environment.insert(QStringLiteral("PULSE_SERVER"), QStringLiteral("unix:/nonexistent"));
        auto process = std::make_unique<QProcess>();
        process->setProcessEnvironment(environment);
        process->setProcessChannelMode(QProcess::MergedChannels);
        process->start(QStringLiteral(SAYVO_APP_BINARY), {});
        process->waitForStarted(5000);
        return process;
    }

    // Reads everything the process printed so far into `log`.
    static bool waitForOutput(
        QProcess &process, QByteArray &log, const QByteArray &text, int timeoutMs)
    {
        return QTest::qWaitFor(
            [&] {
                log += process.readAll();
                return log.contains(text);
            },
            timeoutMs);
    }

    static void stop(QProcess &process)
    {
        ::kill(pid_t(process.processId()), SIGTERM);
        if (!process.waitForFinished(15000)) {
            process.kill();
            process.waitForFinished(3000);
        }
    }

    QTemporaryDir m_home;
};

TEST_F(SingleInstanceTest, ASecondLaunchBringsTheFirstsSettingsForwardAndEndsAtOnce)
{
    auto first = launch();
    QByteArray firstLog;
    ASSERT_TRUE(waitForOutput(*first, firstLog, "desktop (", 30000)) << firstLog.toStdString();

    auto second = launch();
    ASSERT_TRUE(QTest::qWaitFor([&] { return second->state() == QProcess::NotRunning; }, 10000))
        << second->readAll().toStdString() << "\nfirst:\n"
        << (firstLog + first->readAll()).toStdString();
    const QByteArray secondLog = second->readAll();
    EXPECT_EQ(second->exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(second->exitCode(), 0) << secondLog.toStdString();
    EXPECT_TRUE(secondLog.contains("Sayvo is already running; its settings window is in front."))
        << secondLog.toStdString();
    // It never set up dictation of its own, so it has nothing to retry or complain about.
    for (const char *line : {"desktop (", "hotkey", "Accessibility", "audio prewarm"}) {
        EXPECT_FALSE(secondLog.contains(line)) << line << " in:\n" << secondLog.toStdString();
    }
    EXPECT_TRUE(waitForOutput(*first, firstLog, "control: show settings", 5000))
        << firstLog.toStdString();
    EXPECT_EQ(first->state(), QProcess::Running);
    stop(*first);
}

TEST_F(SingleInstanceTest, AfterACrashTheNextLaunchRunsAsTheFirst)
{
    auto crashed = launch();
    QByteArray log;
    ASSERT_TRUE(waitForOutput(*crashed, log, "desktop (", 30000)) << log.toStdString();
    ::kill(pid_t(crashed->processId()), SIGKILL);
    crashed->waitForFinished(5000);

    auto next = launch();
    QByteArray nextLog;
    EXPECT_TRUE(waitForOutput(*next, nextLog, "desktop (", 30000)) << nextLog.toStdString();
    EXPECT_EQ(next->state(), QProcess::Running);
    stop(*next);
}

} // namespace
