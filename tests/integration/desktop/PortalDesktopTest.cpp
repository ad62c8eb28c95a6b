// The portal adapters against Debian's real xdg-desktop-portal frontend on a private session
// bus. Real: the frontend, the bus, the requests and sessions it manages, the signals it
// forwards. Not real: the desktop behind it (test_portal.py stands in for GNOME's or KDE's
// backend: it answers at once instead of showing a dialog, and emits the shortcut's signals
// when the test asks).
#include "desktop/HotkeyManager.h"
#include "desktop/portal/GlobalShortcutsPortal.h"
#include "desktop/portal/KeySynthesizerPortal.h"
#include "desktop/portal/PortalVersion.h"
#include "support/desktop/DesktopSession.h"
#include "support/desktop/TestPortal.h"

#include <QJsonObject>
#include <QTest>

#include <gtest/gtest.h>

using namespace sayvo;
using namespace sayvo::testing;

namespace {

constexpr int kShortTimeoutMs = 1500;

DesktopSession::Options busOnly()
{
    DesktopSession::Options options;
    options.windowManager = false;
    options.accessibility = false;
    return options;
}

class PortalDesktopTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_session.isReady()) << m_session.failure().toStdString();
        m_portal = std::make_unique<TestPortal>(m_session);
        ASSERT_TRUE(m_portal->isReady()) << m_portal->failure().toStdString();
    }

    // Waits until the latest status is no longer the one shown while asking.
    bool waitForAnswer()
    {
        return QTest::qWaitFor(
            [this] { return !m_statuses.empty() && !m_statuses.back().works.startsWith("Asking"); },
            10000);
    }

    DesktopShortcut::Handlers shortcutHandlers()
    {
        return {[this] { ++m_presses; }, [this] { ++m_releases; },
            [this](const DesktopCapabilityStatus &status) { m_statuses.push_back(status); }};
    }

    KeystrokeConsent::Handlers consentHandlers()
    {
        return {[this](const DesktopCapabilityStatus &status) { m_statuses.push_back(status); },
            [this](const QString &token) { m_tokens << token; }};
    }

    // The keysyms the backend received, "65507 down" each, in order.
    QStringList keysyms()
    {
        QStringList keys;
        for (const auto &call : m_portal->callsOf("RemoteDesktop.NotifyKeyboardKeysym")) {
            const QJsonArray values = call.toObject().value("values").toArray();
            keys << QStringLiteral("%1 %2")
                        .arg(values.at(0).toInt())
                        .arg(values.at(1).toInt() == 1 ? "down" : "up");
        }
        return keys;
    }

    DesktopSession m_session {busOnly()};
    std::unique_ptr<TestPortal> m_portal;
    std::vector<DesktopCapabilityStatus> m_statuses;
    QStringList m_tokens;
    int m_presses = 0;
    int m_releases = 0;
};

TEST_F(PortalDesktopTest, BindsDictateWithTheTriggerKeyAndShowsTheKeyTheDesktopChose)
{
    GlobalShortcutsPortal shortcut(QStringLiteral("KDE"));
    shortcut.start(QStringLiteral("F5"), shortcutHandlers());
    ASSERT_TRUE(waitForAnswer());

    const QJsonArray binds = m_portal->callsOf("GlobalShortcuts.BindShortcuts");
    ASSERT_EQ(binds.size(), 1);
    const QJsonArray shortcuts = binds.at(0).toObject().value("shortcuts").toArray();
    ASSERT_EQ(shortcuts.size(), 1);
    EXPECT_EQ(shortcuts.at(0).toArray().at(0).toString(), "dictate");
    const QJsonObject properties = shortcuts.at(0).toArray().at(1).toObject();
    EXPECT_EQ(properties.value("description").toString(), "Dictate");
    EXPECT_EQ(properties.value("preferred_trigger").toString(), "F5");

    EXPECT_EQ(m_statuses.back().adapter, DesktopAdapter::portal);
    EXPECT_EQ(m_statuses.back().works,
        QStringLiteral("The desktop's shortcut \"Dictate\" (F5) starts dictation."));
}

