#pragma once

#include "app/Permissions.h"

namespace sayvo {

class AudioHardware;
class HotkeyManager;

// Linux has no permission prompts: the microphone is usable when the sound server answers
// and offers a source, accessibility when the AT-SPI bus is switched on, and input
// monitoring when the X server let Sayvo watch the trigger key.
class PermissionsLinux : public Permissions
{
public:
    PermissionsLinux(AudioHardware &audioHardware, const HotkeyManager &hotkeyManager);

    MicrophoneStatus microphoneStatus() override;
    void requestMicrophoneAccess() override;
    bool isAccessibilityTrusted() override;
    void promptAccessibility() override;
    bool isInputMonitoringGranted() override;
    void requestInputMonitoringAccess() override;
    void openSettings(Permission permission) override;

    // Switches the accessibility bus on the way screen readers do; true when it is on.
    static bool enableAccessibilityBus();

private:
    AudioHardware &m_audioHardware;
    const HotkeyManager &m_hotkeyManager;
};

} // namespace sayvo
