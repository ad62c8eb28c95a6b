#include "AudioHardwareCoreAudio.h"
#include "AudioInputEngineAVAudio.h"
#include "AudioPlatform.h"

namespace sayvo {

std::unique_ptr<AudioHardware> createAudioHardware()
{
    return std::make_unique<AudioHardwareCoreAudio>();
}

std::unique_ptr<AudioInputEngine> createAudioInputEngine()
{
    return std::make_unique<AudioInputEngineAVAudio>();
}

} // namespace sayvo
