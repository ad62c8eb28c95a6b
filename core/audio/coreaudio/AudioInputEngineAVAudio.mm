#include "audio/coreaudio/AudioInputEngineAVAudio.h"

#include "audio/coreaudio/AudioHardwareCoreAudio.h"

#import <AVFAudio/AVFAudio.h>
#include <AudioToolbox/AudioToolbox.h>

#include <mutex>
#include <vector>

namespace sayvo {

namespace {

// The tap callback, switched off under the lock so that no call runs after removeTap.
struct TapState
{
    std::mutex mutex;
    AudioInputEngine::Tap tap;
    std::vector<float> interleaved;
};

} // namespace

struct AudioInputEngineAVAudio::Objects
{
    AVAudioEngine *engine = [[AVAudioEngine alloc] init];
    std::shared_ptr<TapState> tapState;
};

AudioInputEngineAVAudio::AudioInputEngineAVAudio() : m_objects(std::make_unique<Objects>()) { }

AudioInputEngineAVAudio::~AudioInputEngineAVAudio()
{
    removeTap();
    stop();
}

bool AudioInputEngineAVAudio::canSelectDevice() const
{
    return m_objects->engine.inputNode.audioUnit != nullptr;
}

int AudioInputEngineAVAudio::setCurrentDevice(std::optional<AudioObjectId> device)
{
    AudioUnit unit = m_objects->engine.inputNode.audioUnit;
    if (!unit) {
        return kAudioUnitErr_Uninitialized;
    }
    // The unit has no "follow the default" value: the default is bound by its current id.
    const std::optional<AudioObjectId> target
        = device ? device : AudioHardwareCoreAudio::defaultInputDevice();
    if (!target) {
        return kAudioHardwareBadDeviceError;
    }
    const AudioDeviceID deviceId = *target;
    return AudioUnitSetProperty(unit, kAudioOutputUnitProperty_CurrentDevice,
        kAudioUnitScope_Global, 0, &deviceId, sizeof deviceId);
}

Expected<AudioStreamFormat, QString> AudioInputEngineAVAudio::inputFormat()
{
    AVAudioFormat *format = [m_objects->engine.inputNode inputFormatForBus:0];
    return AudioStreamFormat {format.sampleRate, format.channelCount};
}

void AudioInputEngineAVAudio::installTap(quint32 bufferFrames, AudioStreamFormat format, Tap tap)
{
    removeTap();
    auto state = std::make_shared<TapState>();
    state->tap = std::move(tap);
    m_objects->tapState = state;
    AVAudioFormat *tapFormat = [[AVAudioFormat alloc] initWithCommonFormat:AVAudioPCMFormatFloat32
                                                                sampleRate:format.sampleRate
                                                                  channels:format.channels
                                                               interleaved:NO];
    [m_objects->engine.inputNode
        installTapOnBus:0
             bufferSize:bufferFrames
                 format:tapFormat
                  block:^(AVAudioPCMBuffer *buffer, AVAudioTime *) {
                      std::lock_guard lock(state->mutex);
                      float *const *planes = buffer.floatChannelData;
                      if (!state->tap || !planes) {
                          return;
                      }
                      const quint32 frames = buffer.frameLength;
                      const quint32 channels = buffer.format.channelCount;
                      state->interleaved.resize(size_t(frames) * channels);
                      for (quint32 frame = 0; frame < frames; ++frame) {
                          for (quint32 channel = 0; channel < channels; ++channel) {
                              state->interleaved[size_t(frame) * channels + channel]
                                  = planes[channel][frame];
                          }
                      }
                      state->tap(AudioBufferView {state->interleaved.data(), frames, channels});
                  }];
}

void AudioInputEngineAVAudio::removeTap()
{
    if (!m_objects->tapState) {
        return;
    }
    [m_objects->engine.inputNode removeTapOnBus:0];
    std::lock_guard lock(m_objects->tapState->mutex);
    m_objects->tapState->tap = {};
    m_objects->tapState.reset();
}

std::optional<QString> AudioInputEngineAVAudio::start()
{
    NSError *error = nil;
    if (![m_objects->engine startAndReturnError:&error]) {
        return error ? QString::fromNSString(error.localizedDescription)
                     : QStringLiteral("the audio engine did not start");
    }
    return std::nullopt;
}

void AudioInputEngineAVAudio::stop()
{
    [m_objects->engine stop];
}

bool AudioInputEngineAVAudio::isRunning() const
{
    return m_objects->engine.isRunning;
}

} // namespace sayvo
