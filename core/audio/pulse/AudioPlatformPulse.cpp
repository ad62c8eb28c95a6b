#include "AudioHardwarePulse.h"
#include "AudioInputEnginePulse.h"
#include "AudioPlatform.h"

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
