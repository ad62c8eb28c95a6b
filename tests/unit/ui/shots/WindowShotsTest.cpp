// Every window in a light and a dark desktop theme, photographed for a person to review, with
// the checks a picture cannot be trusted to make: secondary text keeps its contrast and
// nothing is clipped. The same tests also run at twice the scale (QT_SCALE_FACTOR=2).
#include "calibration/CalibrationController.h"
#include "runtime/EngineSupervisor.h"
#include "runtime/FootprintSampler.h"
#include "support/session/CoordinatorHarness.h"
#include "ui/CalibrationWindow.h"
#include "ui/EngineSetupWindow.h"
#include "ui/HUDController.h"
#include "ui/HUDView.h"
#include "ui/SettingsWindow.h"
#include "ui/WindowStyle.h"
#include "unit/ui/SetupRequiredEngine.h"

#include <QApplication>
#include <QDir>
#include <QLabel>
#include <QListWidget>
#include <QPainter>
#include <QTest>

#include <gtest/gtest.h>

namespace sayvo {
namespace {

using test::CoordinatorHarness;

QPalette darkPalette()
{
    QPalette p;
    const QColor window(0x2b, 0x2b, 0x2e);
    const QColor text(0xe8, 0xe8, 0xea);
    p.setColor(QPalette::Window, window);
    p.setColor(QPalette::WindowText, text);
    p.setColor(QPalette::Base, QColor(0x1e, 0x1e, 0x20));
    p.setColor(QPalette::AlternateBase, QColor(0x26, 0x26, 0x29));
    p.setColor(QPalette::Text, text);
    p.setColor(QPalette::Button, QColor(0x3a, 0x3a, 0x3d));
    p.setColor(QPalette::ButtonText, text);
    p.setColor(QPalette::Light, QColor(0x5c, 0x5c, 0x60));
    p.setColor(QPalette::Midlight, QColor(0x4a, 0x4a, 0x4e));
    p.setColor(QPalette::Mid, QColor(0x62, 0x62, 0x66));
    p.setColor(QPalette::Dark, QColor(0x18, 0x18, 0x1a));
    p.setColor(QPalette::Shadow, Qt::black);
    p.setColor(QPalette::Highlight, QColor(0x2f, 0x6f, 0xde));
    p.setColor(QPalette::HighlightedText, Qt::white);
    p.setColor(QPalette::ToolTipBase, window);
    p.setColor(QPalette::ToolTipText, text);
    p.setColor(QPalette::PlaceholderText, QColor(0x9a, 0x9a, 0xa0));
    p.setColor(QPalette::Disabled, QPalette::WindowText, QColor(0x80, 0x80, 0x84));
    p.setColor(QPalette::Disabled, QPalette::ButtonText, QColor(0x80, 0x80, 0x84));
    p.setColor(QPalette::Disabled, QPalette::Text, QColor(0x80, 0x80, 0x84));
    return p;
}

QString shotName(const QString &name, bool dark)
{
    const QString scale
        = qEnvironmentVariableIsSet("QT_SCALE_FACTOR") ? QStringLiteral("-2x") : QString();
    return name + (dark ? QStringLiteral("-dark") : QStringLiteral("-light")) + scale;
}

bool save(QWidget &window, const QString &name, bool dark)
{
    const QString dir = QStringLiteral(SAYVO_SCREENSHOT_DIR) + QStringLiteral("/themes");
    QDir().mkpath(dir);
    QTest::qWait(30);
    return window.grab().save(dir + QLatin1Char('/') + shotName(name, dark) + ".png");
}

// Secondary text reads against what it is drawn on, and wrapped text is not cut off.
void checkLabels(QWidget &window)
{
    const QColor background = QApplication::palette().color(QPalette::Window);
    for (QLabel *label : window.findChildren<QLabel *>()) {
        if (!label->isVisibleTo(&window) || label->text().isEmpty() || !label->pixmap().isNull()) {
            continue;
        }
        const QColor ink = label->palette().color(QPalette::WindowText);
        EXPECT_GE(WindowStyle::contrastRatio(ink, background), 3.0)
            << label->text().left(40).toStdString();
        if (label->wordWrap() && label->width() > 0) {
            EXPECT_GE(label->height(), label->heightForWidth(label->width()) - 1)
                << "clipped: " << label->text().left(40).toStdString();
        }
    }
}

class WindowShots : public ::testing::TestWithParam<bool>
{
protected:
    void SetUp() override
    {
        m_previous = QApplication::palette();
        if (dark()) {
            QApplication::setPalette(darkPalette());
        }
    }
    void TearDown() override { QApplication::setPalette(m_previous); }
    bool dark() const { return GetParam(); }

private:
    QPalette m_previous;
};

TEST_P(WindowShots, Settings)
{
    CoordinatorHarness h;
    h.settings->setPersonalDictionary({"Maren", "Kubernetes", "PostgreSQL"});
    h.usage->record(Stats {10.0, 25, 150.0, 0.3, 0.2, 2, 0.08});
    SuggestionsMessage message;
    message.dictionary = {{"cooper netties", "Kubernetes", 4}};
    message.exemplars = {{"email", "best mark", "Best, Mark", 3}};
    h.coordinator->engineClientDidReceiveSuggestions(*h.client, message);
    SettingsWindow window(
        *h.settings, *h.usage, *h.coordinator,
        [] {
            return PermissionSnapshot {true, false, true};
        },
        [](Permission) {}, nullptr, [] { return nullptr; });
    window.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
    for (int i = 0; i < 7; ++i) {
        const auto tab = static_cast<SettingsTab>(i);
        window.selectTab(tab);
        checkLabels(window);
        EXPECT_TRUE(save(window,
            QStringLiteral("settings-%1-%2").arg(i + 1).arg(SettingsWindow::title(tab).toLower()),
            dark()));
    }
}

TEST_P(WindowShots, EngineSetup)
{
    test::SetupRequiredEngine engine;
    EngineSupervisor &supervisor = *engine.supervisor;
    const auto &launches = engine.launches;
    EngineSetupWindow window(supervisor);
    window.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
    checkLabels(window);
    EXPECT_TRUE(save(window, QStringLiteral("setup-needs-setup"), dark()));
    supervisor.beginProvisioning();
    ASSERT_FALSE(launches->started.isEmpty());
    launches->started.back()->write(
        "STEP mac ok\nSTEP uv ok\nSTEP copy ok\nSTEP venv run\nPROGRESS 40 Creating the engine "
        "environment\n");
    QTest::qWait(30);
    window.setLogShown(true);
    checkLabels(window);
    EXPECT_TRUE(save(window, QStringLiteral("setup-provisioning"), dark()));
}

TEST_P(WindowShots, Calibration)
{
    CoordinatorHarness h;
    CalibrationController controller(
        *h.coordinator, *h.client, *h.settings, CalibrationPrompt::readSlice());
    CalibrationWindow window(controller);
    window.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
    checkLabels(window);
    EXPECT_TRUE(save(window, QStringLiteral("calibration-ready"), dark()));
    for (int i = 0; i < 13; ++i) {
        const QString text = i == 3 ? QStringLiteral("I cant make it to the call at 430")
                                    : controller.currentPrompt()->text;
        FinalMessage final = CoordinatorHarness::finalWithText(text.toStdString());
        final.utteranceId = "u" + std::to_string(i);
        controller.handleFinal(final);
    }
    controller.submit();
    QTest::qWait(30);
    checkLabels(window);
    EXPECT_TRUE(save(window, QStringLiteral("calibration-reviewing-sharing-off"), dark()));
}

TEST_P(WindowShots, HeadsUpDisplay)
{
    CoordinatorHarness h;
    HUDController hud(*h.coordinator);
    const std::pair<const char *, AppState> states[] = {
        {"hud-listening", AppState::listening("please send me the report")},
        {"hud-success-raw", AppState::success("please send me the report", true)},
        {"hud-error", AppState::error("connection lost")},
    };
    for (const auto &[name, state] : states) {
        hud.render(state, true);
        QTest::qWait(30);
        // On the desktop's own backdrop.
        const QPixmap pill = hud.view()->grab();
        QImage image(pill.size() + QSize(40, 40), QImage::Format_ARGB32_Premultiplied);
        image.fill(QApplication::palette().color(QPalette::Window));
        QPainter painter(&image);
        painter.drawPixmap(20, 20, pill);
        painter.end();
        const QString dir = QStringLiteral(SAYVO_SCREENSHOT_DIR) + QStringLiteral("/themes");
        QDir().mkpath(dir);
        EXPECT_TRUE(image.save(dir + QLatin1Char('/') + shotName(QString::fromLatin1(name), dark())
            + QStringLiteral(".png")));
    }
}

INSTANTIATE_TEST_SUITE_P(Themes, WindowShots, ::testing::Values(false, true),
    [](const ::testing::TestParamInfo<bool> &info) {
        return info.param ? std::string("Dark") : std::string("Light");
    });

} // namespace
} // namespace sayvo
