#include "ui/CalibrationWindow.h"

#include "calibration/CalibrationController.h"
#include "protocol/WireCodec.h"
#include "support/session/CoordinatorHarness.h"
#include "unit/ui/WindowShots.h"

#include <QGuiApplication>
#include <QLabel>
#include <QPushButton>
#include <QScreen>
#include <QTest>
#include <QToolButton>

#include <gtest/gtest.h>

namespace sayvo {
namespace {

using Phase = CalibrationController::Phase;
using test::CoordinatorHarness;

// The window over a controller whose coordinator talks to the scriptable engine; each line the
// user reads is answered with the text the test chose.
class CalibrationWindowTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(h.startAndConnect());
        window.show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
    }

    template <typename T> T *find(const char *name) const
    {
        return window.findChild<T *>(QString::fromLatin1(name));
    }
    bool shown(const char *name) const
    {
        auto *w = find<QWidget>(name);
        return w != nullptr && w->isVisible();
    }
    QString text(const char *name) const { return find<QLabel>(name)->text(); }
    void click(const char *name) { QTest::mouseClick(find<QPushButton>(name), Qt::LeftButton); }

    // Reads the current line through the window: Start Reading, speak, Done, then the answer.
    void readLine(const QString &answer)
    {
        h.answerWith(CoordinatorHarness::finalWithText(answer.toStdString()));
        const auto before = controller.results().size();
        const int current = controller.currentPrompt()->id;
        click("startReading");
        ASSERT_EQ(controller.phase(), Phase::recording);
        h.speak(CoordinatorHarness::tone(3200));
        click("done");
        ASSERT_TRUE(QTest::qWaitFor(
            [&] {
                return controller.phase() != Phase::scoring
                    && (controller.results().size() != before || controller.lastError()
                        || controller.currentPrompt()->id != current);
            },
            5000));
    }
    void readPerfectly(int lines)
    {
        for (int i = 0; i < lines; ++i) {
            readLine(controller.currentPrompt()->text);
        }
    }
    QList<QWidget *> rows() const
    {
        QList<QWidget *> visible;
        for (QWidget *row : window.findChildren<QWidget *>("resultRow")) {
            if (row->isVisible()) {
                visible.append(row);
            }
        }
        return visible;
    }
    QWidget *rowFor(int promptId) const
    {
        for (QWidget *row : rows()) {
            if (row->property("promptId").toInt() == promptId) {
                return row;
            }
        }
        return nullptr;
    }
    int feedbackCount() const
    {
        int count = 0;
        for (const QString &type : h.engine.textTypes()) {
            count += type == QStringLiteral("utterance.feedback") ? 1 : 0;
        }
        return count;
    }

    CoordinatorHarness h;
    CalibrationController controller {
        *h.coordinator, *h.client, *h.settings, CalibrationPrompt::readSlice()};
    CalibrationWindow window {controller};
};

TEST_F(CalibrationWindowTest, ReadyShowsTheHeaderThePromptAndStartReading)
{
    EXPECT_EQ(window.windowTitle(), QStringLiteral("Accuracy Calibration"));
    QStringList labels;
    for (QLabel *l : window.findChildren<QLabel *>()) {
        labels.append(l->text());
    }
    EXPECT_TRUE(labels.contains(QStringLiteral("Accuracy Calibration")));
    EXPECT_TRUE(labels.contains(QString::fromUtf8(
        "Read each line aloud exactly as written. Because we know the text, we can measure how "
        "accurate transcription is for your voice. Your audio is never saved \xE2\x80\x94 only the "
        "text is kept.")));
    EXPECT_EQ(text("promptText"), QStringLiteral("The meeting is at 3pm in room 204."));
    EXPECT_EQ(text("promptDomain").toLower(), QStringLiteral("default"));
    EXPECT_EQ(text("progress"), QStringLiteral("0 of 13 done"));
    EXPECT_TRUE(shown("startReading"));
    EXPECT_EQ(text("hint"), QStringLiteral("Click, read the line, then click Done."));
    EXPECT_FALSE(shown("lastError"));
    EXPECT_FALSE(shown("summary"));
    EXPECT_FALSE(shown("submit"));
    EXPECT_FALSE(shown("startOver"));
    EXPECT_FALSE(shown("reviewingText"));
    EXPECT_FALSE(shown("completeHeading"));
    EXPECT_EQ(window.width(), CalibrationWindow::kContentWidth + 40);
    EXPECT_TRUE(test::saveShot(window, QStringLiteral("calibration-1-ready")));
}

