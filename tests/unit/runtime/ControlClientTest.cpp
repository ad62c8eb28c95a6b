#include "runtime/ControlClient.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <unistd.h>

using namespace sayvo;

namespace {

TEST(ControlClientTest, TheSessionsRuntimeDirectoryHoldsTheChannelWhereThereIsOne)
{
    const QByteArray previous = qgetenv("XDG_RUNTIME_DIR");
    QTemporaryDir runtime;
    qputenv("XDG_RUNTIME_DIR", runtime.path().toLocal8Bit());
    EXPECT_EQ(instanceDirectory(), runtime.path().toStdString() + "/sayvo");
    const std::string perUser = "/tmp/sayvo-" + std::to_string(::geteuid());
    qputenv("XDG_RUNTIME_DIR", runtime.filePath(QStringLiteral("missing")).toLocal8Bit());
    EXPECT_EQ(instanceDirectory(), perUser);
    qputenv("XDG_RUNTIME_DIR", "relative/path");
    EXPECT_EQ(instanceDirectory(), perUser);
    qunsetenv("XDG_RUNTIME_DIR");
    EXPECT_EQ(instanceDirectory(), perUser);
    qputenv("XDG_RUNTIME_DIR", previous);
    EXPECT_EQ(instanceSocketPath("/run/user/1000/sayvo"), "/run/user/1000/sayvo/control");
}

} // namespace
