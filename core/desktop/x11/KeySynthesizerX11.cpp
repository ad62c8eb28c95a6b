#include "desktop/x11/KeySynthesizerX11.h"

#include "desktop/x11/X11Connection.h"

#include <X11/extensions/XTest.h>

#include <algorithm>
#include <vector>

namespace sayvo {

// Connected now rather than at the first paste, which would otherwise wait for the
// connection handshake and keep its buffers as growth after launch.
KeySynthesizerX11::KeySynthesizerX11() : m_connection(X11Connection::open()) { }
KeySynthesizerX11::~KeySynthesizerX11() = default;

bool KeySynthesizerX11::ensureConnection()
{
    if (m_connection && m_connection->isLost()) {
        return false;
    }
    if (!m_connection) {
        m_connection = X11Connection::open();
    }
    return m_connection != nullptr;
}

bool KeySynthesizerX11::isAnyKeyHeld()
{
    if (!ensureConnection()) {
        return false;
    }
    char keys[32] = {};
    XQueryKeymap(m_connection->display(), keys);
    // Xlib copies its reply buffer even when no reply came.
    if (m_connection->isLost()) {
        return false;
    }
    return std::any_of(std::begin(keys), std::end(keys), [](char byte) { return byte != 0; });
}

bool KeySynthesizerX11::postPaste(PasteShortcut shortcut)
{
    if (!ensureConnection()) {
        return false;
    }
    Display *display = m_connection->display();
    // A layout switched since the last paste moves keys: reading the server's notifications
    // marks Xlib's copy of the key map stale, and the lookups below fetch it afresh. Those
    // already sent are read without a round trip, which would hold the chord up.
    XEventsQueued(display, QueuedAfterReading);
    m_connection->dispatchPending();
    int eventBase = 0;
    int errorBase = 0;
    int major = 0;
    int minor = 0;
    if (!XTestQueryExtension(display, &eventBase, &errorBase, &major, &minor)) {
        return false;
    }
    std::vector<KeyCode> keyCodes;
    for (const quint32 keysym : pasteChordKeysyms(shortcut)) {
        const KeyCode keyCode = XKeysymToKeycode(display, KeySym(keysym));
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
