// The Wayland adapters against a real headless sway with real clients: a GTK window on its
// native Wayland backend, wl-clipboard as an independent observer of the clipboard, an X11
// client through XWayland.
#include "desktop/DesktopServices.h"
#include "desktop/TextInserter.h"
#include "desktop/atspi/AccessibilityProviderAtSpi.h"
#include "desktop/wayland/KeySynthesizerWayland.h"
#include "desktop/wayland/PasteboardWayland.h"
#include "desktop/wayland/WorkspaceWayland.h"
#include "support/LogCapture.h"
#include "support/desktop/DesktopSession.h"
#include "support/desktop/TestEditor.h"

#include <QElapsedTimer>
#include <QFile>
#include <QTest>

#include <gtest/gtest.h>

#include <csignal>

using namespace sayvo;
using namespace sayvo::testing;

namespace {

// Pastes through the inserter and waits for its answer: whether the text was handed over.
bool paste(TextInserter &inserter, const QString &text)
{
    const auto result = std::make_shared<std::optional<bool>>();
    inserter.insertViaPaste(text, [result](bool inserted) { *result = inserted; });
    return QTest::qWaitFor([&result] { return result->has_value(); }, 5000) && **result;
}

DesktopSession::Options waylandSession(bool xwayland = false)
{
    DesktopSession::Options options;
    options.wayland = true;
    options.xwayland = xwayland;
    return options;
}

class WaylandDesktopTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_session.isReady()) << m_session.failure().toStdString();
        // The seat of a headless compositor has no keyboard until the virtual one exists;
        // windows started afterwards get theirs at once.
        m_keys = std::make_shared<KeySynthesizerWayland>();
        ASSERT_TRUE(m_keys->isAvailable());
        m_pasteboard = std::make_shared<PasteboardWayland>();
        ASSERT_TRUE(m_pasteboard->isAvailable());
        m_workspace = std::make_shared<WorkspaceWayland>();
        ASSERT_TRUE(m_workspace->isAvailable());
        m_editor = std::make_unique<TestEditor>(m_session, QStringLiteral("Wayland target"));
        ASSERT_TRUE(m_editor->isReady());
        m_inserter = std::make_unique<TextInserter>(
            m_pasteboard, m_keys, std::make_shared<AccessibilityProviderAtSpi>(), m_workspace);
    }

    // Reads the clipboard with wl-paste, an independent client; exit code 1 when empty.
    QByteArray clipboard(const QString &type, int *exitCode = nullptr)
    {
        return m_session.run(QStringLiteral("wl-paste"),
            {QStringLiteral("--no-newline"), QStringLiteral("--type"), type}, exitCode);
    }
    QStringList clipboardTypes()
    {
        int code = 0;
        const QByteArray listing
            = m_session.run(QStringLiteral("wl-paste"), {QStringLiteral("--list-types")}, &code);
        return code == 0 ? QString::fromUtf8(listing).split('\n', Qt::SkipEmptyParts)
                         : QStringList {};
    }
    // wl-copy serves the text until another client takes the clipboard; null when it did not
    // take it.
    QProcess *copy(const QString &text)
    {
        QProcess *process = m_session.start(QStringLiteral("wl-copy"),
            {QStringLiteral("--foreground"), QStringLiteral("--"), text});
        const bool copied = process
            && QTest::qWaitFor(
                [&] { return clipboard(QStringLiteral("text/plain")) == text.toUtf8(); }, 5000);
        return copied ? process : nullptr;
    }
    bool waitForRestore()
    {
        return QTest::qWaitFor([this] { return !m_inserter->isRestorePending(); }, 5000);
    }

    DesktopSession m_session {waylandSession()};
    std::shared_ptr<KeySynthesizerWayland> m_keys;
    std::shared_ptr<PasteboardWayland> m_pasteboard;
    std::shared_ptr<WorkspaceWayland> m_workspace;
    std::unique_ptr<TestEditor> m_editor;
    std::unique_ptr<TextInserter> m_inserter;
};

