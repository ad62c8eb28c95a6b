#include "store/PreferenceStoreQSettings.h"
#include "store/SettingsStore.h"

#include <QDir>
#include <QFile>
#include <QSettings>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace sayvo {
namespace {

// The user's store is the INI file SayvoApp/Sayvo.conf under the XDG configuration directory,
// and a binary value in it is made harmless there too. The system-wide files, which Sayvo could
// not repair, are not read at all. Qt reads XDG_CONFIG_HOME when the first native store is
// opened, so this is the only test here that opens one.
TEST(NativeLocation, UserStoreIsSayvoConfUnderXdgConfigHome)
{
    QTemporaryDir configHome;
    ASSERT_TRUE(configHome.isValid());
    qputenv("XDG_CONFIG_HOME", configHome.path().toLocal8Bit());
    const QString expected = configHome.filePath(QStringLiteral("SayvoApp/Sayvo.conf"));
    ASSERT_TRUE(QDir().mkpath(configHome.filePath(QStringLiteral("SayvoApp"))));
    {
        QFile file(expected);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write("[General]\nsayvo.hotkeyTrigger=f5\n"
                   "sayvo.language=@Variant(\\0\\0\\0\\t\\xff\\xff\\xff\\xf0)\n");
    }
    QTemporaryDir systemConfig;
    ASSERT_TRUE(systemConfig.isValid());
    QSettings::setPath(QSettings::NativeFormat, QSettings::SystemScope, systemConfig.path());
    ASSERT_TRUE(QDir().mkpath(systemConfig.filePath(QStringLiteral("SayvoApp"))));
    {
        QFile file(systemConfig.filePath(QStringLiteral("SayvoApp/Sayvo.conf")));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write("[General]\nsayvo.insertionMethod=axDirect\n"
                   "sayvo.inputDeviceUID=@Variant(\\0\\0\\0\\t\\xff\\xff\\xff\\xf0)\n");
    }
    {
        PreferenceStoreQSettings preferences;
        EXPECT_EQ(preferences.location(), expected);
        SettingsStore settings(preferences);
        EXPECT_EQ(settings.hotkeyTrigger(), HotkeyTrigger::f5);
        EXPECT_EQ(settings.insertionMethod(), InsertionMethod::paste);
        EXPECT_EQ(settings.inputDeviceUID(), std::nullopt);
        ASSERT_TRUE(settings.language().has_value());
        EXPECT_TRUE(settings.language()->startsWith(QStringLiteral("@Variant(")));
        settings.setTriggerMode(TriggerMode::toggle);
    }
    QFile file(expected);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QByteArray saved = file.readAll();
    EXPECT_TRUE(saved.contains("sayvo.triggerMode=toggle"));
    EXPECT_FALSE(saved.contains("sayvo.language=@Variant("));
}

} // namespace
} // namespace sayvo
