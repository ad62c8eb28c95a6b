#include "store/SettingsStore.h"
#include "store/UsageStatsStore.h"
#include "store/macos/PreferenceStoreUserDefaults.h"

#import <Foundation/Foundation.h>

#include <QCoreApplication>

#include <gtest/gtest.h>

namespace sayvo {
namespace {

// The stores write into a suite of their own, read back here through NSUserDefaults itself:
// what `defaults read` would show.
class UserDefaultsKeys : public ::testing::Test
{
protected:
    void TearDown() override
    {
        [[NSUserDefaults standardUserDefaults] removePersistentDomainForName:suite.toNSString()];
    }

    NSUserDefaults *raw() const
    {
        return [[NSUserDefaults alloc] initWithSuiteName:suite.toNSString()];
    }

    const QString suite
        = QStringLiteral("com.sayvoapp.Sayvo.tests.%1").arg(QCoreApplication::applicationPid());
};

TEST_F(UserDefaultsKeys, SettingsLandUnderTheirPlainDottedNames)
{
    {
        PreferenceStoreUserDefaults preferences(suite);
        SettingsStore settings(preferences);
        settings.setTriggerMode(TriggerMode::toggle);
        settings.setFeedbackEnabled(true);
        settings.setPersonalDictionary({QStringLiteral("Sayvo")});
        preferences.sync();
    }
    EXPECT_TRUE([[raw() objectForKey:@"sayvo.triggerMode"] isEqual:@"toggle"]);
    EXPECT_TRUE([raw() boolForKey:@"sayvo.feedbackEnabled"]);
    EXPECT_TRUE([[raw() objectForKey:@"sayvo.personalDictionary"] isEqual:@[ @"Sayvo" ]]);
    // Nothing under the middle-dot names QSettings would have used.
    EXPECT_EQ([raw() objectForKey:@"sayvo\u00b7triggerMode"], nil);
}

TEST_F(UserDefaultsKeys, ValuesWrittenByHandAreReadBack)
{
    [raw() setObject:@"axDirect" forKey:@"sayvo.insertionMethod"];
    PreferenceStoreUserDefaults preferences(suite);
    SettingsStore settings(preferences);
    EXPECT_EQ(settings.insertionMethod(), InsertionMethod::axDirect);
}

TEST_F(UserDefaultsKeys, UsageCountersAreNumbers)
{
    PreferenceStoreUserDefaults preferences(suite);
    UsageStatsStore usage(preferences);
    Stats stats;
    stats.audioDurationS = 2.5;
    stats.wordCount = 7;
    usage.record(stats);
    preferences.sync();
    // integerForKey: would read a string "1" as 1 too: the stored objects must be numbers.
    for (NSString *key in @[
             @"sayvo.usageStats.utterances", @"sayvo.usageStats.totalWords",
             @"sayvo.usageStats.totalAudioSeconds"
         ]) {
        EXPECT_TRUE([[raw() objectForKey:key] isKindOfClass:[NSNumber class]]) << key.UTF8String;
    }
    EXPECT_EQ([raw() integerForKey:@"sayvo.usageStats.utterances"], 1);
    EXPECT_EQ([raw() integerForKey:@"sayvo.usageStats.totalWords"], 7);
    EXPECT_DOUBLE_EQ([raw() doubleForKey:@"sayvo.usageStats.totalAudioSeconds"], 2.5);
}

} // namespace
} // namespace sayvo
