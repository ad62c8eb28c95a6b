#include "base/LatencyTrace.h"
#include "support/LogCapture.h"

#include <QFile>
#include <QRegularExpression>

#include <gtest/gtest.h>

#include <cmath>

using namespace sayvo;

namespace {

struct Mark
{
    QString name;
    qint64 atNs = 0;
    qint64 cpuNs = 0;
    qint64 waitedNs = -1;
};

std::vector<Mark> marksIn(const QStringList &lines)
{
    static const QRegularExpression pattern(
        QStringLiteral("^latency: ([a-z-]+) (\\d+) cpu (\\d+)(?: waited (\\d+))?$"));
    std::vector<Mark> marks;
    for (const QString &line : lines) {
        const auto match = pattern.match(line);
        if (match.hasMatch()) {
            marks.push_back(
                {match.captured(1), match.captured(2).toLongLong(), match.captured(3).toLongLong(),
                    match.captured(4).isEmpty() ? -1 : match.captured(4).toLongLong()});
        }
    }
    return marks;
}

} // namespace

TEST(LatencyTraceTest, SilentUnlessSwitchedOn)
{
    test::LogCapture log;
    markLatency("end-sent");
    EXPECT_TRUE(marksIn(log.messages()).empty());
}

// Each mark carries the thread's CPU time and, where the system keeps it, its time on the run
// queue, so that a stretch between two marks splits into work, waiting to run and blocking.
TEST(LatencyTraceTest, AMarkCarriesItsTimeAndTheThreadsCpuAndRunQueueTime)
{
    test::LogCapture log;
    QLoggingCategory::setFilterRules(QStringLiteral("com.sayvoapp.shell.latency.debug=true"));
    markLatency("trigger-up");
    volatile double sink = 0.0;
    for (int i = 0; i < 2'000'000; ++i) {
        sink = sink + std::sqrt(double(i));
    }
    markLatency("end-sent");
    QLoggingCategory::setFilterRules(QString());

    const auto marks = marksIn(log.messages());
    ASSERT_EQ(marks.size(), 2u) << log.messages().join('\n').toStdString();
    EXPECT_EQ(marks[0].name, "trigger-up");
    EXPECT_EQ(marks[1].name, "end-sent");
    EXPECT_LE(marks[0].atNs, marks[1].atNs);
    EXPECT_LT(marks[0].cpuNs, marks[1].cpuNs);
    if (QFile::exists(QStringLiteral("/proc/thread-self/schedstat"))) {
        EXPECT_GE(marks[0].waitedNs, 0);
        EXPECT_LE(marks[0].waitedNs, marks[1].waitedNs);
    }
}