TEST_F(WaylandDesktopTest, ControlVReachesTheNativeWindowTwiceInARow)
{
    ASSERT_TRUE(m_pasteboard->setConcealedString(QStringLiteral("abc")));
    ASSERT_TRUE(m_keys->postPaste(PasteShortcut::standard));
    EXPECT_TRUE(m_editor->waitForText(QStringLiteral("abc")))
        << m_editor->text().toStdString() << " keys: " << m_editor->keys().join(' ').toStdString();
    ASSERT_TRUE(m_keys->postPaste(PasteShortcut::standard));
    EXPECT_TRUE(m_editor->waitForText(QStringLiteral("abcabc")))
        << m_editor->text().toStdString() << " keys: " << m_editor->keys().join(' ').toStdString();
}

TEST_F(WaylandDesktopTest, EachTerminalsChordArrivesWithItsModifiersHeld)
{
    const std::vector<std::pair<PasteShortcut, QStringList>> chords {
        {PasteShortcut::controlShiftV,
            {QStringLiteral("Control_L"), QStringLiteral("Shift_L"), QStringLiteral("V")}},
        {PasteShortcut::controlAltV,
            {QStringLiteral("Control_L"), QStringLiteral("Alt_L"), QStringLiteral("v")}},
        {PasteShortcut::shiftInsert, {QStringLiteral("Shift_L"), QStringLiteral("Insert")}},
    };
    for (const auto &chord : chords) {
        const PasteShortcut shortcut = chord.first;
        const QStringList &expected = chord.second;
        const qsizetype before = m_editor->keys().size();
        ASSERT_TRUE(m_keys->postPaste(shortcut));
        // Every key goes down and comes up again.
        QStringList received;
        ASSERT_TRUE(QTest::qWaitFor(
            [&] {
                received = m_editor->keys().mid(before);
                return received.size() >= 2 * expected.size();
            },
            5000))
            << received.join(' ').toStdString();
        QStringList pressed;
        for (const QString &key : received) {
            if (key.startsWith(QStringLiteral("press:"))) {
                pressed.append(key.mid(6));
            }
        }
        EXPECT_EQ(pressed.join(' ').toLower(), expected.join(' ').toLower())
            << received.join(' ').toStdString();
        EXPECT_EQ(received.size(), 2 * expected.size()) << received.join(' ').toStdString();
    }
}

TEST_F(WaylandDesktopTest, APastePutsBackEveryTypeOfTheClipboard)
{
    const QString html = QStringLiteral("<p>rich <b>copy</b></p>");
    QProcess *owner = m_session.start(QStringLiteral(SAYVO_CLIPBOARD_OWNER),
        {QStringLiteral("--text"), QStringLiteral("plain copy"), QStringLiteral("--html"), html,
            QStringLiteral("--png"), QStringLiteral("--window")});
    ASSERT_TRUE(owner);
    ASSERT_TRUE(QTest::qWaitFor([owner] { return owner->canReadLine(); }, 10000));
    ASSERT_EQ(owner->readLine().trimmed(), "shown");
    // Any key: the owner takes the clipboard in answer to it.
    ASSERT_TRUE(m_keys->postPaste(PasteShortcut::standard));
    ASSERT_TRUE(QTest::qWaitFor([owner] { return owner->canReadLine(); }, 10000));
    ASSERT_EQ(owner->readLine().trimmed(), "owned");
    ASSERT_TRUE(QTest::qWaitFor([owner] { return owner->canReadLine(); }, 5000));
    const QByteArray png = QByteArray::fromBase64(owner->readLine().trimmed().mid(4));
    ASSERT_TRUE(
        QTest::qWaitFor([&] { return clipboard(QStringLiteral("image/png")) == png; }, 5000))
        << clipboardTypes().join(' ').toStdString();
    const QStringList before = clipboardTypes();
    ASSERT_TRUE(m_editor->activate());

    const QString transcript = QStringLiteral("Hello from Sayvo, naïve café");
    ASSERT_TRUE(paste(*m_inserter, transcript));
    EXPECT_TRUE(m_editor->waitForText(transcript));
    ASSERT_TRUE(waitForRestore());

    EXPECT_EQ(clipboardTypes(), before);
    EXPECT_EQ(clipboard(QStringLiteral("text/plain")), "plain copy");
    EXPECT_EQ(clipboard(QStringLiteral("text/html")), html.toUtf8());
    EXPECT_EQ(clipboard(QStringLiteral("image/png")), png);
}

