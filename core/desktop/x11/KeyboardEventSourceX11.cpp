#include "desktop/x11/KeyboardEventSourceX11.h"

#include "desktop/x11/X11Connection.h"

#include <X11/XKBlib.h>
#include <X11/extensions/XInput2.h>
#include <X11/keysym.h>

#include <optional>

namespace sayvo {

namespace {

RightAltRole roleForKeysym(KeySym keysym)
{
    switch (keysym) {
    case XK_ISO_Level3_Shift:
    case XK_Mode_switch:
        return RightAltRole::altGr;
    case XK_Multi_key:
        return RightAltRole::compose;
    default:
        return RightAltRole::alt;
    }
}

quint64 flagsForKeysym(KeySym keysym)
{
    switch (keysym) {
    case XK_Shift_L:
    case XK_Shift_R:
        return KeyFlags::kShift;
    case XK_Control_L:
        return KeyFlags::kControl;
    case XK_Control_R:
        // Right Ctrl plays the Fn/Globe role on a PC keyboard.
        return KeyFlags::kControl | KeyFlags::kSecondaryFunction;
    case XK_Alt_L:
    case XK_Alt_R:
    case XK_Meta_L:
    case XK_Meta_R:
    case XK_ISO_Level3_Shift:
        return KeyFlags::kOption;
    case XK_Super_L:
    case XK_Super_R:
        return KeyFlags::kCommand;
    default:
        return 0;
    }
}

// A key going down or up, as one X event reports it.
struct KeyChange
{
    int keyCode = 0;
    bool pressed = false;
    // Reported by a grab's core events rather than by XInput2's raw events.
    bool grabbed = false;
};

std::optional<KeyChange> keyChange(Display *display, int xinputOpcode, XEvent &event)
{
    if (event.type == KeyPress || event.type == KeyRelease) {
        // Only grabbed keys reach this client as core events.
        return KeyChange {int(event.xkey.keycode), event.type == KeyPress, true};
    }
    if (event.type != GenericEvent || event.xcookie.extension != xinputOpcode) {
        return std::nullopt;
    }
    if (!XGetEventData(display, &event.xcookie)) {
        return std::nullopt;
    }
    const int type = event.xcookie.evtype;
    const int keyCode = static_cast<const XIRawEvent *>(event.xcookie.data)->detail;
    XFreeEventData(display, &event.xcookie);
    if (type != XI_RawKeyPress && type != XI_RawKeyRelease) {
        return std::nullopt;
    }
    return KeyChange {keyCode, type == XI_RawKeyPress, false};
}

} // namespace

KeyboardEventSourceX11::KeyboardEventSourceX11() = default;

KeyboardEventSourceX11::~KeyboardEventSourceX11()
{
    uninstall();
}

bool KeyboardEventSourceX11::install(const std::vector<int> &swallowedKeyCodes, Callback callback)
{
    uninstall();
    auto connection = X11Connection::open();
    if (!connection) {
        return false;
    }
    Display *display = connection->display();
    int event = 0;
    int error = 0;
    if (!XQueryExtension(display, "XInputExtension", &m_xinputOpcode, &event, &error)) {
        return false;
    }
    int major = 2;
    int minor = 2;
    if (XIQueryVersion(display, &major, &minor) != Success) {
        return false;
    }
    m_connection = std::move(connection);
    if (!selectRawEvents()) {
        m_connection.reset();
        return false;
    }
    // Without this a held key reads as release-press pairs, which would end a hold early.
    Bool detectable = False;
    XkbSetDetectableAutoRepeat(display, True, &detectable);
    // An XKB client gets no core MappingNotify for a new layout, only these.
    int xkbOpcode = 0;
    int xkbError = 0;
    int xkbMajor = XkbMajorVersion;
    int xkbMinor = XkbMinorVersion;
    if (XkbQueryExtension(display, &xkbOpcode, &m_xkbEventBase, &xkbError, &xkbMajor, &xkbMinor)) {
        constexpr unsigned long kLayoutEvents = XkbNewKeyboardNotifyMask | XkbMapNotifyMask;
        XkbSelectEvents(display, XkbUseCoreKbd, kLayoutEvents, kLayoutEvents);
    }

    m_connection->clearError();
    m_swallowed.clear();
    for (const int keyCode : swallowedKeyCodes) {
        m_swallowed.insert(keyCode);
        XGrabKey(display, keyCode, AnyModifier, m_connection->root(), False, GrabModeAsync,
            GrabModeAsync);
    }
    // Another client holding the key under any modifier makes the grab fail with BadAccess.
    if (m_connection->hadError()) {
        m_connection.reset();
        m_swallowed.clear();
        return false;
    }

    readKeyMap();
    m_pressed.clear();
    m_callback = std::move(callback);
    m_connection->setEventHandler([this](XEvent &event) {
        // Another layout (setxkbmap, a layout switch in the desktop) moves the modifiers.
        if (event.type == m_xkbEventBase) {
            const int type = reinterpret_cast<const XkbAnyEvent &>(event).xkb_type;
            if (type == XkbNewKeyboardNotify || type == XkbMapNotify) {
                readKeyMap();
            }
            return;
        }
        const auto change = keyChange(m_connection->display(), m_xinputOpcode, event);
        // A grabbed key is reported once, from the grab's events.
        if (change && (change->grabbed || !m_swallowed.contains(change->keyCode))) {
            handleKey(change->keyCode, change->pressed);
        }
    });
    return true;
}

void KeyboardEventSourceX11::readKeyMap()
{
    m_modifierFlagsByKeyCode.clear();
    m_rightAltRole = RightAltRole::alt;
    // Read from the server: Xlib's own copy is refreshed only when a lookup finds it stale.
    XkbDescPtr keyboard
        = XkbGetMap(m_connection->display(), XkbKeyTypesMask | XkbKeySymsMask, XkbUseCoreKbd);
    if (!keyboard) {
        return;
    }
    for (int keyCode = keyboard->min_key_code; keyCode <= keyboard->max_key_code; ++keyCode) {
        if (XkbKeyNumGroups(keyboard, keyCode) == 0) {
            continue;
        }
        const KeySym keysym = XkbKeySymEntry(keyboard, keyCode, 0, 0);
        if (keyCode == kRightAltKeyCode) {
            m_rightAltRole = roleForKeysym(keysym);
        }
        if (const quint64 flags = flagsForKeysym(keysym)) {
            m_modifierFlagsByKeyCode[keyCode] = flags;
        }
    }
    XkbFreeKeyboard(keyboard, 0, True);
}

bool KeyboardEventSourceX11::selectRawEvents()
{
    unsigned char bits[XIMaskLen(XI_LASTEVENT)] = {};
    XISetMask(bits, XI_RawKeyPress);
    XISetMask(bits, XI_RawKeyRelease);
    XIEventMask mask {XIAllMasterDevices, int(sizeof(bits)), bits};
    m_connection->clearError();
    XISelectEvents(m_connection->display(), m_connection->root(), &mask, 1);
    return !m_connection->hadError();
}

void KeyboardEventSourceX11::uninstall()
{
    // Closing the connection releases its grabs and event selections.
    m_connection.reset();
    m_callback = nullptr;
    m_swallowed.clear();
    m_pressed.clear();
}

void KeyboardEventSourceX11::reenable()
{
    if (m_connection) {
        selectRawEvents();
    }
}

void KeyboardEventSourceX11::handleKey(int keyCode, bool pressed)
{
    const bool wasPressed = m_pressed.contains(keyCode);
    if (pressed) {
        m_pressed.insert(keyCode);
    } else {
        m_pressed.remove(keyCode);
    }
    KeyEvent event;
    event.keyCode = keyCode;
    if (m_modifierFlagsByKeyCode.count(keyCode)) {
        // A held modifier does not change the state again.
        if (pressed && wasPressed) {
            return;
        }
        event.type = KeyEventType::flagsChanged;
    } else {
        event.type = pressed ? KeyEventType::keyDown : KeyEventType::keyUp;
        event.isAutoRepeat = pressed && wasPressed;
    }
    event.flags = modifierFlags();
    if (m_callback) {
        // The grab already withholds swallowed keys, so the answer is not needed here.
        m_callback(event);
    }
}

quint64 KeyboardEventSourceX11::modifierFlags() const
{
    quint64 flags = 0;
    for (const int keyCode : m_pressed) {
        if (const auto found = m_modifierFlagsByKeyCode.find(keyCode);
            found != m_modifierFlagsByKeyCode.end()) {
            flags |= found->second;
        }
    }
    return flags;
}

} // namespace sayvo
