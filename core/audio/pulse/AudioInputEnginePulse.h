#pragma once

#include "audio/AudioInputEngine.h"
#include "audio/pulse/PulseConnection.h"

#include <string>

namespace sayvo {

// Capture from a PulseAudio source through a record stream of float32 samples at the
// format the tap was installed with, in fragments of about the requested frame count. The
// stream exists only between start() and stop(), so the server lists no recording client
// while Sayvo is idle. The tap runs on the connection's loop thread. The system default input
// is the server's default source unless that is a monitor (what the speakers play, which is
// no microphone): then the first source that is not one, and with none there is no input.
// A recording stream that the server ends (its source unloaded, or the stream killed) is an
// interruption.
class AudioInputEnginePulse : public AudioInputEngine
{
public:
    AudioInputEnginePulse();
    ~AudioInputEnginePulse() override;

    bool canSelectDevice() const override { return true; }
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
    static void streamReadable(pa_stream *stream, size_t bytes, void *userdata);
    static void streamStateChanged(pa_stream *stream, void *userdata);
    void dropStream();
    // Locked. The source to record from: the chosen one, or the default input as above;
    // empty when there is no input at all.
    std::string sourceToRecord(pa_context *context);

    // mutable: the lock guards reads too.
    mutable PulseConnection m_connection;
    // Empty: the system default input.
    std::string m_sourceName;
    // What inputFormat() found for the system default input; start() records from it, so
    // the stream has the format the tap was prepared for.
    std::string m_resolvedSource;
    quint32 m_bufferFrames = 0;
    AudioStreamFormat m_format;
    Tap m_tap;
    InterruptionHandler m_onInterruption;
    pa_stream *m_stream = nullptr;
    // Whether the current stream got as far as recording: only the end of one that did is
    // an interruption (a stream that never connects is start()'s failure).
    bool m_streamWasReady = false;
};

} // namespace sayvo
