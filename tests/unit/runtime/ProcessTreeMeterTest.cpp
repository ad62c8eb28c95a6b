#include "runtime/ProcessTreeMeter.h"
#include "runtime/ProcStat.h"

#include <gtest/gtest.h>

#include <deque>

using namespace sayvo;
using namespace std::chrono_literals;

namespace {

// As the kernel writes it; the name here holds a space and parentheses of its own.
const char kStat[] = "4242 (sayvo (engine) x) S 4241 4242 4242 0 -1 4194560 1234 0 0 0 "
                     "250 50 30 20 20 0 9 0 123456 987654321 1500 18446744073709551615 1 1 0 "
                     "0 0 0 0 4096 0 0 0 0 17 1 0 0 0 0 0\n";

TEST(ProcStat, ReadsParentCpuTimesWithCollectedChildrenAndResidentPages)
{
    const auto usage = parseProcStat(kStat, 100.0, 4096);
    ASSERT_TRUE(usage);
    EXPECT_EQ(usage->pid, 4242);
    EXPECT_EQ(usage->parent, 4241);
    EXPECT_DOUBLE_EQ(usage->cpuSeconds, (250 + 50 + 30 + 20) / 100.0);
    EXPECT_EQ(usage->residentBytes, 1500u * 4096u);
}

TEST(ProcStat, RefusesWhatDoesNotParse)
{
    for (const char *bad : {"", "4242", "4242 (x", "x (y) S 1 2", "4242 (x) S notaparent",
             "4242 (x) S 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 20"}) {
        EXPECT_EQ(parseProcStat(bad, 100.0, 4096), std::nullopt) << bad;
    }
}

// A process table the test writes, read one snapshot per reading, on a clock the test sets.
struct Script
{
    std::deque<ProcessTreeMeter::Table> tables;
    std::deque<ProcessTreeMeter::Clock::time_point> times;
    ProcessTreeMeter meter {[this] {
                                auto table = tables.front();
                                tables.pop_front();
                                return std::optional(table);
                            },
        0ms,
        [this] {
            auto at = times.front();
            times.pop_front();
            return at;
        }};

    void add(ProcessTreeMeter::Table table, double atSeconds)
    {
        tables.push_back(std::move(table));
        times.push_back(ProcessTreeMeter::Clock::time_point {}
            + std::chrono::duration_cast<ProcessTreeMeter::Clock::duration>(
                std::chrono::duration<double>(atSeconds)));
    }
};

TEST(ProcessTreeMeter, TheCpuFigureIsTheUseBetweenReadingsNotOverTheProcessesLives)
{
    Script s;
    // An app (100) that worked hard long ago, a shell (101) and an engine (102); 900 is not
    // in the tree.
    s.add(
        {{100, 1, 1000, 500.0}, {101, 100, 10, 0.0}, {102, 101, 2000, 1.0}, {900, 1, 5, 3.0}}, 0.0);
    s.add(
        {{100, 1, 1000, 500.0}, {101, 100, 10, 0.0}, {102, 101, 2000, 1.5}, {900, 1, 5, 9.0}}, 1.0);
    s.add({{100, 1, 1000, 500.1}, {101, 100, 10, 0.0}, {102, 101, 2000, 2.9}}, 3.0);
    const auto first = s.meter.sample(100);
    ASSERT_TRUE(first);
    EXPECT_EQ(first->processCount, 3);
    EXPECT_EQ(first->residentBytes, 3010u);
    EXPECT_DOUBLE_EQ(first->cpuPercent, 50.0) << "half a core's second over one second";
    const auto second = s.meter.sample(100);
    ASSERT_TRUE(second);
    EXPECT_NEAR(second->cpuPercent, 100.0 * 1.5 / 2.0, 1e-9);
}

TEST(ProcessTreeMeter, AChildThatEndedCountsOnceThroughItsParent)
{
    Script s;
    s.add({{100, 1, 0, 1.0}, {200, 100, 0, 4.0}}, 0.0);
    s.add({{100, 1, 0, 1.0}, {200, 100, 0, 4.0}}, 1.0);
    // The child worked one more second, ended, and the app collected its 5 seconds.
    s.add({{100, 1, 0, 6.0}}, 2.0);
    ASSERT_TRUE(s.meter.sample(100));
    const auto after = s.meter.sample(100);
    ASSERT_TRUE(after);
    EXPECT_EQ(after->processCount, 1);
    EXPECT_DOUBLE_EQ(after->cpuPercent, 100.0);
}

TEST(ProcessTreeMeter, AChildThatLeftTheTreeNeverMakesTheFigureNegative)
{
    Script s;
    s.add({{100, 1, 0, 1.0}, {200, 100, 0, 4.0}}, 0.0);
    s.add({{100, 1, 0, 1.0}, {200, 100, 0, 4.0}}, 1.0);
    s.add({{100, 1, 0, 1.0}, {200, 1, 0, 4.5}}, 2.0); // adopted elsewhere
    ASSERT_TRUE(s.meter.sample(100));
    const auto after = s.meter.sample(100);
    ASSERT_TRUE(after);
    EXPECT_DOUBLE_EQ(after->cpuPercent, 0.0);
}

TEST(ProcessTreeMeter, AMissingRootGivesNothingAndStartsAfresh)
{
    Script s;
    s.add({{100, 1, 0, 1.0}}, 0.0);
    s.add({{300, 1, 0, 1.0}}, 1.0);
    EXPECT_EQ(s.meter.sample(100), std::nullopt);
    s.add({{100, 1, 0, 9.0}}, 2.0);
    s.add({{100, 1, 0, 9.25}}, 3.0);
    const auto again = s.meter.sample(100);
    ASSERT_TRUE(again);
    EXPECT_DOUBLE_EQ(again->cpuPercent, 25.0) << "measured over a window of its own";
}

} // namespace
