#include "desktop/macos/KeySynthesizerMac.h"

#include <CoreGraphics/CoreGraphics.h>

#include <initializer_list>

namespace sayvo {

bool KeySynthesizerMac::postPaste(PasteShortcut)
{
    CGEventSourceRef source = CGEventSourceCreate(kCGEventSourceStateCombinedSessionState);
    CGEventRef down = CGEventCreateKeyboardEvent(source, kVKeyCode, true);
    CGEventRef up = CGEventCreateKeyboardEvent(source, kVKeyCode, false);
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