TEST_F(CalibrationWindowTest, RecordingAndTranscribingShowTheirControls)
{
    h.answerNothing();
    click("startReading");
    EXPECT_TRUE(shown("recordingLabel"));
    EXPECT_EQ(text("recordingLabel"), QStringLiteral("Recording\u2026"));
    EXPECT_TRUE(shown("done"));
    EXPECT_TRUE(shown("cancel"));
    EXPECT_FALSE(shown("startReading"));
    EXPECT_TRUE(test::saveShot(window, QStringLiteral("calibration-2-recording")));
    h.speak(CoordinatorHarness::tone(3200));
    click("done");
    EXPECT_EQ(controller.phase(), Phase::scoring);
    EXPECT_TRUE(shown("transcribingLabel"));
    EXPECT_EQ(text("transcribingLabel"), QStringLiteral("Transcribing\u2026"));
    EXPECT_FALSE(shown("done"));
    EXPECT_FALSE(shown("startReading"));
    EXPECT_TRUE(shown("cancel")) << "a final that never comes must not strand the user";
    EXPECT_TRUE(test::saveShot(window, QStringLiteral("calibration-3-scoring")));
    click("cancel");
    EXPECT_EQ(controller.phase(), Phase::ready);
    EXPECT_TRUE(shown("startReading"));
    EXPECT_TRUE(h.coordinator->state().is<AppState::Idle>());
    EXPECT_FALSE(h.coordinator->hasCalibrationSink());
}

TEST_F(CalibrationWindowTest, CancelEndsTheUtteranceAndReturnsToStartReading)
{
    click("startReading");
    ASSERT_TRUE(h.coordinator->state().is<AppState::Listening>());
    click("cancel");
    EXPECT_EQ(controller.phase(), Phase::ready);
    EXPECT_TRUE(shown("startReading"));
    EXPECT_TRUE(find<QPushButton>("startReading")->isEnabled());
    EXPECT_FALSE(h.coordinator->hasCalibrationSink());
    EXPECT_TRUE(h.coordinator->state().is<AppState::Idle>());
    EXPECT_FALSE(h.capture->isForwarding());
}

TEST_F(CalibrationWindowTest, StartReadingWaitsWhileDictationIsBusy)
{
    h.answerNothing();
    h.coordinator->handleTriggerDown();
    ASSERT_TRUE(h.coordinator->state().is<AppState::Listening>());
    EXPECT_TRUE(shown("startReading"));
    EXPECT_FALSE(find<QPushButton>("startReading")->isEnabled());
    click("startReading");
    EXPECT_EQ(controller.phase(), Phase::ready);
    h.coordinator->handleTriggerUp();
    h.engine.sendText(QByteArray::fromStdString(encode([&] {
        FinalMessage final = CoordinatorHarness::finalWithText("Dear Maren");
        final.utteranceId = h.coordinator->currentUtteranceId()->toStdString();
        return final;
    }())));
    ASSERT_TRUE(QTest::qWaitFor([&] { return h.pastedTexts().size() == 1; }, 5000));
    ASSERT_TRUE(
        QTest::qWaitFor([&] { return find<QPushButton>("startReading")->isEnabled(); }, 5000));
    EXPECT_TRUE(controller.results().isEmpty());
}

TEST_F(CalibrationWindowTest, AnEmptyTranscriptShowsTheErrorUnderTheSameSentence)
{
    readLine(QString());
    EXPECT_EQ(text("promptText"), QStringLiteral("The meeting is at 3pm in room 204."));
    EXPECT_TRUE(shown("lastError"));
    EXPECT_EQ(text("lastError"),
        QString::fromUtf8(
            "Nothing was transcribed \xE2\x80\x94 check the mic and try this line again."));
    EXPECT_TRUE(shown("startReading"));
    EXPECT_TRUE(rows().isEmpty());
    EXPECT_TRUE(test::saveShot(window, QStringLiteral("calibration-4-empty-transcript")));
    click("startReading");
    EXPECT_FALSE(shown("lastError"));
}

