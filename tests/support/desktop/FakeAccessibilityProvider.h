#pragma once

#include "desktop/AccessibilityProvider.h"

#include <QStringList>

#include <chrono>
#include <map>
#include <memory>
#include <set>

namespace sayvo::testing {

// An element with fixed attributes, optionally a text field: `text` answers "AXValue" and the
// selection [selectionStart, selectionEnd) answers "AXSelectedText"; writes to the attributes
// in `writable` change the text as a real field would.
class FakeAccessibleElement : public AccessibleElement
{
public:
    explicit FakeAccessibleElement(QString label = {}) : label(std::move(label)) { }

    QString label;
    std::map<QString, AttributeValue> attributes;
    std::optional<QString> text;
    int selectionStart = 0;
    int selectionEnd = 0;
    std::set<QString> writable;
    std::chrono::milliseconds answerAfter {0};
};

// An accessibility tree made of fake elements. The system-wide element and each
// application's element are fake elements too, so tests wire "AXFocusedUIElement" and
// "AXFocusedWindow" as ordinary attributes. `log` records each call ("copy:<label>:<name>",
// "set:<label>:<name>=<value>", "application:<pid>").
class FakeAccessibilityProvider : public AccessibilityProvider
{
public:
    FakeAccessibilityProvider();

    AccessibleElementPtr systemWideElement() override;
    AccessibleElementPtr applicationElement(qint64 pid) override;
    std::optional<AttributeValue> copyAttribute(const AccessibleElementPtr &element,
        const QString &name, std::chrono::milliseconds timeout) override;
    AccessibilityWrite setAttribute(const AccessibleElementPtr &element, const QString &name,
        const QString &value, std::chrono::milliseconds timeout) override;

    // Builds an application with a focused window titled `title` (absent: no title attribute)
    // and a focused text field; returns the field.
    std::shared_ptr<FakeAccessibleElement> addApplication(
        qint64 pid, std::optional<QString> title, std::optional<QString> fieldText);
    // Makes `element` the focus of the whole desktop.
    void focusSystemWide(const std::shared_ptr<FakeAccessibleElement> &element);

    // Accessibility switched off: no elements at all.
    bool available = true;
    std::shared_ptr<FakeAccessibleElement> systemWide;
    std::map<qint64, std::shared_ptr<FakeAccessibleElement>> applications;
    QStringList log;
};

} // namespace sayvo::testing
