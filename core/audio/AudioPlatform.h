#pragma once

#include "audio/AudioHardware.h"
#include "audio/AudioInputEngine.h"

#include <memory>

namespace sayvo {

// The sound system of the platform Sayvo was built for; each platform folder defines
// these once.
std::unique_ptr<AudioHardware> createAudioHardware();
std::unique_ptr<AudioInputEngine> createAudioInputEngine();

} // namespace sayvo
