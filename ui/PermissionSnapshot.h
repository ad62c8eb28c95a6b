#pragma once

namespace sayvo {

// The three operating-system permissions dictation depends on.
enum class Permission {
    microphone,
    accessibility,
    inputMonitoring,
};

// Whether each permission is granted at one moment, as the app's live provider reports it.
struct PermissionSnapshot
{
    bool microphone = false;
    bool accessibility = false;
    bool inputMonitoring = false;

    bool operator==(const PermissionSnapshot &) const = default;
};

} // namespace sayvo
