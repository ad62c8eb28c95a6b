#pragma once

#include <QString>
#include <QUrl>

namespace sayvo {

// The three operating-system permissions dictation depends on.
enum class Permission {
    microphone,
    accessibility,
    inputMonitoring,
};

// Whether each permission is granted right now, as the app's live provider reports it.
struct PermissionSnapshot
{
    bool microphone = false;
    bool accessibility = false;
    bool inputMonitoring = false;

    bool operator==(const PermissionSnapshot &) const = default;
};

// What helps the user grant a permission on this platform: a settings pane to open when the
// platform has one, otherwise a short explanation of what to do (defined per platform).
struct PermissionHelp
{
    QString title;
    QString explanation;
    QUrl settingsPane;
};

PermissionHelp permissionHelp(Permission permission);

} // namespace sayvo
