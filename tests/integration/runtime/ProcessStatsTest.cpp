// The platform's process statistics against real processes that use a known share of a core.
#include "runtime/ProcessStats.h"
#include "runtime/FootprintSampler.h"

#include <QProcess>
#include <QTest>

#include <gtest/gtest.h>

#include <chrono>

using namespace sayvo;

namespace {

const QString kBurner = QStringLiteral(SAYVO_CPU_BURNER);

double secondsSince(std::chrono::steady_clock::time_point from)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - from).count();
}

// CPU seconds the burners reported in `output`.
double reportedCpu(const QString &output)
{
    double total = 0.0;
    for (const QString &line : output.split('\n')) {
        if (line.startsWith(QLatin1String("cpu="))) {
            total += line.mid(4).toDouble();
        }
    }
    return total;
}

// Starts a burner that spins until it has used `busyMs` of CPU (longer on a loaded machine)
// and then idles, and returns once it idles; what it printed is in `output`.
void burnThenIdle(QProcess &burner, int busyMs, QString &output)
{
    burner.start(kBurner,
        {QStringLiteral("100"), QStringLiteral("0"), QString::number(busyMs),
            QStringLiteral("10000")});
    ASSERT_TRUE(QTest::qWaitFor(
        [&] {
            output += QString::fromUtf8(burner.readAllStandardOutput());
            return output.contains(QLatin1String("idle"));
        },
        120000));
}

TEST(ProcessStats, ChildrenThatCameAndWentCountAsTheCpuTheyUsedMeanwhile)
{
    // A shell that, once told, runs four short burners one after the other (each spinning
    // until it has used 150 ms of CPU) and then waits: by the second reading they are gone,
    // and only the shell is left to account for them.
    QProcess shell;
    shell.start(QStringLiteral("bash"),
        {QStringLiteral("-c"),
            QStringLiteral(
                R"(read go; for i in 1 2 3 4; do "$0" 100 0 150; done; echo finished; read done)"),
            kBurner});
    ASSERT_TRUE(shell.waitForStarted());
    const auto stats = createProcessStats();
    const auto pid = static_cast<pid_t>(shell.processId());
    ASSERT_TRUE(stats->sampleTree(pid));
    const auto from = std::chrono::steady_clock::now();
    shell.write("go\n");
    QString output;
    ASSERT_TRUE(QTest::qWaitFor(
        [&] {
            output += QString::fromUtf8(shell.readAllStandardOutput());
            return output.contains(QLatin1String("finished"));
        },
        30000));
    const double window = secondsSince(from);
    const auto after = stats->sampleTree(pid);
    shell.write("done\n");
    shell.waitForFinished();
    ASSERT_TRUE(after);
    EXPECT_EQ(after->processCount, 1);
    // What the burners used, over the time between the readings; a loaded machine gives them
    // less than the core they ask for, and the figure must follow. The margin is small enough
    // that a figure of nothing fails whenever they got more than a few percent.
    const double expected = 100.0 * reportedCpu(output) / window;
    EXPECT_GT(expected, 3.0);
    EXPECT_NEAR(after->cpuPercent, expected, 2.0 + 0.15 * expected)
        << "burners used " << reportedCpu(output) << " s of CPU in " << window << " s";
}

TEST(ProcessStats, AProcessThatWasBusyAndNowIdlesShowsIdle)
{
    // A second and a half of CPU spent spinning, then idle: an average over its life would say it
    // is busy for a long while yet.
    QProcess burner;
    QString output;
    ASSERT_NO_FATAL_FAILURE(burnThenIdle(burner, 1500, output));
    const auto stats = createProcessStats();
    const auto pid = static_cast<pid_t>(burner.processId());
    const auto first = stats->sampleTree(pid);
    QTest::qWait(300);
    const auto second = stats->sampleTree(pid);
    burner.kill();
    burner.waitForFinished();
    ASSERT_TRUE(first && second);
    EXPECT_LT(first->cpuPercent, 5.0);
    EXPECT_LT(second->cpuPercent, 5.0);
    EXPECT_GT(reportedCpu(output), 0.2) << "it did burn before";
}

TEST(ProcessStats, TheSettingsWindowsSamplerShowsCurrentUse)
{
    QProcess burner;
    QString output;
    ASSERT_NO_FATAL_FAILURE(burnThenIdle(burner, 1000, output));
    FootprintSampler sampler(static_cast<pid_t>(burner.processId()), 0.3);
    sampler.start();
    ASSERT_TRUE(QTest::qWaitFor([&] { return sampler.footprint().has_value(); }, 10000));
    burner.kill();
    burner.waitForFinished();
    EXPECT_EQ(sampler.footprint()->processCount, 1);
    EXPECT_LT(sampler.footprint()->cpuPercent, 5.0) << "idle now, whatever it did before";
}

} // namespace
