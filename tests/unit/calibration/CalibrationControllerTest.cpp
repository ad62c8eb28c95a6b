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

    CoordinatorHarness h;
    std::unique_ptr<CalibrationController> controller = std::make_unique<CalibrationController>(
        *h.coordinator, *h.client, CalibrationPrompt::readSlice());

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
}

TEST_F(CalibrationControllerTest, AQueueHeadWithoutAPromptHasNoCurrentPrompt)
{
    CalibrationController empty(*h.coordinator, *h.client, {});
    EXPECT_FALSE(empty.currentPrompt().has_value());
    empty.startRecording();
    EXPECT_EQ(empty.phase(), Phase::ready);
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
    EXPECT_TRUE(h.coordinator->hasCalibrationSink()) << "the sink stays while lines remain";
}

TEST_F(CalibrationControllerTest, AnEmptyTranscriptKeepsTheLineAndShowsTheMessage)
{
    c().startRecording();
    c().stopRecording();
    c().handleFinal(finalWith(QString()));
    EXPECT_EQ(c().phase(), Phase::ready);
    EXPECT_EQ(c().currentPrompt()->id, 1);
    EXPECT_TRUE(c().results().isEmpty());
    EXPECT_EQ(c().lastError(),
        QString::fromUtf8(
            "Nothing was transcribed \xE2\x80\x94 check the mic and try this line again."));
    EXPECT_TRUE(h.coordinator->hasCalibrationSink());
    c().startRecording();
    EXPECT_FALSE(c().lastError().has_value());
    EXPECT_EQ(c().phase(), Phase::recording);
}

TEST_F(CalibrationControllerTest, ThirteenLinesLeadToReviewingAndRemoveTheSink)
{
    c().startRecording();
    readPerfectly(13);
    EXPECT_EQ(c().phase(), Phase::reviewing);
    EXPECT_EQ(c().results().size(), 13);
    EXPECT_TRUE(c().pendingQueue().isEmpty());
    EXPECT_FALSE(c().currentPrompt().has_value());
    EXPECT_FALSE(h.coordinator->hasCalibrationSink());
    EXPECT_EQ(c().exactMatchRate(), 1.0);
    EXPECT_TRUE(c().canStartOver());
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

TEST_F(CalibrationControllerTest, CancelReturnsToReadyOrReviewingAndRemovesTheSink)
{
    c().startRecording();
    c().cancel();
    EXPECT_EQ(c().phase(), Phase::ready);
    EXPECT_FALSE(h.coordinator->hasCalibrationSink());
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

TEST_F(CalibrationControllerTest, SubmitSendsEachResultAsCalibrationFeedbackInOrder)
{
    ASSERT_TRUE(h.startAndConnect());
    h.settings->setFeedbackEnabled(false);
    readPerfectly(13);
    c().redo(resultFor(2)->id);
    read(QStringLiteral("the total comes to 42 dollars"));
    QSignalSpy finished(&c(), &CalibrationController::phaseChanged);
    c().submit();
    EXPECT_TRUE(c().isSubmitting());
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
    readPerfectly(3);
    c().submit();
    c().submit();
    ASSERT_TRUE(QTest::qWaitFor([&] { return c().phase() == Phase::finished; }, 5000));
    EXPECT_TRUE(feedbackSent().empty());
}

TEST_F(CalibrationControllerTest, RestartFromFinishedStartsOverAtLineOne)
{
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

TEST_F(CalibrationControllerTest, DestroyingTheControllerRemovesItsSink)
{
    c().startRecording();
    ASSERT_TRUE(h.coordinator->hasCalibrationSink());
    controller.reset();
    EXPECT_FALSE(h.coordinator->hasCalibrationSink());
}

} // namespace
} // namespace sayvo
