#include "support/desktop/FakeAccessibilityProvider.h"

namespace sayvo::testing {

FakeAccessibilityProvider::FakeAccessibilityProvider()
    : systemWide(std::make_shared<FakeAccessibleElement>(QStringLiteral("system")))
{ }

AccessibleElementPtr FakeAccessibilityProvider::systemWideElement()
{
    return available ? systemWide : nullptr;
}

AccessibleElementPtr FakeAccessibilityProvider::applicationElement(qint64 pid)
{
    log << QStringLiteral("application:%1").arg(pid);
    if (!available) {
        return nullptr;
    }
    const auto found = applications.find(pid);
    return found == applications.end() ? nullptr : found->second;
}

std::optional<AttributeValue> FakeAccessibilityProvider::copyAttribute(
    const AccessibleElementPtr &element, const QString &name, std::chrono::milliseconds timeout)
{
    auto *fake = dynamic_cast<FakeAccessibleElement *>(element.get());
    log << QStringLiteral("copy:%1:%2").arg(fake ? fake->label : QString(), name);
    if (!available || !fake || fake->answerAfter > timeout) {
        return std::nullopt;
    }
    if (const auto found = fake->attributes.find(name); found != fake->attributes.end()) {
        return found->second;
    }
    if (fake->text) {
        if (name == QLatin1String("AXValue")) {
            return AttributeValue(*fake->text);
        }
        if (name == QLatin1String("AXSelectedText")) {
            return AttributeValue(
                fake->text->mid(fake->selectionStart, fake->selectionEnd - fake->selectionStart));
        }
    }
    return std::nullopt;
}

AccessibilityWrite FakeAccessibilityProvider::setAttribute(const AccessibleElementPtr &element,
    const QString &name, const QString &value, std::chrono::milliseconds timeout)
{
    auto *fake = dynamic_cast<FakeAccessibleElement *>(element.get());
    log << QStringLiteral("set:%1:%2=%3").arg(fake ? fake->label : QString(), name, value);
    if (!available || !fake) {
        return AccessibilityWrite::refused;
    }
    const AccessibilityWrite answer = fake->answerAfter > timeout ? AccessibilityWrite::unanswered
                                                                  : AccessibilityWrite::written;
    if (!fake->writable.count(name)) {
        return answer == AccessibilityWrite::written ? AccessibilityWrite::refused : answer;
    }
    if (name == QLatin1String("AXValue")) {
        fake->text = value;
        fake->selectionStart = fake->selectionEnd = int(value.size());
    } else if (name == QLatin1String("AXSelectedText")) {
        QString text = fake->text.value_or(QString());
        text.replace(fake->selectionStart, fake->selectionEnd - fake->selectionStart, value);
        fake->text = text;
        fake->selectionStart = fake->selectionEnd = fake->selectionStart + int(value.size());
    } else {
        fake->attributes[name] = AttributeValue(value);
    }
    return answer;
}

std::shared_ptr<FakeAccessibleElement> FakeAccessibilityProvider::addApplication(
    qint64 pid, std::optional<QString> title, std::optional<QString> fieldText)
{
    auto application = std::make_shared<FakeAccessibleElement>(QStringLiteral("app%1").arg(pid));
    auto window = std::make_shared<FakeAccessibleElement>(QStringLiteral("window%1").arg(pid));
    auto field = std::make_shared<FakeAccessibleElement>(QStringLiteral("field%1").arg(pid));
    if (title) {
        window->attributes[QStringLiteral("AXTitle")] = AttributeValue(*title);
    }
    field->text = std::move(fieldText);
    application->attributes[QStringLiteral("AXFocusedWindow")]
        = AttributeValue(AccessibleElementPtr(window));
    application->attributes[QStringLiteral("AXFocusedUIElement")]
        = AttributeValue(AccessibleElementPtr(field));
    applications[pid] = application;
    return field;
}

void FakeAccessibilityProvider::focusSystemWide(
    const std::shared_ptr<FakeAccessibleElement> &element)
{
    systemWide->attributes[QStringLiteral("AXFocusedUIElement")]
        = AttributeValue(AccessibleElementPtr(element));
}

} // namespace sayvo::testing
