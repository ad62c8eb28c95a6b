#pragma once

#include "desktop/AccessibilityProvider.h"

#include <ApplicationServices/ApplicationServices.h>

namespace sayvo {

// An AXUIElement, retained for as long as the wrapper lives.
class AccessibleElementMac : public AccessibleElement
{
public:
    // Takes over one reference the caller owns.
    explicit AccessibleElementMac(AXUIElementRef element) : m_element(element) { }
    ~AccessibleElementMac() override { CFRelease(m_element); }
    AccessibleElementMac(const AccessibleElementMac &) = delete;
    AccessibleElementMac &operator=(const AccessibleElementMac &) = delete;

    AXUIElementRef element() const { return m_element; }

private:
    AXUIElementRef m_element;
};

// The macOS accessibility API itself: the seam's attribute names are its own. Without the
// Accessibility permission every copy and set fails, which the seam reports as absent or false.
class AccessibilityProviderMac : public AccessibilityProvider
{
public:
    // A hung application must not freeze a context read for the system's default six
    // seconds; writes keep that default (a time-out of 0 restores it).
    static constexpr float kReadTimeoutSeconds = 0.5f;

    AccessibleElementPtr systemWideElement() override;
    AccessibleElementPtr applicationElement(qint64 pid) override;
    std::optional<AttributeValue> copyAttribute(
        const AccessibleElementPtr &element, const QString &name) override;
    bool setAttribute(
        const AccessibleElementPtr &element, const QString &name, const QString &value) override;
};

} // namespace sayvo
