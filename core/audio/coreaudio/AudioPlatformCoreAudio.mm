#include "audio/AudioPlatform.h"
#include "audio/coreaudio/AudioHardwareCoreAudio.h"
#include "audio/coreaudio/AudioInputEngineAVAudio.h"

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
