#include "desktop/portal/GlobalShortcutsPortal.h"

#include "base/Logging.h"
#include "desktop/portal/PortalRequest.h"
#include "desktop/portal/PortalShortcut.h"

#include <QPointer>

#include <QDBusMessage>
#include <QDBusPendingCall>

namespace sayvo {

namespace {

const QString kInterface = QStringLiteral("org.freedesktop.portal.GlobalShortcuts");
const QString kSessionInterface = QStringLiteral("org.freedesktop.portal.Session");

QString triggerDescription(const QList<PortalShortcut> &shortcuts)
{
    for (const PortalShortcut &shortcut : shortcuts) {
        if (shortcut.id == QLatin1String(GlobalShortcutsPortal::kShortcutId)) {
            return shortcut.properties.value(QStringLiteral("trigger_description")).toString();
        }
    }
    return {};
}

} // namespace

GlobalShortcutsPortal::GlobalShortcutsPortal(QString desktopName, int requestTimeoutMs)
    : m_desktopName(std::move(desktopName)),
      m_requestTimeoutMs(requestTimeoutMs),
      m_bus(QDBusConnection::sessionBus())
{
    registerPortalShortcutTypes();
}

GlobalShortcutsPortal::~GlobalShortcutsPortal()
{
    if (!m_sessionPath.isEmpty()) {
        m_bus.asyncCall(QDBusMessage::createMethodCall(
            kPortalService, m_sessionPath, kSessionInterface, QStringLiteral("Close")));
    }
}

void GlobalShortcutsPortal::start(const QString &preferredTrigger, Handlers handlers)
{
    m_handlers = std::move(handlers);
    report(PortalState::asking, {}, {});
    if (!m_bus.isConnected()) {
        report(PortalState::refused, {}, QStringLiteral("no session bus"));
        return;
    }
    for (const auto &[name, slot] : {std::pair {"Activated", SLOT(onActivated(QDBusMessage))},
             std::pair {"Deactivated", SLOT(onDeactivated(QDBusMessage))},
             std::pair {"ShortcutsChanged", SLOT(onShortcutsChanged(QDBusMessage))}}) {
        m_bus.connect(
            kPortalService, kPortalPath, kInterface, QString::fromLatin1(name), this, slot);
    }
    const QVariantMap options {{QStringLiteral("session_handle_token"), portalToken()}};
    QPointer<GlobalShortcutsPortal> weak(this);
    PortalRequest::call(m_bus, kInterface, QStringLiteral("CreateSession"), {options},
        m_requestTimeoutMs,
        [weak, preferredTrigger](const PortalRequest::Result &result, const QString &detail) {
            if (!weak) {
                return;
            }
            if (const auto *error = std::get_if<PortalError>(&result)) {
                Logging::shared().info(QStringLiteral("global shortcut: no session: %1 %2")
                                           .arg(describe(*error), detail));
                weak->report(PortalState::refused, {}, describe(*error));
                return;
            }
            const QString session
                = std::get<QVariantMap>(result).value(QStringLiteral("session_handle")).toString();
            if (session.isEmpty()) {
                weak->report(
                    PortalState::refused, {}, QStringLiteral("the portal named no session"));
                return;
            }
            weak->m_sessionPath = session;
            weak->bind(preferredTrigger);
        });
}

void GlobalShortcutsPortal::bind(const QString &preferredTrigger)
{
    QVariantMap properties {{QStringLiteral("description"), QStringLiteral("Dictate")}};
    if (!preferredTrigger.isEmpty()) {
        properties.insert(QStringLiteral("preferred_trigger"), preferredTrigger);
    }
    const QList<PortalShortcut> shortcuts {{QString::fromLatin1(kShortcutId), properties}};
    QPointer<GlobalShortcutsPortal> weak(this);
    PortalRequest::call(m_bus, kInterface, QStringLiteral("BindShortcuts"),
        {QVariant::fromValue(QDBusObjectPath(m_sessionPath)), QVariant::fromValue(shortcuts),
            QString(), QVariantMap()},
        m_requestTimeoutMs, [weak](const PortalRequest::Result &result, const QString &detail) {
            if (!weak) {
                return;
            }
            if (const auto *error = std::get_if<PortalError>(&result)) {
                Logging::shared().info(QStringLiteral("global shortcut: not bound: %1 %2")
                                           .arg(describe(*error), detail));
                weak->report(PortalState::refused, {}, describe(*error));
                return;
            }
            weak->showShortcuts(std::get<QVariantMap>(result).value(QStringLiteral("shortcuts")));
        });
}

void GlobalShortcutsPortal::showShortcuts(const QVariant &shortcuts)
{
    const QString label = triggerDescription(portalShortcutsFrom(shortcuts));
    Logging::shared().info(QStringLiteral("global shortcut: bound to %1")
                               .arg(label.isEmpty() ? QStringLiteral("no key") : label));
    report(PortalState::granted, label, {});
}

void GlobalShortcutsPortal::report(PortalState state, const QString &label, const QString &reason)
{
    if (m_handlers.onStatus) {
        m_handlers.onStatus(portalShortcutStatus(state, label, reason, m_desktopName));
    }
}

bool GlobalShortcutsPortal::isOurs(const QDBusMessage &message, bool withId) const
{
    const QVariantList arguments = message.arguments();
    const QString session = arguments.value(0).value<QDBusObjectPath>().path();
    const QString id = arguments.value(1).toString();
    if (m_sessionPath.isEmpty() || arguments.size() < 2 || session != m_sessionPath
        || (withId && id != QLatin1String(kShortcutId))) {
        Logging::shared().debug(
            QStringLiteral("global shortcut: ignored %1 for another session or shortcut")
                .arg(message.member()));
        return false;
    }
    return true;
}

void GlobalShortcutsPortal::onActivated(const QDBusMessage &message)
{
    if (isOurs(message, true) && m_handlers.onPress) {
        m_handlers.onPress();
    }
}

void GlobalShortcutsPortal::onDeactivated(const QDBusMessage &message)
{
    if (isOurs(message, true) && m_handlers.onRelease) {
        m_handlers.onRelease();
    }
}

void GlobalShortcutsPortal::onShortcutsChanged(const QDBusMessage &message)
{
    if (isOurs(message, false)) {
        showShortcuts(message.arguments().at(1));
    }
}

} // namespace sayvo
