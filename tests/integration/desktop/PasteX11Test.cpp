#include "desktop/DesktopServices.h"
#include "desktop/TextInserter.h"
#include "desktop/atspi/AccessibilityProviderAtSpi.h"
#include "desktop/x11/KeySynthesizerX11.h"
#include "desktop/x11/PasteboardX11.h"
#include "desktop/x11/WorkspaceX11.h"
#include "support/desktop/DesktopSession.h"
#include "support/desktop/TestEditor.h"

#include <QFile>
#include <QScopeGuard>
#include <QTest>
#include <QTimer>

#include <csignal>
#include <functional>

#include <gtest/gtest.h>

// Last: Xlib's macros (None, Bool) clash with names in the headers above.
#include <X11/Xlib.h>
#include <X11/extensions/Xfixes.h>
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

    // Pastes and waits until the chord went out; true when it did.
    bool paste(const QString &text)
    {
        std::optional<bool> result;
        m_inserter->insertViaPaste(text, [&](bool inserted) { result = inserted; });
        (void)QTest::qWaitFor([&] { return result.has_value(); }, 5000);
        return result.value_or(false);
    }

    // Another application owns the clipboard with this text, so the editor under test can
    // be stopped without taking the user's clipboard with it.
    bool ownClipboardElsewhere(const QString &text)
    {
        QProcess *owner = m_session.start(
            QStringLiteral(SAYVO_CLIPBOARD_OWNER), {QStringLiteral("--text"), text});
        return owner && QTest::qWaitFor([owner] { return owner->canReadLine(); }, 10000)
            && clipboard(QStringLiteral("text/plain")) == text.toUtf8();
    }

    // SIGSTOP: the process is busy and answers nothing until the returned call resumes it.
    static std::function<void()> stopProcess(qint64 pid)
    {
        ::kill(pid_t(pid), SIGSTOP);
        auto resumed = std::make_shared<bool>(false);
        return [pid, resumed] {
            if (!*resumed) {
                *resumed = true;
                ::kill(pid_t(pid), SIGCONT);
            }
        };
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
    ASSERT_TRUE(paste(transcript));
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
    ASSERT_TRUE(ownClipboardElsewhere(QStringLiteral("before")));
    // The target does not read yet, so the restore is certainly still to come when the other
    // client writes.
    const auto resume = stopProcess(m_editor->pid());
    const auto resumeWhateverHappens = qScopeGuard(resume);
    ASSERT_TRUE(paste(QStringLiteral("dictated")));
    ASSERT_TRUE(m_inserter->isRestorePending());
    PasteboardX11 otherClient;
    ASSERT_TRUE(otherClient.setConcealedString(QStringLiteral("written meanwhile")));
    ASSERT_TRUE(m_inserter->isRestorePending());
    resume();
    ASSERT_TRUE(waitForRestore());
    EXPECT_EQ(clipboard(QStringLiteral("UTF8_STRING")), "written meanwhile");
}

TEST_F(PasteX11Test, ASlowTargetStillGetsTheTranscriptAndTheClipboardComesBack)
{
    ASSERT_TRUE(ownClipboardElsewhere(QStringLiteral("the user's own words")));
    // The target is busy for 300 ms, twice the usual restore delay.
    const auto resume = stopProcess(m_editor->pid());
    const auto resumeWhateverHappens = qScopeGuard(resume);
    QTimer::singleShot(300, resume);
    const QString transcript = QString::fromUtf8("Dictated under load: naïve café, 東京, 🎉");
    ASSERT_TRUE(paste(transcript));
    EXPECT_TRUE(m_editor->waitForText(transcript)) << m_editor->text().toStdString();
    ASSERT_TRUE(waitForRestore());
    EXPECT_EQ(QString::fromUtf8(clipboard(QStringLiteral("UTF8_STRING"))),
        QStringLiteral("the user's own words"));
}

TEST_F(PasteX11Test, TheClipboardIsNeverOwnerlessDuringAPasteAndItsRestore)
{
    ASSERT_TRUE(ownClipboardElsewhere(QStringLiteral("keep me")));
    Display *watcher = XOpenDisplay(m_session.display().toLocal8Bit().constData());
    ASSERT_TRUE(watcher);
    const auto closeWatcher = qScopeGuard([&] { XCloseDisplay(watcher); });
    int eventBase = 0;
    int errorBase = 0;
    ASSERT_TRUE(XFixesQueryExtension(watcher, &eventBase, &errorBase));
    const Atom clipboardAtom = XInternAtom(watcher, "CLIPBOARD", False);
    XFixesSelectSelectionInput(
        watcher, DefaultRootWindow(watcher), clipboardAtom, XFixesSetSelectionOwnerNotifyMask);
    XSync(watcher, False);

    ASSERT_TRUE(paste(QStringLiteral("dictated")));
    EXPECT_TRUE(m_editor->waitForText(QStringLiteral("dictated")));
    ASSERT_TRUE(waitForRestore());
    EXPECT_EQ(clipboard(QStringLiteral("UTF8_STRING")), "keep me");

    XSync(watcher, False);
    int ownerChanges = 0;
    while (XPending(watcher) > 0) {
        XEvent event;
        XNextEvent(watcher, &event);
        if (event.type == eventBase + XFixesSelectionNotify) {
            ++ownerChanges;
            const auto &notify = reinterpret_cast<const XFixesSelectionNotifyEvent &>(event);
            EXPECT_NE(notify.owner, 0u) << "the clipboard had no owner for a moment";
        }
    }
    // Ours for the transcript, ours again for the restored content.
    EXPECT_EQ(ownerChanges, 2);
}

