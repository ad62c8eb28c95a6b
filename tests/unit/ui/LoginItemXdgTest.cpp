#include "ui/linux/LoginItemXdg.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace sayvo {
namespace {

QString read(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

TEST(LoginItemXdgTest, EnablingWritesAnAutostartEntryAndDisablingRemovesIt)
{
    QTemporaryDir config;
    LoginItemXdg item(config.path(), QStringLiteral("/opt/Sayvo/bin/sayvo"));
    EXPECT_FALSE(item.isEnabled());
    ASSERT_TRUE(item.setEnabled(true));
    EXPECT_TRUE(item.isEnabled());
    const QString path = config.path() + QStringLiteral("/autostart/com.sayvoapp.Sayvo.desktop");
    EXPECT_EQ(item.entryPath(), path);
    const QString entry = read(path);
    EXPECT_TRUE(entry.startsWith(QStringLiteral("[Desktop Entry]\n")));
    EXPECT_TRUE(entry.contains(QStringLiteral("\nType=Application\n")));
    EXPECT_TRUE(entry.contains(QStringLiteral("\nName=Sayvo\n")));
    EXPECT_TRUE(entry.contains(QStringLiteral("\nExec=\"/opt/Sayvo/bin/sayvo\"\n")));
    // The installed menu entry's icon, under the same name.
    EXPECT_TRUE(entry.contains(QStringLiteral("\nIcon=com.sayvoapp.Sayvo\n")));
    ASSERT_TRUE(item.setEnabled(false));
    EXPECT_FALSE(QFile::exists(path));
    EXPECT_FALSE(item.isEnabled());
    EXPECT_TRUE(item.setEnabled(false)) << "removing an absent entry is not a failure";
}

TEST(LoginItemXdgTest, AnEntryUnderTheEarlierNameCountsAndIsReplacedOrRemoved)
{
    QTemporaryDir config;
    const QString legacy = config.path() + QStringLiteral("/autostart/sayvo.desktop");
    const auto writeLegacy = [&] {
        QDir().mkpath(config.path() + QStringLiteral("/autostart"));
        QFile file(legacy);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write("[Desktop Entry]\nType=Application\nName=Sayvo\nExec=sayvo\n");
    };
    LoginItemXdg item(config.path(), QStringLiteral("/usr/bin/sayvo"));

    writeLegacy();
    EXPECT_TRUE(item.isEnabled());
    ASSERT_TRUE(item.setEnabled(true));
    EXPECT_FALSE(QFile::exists(legacy)) << "two entries would start Sayvo twice";
    EXPECT_TRUE(QFile::exists(item.entryPath()));

    writeLegacy();
    ASSERT_TRUE(item.setEnabled(false));
    EXPECT_FALSE(QFile::exists(legacy));
    EXPECT_FALSE(QFile::exists(item.entryPath()));
    EXPECT_FALSE(item.isEnabled());
}

TEST(LoginItemXdgTest, SpecialCharactersInThePathAreEscapedInsideTheQuotes)
{
    LoginItemXdg item(QStringLiteral("/tmp"), QStringLiteral("/home/a b/$x\"y`z\\w/sayvo"));
    EXPECT_TRUE(
        item.entryText().contains(QStringLiteral("Exec=\"/home/a b/\\$x\\\"y\\`z\\\\w/sayvo\"\n")));
}

TEST(LoginItemXdgTest, TheConfigHomeFollowsXdgConfigHome)
{
    const QByteArray previous = qgetenv("XDG_CONFIG_HOME");
    qputenv("XDG_CONFIG_HOME", "/tmp/sayvo-config-test");
    EXPECT_EQ(LoginItemXdg::defaultConfigHome(), QStringLiteral("/tmp/sayvo-config-test"));
    qputenv("XDG_CONFIG_HOME", "relative/is/ignored");
    EXPECT_TRUE(LoginItemXdg::defaultConfigHome().endsWith(QStringLiteral("/.config")));
    qputenv("XDG_CONFIG_HOME", previous);
}

TEST(LoginItemXdgTest, AnUnwritableConfigHomeReportsFailure)
{
    QTemporaryDir dir;
    QFile blocker(dir.path() + QStringLiteral("/autostart"));
    ASSERT_TRUE(blocker.open(QIODevice::WriteOnly));
    blocker.close();
    LoginItemXdg item(dir.path(), QStringLiteral("/usr/bin/sayvo"));
    EXPECT_FALSE(item.setEnabled(true));
    EXPECT_FALSE(item.isEnabled());
}

} // namespace
} // namespace sayvo
