#include "runtime/FootprintSampler.h"

#include <QCoreApplication>
#include <QProcess>
#include <QSignalSpy>
#include <QTest>
#include <QThread>
#include <QTimer>

#include <gtest/gtest.h>
#include <unistd.h>

using sayvo::EngineFootprint;
using sayvo::FootprintSampler;

namespace {

class FixedGpu : public sayvo::GpuStats
{
public:
    std::optional<double> utilisationPercent() override
    {
        onMainThread = QThread::currentThread() == QCoreApplication::instance()->thread();
        return 37.5;
    }
    std::atomic<bool> onMainThread {true};
};

TEST(FootprintSampler, SamplesThisProcessTree)
{
    QProcess child;
    child.start(QStringLiteral("/bin/sleep"), {QStringLiteral("30")});
    ASSERT_TRUE(child.waitForStarted());
    const std::optional<EngineFootprint> footprint = FootprintSampler::sampleTree(::getpid());
    child.kill();
    child.waitForFinished();
    ASSERT_TRUE(footprint);
    // This process, the sleep, and ps itself while it lists the table.
    EXPECT_EQ(footprint->processCount, 3);
    EXPECT_GT(footprint->residentBytes, 1024ull * 1024ull);
    EXPECT_GE(footprint->cpuPercent, 0.0);
    EXPECT_EQ(footprint->gpuPercent, std::nullopt);
}

TEST(FootprintSampler, MissingRootGivesNothing)
{
    EXPECT_EQ(FootprintSampler::sampleTree(0x7ffffff0), std::nullopt);
}

TEST(FootprintSampler, PublishesOnTheMainThreadWithTheGpuFigure)
{
    auto gpu = std::make_shared<FixedGpu>();
    FootprintSampler sampler(::getpid(), 3.0, gpu);
    EXPECT_EQ(sampler.footprint(), std::nullopt);
    QList<QThread *> threads;
    QObject::connect(&sampler, &FootprintSampler::footprintChanged,
        [&](const std::optional<EngineFootprint> &) { threads.append(QThread::currentThread()); });
    sampler.start();
    ASSERT_TRUE(QTest::qWaitFor([&] { return sampler.footprint().has_value(); }, 5000));
    EXPECT_EQ(sampler.footprint()->gpuPercent, 37.5);
    EXPECT_GE(sampler.footprint()->processCount, 1);
    EXPECT_FALSE(gpu->onMainThread);
    EXPECT_EQ(threads, QList<QThread *> {QCoreApplication::instance()->thread()});
}

TEST(FootprintSampler, StartTwiceKeepsOneTimer)
{
    FootprintSampler sampler(::getpid(), 0.2, std::make_shared<FixedGpu>());
    QSignalSpy published(&sampler, &FootprintSampler::footprintChanged);
    sampler.start();
    sampler.start();
    EXPECT_EQ(sampler.findChildren<QTimer *>().size(), 1);
    EXPECT_TRUE(sampler.isStarted());
    // One sample at once, then one each 200 ms: about six in 1.1 s, where two timers would
    // make about eleven. A loaded machine may finish fewer, never more.
    QTest::qWait(1100);
    EXPECT_GE(published.count(), 2);
    EXPECT_LE(published.count(), 7);
}

TEST(FootprintSampler, AbsentRootPublishesNoFootprint)
{
    FootprintSampler sampler(0x7ffffff0, 3.0, std::make_shared<FixedGpu>());
    QSignalSpy published(&sampler, &FootprintSampler::footprintChanged);
    sampler.start();
    ASSERT_TRUE(published.wait(5000));
    EXPECT_EQ(sampler.footprint(), std::nullopt);
}

} // namespace
