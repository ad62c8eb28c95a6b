#pragma once

#include "desktop/AccessibilityProvider.h"

#include <QString>

#include <chrono>
#include <optional>

namespace sayvo::AXHelpers {

inline const QString kFocusedUIElement = QStringLiteral("AXFocusedUIElement");
inline const QString kFocusedWindow = QStringLiteral("AXFocusedWindow");
inline const QString kTitle = QStringLiteral("AXTitle");
inline const QString kSelectedText = QStringLiteral("AXSelectedText");
inline const QString kValue = QStringLiteral("AXValue");

// Context is worth a short wait: an application that is slow to answer (Chromium building its
// tree on the first query, a busy Electron app) is left out of it rather than holding up the
// utterance, and the next element is asked afresh.
inline constexpr std::chrono::milliseconds kReadTimeout {500};
// A write waits as long as the system's own default (six seconds on macOS): the user is waiting
// for the text anyway, and a write that goes unanswered may still land, so it cannot be
// followed by a paste; the longer wait makes that rare.
inline constexpr std::chrono::milliseconds kWriteTimeout {6000};

// Stateless accessibility queries shared by text insertion and context harvesting. Main
// thread only; each read waits at most kReadTimeout per element asked, a write kWriteTimeout.

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
// Refused without an element.
AccessibilityWrite setValue(AccessibilityProvider &provider, const QString &value,
    const QString &attribute, const AccessibleElementPtr &element);

// The last count user-perceived characters (grapheme clusters) of text.
QString lastCharacters(const QString &text, int count);

} // namespace sayvo::AXHelpers
