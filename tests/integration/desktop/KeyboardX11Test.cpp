#include "desktop/HotkeyManager.h"
#include "desktop/x11/KeyboardEventSourceX11.h"
#include "support/desktop/DesktopSession.h"
#include "support/desktop/TestEditor.h"

#include <QTest>

#include <gtest/gtest.h>

using namespace sayvo;
using namespace sayvo::testing;

namespace {

class KeyboardX11Test : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_session.isReady()) << m_session.failure().toStdString();
        m_editor = std::make_unique<TestEditor>(m_session, QStringLiteral("Key target"));
        ASSERT_TRUE(m_editor->isReady());
    }

    void makeManager(HotkeyTrigger trigger, int chordWindowMs = HotkeyManager::kChordWindowMs)
    {
        m_manager
            = std::make_unique<HotkeyManager>(trigger, std::make_unique<KeyboardEventSourceX11>());
        m_manager->setChordWindowMs(chordWindowMs);
        m_manager->setOnStart([this] { ++m_starts; });
        m_manager->setOnEnd([this] { ++m_ends; });
        ASSERT_TRUE(m_manager->start().ok());
    }

    void xdotool(const QStringList &arguments)
    {
        int code = 0;
        m_session.run(QStringLiteral("xdotool"), arguments, &code);
        ASSERT_EQ(code, 0);
    }

    // Presses and releases a key, then makes sure the editor has seen everything sent so far
    // by typing a marker key it must receive.
    void tap(const QString &key)
    {
        xdotool({QStringLiteral("keydown"), key});
        xdotool({QStringLiteral("keyup"), key});
        settle();
    }

    void settle()
    {
        xdotool({QStringLiteral("key"), QStringLiteral("z")});
        ASSERT_TRUE(QTest::qWaitFor(
            [this] { return m_editor->keys().contains(QStringLiteral("release:z")); }, 5000));
        QTest::qWait(50);
    }

    DesktopSession m_session;
    std::unique_ptr<TestEditor> m_editor;
    std::unique_ptr<HotkeyManager> m_manager;
    int m_starts = 0;
    int m_ends = 0;
};

TEST_F(KeyboardX11Test, HoldingF5GivesOneStartAndOneEndAndTheFocusedClientSeesNoF5)
{
    makeManager(HotkeyTrigger::f5);
    xdotool({QStringLiteral("keydown"), QStringLiteral("F5")});
    ASSERT_TRUE(QTest::qWaitFor([this] { return m_starts == 1; }, 5000));
    // Longer than the server's auto-repeat delay, so the key repeats.
    QTest::qWait(1200);
    xdotool({QStringLiteral("keyup"), QStringLiteral("F5")});
    ASSERT_TRUE(QTest::qWaitFor([this] { return m_ends == 1; }, 5000));
    settle();
    EXPECT_EQ(m_starts, 1);
    EXPECT_EQ(m_ends, 1);
    const QStringList keys = m_editor->keys();
    EXPECT_FALSE(keys.filter(QStringLiteral("F5")).size()) << keys.join(' ').toStdString();
    EXPECT_TRUE(keys.contains(QStringLiteral("press:z")));
}

TEST_F(KeyboardX11Test, AHeldKeyRepeatsWithoutFalseReleases)
{
    KeyboardEventSourceX11 source;
    std::vector<KeyEvent> events;
    ASSERT_TRUE(source.install({KeyboardEventSourceX11::kF5KeyCode}, [&](const KeyEvent &event) {
        events.push_back(event);
        return KeyEventDisposition::swallow;
    }));
    xdotool({QStringLiteral("keydown"), QStringLiteral("F5")});
    QTest::qWait(1200);
    xdotool({QStringLiteral("keyup"), QStringLiteral("F5")});
    ASSERT_TRUE(QTest::qWaitFor(
        [&] { return !events.empty() && events.back().type == KeyEventType::keyUp; }, 5000));
    int firstPresses = 0;
    int repeats = 0;
    int releases = 0;
    for (const KeyEvent &event : events) {
        EXPECT_EQ(event.keyCode, KeyboardEventSourceX11::kF5KeyCode);
        if (event.type == KeyEventType::keyDown) {
            ++(event.isAutoRepeat ? repeats : firstPresses);
        } else if (event.type == KeyEventType::keyUp) {
            ++releases;
        }
    }
    EXPECT_EQ(firstPresses, 1);
    EXPECT_GE(repeats, 1);
    EXPECT_EQ(releases, 1);
}

