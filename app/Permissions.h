#pragma once

#include "ui/PermissionSnapshot.h"

#include <QString>

namespace sayvo {

// The three things the operating system must allow before dictation works: hearing the
// microphone, reading and writing other applications' text (accessibility), and watching
// the trigger key system-wide (input monitoring). States are read afresh on every call.
class Permissions
{
public:
    enum class MicrophoneStatus {
        notDetermined,
        restricted,
        denied,
        authorized,
    };

    virtual ~Permissions() = default;

    virtual MicrophoneStatus microphoneStatus() = 0;
    // Asks for microphone access; the answer is not awaited.
    virtual void requestMicrophoneAccess() = 0;

    virtual bool isAccessibilityTrusted() = 0;
    // Asks the user to turn accessibility on for Sayvo.
    virtual void promptAccessibility() = 0;

    virtual bool isInputMonitoringGranted() = 0;
    virtual void requestInputMonitoringAccess() = 0;

    // Shows the user where this permission is granted on this platform.
    virtual void openSettings(Permission permission) = 0;

    bool isGranted(Permission permission)
    {
        switch (permission) {
        case Permission::microphone:
            return microphoneStatus() == MicrophoneStatus::authorized;
        case Permission::accessibility:
            return isAccessibilityTrusted();
        case Permission::inputMonitoring:
            return isInputMonitoringGranted();
        }
        return false;
    }

    PermissionSnapshot snapshot()
    {
        return {isGranted(Permission::microphone), isGranted(Permission::accessibility),
            isGranted(Permission::inputMonitoring)};
    }
};

} // namespace sayvo
