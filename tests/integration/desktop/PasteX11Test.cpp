#include "desktop/DesktopServices.h"
#include "desktop/TextInserter.h"
#include "desktop/atspi/AccessibilityProviderAtSpi.h"
#include "desktop/x11/KeySynthesizerX11.h"
#include "desktop/x11/PasteboardX11.h"
#include "desktop/x11/WorkspaceX11.h"
#include "support/desktop/DesktopSession.h"
#include "support/desktop/TestEditor.h"

#include <QScopeGuard>
#include <QTest>

#include <gtest/gtest.h>

// Last: Xlib's macros (None, Bool) clash with names in the headers above.
#include <X11/Xlib.h>
#include <X11/keysym.h>

using namespace sayvo;
using namespace sayvo::testing;

namespace {

class PasteX11Test : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_session.isReady()) << m_session.failure().toStdString();
        m_editor = std::make_unique<TestEditor>(m_session, QStringLiteral("Paste target"));
        ASSERT_TRUE(m_editor->isReady());
        m_inserter = std::make_unique<TextInserter>(std::make_shared<PasteboardX11>(),
            std::make_shared<KeySynthesizerX11>(), std::make_shared<AccessibilityProviderAtSpi>(),
            std::make_shared<WorkspaceX11>());
    }

    // Reads the clipboard with xclip, an independent client.
    QByteArray clipboard(const QString &target, int *exitCode = nullptr)
    {
        return m_session.run(QStringLiteral("xclip"),
            {QStringLiteral("-selection"), QStringLiteral("clipboard"), QStringLiteral("-t"),
                target, QStringLiteral("-o")},
            exitCode);
    }

    bool waitForRestore()
    {
        return QTest::qWaitFor([this] { return !m_inserter->isRestorePending(); }, 5000);
    }

    DesktopSession m_session;
    std::unique_ptr<TestEditor> m_editor;
    std::unique_ptr<TextInserter> m_inserter;
};

TEST_F(PasteX11Test, PasteTypesTheTextAndPutsBackEveryFormatOfTheClipboard)
{
    const QString html = QStringLiteral("<p>rich <b>copy</b></p>");
    QProcess *owner = m_session.start(QStringLiteral(SAYVO_CLIPBOARD_OWNER),
        {QStringLiteral("--text"), QStringLiteral("plain copy"), QStringLiteral("--html"), html,
            QStringLiteral("--png")});
    ASSERT_TRUE(owner);
    ASSERT_TRUE(QTest::qWaitFor([owner] { return owner->canReadLine(); }, 10000));
    ASSERT_EQ(owner->readLine().trimmed(), "owned");
    ASSERT_TRUE(QTest::qWaitFor([owner] { return owner->canReadLine(); }, 5000));
    const QByteArray png = QByteArray::fromBase64(owner->readLine().trimmed().mid(4));
    ASSERT_FALSE(png.isEmpty());
    ASSERT_EQ(clipboard(QStringLiteral("image/png")), png);

    const QString transcript = QStringLiteral("Hello from Sayvo, naïve café");
    ASSERT_TRUE(m_inserter->insert(transcript, InsertionMethod::paste));
    EXPECT_TRUE(m_editor->waitForText(transcript));
    ASSERT_TRUE(waitForRestore());

    const QByteArray targets = clipboard(QStringLiteral("TARGETS"));
    EXPECT_TRUE(targets.contains("text/plain")) << targets.toStdString();
    EXPECT_TRUE(targets.contains("text/html")) << targets.toStdString();
    EXPECT_TRUE(targets.contains("image/png")) << targets.toStdString();
    EXPECT_FALSE(targets.contains("x-kde-passwordManagerHint")) << targets.toStdString();
    EXPECT_EQ(clipboard(QStringLiteral("text/plain")), "plain copy");
    EXPECT_EQ(clipboard(QStringLiteral("text/html")), html.toUtf8());
    EXPECT_EQ(clipboard(QStringLiteral("image/png")), png);
    EXPECT_EQ(m_editor->text(), transcript);
}

TEST_F(PasteX11Test, TheTranscriptOnTheClipboardAsksClipboardManagersToSkipIt)
{
    PasteboardX11 pasteboard;
    ASSERT_TRUE(pasteboard.setConcealedString(QStringLiteral("secret words")));
    EXPECT_EQ(clipboard(QStringLiteral("x-kde-passwordManagerHint")), "secret");
    EXPECT_EQ(clipboard(QStringLiteral("UTF8_STRING")), "secret words");
}

TEST_F(PasteX11Test, AClipboardWrittenByAnotherClientWithinTheDelayKeepsItsNewContent)
{
    m_editor->copy(QStringLiteral("before"));
    ASSERT_EQ(clipboard(QStringLiteral("UTF8_STRING")), "before");
    const QString file = m_session.directory() + QStringLiteral("/newer.txt");
    QFile newer(file);
    ASSERT_TRUE(newer.open(QIODevice::WriteOnly));
    newer.write("written meanwhile");
    newer.close();

    ASSERT_TRUE(m_inserter->insertViaPaste(QStringLiteral("dictated")));
    ASSERT_TRUE(m_session.start(QStringLiteral("xclip"),
        {QStringLiteral("-selection"), QStringLiteral("clipboard"), QStringLiteral("-i"), file}));
    ASSERT_TRUE(waitForRestore());
    EXPECT_TRUE(m_editor->waitForText(QStringLiteral("dictated")));
    // Well after the restore would have happened.
    QTest::qWait(300);
    EXPECT_EQ(clipboard(QStringLiteral("UTF8_STRING")), "written meanwhile");
}

