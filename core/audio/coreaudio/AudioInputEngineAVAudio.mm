#include "audio/coreaudio/AudioInputEngineAVAudio.h"

#include "audio/coreaudio/AudioHardwareCoreAudio.h"

#import <AVFAudio/AVFAudio.h>
#include <AudioToolbox/AudioToolbox.h>
#import <Foundation/Foundation.h>

#include <algorithm>
#include <cmath>
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

// The interruption handler, read by the notification block on any thread.
struct InterruptionState
{
    std::mutex mutex;
    AudioInputEngine::InterruptionHandler handler;
};

// The shortest tap buffer the input node delivers; shorter requests are out of its range.
constexpr double kShortestTapSeconds = 0.1;

QString describe(NSException *exception)
{
    return QString::fromNSString(exception.reason ?: exception.name);
}

} // namespace

struct AudioInputEngineAVAudio::Objects
{
    AVAudioEngine *engine = [[AVAudioEngine alloc] init];
    std::shared_ptr<TapState> tapState;
    // The input node's own format object, used for the tap as it is: one made again from
    // rate and channel count has no channel layout, which fails above two channels.
    AVAudioFormat *inputFormat = nil;
    std::shared_ptr<InterruptionState> interruption = std::make_shared<InterruptionState>();
    id configurationObserver = nil;
};

AudioInputEngineAVAudio::AudioInputEngineAVAudio() : m_objects(std::make_unique<Objects>())
{
    // The engine stops itself when its input's rate or channels change; the tap keeps the
    // old format and hears nothing more.
    auto interruption = m_objects->interruption;
    m_objects->configurationObserver = [NSNotificationCenter.defaultCenter
        addObserverForName:AVAudioEngineConfigurationChangeNotification
                    object:m_objects->engine
                     queue:nil
                usingBlock:^(NSNotification *) {
                    std::lock_guard lock(interruption->mutex);
                    if (interruption->handler) {
                        interruption->handler(QStringLiteral("the audio configuration changed"));
                    }
                }];
}

AudioInputEngineAVAudio::~AudioInputEngineAVAudio()
{
    [NSNotificationCenter.defaultCenter removeObserver:m_objects->configurationObserver];
    setOnInterruption({});
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
    m_objects->inputFormat = format;
    return AudioStreamFormat {format.sampleRate, format.channelCount};
}

std::optional<QString> AudioInputEngineAVAudio::installTap(
    quint32 bufferFrames, AudioStreamFormat format, Tap tap)
{
    removeTap();
    AVAudioFormat *tapFormat = m_objects->inputFormat;
    if (!tapFormat || tapFormat.sampleRate != format.sampleRate
        || tapFormat.channelCount != format.channels) {
        return QStringLiteral("the input format changed since it was read");
    }
    auto state = std::make_shared<TapState>();
    state->tap = std::move(tap);
    const auto frames = std::max<AVAudioFrameCount>(
        bufferFrames, AVAudioFrameCount(std::ceil(format.sampleRate * kShortestTapSeconds)));
    // A format the node no longer has, or a device gone since the format was read, raises an
    // Objective-C exception, which must not cross into C++.
    @try {
        [m_objects->engine.inputNode
            installTapOnBus:0
                 bufferSize:frames
                     format:tapFormat
                      block:^(AVAudioPCMBuffer *buffer, AVAudioTime *) {
                          std::lock_guard lock(state->mutex);
                          float *const *planes = buffer.floatChannelData;
                          if (!state->tap || !planes) {
                              return;
                          }
                          const quint32 frameLength = buffer.frameLength;
                          const quint32 channels = buffer.format.channelCount;
                          if (buffer.format.isInterleaved) {
                              state->tap(AudioBufferView {planes[0], frameLength, channels});
                              return;
                          }
                          state->interleaved.resize(size_t(frameLength) * channels);
                          for (quint32 frame = 0; frame < frameLength; ++frame) {
                              for (quint32 channel = 0; channel < channels; ++channel) {
                                  state->interleaved[size_t(frame) * channels + channel]
                                      = planes[channel][frame];
                              }
                          }
                          state->tap(
                              AudioBufferView {state->interleaved.data(), frameLength, channels});
                      }];
    } @catch (NSException *exception) {
        return describe(exception);
    }
    m_objects->tapState = state;
    return std::nullopt;
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
    @try {
        if (![m_objects->engine startAndReturnError:&error]) {
            return error ? QString::fromNSString(error.localizedDescription)
                         : QStringLiteral("the audio engine did not start");
        }
    } @catch (NSException *exception) {
        return describe(exception);
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

void AudioInputEngineAVAudio::setOnInterruption(InterruptionHandler handler)
{
    std::lock_guard lock(m_objects->interruption->mutex);
    m_objects->interruption->handler = std::move(handler);
}

} // namespace sayvo
