#pragma once

#include "audio/AudioInputEngine.h"

#include <memory>

namespace sayvo {

// AVAudioEngine's input node: its bus-0 format, a tap on bus 0, and the device binding of
// its audio unit (kAudioOutputUnitProperty_CurrentDevice). The tap's buffers arrive as
// separate channel planes and are interleaved for the seam; they last at least 100 ms, the
// shortest the node offers. The tap runs on AVAudioEngine's own thread; everything else on
// the caller's. A configuration change of the engine is an interruption; Objective-C
// exceptions from the tap and start are caught here and returned as failures.
class AudioInputEngineAVAudio : public AudioInputEngine
{
public:
    AudioInputEngineAVAudio();
    ~AudioInputEngineAVAudio() override;

    bool canSelectDevice() const override;
    int setCurrentDevice(std::optional<AudioObjectId> device) override;
    Expected<AudioStreamFormat, QString> inputFormat() override;
    std::optional<QString> installTap(
        quint32 bufferFrames, AudioStreamFormat format, Tap tap) override;
    void removeTap() override;
    std::optional<QString> start() override;
    void stop() override;
    bool isRunning() const override;
    void setOnInterruption(InterruptionHandler handler) override;

private:
    // The Objective-C objects and the tap's guarded state, kept in the Objective-C++ source.
    struct Objects;
    std::unique_ptr<Objects> m_objects;
};

} // namespace sayvo
