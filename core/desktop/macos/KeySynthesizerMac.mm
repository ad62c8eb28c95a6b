#include "desktop/macos/KeySynthesizerMac.h"

#include "desktop/KeyCodeLookup.h"

#include <Carbon/Carbon.h>
#include <CoreGraphics/CoreGraphics.h>

#include <initializer_list>

namespace sayvo {

namespace {

// Virtual key codes run below 128.
constexpr int kKeyCodeCount = 128;

} // namespace

bool KeySynthesizerMac::mayPostEvents()
{
    return CGPreflightPostEventAccess();
}

int KeySynthesizerMac::pasteKeyCode()
{
    TISInputSourceRef source = TISCopyCurrentKeyboardLayoutInputSource();
    const UCKeyboardLayout *layout = nullptr;
    if (source) {
        const auto data = static_cast<CFDataRef>(
            TISGetInputSourceProperty(source, kTISPropertyUnicodeKeyLayoutData));
        if (data) {
            layout = reinterpret_cast<const UCKeyboardLayout *>(CFDataGetBytePtr(data));
        }
    }
    const int keyCode
        = KeyCodeLookup::keyCodeTyping(u'v', kKeyCodeCount, kVKeyCode, [layout](int code) {
              if (!layout) {
                  return QString();
              }
              // With Command held, as the chord is typed: layouts such as "Dvorak - QWERTY
              // Command" switch to QWERTY while it is down.
              UInt32 deadKeyState = 0;
              UniChar characters[4];
              UniCharCount length = 0;
              if (UCKeyTranslate(layout, UInt16(code), kUCKeyActionDown, (cmdKey >> 8) & 0xff,
                      LMGetKbdType(), kUCKeyTranslateNoDeadKeysMask, &deadKeyState, 4, &length,
                      characters)
                  != noErr) {
                  return QString();
              }
              return QString::fromUtf16(
                  reinterpret_cast<const char16_t *>(characters), qsizetype(length));
          });
    if (source) {
        CFRelease(source);
    }
    return keyCode;
}

bool KeySynthesizerMac::postPaste(PasteShortcut)
{
    // Without leave to post, the system drops the events without a word.
    if (!mayPostEvents()) {
        return false;
    }
    CGEventSourceRef source = CGEventSourceCreate(kCGEventSourceStateCombinedSessionState);
    if (!source) {
        return false;
    }
    const auto keyCode = CGKeyCode(pasteKeyCode());
    CGEventRef down = CGEventCreateKeyboardEvent(source, keyCode, true);
    CGEventRef up = CGEventCreateKeyboardEvent(source, keyCode, false);
    const bool created = down && up;
    if (created) {
        // Only Command: a modifier the user still holds must not turn this into another chord.
        CGEventSetFlags(down, kCGEventFlagMaskCommand);
        CGEventSetFlags(up, kCGEventFlagMaskCommand);
        CGEventPost(kCGHIDEventTap, down);
        CGEventPost(kCGHIDEventTap, up);
    }
    for (CFTypeRef object : {CFTypeRef(down), CFTypeRef(up), CFTypeRef(source)}) {
        if (object) {
            CFRelease(object);
        }
    }
    return created;
}

} // namespace sayvo