TEST_F(WaylandDesktopTest, TheTranscriptAsksClipboardManagersToSkipIt)
{
    ASSERT_TRUE(m_pasteboard->setConcealedString(QStringLiteral("secret words")));
    EXPECT_EQ(clipboard(QStringLiteral("x-kde-passwordManagerHint")), "secret");
    EXPECT_EQ(clipboard(QStringLiteral("text/plain;charset=utf-8")), "secret words");
    EXPECT_EQ(m_pasteboard->string(), QStringLiteral("secret words"));
}

TEST_F(WaylandDesktopTest, AnEmptyClipboardStaysEmpty)
{
    int code = 0;
    clipboard(QStringLiteral("text/plain"), &code);
    ASSERT_NE(code, 0) << "the fresh compositor's clipboard should be empty";
    EXPECT_TRUE(m_pasteboard->items().empty());

    ASSERT_TRUE(paste(*m_inserter, QStringLiteral("into nothing")));
    EXPECT_TRUE(m_editor->waitForText(QStringLiteral("into nothing")));
    ASSERT_TRUE(waitForRestore());
    EXPECT_TRUE(clipboardTypes().isEmpty()) << clipboardTypes().join(' ').toStdString();
    PasteboardWayland reader;
    EXPECT_TRUE(reader.items().empty());
    EXPECT_EQ(reader.string(), std::nullopt);
}

// Posts the chord through the real keyboard, then runs `then` before the inserter's restore
// delay starts.
class ChordThen : public KeySynthesizer
{
public:
    ChordThen(std::shared_ptr<KeySynthesizer> keys, std::function<void()> then)
        : m_keys(std::move(keys)), m_then(std::move(then))
    { }
    bool postPaste(PasteShortcut shortcut) override
    {
        const bool posted = m_keys->postPaste(shortcut);
        m_then();
        return posted;
    }

private:
    std::shared_ptr<KeySynthesizer> m_keys;
    std::function<void()> m_then;
};

TEST_F(WaylandDesktopTest, AClipboardWrittenByAnotherClientWithinTheDelayKeepsItsNewContent)
{
    ASSERT_TRUE(copy(QStringLiteral("before")));
    bool written = false;
    TextInserter inserter(m_pasteboard,
        std::make_shared<ChordThen>(m_keys,
            [&] {
                // Once the editor has pasted, another program writes the clipboard.
                written = m_editor->waitForText(QStringLiteral("dictated"))
                    && copy(QStringLiteral("written meanwhile"));
            }),
        std::make_shared<AccessibilityProviderAtSpi>(), m_workspace);
    ASSERT_TRUE(paste(inserter, QStringLiteral("dictated")));
    ASSERT_TRUE(written);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !inserter.isRestorePending(); }, 5000));
    EXPECT_EQ(clipboard(QStringLiteral("text/plain")), "written meanwhile");
}

