// The tray icon as a user sees it: the real Sayvo docked in a real system tray (trayer) on a
// private X desktop, on a dark panel and on a light one.
#include "support/e2e/DictationDesk.h"
#include "ui/WindowStyle.h"

#include <QDir>
#include <QFile>
#include <QImage>
#include <QRegularExpression>
#include <QTest>

#include <gtest/gtest.h>

using sayvo::WindowStyle;
using sayvo::test::DictationDesk;

namespace {

constexpr int kPanelHeight = 32;

QString screenshotPath(const QString &name)
{
    return QStringLiteral(SAYVO_SCREENSHOT_DIR) + QStringLiteral("/") + name
        + QStringLiteral(".png");
}

// Runs Sayvo in a tray whose panel has the given colour, checks that the icon contrasts
// with it and that a right-click opens the menu, and keeps pictures of both.
void checkTray(const QString &name, const QString &tint, bool darkPanel)
{
    DictationDesk desk({});
    ASSERT_TRUE(desk.isReady()) << desk.failure().toStdString();
    desk.desktop().start(QStringLiteral("trayer"),
        {QStringLiteral("--edge"), QStringLiteral("top"), QStringLiteral("--align"),
            QStringLiteral("right"), QStringLiteral("--widthtype"), QStringLiteral("pixel"),
            QStringLiteral("--width"), QStringLiteral("160"), QStringLiteral("--height"),
            QString::number(kPanelHeight), QStringLiteral("--transparent"), QStringLiteral("true"),
            QStringLiteral("--alpha"), QStringLiteral("0"), QStringLiteral("--tint"), tint,
            QStringLiteral("--SetDockType"), QStringLiteral("true")});
    int found = -1;
    for (int attempt = 0; attempt < 50 && found != 0; ++attempt) {
        desk.desktop().run(QStringLiteral("xdotool"),
            {QStringLiteral("search"), QStringLiteral("--name"), QStringLiteral("^panel$")},
            &found);
        if (found != 0) {
            QTest::qWait(100);
        }
    }
    ASSERT_EQ(found, 0) << "the tray did not come up";
    ASSERT_TRUE(desk.launchSayvo()) << desk.log().join('\n').toStdString();

    const QRegularExpression placed(
        QStringLiteral("tray panel colour: (#[0-9a-f]{6}) at (-?\\d+),(-?\\d+) (\\d+)x(\\d+)"));
    ASSERT_TRUE(desk.waitForLog(placed, 20000)) << desk.log().join('\n').toStdString();
    QRegularExpressionMatch match;
    for (const QString &line : desk.log()) {
        if (const auto m = placed.match(line); m.hasMatch()) {
            match = m;
        }
    }
    const QColor panel(match.captured(1));
    const QRect icon(match.captured(2).toInt(), match.captured(3).toInt(),
        match.captured(4).toInt(), match.captured(5).toInt());
    EXPECT_EQ(panel.lightnessF() < 0.5, darkPanel) << panel.name().toStdString();

    // The icon is painted in its ink a moment after the reading; later on a busy machine.
    const QString shot = screenshotPath(QStringLiteral("tray-") + name + QStringLiteral("-full"));
    double best = 1.0;
    QImage screen;
    for (int attempt = 0; attempt < 30 && best < 4.5; ++attempt) {
        if (attempt > 0) {
            QTest::qWait(500);
        }
        ASSERT_TRUE(desk.screenshot(shot));
        screen = QImage(shot);
        // The icon's own pixels: those that stand out from the panel. Their colour is the ink.
        const QImage area = screen.copy(icon);
        for (int y = 0; y < area.height(); ++y) {
            for (int x = 0; x < area.width(); ++x) {
                best = std::max(best, WindowStyle::contrastRatio(area.pixelColor(x, y), panel));
            }
        }
    }
    const QRect strip(screen.width() - 200, 0, 200, kPanelHeight + 8);
    EXPECT_TRUE(screen.copy(strip).save(screenshotPath(QStringLiteral("tray-") + name)));
    EXPECT_GE(best, 4.5) << "the icon must stand out from a " << (darkPanel ? "dark" : "light")
                         << " panel";

    // A right-click on the icon opens the menu.
    desk.desktop().run(QStringLiteral("xdotool"),
        {QStringLiteral("mousemove"), QString::number(icon.center().x()),
            QString::number(icon.center().y()), QStringLiteral("click"), QStringLiteral("3")});
    EXPECT_TRUE(desk.waitForLog(QRegularExpression(QStringLiteral("tray menu opened")), 10000));
    QTest::qWait(300);
    const QString menuShot
        = screenshotPath(QStringLiteral("tray-") + name + QStringLiteral("-menu-full"));
    ASSERT_TRUE(desk.screenshot(menuShot));
    EXPECT_TRUE(
        QImage(menuShot)
            .copy(QRect(screen.width() - 420, 0, 420, 360))
            .save(screenshotPath(QStringLiteral("tray-") + name + QStringLiteral("-menu"))));
    QFile::remove(shot);
    QFile::remove(menuShot);
}

TEST(TrayEndToEnd, OnADarkPanelTheIconIsLightAndRightClickOpensTheMenu)
{
    checkTray(QStringLiteral("dark-panel"), QStringLiteral("0x202124"), true);
}

TEST(TrayEndToEnd, OnALightPanelTheIconIsDarkAndRightClickOpensTheMenu)
{
    checkTray(QStringLiteral("light-panel"), QStringLiteral("0xf0f0f0"), false);
}

// A panel started after Sayvo is noticed from the X server's own news of the tray selection's
// new owner, with no asking again in between.
TEST(TrayEndToEnd, APanelStartedLaterIsNoticed)
{
    DictationDesk desk({});
    ASSERT_TRUE(desk.isReady()) << desk.failure().toStdString();
    ASSERT_TRUE(desk.launchSayvo()) << desk.log().join('\n').toStdString();
    ASSERT_TRUE(desk.waitForLog(QRegularExpression(QStringLiteral("no system tray")), 0));
    desk.desktop().start(QStringLiteral("trayer"),
        {QStringLiteral("--edge"), QStringLiteral("top"), QStringLiteral("--SetDockType"),
            QStringLiteral("true")});
    EXPECT_TRUE(
        desk.waitForLog(QRegularExpression(QStringLiteral("system tray: available")), 20000))
        << desk.log().join('\n').toStdString();
}

} // namespace
