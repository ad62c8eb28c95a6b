#include "desktop/macos/AccessibilityProviderMac.h"

#import <Foundation/Foundation.h>

namespace sayvo {

namespace {

// The element, with its messaging time-out set to this call's wait.
AXUIElementRef axElement(const AccessibleElementPtr &element, std::chrono::milliseconds timeout)
{
    const auto *mac = dynamic_cast<const AccessibleElementMac *>(element.get());
    if (!mac) {
        return nullptr;
    }
    if (!mac->isSystemWide()) {
        AXUIElementSetMessagingTimeout(
            mac->element(), std::chrono::duration<float>(timeout).count());
    }
    return mac->element();
}

AccessibleElementPtr wrap(AXUIElementRef element)
{
    if (!element) {
        return nullptr;
    }
    return std::make_shared<AccessibleElementMac>(element);
}

} // namespace

AccessibleElementPtr AccessibilityProviderMac::systemWideElement()
{
    return std::make_shared<AccessibleElementMac>(AXUIElementCreateSystemWide(), true);
}

AccessibleElementPtr AccessibilityProviderMac::applicationElement(qint64 pid)
{
    return wrap(AXUIElementCreateApplication(static_cast<pid_t>(pid)));
}

std::optional<AttributeValue> AccessibilityProviderMac::copyAttribute(
    const AccessibleElementPtr &element, const QString &name, std::chrono::milliseconds timeout)
{
    AXUIElementRef target = axElement(element, timeout);
    if (!target) {
        return std::nullopt;
    }
    CFTypeRef value = nullptr;
    const AXError error
        = AXUIElementCopyAttributeValue(target, (__bridge CFStringRef)name.toNSString(), &value);
    if (error != kAXErrorSuccess || !value) {
        return std::nullopt;
    }
    const CFTypeID type = CFGetTypeID(value);
    if (type == CFStringGetTypeID()) {
        const QString text = QString::fromCFString(static_cast<CFStringRef>(value));
        CFRelease(value);
        return AttributeValue(text);
    }
    if (type == AXUIElementGetTypeID()) {
        // The copy's reference passes to the wrapper.
        return AttributeValue(wrap(static_cast<AXUIElementRef>(value)));
    }
    CFRelease(value);
    return AttributeValue(OtherAttributeValue {});
}

AccessibilityWrite AccessibilityProviderMac::setAttribute(const AccessibleElementPtr &element,
    const QString &name, const QString &value, std::chrono::milliseconds timeout)
{
    AXUIElementRef target = axElement(element, timeout);
    if (!target) {
        return AccessibilityWrite::refused;
    }
    const AXError error = AXUIElementSetAttributeValue(
        target, (__bridge CFStringRef)name.toNSString(), (__bridge CFStringRef)value.toNSString());
    switch (error) {
    case kAXErrorSuccess:
        return AccessibilityWrite::written;
    case kAXErrorCannotComplete:
        // Messaging failed, most often for want of an answer: the application may still
        // apply the value.
        return AccessibilityWrite::unanswered;
    default:
        return AccessibilityWrite::refused;
    }
}

} // namespace sayvo
