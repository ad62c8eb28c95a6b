#pragma once

#include <QString>

#include <chrono>
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

// What became of a write. Only a refused write certainly changed nothing; an unanswered one
// may land once the application gets to it.
enum class AccessibilityWrite {
    written,
    // The application (or the platform) said no: the text is not there.
    refused,
    // No answer within the wait: the text may still arrive.
    unanswered,
};

// The platform's accessibility interface, addressed by the attribute names of the macOS
// accessibility API ("AXFocusedUIElement", "AXFocusedWindow", "AXTitle", "AXSelectedText",
// "AXValue"); adapters translate them. Main thread only. Every call says how long it may wait
// for the element's application; the wait applies to that call and that element only. When
// accessibility is unavailable every query is absent and every write is refused.
class AccessibilityProvider
{
public:
    virtual ~AccessibilityProvider() = default;

    virtual AccessibleElementPtr systemWideElement() = 0;
    virtual AccessibleElementPtr applicationElement(qint64 pid) = 0;
    // Absent when the copy fails (no such attribute, no answer within timeout, no permission).
    virtual std::optional<AttributeValue> copyAttribute(
        const AccessibleElementPtr &element, const QString &name, std::chrono::milliseconds timeout)
        = 0;
    virtual AccessibilityWrite setAttribute(const AccessibleElementPtr &element,
        const QString &name, const QString &value, std::chrono::milliseconds timeout)
        = 0;
};

} // namespace sayvo
