#include "PreferenceStoreQSettings.h"
#include "SettingsStore.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace sayvo {
namespace {

// The user's store is the INI file SayvoApp/Sayvo.conf under the XDG configuration directory.
// Qt reads XDG_CONFIG_HOME when the first native store is opened, so this is the only test
// here that opens one.
TEST(NativeLocation, UserStoreIsSayvoConfUnderXdgConfigHome)
{
    QTemporaryDir configHome;
    ASSERT_TRUE(configHome.isValid());
    qputenv("XDG_CONFIG_HOME", configHome.path().toLocal8Bit());
    const QString expected = configHome.filePath(QStringLiteral("SayvoApp/Sayvo.conf"));
    {
        PreferenceStoreQSettings preferences;
        EXPECT_EQ(preferences.location(), expected);
        SettingsStore settings(preferences);
        settings.setTriggerMode(TriggerMode::toggle);
    }
    QFile file(expected);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_TRUE(file.readAll().contains("sayvo.triggerMode=toggle"));
}

} // namespace
} // namespace sayvo
