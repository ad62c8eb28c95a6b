#include "desktop/AXHelpers.h"

#include <QTextBoundaryFinder>

namespace sayvo::AXHelpers {

namespace {

AccessibleElementPtr elementAttribute(
    AccessibilityProvider &provider, const AccessibleElementPtr &element, const QString &name)
{
    if (!element) {
        return nullptr;
    }
    const std::optional<AttributeValue> value = provider.copyAttribute(element, name, kReadTimeout);
    if (!value) {
        return nullptr;
    }
    if (const auto *child = std::get_if<AccessibleElementPtr>(&*value)) {
        return *child;
    }
    return nullptr;
}

} // namespace

AccessibleElementPtr focusedElement(AccessibilityProvider &provider)
{
    return elementAttribute(provider, provider.systemWideElement(), kFocusedUIElement);
}

AccessibleElementPtr focusedElement(AccessibilityProvider &provider, qint64 pid)
{
    // Wayland names no process for the window in front: the desktop's focus is the one then.
    if (pid <= 0) {
        return focusedElement(provider);
    }
    return elementAttribute(provider, provider.applicationElement(pid), kFocusedUIElement);
}

std::optional<QString> stringAttribute(
    AccessibilityProvider &provider, const QString &name, const AccessibleElementPtr &element)
{
    if (!element) {
        return std::nullopt;
    }
    const std::optional<AttributeValue> value = provider.copyAttribute(element, name, kReadTimeout);
    if (!value) {
        return std::nullopt;
    }
    if (const auto *text = std::get_if<QString>(&*value)) {
        return *text;
    }
    return std::nullopt;
}

std::optional<QString> windowTitle(AccessibilityProvider &provider, qint64 pid)
{
    const AccessibleElementPtr window
        = elementAttribute(provider, provider.applicationElement(pid), kFocusedWindow);
    return stringAttribute(provider, kTitle, window);
}

std::optional<QString> screenText(AccessibilityProvider &provider, qint64 pid, int windowChars)
{
    const AccessibleElementPtr element = focusedElement(provider, pid);
    if (!element) {
        return std::nullopt;
    }
    if (auto selected = stringAttribute(provider, kSelectedText, element);
        selected && !selected->isEmpty()) {
        return selected;
    }
    if (const auto value = stringAttribute(provider, kValue, element); value && !value->isEmpty()) {
        return lastCharacters(*value, windowChars);
    }
    return std::nullopt;
}

AccessibilityWrite setValue(AccessibilityProvider &provider, const QString &value,
    const QString &attribute, const AccessibleElementPtr &element)
{
    if (!element) {
        return AccessibilityWrite::refused;
    }
    return provider.setAttribute(element, attribute, value, kWriteTimeout);
}

QString lastCharacters(const QString &text, int count)
{
    if (count <= 0) {
        return {};
    }
    // Walk back from the end over grapheme boundaries, so an emoji sequence or a letter with
    // combining marks counts once and is never cut in half.
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    finder.toEnd();
    int seen = 0;
    qsizetype position = text.size();
    while (seen < count) {
        const qsizetype previous = finder.toPreviousBoundary();
        if (previous < 0) {
            return text;
        }
        position = previous;
        ++seen;
    }
    return text.mid(position);
}

} // namespace sayvo::AXHelpers
