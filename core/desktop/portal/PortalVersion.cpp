#include "desktop/portal/PortalVersion.h"

#include "desktop/portal/PortalRequest.h"

#include <QDBusMessage>
#include <QDBusVariant>

namespace sayvo {

uint portalInterfaceVersion(const QDBusConnection &bus, const QString &interface, int timeoutMs)
{
    if (!bus.isConnected()) {
        return 0;
    }
    QDBusMessage message = QDBusMessage::createMethodCall(kPortalService, kPortalPath,
        QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
    message.setArguments({interface, QStringLiteral("version")});
    const QDBusMessage reply = bus.call(message, QDBus::Block, timeoutMs);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) {
        return 0;
    }
    return reply.arguments().constFirst().value<QDBusVariant>().variant().toUInt();
}

} // namespace sayvo
