#include "session/AppState.h"
#include "session/EngineConnectionHealth.h"

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

TEST(AppStateTest, DescriptionsGiveTheLengthOfDictatedTextNotTheText)
{
    EXPECT_EQ(
        describe(AppState::listening(QString::fromUtf8("dear doctor"))), "listening(chars=11)");
    EXPECT_EQ(describe(AppState::success("Dear Doctor,", true)), "success(chars=12, raw=yes)");
    EXPECT_EQ(describe(AppState::processing()), "processing");
    EXPECT_EQ(describe(AppState::idle()), "idle");
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