TEST_F(CalibrationWindowTest, ScoredLinesShowTheirRateSummaryAndTheUnsentBar)
{
    readLine(QStringLiteral("The meeting is at 3pm in room 204."));
    readLine(QStringLiteral("the total comes to 42 dollars"));
    ASSERT_EQ(rows().size(), 2);
    EXPECT_EQ(rowFor(1)->findChild<QLabel *>("wer")->text(), QStringLiteral("WER 0%"));
    EXPECT_EQ(rowFor(1)->findChild<QLabel *>("resultSymbol")->property("symbol").toString(),
        QStringLiteral("checkmark.circle.fill"));
    EXPECT_EQ(rowFor(2)->findChild<QLabel *>("wer")->text(), QStringLiteral("WER 20%"));
    EXPECT_EQ(rowFor(2)->findChild<QLabel *>("resultSymbol")->property("symbol").toString(),
        QStringLiteral("exclamationmark.circle.fill"));
    EXPECT_EQ(rowFor(2)->findChild<QLabel *>("reference")->text(),
        QStringLiteral("The total comes to $42."));
    EXPECT_EQ(rowFor(2)->findChild<QLabel *>("transcript")->text(),
        QStringLiteral("the total comes to 42 dollars"));
    EXPECT_EQ(rowFor(2)->findChild<QToolButton *>("remove")->toolTip(),
        QStringLiteral("Remove this result and retest it later"));
    EXPECT_EQ(
        rowFor(2)->findChild<QToolButton *>("redo")->text(), QStringLiteral("Redo this line"));
    EXPECT_EQ(text("meanWER"), QStringLiteral("10.0%"));
    EXPECT_EQ(text("exactMatches"), QStringLiteral("1 of 2"));
    EXPECT_EQ(text("progress"), QStringLiteral("2 of 13 done"));
    EXPECT_TRUE(shown("bufferedText"));
    EXPECT_EQ(
        text("bufferedText"), QString::fromUtf8("2 of 13 buffered \xE2\x80\x94 nothing sent yet"));
    EXPECT_TRUE(shown("submit"));
    EXPECT_FALSE(find<QPushButton>("submit")->isEnabled()) << "only a reviewed set is sent";
    EXPECT_TRUE(shown("startOver"));
    EXPECT_EQ(feedbackCount(), 0) << "nothing is sent before Submit";
    EXPECT_EQ(rowFor(2)->findChild<QToolButton *>("remove")->accessibleName(),
        QStringLiteral("Remove this result"));
    EXPECT_EQ(rowFor(2)->findChild<QToolButton *>("redo")->accessibleName(),
        QStringLiteral("Redo this line"));
    EXPECT_TRUE(test::saveShot(window, QStringLiteral("calibration-5-ready-with-results")));
}

TEST_F(CalibrationWindowTest, SubmitIsDisabledWhileALineIsRecordedOrTranscribed)
{
    h.settings->setFeedbackEnabled(true);
    ASSERT_TRUE(h.startAndConnect());
    for (int i = 0; i < 12; ++i) {
        controller.handleFinal([&] {
            FinalMessage final
                = CoordinatorHarness::finalWithText(controller.currentPrompt()->text.toStdString());
            final.utteranceId = "u" + std::to_string(i);
            return final;
        }());
    }
    h.answerNothing();
    click("startReading");
    EXPECT_TRUE(shown("submit"));
    EXPECT_FALSE(find<QPushButton>("submit")->isEnabled());
    h.speak(CoordinatorHarness::tone(3200));
    click("done");
    EXPECT_FALSE(find<QPushButton>("submit")->isEnabled());
    click("submit");
    EXPECT_EQ(controller.phase(), Phase::scoring);
    EXPECT_TRUE(h.coordinator->state().is<AppState::Processing>());
    EXPECT_EQ(feedbackCount(), 0);
}

TEST_F(CalibrationWindowTest, WithSharingOffSubmitExplainsAndOffersToTurnItOn)
{
    readPerfectly(13);
    EXPECT_FALSE(shown("sharingNotice"));
    click("submit");
    EXPECT_TRUE(shown("sharingNotice"));
    EXPECT_EQ(text("sharingText"),
        QString::fromUtf8(
            "Calibration results are only sent when sharing is on (Share post-edit "
            "corrections, in Settings \xE2\x86\x92 Privacy). Nothing has been sent."));
    EXPECT_EQ(controller.phase(), Phase::reviewing);
    EXPECT_TRUE(test::saveShot(window, QStringLiteral("calibration-6b-sharing-off")));
    QTest::qWait(100);
    EXPECT_EQ(feedbackCount(), 0);
    click("enableSharing");
    EXPECT_TRUE(h.settings->feedbackEnabled());
    EXPECT_FALSE(shown("sharingNotice"));
    ASSERT_TRUE(QTest::qWaitFor([&] { return controller.phase() == Phase::finished; }, 5000));
    ASSERT_TRUE(QTest::qWaitFor([&] { return feedbackCount() == 13; }, 5000));
}

TEST_F(CalibrationWindowTest, WhileSendingTheBarSaysSoAndNothingElseCanChange)
{
    h.settings->setFeedbackEnabled(true);
    ASSERT_TRUE(h.startAndConnect());
    readPerfectly(13);
    click("submit");
    ASSERT_TRUE(controller.isSubmitting());
    EXPECT_EQ(text("bufferedText"), QString::fromUtf8("Sending 13 results\xE2\x80\xA6"));
    EXPECT_FALSE(shown("startOver"));
    EXPECT_FALSE(find<QPushButton>("submit")->isEnabled());
    EXPECT_FALSE(rowFor(1)->findChild<QToolButton *>("redo")->isEnabled());
    ASSERT_TRUE(QTest::qWaitFor([&] { return controller.phase() == Phase::finished; }, 5000));
}