TEST_F(WaylandDesktopTest, ATargetThatReadsLateStillGetsTheTranscript)
{
    ASSERT_TRUE(copy(QStringLiteral("the user's own")));
    const pid_t editor = pid_t(m_editor->pid());
    TextInserter inserter(m_pasteboard,
        std::make_shared<ChordThen>(m_keys,
            [&] {
                // The target is busy when the chord arrives and gets to it after the usual
                // restore delay has passed.
                ::kill(editor, SIGSTOP);
                QProcess::startDetached(QStringLiteral("sh"),
                    {QStringLiteral("-c"), QStringLiteral("sleep 0.3; kill -CONT %1").arg(editor)});
            }),
        std::make_shared<AccessibilityProviderAtSpi>(), m_workspace);
    ASSERT_TRUE(paste(inserter, QStringLiteral("dictated late")));
    ASSERT_TRUE(QTest::qWaitFor([&] { return !inserter.isRestorePending(); }, 5000));
    EXPECT_TRUE(m_editor->waitForText(QStringLiteral("dictated late")))
        << m_editor->text().toStdString();
    EXPECT_EQ(clipboard(QStringLiteral("text/plain")), "the user's own");
}

TEST_F(WaylandDesktopTest, ChangeCountFollowsWritesByEveryone)
{
    const qint64 start = m_pasteboard->changeCount();
    ASSERT_TRUE(m_pasteboard->setConcealedString(QStringLiteral("one")));
    const qint64 afterOwnWrite = m_pasteboard->changeCount();
    EXPECT_GT(afterOwnWrite, start);
    EXPECT_EQ(m_pasteboard->changeCount(), afterOwnWrite);
    ASSERT_TRUE(copy(QStringLiteral("two")));
    EXPECT_GT(m_pasteboard->changeCount(), afterOwnWrite);
    EXPECT_EQ(m_pasteboard->string(), QStringLiteral("two"));
}

TEST_F(WaylandDesktopTest, AnOwnerThatNeverAnswersCostsOneBoundedWait)
{
    QProcess *owner = copy(QStringLiteral("frozen"));
    ASSERT_TRUE(owner);
    // Stopped, wl-copy still owns the clipboard but answers no request for any of its five
    // text types.
    ::kill(pid_t(owner->processId()), SIGSTOP);
    QElapsedTimer clock;
    clock.start();
    EXPECT_TRUE(m_pasteboard->items().empty());
    EXPECT_EQ(m_pasteboard->string(), std::nullopt);
    // One wait for the whole read and one for the text, not one per type.
    EXPECT_LT(clock.elapsed(), 2 * PasteboardWayland::kReadTimeoutMs + 1000);
    ::kill(pid_t(owner->processId()), SIGCONT);
}

TEST_F(WaylandDesktopTest, TheFrontWindowAndEveryFocusMoveAreReported)
{
    int activations = 0;
    m_workspace->setOnActivation([&activations] { ++activations; });
    TestEditor second(m_session, QStringLiteral("Second window"));
    ASSERT_TRUE(second.isReady());
    ASSERT_TRUE(QTest::qWaitFor([&] { return activations >= 1; }, 5000));
    auto front = m_workspace->frontmostApplication();
    ASSERT_TRUE(front);
    EXPECT_EQ(front->windowTitle, QStringLiteral("Second window"));
    EXPECT_EQ(front->bundleId, QStringLiteral("sayvo-test-editor"));

    const int before = activations;
    ASSERT_TRUE(m_editor->activate());
    ASSERT_TRUE(QTest::qWaitFor([&] { return activations > before; }, 5000));
    front = m_workspace->frontmostApplication();
    ASSERT_TRUE(front);
    EXPECT_EQ(front->windowTitle, QStringLiteral("Wayland target"));
}

TEST(WaylandXWaylandTest, AnX11ClientGetsThePasteToo)
{
    DesktopSession session {waylandSession(true)};
    ASSERT_TRUE(session.isReady()) << session.failure().toStdString();
    ASSERT_FALSE(session.xwaylandDisplay().isEmpty());
    auto keys = std::make_shared<KeySynthesizerWayland>();
    auto pasteboard = std::make_shared<PasteboardWayland>();
    auto workspace = std::make_shared<WorkspaceWayland>();
    TestEditor editor(session, QStringLiteral("X11 target"), true, TestEditor::Toolkit::gtk3, true);
    ASSERT_TRUE(editor.isReady());
    TextInserter inserter(
        pasteboard, keys, std::make_shared<AccessibilityProviderAtSpi>(), workspace);
    ASSERT_TRUE(paste(inserter, QStringLiteral("through XWayland")));
    EXPECT_TRUE(editor.waitForText(QStringLiteral("through XWayland")))
        << editor.text().toStdString() << " keys: " << editor.keys().join(' ').toStdString();
}

