// Every window can be used without a mouse: Tab reaches the controls, Return presses the
// focused or default button, Escape cancels or closes, and mnemonics jump to their button.
#include "calibration/CalibrationController.h"
#include "runtime/EngineSupervisor.h"
#include "runtime/FootprintSampler.h"
#include "support/session/CoordinatorHarness.h"
#include "ui/CalibrationWindow.h"
#include "ui/EngineSetupWindow.h"
#include "ui/SettingsControls.h"
#include "ui/SettingsWindow.h"
#include "unit/ui/SetupRequiredEngine.h"

#include <QApplication>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QTest>

#include <gtest/gtest.h>

namespace sayvo {
namespace {

using Phase = CalibrationController::Phase;
using test::CoordinatorHarness;

// Presses Tab until `target` has the focus; false when it is never reached.
bool tabTo(QWidget &window, QWidget *target)
{
    for (int i = 0; i < 60; ++i) {
        if (QApplication::focusWidget() == target) {
            return true;
        }
        QTest::keyClick(
            QApplication::focusWidget() ? QApplication::focusWidget() : &window, Qt::Key_Tab);
    }
    return QApplication::focusWidget() == target;
}

// A key as the window system delivers it: shortcuts and mnemonics first, then the focused
// widget and its parents.
void key(Qt::Key k, Qt::KeyboardModifiers modifiers = Qt::NoModifier)
{
    QWidget *active = QApplication::activeWindow();
    ASSERT_NE(active, nullptr);
    QTest::keyClick(active->windowHandle(), k, modifiers);
}

class CalibrationKeysTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(h.startAndConnect());
        window.show();
        window.activateWindow();
        ASSERT_TRUE(QTest::qWaitForWindowActive(&window));
    }
    QPushButton *button(const char *name)
    {
        return window.findChild<QPushButton *>(QString::fromLatin1(name));
    }

    CoordinatorHarness h;
    CalibrationController controller {
        *h.coordinator, *h.client, *h.settings, CalibrationPrompt::readSlice()};
    CalibrationWindow window {controller};
};

TEST_F(CalibrationKeysTest, ReturnReadsALineAndEscapeCancelsIt)
{
    h.answerWith(CoordinatorHarness::finalWithText("the meeting is at 3pm in room 204"));
    ASSERT_TRUE(tabTo(window, button("startReading")));
    key(Qt::Key_Return);
    ASSERT_EQ(controller.phase(), Phase::recording);
    key(Qt::Key_Escape);
    EXPECT_EQ(controller.phase(), Phase::ready) << "Escape cancels the line";
    EXPECT_TRUE(h.coordinator->state().is<AppState::Idle>());
    EXPECT_TRUE(window.isVisible());

    // The focus stays on the control of each phase: Return starts, Return is Done.
    key(Qt::Key_Return);
    ASSERT_EQ(controller.phase(), Phase::recording);
    EXPECT_EQ(QApplication::focusWidget(), button("done"));
    h.speak(CoordinatorHarness::tone(3200));
    key(Qt::Key_Return);
    ASSERT_TRUE(QTest::qWaitFor([&] { return controller.results().size() == 1; }, 5000));
    EXPECT_EQ(button("startReading")->text(), QStringLiteral("&Start Reading"))
        << "Alt+S reaches it as well";

    // Return with nothing else focused presses the default button: the next line starts.
    button("startOver")->setFocus();
    ASSERT_TRUE(tabTo(window, button("startReading")));
    key(Qt::Key_Return);
    EXPECT_EQ(controller.phase(), Phase::recording);
    key(Qt::Key_Escape);
    // With no line being read, Escape closes the window and the run stays.
    key(Qt::Key_Escape);
    EXPECT_FALSE(window.isVisible());
    EXPECT_EQ(controller.results().size(), 1);
}

TEST_F(CalibrationKeysTest, TabReachesEveryResultsButtons)
{
    for (int i = 0; i < 2; ++i) {
        FinalMessage final
            = CoordinatorHarness::finalWithText(controller.currentPrompt()->text.toStdString());
        final.utteranceId = "u" + std::to_string(i);
        controller.handleFinal(final);
    }
    QList<QWidget *> rowButtons;
    for (QWidget *row : window.findChildren<QWidget *>(QStringLiteral("resultRow"))) {
        rowButtons << row->findChild<QWidget *>(QStringLiteral("redo"))
                   << row->findChild<QWidget *>(QStringLiteral("remove"));
    }
    ASSERT_EQ(rowButtons.size(), 4);
    for (QWidget *b : rowButtons) {
        EXPECT_TRUE(tabTo(window, b)) << b->objectName().toStdString();
    }
    // Space on a focused remove button removes its line.
    key(Qt::Key_Space);
    EXPECT_EQ(controller.results().size(), 1);
}

TEST(SetupKeysTest, ReturnSetsUpAndEscapeCloses)
{
    test::SetupRequiredEngine engine;
    EngineSupervisor &supervisor = *engine.supervisor;
    const auto &launches = engine.launches;
    EngineSetupWindow window(supervisor);
    window.show();
    window.activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&window));
    auto *action = window.findChild<QPushButton *>(QStringLiteral("stateAction"));
    ASSERT_TRUE(tabTo(window, action));
    key(Qt::Key_Return);
    EXPECT_FALSE(launches->started.isEmpty()) << "set-up started from the keyboard";
    key(Qt::Key_Escape);
    EXPECT_FALSE(window.isVisible());
}

TEST(SettingsKeysTest, TheTabsAndControlsAreReachedFromTheKeyboard)
{
    CoordinatorHarness h;
    SettingsWindow window(
        *h.settings, *h.usage, *h.coordinator, [] { return PermissionSnapshot {}; },
        [](Permission) {}, nullptr, [] { return nullptr; });
    window.show();
    window.activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&window));
    auto *sidebar = window.findChild<QListWidget *>(QStringLiteral("settingsSidebar"));
    ASSERT_TRUE(tabTo(window, sidebar));
    key(Qt::Key_Down);
    key(Qt::Key_Down);
    EXPECT_EQ(window.selectedTab(), SettingsTab::insertion);
    auto *method = window.findChild<SettingsRadioList *>(QStringLiteral("insertionChoice"));
    ASSERT_TRUE(tabTo(window, method->button(0)));
    key(Qt::Key_Down);
    EXPECT_EQ(h.settings->insertionMethod(), InsertionMethod::axDirect);

    sidebar->setFocus();
    key(Qt::Key_Home);
    EXPECT_EQ(window.selectedTab(), SettingsTab::general);
    auto *endpoint = window.findChild<QLineEdit *>(QStringLiteral("endpointField"));
    ASSERT_TRUE(tabTo(window, endpoint));
    endpoint->selectAll();
    QTest::keyClicks(endpoint, QStringLiteral("ws://127.0.0.1:9001"));
    key(Qt::Key_Return);
    EXPECT_EQ(h.settings->endpointURL(), QUrl(QStringLiteral("ws://127.0.0.1:9001")));
    EXPECT_TRUE(window.isVisible()) << "Return in a field commits it, it does not close";
    auto *launch = window.findChild<SettingsSwitch *>(QStringLiteral("launchAtLoginSwitch"));
    ASSERT_TRUE(tabTo(window, launch)) << "the switch takes the focus";
    key(Qt::Key_Escape);
    EXPECT_FALSE(window.isVisible());
}

} // namespace
} // namespace sayvo