TEST_F(PortalDesktopTest, ActivatedAndDeactivatedAreTheTriggerKeysDownAndUp)
{
    auto shortcut = std::make_unique<GlobalShortcutsPortal>(QStringLiteral("KDE"));
    HotkeyManager hotkey(HotkeyTrigger::f5, std::make_unique<NoKeyboardEventSource>());
    int starts = 0;
    int ends = 0;
    hotkey.setOnStart([&] { ++starts; });
    hotkey.setOnEnd([&] { ++ends; });
    ASSERT_TRUE(hotkey.start());
    shortcut->start(QStringLiteral("F5"),
        {[&] { hotkey.press(); }, [&] { hotkey.release(); },
            [this](const DesktopCapabilityStatus &status) { m_statuses.push_back(status); }});
    ASSERT_TRUE(waitForAnswer());

    ASSERT_TRUE(m_portal->emitSignal("Activated", "dictate"));
    ASSERT_TRUE(QTest::qWaitFor([&] { return starts == 1; }, 10000));
    EXPECT_TRUE(hotkey.isKeyDown());
    EXPECT_EQ(ends, 0);
    ASSERT_TRUE(m_portal->emitSignal("Deactivated", "dictate"));
    ASSERT_TRUE(QTest::qWaitFor([&] { return ends == 1; }, 10000));
    EXPECT_EQ(starts, 1);
    EXPECT_FALSE(hotkey.isKeyDown());
}

TEST_F(PortalDesktopTest, ShortcutsChangedUpdatesTheTriggerLabel)
{
    GlobalShortcutsPortal shortcut(QStringLiteral("KDE"));
    shortcut.start(QStringLiteral("F5"), shortcutHandlers());
    ASSERT_TRUE(waitForAnswer());

    ASSERT_TRUE(m_portal->emitSignal("ShortcutsChanged", "Ctrl+Alt+D"));
    ASSERT_TRUE(QTest::qWaitFor(
        [this] { return m_statuses.back().works.contains(QStringLiteral("(Ctrl+Alt+D)")); },
        10000));
    EXPECT_EQ(m_statuses.back().adapter, DesktopAdapter::portal);
}

TEST_F(PortalDesktopTest, SignalsForAnotherSessionOrShortcutAreIgnored)
{
    GlobalShortcutsPortal shortcut(QStringLiteral("KDE"));
    shortcut.start(QStringLiteral("F5"), shortcutHandlers());
    ASSERT_TRUE(waitForAnswer());

    ASSERT_TRUE(m_portal->emitSignal("Activated", "unknown-shortcut"));
    ASSERT_TRUE(m_portal->emitSignalFor(
        "Activated", "/org/freedesktop/portal/desktop/session/1_999/other", "dictate"));
    ASSERT_TRUE(m_portal->emitSignalFor(
        "ShortcutsChanged", "/org/freedesktop/portal/desktop/session/1_999/other", "Ctrl+X"));
    // A signal of ours sent after them arrives after them: once it is seen, they were handled.
    ASSERT_TRUE(m_portal->emitSignal("Deactivated", "dictate"));
    ASSERT_TRUE(QTest::qWaitFor([this] { return m_releases == 1; }, 10000));
    EXPECT_EQ(m_presses, 0);
    EXPECT_FALSE(m_statuses.back().works.contains(QStringLiteral("Ctrl+X")));
}

TEST_F(PortalDesktopTest, ADeclinedShortcutSaysSoOnceWithTheBindingToSetUpAndIsNotAskedAgain)
{
    ASSERT_TRUE(m_portal->setAnswer("GlobalShortcuts.BindShortcuts", "decline"));
    GlobalShortcutsPortal shortcut(QStringLiteral("GNOME"));
    shortcut.start(QStringLiteral("F5"), shortcutHandlers());
    ASSERT_TRUE(waitForAnswer());

    const DesktopCapabilityStatus status = m_statuses.back();
    EXPECT_EQ(status.adapter, DesktopAdapter::triggerCommand);
    EXPECT_TRUE(status.works.contains(QStringLiteral("(declined)")));
    EXPECT_TRUE(status.action.contains(QStringLiteral("sayvo trigger toggle")));
    // Time for a retry loop to show itself.
    QTest::qWait(1000);
    EXPECT_EQ(m_portal->callsOf("GlobalShortcuts.CreateSession").size(), 1);
    EXPECT_EQ(m_portal->callsOf("GlobalShortcuts.BindShortcuts").size(), 1);
    EXPECT_EQ(m_statuses.size(), 2u);
}