TEST_F(PasteX11Test, ClipboardsLargerThanOneRequestAreReadAndServedInPieces)
{
    // 3 MB of text: more than one request carries, so both sides go incrementally.
    QByteArray utf8;
    const QByteArray line = QString::fromUtf8("Zeile mit Umlauten äöü und 漢字 — ").toUtf8();
    while (utf8.size() < 3 * 1024 * 1024) {
        utf8 += line + QByteArray::number(utf8.size()) + '\n';
    }
    const QString large = QString::fromUtf8(utf8);
    const QString file = m_session.directory() + QStringLiteral("/large.txt");
    QFile out(file);
    ASSERT_TRUE(out.open(QIODevice::WriteOnly));
    out.write(large.toUtf8());
    out.close();
    QProcess *owner = m_session.start(
        QStringLiteral(SAYVO_CLIPBOARD_OWNER), {QStringLiteral("--text-file"), file});
    ASSERT_TRUE(owner);
    ASSERT_TRUE(QTest::qWaitFor([owner] { return owner->canReadLine(); }, 10000));

    PasteboardX11 reader;
    const auto items = reader.items();
    ASSERT_EQ(items.size(), 1u);
    bool found = false;
    for (const auto &[type, data] : items[0]) {
        if (type == QLatin1String("text/plain")) {
            found = true;
            EXPECT_TRUE(data == large.toUtf8()) << "read " << data.size() << " bytes";
        }
    }
    EXPECT_TRUE(found);

    // And served the same way: after a paste the 3 MB are back on the clipboard, now served
    // by this process.
    ASSERT_TRUE(paste(QStringLiteral("short")));
    EXPECT_TRUE(m_editor->waitForText(QStringLiteral("short")));
    ASSERT_TRUE(waitForRestore());
    const QByteArray served = clipboard(QStringLiteral("text/plain"));
    EXPECT_TRUE(served == utf8) << "served " << served.size() << " of " << utf8.size();
}

TEST_F(PasteX11Test, AnEmptyClipboardStaysEmpty)
{
    int code = 0;
    clipboard(QStringLiteral("TARGETS"), &code);
    ASSERT_NE(code, 0) << "the fresh display's clipboard should be empty";

    ASSERT_TRUE(paste(QStringLiteral("into nothing")));
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

TEST_F(PasteX11Test, PasteFindsTheVKeyAfterASwitchToAnotherLayout)
{
    KeySynthesizerX11 keys;
    ASSERT_TRUE(keys.postPaste(PasteShortcut::standard));
    int code = 0;
    // Dvorak puts V where QWERTY has the full stop, and K where QWERTY has V.
    m_session.run(QStringLiteral("setxkbmap"),
        {QStringLiteral("us"), QStringLiteral("-variant"), QStringLiteral("dvorak")}, &code);
    ASSERT_EQ(code, 0);
    // Let the editor take in the new layout.
    QTest::qWait(200);

    m_editor->setText(QStringLiteral("unchanged"), 0, 9);
    PasteboardX11 pasteboard;
    ASSERT_TRUE(pasteboard.setConcealedString(QStringLiteral("switched layout")));
    ASSERT_TRUE(keys.postPaste(PasteShortcut::standard));
    EXPECT_TRUE(m_editor->waitForText(QStringLiteral("switched layout")));
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
    // WM_CLASS: the instance name, then the class, which picks the paste chord.
    EXPECT_EQ(front->name, std::optional<QString>(QStringLiteral("sayvo-test-editor")));
    EXPECT_EQ(front->bundleId, std::optional<QString>(QStringLiteral("SayvoTestEditor")));
    EXPECT_TRUE(services.windowList->onScreenWindows());
    EXPECT_TRUE(services.pasteboard->setConcealedString(QStringLiteral("from the factory")));
    EXPECT_TRUE(services.keySynthesizer->postPaste(PasteShortcut::standard));
    EXPECT_TRUE(editor.waitForText(QStringLiteral("from the factory")));
    EXPECT_TRUE(QTest::qWaitFor(
        [&] { return services.accessibility->applicationElement(editor.pid()) != nullptr; },
        10000));
}

} // namespace
