#include "runtime/ChildProcessQt.h"

#include <QCoreApplication>
#include <QFile>
#include <QMutex>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

#include <gtest/gtest.h>

using namespace sayvo;

namespace {

struct Observed
{
    QMutex lock;
    QByteArray output;
    std::optional<int> status;
    bool outputAfterExit = false;
    bool onMainThread = false;
};

std::unique_ptr<ChildProcess> observe(
    ChildProcessLauncher &launcher, const std::shared_ptr<Observed> &seen)
{
    std::unique_ptr<ChildProcess> process = launcher.create();
    QThread *main = QCoreApplication::instance()->thread();
    process->setOutputHandler([seen, main](const QByteArray &bytes) {
        QMutexLocker locker(&seen->lock);
        seen->output.append(bytes);
        seen->outputAfterExit |= seen->status.has_value();
        seen->onMainThread |= QThread::currentThread() == main;
    });
    process->setExitHandler([seen, main](int status) {
        QMutexLocker locker(&seen->lock);
        seen->status = status;
        seen->onMainThread |= QThread::currentThread() == main;
    });
    return process;
}

bool waitForExit(const std::shared_ptr<Observed> &seen)
{
    return QTest::qWaitFor(
        [&] {
            QMutexLocker locker(&seen->lock);
            return seen->status.has_value();
        },
        5000);
}

TEST(ChildProcessQt, OutputOfBothStreamsThenExitOffTheMainThread)
{
    ChildProcessLauncherQt launcher;
    auto seen = std::make_shared<Observed>();
    auto process = observe(launcher, seen);
    const auto started = process->start({QStringLiteral("/bin/bash"),
        {QStringLiteral("-c"), QStringLiteral("echo out; echo err >&2; printf tail; exit 7")},
        std::nullopt});
    ASSERT_TRUE(started);
    ASSERT_TRUE(waitForExit(seen));
    QMutexLocker locker(&seen->lock);
    EXPECT_EQ(seen->output, QByteArray("out\nerr\ntail"));
    EXPECT_EQ(seen->status, 7);
    EXPECT_FALSE(seen->outputAfterExit);
    EXPECT_FALSE(seen->onMainThread);
    EXPECT_FALSE(process->isRunning());
}

TEST(ChildProcessQt, EnvironmentIsTheGivenOne)
{
    ChildProcessLauncherQt launcher;
    auto seen = std::make_shared<Observed>();
    auto process = observe(launcher, seen);
    QProcessEnvironment environment;
    environment.insert(QStringLiteral("ONLY_THIS"), QStringLiteral("yes"));
    ASSERT_TRUE(process->start({QStringLiteral("/bin/bash"),
        {QStringLiteral("-c"), QStringLiteral("echo \"$ONLY_THIS ${HOME-nohome}\"")},
        environment}));
    ASSERT_TRUE(waitForExit(seen));
    QMutexLocker locker(&seen->lock);
    EXPECT_EQ(seen->output, QByteArray("yes nohome\n"));
}

TEST(ChildProcessQt, ProgramThatCannotStartIsDescribed)
{
    ChildProcessLauncherQt launcher;
    auto process = launcher.create();
    const auto started
        = process->start({QStringLiteral("/nonexistent/sayvo-engine"), {}, std::nullopt});
    ASSERT_FALSE(started);
    EXPECT_FALSE(started.error().describe().isEmpty());
    EXPECT_FALSE(process->isRunning());
}

TEST(ChildProcessQt, TerminateStopsTheWholeGroup)
{
    QTemporaryDir dir;
    ChildProcessLauncherQt launcher;
    auto seen = std::make_shared<Observed>();
    auto process = observe(launcher, seen);
    const QString pidFile = dir.filePath(QStringLiteral("pid"));
    ASSERT_TRUE(process->start({QStringLiteral("/bin/bash"),
        {QStringLiteral("-c"), QStringLiteral("sleep 600 & echo $! > %1; wait").arg(pidFile)},
        std::nullopt}));
    ASSERT_TRUE(QTest::qWaitFor([&] { return QFile(pidFile).size() > 0; }, 5000));
    QFile file(pidFile);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const pid_t sleeper = file.readAll().trimmed().toInt();
    EXPECT_TRUE(process->isRunning());
    process->terminate();
    ASSERT_TRUE(waitForExit(seen));
    EXPECT_EQ(seen->status, 15);
    EXPECT_TRUE(QTest::qWaitFor([&] { return ::kill(sleeper, 0) != 0; }, 2000));
}

TEST(ChildProcessQt, DetachedOutputOfBothStreamsGoesToTheFile)
{
    QTemporaryDir dir;
    const QString log = dir.filePath(QStringLiteral("detached.log"));
    {
        QFile stale(log);
        ASSERT_TRUE(stale.open(QIODevice::WriteOnly));
        stale.write("old contents that must go\n");
    }
    ChildProcessLauncherQt launcher;
    ASSERT_TRUE(launcher.startDetached(
        {QStringLiteral("/bin/bash"),
            {QStringLiteral("-c"), QStringLiteral("echo one; echo two >&2; echo three")},
            std::nullopt},
        log));
    QByteArray contents;
    ASSERT_TRUE(QTest::qWaitFor(
        [&] {
            QFile file(log);
            contents = file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
            return contents.count('\n') == 3;
        },
        5000));
    EXPECT_EQ(contents, QByteArray("one\ntwo\nthree\n"));
}

} // namespace
