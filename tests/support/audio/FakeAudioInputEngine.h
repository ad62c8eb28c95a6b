#pragma once

#include "audio/AudioInputEngine.h"

#include <QByteArray>

#include <map>
#include <mutex>
#include <vector>

namespace sayvo {

// A scriptable AudioInputEngine. Tests choose the native format and the failures, then
// play known audio: the buffers go to the installed tap on the calling thread (standing in
// for the audio thread), and only while the engine runs, as with a real microphone. It
// records what it was asked to do. Thread-safe.
class FakeAudioInputEngine : public AudioInputEngine
{
public:
    explicit FakeAudioInputEngine(AudioStreamFormat format = {16000.0, 1});

    void setFormat(AudioStreamFormat format);
    // Set: inputFormat() fails with this reason, as when no sound server answers.
    void setUnavailable(std::optional<QString> reason);
    void setStartFailure(std::optional<QString> reason);
    // Set: installTap refuses with this reason, as AVAudioEngine does with an exception.
    void setTapFailure(std::optional<QString> reason);
    // The input stops by itself (a vanished device, a new format) and the handler hears of it
    // on the calling thread, standing in for the sound system's.
    void interrupt(const QString &reason);
    void setCanSelectDevice(bool canSelect);
    // The status setCurrentDevice returns for this device (default 0, success).
    void setDeviceStatus(AudioObjectId device, int status);

    // Interleaved float samples of the current format, cut into buffers of framesPerBuffer
    // frames (the last may be shorter). Returns how many buffers reached a tap.
    int play(const std::vector<float> &interleaved, quint32 framesPerBuffer);
    // 16-bit little-endian samples, converted to float the way a sound server does
    // (sample / 32768), for the current channel count.
    int playS16(const QByteArray &s16le, quint32 framesPerBuffer);
    // One buffer as given; false when no tap got it (not running or no tap).
    bool deliver(const float *interleaved, quint32 frames);

    std::optional<AudioObjectId> currentDevice() const;
    int setCurrentDeviceCalls() const;
    bool hasTap() const;
    quint32 tapBufferFrames() const;
    AudioStreamFormat tapFormat() const;
    int installTapCalls() const;
    int removeTapCalls() const;
    int startCalls() const;
    int stopCalls() const;

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
    mutable std::recursive_mutex m_mutex;
    AudioStreamFormat m_format;
    std::optional<QString> m_unavailable;
    std::optional<QString> m_startFailure;
    std::optional<QString> m_tapFailure;
    InterruptionHandler m_onInterruption;
    bool m_canSelectDevice = true;
    std::map<AudioObjectId, int> m_deviceStatus;
    std::optional<AudioObjectId> m_currentDevice;
    int m_setCurrentDeviceCalls = 0;
    Tap m_tap;
    quint32 m_tapBufferFrames = 0;
    AudioStreamFormat m_tapFormat;
    int m_installTapCalls = 0;
    int m_removeTapCalls = 0;
    bool m_running = false;
    int m_startCalls = 0;
    int m_stopCalls = 0;
};

} // namespace sayvo
