#include "protocol/ControlMessages.h"

#include <gtest/gtest.h>

using namespace sayvo;

namespace {

TEST(ControlMessagesTest, EveryRequestAndReplyTravelsAsOneLine)
{
    for (const ControlRequest request :
        {ControlRequest::triggerPress, ControlRequest::triggerRelease,
            ControlRequest::triggerToggle, ControlRequest::showSettings}) {
        const std::string line = encode(request);
        EXPECT_EQ(line.find('\n'), line.size() - 1) << line;
        EXPECT_EQ(decodeControlRequest(line), request) << line;
    }
    for (const ControlReply reply :
        {ControlReply::done, ControlReply::refused, ControlReply::unknown}) {
        EXPECT_EQ(decodeControlReply(encode(reply)), reply);
    }
    EXPECT_EQ(encode(ControlRequest::triggerPress), "trigger press\n");
    EXPECT_EQ(encode(ControlReply::done), "ok\n");
}

TEST(ControlMessagesTest, AnythingElseIsNoRequest)
{
    for (const char *bytes :
        {"", "\n", "trigger press", "trigger press\n\n", "trigger  press\n", "TRIGGER PRESS\n",
            "trigger press \n", "trigger\n", "show settings\nx", "trigger press\r\n", "ok\n"}) {
        EXPECT_EQ(decodeControlRequest(bytes), std::nullopt) << bytes;
    }
    EXPECT_EQ(decodeControlRequest(std::string_view("trigger press\0\n", 15)), std::nullopt);
    EXPECT_EQ(decodeControlReply("okay\n"), std::nullopt);
}

TEST(ControlMessagesTest, TheTriggerCommandsVerbs)
{
    EXPECT_EQ(triggerRequest("press"), ControlRequest::triggerPress);
    EXPECT_EQ(triggerRequest("release"), ControlRequest::triggerRelease);
    EXPECT_EQ(triggerRequest("toggle"), ControlRequest::triggerToggle);
    EXPECT_EQ(triggerRequest("settings"), std::nullopt);
    EXPECT_EQ(triggerRequest("Press"), std::nullopt);
    EXPECT_EQ(triggerRequest(""), std::nullopt);
}

} // namespace
