#include "AppState.h"
#include "EngineConnectionHealth.h"
#include "Logging.h"

#include <QtGlobal>

#include <gtest/gtest.h>

using namespace sayvo;

TEST(AppStateTest, AFreshStateIsIdleAndHealthIsIdle)
{
    EXPECT_EQ(AppState {}, AppState::idle());
    EXPECT_TRUE(AppState {}.is<AppState::Idle>());
    EXPECT_EQ(EngineConnectionHealth {}, EngineConnectionHealth::idle());
}

TEST(AppStateTest, CasesCarryTheirPayloads)
{
    EXPECT_EQ(AppState::listening().as<AppState::Listening>()->partialText, "");
    EXPECT_EQ(AppState::listening("hel").as<AppState::Listening>()->partialText, "hel");
    EXPECT_NE(AppState::listening("a"), AppState::listening("b"));
    EXPECT_TRUE(AppState::success("Hi.", true).as<AppState::Success>()->wasRaw);
    EXPECT_NE(AppState::success("Hi.", true), AppState::success("Hi.", false));
    EXPECT_EQ(AppState::error("connection lost").as<AppState::Error>()->message, "connection lost");
    EXPECT_TRUE(AppState::processing().is<AppState::Processing>());
    EXPECT_TRUE(AppState::emptyTranscript().is<AppState::EmptyTranscript>());
    EXPECT_EQ(describe(AppState::error("x")), "error(\"x\")");
}

TEST(EngineConnectionHealthTest, MapsEveryConnectionState)
{
    EXPECT_EQ(EngineConnectionHealth::from(ConnectionState::disconnected()),
        EngineConnectionHealth::idle());
    EXPECT_EQ(EngineConnectionHealth::from(ConnectionState::connecting()),
        EngineConnectionHealth::connecting());
    EXPECT_EQ(
        EngineConnectionHealth::from(ConnectionState::failed("hello handshake failed: refused")),
        EngineConnectionHealth::offline());
    EXPECT_EQ(EngineConnectionHealth::from(ConnectionState::failed("")),
        EngineConnectionHealth::offline());
    EXPECT_EQ(EngineConnectionHealth::from(
                  ConnectionState::connected(Backends {"pocketsphinx", "rules", "rules"})),
        EngineConnectionHealth::connected(false));
    EXPECT_EQ(EngineConnectionHealth::from(
                  ConnectionState::connected(Backends {"pocketsphinx", "MOCK", std::nullopt})),
        EngineConnectionHealth::connected(true));
    EXPECT_EQ(EngineConnectionHealth::from(ConnectionState::connected(Backends {})),
        EngineConnectionHealth::connected(false));
}

namespace {

struct Line
{
    QtMsgType type;
    QString category;
    QString message;
};
std::vector<Line> g_lines;

void capture(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    g_lines.push_back({type, QString::fromUtf8(context.category), message});
}

} // namespace

TEST(LoggingTest, WritesWholeMessagesAtTheirLevelsUnderTheAppCategory)
{
    g_lines.clear();
    const QtMessageHandler previous = qInstallMessageHandler(capture);
    Logging::shared().info(QStringLiteral("connected: server=1.0"));
    Logging::shared().error(QStringLiteral("could not start mic capture: \"quoted\" text"));
    Logging::shared().debug(QStringLiteral("debug line"));
    qInstallMessageHandler(previous);

    ASSERT_EQ(g_lines.size(), 3u);
    EXPECT_EQ(g_lines[0].type, QtInfoMsg);
    EXPECT_EQ(g_lines[0].message, "connected: server=1.0");
    EXPECT_EQ(g_lines[1].type, QtCriticalMsg);
    // The message goes out whole and unquoted.
    EXPECT_EQ(g_lines[1].message, "could not start mic capture: \"quoted\" text");
    EXPECT_EQ(g_lines[2].type, QtDebugMsg);
    for (const Line &line : g_lines) {
        EXPECT_EQ(line.category, "com.sayvoapp.shell.app");
    }
    EXPECT_EQ(&Logging::shared(), &Logging::shared());
}