TEST_F(CalibrationWindowTest, RedoThisLineRemovesTheRowAndShowsThatSentenceNext)
{
    readPerfectly(3);
    ASSERT_EQ(text("promptText"), QStringLiteral("I can't make it to the call at 4:30."));
    QTest::mouseClick(rowFor(2)->findChild<QToolButton *>("redo"), Qt::LeftButton);
    EXPECT_EQ(rowFor(2), nullptr);
    EXPECT_EQ(window.findChildren<QWidget *>("resultRow").size(), 2) << "gone at once";
    EXPECT_EQ(text("promptText"), QStringLiteral("The total comes to $42."));
    QTest::mouseClick(rowFor(1)->findChild<QToolButton *>("remove"), Qt::LeftButton);
    EXPECT_EQ(controller.pendingQueue().back(), 1);
    EXPECT_EQ(window.findChildren<QWidget *>("resultRow").size(), 1);
}

TEST_F(CalibrationWindowTest, ReviewSubmitAndRunAgain)
{
    readPerfectly(13);
    EXPECT_EQ(controller.phase(), Phase::reviewing);
    EXPECT_TRUE(shown("reviewingText"));
    EXPECT_EQ(text("reviewingText"),
        QStringLiteral("Every line's been read. Redo or remove any of them below, then Submit when "
                       "you're happy with the set."));
    EXPECT_FALSE(shown("promptCard"));
    EXPECT_FALSE(shown("startReading"));
    EXPECT_EQ(
        text("bufferedText"), QString::fromUtf8("13 of 13 buffered \xE2\x80\x94 nothing sent yet"));
    EXPECT_EQ(text("exactMatches"), QStringLiteral("13 of 13"));
    EXPECT_TRUE(shown("startOver"));
    EXPECT_TRUE(find<QPushButton>("submit")->isEnabled());
    EXPECT_TRUE(test::saveShot(window, QStringLiteral("calibration-6-reviewing")));
    EXPECT_EQ(feedbackCount(), 0);
    h.settings->setFeedbackEnabled(true);

    click("submit");
    ASSERT_TRUE(QTest::qWaitFor([&] { return controller.phase() == Phase::finished; }, 5000));
    ASSERT_TRUE(QTest::qWaitFor([&] { return feedbackCount() == 13; }, 5000));
    EXPECT_TRUE(shown("completeHeading"));
    EXPECT_EQ(text("completeHeading"), QStringLiteral("Calibration complete"));
    EXPECT_TRUE(shown("runAgain"));
    EXPECT_FALSE(shown("submit"));
    EXPECT_FALSE(shown("reviewingText"));
    EXPECT_TRUE(shown("startOver"));
    EXPECT_FALSE(rowFor(1)->findChild<QToolButton *>("redo")->isEnabled())
        << "a sent set is no longer edited";
    EXPECT_TRUE(test::saveShot(window, QStringLiteral("calibration-7-finished")));

    click("runAgain");
    EXPECT_EQ(controller.phase(), Phase::ready);
    EXPECT_TRUE(rows().isEmpty());
    EXPECT_EQ(text("promptText"), QStringLiteral("The meeting is at 3pm in room 204."));
    EXPECT_FALSE(shown("startOver"));
}

TEST_F(CalibrationWindowTest, StartOverIsHiddenWhileRecording)
{
    readPerfectly(1);
    EXPECT_TRUE(shown("startOver"));
    click("startReading");
    EXPECT_FALSE(shown("startOver"));
    click("cancel");
    click("startOver");
    EXPECT_TRUE(controller.results().isEmpty());
}

TEST_F(CalibrationWindowTest, ClosingAndReopeningKeepsTheRunButNotTheDictation)
{
    readPerfectly(2);
    window.close();
    h.answerWith(CoordinatorHarness::finalWithText("Dear Maren"));
    h.coordinator->handleTriggerDown();
    h.speak(CoordinatorHarness::tone(3200));
    h.coordinator->handleTriggerUp();
    ASSERT_TRUE(QTest::qWaitFor([&] { return h.pastedTexts().size() == 1; }, 5000));
    window.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
    EXPECT_EQ(rows().size(), 2);
    EXPECT_EQ(text("progress"), QStringLiteral("2 of 13 done"));
}

TEST_F(CalibrationWindowTest, TheWindowIsTallEnoughForTheResultsAndMayGrow)
{
    const int available = QGuiApplication::primaryScreen()->availableGeometry().height();
    EXPECT_EQ(window.height(),
        std::clamp(available - 80, CalibrationWindow::kMinimumHeight,
            CalibrationWindow::kPreferredHeight));
    EXPECT_LT(window.minimumHeight(), window.maximumHeight());
}

} // namespace
} // namespace sayvo
