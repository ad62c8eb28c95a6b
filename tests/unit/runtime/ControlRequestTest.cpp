#include "runtime/ControlRequest.h"
#include "runtime/InstanceChannel.h"

#include <QTemporaryDir>

#include <unistd.h>

#include <gtest/gtest.h>

using namespace sayvo;

namespace {

TEST(ControlRequestTest, EveryRequestAndReplyTravelsAsOneLine)
{
    for (const ControlRequest request :
        {ControlRequest::triggerPress, ControlRequest::triggerRelease,
            ControlRequest::triggerToggle, ControlRequest::showSettings}) {
        const QByteArray line = encode(request);
        EXPECT_TRUE(line.endsWith('\n'));
        EXPECT_EQ(line.count('\n'), 1);
        EXPECT_EQ(decodeControlRequest(line), request) << line.toStdString();
    }
    for (const ControlReply reply :
        {ControlReply::done, ControlReply::refused, ControlReply::unknown}) {
        EXPECT_EQ(decodeControlReply(encode(reply)), reply);
    }
    EXPECT_EQ(encode(ControlRequest::triggerPress), "trigger press\n");
    EXPECT_EQ(encode(ControlReply::done), "ok\n");
}

TEST(ControlRequestTest, AnythingElseIsNoRequest)
{
    for (const char *bytes :
        {"", "\n", "trigger press", "trigger press\n\n", "trigger  press\n", "TRIGGER PRESS\n",
            "trigger press \n", "trigger\n", "show settings\nx", "trigger press\r\n", "ok\n"}) {
        EXPECT_EQ(decodeControlRequest(QByteArray(bytes)), std::nullopt) << bytes;
    }
    EXPECT_EQ(decodeControlRequest(QByteArray("trigger press\0\n", 15)), std::nullopt);
    EXPECT_EQ(decodeControlReply(QByteArray("okay\n")), std::nullopt);
}

TEST(ControlRequestTest, TheTriggerCommandsVerbs)
{
    EXPECT_EQ(triggerRequest(QStringLiteral("press")), ControlRequest::triggerPress);
    EXPECT_EQ(triggerRequest(QStringLiteral("release")), ControlRequest::triggerRelease);
    EXPECT_EQ(triggerRequest(QStringLiteral("toggle")), ControlRequest::triggerToggle);
    EXPECT_EQ(triggerRequest(QStringLiteral("settings")), std::nullopt);
    EXPECT_EQ(triggerRequest(QStringLiteral("Press")), std::nullopt);
    EXPECT_EQ(triggerRequest(QString()), std::nullopt);
}

TEST(InstanceChannelTest, TheSessionsRuntimeDirectoryHoldsTheChannelWhereThereIsOne)
{
    const QByteArray previous = qgetenv("XDG_RUNTIME_DIR");
    QTemporaryDir runtime;
    qputenv("XDG_RUNTIME_DIR", runtime.path().toLocal8Bit());
    EXPECT_EQ(InstanceChannel::defaultDirectory(), runtime.path() + QStringLiteral("/sayvo"));
    const QString perUser = QStringLiteral("/tmp/sayvo-%1").arg(::geteuid());
    qputenv("XDG_RUNTIME_DIR", runtime.filePath(QStringLiteral("missing")).toLocal8Bit());
    EXPECT_EQ(InstanceChannel::defaultDirectory(), perUser);
    qputenv("XDG_RUNTIME_DIR", "relative/path");
    EXPECT_EQ(InstanceChannel::defaultDirectory(), perUser);
    qunsetenv("XDG_RUNTIME_DIR");
    EXPECT_EQ(InstanceChannel::defaultDirectory(), perUser);
    qputenv("XDG_RUNTIME_DIR", previous);
}

} // namespace
