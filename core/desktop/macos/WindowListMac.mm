#include "desktop/macos/WindowListMac.h"

#include <CoreGraphics/CoreGraphics.h>

namespace sayvo {

std::optional<std::vector<WindowInfo>> WindowListMac::onScreenWindows()
{
    CFArrayRef list = CGWindowListCopyWindowInfo(kCGWindowListOptionOnScreenOnly, kCGNullWindowID);
    if (!list) {
        return std::nullopt;
    }
    std::vector<WindowInfo> windows;
    const CFIndex count = CFArrayGetCount(list);
    for (CFIndex index = 0; index < count; ++index) {
        const CFTypeRef entry = CFArrayGetValueAtIndex(list, index);
        if (!entry || CFGetTypeID(entry) != CFDictionaryGetTypeID()) {
            continue;
        }
        const auto dictionary = static_cast<CFDictionaryRef>(entry);
        WindowInfo window;
        const CFTypeRef pid = CFDictionaryGetValue(dictionary, kCGWindowOwnerPID);
        qint64 pidValue = 0;
        if (pid && CFGetTypeID(pid) == CFNumberGetTypeID()
            && CFNumberGetValue(static_cast<CFNumberRef>(pid), kCFNumberSInt64Type, &pidValue)) {
            window.ownerPid = pidValue;
        }
        const CFTypeRef name = CFDictionaryGetValue(dictionary, kCGWindowName);
        if (name && CFGetTypeID(name) == CFStringGetTypeID()) {
            window.name = QString::fromCFString(static_cast<CFStringRef>(name));
        }
        windows.push_back(std::move(window));
    }
    CFRelease(list);
    return windows;
}

} // namespace sayvo
