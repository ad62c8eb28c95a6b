#include "desktop/macos/KeyboardEventSourceMac.h"

#include <ApplicationServices/ApplicationServices.h>
#include <CoreGraphics/CoreGraphics.h>

#include <QCoreApplication>
#include <QMetaObject>

#include <algorithm>
#include <future>
#include <optional>
#include <thread>

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

// The callback as the main thread sees it: cleared there on uninstall, so an event still
// queued then is dropped.
struct Delivery
{
    KeyboardEventSource::Callback callback;
};

} // namespace

struct KeyboardEventSourceMac::Tap
{
    std::shared_ptr<Delivery> delivery = std::make_shared<Delivery>();
    std::vector<int> swallowedKeyCodes;
    CFMachPortRef port = nullptr;
    CFRunLoopSourceRef source = nullptr;
    CFRunLoopRef loop = nullptr;
    std::thread thread;

    // On the tap's thread.
    static CGEventRef handleEvent(
        CGEventTapProxy proxy, CGEventType type, CGEventRef event, void *userInfo);
};

KeyboardEventSourceMac::KeyboardEventSourceMac() = default;

KeyboardEventSourceMac::~KeyboardEventSourceMac()
{
    uninstall();
}

bool KeyboardEventSourceMac::isPermitted() const
{
    return CGPreflightListenEventAccess() || AXIsProcessTrusted();
}

bool KeyboardEventSourceMac::install(const std::vector<int> &swallowedKeyCodes, Callback callback)
{
    uninstall();
    if (!isPermitted()) {
        return false;
    }
    auto tap = std::make_unique<Tap>();
    tap->delivery->callback = std::move(callback);
    tap->swallowedKeyCodes = swallowedKeyCodes;
    // Bits 10, 11 and 12: key down, key up, flags changed.
    const CGEventMask mask = CGEventMaskBit(kCGEventKeyDown) | CGEventMaskBit(kCGEventKeyUp)
        | CGEventMaskBit(kCGEventFlagsChanged);
    tap->port = CGEventTapCreate(kCGSessionEventTap, kCGHeadInsertEventTap,
        kCGEventTapOptionDefault, mask, &Tap::handleEvent, tap.get());
    if (!tap->port) {
        return false;
    }
    tap->source = CFMachPortCreateRunLoopSource(kCFAllocatorDefault, tap->port, 0);
    if (!tap->source) {
        CFMachPortInvalidate(tap->port);
        CFRelease(tap->port);
        return false;
    }
    std::promise<CFRunLoopRef> loopReady;
    std::future<CFRunLoopRef> loop = loopReady.get_future();
    Tap *raw = tap.get();
    tap->thread = std::thread([raw, &loopReady] {
        CFRunLoopRef current = CFRunLoopGetCurrent();
        CFRunLoopAddSource(current, raw->source, kCFRunLoopCommonModes);
        loopReady.set_value(current);
        // Returns when uninstall() stops it, or at once if it already removed the source.
        CFRunLoopRun();
    });
    tap->loop = loop.get();
    CGEventTapEnable(tap->port, true);
    m_tap = std::move(tap);
    return true;
}

void KeyboardEventSourceMac::uninstall()
{
    if (!m_tap) {
        return;
    }
    CGEventTapEnable(m_tap->port, false);
    m_tap->delivery->callback = {};
    CFRunLoopRemoveSource(m_tap->loop, m_tap->source, kCFRunLoopCommonModes);
    CFRunLoopStop(m_tap->loop);
    m_tap->thread.join();
    CFRelease(m_tap->source);
    CFMachPortInvalidate(m_tap->port);
    CFRelease(m_tap->port);
    m_tap.reset();
}

void KeyboardEventSourceMac::reenable()
{
    if (m_tap) {
        CGEventTapEnable(m_tap->port, true);
    }
}

CGEventRef KeyboardEventSourceMac::Tap::handleEvent(
    CGEventTapProxy, CGEventType type, CGEventRef event, void *userInfo)
{
    auto *tap = static_cast<Tap *>(userInfo);
    const std::optional<KeyEventType> kind = keyEventType(type);
    if (!kind) {
        return event;
    }
    KeyEvent keyEvent;
    keyEvent.type = *kind;
    if (type == kCGEventTapDisabledByTimeout || type == kCGEventTapDisabledByUserInput) {
        // Back on at once, not after the main thread is free again. The notice carries no
        // key data worth reading.
        CGEventTapEnable(tap->port, true);
    } else {
        keyEvent.keyCode
            = static_cast<int>(CGEventGetIntegerValueField(event, kCGKeyboardEventKeycode));
        keyEvent.flags = CGEventGetFlags(event);
        keyEvent.isAutoRepeat = CGEventGetIntegerValueField(event, kCGKeyboardEventAutorepeat) != 0;
    }
    if (QCoreApplication *application = QCoreApplication::instance()) {
        QMetaObject::invokeMethod(
            application,
            [delivery = tap->delivery, keyEvent] {
                if (delivery->callback) {
                    delivery->callback(keyEvent);
                }
            },
            Qt::QueuedConnection);
    }
    const bool isKey
        = keyEvent.type == KeyEventType::keyDown || keyEvent.type == KeyEventType::keyUp;
    const bool swallow = isKey
        && std::find(tap->swallowedKeyCodes.begin(), tap->swallowedKeyCodes.end(), keyEvent.keyCode)
            != tap->swallowedKeyCodes.end();
    // Returning no event removes it from the stream.
    return swallow ? nullptr : event;
}

} // namespace sayvo
