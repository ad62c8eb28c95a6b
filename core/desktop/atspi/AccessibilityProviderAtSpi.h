#pragma once

#include "AccessibilityProvider.h"

typedef struct _AtspiAccessible AtspiAccessible;

namespace sayvo {

// Accessibility through AT-SPI 2. "AXFocusedUIElement" is the object in state FOCUSED inside
// the active window of the application (of the whole desktop for the system-wide element),
// "AXFocusedWindow" that active window, "AXTitle" an object's name, "AXSelectedText" the first
// selection of its Text interface ("" without one) and "AXValue" its whole text. Writing
// "AXSelectedText" replaces the selection or inserts at the caret; writing "AXValue" replaces
// the whole text (EditableText). Main thread only.
//
// AT-SPI answers only when the accessibility bus is running and enabled (org.a11y.Status
// IsEnabled); otherwise every query is absent and every write fails. Each call to an
// application waits at most kTimeoutMs: a busy toolkit answers in a few milliseconds, and a
// hung one must not hold the start of an utterance for longer than a user would tolerate.
class AccessibilityProviderAtSpi : public AccessibilityProvider
{
public:
    static constexpr int kTimeoutMs = 500;

    AccessibleElementPtr systemWideElement() override;
    AccessibleElementPtr applicationElement(qint64 pid) override;
    std::optional<AttributeValue> copyAttribute(
        const AccessibleElementPtr &element, const QString &name) override;
    bool setAttribute(
        const AccessibleElementPtr &element, const QString &name, const QString &value) override;

private:
    bool isAvailable();
    bool m_initialised = false;
};

} // namespace sayvo
