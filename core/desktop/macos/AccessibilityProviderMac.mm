#include "desktop/macos/AccessibilityProviderMac.h"

#import <Foundation/Foundation.h>

namespace sayvo {

namespace {

AXUIElementRef axElement(const AccessibleElementPtr &element)
{
    const auto *mac = dynamic_cast<const AccessibleElementMac *>(element.get());
    return mac ? mac->element() : nullptr;
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
    return wrap(AXUIElementCreateSystemWide());
}

AccessibleElementPtr AccessibilityProviderMac::applicationElement(qint64 pid)
{
    return wrap(AXUIElementCreateApplication(static_cast<pid_t>(pid)));
}

std::optional<AttributeValue> AccessibilityProviderMac::copyAttribute(
    const AccessibleElementPtr &element, const QString &name)
{
    AXUIElementRef target = axElement(element);
    if (!target) {
        return std::nullopt;
    }
    // Per element and only for reads: a time-out set on the system-wide element would apply
    // to every element of this process, writes included.
    AXUIElementSetMessagingTimeout(target, kReadTimeoutSeconds);
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

bool AccessibilityProviderMac::setAttribute(
    const AccessibleElementPtr &element, const QString &name, const QString &value)
{
    AXUIElementRef target = axElement(element);
    if (!target) {
        return false;
    }
    // A write that timed out may still land, and a failed write is followed by a paste:
    // the text would arrive twice. So a write waits as long as the system lets it.
    AXUIElementSetMessagingTimeout(target, 0.0f);
    return AXUIElementSetAttributeValue(target, (__bridge CFStringRef)name.toNSString(),
               (__bridge CFStringRef)value.toNSString())
        == kAXErrorSuccess;
}

} // namespace sayvo
