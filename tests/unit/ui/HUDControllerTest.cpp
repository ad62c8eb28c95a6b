#include "ui/HUDController.h"
#include "support/session/CoordinatorHarness.h"
#include "ui/HUDView.h"
#include "ui/WaveformView.h"

#include <QDir>
#include <QElapsedTimer>
#include <QGuiApplication>
#include <QLabel>
#include <QPainter>
#include <QScreen>
#include <QTest>
#include <QWidget>

#include <gtest/gtest.h>

#include <thread>

using namespace sayvo;
using sayvo::test::CoordinatorHarness;

namespace {

QString screenshotDir()
{
    const QString dir = QStringLiteral(SAYVO_SCREENSHOT_DIR);
    QDir().mkpath(dir);
    return dir;
}

class HUDTest : public ::testing::Test
{
protected:
    CoordinatorHarness h;
    HUDController hud {*h.coordinator};
};

} // namespace

TEST(HUDViewTest, LabelsForEveryState)
{
    EXPECT_EQ(HUDView::label(AppState::idle(), false), "");
    EXPECT_EQ(HUDView::label(AppState::listening(), false), QString::fromUtf8("Starting mic…"));
    EXPECT_EQ(HUDView::label(AppState::listening(), true), QString::fromUtf8("Listening…"));
    EXPECT_EQ(HUDView::label(AppState::listening("send the"), true), "send the");
    EXPECT_EQ(HUDView::label(AppState::listening("send the"), false), "send the");
    EXPECT_EQ(HUDView::label(AppState::processing(), true), QString::fromUtf8("Processing…"));
    EXPECT_EQ(HUDView::label(AppState::success("Done.", false), true), "Done.");
    EXPECT_EQ(HUDView::label(AppState::success("done", true), true), "done (raw)");
    EXPECT_EQ(HUDView::label(AppState::error("connection lost"), true), "connection lost");
    EXPECT_EQ(HUDView::label(AppState::emptyTranscript(), true), "Didn't catch that");
}

TEST(HUDViewTest, IndicatorsForEveryState)
{
    EXPECT_EQ(HUDView::indicator(AppState::listening()), HUDView::Indicator::waveform);
    EXPECT_EQ(HUDView::indicator(AppState::processing()), HUDView::Indicator::spinner);
    EXPECT_EQ(HUDView::symbolName(AppState::success("x", false)), "checkmark.circle.fill");
    EXPECT_EQ(HUDView::symbolName(AppState::error("x")), "exclamationmark.triangle.fill");
    EXPECT_EQ(HUDView::symbolName(AppState::emptyTranscript()), "mic.slash");
    EXPECT_EQ(HUDView::indicator(AppState::emptyTranscript()), HUDView::Indicator::symbol);
}

namespace {

qint64 shownSymbolKey(const HUDView &view)
{
    for (const QLabel *label : view.findChildren<QLabel *>()) {
        if (!label->pixmap().isNull()) {
            return label->pixmap().cacheKey();
        }
    }
    return 0;
}

} // namespace

// Every dictation ends in an outcome; showing it again reuses the drawing instead of adding
// another copy to Qt's pixmap cache each time.
TEST(HUDViewTest, AnOutcomeShownAgainReusesItsSymbol)
{
    HUDView view;
    view.setState(AppState::success("One.", false), true);
    const qint64 first = shownSymbolKey(view);
    ASSERT_NE(first, 0);
    for (int i = 0; i < 20; ++i) {
        view.setState(AppState::listening(), true);
        view.setState(AppState::processing(), true);
        view.setState(AppState::success("Again.", false), true);
        EXPECT_EQ(shownSymbolKey(view), first);
    }
    view.setState(AppState::error("connection lost"), true);
    EXPECT_NE(shownSymbolKey(view), first);
}

TEST(WaveformViewTest, BarsAreFourPointsAtSilenceAndSixteenAtFullLevel)
{
    EXPECT_DOUBLE_EQ(WaveformView::barHeight(0.0), 4.0);
    EXPECT_DOUBLE_EQ(WaveformView::barHeight(1.0), 16.0);
    EXPECT_DOUBLE_EQ(WaveformView::barHeight(0.5), 10.0);
    WaveformView view;
    view.pushLevel(2.0);
    view.pushLevel(0.25);
    EXPECT_DOUBLE_EQ(view.levels().back(), 0.25);
    EXPECT_DOUBLE_EQ(view.levels()[view.levels().size() - 2], 1.0); // clamped
    EXPECT_EQ(view.sizeHint(),
        QSize(WaveformView::kBarCount * 3 + (WaveformView::kBarCount - 1) * 2, 16));
}

