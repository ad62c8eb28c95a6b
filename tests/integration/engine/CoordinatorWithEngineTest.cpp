// The real coordinator and engine client against a real sayvo-engine process: what the user
// sees when the engine answers something other than the plain final.
#include "support/engine/EngineProcess.h"
#include "support/session/CoordinatorHarness.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

namespace sayvo::test {
namespace {

class CoordinatorWithEngine : public ::testing::Test
{
protected:
    void startEngine(const QStringList &lines, const QStringList &extra = {})
    {
        QFile replay(m_dir.filePath("replay.txt"));
        ASSERT_TRUE(replay.open(QIODevice::WriteOnly));
        replay.write(lines.join('\n').toUtf8() + '\n');
        replay.close();
        ASSERT_TRUE(m_engine.start(QStringList {"--asr", "replay:" + replay.fileName(),
                                       "--data-dir", m_dir.filePath("data")}
            + extra))
            << m_engine.log().toStdString();
        m_harness.client->updateEndpoint(QUrl(m_engine.url()));
        ASSERT_TRUE(m_harness.startAndConnect());
    }

    // 16 kHz mono s16le: `seconds` of a tone.
    static QByteArray audio(double seconds)
    {
        return CoordinatorHarness::tone(static_cast<int>(seconds * 16000) * 2);
    }

    bool waitForState(const std::function<bool(const AppState &)> &wanted, int timeoutMs = 10000)
    {
        return QTest::qWaitFor([&] { return wanted(m_harness.coordinator->state()); }, timeoutMs);
    }

    bool sawErrorState() const
    {
        return std::any_of(m_harness.states.begin(), m_harness.states.end(),
            [](const auto &change) { return change.state.template is<AppState::Error>(); });
    }

    int engineLogLines(const QString &text) { return int(m_engine.log().count(text)); }

    QTemporaryDir m_dir;
    EngineProcess m_engine;
    CoordinatorHarness m_harness;
};

TEST_F(CoordinatorWithEngine, AnUtteranceCutOffAtTheLengthLimitIsInsertedAndTheNextOneWorks)
{
    startEngine({"all of this fits", "and this is the next one"}, {"--max-utterance-seconds", "1"});
    m_harness.coordinator->handleTriggerDown();
    // The user holds the key for two seconds: the engine finalises after one.
    m_harness.speak(audio(2.0));
    ASSERT_TRUE(waitForState([](const AppState &s) { return s.is<AppState::Success>(); }));
    m_harness.coordinator->handleTriggerUp();
    EXPECT_EQ(m_harness.pastedTexts(), std::vector<QString> {"All of this fits."});
    ASSERT_TRUE(QTest::qWaitFor([&] { return engineLogLines("error utterance_too_long") == 1; }));

    ASSERT_TRUE(waitForState([](const AppState &s) { return s.is<AppState::Idle>(); }));
    m_harness.coordinator->handleTriggerDown();
    m_harness.speak(audio(0.5));
    m_harness.coordinator->handleTriggerUp();
    ASSERT_TRUE(QTest::qWaitFor([&] { return m_harness.pastedTexts().size() == 2; }));
    EXPECT_EQ(m_harness.pastedTexts()[1], "And this is the next one.");
    EXPECT_FALSE(sawErrorState()) << "the cut-off is the engine's business, not a failure";
    EXPECT_EQ(engineLogLines("error "), 1) << m_engine.log().toStdString();
}

TEST_F(CoordinatorWithEngine, ASupersededUtteranceAndFailingFeedbackDoNotFailTheDictation)
{
    // Whether the superseded utterance got as far as taking a recogniser (and so a replay
    // line) before the next one started is a matter of scheduling: both lines are the same.
    startEngine({"please insert this", "please insert this"});
    // An utterance the engine still holds open (its end never came) ...
    m_harness.client->startUtterance(QStringLiteral("A"));
    // ... is superseded by the user's next dictation, during which feedback fails.
    m_harness.coordinator->handleTriggerDown();
    m_harness.client->sendFeedback(QStringLiteral("NOT-A-RECENT-UTTERANCE"),
        QStringLiteral("edited"), 900, QStringLiteral("user"));
    m_harness.speak(audio(0.5));
    m_harness.coordinator->handleTriggerUp();
    ASSERT_TRUE(waitForState([](const AppState &s) { return s.is<AppState::Success>(); }))
        << m_engine.log().toStdString();
    EXPECT_EQ(m_harness.pastedTexts(), std::vector<QString> {"Please insert this."});
    EXPECT_FALSE(sawErrorState());
    EXPECT_TRUE(m_engine.log().contains("error utterance_abandoned"));
    EXPECT_TRUE(m_engine.log().contains("error unknown_utterance"));
}

} // namespace
} // namespace sayvo::test
