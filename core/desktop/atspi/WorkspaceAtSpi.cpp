#include "desktop/atspi/WorkspaceAtSpi.h"

#include "desktop/atspi/AccessibilityProviderAtSpi.h"

#include <QDBusMessage>
#include <QDBusPendingCall>

namespace sayvo {

WorkspaceAtSpi::WorkspaceAtSpi(std::shared_ptr<AccessibilityProviderAtSpi> accessibility)
    : m_accessibility(std::move(accessibility))
{ }

std::optional<FrontApplication> WorkspaceAtSpi::frontmostApplication()
{
    return m_accessibility->activeApplication();
}

void WorkspaceAtSpi::watchActivations()
{
    std::optional<QDBusConnection> bus = m_accessibility->bus();
    if (!bus) {
        return;
    }
    // Toolkits send events only while someone has registered for them.
    QDBusMessage registration = QDBusMessage::createMethodCall(
        QStringLiteral("org.a11y.atspi.Registry"), QStringLiteral("/org/a11y/atspi/registry"),
        QStringLiteral("org.a11y.atspi.Registry"), QStringLiteral("RegisterEvent"));
    registration << QStringLiteral("window:activate") << QStringList() << QString();
    bus->asyncCall(registration);
    bus->connect(QString(), QString(), QStringLiteral("org.a11y.atspi.Event.Window"),
        QStringLiteral("Activate"), this, SLOT(onWindowActivated()));
}

void WorkspaceAtSpi::onWindowActivated()
{
    announceActivation();
}

} // namespace sayvo
