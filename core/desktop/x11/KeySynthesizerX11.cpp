#include "desktop/x11/KeySynthesizerX11.h"

#include "desktop/x11/X11Connection.h"

#include <X11/Xutil.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>

#include <algorithm>
#include <chrono>
#include <thread>
#include <vector>

namespace sayvo {

namespace {

// While a key Sayvo grabs (F5) is held, the X server hands every key event, synthetic ones
// included, to Sayvo itself: a toggle-mode press that ends dictation is often still down
// when the result arrives. Wait, briefly, until the keyboard is quiet, so the paste reaches
// the focused application and is not mixed with a held modifier.
void waitUntilNoKeyIsHeld(Display *display)
{
    constexpr auto kLongest = std::chrono::milliseconds(1500);
    constexpr auto kStep = std::chrono::milliseconds(10);
    const auto deadline = std::chrono::steady_clock::now() + kLongest;
    while (std::chrono::steady_clock::now() < deadline) {
        char keys[32] = {};
        XQueryKeymap(display, keys);
        if (std::all_of(std::begin(keys), std::end(keys), [](char byte) { return byte == 0; })) {
            return;
        }
        std::this_thread::sleep_for(kStep);
    }
}

} // namespace

KeySynthesizerX11::KeySynthesizerX11() = default;
KeySynthesizerX11::~KeySynthesizerX11() = default;

bool KeySynthesizerX11::postPaste(PasteShortcut shortcut)
{
    if (!m_connection) {
        m_connection = X11Connection::open();
        if (!m_connection) {
            return false;
        }
        // A layout switched since the last paste moves keys; Xlib's copy of the key map is
        // refreshed from the server's notification.
        m_connection->setEventHandler([](XEvent &event) {
            if (event.type == MappingNotify) {
                XRefreshKeyboardMapping(&event.xmapping);
            }
        });
    }
    Display *display = m_connection->display();
    XSync(display, False);
    m_connection->dispatchPending();
    int eventBase = 0;
    int errorBase = 0;
    int major = 0;
    int minor = 0;
    if (!XTestQueryExtension(display, &eventBase, &errorBase, &major, &minor)) {
        return false;
    }
    std::vector<KeySym> chord {XK_Control_L};
    if (shortcut == PasteShortcut::terminal) {
        chord.push_back(XK_Shift_L);
    }
    chord.push_back(XK_v);
    std::vector<KeyCode> keyCodes;
    for (const KeySym keysym : chord) {
        const KeyCode keyCode = XKeysymToKeycode(display, keysym);
        if (keyCode == 0) {
            return false;
        }
        keyCodes.push_back(keyCode);
    }
    waitUntilNoKeyIsHeld(display);
    for (const KeyCode keyCode : keyCodes) {
        XTestFakeKeyEvent(display, keyCode, True, CurrentTime);
    }
    for (auto keyCode = keyCodes.rbegin(); keyCode != keyCodes.rend(); ++keyCode) {
        XTestFakeKeyEvent(display, *keyCode, False, CurrentTime);
    }
    return !m_connection->hadError();
}

} // namespace sayvo
