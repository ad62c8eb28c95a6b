#include "desktop/macos/KeyboardEventSourceMac.h"

#include <optional>

namespace sayvo {

namespace {

std::optional<KeyEventType> keyEventType(CGEventType type)
{
    switch (type) {
    case kCGEventKeyDown:
        return KeyEventType::keyDown;
    case kCGEventKeyUp:
        return KeyEventType::keyUp;
    case kCGEventFlagsChanged:
        return KeyEventType::flagsChanged;
    case kCGEventTapDisabledByTimeout:
        return KeyEventType::tapDisabledByTimeout;
    case kCGEventTapDisabledByUserInput:
        return KeyEventType::tapDisabledByUserInput;
    default:
        return std::nullopt;
    }
}

} // namespace

KeyboardEventSourceMac::~KeyboardEventSourceMac()
{
    uninstall();
}

bool KeyboardEventSourceMac::install(const std::vector<int> &, Callback callback)
{
    uninstall();
    m_callback = std::move(callback);
    // Bits 10, 11 and 12: key down, key up, flags changed.
    const CGEventMask mask = CGEventMaskBit(kCGEventKeyDown) | CGEventMaskBit(kCGEventKeyUp)
        | CGEventMaskBit(kCGEventFlagsChanged);
    m_tap = CGEventTapCreate(kCGSessionEventTap, kCGHeadInsertEventTap, kCGEventTapOptionDefault,
        mask, &KeyboardEventSourceMac::handleEvent, this);
    if (!m_tap) {
        m_callback = {};
        return false;
    }
    m_source = CFMachPortCreateRunLoopSource(kCFAllocatorDefault, m_tap, 0);
    if (!m_source) {
        CFRelease(m_tap);
        m_tap = nullptr;
        m_callback = {};
        return false;
    }
    CFRunLoopAddSource(CFRunLoopGetMain(), m_source, kCFRunLoopCommonModes);
    CGEventTapEnable(m_tap, true);
    return true;
}

void KeyboardEventSourceMac::uninstall()
{
    if (m_tap) {
        CGEventTapEnable(m_tap, false);
    }
    if (m_source) {
        CFRunLoopRemoveSource(CFRunLoopGetMain(), m_source, kCFRunLoopCommonModes);
        CFRelease(m_source);
        m_source = nullptr;
    }
    if (m_tap) {
        CFMachPortInvalidate(m_tap);
        CFRelease(m_tap);
        m_tap = nullptr;
    }
    m_callback = {};
}

void KeyboardEventSourceMac::reenable()
{
    if (m_tap) {
        CGEventTapEnable(m_tap, true);
    }
}

CGEventRef KeyboardEventSourceMac::handleEvent(
    CGEventTapProxy, CGEventType type, CGEventRef event, void *userInfo)
{
    auto *self = static_cast<KeyboardEventSourceMac *>(userInfo);
    const std::optional<KeyEventType> kind = keyEventType(type);
    if (!kind || !self->m_callback) {
        return event;
    }
    KeyEvent keyEvent;
    keyEvent.type = *kind;
    // The disabled notices carry no key data worth reading.
    if (type != kCGEventTapDisabledByTimeout && type != kCGEventTapDisabledByUserInput) {
        keyEvent.keyCode
            = static_cast<int>(CGEventGetIntegerValueField(event, kCGKeyboardEventKeycode));
        keyEvent.flags = CGEventGetFlags(event);
        keyEvent.isAutoRepeat = CGEventGetIntegerValueField(event, kCGKeyboardEventAutorepeat) != 0;
    }
    // Returning no event removes it from the stream.
    return self->m_callback(keyEvent) == KeyEventDisposition::swallow ? nullptr : event;
}

} // namespace sayvo
