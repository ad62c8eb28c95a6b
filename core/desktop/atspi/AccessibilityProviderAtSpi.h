#pragma once

#include "desktop/AccessibilityProvider.h"
#include "desktop/Workspace.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDeadlineTimer>
#include <QHash>
#include <QString>

#include <chrono>
#include <optional>

namespace sayvo {

// Accessibility through the AT-SPI 2 D-Bus interfaces. "AXFocusedUIElement" is the object in
// state FOCUSED inside the active window of the application (of the whole desktop for the
// system-wide element), "AXFocusedWindow" that active window, "AXTitle" an object's name,
// "AXSelectedText" the first selection of its Text interface ("" without one) and "AXValue"
// its whole text. Writing "AXSelectedText" replaces the selection or inserts at the caret;
// writing "AXValue" replaces the whole text (EditableText). A write succeeds only when the text
// read back afterwards is exactly what was written; an insert that landed wrong is taken back.
// Once an editing call has gone out, anything but a confirmed result is "unanswered": the
// toolkit may still be applying it. Main thread only.
//
// The accessibility bus is spoken to directly with plain method calls rather than through
// libatspi: libatspi dispatches incoming accessibility events re-entrantly inside its own
// calls, which deadlocks without its cache and serves stale focus with it. Plain calls have
// neither problem, and every answer is current.
//
// AT-SPI answers only when the accessibility bus is running and enabled (org.a11y.Status
// IsEnabled); otherwise every query is absent and every write is refused. Each call of a read
// or write waits as long as the caller allows; the registry's own calls wait kTimeoutMs. An
// application that let a call time out is not asked again for kUnresponsiveMs with the same
// patience or less, so a harvest, which makes several calls, waits for it once rather than
// once per call; a write, which waits longer, still asks.
class AccessibilityProviderAtSpi : public AccessibilityProvider
{
public:
    static constexpr int kTimeoutMs = 500;
    static constexpr int kUnresponsiveMs = 3000;

    AccessibilityProviderAtSpi();
    ~AccessibilityProviderAtSpi() override;

    AccessibleElementPtr systemWideElement() override;
    AccessibleElementPtr applicationElement(qint64 pid) override;
    std::optional<AttributeValue> copyAttribute(const AccessibleElementPtr &element,
        const QString &name, std::chrono::milliseconds timeout) override;
    AccessibilityWrite setAttribute(const AccessibleElementPtr &element, const QString &name,
        const QString &value, std::chrono::milliseconds timeout) override;

    // The application (other than Sayvo) whose window is active, with that window's title; its
    // accessible name stands for the application id. Absent without accessibility.
    std::optional<FrontApplication> activeApplication();
    // The accessibility bus, connected; absent while accessibility is off.
    std::optional<QDBusConnection> bus();

private:
    struct ObjectRef
    {
        QString service;
        QString path;
    };

    bool connectIfEnabled();
    struct Unresponsive
    {
        QDeadlineTimer until;
        int waitedMs = 0;
    };

    std::optional<QDBusMessage> call(const ObjectRef &object, const QString &interface,
        const QString &method, const QVariantList &arguments = {});
    // An editing call whose reply is a boolean: true is written, false or an error refused.
    AccessibilityWrite edit(
        const ObjectRef &object, const QString &method, const QVariantList &arguments);
    AccessibilityWrite writeObjectAttribute(
        const ObjectRef &object, const QString &name, const QString &value);
    std::optional<QVariant> property(
        const ObjectRef &object, const QString &interface, const QString &name);
    std::optional<std::vector<ObjectRef>> children(const ObjectRef &object);
    std::optional<quint64> states(const ObjectRef &object);
    std::optional<qint64> processId(const ObjectRef &application);
    std::optional<ObjectRef> activeWindow(const ObjectRef &application);
    std::optional<ObjectRef> focusedBelow(const ObjectRef &root);
    std::optional<std::pair<int, int>> selectionRange(const ObjectRef &object);
    std::optional<AttributeValue> readObjectAttribute(const ObjectRef &object, const QString &name);
    std::optional<int> characterCount(const ObjectRef &object);
    std::optional<QString> textBetween(const ObjectRef &object, int start, int end);
    // The length argument InsertText needs for this text in this application's toolkit.
    int insertLength(const QString &service, const QString &value);

    class Element;

    QHash<QString, Unresponsive> m_unresponsive;
    // How long the calls of the read or write under way wait for an answer.
    int m_waitMs = kTimeoutMs;
    // Whether the latest call went out and got no answer in time.
    bool m_lastCallUnanswered = false;
    // Toolkit name by bus name of the application.
    QHash<QString, QString> m_toolkits;
    QString m_busAddress;
    std::optional<QDBusConnection> m_bus;
};

} // namespace sayvo
