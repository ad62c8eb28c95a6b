#include "PreferenceStoreQSettings.h"
#include "SettingsFile.h"
#include "SettingsStore.h"
#include "StorePrinters.h"
#include "UsagePresentation.h"
#include "UsageStatsStore.h"

#include <QDir>

#include <gtest/gtest.h>

#include <random>

namespace sayvo {
namespace {

void expectDefaultSettings(const SettingsStore &settings)
{
    EXPECT_EQ(settings.endpointURL(), SettingsStore::defaultEndpoint());
    EXPECT_EQ(settings.hotkeyTrigger(), HotkeyTrigger::fnGlobe);
    EXPECT_EQ(settings.triggerMode(), TriggerMode::holdToTalk);
    EXPECT_EQ(settings.insertionMethod(), InsertionMethod::paste);
    EXPECT_EQ(settings.language(), std::nullopt);
    EXPECT_EQ(settings.personalDictionary(), QStringList {});
    EXPECT_FALSE(settings.feedbackEnabled());
    EXPECT_FALSE(settings.launchAtLogin());
    EXPECT_EQ(settings.inputDeviceUID(), std::nullopt);
}

TEST(DamagedSettingsFile, ValuesOfTheWrongTypeLoadTheirDefaults)
{
    SettingsFile file;
    file.write("[General]\n"
               "sayvo.endpointURL=\"ws://a:1\", \"ws://b:2\"\n"
               "sayvo.hotkeyTrigger=f5, rightOption\n"
               "sayvo.triggerMode=@Variant(\\0\\0\\0\\x7f\\0\\0\\0\\x6QPoint)\n"
               "sayvo.insertionMethod=AXDirect\n"
               "sayvo.language=en, hi\n"
               "sayvo.personalDictionary=@Variant(\\0\\0\\0\\x2\\0\\0\\0\\x5)\n"
               "sayvo.feedbackEnabled=banana\n"
               "sayvo.launchAtLogin=@Invalid()\n"
               "sayvo.inputDeviceUID=a, b\n"
               "sayvo.usageStats.utterances=lots\n"
               "sayvo.usageStats.totalWords=1, 2\n"
               "sayvo.usageStats.totalFillers=99999999999999999999\n"
               "sayvo.usageStats.totalAudioSeconds=nan\n"
               "sayvo.usageStats.totalProcessingSeconds=inf\n"
               "sayvo.usageStats.totalAsrProcessingSeconds=@Variant(garbage\n");
    PreferenceStoreQSettings preferences(file.path());
    SettingsStore settings(preferences);
    expectDefaultSettings(settings);
    EXPECT_EQ(UsageStatsStore(preferences).totals(), UsageTotals {});
}

TEST(DamagedSettingsFile, TheDeviceKeyThatCouldNotBeReadIsDropped)
{
    SettingsFile file;
    file.write("[General]\nsayvo.inputDeviceUID=a, b\nsayvo.hotkeyTrigger=f5\n");
    {
        PreferenceStoreQSettings preferences(file.path());
        SettingsStore settings(preferences);
    }
    EXPECT_FALSE(file.contents().contains("inputDeviceUID"));
    EXPECT_TRUE(file.contents().contains("sayvo.hotkeyTrigger=f5"));
}

// Lines Qt cannot make sense of cost only their own keys (an unterminated quote runs to the end
// of the file, so it comes last here).
TEST(DamagedSettingsFile, BrokenLinesCostOnlyTheirOwnKeys)
{
    SettingsFile file;
    // Sized explicitly: the file holds a NUL byte.
    static const char kContents[] = "[General\n"
                                    "sayvo.hotkeyTrigger=f5\n"
                                    "this line has no equals sign\n"
                                    "=value without a key\n"
                                    "\xff\xfe\x00\x01=\x80\x81\n"
                                    "sayvo.usageStats.utterances=3\n"
                                    "[Other]\n"
                                    "sayvo.triggerMode=toggle\n"
                                    "[General]\n"
                                    "sayvo.launchAtLogin=true\n"
                                    "sayvo.language=\"unterminated\n";
    file.write(QByteArray(kContents, sizeof(kContents) - 1));
    PreferenceStoreQSettings preferences(file.path());
    SettingsStore settings(preferences);
    UsageStatsStore usage(preferences);
    EXPECT_EQ(settings.hotkeyTrigger(), HotkeyTrigger::f5);
    EXPECT_EQ(usage.utterances(), 3);
    EXPECT_TRUE(settings.launchAtLogin());
    EXPECT_EQ(settings.triggerMode(), TriggerMode::holdToTalk);
    EXPECT_EQ(settings.endpointURL(), SettingsStore::defaultEndpoint());
    EXPECT_FALSE(settings.feedbackEnabled());
    EXPECT_EQ(usage.totalWords(), 0);
}

TEST(DamagedSettingsFile, EmptyFileLoadsDefaults)
{
    SettingsFile file;
    file.write("");
    PreferenceStoreQSettings preferences(file.path());
    expectDefaultSettings(SettingsStore(preferences));
    EXPECT_EQ(UsageStatsStore(preferences).totals(), UsageTotals {});
}

TEST(DamagedSettingsFile, RandomBytesLoadDefaults)
{
    std::mt19937 random(20261122);
    std::uniform_int_distribution<int> byte(0, 255);
    std::uniform_int_distribution<int> length(1, 4096);
    for (int round = 0; round < 40; ++round) {
        SettingsFile file;
        QByteArray contents(length(random), '\0');
        for (char &c : contents) {
            c = static_cast<char>(byte(random));
        }
        file.write(contents);
        PreferenceStoreQSettings preferences(file.path());
        SettingsStore settings(preferences);
        UsageStatsStore usage(preferences);
        expectDefaultSettings(settings);
        EXPECT_EQ(usage.totals(), UsageTotals {});
    }
}

// A valid file with bytes overwritten at random: whatever survives loads, nothing crashes, and
// the Usage tab can still be drawn.
TEST(DamagedSettingsFile, CorruptedValidFileNeverCrashes)
{
    const QByteArray valid = "[General]\n"
                             "sayvo.endpointURL=ws://10.1.2.3:8765\n"
                             "sayvo.hotkeyTrigger=menuBarToggle\n"
                             "sayvo.personalDictionary=Sayvo, PocketSphinx, \"Doe, Jane\"\n"
                             "sayvo.feedbackEnabled=true\n"
                             "sayvo.usageStats.utterances=12\n"
                             "sayvo.usageStats.totalWords=300\n"
                             "sayvo.usageStats.totalAudioSeconds=120.5\n"
                             "sayvo.usageStats.totalProcessingSeconds=30.125\n";
    std::mt19937 random(7);
    std::uniform_int_distribution<int> byte(0, 255);
    std::uniform_int_distribution<qsizetype> position(0, valid.size() - 1);
    for (int round = 0; round < 60; ++round) {
        SettingsFile file;
        QByteArray contents = valid;
        for (int flip = 0; flip < 1 + round % 8; ++flip) {
            contents[position(random)] = static_cast<char>(byte(random));
        }
        file.write(contents);
        PreferenceStoreQSettings preferences(file.path());
        SettingsStore settings(preferences);
        UsageStatsStore usage(preferences);
        const UsagePresentation shown = UsagePresentation::of(usage.totals());
        EXPECT_EQ(shown.rows.size(), 7u);
        EXPECT_TRUE(settings.endpointURL().isValid());
    }
}

// A path that cannot be read as a file (here a directory) reads as an empty store; assigning
// afterwards still works in memory and never crashes.
TEST(DamagedSettingsFile, UnreadableFileLoadsDefaults)
{
    SettingsFile file;
    ASSERT_TRUE(QDir().mkpath(file.path()));
    PreferenceStoreQSettings preferences(file.path());
    SettingsStore settings(preferences);
    UsageStatsStore usage(preferences);
    expectDefaultSettings(settings);
    EXPECT_EQ(usage.totals(), UsageTotals {});
    EXPECT_EQ(preferences.status(), QSettings::AccessError);

    settings.setHotkeyTrigger(HotkeyTrigger::f5);
    usage.record(Stats {});
    preferences.sync();
    EXPECT_EQ(settings.hotkeyTrigger(), HotkeyTrigger::f5);
    EXPECT_EQ(usage.utterances(), 1);
}

} // namespace
} // namespace sayvo