TEST_F(KeyboardX11Test, RightAltReportsDownAndUpAndIsNotSwallowed)
{
    makeManager(HotkeyTrigger::rightOption);
    xdotool({QStringLiteral("keydown"), QStringLiteral("Alt_R")});
    ASSERT_TRUE(QTest::qWaitFor([this] { return m_starts == 1; }, 5000));
    EXPECT_EQ(m_ends, 0);
    xdotool({QStringLiteral("keyup"), QStringLiteral("Alt_R")});
    ASSERT_TRUE(QTest::qWaitFor([this] { return m_ends == 1; }, 5000));
    settle();
    const QStringList keys = m_editor->keys();
    EXPECT_TRUE(keys.contains(QStringLiteral("press:Alt_R"))
        || keys.contains(QStringLiteral("press:ISO_Level3_Shift")))
        << keys.join(' ').toStdString();
}

TEST_F(KeyboardX11Test, RightCtrlReportsDownAndUpAndIsNotSwallowed)
{
    makeManager(HotkeyTrigger::fnGlobe);
    xdotool({QStringLiteral("keydown"), QStringLiteral("Control_R")});
    ASSERT_TRUE(QTest::qWaitFor([this] { return m_starts == 1; }, 5000));
    // Other modifiers pressed meanwhile keep it down.
    tap(QStringLiteral("Shift_L"));
    EXPECT_EQ(m_starts, 1);
    EXPECT_EQ(m_ends, 0);
    xdotool({QStringLiteral("keyup"), QStringLiteral("Control_R")});
    ASSERT_TRUE(QTest::qWaitFor([this] { return m_ends == 1; }, 5000));
    settle();
    EXPECT_EQ(m_starts, 1);
    EXPECT_TRUE(m_editor->keys().contains(QStringLiteral("press:Control_R")));
}

TEST_F(KeyboardX11Test, RightCtrlInAShortcutStartsNothingAndTheShortcutReachesTheApplication)
{
    // A window no stall of a loaded machine reaches: only the key decides.
    makeManager(HotkeyTrigger::fnGlobe, 60000);
    xdotool({QStringLiteral("keydown"), QStringLiteral("Control_R"), QStringLiteral("keydown"),
        QStringLiteral("c"), QStringLiteral("keyup"), QStringLiteral("c"), QStringLiteral("keyup"),
        QStringLiteral("Control_R")});
    settle();
    EXPECT_EQ(m_starts, 0);
    EXPECT_EQ(m_ends, 0);
    const QStringList keys = m_editor->keys();
    EXPECT_TRUE(keys.contains(QStringLiteral("press:Control_R"))
        && keys.contains(QStringLiteral("press:c")))
        << keys.join(' ').toStdString();

    tap(QStringLiteral("Control_R"));
    EXPECT_TRUE(QTest::qWaitFor([this] { return m_starts == 1 && m_ends == 1; }, 5000));
}

