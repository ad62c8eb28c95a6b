#pragma once

#include "desktop/AccessibilityProvider.h"

#include <ApplicationServices/ApplicationServices.h>

namespace sayvo {

// An AXUIElement, retained for as long as the wrapper lives.
class AccessibleElementMac : public AccessibleElement
{
public:
    // Takes over one reference the caller owns.
    explicit AccessibleElementMac(AXUIElementRef element, bool systemWide = false)
        : m_element(element), m_systemWide(systemWide)
    { }
    ~AccessibleElementMac() override { CFRelease(m_element); }
    AccessibleElementMac(const AccessibleElementMac &) = delete;
    AccessibleElementMac &operator=(const AccessibleElementMac &) = delete;

    AXUIElementRef element() const { return m_element; }
    // A messaging time-out set on the system-wide element is the whole process's.
    bool isSystemWide() const { return m_systemWide; }

private:
    AXUIElementRef m_element;
    bool m_systemWide;
};

// The macOS accessibility API itself: the seam's attribute names are its own. Without the
// Accessibility permission every copy fails and every set is refused. Each call's wait is set
// on the element it asks (never on the system-wide element, whose time-out would become every
// element's, writes included); the system-wide element keeps the system's default. A set that
// fails with kAXErrorCannotComplete got no answer in time and is reported unanswered.
class AccessibilityProviderMac : public AccessibilityProvider
{
public:
    AccessibleElementPtr systemWideElement() override;
    AccessibleElementPtr applicationElement(qint64 pid) override;
    std::optional<AttributeValue> copyAttribute(const AccessibleElementPtr &element,
        const QString &name, std::chrono::milliseconds timeout) override;
    AccessibilityWrite setAttribute(const AccessibleElementPtr &element, const QString &name,
        const QString &value, std::chrono::milliseconds timeout) override;
};

} // namespace sayvo
