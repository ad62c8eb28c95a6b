#pragma once

#include "app/Permissions.h"

namespace sayvo {

// The privacy permissions of macOS: microphone authorisation, the Accessibility trust of
// this process, and Input Monitoring (listen-event access). Each state is asked of the system
// afresh. Main thread.
class PermissionsMac : public Permissions
{
public:
    static constexpr const char *kMicrophonePane
        = "x-apple.systempreferences:com.apple.preference.security?Privacy_Microphone";
    static constexpr const char *kAccessibilityPane
        = "x-apple.systempreferences:com.apple.preference.security?Privacy_Accessibility";
    static constexpr const char *kInputMonitoringPane
        = "x-apple.systempreferences:com.apple.preference.security?Privacy_ListenEvent";

    MicrophoneStatus microphoneStatus() override;
    void requestMicrophoneAccess() override;
    bool isAccessibilityTrusted() override;
    void promptAccessibility() override;
    bool isInputMonitoringGranted() override;
    void requestInputMonitoringAccess() override;
    void openSettings(Permission permission) override;
};

} // namespace sayvo
