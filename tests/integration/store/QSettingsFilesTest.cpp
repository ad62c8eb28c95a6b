#include "integration/store/SettingsFile.h"
#include "protocol/InboundMessages.h"
#include "store/PreferenceStoreQSettings.h"
#include "store/SettingsStore.h"
#include "store/UsageStatsStore.h"
#include "support/store/StorePrinters.h"

#include <gtest/gtest.h>

#include <limits>
#include <memory>

namespace sayvo {
namespace {

Stats stats(double audioSeconds, std::int64_t words, std::int64_t fillers, double pipelineRtf,
    double asrRtf)
{
    Stats result;
    result.audioDurationS = audioSeconds;
    result.wordCount = words;
    result.fillerCount = fillers;
    result.transcriptionRtf = pipelineRtf;
    result.asrRtf = asrRtf;
    return result;
}

void assignEverySetting(SettingsStore &settings)
{
    settings.setEndpointURL(QUrl("wss://192.168.1.10:9000/engine/v1"));
    settings.setHotkeyTrigger(HotkeyTrigger::rightOption);
    settings.setTriggerMode(TriggerMode::toggle);
    settings.setInsertionMethod(InsertionMethod::axDirect);
    settings.setLanguage(QStringLiteral("hi"));
    settings.setPersonalDictionary(QStringList {"Kubernetes", "Priya", "Smith, John"});
    settings.setFeedbackEnabled(true);
    settings.setLaunchAtLogin(true);
    settings.setInputDeviceUID(QStringLiteral("alsa_input.usb-Blue_Yeti-00.analog-stereo"));
}

void expectEverySettingAssigned(const SettingsStore &settings)
{
    EXPECT_EQ(settings.endpointURL(), QUrl("wss://192.168.1.10:9000/engine/v1"));
    EXPECT_EQ(settings.hotkeyTrigger(), HotkeyTrigger::rightOption);
    EXPECT_EQ(settings.triggerMode(), TriggerMode::toggle);
    EXPECT_EQ(settings.insertionMethod(), InsertionMethod::axDirect);
    EXPECT_EQ(settings.language(), QStringLiteral("hi"));
    EXPECT_EQ(settings.personalDictionary(), (QStringList {"Kubernetes", "Priya", "Smith, John"}));
    EXPECT_TRUE(settings.feedbackEnabled());
    EXPECT_TRUE(settings.launchAtLogin());
    EXPECT_EQ(
        settings.inputDeviceUID(), QStringLiteral("alsa_input.usb-Blue_Yeti-00.analog-stereo"));
}

TEST(QSettingsFiles, SettingsSurviveANewStoreOnTheSameFile)
{
    SettingsFile file;
    {
        PreferenceStoreQSettings preferences(file.path());
        SettingsStore settings(preferences);
        assignEverySetting(settings);
    }
    PreferenceStoreQSettings reopened(file.path());
    expectEverySettingAssigned(SettingsStore(reopened));

    PreferenceStoreQSettings relaunched(file.freshCopy());
    expectEverySettingAssigned(SettingsStore(relaunched));
}

TEST(QSettingsFiles, SettingsAreWrittenUnderTheirKeys)
{
    SettingsFile file;
    {
        PreferenceStoreQSettings preferences(file.path());
        SettingsStore settings(preferences);
        assignEverySetting(settings);
    }
    const QByteArray contents = file.contents();
    EXPECT_TRUE(contents.contains("sayvo.endpointURL=wss://192.168.1.10:9000/engine/v1\n"));
    EXPECT_TRUE(contents.contains("sayvo.hotkeyTrigger=rightOption\n"));
    EXPECT_TRUE(contents.contains("sayvo.triggerMode=toggle\n"));
    EXPECT_TRUE(contents.contains("sayvo.insertionMethod=axDirect\n"));
    EXPECT_TRUE(contents.contains("sayvo.language=hi\n"));
    EXPECT_TRUE(contents.contains("sayvo.feedbackEnabled=true\n"));
    EXPECT_TRUE(contents.contains("sayvo.launchAtLogin=true\n"));
}

TEST(QSettingsFiles, NilLanguageAndDeviceLeaveNoKeyInTheFile)
{
    SettingsFile file;
    {
        PreferenceStoreQSettings preferences(file.path());
        SettingsStore settings(preferences);
        assignEverySetting(settings);
        preferences.sync();
        ASSERT_TRUE(file.contents().contains("sayvo.language="));
        settings.setLanguage(std::nullopt);
        settings.setInputDeviceUID(std::nullopt);
    }
    EXPECT_FALSE(file.contents().contains("sayvo.language"));
    EXPECT_FALSE(file.contents().contains("sayvo.inputDeviceUID"));
    PreferenceStoreQSettings relaunched(file.freshCopy());
    SettingsStore settings(relaunched);
    EXPECT_EQ(settings.language(), std::nullopt);
    EXPECT_EQ(settings.inputDeviceUID(), std::nullopt);
}

TEST(QSettingsFiles, FirstLaunchOnAMissingFileLoadsDefaults)
{
    SettingsFile file;
    PreferenceStoreQSettings preferences(file.path());
    SettingsStore settings(preferences);
    EXPECT_EQ(settings.endpointURL(), SettingsStore::defaultEndpoint());
    EXPECT_EQ(settings.hotkeyTrigger(), HotkeyTrigger::fnGlobe);
    EXPECT_EQ(settings.personalDictionary(), QStringList {});
    UsageStatsStore usage(preferences);
    EXPECT_EQ(usage.totals(), UsageTotals {});
}

// The INI format writes lists specially (an empty list as a marker, a one-entry list as a plain
// value, entries with commas quoted); every shape must come back as it was stored.
TEST(QSettingsFiles, DictionaryOfEveryShapeSurvivesARelaunch)
{
    const std::vector<QStringList> dictionaries {
        {},
        {"Kubernetes"},
        {"Smith, John"},
        {"a, b", "c"},
        {"", "x"},
        {QString::fromUtf8("Zoë"), QString::fromUtf8("日本語"), QString::fromUtf8("🌐")},
        {"say \"hi\"", "back\\slash", "semi;colon", "equals=sign", "#hash"},
        {"@Invalid()", "@Variant(x)", " padded "},
        {"two\nlines"},
    };
    for (const QStringList &dictionary : dictionaries) {
        SettingsFile file;
        {
            PreferenceStoreQSettings preferences(file.path());
            SettingsStore(preferences).setPersonalDictionary(dictionary);
        }
        PreferenceStoreQSettings relaunched(file.freshCopy());
        EXPECT_EQ(SettingsStore(relaunched).personalDictionary(), dictionary)
            << file.contents().toStdString();
    }
}

TEST(QSettingsFiles, UsageTotalsSurviveANewStoreOnTheSameFile)
{
    SettingsFile file;
    {
        PreferenceStoreQSettings preferences(file.path());
        UsageStatsStore usage(preferences);
        usage.record(stats(10.0, 25, 2, 0.3, 0.2));
        usage.record(stats(0.1, 1, 0, 0.7, 0.3));
    }
    const UsageTotals expected {
        2, 26, 2, 10.0 + 0.1, 10.0 * 0.3 + 0.1 * 0.7, 10.0 * 0.2 + 0.1 * 0.3};

    PreferenceStoreQSettings reopened(file.path());
    EXPECT_EQ(UsageStatsStore(reopened).totals(), expected);

    // Doubles are written with every digit they need, so a relaunch reads the very same value.
    PreferenceStoreQSettings relaunched(file.freshCopy());
    EXPECT_EQ(UsageStatsStore(relaunched).totals(), expected);
}

TEST(QSettingsFiles, LargestCountersSurviveARelaunch)
{
    const qint64 max = std::numeric_limits<qint64>::max();
    SettingsFile file;
    file.write("[General]\nsayvo.usageStats.utterances=" + QByteArray::number(max - 1) + "\n");
    {
        PreferenceStoreQSettings preferences(file.path());
        UsageStatsStore usage(preferences);
        usage.record(stats(1.0, 1, 0, 0.5, 0.5));
        EXPECT_EQ(usage.utterances(), max);
    }
    PreferenceStoreQSettings relaunched(file.freshCopy());
    EXPECT_EQ(UsageStatsStore(relaunched).utterances(), max);
}

TEST(QSettingsFiles, ResetThenRelaunchYieldsZerosBecauseTheKeysAreGone)
{
    SettingsFile file;
    {
        PreferenceStoreQSettings preferences(file.path());
        SettingsStore settings(preferences);
        settings.setHotkeyTrigger(HotkeyTrigger::f5);
        UsageStatsStore usage(preferences);
        usage.record(stats(10.0, 25, 2, 0.3, 0.2));
        preferences.sync();
        ASSERT_TRUE(file.contents().contains("sayvo.usageStats.utterances=1"));
        usage.reset();
    }
    EXPECT_FALSE(file.contents().contains("usageStats"));
    EXPECT_TRUE(file.contents().contains("sayvo.hotkeyTrigger=f5"));

    PreferenceStoreQSettings relaunched(file.freshCopy());
    EXPECT_EQ(UsageStatsStore(relaunched).totals(), UsageTotals {});
    EXPECT_EQ(SettingsStore(relaunched).hotkeyTrigger(), HotkeyTrigger::f5);
}

// A file another build or the user wrote by hand: every scalar is text.
TEST(QSettingsFiles, HandWrittenFileLoadsItsValues)
{
    SettingsFile file;
    file.write("[General]\n"
               "sayvo.endpointURL=ws://10.1.2.3:8765\n"
               "sayvo.hotkeyTrigger=menuBarToggle\n"
               "sayvo.triggerMode=toggle\n"
               "sayvo.insertionMethod=axDirect\n"
               "sayvo.language=en\n"
               "sayvo.personalDictionary=Sayvo, PocketSphinx, \"Doe, Jane\"\n"
               "sayvo.feedbackEnabled=true\n"
               "sayvo.launchAtLogin=1\n"
               "sayvo.inputDeviceUID=default-mic\n"
               "sayvo.usageStats.utterances=12\n"
               "sayvo.usageStats.totalWords=300\n"
               "sayvo.usageStats.totalFillers=9\n"
               "sayvo.usageStats.totalAudioSeconds=120.5\n"
               "sayvo.usageStats.totalProcessingSeconds=30.125\n"
               "sayvo.usageStats.totalAsrProcessingSeconds=12\n");
    PreferenceStoreQSettings preferences(file.path());
    SettingsStore settings(preferences);
    EXPECT_EQ(settings.endpointURL(), QUrl("ws://10.1.2.3:8765"));
    EXPECT_EQ(settings.hotkeyTrigger(), HotkeyTrigger::menuBarToggle);
    EXPECT_EQ(settings.triggerMode(), TriggerMode::toggle);
    EXPECT_EQ(settings.insertionMethod(), InsertionMethod::axDirect);
    EXPECT_EQ(settings.language(), QStringLiteral("en"));
    EXPECT_EQ(settings.personalDictionary(), (QStringList {"Sayvo", "PocketSphinx", "Doe, Jane"}));
    EXPECT_TRUE(settings.feedbackEnabled());
    EXPECT_TRUE(settings.launchAtLogin());
    EXPECT_EQ(settings.inputDeviceUID(), QStringLiteral("default-mic"));

    UsageStatsStore usage(preferences);
    EXPECT_EQ(usage.totals(), (UsageTotals {12, 300, 9, 120.5, 30.125, 12.0}));
}

} // namespace
} // namespace sayvo