TEST_F(PortalDesktopTest, ABackendErrorIsOneStatusLine)
{
    // The frontend passes a backend's D-Bus error on as the request's end (response 2).
    ASSERT_TRUE(m_portal->setAnswer("GlobalShortcuts.CreateSession", "error"));
    GlobalShortcutsPortal shortcut(QStringLiteral("KDE"));
    shortcut.start(QStringLiteral("F5"), shortcutHandlers());
    ASSERT_TRUE(waitForAnswer());
    EXPECT_EQ(m_statuses.back().adapter, DesktopAdapter::triggerCommand);
    EXPECT_TRUE(m_statuses.back().works.contains(QStringLiteral("(cancelled)")));
    EXPECT_EQ(m_statuses.size(), 2u);
    EXPECT_EQ(m_portal->callsOf("GlobalShortcuts.BindShortcuts").size(), 0);
}

TEST_F(PortalDesktopTest, APortalThatNeverAnswersTimesOut)
{
    ASSERT_TRUE(m_portal->setAnswer("GlobalShortcuts.BindShortcuts", "hang"));
    GlobalShortcutsPortal shortcut(QStringLiteral("KDE"), kShortTimeoutMs);
    shortcut.start(QStringLiteral("F5"), shortcutHandlers());
    ASSERT_TRUE(waitForAnswer());
    EXPECT_EQ(m_statuses.back().adapter, DesktopAdapter::triggerCommand);
    EXPECT_TRUE(m_statuses.back().works.contains(QStringLiteral("did not answer")));
}

TEST_F(PortalDesktopTest, TheKeyboardIsAskedForAndEachPasteChordArrivesAsKeysymsInOrder)
{
    KeySynthesizerPortal keys;
    EXPECT_FALSE(keys.isAvailable());
    keys.request({}, consentHandlers());
    ASSERT_TRUE(waitForAnswer());
    EXPECT_EQ(m_statuses.back().adapter, DesktopAdapter::portal);
    ASSERT_TRUE(keys.isAvailable());

    const QJsonArray selected = m_portal->callsOf("RemoteDesktop.SelectDevices");
    ASSERT_EQ(selected.size(), 1);
    EXPECT_EQ(selected.at(0).toObject().value("options").toObject().value("types").toInt(), 1);

    // Control-V, Control-Shift-V, Control-Alt-V, Shift-Insert.
    ASSERT_TRUE(keys.postPaste(PasteShortcut::standard));
    ASSERT_TRUE(keys.postPaste(PasteShortcut::controlShiftV));
    ASSERT_TRUE(keys.postPaste(PasteShortcut::controlAltV));
    ASSERT_TRUE(keys.postPaste(PasteShortcut::shiftInsert));
    const QStringList expected {"65507 down", "118 down", "118 up", "65507 up", "65507 down",
        "65505 down", "118 down", "118 up", "65505 up", "65507 up", "65507 down", "65513 down",
        "118 down", "118 up", "65513 up", "65507 up", "65505 down", "65379 down", "65379 up",
        "65505 up"};
    ASSERT_TRUE(QTest::qWaitFor([&] { return keysyms().size() == expected.size(); }, 10000));
    EXPECT_EQ(keysyms(), expected);
}

TEST_F(PortalDesktopTest, TextIsTypedAsKeysymsInOrder)
{
    KeySynthesizerPortal keys;
    keys.request({}, consentHandlers());
    ASSERT_TRUE(QTest::qWaitFor([&] { return keys.isAvailable(); }, 10000));

    // Long enough for keys sent without waiting to overtake each other in the frontend.
    QString text;
    while (text.size() <= 200) {
        text += QStringLiteral("aé€\n");
    }
    ASSERT_TRUE(keys.typeText(text));
    QStringList expected;
    for (const char32_t character : text.toUcs4()) {
        const int keysym = character == U'\n' ? 0xff0d
            : character > 0xff                ? int(0x01000000 | character)
                                              : int(character);
        expected << QStringLiteral("%1 down").arg(keysym) << QStringLiteral("%1 up").arg(keysym);
    }
    ASSERT_TRUE(QTest::qWaitFor([&] { return keysyms().size() >= expected.size(); }, 30000));
    EXPECT_EQ(keysyms(), expected);
}

