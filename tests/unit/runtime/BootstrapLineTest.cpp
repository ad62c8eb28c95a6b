#include "runtime/BootstrapLine.h"

#include <gtest/gtest.h>

using namespace sayvo::bootstrap;

namespace {

Line parse(const char *text)
{
    return parseLine(QString::fromUtf8(text));
}

TEST(BootstrapLine, ProgressWithMessage)
{
    EXPECT_EQ(parse("PROGRESS 42 Downloading models"),
        Line(Progress {42, QStringLiteral("Downloading models")}));
}

TEST(BootstrapLine, ProgressWithoutMessage)
{
    EXPECT_EQ(parse("PROGRESS 42"), Line(Progress {42, QString()}));
    EXPECT_EQ(parse("PROGRESS 42 "), Line(Progress {42, QString()}));
}

TEST(BootstrapLine, ProgressKeepsEverythingAfterTheFirstSpace)
{
    EXPECT_EQ(
        parse("PROGRESS 7  two  spaces "), Line(Progress {7, QStringLiteral(" two  spaces ")}));
}

TEST(BootstrapLine, ProgressWithoutANumberCountsAsZero)
{
    EXPECT_EQ(parse("PROGRESS abc Working"), Line(Progress {0, QStringLiteral("Working")}));
    EXPECT_EQ(parse("PROGRESS 4.5 Working"), Line(Progress {0, QStringLiteral("Working")}));
    EXPECT_EQ(parse("PROGRESS 99999999999 Big"), Line(Progress {0, QStringLiteral("Big")}));
    EXPECT_EQ(parse("PROGRESS "), Line(Progress {0, QString()}));
}

TEST(BootstrapLine, NeedWithTokenAndMessage)
{
    EXPECT_EQ(parse("NEED python3 Install Python 3.11 first"),
        Line(Need {QStringLiteral("python3"), QStringLiteral("Install Python 3.11 first")}));
    EXPECT_EQ(parse("NEED disk"), Line(Need {QStringLiteral("disk"), QString()}));
}

TEST(BootstrapLine, StepNeedsExactlyTwoFields)
{
    EXPECT_EQ(parse("STEP deps ok"), Line(Step {QStringLiteral("deps"), QStringLiteral("ok")}));
    EXPECT_EQ(parse("STEP deps ok now"), Line(Text {}));
    EXPECT_EQ(parse("STEP deps"), Line(Text {}));
}

TEST(BootstrapLine, DoneMayCarrySpacesAndTabs)
{
    EXPECT_EQ(parse("DONE"), Line(Done {}));
    EXPECT_EQ(parse(" \tDONE\t "), Line(Done {}));
    EXPECT_EQ(parse("DONE!"), Line(Text {}));
    EXPECT_EQ(parse("DONE\r"), Line(Text {}));
}

TEST(BootstrapLine, PrefixesAreCaseSensitiveAndNeedTheirSpace)
{
    EXPECT_EQ(parse("progress 5 x"), Line(Text {}));
    EXPECT_EQ(parse("PROGRESS"), Line(Text {}));
    EXPECT_EQ(parse("NEEDS x"), Line(Text {}));
    EXPECT_EQ(parse("downloading 3 files"), Line(Text {}));
    EXPECT_EQ(parse(""), Line(Text {}));
}

} // namespace