TEST(WaveformViewTest, PulsingFadesBetweenTheTwoOpacitiesOnlyWhileShown)
{
    WaveformView view;
    view.setPulsing(true);
    EXPECT_DOUBLE_EQ(view.rowOpacity(), 0.55); // hidden: no animation runs
    view.show();
    QTest::qWait(400);
    const double during = view.rowOpacity();
    EXPECT_LT(during, 0.55);
    EXPECT_GT(during, 0.2);
    view.setPulsing(false);
    EXPECT_DOUBLE_EQ(view.rowOpacity(), 1.0);
}

TEST_F(HUDTest, ThePanelSitsAtTheBottomCentreAndNeverTakesFocus)
{
    hud.render(AppState::listening(), false);
    ASSERT_TRUE(hud.isShown());
    QWidget *panel = hud.panel();
    const QRect visible = QGuiApplication::primaryScreen()->availableGeometry();
    EXPECT_EQ(panel->size(), QSize(260, 44));
    EXPECT_EQ(panel->x(), visible.x() + visible.width() / 2 - 130);
    EXPECT_EQ(panel->y() + 44, visible.y() + visible.height() - 80);
    EXPECT_TRUE(panel->windowFlags().testFlag(Qt::WindowDoesNotAcceptFocus));
    EXPECT_TRUE(panel->windowFlags().testFlag(Qt::WindowTransparentForInput));
    EXPECT_TRUE(panel->windowFlags().testFlag(Qt::WindowStaysOnTopHint));
    EXPECT_TRUE(panel->testAttribute(Qt::WA_ShowWithoutActivating));
    EXPECT_FALSE(panel->isActiveWindow());
}

TEST_F(HUDTest, ItFollowsTheCoordinatorAndPulsesUntilTheMicIsLive)
{
    ASSERT_TRUE(h.startAndConnect());
    h.answerNothing();
    h.coordinator->handleTriggerDown();
    ASSERT_TRUE(hud.isShown());
    EXPECT_EQ(hud.view()->labelText(), QString::fromUtf8("Starting mic…"));
    EXPECT_TRUE(hud.view()->waveform()->isPulsing());
    h.speak(CoordinatorHarness::tone(3200));
    ASSERT_TRUE(QTest::qWaitFor(
        [&] { return hud.view()->labelText() == QString::fromUtf8("Listening…"); }, 3000));
    EXPECT_FALSE(hud.view()->waveform()->isPulsing());
}

TEST_F(HUDTest, LevelsFromAnotherThreadReachTheBars)
{
    hud.render(AppState::listening(), true);
    std::thread audio([&] {
        for (int i = 0; i < 50; ++i) {
            hud.postLevel(0.25f);
        }
    });
    audio.join();
    ASSERT_TRUE(
        QTest::qWaitFor([&] { return hud.view()->waveform()->levels().back() > 0.0; }, 2000));
    EXPECT_DOUBLE_EQ(hud.view()->waveform()->levels().back(), HUDController::barLevel(0.25f));
    // Many posts in one turn of the event loop become one bar, not fifty.
    EXPECT_DOUBLE_EQ(hud.view()->waveform()->levels()[WaveformView::kBarCount - 2], 0.0);
}

TEST_F(HUDTest, SuccessHidesAfterOnePointTwoSecondsAndErrorsAfterTwo)
{
    for (const auto &[state, expectedMs] : {std::pair {AppState::success("Done.", false), 1200},
             std::pair {AppState::error("connection lost"), 2000},
             std::pair {AppState::emptyTranscript(), 2000}}) {
        QElapsedTimer clock;
        clock.start();
        hud.render(state, true);
        ASSERT_TRUE(hud.isShown());
        ASSERT_TRUE(QTest::qWaitFor([&] { return !hud.isShown(); }, 4000));
        EXPECT_GE(clock.elapsed(), expectedMs - 50) << describe(state).toStdString();
        EXPECT_LE(clock.elapsed(), expectedMs + 400) << describe(state).toStdString();
    }
}

TEST_F(HUDTest, OutcomesHideWhenTheCoordinatorReturnsToIdle)
{
    h.coordinator->setDisplayDurations({0.1, 0.3});
    for (const auto &[state, expectedMs] : {std::pair {AppState::success("Done.", false), 100},
             std::pair {AppState::error("connection lost"), 300}}) {
        QElapsedTimer clock;
        clock.start();
        hud.render(state, true);
        ASSERT_TRUE(QTest::qWaitFor([&] { return !hud.isShown(); }, 4000));
        EXPECT_GE(clock.elapsed(), expectedMs - 20) << describe(state).toStdString();
        EXPECT_LT(clock.elapsed(), expectedMs + 900) << describe(state).toStdString();
    }
}

