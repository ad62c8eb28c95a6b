#include "store/HotkeyTrigger.h"

#include <gtest/gtest.h>

namespace sayvo {
namespace {

// A PC keyboard has no Fn/Globe or Option key that reaches the desktop; the user sees the
// keys that stand in for them.
TEST(HotkeyTriggerLabels, NameTheKeysOfAPcKeyboard)
{
    EXPECT_EQ(displayName(HotkeyTrigger::fnGlobe), "Right Ctrl");
    EXPECT_EQ(displayName(HotkeyTrigger::f5), "F5");
    EXPECT_EQ(displayName(HotkeyTrigger::rightOption), "Right Alt");
    EXPECT_EQ(displayName(HotkeyTrigger::menuBarToggle), "Tray icon click (toggle)");
}

} // namespace
} // namespace sayvo
