#include "desktop/x11/KeySynthesizerX11.h"

#include "desktop/x11/X11Connection.h"

#include <X11/Xutil.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>

#include <algorithm>
#include <vector>

namespace sayvo {

KeySynthesizerX11::KeySynthesizerX11() = default;
KeySynthesizerX11::~KeySynthesizerX11() = default;

bool KeySynthesizerX11::ensureConnection()
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
    return true;
}

bool KeySynthesizerX11::isAnyKeyHeld()
{
    if (!ensureConnection()) {
        return false;
    }
    char keys[32] = {};
    XQueryKeymap(m_connection->display(), keys);
    return std::any_of(std::begin(keys), std::end(keys), [](char byte) { return byte != 0; });
}

bool KeySynthesizerX11::postPaste(PasteShortcut shortcut)
{
    if (!ensureConnection()) {
        return false;
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
    std::vector<KeySym> chord;
    switch (shortcut) {
    case PasteShortcut::standard:
        chord = {XK_Control_L, XK_v};
        break;
    case PasteShortcut::controlShiftV:
        chord = {XK_Control_L, XK_Shift_L, XK_v};
        break;
    case PasteShortcut::controlAltV:
        chord = {XK_Control_L, XK_Alt_L, XK_v};
        break;
    case PasteShortcut::shiftInsert:
        chord = {XK_Shift_L, XK_Insert};
        break;
    }
    std::vector<KeyCode> keyCodes;
    for (const KeySym keysym : chord) {
        const KeyCode keyCode = XKeysymToKeycode(display, keysym);
        if (keyCode == 0) {
            return false;
        }
        keyCodes.push_back(keyCode);
    }
    for (const KeyCode keyCode : keyCodes) {
        XTestFakeKeyEvent(display, keyCode, True, CurrentTime);
    }
    for (auto keyCode = keyCodes.rbegin(); keyCode != keyCodes.rend(); ++keyCode) {
        XTestFakeKeyEvent(display, *keyCode, False, CurrentTime);
    }
    return !m_connection->hadError();
}

} // namespace sayvo