TEST_F(HUDTest, ListeningAndProcessingStayUntilTheNextState)
{
    hud.render(AppState::processing(), true);
    EXPECT_FALSE(hud.isHidePending());
    QTest::qWait(2300);
    EXPECT_TRUE(hud.isShown());
}

TEST_F(HUDTest, ANewUtteranceWithinTheSuccessDisplayKeepsThePanel)
{
    hud.render(AppState::success("First.", false), true);
    QTest::qWait(600);
    hud.render(AppState::listening(), false);
    EXPECT_FALSE(hud.isHidePending());
    QTest::qWait(900); // past the first utterance's 1.2 s
    EXPECT_TRUE(hud.isShown());
}

TEST_F(HUDTest, IdleHidesAtOnceEvenWithAHidePending)
{
    hud.render(AppState::error("x"), true);
    ASSERT_TRUE(hud.isHidePending());
    hud.render(AppState::idle(), false);
    EXPECT_FALSE(hud.isShown());
    EXPECT_FALSE(hud.isHidePending());
}

TEST_F(HUDTest, WithoutAScreenThePanelKeepsItsPlace)
{
    hud.render(AppState::processing(), true);
    hud.panel()->move(10, 20);
    hud.setScreenProvider([] { return nullptr; });
    hud.render(AppState::listening("hello"), true);
    EXPECT_EQ(hud.panel()->pos(), QPoint(10, 20));
}

TEST_F(HUDTest, AFinalWithoutGrammarCorrectionReadsAsRaw)
{
    ASSERT_TRUE(h.startAndConnect());
    h.answerWith(CoordinatorHarness::finalWithText("please send me the report", false));
    h.coordinator->handleTriggerDown();
    h.speak(CoordinatorHarness::tone(3200));
    h.coordinator->handleTriggerUp();
    ASSERT_TRUE(
        QTest::qWaitFor([&] { return h.coordinator->state().is<AppState::Success>(); }, 5000));
    ASSERT_TRUE(hud.isShown());
    EXPECT_EQ(hud.view()->labelText(), QStringLiteral("please send me the report (raw)"));
    EXPECT_EQ(h.pastedTexts(), std::vector<QString> {"please send me the report"})
        << "the suffix is for the HUD only";

    h.answerWith(CoordinatorHarness::finalWithText("Please send me the report.", true));
    ASSERT_TRUE(QTest::qWaitFor([&] { return h.coordinator->state().is<AppState::Idle>(); }, 5000));
    h.coordinator->handleTriggerDown();
    h.speak(CoordinatorHarness::tone(3200));
    h.coordinator->handleTriggerUp();
    ASSERT_TRUE(
        QTest::qWaitFor([&] { return h.coordinator->state().is<AppState::Success>(); }, 5000));
    EXPECT_EQ(hud.view()->labelText(), QStringLiteral("Please send me the report."));
}

TEST_F(HUDTest, ScreenshotsOfEveryState)
{
    struct Shot
    {
        const char *name;
        AppState state;
        bool live;
    };
    const Shot shots[] = {
        {"hud-starting", AppState::listening(), false},
        {"hud-listening", AppState::listening("please send me the report before"), true},
        {"hud-processing", AppState::processing(), true},
        {"hud-success", AppState::success("Please send me the report before the meeting.", false),
            true},
        {"hud-success-raw", AppState::success("please send me the report", true), true},
        {"hud-error", AppState::error("connection lost"), true},
        {"hud-empty", AppState::emptyTranscript(), true},
    };
    for (const Shot &shot : shots) {
        hud.render(shot.state, shot.live);
        if (shot.state.is<AppState::Listening>()) {
            for (double level : {0.1, 0.4, 0.8, 0.5, 0.9, 0.3, 0.6, 0.2, 0.7}) {
                hud.view()->waveform()->pushLevel(level);
            }
        }
        QTest::qWait(30);
        // Put the pill on a neutral backdrop the way a desktop would show it.
        QImage image(QSize(300, 84), QImage::Format_ARGB32_Premultiplied);
        image.fill(QColor(235, 235, 240));
        QPainter painter(&image);
        painter.drawPixmap(20, 20, hud.view()->grab());
        painter.end();
        const QString path
            = screenshotDir() + QStringLiteral("/%1.png").arg(QString::fromLatin1(shot.name));
        ASSERT_TRUE(image.save(path)) << path.toStdString();
    }
}
