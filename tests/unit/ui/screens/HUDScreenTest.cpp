// Runs on two side-by-side offscreen screens (see two-screens.json).
#include "ui/HUDController.h"

#include "support/session/CoordinatorHarness.h"

#include <QCursor>
#include <QGuiApplication>
#include <QScreen>
#include <QWidget>

#include <gtest/gtest.h>

namespace sayvo {
namespace {

using test::CoordinatorHarness;

QScreen *screenNamed(const QString &name)
{
    for (QScreen *screen : QGuiApplication::screens()) {
        if (screen->name() == name) {
            return screen;
        }
    }
    return nullptr;
}

QRect expectedFrame(const QScreen &screen)
{
    const QRect visible = screen.availableGeometry();
    return {visible.x() + visible.width() / 2 - HUDController::kWidth / 2,
        visible.y() + visible.height() - HUDController::kBottomOffset - HUDController::kHeight,
        HUDController::kWidth, HUDController::kHeight};
}

// The pill appears where the user is working: on the screen under the pointer, and it moves
// there when the user has moved to another screen since the last utterance.
TEST(HUDScreenTest, ThePanelFollowsThePointerToItsScreen)
{
    ASSERT_EQ(QGuiApplication::screens().size(), 2);
    QScreen *left = screenNamed(QStringLiteral("left"));
    QScreen *right = screenNamed(QStringLiteral("right"));
    ASSERT_NE(left, nullptr);
    ASSERT_NE(right, nullptr);
    ASSERT_EQ(QGuiApplication::primaryScreen(), left);

    CoordinatorHarness h;
    HUDController hud(*h.coordinator);
    QCursor::setPos(right->geometry().center());
    hud.render(AppState::listening(), false);
    EXPECT_EQ(hud.panel()->geometry(), expectedFrame(*right));

    QCursor::setPos(left->geometry().center());
    hud.render(AppState::processing(), false);
    EXPECT_EQ(hud.panel()->geometry(), expectedFrame(*left));
}

TEST(HUDScreenTest, APointerOffEveryScreenFallsBackToThePrimaryOne)
{
    QCursor::setPos(-5000, -5000);
    EXPECT_EQ(HUDController::screenUnderPointer(), QGuiApplication::primaryScreen());
}

} // namespace
} // namespace sayvo