TEST_F(PortalDesktopTest, TextOverTheLimitIsRefusedWhole)
{
    KeySynthesizerPortal keys;
    keys.request({}, consentHandlers());
    ASSERT_TRUE(QTest::qWaitFor([&] { return keys.isAvailable(); }, 10000));
    EXPECT_FALSE(keys.typeText(QString(KeySynthesizerPortal::kMaxTypedCharacters + 1, u'a')));
    ASSERT_TRUE(keys.postPaste(PasteShortcut::standard));
    ASSERT_TRUE(QTest::qWaitFor([&] { return keysyms().size() == 4; }, 10000));
    EXPECT_EQ(keysyms().first(), "65507 down");
}

TEST_F(PortalDesktopTest, DeclinedKeystrokesSaySoAndCanBeAskedForAgain)
{
    ASSERT_TRUE(m_portal->setAnswer("RemoteDesktop.Start", "decline-once"));
    KeySynthesizerPortal keys;
    keys.request({}, consentHandlers());
    ASSERT_TRUE(waitForAnswer());
    EXPECT_EQ(m_statuses.back().adapter, DesktopAdapter::none);
    EXPECT_TRUE(m_statuses.back().action.contains(QStringLiteral("Ask again")));
    EXPECT_FALSE(keys.postPaste(PasteShortcut::standard));
    QTest::qWait(1000);
    EXPECT_EQ(m_portal->callsOf("RemoteDesktop.Start").size(), 1);

    m_statuses.clear();
    keys.askAgain();
    ASSERT_TRUE(waitForAnswer());
    EXPECT_EQ(m_statuses.back().adapter, DesktopAdapter::portal);
    EXPECT_TRUE(keys.isAvailable());
    EXPECT_EQ(m_portal->callsOf("RemoteDesktop.Start").size(), 2);
}

TEST_F(PortalDesktopTest, AKeptTokenThatNoLongerHoldsIsDroppedAndTheUserAskedOnce)
{
    ASSERT_TRUE(m_portal->setAnswer("RemoteDesktop.Start", "decline-once"));
    KeySynthesizerPortal keys;
    keys.request(QStringLiteral("revoked-token"), consentHandlers());
    ASSERT_TRUE(QTest::qWaitFor([&] { return keys.isAvailable(); }, 10000));
    EXPECT_EQ(m_tokens, QStringList {QString()});
    EXPECT_EQ(m_portal->callsOf("RemoteDesktop.Start").size(), 2);
}

TEST_F(PortalDesktopTest, AKeptTokenDeclinedTwiceEndsInOneStatusLine)
{
    ASSERT_TRUE(m_portal->setAnswer("RemoteDesktop.Start", "decline"));
    KeySynthesizerPortal keys;
    keys.request(QStringLiteral("revoked-token"), consentHandlers());
    ASSERT_TRUE(QTest::qWaitFor(
        [this] { return !m_statuses.empty() && m_statuses.back().adapter == DesktopAdapter::none; },
        10000));
    QTest::qWait(1000);
    EXPECT_EQ(m_portal->callsOf("RemoteDesktop.Start").size(), 2);
    EXPECT_FALSE(keys.isAvailable());
}

TEST_F(PortalDesktopTest, KeystrokesWithoutAnAnswerTimeOut)
{
    ASSERT_TRUE(m_portal->setAnswer("RemoteDesktop.CreateSession", "hang"));
    KeySynthesizerPortal keys(KeystrokeUse::pasting, kShortTimeoutMs);
    keys.request({}, consentHandlers());
    ASSERT_TRUE(waitForAnswer());
    EXPECT_EQ(m_statuses.back().adapter, DesktopAdapter::none);
    EXPECT_TRUE(m_statuses.back().works.contains(QStringLiteral("did not answer")));
}

TEST_F(PortalDesktopTest, DebiansFrontendOffersRemoteDesktopButNoClipboard)
{
    const QDBusConnection bus = QDBusConnection::sessionBus();
    EXPECT_GT(portalInterfaceVersion(
                  bus, QStringLiteral("org.freedesktop.portal.RemoteDesktop"), kShortTimeoutMs),
        0u);
    EXPECT_EQ(portalInterfaceVersion(
                  bus, QStringLiteral("org.freedesktop.portal.Clipboard"), kShortTimeoutMs),
        0u);
}

} // namespace
