#include "desktop/portal/PortalShortcut.h"

#include <QDBusMetaType>

namespace sayvo {

QDBusArgument &operator<<(QDBusArgument &argument, const PortalShortcut &shortcut)
{
    argument.beginStructure();
    argument << shortcut.id << shortcut.properties;
    argument.endStructure();
    return argument;
}

const QDBusArgument &operator>>(const QDBusArgument &argument, PortalShortcut &shortcut)
{
    argument.beginStructure();
    argument >> shortcut.id >> shortcut.properties;
    argument.endStructure();
    return argument;
}

void registerPortalShortcutTypes()
{
    qDBusRegisterMetaType<PortalShortcut>();
    qDBusRegisterMetaType<QList<PortalShortcut>>();
}

QList<PortalShortcut> portalShortcutsFrom(const QVariant &value)
{
    if (value.metaType() != QMetaType::fromType<QDBusArgument>()) {
        return {};
    }
    const auto argument = value.value<QDBusArgument>();
    // Another signature would be read as garbage: a portal's answer is outside input.
    if (argument.currentSignature() != QLatin1String("a(sa{sv})")) {
        return {};
    }
    QList<PortalShortcut> shortcuts;
    argument >> shortcuts;
    return shortcuts;
}

} // namespace sayvo