TEST_F(PasteX11Test, AnEmptyClipboardStaysEmpty)
{
    int code = 0;
    clipboard(QStringLiteral("TARGETS"), &code);
    ASSERT_NE(code, 0) << "the fresh display's clipboard should be empty";

    ASSERT_TRUE(m_inserter->insertViaPaste(QStringLiteral("into nothing")));
    EXPECT_TRUE(m_editor->waitForText(QStringLiteral("into nothing")));
    ASSERT_TRUE(waitForRestore());
    clipboard(QStringLiteral("TARGETS"), &code);
    EXPECT_NE(code, 0);
    PasteboardX11 reader;
    EXPECT_TRUE(reader.items().empty());
    EXPECT_EQ(reader.string(), std::nullopt);
}

TEST_F(PasteX11Test, ChangeCountFollowsWritesByEveryone)
{
    PasteboardX11 pasteboard;
    const qint64 start = pasteboard.changeCount();
    ASSERT_TRUE(pasteboard.setConcealedString(QStringLiteral("one")));
    const qint64 afterOwnWrite = pasteboard.changeCount();
    EXPECT_GT(afterOwnWrite, start);
    EXPECT_EQ(pasteboard.changeCount(), afterOwnWrite);
    m_editor->copy(QStringLiteral("two"));
    EXPECT_TRUE(QTest::qWaitFor([&] { return pasteboard.changeCount() > afterOwnWrite; }, 5000));
    EXPECT_EQ(pasteboard.string(), QStringLiteral("two"));
}

// Swaps the keysyms of two keys, as a layout where they sit elsewhere would.
void swapKeys(Display *display, KeySym first, KeySym second)
{
    const KeyCode firstCode = XKeysymToKeycode(display, first);
    const KeyCode secondCode = XKeysymToKeycode(display, second);
    int perKeyCode = 0;
    KeySym *firstSyms = XGetKeyboardMapping(display, firstCode, 1, &perKeyCode);
    int secondPerKeyCode = 0;
    KeySym *secondSyms = XGetKeyboardMapping(display, secondCode, 1, &secondPerKeyCode);
    XChangeKeyboardMapping(display, firstCode, secondPerKeyCode, secondSyms, 1);
    XChangeKeyboardMapping(display, secondCode, perKeyCode, firstSyms, 1);
    XFree(firstSyms);
    XFree(secondSyms);
    XSync(display, False);
}

TEST_F(PasteX11Test, PasteFindsTheVKeyWhereverTheLayoutPutsIt)
{
    KeySynthesizerX11 keys;
    // The synthesizer has seen the layout before it changes.
    ASSERT_TRUE(keys.postPaste(PasteShortcut::standard));
    Display *display = XOpenDisplay(m_session.display().toLocal8Bit().constData());
    ASSERT_TRUE(display);
    const KeyCode usualV = XKeysymToKeycode(display, XK_v);
    swapKeys(display, XK_v, XK_x);
    const auto restore = qScopeGuard([&] {
        swapKeys(display, XK_v, XK_x);
        XCloseDisplay(display);
    });
    ASSERT_NE(XKeysymToKeycode(display, XK_v), usualV);
    // Let the editor take in the new layout.
    QTest::qWait(200);

    m_editor->setText(QStringLiteral("unchanged"), 0, 9);
    PasteboardX11 pasteboard;
    ASSERT_TRUE(pasteboard.setConcealedString(QStringLiteral("moved key")));
    ASSERT_TRUE(keys.postPaste(PasteShortcut::standard));
    // Control on the key that used to be V would now cut the selection instead.
    EXPECT_TRUE(m_editor->waitForText(QStringLiteral("moved key")));
}

TEST(DesktopServicesLinuxTest, TheFactoryGivesWorkingX11AndAtSpiAdapters)
{
    DesktopSession session;
    ASSERT_TRUE(session.isReady()) << session.failure().toStdString();
    TestEditor editor(session, QStringLiteral("Factory target"));
    ASSERT_TRUE(editor.isReady());
    DesktopServices services = createDesktopServices();
    ASSERT_TRUE(services.keyboard && services.pasteboard && services.keySynthesizer
        && services.accessibility && services.workspace && services.windowList);
    EXPECT_TRUE(
        services.keyboard->install({}, [](const KeyEvent &) { return KeyEventDisposition::pass; }));
    const auto front = services.workspace->frontmostApplication();
    ASSERT_TRUE(front);
    EXPECT_EQ(front->pid, editor.pid());
    EXPECT_TRUE(services.windowList->onScreenWindows());
    EXPECT_TRUE(services.pasteboard->setConcealedString(QStringLiteral("from the factory")));
    EXPECT_TRUE(services.keySynthesizer->postPaste(PasteShortcut::standard));
    EXPECT_TRUE(editor.waitForText(QStringLiteral("from the factory")));
    EXPECT_TRUE(QTest::qWaitFor(
        [&] { return services.accessibility->applicationElement(editor.pid()) != nullptr; },
        10000));
}

} // namespace
