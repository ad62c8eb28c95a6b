#include "store/HotkeyTrigger.h"
#include "store/InsertionMethod.h"
#include "store/TriggerMode.h"

#include <gtest/gtest.h>

namespace sayvo {
namespace {

TEST(HotkeyTrigger, OffersTheFourTriggersInOrder)
{
    ASSERT_EQ(kAllHotkeyTriggers.size(), 4u);
    EXPECT_EQ(kAllHotkeyTriggers[0], HotkeyTrigger::fnGlobe);
    EXPECT_EQ(kAllHotkeyTriggers[1], HotkeyTrigger::f5);
    EXPECT_EQ(kAllHotkeyTriggers[2], HotkeyTrigger::rightOption);
    EXPECT_EQ(kAllHotkeyTriggers[3], HotkeyTrigger::menuBarToggle);
}

TEST(HotkeyTrigger, RawValues)
{
    EXPECT_EQ(rawValue(HotkeyTrigger::fnGlobe), "fnGlobe");
    EXPECT_EQ(rawValue(HotkeyTrigger::f5), "f5");
    EXPECT_EQ(rawValue(HotkeyTrigger::rightOption), "rightOption");
    EXPECT_EQ(rawValue(HotkeyTrigger::menuBarToggle), "menuBarToggle");
}

TEST(HotkeyTrigger, ParsesEachRawValueBack)
{
    for (HotkeyTrigger trigger : kAllHotkeyTriggers) {
        EXPECT_EQ(hotkeyTriggerFromRaw(rawValue(trigger)), trigger);
    }
}

TEST(HotkeyTrigger, RejectsOtherSpellings)
{
    EXPECT_EQ(hotkeyTriggerFromRaw("F5"), std::nullopt);
    EXPECT_EQ(hotkeyTriggerFromRaw("fnglobe"), std::nullopt);
    EXPECT_EQ(hotkeyTriggerFromRaw("RightOption"), std::nullopt);
    EXPECT_EQ(hotkeyTriggerFromRaw(" f5"), std::nullopt);
    EXPECT_EQ(hotkeyTriggerFromRaw(""), std::nullopt);
    EXPECT_EQ(hotkeyTriggerFromRaw("capsLock"), std::nullopt);
}

TEST(TriggerMode, RawValuesAndLabels)
{
    ASSERT_EQ(kAllTriggerModes.size(), 2u);
    EXPECT_EQ(kAllTriggerModes[0], TriggerMode::holdToTalk);
    EXPECT_EQ(kAllTriggerModes[1], TriggerMode::toggle);
    EXPECT_EQ(rawValue(TriggerMode::holdToTalk), "holdToTalk");
    EXPECT_EQ(rawValue(TriggerMode::toggle), "toggle");
    EXPECT_EQ(displayName(TriggerMode::holdToTalk), "Hold to talk");
    EXPECT_EQ(displayName(TriggerMode::toggle), "Toggle");
}

TEST(TriggerMode, ParsesOnlyExactRawValues)
{
    EXPECT_EQ(triggerModeFromRaw("toggle"), TriggerMode::toggle);
    EXPECT_EQ(triggerModeFromRaw("holdToTalk"), TriggerMode::holdToTalk);
    EXPECT_EQ(triggerModeFromRaw("Toggle"), std::nullopt);
    EXPECT_EQ(triggerModeFromRaw("hold"), std::nullopt);
}

TEST(InsertionMethod, RawValuesAndLabels)
{
    ASSERT_EQ(kAllInsertionMethods.size(), 2u);
    EXPECT_EQ(kAllInsertionMethods[0], InsertionMethod::paste);
    EXPECT_EQ(kAllInsertionMethods[1], InsertionMethod::axDirect);
    EXPECT_EQ(rawValue(InsertionMethod::paste), "paste");
    EXPECT_EQ(rawValue(InsertionMethod::axDirect), "axDirect");
    EXPECT_EQ(displayName(InsertionMethod::paste), "Paste (recommended)");
    EXPECT_EQ(displayName(InsertionMethod::axDirect), "Accessibility (direct)");
}

TEST(InsertionMethod, ParsesOnlyExactRawValues)
{
    EXPECT_EQ(insertionMethodFromRaw("axDirect"), InsertionMethod::axDirect);
    EXPECT_EQ(insertionMethodFromRaw("paste"), InsertionMethod::paste);
    EXPECT_EQ(insertionMethodFromRaw("AXDirect"), std::nullopt);
    EXPECT_EQ(insertionMethodFromRaw("Paste"), std::nullopt);
}

} // namespace
} // namespace sayvo
