#pragma once

#include "audio/AudioInputEngine.h"
#include "audio/pulse/PulseConnection.h"

#include <string>

namespace sayvo {

// Capture from a PulseAudio source through a record stream of float32 samples at the
// format the tap was installed with, in fragments of about the requested frame count. The
// stream exists only between start() and stop(), so the server lists no recording client
// while Sayvo is idle. The tap runs on the connection's loop thread.
class AudioInputEnginePulse : public AudioInputEngine
{
public:
    AudioInputEnginePulse();
    ~AudioInputEnginePulse() override;

    bool canSelectDevice() const override { return true; }
    int setCurrentDevice(std::optional<AudioObjectId> device) override;
    Expected<AudioStreamFormat, QString> inputFormat() override;
    void installTap(quint32 bufferFrames, AudioStreamFormat format, Tap tap) override;
    void removeTap() override;
    std::optional<QString> start() override;
    void stop() override;
    bool isRunning() const override;

private:
    static void streamReadable(pa_stream *stream, size_t bytes, void *userdata);
    static void streamStateChanged(pa_stream *stream, void *userdata);
    void dropStream();

    // mutable: the lock guards reads too.
    mutable PulseConnection m_connection;
    // Empty: the server's default source.
    std::string m_sourceName;
    quint32 m_bufferFrames = 0;
    AudioStreamFormat m_format;
    Tap m_tap;
    pa_stream *m_stream = nullptr;
};

} // namespace sayvo
