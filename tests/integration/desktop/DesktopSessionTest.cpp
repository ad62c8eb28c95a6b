#include "support/desktop/DesktopSession.h"

#include <QScopeGuard>
#include <QTest>

#include <gtest/gtest.h>

// Last: Xlib's macros (None, Bool) clash with names in the headers above.
#include <X11/Xatom.h>
#include <X11/Xlib.h>

using namespace sayvo::testing;

namespace {

// Desktop tests connect and leave all the time (readiness probes, xdotool, xclip, each
// adapter's own connection); the display must not start over when the last of them leaves,
// or whoever connects at that moment is turned away and what the others set up is lost.
TEST(DesktopSessionTest, TheDisplayKeepsItsStateWhenItsLastClientLeaves)
{
    // Without a window manager or accessibility bus, nothing else holds the display open.
    DesktopSession session(DesktopSession::Options {false, false});
    ASSERT_TRUE(session.isReady()) << session.failure().toStdString();

    Display *writer = XOpenDisplay(nullptr);
    ASSERT_NE(writer, nullptr);
    const Atom mark = XInternAtom(writer, "SAYVO_TEST_MARK", False);
    const unsigned char value[] = "kept";
    XChangeProperty(writer, DefaultRootWindow(writer), mark, XA_STRING, 8, PropModeReplace, value,
        int(sizeof(value) - 1));
    XCloseDisplay(writer);
    // Long enough for the server to notice the client has gone, and to start over if it does.
    QTest::qWait(300);

    Display *reader = XOpenDisplay(nullptr);
    ASSERT_NE(reader, nullptr);
    const auto closeReader = qScopeGuard([reader] { XCloseDisplay(reader); });
    const Atom found = XInternAtom(reader, "SAYVO_TEST_MARK", True);
    ASSERT_NE(found, Atom(None));
    Atom type = None;
    int format = 0;
    unsigned long count = 0;
    unsigned long remaining = 0;
    unsigned char *data = nullptr;
    ASSERT_EQ(XGetWindowProperty(reader, DefaultRootWindow(reader), found, 0, 16, False, XA_STRING,
                  &type, &format, &count, &remaining, &data),
        Success);
    const auto freeData = qScopeGuard([data] {
        if (data) {
            XFree(data);
        }
    });
    ASSERT_NE(data, nullptr);
    EXPECT_EQ(QByteArray(reinterpret_cast<const char *>(data), qsizetype(count)), "kept");
}

} // namespace
