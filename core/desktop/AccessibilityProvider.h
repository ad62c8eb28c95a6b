#pragma once

#include <QString>

#include <memory>
#include <optional>
#include <variant>

namespace sayvo {

// An element of the accessibility tree (the whole system, an application, a window, a text
// field). Platform adapters derive from it; behaviour code only passes it around.
class AccessibleElement
{
public:
    virtual ~AccessibleElement() = default;
};

using AccessibleElementPtr = std::shared_ptr<AccessibleElement>;

// An attribute that is neither a string nor an element (a number, a range, ...).
struct OtherAttributeValue
{
    bool operator==(const OtherAttributeValue &) const = default;
};

using AttributeValue = std::variant<QString, AccessibleElementPtr, OtherAttributeValue>;

// The platform's accessibility interface, addressed by the attribute names of the macOS
// accessibility API ("AXFocusedUIElement", "AXFocusedWindow", "AXTitle", "AXSelectedText",
// "AXValue"); adapters translate them. Main thread only. Reads answer within a short time-out
// (a slow application's context is not worth the wait); writes wait for the application's
// answer, because a failed write is followed by a paste and a write that timed out may land
// after all. When accessibility is unavailable every query is absent and every write fails.
class AccessibilityProvider
{
public:
    virtual ~AccessibilityProvider() = default;

    virtual AccessibleElementPtr systemWideElement() = 0;
    virtual AccessibleElementPtr applicationElement(qint64 pid) = 0;
    // Absent when the copy fails (no such attribute, no answer, no permission).
    virtual std::optional<AttributeValue> copyAttribute(
        const AccessibleElementPtr &element, const QString &name)
        = 0;
    virtual bool setAttribute(
        const AccessibleElementPtr &element, const QString &name, const QString &value)
        = 0;
};

} // namespace sayvo
