#include "store/HotkeyTrigger.h"

#include <gtest/gtest.h>

namespace sayvo {
namespace {

TEST(HotkeyTriggerLabels, NameTheKeysOfAMacKeyboard)
{
    EXPECT_EQ(displayName(HotkeyTrigger::fnGlobe), QString::fromUtf8("Fn / 🌐 (Globe)"));
    EXPECT_EQ(displayName(HotkeyTrigger::f5), "F5");
    EXPECT_EQ(displayName(HotkeyTrigger::rightOption), "Right Option");
    EXPECT_EQ(displayName(HotkeyTrigger::menuBarToggle), "Menu bar click (toggle)");
}

} // namespace
} // namespace sayvo
