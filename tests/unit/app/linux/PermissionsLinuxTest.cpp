// What Linux reports for the three permissions the app asks about.
#include "app/linux/PermissionsLinux.h"
#include "desktop/HotkeyManager.h"
#include "support/audio/FakeAudioHardware.h"
#include "support/desktop/FakeKeyboardEventSource.h"

#include <gtest/gtest.h>

using namespace sayvo;

TEST(PermissionsLinuxTest, InputMonitoringIsNotRefusedBeforeTheKeyTapIsTried)
{
    FakeAudioHardware hardware;
    auto source = std::make_unique<sayvo::testing::FakeKeyboardEventSource>();
    sayvo::testing::FakeKeyboardEventSource *keys = source.get();
    HotkeyManager hotkeys(HotkeyTrigger::f5, std::move(source));
    PermissionsLinux permissions(hardware, hotkeys);

    // The launch asks before the coordinator installs the tap.
    EXPECT_TRUE(permissions.isInputMonitoringGranted());
    keys->failInstall = true;
    EXPECT_FALSE(hotkeys.start().ok());
    EXPECT_FALSE(permissions.isInputMonitoringGranted());
    EXPECT_FALSE(permissions.isGranted(Permissions::Kind::inputMonitoring));
    keys->failInstall = false;
    EXPECT_TRUE(hotkeys.start().ok());
    EXPECT_TRUE(permissions.isInputMonitoringGranted());
    hotkeys.stop();
    EXPECT_TRUE(permissions.isInputMonitoringGranted());
}