TEST_F(KeyboardX11Test, TheTriggerFollowsRightCtrlToWhereANewLayoutPutsIt)
{
    makeManager(HotkeyTrigger::fnGlobe);
    int code = 0;
    m_session.run(QStringLiteral("setxkbmap"),
        {QStringLiteral("-option"), QStringLiteral("ctrl:swap_rwin_rctl")}, &code);
    ASSERT_EQ(code, 0);

    // The key that was Right Ctrl is now the right Super key.
    tap(QStringLiteral("Super_R"));
    EXPECT_EQ(m_starts, 0);
    xdotool({QStringLiteral("keydown"), QStringLiteral("Control_R")});
    EXPECT_TRUE(QTest::qWaitFor([this] { return m_starts == 1; }, 5000));
    xdotool({QStringLiteral("keyup"), QStringLiteral("Control_R")});
    EXPECT_TRUE(QTest::qWaitFor([this] { return m_ends == 1; }, 5000));
}

TEST_F(KeyboardX11Test, RightAltIsKnownAsAltGrOrComposeWhenTheLayoutMakesItSo)
{
    KeyboardEventSourceX11 source;
    ASSERT_TRUE(source.install({}, [](const KeyEvent &) { return KeyEventDisposition::pass; }));
    EXPECT_EQ(source.rightAltRole(), RightAltRole::alt);
    const auto setOption = [this](const QString &option) {
        int code = 0;
        // -option with an empty value first clears the options set before.
        m_session.run(QStringLiteral("setxkbmap"),
            {QStringLiteral("-option"), QString(), QStringLiteral("-option"), option}, &code);
        return code == 0;
    };
    ASSERT_TRUE(setOption(QStringLiteral("lv3:ralt_switch")));
    EXPECT_TRUE(
        QTest::qWaitFor([&] { return source.rightAltRole() == RightAltRole::altGr; }, 5000));
    ASSERT_TRUE(setOption(QStringLiteral("compose:ralt")));
    EXPECT_TRUE(
        QTest::qWaitFor([&] { return source.rightAltRole() == RightAltRole::compose; }, 5000));
}

TEST_F(KeyboardX11Test, TheLeftKeysReportNothing)
{
    makeManager(HotkeyTrigger::rightOption);
    tap(QStringLiteral("Alt_L"));
    tap(QStringLiteral("Control_R"));
    EXPECT_EQ(m_starts, 0);
    EXPECT_EQ(m_ends, 0);
    EXPECT_TRUE(m_editor->keys().contains(QStringLiteral("press:Alt_L")));

    m_manager.reset();
    makeManager(HotkeyTrigger::fnGlobe);
    tap(QStringLiteral("Control_L"));
    tap(QStringLiteral("Alt_R"));
    EXPECT_EQ(m_starts, 0);
}

TEST_F(KeyboardX11Test, AKeyAnotherClientHoldsIsTapCreationFailedUntilItIsReleased)
{
    auto other = std::make_unique<KeyboardEventSourceX11>();
    ASSERT_TRUE(other->install({KeyboardEventSourceX11::kF5KeyCode},
        [](const KeyEvent &) { return KeyEventDisposition::pass; }));
    HotkeyManager manager(HotkeyTrigger::f5, std::make_unique<KeyboardEventSourceX11>());
    const Status<HotkeyError> refused = manager.start();
    ASSERT_FALSE(refused.ok());
    EXPECT_EQ(refused.error(), HotkeyError::tapCreationFailed);
    EXPECT_FALSE(manager.isInstalled());

    other.reset();
    EXPECT_TRUE(manager.start().ok());
    EXPECT_TRUE(manager.isInstalled());
}

TEST(KeyboardX11WithoutDisplayTest, NoDisplayIsTapCreationFailed)
{
    const QByteArray previous = qgetenv("DISPLAY");
    qputenv("DISPLAY", ":4999");
    HotkeyManager manager(HotkeyTrigger::rightOption, std::make_unique<KeyboardEventSourceX11>());
    const Status<HotkeyError> refused = manager.start();
    qputenv("DISPLAY", previous);
    ASSERT_FALSE(refused.ok());
    EXPECT_EQ(refused.error(), HotkeyError::tapCreationFailed);
    EXPECT_FALSE(manager.isInstalled());
}

} // namespace
