#include "base/Logging.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

using namespace sayvo;

TEST(LoggingTest, WritesWholeMessagesAtTheirLevelsUnderTheAppCategory)
{
    std::vector<test::LogCapture::Entry> lines;
    {
        test::LogCapture log;
        Logging::shared().info(QStringLiteral("connected: server=1.0"));
        Logging::shared().error(QStringLiteral("could not start mic capture: \"quoted\" text"));
        Logging::shared().debug(QStringLiteral("debug line"));
        lines = log.entries();
    }

    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0].type, QtInfoMsg);
    EXPECT_EQ(lines[0].message, "connected: server=1.0");
    EXPECT_EQ(lines[1].type, QtCriticalMsg);
    // The message goes out whole and unquoted.
    EXPECT_EQ(lines[1].message, "could not start mic capture: \"quoted\" text");
    EXPECT_EQ(lines[2].type, QtDebugMsg);
    for (const auto &line : lines) {
        EXPECT_EQ(line.category, "com.sayvoapp.shell.app");
    }
    EXPECT_EQ(&Logging::shared(), &Logging::shared());
}
