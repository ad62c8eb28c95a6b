#pragma once

#include "audio/AudioInputDevice.h"

#include "base/Expected.h"

#include <QString>

#include <functional>
#include <optional>

namespace sayvo {

// The native format of the capture input: 32-bit float samples, interleaved.
struct AudioStreamFormat
{
    double sampleRate = 0.0;
    quint32 channels = 0;

    friend bool operator==(const AudioStreamFormat &, const AudioStreamFormat &) = default;
};

// One captured buffer, borrowed for the duration of the tap call: frameLength frames of
// `channels` interleaved float samples.
struct AudioBufferView
{
    const float *samples = nullptr;
    quint32 frameLength = 0;
    quint32 channels = 0;
};

// The capture path of the sound system: a microphone input whose native format can be
// read, a tap that receives its buffers, start/stop, and binding to a device. The
// microphone is open exactly while the engine runs. Called from the owner's threads; the
// tap runs on the backend's own audio thread.
class AudioInputEngine
{
public:
    using Tap = std::function<void(const AudioBufferView &)>;
    using InterruptionHandler = std::function<void(const QString &reason)>;

    virtual ~AudioInputEngine() = default;

    // Whether the input can be pointed at a particular device at all.
    virtual bool canSelectDevice() const = 0;
    // Binds the input to a device (nullopt: the system default input). Returns 0 on
    // success or the backend's status code.
    virtual int setCurrentDevice(std::optional<AudioObjectId> device) = 0;

    // The input's native format for the bound device. Fails with the reason when the
    // sound system cannot be reached.
    virtual Expected<AudioStreamFormat, QString> inputFormat() = 0;

    // Buffers in `format` go to the tap while the engine runs: about bufferFrames frames
    // each, or longer where the sound system has a minimum (up to a few hundred
    // milliseconds). Returns the reason when the sound system refused the tap; then there is
    // none. After removeTap returns the tap is never called again.
    virtual std::optional<QString> installTap(
        quint32 bufferFrames, AudioStreamFormat format, Tap tap)
        = 0;
    virtual void removeTap() = 0;

    // Opens the microphone; on failure returns the reason and stays stopped.
    virtual std::optional<QString> start() = 0;
    virtual void stop() = 0;
    virtual bool isRunning() const = 0;

    // Called on a thread of the sound system when the input changed under the engine: its
    // device went away or changed format, or the system ended the stream. The tap gets
    // nothing more until the owner builds the capture again. Set from the owner's thread;
    // after it is replaced the previous handler is never called again.
    virtual void setOnInterruption(InterruptionHandler handler) = 0;
};

} // namespace sayvo