TEST(WaylandServicesTest, TheFactoryPicksTheWaylandAdaptersAndSaysSoOnce)
{
    DesktopSession session {waylandSession()};
    ASSERT_TRUE(session.isReady()) << session.failure().toStdString();
    ASSERT_TRUE(qEnvironmentVariableIsEmpty("DISPLAY"));
    sayvo::test::LogCapture log;
    DesktopServices services = createDesktopServices();
    EXPECT_EQ(services.plan.session, SessionKind::wayland);
    EXPECT_EQ(services.plan.adapter(DesktopCapability::trigger), DesktopAdapter::triggerCommand);
    EXPECT_EQ(
        services.plan.adapter(DesktopCapability::keystrokes), DesktopAdapter::waylandProtocol);
    EXPECT_EQ(services.plan.adapter(DesktopCapability::clipboard), DesktopAdapter::waylandProtocol);
    EXPECT_EQ(
        services.plan.adapter(DesktopCapability::focusedWindow), DesktopAdapter::waylandProtocol);
    const QStringList lines = log.messages().filter(QStringLiteral("desktop (Wayland session)"));
    EXPECT_EQ(lines.size(), 6) << lines.join('\n').toStdString();
    EXPECT_TRUE(lines.join('\n').contains(QStringLiteral("clipboard: Wayland data-control")));

    TestEditor editor(session, QStringLiteral("Factory target"));
    ASSERT_TRUE(editor.isReady());
    EXPECT_TRUE(
        services.keyboard->install({}, [](const KeyEvent &) { return KeyEventDisposition::pass; }));
    ASSERT_TRUE(services.pasteboard->setConcealedString(QStringLiteral("from the factory")));
    ASSERT_TRUE(services.keySynthesizer->postPaste(PasteShortcut::standard));
    EXPECT_TRUE(editor.waitForText(QStringLiteral("from the factory")));
    const auto front = services.workspace->frontmostApplication();
    ASSERT_TRUE(front);
    EXPECT_EQ(front->windowTitle, QStringLiteral("Factory target"));
    EXPECT_EQ(services.windowList->onScreenWindows(), std::nullopt);
}

TEST(WaylandServicesTest, AdaptersGoQuietWhenTheCompositorGoesAway)
{
    DesktopSession session {waylandSession()};
    ASSERT_TRUE(session.isReady()) << session.failure().toStdString();
    PasteboardWayland pasteboard;
    KeySynthesizerWayland keys;
    WorkspaceWayland workspace;
    ASSERT_TRUE(pasteboard.setConcealedString(QStringLiteral("left behind")));
    sayvo::test::LogCapture log;
    session.stopCompositor();
    ASSERT_TRUE(QTest::qWaitFor(
        [&] {
            return !pasteboard.isAvailable() && !keys.isAvailable() && !workspace.isAvailable();
        },
        5000));
    QElapsedTimer clock;
    clock.start();
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(pasteboard.items().empty());
        EXPECT_EQ(pasteboard.string(), std::nullopt);
        EXPECT_FALSE(pasteboard.setConcealedString(QStringLiteral("nowhere")));
        EXPECT_FALSE(keys.postPaste(PasteShortcut::standard));
        EXPECT_EQ(workspace.frontmostApplication(), std::nullopt);
    }
    EXPECT_LT(clock.elapsed(), 1000);
    // Said once per connection, never again however often it is asked.
    const QStringList lost
        = log.messages().filter(QStringLiteral("the compositor ended the connection"));
    EXPECT_EQ(lost.size(), 3) << lost.join('\n').toStdString();
}

} // namespace
