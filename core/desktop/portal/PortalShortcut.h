#pragma once

#include <QDBusArgument>
#include <QList>
#include <QMetaType>
#include <QString>
#include <QVariantMap>

namespace sayvo {

// One entry of the GlobalShortcuts portal's shortcut lists (D-Bus "(sa{sv})").
struct PortalShortcut
{
    QString id;
    QVariantMap properties;
};

QDBusArgument &operator<<(QDBusArgument &argument, const PortalShortcut &shortcut);
const QDBusArgument &operator>>(const QDBusArgument &argument, PortalShortcut &shortcut);

// Registers the list type with Qt D-Bus; safe to call more than once.
void registerPortalShortcutTypes();

// The list in a results value, or nothing when the value is not "a(sa{sv})".
QList<PortalShortcut> portalShortcutsFrom(const QVariant &value);

} // namespace sayvo

Q_DECLARE_METATYPE(sayvo::PortalShortcut)
