#include "store/UsagePresentation.h"
#include "support/store/StorePrinters.h"

#include <gtest/gtest.h>

#include <limits>

namespace sayvo {
namespace {

QString dash()
{
    return QString::fromUtf8("—");
}

TEST(UsagePresentation, EmptyBeforeTheFirstUtterance)
{
    const UsagePresentation shown = UsagePresentation::of(UsageTotals {});
    EXPECT_TRUE(shown.showsEmptyState);
    EXPECT_EQ(UsagePresentation::emptyStateText(),
        "No dictation recorded yet. Statistics appear here after your first utterance.");
}

TEST(UsagePresentation, RowsInCardOrder)
{
    UsageTotals totals;
    totals.utterances = 3;
    totals.totalWords = 1234567;
    totals.totalFillers = 12;
    totals.totalAudioSeconds = 125.7 * 60.0;
    totals.totalProcessingSeconds = totals.totalAudioSeconds * 0.5;
    totals.totalAsrProcessingSeconds = totals.totalAudioSeconds * 0.25;

    const UsagePresentation shown = UsagePresentation::of(totals);

    EXPECT_FALSE(shown.showsEmptyState);
    const std::vector<UsageRow> expected {
        {"Utterances transcribed", "3"},
        {"Total words spoken", "1234567"},
        {"Total speaking time", "2h 5m"},
        {"Average speaking rate", "9822 wpm"},
        {"Filler word rate", "0%"},
        {"ASR speed", "4.0x realtime"},
        {"Pipeline speed", "2.0x realtime"},
    };
    EXPECT_EQ(shown.rows, expected);
}

TEST(UsagePresentation, SpeakingTimeBelowOneMinute)
{
    EXPECT_EQ(formatSpeakingTime(0.0), "<1 min");
    EXPECT_EQ(formatSpeakingTime(0.999), "<1 min");
    EXPECT_EQ(formatSpeakingTime(-3.0), "<1 min");
    EXPECT_EQ(formatSpeakingTime(std::numeric_limits<double>::quiet_NaN()), "<1 min");
}

TEST(UsagePresentation, SpeakingTimeInMinutesRoundsToNearest)
{
    EXPECT_EQ(formatSpeakingTime(1.0), "1 min");
    EXPECT_EQ(formatSpeakingTime(1.49), "1 min");
    EXPECT_EQ(formatSpeakingTime(1.5), "2 min");
    EXPECT_EQ(formatSpeakingTime(42.4), "42 min");
    EXPECT_EQ(formatSpeakingTime(59.4), "59 min");
}

TEST(UsagePresentation, JustUnderAnHourShowsSixtyMinutes)
{
    EXPECT_EQ(formatSpeakingTime(59.6), "60 min");
}

TEST(UsagePresentation, FromAnHourOnTruncatesToHoursAndMinutes)
{
    EXPECT_EQ(formatSpeakingTime(60.0), "1h 0m");
    EXPECT_EQ(formatSpeakingTime(60.99), "1h 0m");
    EXPECT_EQ(formatSpeakingTime(125.7), "2h 5m");
    EXPECT_EQ(formatSpeakingTime(1439.9), "23h 59m");
    EXPECT_EQ(formatSpeakingTime(6000.0), "100h 0m");
}

TEST(UsagePresentation, AbsurdSpeakingTimesStillPrint)
{
    EXPECT_FALSE(formatSpeakingTime(1e300).isEmpty());
    EXPECT_FALSE(formatSpeakingTime(std::numeric_limits<double>::infinity()).isEmpty());
}

TEST(UsagePresentation, SpeakingRateRoundsToAWholeNumber)
{
    EXPECT_EQ(formatSpeakingRate(150.0), "150 wpm");
    EXPECT_EQ(formatSpeakingRate(149.5), "150 wpm");
    EXPECT_EQ(formatSpeakingRate(149.49), "149 wpm");
    EXPECT_EQ(formatSpeakingRate(0.0), "0 wpm");
}

TEST(UsagePresentation, FillerRateIsAWholePercentage)
{
    EXPECT_EQ(formatFillerRate(0.08), "8%");
    EXPECT_EQ(formatFillerRate(0.0), "0%");
    EXPECT_EQ(formatFillerRate(1.0), "100%");
    EXPECT_EQ(formatFillerRate(0.456), "46%");
}

TEST(UsagePresentation, SpeedIsTheReciprocalWithOneDecimal)
{
    EXPECT_EQ(formatSpeed(0.3), "3.3x realtime");
    EXPECT_EQ(formatSpeed(0.2), "5.0x realtime");
    EXPECT_EQ(formatSpeed(2.0), "0.5x realtime");
    EXPECT_EQ(formatSpeed(1.0), "1.0x realtime");
}

TEST(UsagePresentation, SpeedWithoutAFactorIsADash)
{
    EXPECT_EQ(formatSpeed(0.0), dash());
    EXPECT_EQ(formatSpeed(-0.5), dash());
    EXPECT_EQ(formatSpeed(std::numeric_limits<double>::quiet_NaN()), dash());
}

} // namespace
} // namespace sayvo
