#include "calibration/CalibrationController.h"

#include "protocol/WireCodec.h"
#include "support/session/CoordinatorHarness.h"

#include <QSignalSpy>
#include <QTest>

#include <gtest/gtest.h>

namespace sayvo {
namespace {

using Phase = CalibrationController::Phase;
using test::CoordinatorHarness;

FinalMessage finalWith(const QString &text, const QString &utteranceId = QStringLiteral("u"))
{
    FinalMessage final = CoordinatorHarness::finalWithText(text.toStdString());
    final.utteranceId = utteranceId.toStdString();
    return final;
}

class CalibrationControllerTest : public ::testing::Test
{
protected:
    CalibrationController &c() { return *controller; }

    // Answers the current line through handleFinal, as the sink would.
    void read(const QString &text)
    {
        c().handleFinal(finalWith(text, QStringLiteral("utt-%1").arg(++m_utterances)));
    }
    void readPerfectly(int lines)
    {
        for (int i = 0; i < lines; ++i) {
            read(c().currentPrompt()->text);
        }
    }
    std::optional<CalibrationController::Result> resultFor(int promptId) const
    {
        for (const auto &r : controller->results()) {
            if (r.promptId == promptId) {
                return r;
            }
        }
        return std::nullopt;
    }
    QString startedUtteranceId() const
    {
        for (const QByteArray &text : h.engine.textFrames()) {
            const auto decoded = decodeOutbound(text.toStdString());
            if (decoded) {
                if (const auto *s = std::get_if<UtteranceStartMessage>(&decoded.value())) {
                    return QString::fromStdString(s->utteranceId);
                }
            }
        }
        return {};
    }
    std::vector<UtteranceFeedbackMessage> feedbackSent() const
    {
        std::vector<UtteranceFeedbackMessage> sent;
        for (const QByteArray &text : h.engine.textFrames()) {
            const auto decoded = decodeOutbound(text.toStdString());
            if (decoded) {
                if (const auto *f = std::get_if<UtteranceFeedbackMessage>(&decoded.value())) {
                    sent.push_back(*f);
                }
            }
        }
        return sent;
    }

    // Reads the current line through the coordinator and the engine, as the window does.
    void readThroughEngine(const QString &answer)
    {
        h.answerWith(finalWith(answer));
        c().startRecording();
        ASSERT_EQ(c().phase(), Phase::recording);
        h.speak(CoordinatorHarness::tone(3200));
        c().stopRecording();
        ASSERT_TRUE(QTest::qWaitFor([&] { return c().phase() != Phase::scoring; }, 5000));
    }
    int feedbackCount() const { return static_cast<int>(feedbackSent().size()); }
    // Runs one ordinary dictation and waits for its text to be typed.
    void dictate(const QString &answer)
    {
        const auto before = h.pastedTexts().size();
        h.answerWith(finalWith(answer));
        h.coordinator->handleTriggerDown();
        ASSERT_TRUE(h.coordinator->state().is<AppState::Listening>());
        h.speak(CoordinatorHarness::tone(3200));
        h.coordinator->handleTriggerUp();
        ASSERT_TRUE(QTest::qWaitFor([&] { return h.pastedTexts().size() > before; }, 5000));
    }

