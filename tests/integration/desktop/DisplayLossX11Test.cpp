#include "desktop/x11/KeySynthesizerX11.h"
#include "desktop/x11/KeyboardEventSourceX11.h"
#include "desktop/x11/PasteboardX11.h"
#include "desktop/x11/WindowListX11.h"
#include "desktop/x11/WorkspaceX11.h"
#include "support/desktop/DesktopSession.h"

#include <QTest>

#include <gtest/gtest.h>

using namespace sayvo;
using namespace sayvo::testing;

namespace {

// Xlib's default reaction to a connection the X server dropped is to end the process; these
// adapters must instead fail their requests and let the application shut down in order.
TEST(DisplayLossX11Test, TheAdaptersOutliveTheXServerAndFailQuietly)
{
    DesktopSession session(DesktopSession::Options {true, false});
    ASSERT_TRUE(session.isReady()) << session.failure().toStdString();
    KeyboardEventSourceX11 keyboard;
    int keyEvents = 0;
    ASSERT_TRUE(keyboard.install({KeyboardEventSourceX11::kF5KeyCode}, [&](const KeyEvent &) {
        ++keyEvents;
        return KeyEventDisposition::pass;
    }));
    PasteboardX11 clipboard;
    ASSERT_TRUE(clipboard.setConcealedString(QStringLiteral("before the crash")));
    KeySynthesizerX11 keys;
    EXPECT_FALSE(keys.isAnyKeyHeld());
    WorkspaceX11 workspace;
    WindowListX11 windows;

    session.killXServer();
    // Every connection sees its socket close while the event loop runs.
    QTest::qWait(300);

    EXPECT_FALSE(keys.postPaste(PasteShortcut::standard));
    EXPECT_FALSE(keys.isAnyKeyHeld());
    EXPECT_FALSE(clipboard.string().has_value());
    EXPECT_TRUE(clipboard.items().empty());
    EXPECT_FALSE(clipboard.writeItems({}));
    EXPECT_FALSE(workspace.frontmostApplication().has_value());
    EXPECT_FALSE(windows.onScreenWindows().has_value());
    keyboard.uninstall();
    EXPECT_EQ(keyEvents, 0);
}

} // namespace
