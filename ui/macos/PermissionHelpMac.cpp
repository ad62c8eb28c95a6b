#include "PermissionHelp.h"

namespace sayvo {

PermissionHelp permissionHelp(Permission permission)
{
    switch (permission) {
    case Permission::microphone:
        return {QStringLiteral("Microphone"), {},
            QUrl(QStringLiteral(
                "x-apple.systempreferences:com.apple.preference.security?Privacy_Microphone"))};
    case Permission::accessibility:
        return {QStringLiteral("Accessibility"), {},
            QUrl(QStringLiteral(
                "x-apple.systempreferences:com.apple.preference.security?Privacy_Accessibility"))};
    case Permission::inputMonitoring:
        return {QStringLiteral("Input Monitoring"), {},
            QUrl(QStringLiteral(
                "x-apple.systempreferences:com.apple.preference.security?Privacy_ListenEvent"))};
    }
    return {};
}

} // namespace sayvo
