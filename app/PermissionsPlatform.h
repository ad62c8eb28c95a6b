#pragma once

#include "app/Permissions.h"

#include <memory>

namespace sayvo {

class AudioHardware;
class HotkeyManager;

// This platform's permission checks; defined once per platform. The microphone is judged
// through the sound system and input monitoring through the trigger key's tap.
std::unique_ptr<Permissions> createPermissions(
    AudioHardware &audioHardware, const HotkeyManager &hotkeyManager);

} // namespace sayvo
