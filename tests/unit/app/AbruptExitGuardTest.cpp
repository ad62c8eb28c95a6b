#include "app/AbruptExitGuard.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <thread>

using sayvo::AbruptExitGuard;
using ::testing::ExitedWithCode;
using ::testing::HasSubstr;
using ::testing::Not;

namespace {

// The way Qt ends the process when its display goes. Only a death test's child calls it,
// where no other thread can be in exit() at the same time.
void exitLikeQt(int status)
{
    std::exit(status); // NOLINT(concurrency-mt-unsafe)
}

void sayShutdown()
{
    std::fputs("shutdown ran\n", stderr);
}

class AbruptExitGuardTest : public ::testing::Test
{
protected:
    // The children re-run this binary rather than fork a process with Qt's threads in it.
    void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(AbruptExitGuardTest, AnExitWhileTheAppRunsShutsItDownFirstAndFails)
{
    EXPECT_EXIT(
        {
            AbruptExitGuard guard(sayShutdown);
            exitLikeQt(0);
        },
        ExitedWithCode(1), HasSubstr("shutdown ran"));
}

TEST_F(AbruptExitGuardTest, AnExitAfterTheGuardIsGoneRunsNothing)
{
    EXPECT_EXIT(
        {
            {
                AbruptExitGuard guard(sayShutdown);
            }
            exitLikeQt(0);
        },
        ExitedWithCode(0), Not(HasSubstr("shutdown ran")));
}

TEST_F(AbruptExitGuardTest, AnotherThreadsExitDoesNotRunTheShutdownBesideTheMainThread)
{
    EXPECT_EXIT(
        {
            AbruptExitGuard guard(sayShutdown);
            std::thread([] { exitLikeQt(3); }).join();
        },
        ExitedWithCode(3), Not(HasSubstr("shutdown ran")));
}

} // namespace
