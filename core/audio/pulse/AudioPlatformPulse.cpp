#include "audio/AudioPlatform.h"
#include "audio/pulse/AudioHardwarePulse.h"
#include "audio/pulse/AudioInputEnginePulse.h"

namespace sayvo {

std::unique_ptr<AudioHardware> createAudioHardware()
{
    return std::make_unique<AudioHardwarePulse>();
}

std::unique_ptr<AudioInputEngine> createAudioInputEngine()
{
    return std::make_unique<AudioInputEnginePulse>();
}

} // namespace sayvo
