#pragma once

#include <QDBusConnection>
#include <QString>

namespace sayvo {

// The version of one interface the desktop portal's frontend offers, 0 when it offers none
// (an older frontend, no portal at all, or no answer within timeoutMs). Blocks.
uint portalInterfaceVersion(const QDBusConnection &bus, const QString &interface, int timeoutMs);

} // namespace sayvo
