#pragma once

#include "desktop/AccessibilityProvider.h"

#include <QString>

#include <optional>

namespace sayvo::AXHelpers {

inline const QString kFocusedUIElement = QStringLiteral("AXFocusedUIElement");
inline const QString kFocusedWindow = QStringLiteral("AXFocusedWindow");
inline const QString kTitle = QStringLiteral("AXTitle");
inline const QString kSelectedText = QStringLiteral("AXSelectedText");
inline const QString kValue = QStringLiteral("AXValue");

// Stateless accessibility queries shared by text insertion and context harvesting. Main
// thread only; each blocks for at most the provider's time-out.

// The element that has the keyboard focus anywhere on the desktop.
AccessibleElementPtr focusedElement(AccessibilityProvider &provider);
// The focused element of the application with that process id; of the whole desktop when the
// process is unknown (0).
AccessibleElementPtr focusedElement(AccessibilityProvider &provider, qint64 pid);
// The attribute when it could be read and is a string (an empty string included).
std::optional<QString> stringAttribute(
    AccessibilityProvider &provider, const QString &name, const AccessibleElementPtr &element);
// The title of the application's focused window.
std::optional<QString> windowTitle(AccessibilityProvider &provider, qint64 pid);
// The focused element's selection, whole; else the last windowChars characters of its value.
std::optional<QString> screenText(AccessibilityProvider &provider, qint64 pid, int windowChars);
bool setValue(AccessibilityProvider &provider, const QString &value, const QString &attribute,
    const AccessibleElementPtr &element);

// The last count user-perceived characters (grapheme clusters) of text.
QString lastCharacters(const QString &text, int count);

} // namespace sayvo::AXHelpers
