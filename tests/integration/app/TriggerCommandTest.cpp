// `sayvo trigger press|release|toggle`, the real executable, against an instance channel in
// this process (or none, a stale socket, a silent one, another user).
#include "runtime/InstanceChannel.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

using namespace sayvo;

namespace {

constexpr unsigned kOtherUser = 65534;

struct Outcome
{
    int exitCode = -1;
    QByteArray standardOutput;
    QByteArray standardError;
    qint64 elapsedMs = 0;
};

// A bound Unix socket at `path`: listening (never accepting) or, closed at once, the file a
// crashed instance leaves behind.
int bindSocket(const QString &path, bool listening)
{
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address {};
    address.sun_family = AF_UNIX;
    const QByteArray name = QFile::encodeName(path);
    std::memcpy(address.sun_path, name.constData(), size_t(name.size()));
    ::bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address);
    if (listening) {
        ::listen(fd, 4);
        return fd;
    }
    ::close(fd);
    return -1;
}

class TriggerCommandTest : public ::testing::Test
{
protected:
    QString directory() const { return m_runtime.path() + QStringLiteral("/sayvo"); }

    // Runs the command to its end while this process's event loop answers for the channel.
    Outcome trigger(const QStringList &arguments, bool asOtherUser = false)
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("XDG_RUNTIME_DIR"), m_runtime.path());
        // It needs no display.
        environment.remove(QStringLiteral("DISPLAY"));
        environment.remove(QStringLiteral("WAYLAND_DISPLAY"));
        QString program = QStringLiteral(SAYVO_APP_BINARY);
        QStringList all = QStringList {QStringLiteral("trigger")} + arguments;
        if (asOtherUser) {
            all.prepend(program);
            all.prepend(QStringLiteral("--clear-groups"));
            all.prepend(QStringLiteral("--regid=%1").arg(kOtherUser));
            all.prepend(QStringLiteral("--reuid=%1").arg(kOtherUser));
            program = QStringLiteral("setpriv");
        }
        QProcess process;
        process.setProcessEnvironment(environment);
        QElapsedTimer clock;
        clock.start();
        process.start(program, all);
        Outcome outcome;
        if (!process.waitForStarted(5000)
            || !QTest::qWaitFor([&] { return process.state() == QProcess::NotRunning; }, 10000)) {
            process.kill();
            process.waitForFinished(2000);
            return outcome;
        }
        outcome.elapsedMs = clock.elapsed();
        outcome.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
        outcome.standardOutput = process.readAllStandardOutput();
        outcome.standardError = process.readAllStandardError();
        return outcome;
    }

    void startInstance()
    {
        m_channel = std::make_unique<InstanceChannel>(directory());
        ASSERT_EQ(m_channel->claim(), InstanceChannel::Claim::first)
            << m_channel->failure().toStdString();
        ASSERT_TRUE(m_channel->listen()) << m_channel->failure().toStdString();
        m_channel->setHandler([this](ControlRequest request) { m_requests.push_back(request); });
    }

    QTemporaryDir m_runtime;
    std::unique_ptr<InstanceChannel> m_channel;
    std::vector<ControlRequest> m_requests;
};

TEST_F(TriggerCommandTest, EachVerbIsDeliveredAndTheCommandExitsZero)
{
    startInstance();
    for (const char *verb : {"press", "release", "toggle"}) {
        const Outcome outcome = trigger({QString::fromLatin1(verb)});
        EXPECT_EQ(outcome.exitCode, 0) << verb << ": " << outcome.standardError.toStdString();
        EXPECT_TRUE(outcome.standardError.isEmpty()) << outcome.standardError.toStdString();
    }
    EXPECT_EQ(m_requests,
        (std::vector {ControlRequest::triggerPress, ControlRequest::triggerRelease,
            ControlRequest::triggerToggle}));
}

TEST_F(TriggerCommandTest, WithoutARunningSayvoItSaysSoOnOneLineAndExitsOne)
{
    const Outcome outcome = trigger({QStringLiteral("press")});
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_EQ(outcome.standardError, "sayvo trigger: Sayvo is not running.\n");
    EXPECT_LT(outcome.elapsedMs, 2000);
}

TEST_F(TriggerCommandTest, ASocketLeftByACrashIsNotRunningAndTheNextSayvoTakesItsPlace)
{
    QDir().mkpath(directory());
    bindSocket(QString::fromStdString(instanceSocketPath(directory().toStdString())), false);
    ASSERT_TRUE(
        QFile::exists(QString::fromStdString(instanceSocketPath(directory().toStdString()))));
    const Outcome stale = trigger({QStringLiteral("press")});
    EXPECT_EQ(stale.exitCode, 1);
    EXPECT_EQ(stale.standardError, "sayvo trigger: Sayvo is not running.\n");
    EXPECT_LT(stale.elapsedMs, 2000);

    startInstance();
    EXPECT_EQ(trigger({QStringLiteral("press")}).exitCode, 0);
    EXPECT_EQ(m_requests, (std::vector {ControlRequest::triggerPress}));
}

TEST_F(TriggerCommandTest, AnInstanceThatNeverAnswersEndsTheCommandWithinTwoSeconds)
{
    QDir().mkpath(directory());
    const int silent
        = bindSocket(QString::fromStdString(instanceSocketPath(directory().toStdString())), true);
    const Outcome outcome = trigger({QStringLiteral("release")});
    ::close(silent);
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_EQ(outcome.standardError, "sayvo trigger: Sayvo is running but does not answer.\n");
    EXPECT_LT(outcome.elapsedMs, 2000);
}

TEST_F(TriggerCommandTest, AWrongCommandLinePrintsTheUsageAndExitsTwo)
{
    startInstance();
    for (const QStringList &arguments : {QStringList {}, QStringList {QStringLiteral("jump")},
             QStringList {QStringLiteral("press"), QStringLiteral("now")},
             QStringList {QStringLiteral("PRESS")}}) {
        const Outcome outcome = trigger(arguments);
        EXPECT_EQ(outcome.exitCode, 2) << arguments.join(' ').toStdString();
        EXPECT_TRUE(outcome.standardError.startsWith("sayvo: "))
            << outcome.standardError.toStdString();
        EXPECT_TRUE(outcome.standardError.contains("sayvo trigger press|release|toggle"))
            << outcome.standardError.toStdString();
        EXPECT_TRUE(outcome.standardOutput.isEmpty());
    }
    EXPECT_TRUE(m_requests.empty());
}

TEST_F(TriggerCommandTest, AnotherUsersCommandCannotReachThisInstance)
{
    if (::geteuid() != 0) {
        GTEST_SKIP() << "running a command as another user needs root";
    }
    startInstance();
    // The other user's command, pointed at this user's runtime directory.
    const Outcome barred = trigger({QStringLiteral("press")}, true);
    EXPECT_EQ(barred.exitCode, 1) << barred.standardError.toStdString();
    // Even with every permission on the way opened, the instance refuses the other user.
    ::chmod(QFile::encodeName(m_runtime.path()).constData(), 0755);
    ::chmod(QFile::encodeName(directory()).constData(), 0777);
    ::chmod(QFile::encodeName(QString::fromStdString(instanceSocketPath(directory().toStdString())))
                .constData(),
        0777);
    const Outcome refused = trigger({QStringLiteral("press")}, true);
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_EQ(refused.standardError, "sayvo trigger: the running Sayvo refused the request.\n");
    EXPECT_TRUE(m_requests.empty());
    // This user's command still gets through.
    EXPECT_EQ(trigger({QStringLiteral("press")}).exitCode, 0);
}

} // namespace