    CoordinatorHarness h;
    std::unique_ptr<CalibrationController> controller = std::make_unique<CalibrationController>(
        *h.coordinator, *h.client, *h.settings, CalibrationPrompt::readSlice());

private:
    int m_utterances = 0;
};

TEST_F(CalibrationControllerTest, StartsReadyWithEveryPromptPendingInOrder)
{
    EXPECT_EQ(c().phase(), Phase::ready);
    EXPECT_EQ(c().pendingQueue(), (QList<int> {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13}));
    EXPECT_TRUE(c().results().isEmpty());
    EXPECT_FALSE(c().lastError().has_value());
    EXPECT_EQ(c().currentPrompt()->id, 1);
    EXPECT_EQ(c().meanWER(), 0.0);
    EXPECT_EQ(c().exactMatchRate(), 0.0);
    EXPECT_FALSE(c().canStartOver());
    EXPECT_FALSE(c().canSubmit());
}

TEST_F(CalibrationControllerTest, AQueueHeadWithoutAPromptHasNoCurrentPrompt)
{
    ASSERT_TRUE(h.startAndConnect());
    CalibrationController empty(*h.coordinator, *h.client, *h.settings, {});
    EXPECT_FALSE(empty.currentPrompt().has_value());
    EXPECT_FALSE(empty.canStartRecording());
    empty.startRecording();
    EXPECT_EQ(empty.phase(), Phase::ready);
    EXPECT_TRUE(h.coordinator->state().is<AppState::Idle>());
    empty.handleFinal(finalWith(QStringLiteral("anything")));
    EXPECT_TRUE(empty.results().isEmpty());
}

TEST_F(CalibrationControllerTest, ALineIsRecordedThroughTheCoordinatorAndScored)
{
    ASSERT_TRUE(h.startAndConnect());
    h.answerWith(CoordinatorHarness::finalWithText("the meeting is at 3pm in room 204"));
    c().startRecording();
    EXPECT_EQ(c().phase(), Phase::recording);
    EXPECT_TRUE(h.coordinator->hasCalibrationSink());
    EXPECT_TRUE(h.coordinator->state().is<AppState::Listening>());
    h.speak(CoordinatorHarness::tone(3200));
    c().stopRecording();
    EXPECT_EQ(c().phase(), Phase::scoring);
    ASSERT_TRUE(QTest::qWaitFor([&] { return c().results().size() == 1; }, 5000));
    const auto &r = c().results().front();
    EXPECT_EQ(r.promptId, 1);
    EXPECT_EQ(r.reference, QStringLiteral("The meeting is at 3pm in room 204."));
    EXPECT_EQ(r.transcript, QStringLiteral("the meeting is at 3pm in room 204"));
    EXPECT_FALSE(r.utteranceId.isEmpty());
    EXPECT_EQ(r.utteranceId, startedUtteranceId());
    EXPECT_TRUE(r.isExact());
    EXPECT_FALSE(r.id.isNull());
    EXPECT_EQ(c().phase(), Phase::ready);
    EXPECT_EQ(c().currentPrompt()->id, 2);
    EXPECT_TRUE(h.pastedTexts().empty()) << "a calibration line is never typed anywhere";
    EXPECT_FALSE(h.coordinator->hasCalibrationSink()) << "the sink goes with the line's final";
    EXPECT_TRUE(h.coordinator->state().is<AppState::Idle>());
    EXPECT_TRUE(c().canStartRecording());
}

TEST_F(CalibrationControllerTest, DictationBetweenTwoLinesGoesToTheFocusedApplication)
{
    ASSERT_TRUE(h.startAndConnect());
    readThroughEngine(QStringLiteral("the meeting is at 3pm in room 204"));
    ASSERT_EQ(c().results().size(), 1);
    // The user closes the window and dictates an email.
    dictate(QStringLiteral("Dear Maren, thanks for the notes."));
    EXPECT_EQ(h.pastedTexts(), std::vector<QString> {"Dear Maren, thanks for the notes."});
    QTest::qWait(50);
    EXPECT_EQ(c().results().size(), 1) << "the dictation is not scored as line 2";
    EXPECT_EQ(c().currentPrompt()->id, 2);
    EXPECT_EQ(c().phase(), Phase::ready);
}

TEST_F(CalibrationControllerTest, AnEmptyTranscriptKeepsTheLineAndShowsTheMessage)
{
    ASSERT_TRUE(h.startAndConnect());
    readThroughEngine(QString());
    EXPECT_EQ(c().phase(), Phase::ready);
    EXPECT_EQ(c().currentPrompt()->id, 1);
    EXPECT_TRUE(c().results().isEmpty());
    EXPECT_EQ(c().lastError(),
        QString::fromUtf8(
            "Nothing was transcribed \xE2\x80\x94 check the mic and try this line again."));
    EXPECT_FALSE(h.coordinator->hasCalibrationSink());
    c().startRecording();
    EXPECT_FALSE(c().lastError().has_value());
    EXPECT_EQ(c().phase(), Phase::recording);
}

TEST_F(CalibrationControllerTest, WithoutAnEngineTheLineStaysReadyWithTheReason)
{
    c().startRecording();
    EXPECT_EQ(c().phase(), Phase::ready);
    EXPECT_FALSE(h.coordinator->hasCalibrationSink());
    EXPECT_EQ(c().lastError(), QString::fromUtf8("Engine starting up…"));
    EXPECT_FALSE(h.coordinator->currentUtteranceId().has_value());
}

TEST_F(CalibrationControllerTest, AnEngineErrorReturnsTheLineToReadyWithTheMessage)
{
    ASSERT_TRUE(h.startAndConnect());
    h.answerNothing();
    c().startRecording();
    h.speak(CoordinatorHarness::tone(3200));
    c().stopRecording();
    ErrorMessage error;
    error.code = "asr_failed";
    error.message = "recogniser crashed";
    h.engine.sendText(QByteArray::fromStdString(encode(error)));
    ASSERT_TRUE(QTest::qWaitFor([&] { return c().phase() == Phase::ready; }, 5000));
    EXPECT_EQ(c().lastError(), QStringLiteral("recogniser crashed"));
    EXPECT_EQ(c().currentPrompt()->id, 1);
    EXPECT_FALSE(h.coordinator->hasCalibrationSink());
}

TEST_F(CalibrationControllerTest, ThirteenLinesLeadToReviewing)
{
    readPerfectly(13);
    EXPECT_EQ(c().phase(), Phase::reviewing);
    EXPECT_EQ(c().results().size(), 13);
    EXPECT_TRUE(c().pendingQueue().isEmpty());
    EXPECT_FALSE(c().currentPrompt().has_value());
    EXPECT_FALSE(h.coordinator->hasCalibrationSink());
    EXPECT_EQ(c().exactMatchRate(), 1.0);
    EXPECT_TRUE(c().canStartOver());
    EXPECT_TRUE(c().canSubmit());
    read(QStringLiteral("a late final"));
    EXPECT_EQ(c().results().size(), 13) << "nothing is current, so the final is ignored";
}

TEST_F(CalibrationControllerTest, RedoPutsTheLineFirstAndDropsItsResult)
{
    readPerfectly(13);
    c().redo(resultFor(4)->id);
    EXPECT_EQ(c().phase(), Phase::ready);
    EXPECT_EQ(c().currentPrompt()->id, 4);
    EXPECT_EQ(c().results().size(), 12);
    EXPECT_FALSE(resultFor(4).has_value());
    read(QStringLiteral("I cant make it to the call at 430."));
    EXPECT_EQ(c().phase(), Phase::reviewing);
    EXPECT_DOUBLE_EQ(resultFor(4)->wer, 0.3);
    EXPECT_EQ(c().results().back().promptId, 4) << "results stay in the order obtained";
}

TEST_F(CalibrationControllerTest, RemoveSendsTheLineToTheBackOfThePendingLines)
{
    readPerfectly(5);
    ASSERT_EQ(c().currentPrompt()->id, 6);
    c().remove(resultFor(4)->id);
    EXPECT_EQ(c().pendingQueue(), (QList<int> {6, 7, 8, 9, 10, 11, 12, 13, 4}));
    EXPECT_EQ(c().results().size(), 4);

    readPerfectly(9);
    ASSERT_EQ(c().phase(), Phase::reviewing);
    c().remove(resultFor(4)->id);
    EXPECT_EQ(c().pendingQueue(), QList<int> {4});
    EXPECT_EQ(c().results().size(), 12);
    EXPECT_EQ(c().phase(), Phase::ready);
}

TEST_F(CalibrationControllerTest, RedoAndRemoveOfAnUnknownResultChangeNothing)
{
    readPerfectly(13);
    c().redo(QUuid::createUuid());
    c().remove(QUuid::createUuid());
    EXPECT_EQ(c().phase(), Phase::reviewing);
    EXPECT_EQ(c().results().size(), 13);
}

TEST_F(CalibrationControllerTest, OperationsOutsideTheirPhaseAreIgnored)
{
    ASSERT_TRUE(h.startAndConnect());
    h.answerNothing();
    c().stopRecording();
    EXPECT_EQ(c().phase(), Phase::ready);
    readPerfectly(1);
    const QUuid first = c().results().front().id;
    c().startRecording();
    c().startRecording();
    EXPECT_EQ(c().phase(), Phase::recording);
    c().redo(first);
    c().remove(first);
    EXPECT_EQ(c().results().size(), 1);
    EXPECT_FALSE(c().canStartOver());
    c().stopRecording();
    EXPECT_EQ(c().phase(), Phase::scoring);
    c().stopRecording();
    c().startRecording();
    EXPECT_EQ(c().phase(), Phase::scoring);
    EXPECT_FALSE(c().canStartOver());
}

TEST_F(CalibrationControllerTest, SubmitIsIgnoredWhileALineIsRecordedOrScored)
{
    ASSERT_TRUE(h.startAndConnect());
    h.settings->setFeedbackEnabled(true);
    ASSERT_TRUE(QTest::qWaitFor(
        [&] { return h.coordinator->connectionHealth().is<EngineConnectionHealth::Connected>(); },
        5000));
    readPerfectly(12);
    h.answerNothing();
    c().startRecording();
    ASSERT_EQ(c().phase(), Phase::recording);
    EXPECT_FALSE(c().canSubmit());
    c().submit();
    EXPECT_EQ(c().phase(), Phase::recording);
    EXPECT_FALSE(c().isSubmitting());
    EXPECT_TRUE(h.coordinator->state().is<AppState::Listening>());
    h.speak(CoordinatorHarness::tone(3200));
    c().stopRecording();
    EXPECT_FALSE(c().canSubmit());
    c().submit();
    EXPECT_EQ(c().phase(), Phase::scoring);
    EXPECT_TRUE(h.coordinator->hasCalibrationSink());
    QTest::qWait(100);
    EXPECT_EQ(feedbackCount(), 0);
}

TEST_F(CalibrationControllerTest, SubmitIsOnlyOfferedForAReviewedSet)
{
    readPerfectly(3);
    EXPECT_FALSE(c().canSubmit());
    h.settings->setFeedbackEnabled(true);
    c().submit();
    EXPECT_EQ(c().phase(), Phase::ready);
    EXPECT_FALSE(c().isSubmitting());
}

TEST_F(CalibrationControllerTest, CancelWhileRecordingEndsTheUtteranceAndDropsItsResult)
{
    ASSERT_TRUE(h.startAndConnect());
    h.answerWith(finalWith(QStringLiteral("the meeting is at 3pm in room 204")));
    c().startRecording();
    h.speak(CoordinatorHarness::tone(3200));
    c().cancel();
    EXPECT_EQ(c().phase(), Phase::ready);
    EXPECT_FALSE(h.coordinator->hasCalibrationSink());
    EXPECT_TRUE(h.coordinator->state().is<AppState::Idle>());
    EXPECT_FALSE(h.coordinator->currentUtteranceId().has_value());
    EXPECT_FALSE(h.capture->isForwarding()) << "the microphone is closed";
    // Whatever the engine answers for the cancelled line reaches nobody; the next dictation
    // is the user's own and is typed.
    dictate(QStringLiteral("Dear Maren"));
    EXPECT_EQ(h.pastedTexts().size(), 1u);
    QTest::qWait(50);
    EXPECT_TRUE(c().results().isEmpty());
    EXPECT_EQ(c().currentPrompt()->id, 1);
}

TEST_F(CalibrationControllerTest, CancelWhileScoringDropsTheResultAndTheNextReadingGetsItsOwn)
{
    ASSERT_TRUE(h.startAndConnect());
    h.answerWith(finalWith(QStringLiteral("an answer for the cancelled reading")));
    c().startRecording();
    const QString cancelled = *h.coordinator->currentUtteranceId();
    h.speak(CoordinatorHarness::tone(3200));
    c().stopRecording();
    ASSERT_EQ(c().phase(), Phase::scoring);
    c().cancel();
    EXPECT_EQ(c().phase(), Phase::ready);
    EXPECT_TRUE(h.coordinator->state().is<AppState::Idle>());
    ASSERT_TRUE(c().canStartRecording());
    readThroughEngine(QStringLiteral("the meeting is at 3pm in room 204"));
    ASSERT_EQ(c().results().size(), 1);
    EXPECT_NE(c().results().front().utteranceId, cancelled);
    EXPECT_EQ(
        c().results().front().transcript, QStringLiteral("the meeting is at 3pm in room 204"));
    EXPECT_TRUE(h.pastedTexts().empty());
}

TEST_F(CalibrationControllerTest, ANewReadingWaitsUntilDictationIsIdle)
{
    ASSERT_TRUE(h.startAndConnect());
    QSignalSpy changed(&c(), &CalibrationController::canStartRecordingChanged);
    dictate(QStringLiteral("Dear Maren"));
    ASSERT_TRUE(h.coordinator->state().is<AppState::Success>());
    EXPECT_FALSE(c().canStartRecording());
    c().startRecording();
    EXPECT_EQ(c().phase(), Phase::ready);
    EXPECT_FALSE(h.coordinator->hasCalibrationSink());
    ASSERT_TRUE(QTest::qWaitFor([&] { return c().canStartRecording(); }, 5000));
    EXPECT_GE(changed.count(), 2);
    c().startRecording();
    EXPECT_EQ(c().phase(), Phase::recording);
}

TEST_F(CalibrationControllerTest, CancelOutsideAReadingKeepsTheQueue)
{
    c().cancel();
    EXPECT_EQ(c().phase(), Phase::ready);
    readPerfectly(13);
    c().cancel();
    EXPECT_EQ(c().phase(), Phase::reviewing);
}

TEST_F(CalibrationControllerTest, MeanWerIncludesRatesAboveOneAsTheyAre)
{
    read(QStringLiteral("nothing like the sentence at all really no not one of these words "
                        "matches a single thing said"));
    read(QStringLiteral("The total comes to $42."));
    const double first = c().results().front().wer;
    EXPECT_GT(first, 1.0);
    EXPECT_DOUBLE_EQ(c().meanWER(), first / 2.0);
    EXPECT_DOUBLE_EQ(c().exactMatchRate(), 0.5);
}

TEST_F(CalibrationControllerTest, SubmitWithNoResultsLeavesThePhaseAndSendsNothing)
{
    ASSERT_TRUE(h.startAndConnect());
    c().submit();
    EXPECT_EQ(c().phase(), Phase::ready);
    EXPECT_FALSE(c().isSubmitting());
    QTest::qWait(100);
    EXPECT_TRUE(feedbackSent().empty());
}

TEST_F(CalibrationControllerTest, WithSharingOffSubmitSendsNothingAndAsksForSharing)
{
    ASSERT_TRUE(h.startAndConnect());
    ASSERT_FALSE(h.settings->feedbackEnabled());
    readPerfectly(13);
    c().submit();
    EXPECT_TRUE(c().isAwaitingSharing());
    EXPECT_FALSE(c().isSubmitting());
    EXPECT_EQ(c().phase(), Phase::reviewing);
    QTest::qWait(100);
    EXPECT_EQ(feedbackCount(), 0);

    c().enableSharingAndSubmit();
    EXPECT_TRUE(h.settings->feedbackEnabled());
    EXPECT_FALSE(c().isAwaitingSharing());
    ASSERT_TRUE(QTest::qWaitFor([&] { return c().phase() == Phase::finished; }, 5000));
    ASSERT_TRUE(QTest::qWaitFor([&] { return feedbackCount() == 13; }, 5000));
}

TEST_F(CalibrationControllerTest, TurningSharingOnElsewhereEndsTheQuestion)
{
    readPerfectly(13);
    c().submit();
    ASSERT_TRUE(c().isAwaitingSharing());
    h.settings->setFeedbackEnabled(true);
    EXPECT_FALSE(c().isAwaitingSharing());
    EXPECT_EQ(c().phase(), Phase::reviewing) << "turning sharing on sends nothing by itself";
}

TEST_F(CalibrationControllerTest, SubmitSendsEachResultAsCalibrationFeedbackInOrder)
{
    h.settings->setFeedbackEnabled(true);
    ASSERT_TRUE(h.startAndConnect());
    readPerfectly(13);
    c().redo(resultFor(2)->id);
    read(QStringLiteral("the total comes to 42 dollars"));
    c().submit();
    EXPECT_TRUE(c().isSubmitting());
    EXPECT_FALSE(c().canStartOver()) << "nothing starts over while the set is being sent";
    EXPECT_FALSE(c().canSubmit());
    c().restart();
    c().redo(c().results().front().id);
    EXPECT_EQ(c().results().size(), 13);
    EXPECT_EQ(c().phase(), Phase::reviewing) << "finished only once everything was sent";
    ASSERT_TRUE(QTest::qWaitFor([&] { return c().phase() == Phase::finished; }, 5000));
    EXPECT_FALSE(c().isSubmitting());
    ASSERT_TRUE(QTest::qWaitFor([&] { return feedbackSent().size() == 13; }, 5000));
    const auto sent = feedbackSent();
    for (qsizetype i = 0; i < c().results().size(); ++i) {
        const auto &r = c().results()[i];
        EXPECT_EQ(QString::fromStdString(sent[i].utteranceId), r.utteranceId);
        EXPECT_EQ(QString::fromStdString(sent[i].finalTextAfterEdit), r.reference);
        EXPECT_EQ(sent[i].editDelayMs, 0);
        EXPECT_EQ(sent[i].source, std::optional<std::string>("calibration"));
    }
    EXPECT_EQ(sent.back().finalTextAfterEdit, "The total comes to $42.");
    EXPECT_FALSE(h.coordinator->hasCalibrationSink());
}

TEST_F(CalibrationControllerTest, FailedSendsAreSkippedAndTheRunStillFinishes)
{
    h.engine.stopListening();
    h.settings->setFeedbackEnabled(true);
    readPerfectly(13);
    c().submit();
    c().submit();
    ASSERT_TRUE(QTest::qWaitFor([&] { return c().phase() == Phase::finished; }, 5000));
    EXPECT_TRUE(feedbackSent().empty());
}

TEST_F(CalibrationControllerTest, RestartFromFinishedStartsOverAtLineOne)
{
    h.settings->setFeedbackEnabled(true);
    readPerfectly(13);
    c().submit();
    ASSERT_TRUE(QTest::qWaitFor([&] { return c().phase() == Phase::finished; }, 5000));
    EXPECT_TRUE(c().canStartOver());
    c().restart();
    EXPECT_EQ(c().phase(), Phase::ready);
    EXPECT_TRUE(c().results().isEmpty());
    EXPECT_EQ(c().pendingQueue().size(), 13);
    EXPECT_EQ(c().currentPrompt()->id, 1);
    EXPECT_FALSE(c().lastError().has_value());
}

TEST_F(CalibrationControllerTest, DestroyingTheControllerEndsTheLineBeingRead)
{
    ASSERT_TRUE(h.startAndConnect());
    h.answerNothing();
    c().startRecording();
    ASSERT_TRUE(h.coordinator->hasCalibrationSink());
    controller.reset();
    EXPECT_FALSE(h.coordinator->hasCalibrationSink());
    EXPECT_TRUE(h.coordinator->state().is<AppState::Idle>());
}

} // namespace
} // namespace sayvo
