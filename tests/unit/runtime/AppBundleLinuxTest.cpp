#include "runtime/AppBundle.h"

#include <QCoreApplication>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

TEST(AppBundleLinux, TheExecutableIsTheBundle)
{
    const sayvo::AppBundle bundle = sayvo::mainAppBundle();
    EXPECT_EQ(bundle.bundlePath, QCoreApplication::applicationFilePath());
    EXPECT_FALSE(bundle.resourceDir.isEmpty());
    // The engine program is part of the payload on Linux.
    EXPECT_EQ(bundle.helperDir, std::nullopt);
}

TEST(AppBundleLinux, VersionIsTheCompiledOneOrAbsentForDev)
{
    const QString compiled = QStringLiteral(SAYVO_TEST_VERSION);
    const sayvo::AppBundle bundle = sayvo::mainAppBundle();
    if (compiled.isEmpty() || compiled == QLatin1String("dev")) {
        EXPECT_EQ(bundle.shortVersion, std::nullopt);
    } else {
        EXPECT_EQ(bundle.shortVersion, compiled);
    }
}

TEST(AppBundleLinux, UserDataDirectoryFollowsXdgDataHome)
{
    QTemporaryDir dir;
    const QByteArray saved = qgetenv("XDG_DATA_HOME");
    qputenv("XDG_DATA_HOME", dir.path().toUtf8());
    const QString data = sayvo::userDataDirectory();
    qputenv("XDG_DATA_HOME", saved);
    EXPECT_EQ(data, dir.path());
}

} // namespace
