#include "store/UsageStatsStore.h"
#include "protocol/InboundMessages.h"
#include "store/Subscribe.h"
#include "store/UsagePresentation.h"
#include "support/store/FakePreferenceStore.h"
#include "support/store/StorePrinters.h"

#include <QSignalSpy>

#include <gtest/gtest.h>

#include <limits>

namespace sayvo {
namespace {

using Write = FakePreferenceStore::Write;

constexpr QLatin1String kUtterances(UsageStatsStore::kUtterancesKey);
constexpr QLatin1String kWords(UsageStatsStore::kTotalWordsKey);
constexpr QLatin1String kFillers(UsageStatsStore::kTotalFillersKey);
constexpr QLatin1String kAudio(UsageStatsStore::kTotalAudioSecondsKey);
constexpr QLatin1String kProcessing(UsageStatsStore::kTotalProcessingSecondsKey);
constexpr QLatin1String kAsr(UsageStatsStore::kTotalAsrProcessingSecondsKey);
QStringList allKeys()
{
    return {kUtterances, kWords, kFillers, kAudio, kProcessing, kAsr};
}

Stats stats(double audioSeconds, std::int64_t words, std::int64_t fillers, double pipelineRtf,
    double asrRtf)
{
    Stats result;
    result.audioDurationS = audioSeconds;
    result.wordCount = words;
    result.fillerCount = fillers;
    result.transcriptionRtf = pipelineRtf;
    result.asrRtf = asrRtf;
    // Carried by the message but not used: the store derives its own averages.
    result.spokenWpm = 999.0;
    result.fillerRate = 0.99;
    return result;
}

QString rowValue(const UsagePresentation &presentation, const QString &label)
{
    for (const UsageRow &row : presentation.rows) {
        if (row.label == label) {
            return row.value;
        }
    }
    return QStringLiteral("<no row>");
}

TEST(UsageStatsStore, KeysAreTheDocumentedOnes)
{
    EXPECT_EQ(allKeys(),
        (QStringList {"sayvo.usageStats.utterances", "sayvo.usageStats.totalWords",
            "sayvo.usageStats.totalFillers", "sayvo.usageStats.totalAudioSeconds",
            "sayvo.usageStats.totalProcessingSeconds",
            "sayvo.usageStats.totalAsrProcessingSeconds"}));
}

TEST(UsageStatsStore, FreshStoreIsAllZeroAndSpeedsShowADash)
{
    FakePreferenceStore preferences;
    UsageStatsStore usage(preferences);

    EXPECT_EQ(usage.utterances(), 0);
    EXPECT_EQ(usage.totalWords(), 0);
    EXPECT_EQ(usage.totalFillers(), 0);
    EXPECT_EQ(usage.totalAudioSeconds(), 0.0);
    EXPECT_EQ(usage.totalProcessingSeconds(), 0.0);
    EXPECT_EQ(usage.totalAsrProcessingSeconds(), 0.0);
    EXPECT_EQ(usage.avgSpokenWpm(), 0.0);
    EXPECT_EQ(usage.avgFillerRate(), 0.0);
    EXPECT_EQ(usage.avgRtf(), 0.0);
    EXPECT_EQ(usage.avgAsrRtf(), 0.0);
    EXPECT_EQ(usage.totalSpeakingMinutes(), 0.0);
    EXPECT_TRUE(preferences.writes().empty());

    const UsagePresentation shown = UsagePresentation::of(usage.totals());
    EXPECT_EQ(rowValue(shown, "ASR speed"), QString::fromUtf8("—"));
    EXPECT_EQ(rowValue(shown, "Pipeline speed"), QString::fromUtf8("—"));
}

TEST(UsageStatsStore, OneRecordAddsUpAndDerivesTheAverages)
{
    FakePreferenceStore preferences;
    UsageStatsStore usage(preferences);

    usage.record(stats(10.0, 25, 2, 0.3, 0.2));

    EXPECT_EQ(usage.utterances(), 1);
    EXPECT_EQ(usage.totalWords(), 25);
    EXPECT_EQ(usage.totalFillers(), 2);
    EXPECT_DOUBLE_EQ(usage.totalAudioSeconds(), 10.0);
    EXPECT_DOUBLE_EQ(usage.totalProcessingSeconds(), 3.0);
    EXPECT_DOUBLE_EQ(usage.totalAsrProcessingSeconds(), 2.0);
    EXPECT_DOUBLE_EQ(usage.avgSpokenWpm(), 150.0);
    EXPECT_DOUBLE_EQ(usage.avgFillerRate(), 0.08);
    EXPECT_DOUBLE_EQ(usage.avgRtf(), 0.3);
    EXPECT_DOUBLE_EQ(usage.avgAsrRtf(), 0.2);
    EXPECT_DOUBLE_EQ(usage.totalSpeakingMinutes(), 10.0 / 60.0);

    const UsagePresentation shown = UsagePresentation::of(usage.totals());
    EXPECT_FALSE(shown.showsEmptyState);
    EXPECT_EQ(rowValue(shown, "Utterances transcribed"), "1");
    EXPECT_EQ(rowValue(shown, "Total words spoken"), "25");
    EXPECT_EQ(rowValue(shown, "Total speaking time"), "<1 min");
    EXPECT_EQ(rowValue(shown, "Average speaking rate"), "150 wpm");
    EXPECT_EQ(rowValue(shown, "Filler word rate"), "8%");
    EXPECT_EQ(rowValue(shown, "Pipeline speed"), "3.3x realtime");
    EXPECT_EQ(rowValue(shown, "ASR speed"), "5.0x realtime");
}

TEST(UsageStatsStore, RecordWritesIntegersThenDoubles)
{
    FakePreferenceStore preferences;
    UsageStatsStore usage(preferences);

    usage.record(stats(10.0, 25, 2, 0.3, 0.2));

    ASSERT_EQ(preferences.writes().size(), 6u);
    const std::vector<Write> &writes = preferences.writes();
    for (std::size_t i = 0; i < writes.size(); ++i) {
        EXPECT_EQ(writes[i].kind, Write::Kind::set);
        EXPECT_EQ(writes[i].key, allKeys()[static_cast<qsizetype>(i)]);
    }
    EXPECT_EQ(writes[0].value, QVariant(qint64(1)));
    EXPECT_EQ(writes[1].value, QVariant(qint64(25)));
    EXPECT_EQ(writes[2].value, QVariant(qint64(2)));
    EXPECT_EQ(writes[0].value.metaType().id(), QMetaType::LongLong);
    EXPECT_EQ(writes[3].value, QVariant(10.0));
    EXPECT_EQ(writes[3].value.metaType().id(), QMetaType::Double);
    EXPECT_DOUBLE_EQ(writes[4].value.toDouble(), 3.0);
    EXPECT_DOUBLE_EQ(writes[5].value.toDouble(), 2.0);
}

TEST(UsageStatsStore, RecordWithNoAudioCountsTheUtteranceAndWordsOnly)
{
    FakePreferenceStore preferences;
    UsageStatsStore usage(preferences);

    usage.record(stats(0.0, 3, 0, 0.5, 0.4));

    EXPECT_EQ(usage.utterances(), 1);
    EXPECT_EQ(usage.totalWords(), 3);
    EXPECT_EQ(usage.totalAudioSeconds(), 0.0);
    EXPECT_EQ(usage.totalProcessingSeconds(), 0.0);
    EXPECT_EQ(usage.avgSpokenWpm(), 0.0);
    EXPECT_EQ(usage.avgRtf(), 0.0);
    EXPECT_EQ(usage.avgAsrRtf(), 0.0);
    EXPECT_EQ(usage.totalSpeakingMinutes(), 0.0);
    EXPECT_EQ(usage.avgFillerRate(), 0.0);
}

// Processing time is accumulated as duration times factor, so a long utterance weighs more.
TEST(UsageStatsStore, RealTimeFactorsAreWeightedByDuration)
{
    FakePreferenceStore preferences;
    UsageStatsStore usage(preferences);
    usage.record(stats(30.0, 60, 0, 0.1, 0.05));
    usage.record(stats(10.0, 20, 4, 0.5, 0.25));

    EXPECT_EQ(usage.utterances(), 2);
    EXPECT_DOUBLE_EQ(usage.avgRtf(), (3.0 + 5.0) / 40.0);
    EXPECT_DOUBLE_EQ(usage.avgAsrRtf(), (1.5 + 2.5) / 40.0);
    EXPECT_DOUBLE_EQ(usage.avgSpokenWpm(), 80.0 / 40.0 * 60.0);
    EXPECT_DOUBLE_EQ(usage.avgFillerRate(), 4.0 / 80.0);
}

TEST(UsageStatsStore, ValuesAreTakenAsTheyCome)
{
    FakePreferenceStore preferences;
    UsageStatsStore usage(preferences);
    usage.record(stats(-2.0, -5, -1, 0.3, 0.2));
    EXPECT_EQ(usage.totalWords(), -5);
    EXPECT_EQ(usage.totalFillers(), -1);
    EXPECT_DOUBLE_EQ(usage.totalAudioSeconds(), -2.0);
    EXPECT_EQ(usage.avgSpokenWpm(), 0.0);
    EXPECT_EQ(usage.avgFillerRate(), 0.0);
}

TEST(UsageStatsStore, ResetZeroesAndRemovesTheKeys)
{
    FakePreferenceStore preferences;
    UsageStatsStore usage(preferences);
    usage.record(stats(10.0, 25, 2, 0.3, 0.2));
    preferences.clearWrites();

    usage.reset();

    EXPECT_EQ(usage.totals(), UsageTotals {});
    for (const QString &key : allKeys()) {
        EXPECT_FALSE(preferences.contains(key)) << key.toStdString();
        EXPECT_EQ(preferences.writesOf(key),
            std::vector<Write> {(Write {Write::Kind::remove, key, QVariant()})});
    }
    EXPECT_TRUE(UsagePresentation::of(usage.totals()).showsEmptyState);
}

TEST(UsageStatsStore, ResetThenRelaunchYieldsZeros)
{
    FakePreferenceStore preferences;
    {
        UsageStatsStore usage(preferences);
        usage.record(stats(10.0, 25, 2, 0.3, 0.2));
        usage.reset();
    }
    EXPECT_TRUE(preferences.values().isEmpty());
    UsageStatsStore relaunched(preferences);
    EXPECT_EQ(relaunched.totals(), UsageTotals {});
}

TEST(UsageStatsStore, TotalsSurviveANewStoreOnTheSamePreferences)
{
    FakePreferenceStore preferences;
    {
        UsageStatsStore usage(preferences);
        usage.record(stats(10.0, 25, 2, 0.3, 0.2));
        usage.record(stats(5.5, 11, 1, 0.4, 0.1));
    }
    UsageStatsStore relaunched(preferences);
    EXPECT_EQ(relaunched.utterances(), 2);
    EXPECT_EQ(relaunched.totalWords(), 36);
    EXPECT_EQ(relaunched.totalFillers(), 3);
    EXPECT_DOUBLE_EQ(relaunched.totalAudioSeconds(), 15.5);
    EXPECT_DOUBLE_EQ(relaunched.totalProcessingSeconds(), 3.0 + 2.2);
    EXPECT_DOUBLE_EQ(relaunched.totalAsrProcessingSeconds(), 2.0 + 0.55);
}

TEST(UsageStatsStore, NonNumericKeysReadAsZero)
{
    FakePreferenceStore preferences(QVariantMap {
        {kUtterances, QStringLiteral("many")},
        {kWords, QStringList {"1"}},
        {kFillers, QVariant()},
        {kAudio, QStringLiteral("nan")},
        {kProcessing, QStringLiteral("abc")},
        {kAsr, true},
    });
    UsageStatsStore usage(preferences);
    EXPECT_EQ(usage.utterances(), 0);
    EXPECT_EQ(usage.totalWords(), 0);
    EXPECT_EQ(usage.totalFillers(), 0);
    EXPECT_EQ(usage.totalAudioSeconds(), 0.0);
    EXPECT_EQ(usage.totalProcessingSeconds(), 0.0);
    EXPECT_EQ(usage.totalAsrProcessingSeconds(), 0.0);
}

TEST(UsageStatsStore, NumbersStoredAsTextAreRead)
{
    FakePreferenceStore preferences(QVariantMap {
        {kUtterances, QStringLiteral("4")},
        {kWords, QStringLiteral("120")},
        {kFillers, QStringLiteral("6")},
        {kAudio, QStringLiteral("48.5")},
        {kProcessing, QStringLiteral("12.25")},
        {kAsr, QStringLiteral("9")},
    });
    UsageStatsStore usage(preferences);
    EXPECT_EQ(usage.utterances(), 4);
    EXPECT_EQ(usage.totalWords(), 120);
    EXPECT_EQ(usage.totalFillers(), 6);
    EXPECT_EQ(usage.totalAudioSeconds(), 48.5);
    EXPECT_EQ(usage.totalProcessingSeconds(), 12.25);
    EXPECT_EQ(usage.totalAsrProcessingSeconds(), 9.0);
}

TEST(UsageStatsStore, AnnouncesThenPublishesEveryCounter)
{
    FakePreferenceStore preferences;
    UsageStatsStore usage(preferences);
    std::vector<std::string> events;
    QObject::connect(&usage, &UsageStatsStore::aboutToChange,
        [&] { events.push_back("about:" + std::to_string(usage.utterances())); });
    QObject::connect(&usage, &UsageStatsStore::utterancesChanged,
        [&](qint64 value) { events.push_back("utterances:" + std::to_string(value)); });
    QObject::connect(&usage, &UsageStatsStore::totalWordsChanged,
        [&](qint64 value) { events.push_back("words:" + std::to_string(value)); });
    QObject::connect(&usage, &UsageStatsStore::totalFillersChanged,
        [&](qint64 value) { events.push_back("fillers:" + std::to_string(value)); });
    QObject::connect(&usage, &UsageStatsStore::totalAudioSecondsChanged,
        [&](double value) { events.push_back("audio:" + std::to_string(int(value))); });
    QObject::connect(&usage, &UsageStatsStore::totalProcessingSecondsChanged,
        [&](double value) { events.push_back("processing:" + std::to_string(int(value))); });
    QObject::connect(&usage, &UsageStatsStore::totalAsrProcessingSecondsChanged,
        [&](double value) { events.push_back("asr:" + std::to_string(int(value))); });
    QObject::connect(&usage, &UsageStatsStore::changed,
        [&] { events.push_back("changed:" + std::to_string(preferences.contains(kUtterances))); });

    usage.record(stats(10.0, 25, 2, 0.3, 0.2));
    const std::vector<std::string> afterRecord {"about:0", "utterances:1", "words:25", "fillers:2",
        "audio:10", "processing:3", "asr:2", "changed:1"};
    EXPECT_EQ(events, afterRecord);

    events.clear();
    usage.reset();
    const std::vector<std::string> afterReset {"about:1", "utterances:0", "words:0", "fillers:0",
        "audio:0", "processing:0", "asr:0", "changed:0"};
    EXPECT_EQ(events, afterReset);
}

TEST(UsageStatsStore, SubscribingDeliversTheCurrentCountFirst)
{
    FakePreferenceStore preferences(QVariantMap {{kUtterances, qint64(7)}});
    UsageStatsStore usage(preferences);
    QObject context;
    std::vector<qint64> seen;
    subscribe(&usage, &UsageStatsStore::utterances, &UsageStatsStore::utterancesChanged, &context,
        [&](qint64 count) { seen.push_back(count); });
    usage.record(stats(1.0, 1, 0, 0.1, 0.1));
    usage.reset();
    EXPECT_EQ(seen, (std::vector<qint64> {7, 8, 0}));
}

TEST(UsageStatsStore, CountersReachTheLargestValueWithoutComplaint)
{
    const qint64 max = std::numeric_limits<qint64>::max();
    FakePreferenceStore preferences(QVariantMap {{kUtterances, max - 1}, {kWords, max - 10}});
    UsageStatsStore usage(preferences);
    usage.record(stats(1.0, 10, 0, 0.1, 0.1));
    EXPECT_EQ(usage.utterances(), max);
    EXPECT_EQ(usage.totalWords(), max);
}

class UsageStatsStoreDeathTest : public ::testing::Test
{
protected:
    // The test binary owns a Qt application; re-executing it for the child is safer than
    // forking a process that may have started threads.
    void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(UsageStatsStoreDeathTest, UtteranceCountOverflowIsFatal)
{
    FakePreferenceStore preferences(
        QVariantMap {{kUtterances, std::numeric_limits<qint64>::max()}});
    UsageStatsStore usage(preferences);
    EXPECT_DEATH(usage.record(stats(1.0, 1, 0, 0.1, 0.1)), "usage counter overflow: utterances");
}

TEST_F(UsageStatsStoreDeathTest, WordCountOverflowIsFatal)
{
    FakePreferenceStore preferences(QVariantMap {{kWords, std::numeric_limits<qint64>::max() - 5}});
    UsageStatsStore usage(preferences);
    EXPECT_DEATH(usage.record(stats(1.0, 6, 0, 0.1, 0.1)), "usage counter overflow: totalWords");
}

TEST_F(UsageStatsStoreDeathTest, NegativeFillerOverflowIsFatal)
{
    FakePreferenceStore preferences(QVariantMap {{kFillers, std::numeric_limits<qint64>::min()}});
    UsageStatsStore usage(preferences);
    EXPECT_DEATH(usage.record(stats(1.0, 1, -1, 0.1, 0.1)), "usage counter overflow: totalFillers");
}

} // namespace
} // namespace sayvo
