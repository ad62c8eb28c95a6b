#include "runtime/ProcessTable.h"

#include <gtest/gtest.h>

using sayvo::EngineFootprint;
using sayvo::footprintOfTree;

namespace {

// As `ps -axo pid=,ppid=,rss=,pcpu=` prints it: right-aligned columns.
const char kThreeProcessTree[] = "    1     0  12000  0.0\n"
                                 "  500     1 100000  3.5\n"
                                 "  501   500   2000  0.0\n"
                                 "  502   501 1500000 57.2\n"
                                 "  600     1  40000  1.0\n";

TEST(ProcessTable, AppShellAndEngine)
{
    const std::optional<EngineFootprint> footprint = footprintOfTree(kThreeProcessTree, 500);
    ASSERT_TRUE(footprint);
    EXPECT_EQ(footprint->processCount, 3);
    EXPECT_EQ(footprint->residentBytes, 1602000ull * 1024ull);
    EXPECT_DOUBLE_EQ(footprint->cpuPercent, 3.5 + 0.0 + 57.2);
    EXPECT_EQ(footprint->gpuPercent, std::nullopt);
}

TEST(ProcessTable, LeafIsItsOwnTree)
{
    const auto footprint = footprintOfTree(kThreeProcessTree, 502);
    ASSERT_TRUE(footprint);
    EXPECT_EQ(footprint->processCount, 1);
    EXPECT_EQ(footprint->residentBytes, 1500000ull * 1024ull);
}

TEST(ProcessTable, MalformedLinesAreSkipped)
{
    const char listing[] = "  500     1 100000  3.5\n"
                           "  501   500   2000\n" // three fields
                           "  50x   500   7000  1.0\n" // pid not a number
                           "  503   500  -7000  1.0\n" // negative kilobytes
                           "  504   500   7000  lots\n" // cpu not a number
                           "  505 99999999999 7000 1.0\n" // parent beyond 32 bits
                           "\n"
                           "  506   500   1000  0.5 extra\n" // extra fields are fine
                           "\t507\t500\t1000\t0.5\n"; // tabs separate too
    const auto footprint = footprintOfTree(listing, 500);
    ASSERT_TRUE(footprint);
    EXPECT_EQ(footprint->processCount, 3);
    EXPECT_EQ(footprint->residentBytes, 102000ull * 1024ull);
    EXPECT_DOUBLE_EQ(footprint->cpuPercent, 4.5);
}

TEST(ProcessTable, MissingRootGivesNothing)
{
    EXPECT_EQ(footprintOfTree(kThreeProcessTree, 4242), std::nullopt);
    EXPECT_EQ(footprintOfTree("", 1), std::nullopt);
}

TEST(ProcessTable, InvalidUtf8GivesNothing)
{
    EXPECT_EQ(footprintOfTree("  500  1  100  1.0\n\xff\n", 500), std::nullopt);
}

TEST(ProcessTable, CyclesAndDuplicatesAreVisitedOnce)
{
    const char listing[] = "  10   11  1  1.0\n"
                           "  11   10  1  1.0\n"
                           "  12   11  1  1.0\n"
                           "  12   11  1  1.0\n"
                           "  10   10  1  1.0\n";
    const auto footprint = footprintOfTree(listing, 10);
    ASSERT_TRUE(footprint);
    EXPECT_EQ(footprint->processCount, 3);
}

TEST(ProcessTable, ByteTotalBeyond64BitsGivesNothing)
{
    // 2^54 KB is 2^64 bytes on its own; two of 2^53 KB overflow only when added.
    EXPECT_EQ(footprintOfTree("  10   1  18014398509481984  1.0\n", 10), std::nullopt);
    EXPECT_EQ(footprintOfTree("  10   1  9007199254740992  1.0\n"
                              "  11  10  9007199254740992  1.0\n",
                  10),
        std::nullopt);
}

} // namespace
