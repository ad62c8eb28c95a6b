#include "base/Logging.h"

namespace sayvo {

Q_LOGGING_CATEGORY(lcApp, "com.sayvoapp.shell.app", QtDebugMsg)

Logging &Logging::shared()
{
    static Logging instance;
    return instance;
}

void Logging::info(const QString &message) const
{
    qCInfo(lcApp).noquote() << message;
}

void Logging::error(const QString &message) const
{
    qCCritical(lcApp).noquote() << message;
}

void Logging::debug(const QString &message) const
{
    qCDebug(lcApp).noquote() << message;
}

} // namespace sayvo
