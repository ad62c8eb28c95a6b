#pragma once

#include "audio/AudioCaptureError.h"
#include "audio/AudioHardware.h"
#include "audio/AudioInputEngine.h"
#include "audio/SerialQueue.h"
#include "base/Expected.h"

#include <QByteArray>
#include <QSet>
#include <QString>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

namespace sayvo {

class PCMConverter;

// The microphone path: prepared once while idle (format read, converter built, tap
// installed, microphone still closed), running only between startForwarding() and
// stopForwarding(). Captured audio is converted to 16 kHz mono s16le and handed out in
// chunks of kChunkByteSize bytes.
//
// Threads: the public operations are called from the owner's thread (the main thread),
// never from the capture queue. onChunk and onCaptureLive run on the private serial queue
// (a flush's last chunk runs inside stopForwarding, still on the queue); onRMS runs on the
// sound system's audio thread, and so does onInterrupted. Receivers hop to their own thread. The
// hardware must outlive the capture.
class AudioCapture
{
public:
    using ChunkHandler = std::function<void(const QByteArray &chunk)>;
    using RMSHandler = std::function<void(float rms)>;
    using LiveHandler = std::function<void()>;
    using InterruptionHandler = AudioInputEngine::InterruptionHandler;

    static constexpr int kChunkByteSize = 3200;
    // Capture buffers are this long at any device rate, so the first audio of an utterance
    // arrives as soon after the microphone opens on a 16 kHz headset as on a 48 kHz card.
    static constexpr int kTapBufferMs = 20;
    static constexpr const char *kQueueLabel = "com.sayvoapp.audiocapture";

    AudioCapture(std::unique_ptr<AudioInputEngine> engine, AudioHardware &hardware);
    ~AudioCapture();

    AudioCapture(const AudioCapture &) = delete;
    AudioCapture &operator=(const AudioCapture &) = delete;

    // May be replaced at any time from the owner's thread; a handler that is running
    // finishes first.
    void setOnChunk(ChunkHandler handler);
    void setOnRMS(RMSHandler handler);
    void setOnCaptureLive(LiveHandler handler);
    // The input changed under the capture (device gone, new format, stream ended by the
    // system); the receiver calls recover() on the owner's thread.
    void setOnInterrupted(InterruptionHandler handler);

    // Builds the capture path without opening the microphone; does nothing when already
    // prepared. May be retried any number of times after a failure.
    Status<AudioCaptureError> prepare();
    bool isPrepared() const { return m_isPrepared.load(); }
    bool isReady() const { return isPrepared(); }

    // Opens the microphone and starts a new utterance's statistics. Never fails: a dead
    // microphone shows as no live signal and a zero byte count.
    void startForwarding();
    // Closes the microphone. With flush, the resampler's tail and the last partial chunk are
    // delivered before this returns; without, they are dropped. Either way the next
    // utterance's audio starts clean.
    void stopForwarding(bool flush);
    bool isForwarding() const { return m_isForwarding.load(); }

    // The user's device choice (nullopt: the system default input); rebuilds when prepared.
    void setInputDevice(const std::optional<QString> &uid);
    // Moves the binding back in line with the choice after the device list changed.
    void reconcile(const QSet<QString> &availableUIDs);
    // The system's default input changed. A capture bound to the default is rebuilt on the
    // new one (reopening the microphone during an utterance); a chosen device stays bound.
    void followDefaultInput();
    // Builds the capture path again when the input no longer matches it (another format,
    // or a microphone that stopped during an utterance); during an utterance the microphone
    // reopens at once, so unplugging a headset mid-sentence loses only the moment of the
    // switch. Nothing happens when everything still matches, so that the notifications a
    // rebuild itself causes settle.
    void recover();
    // Tears the capture path down and prepares it again for the current choice. The
    // microphone stays closed afterwards, even when forwarding was on.
    void rebuild();

    std::optional<QString> desiredDeviceUID() const;
    // The device actually captured from; nullopt means the system default input.
    std::optional<QString> activeDeviceUID() const;

    // Statistics of the utterance since the last startForwarding().
    float lastUtterancePeakRMS() const;
    qint64 lastUtteranceBytes() const;

    // The capture's private queue, for callers that must order work after its chunks.
    SerialQueue &queue() { return *m_queue; }

private:
    std::optional<QString> selectConfiguredDevice();
    // Starts the prepared engine unless it runs; a failure is logged, never raised.
    void openMicrophone();
    // Rebuilds, and reopens the microphone when an utterance is under way.
    void rebuildAndResume();
    void handleBuffer(const AudioBufferView &buffer);
    // Counts converted audio in the utterance's statistics and queues it for chunking.
    void deliverConverted(QByteArray bytes, float rms);
    void enqueue(QByteArray bytes);

    std::unique_ptr<AudioInputEngine> m_engine;
    AudioHardware &m_hardware;
    // Held by the tap while it converts, and by the owner's thread to swap, drain or reset
    // the converter, so the end of an utterance never races a buffer in flight.
    std::mutex m_converterMutex;
    std::unique_ptr<PCMConverter> m_converter;
    QByteArray m_pendingBytes;
    std::atomic<bool> m_isForwarding {false};
    bool m_didSignalLive = false;
    std::atomic<bool> m_isPrepared {false};
    std::optional<QString> m_desiredDeviceUID;
    std::optional<QString> m_activeDeviceUID;
    // The input format the prepared path was built for.
    AudioStreamFormat m_preparedFormat;
    float m_lastUtterancePeakRMS = 0.0f;
    qint64 m_lastUtteranceBytes = 0;
    ChunkHandler m_onChunk;
    // Swapped from the owner's thread, read on the tap thread. A mutex rather than
    // std::atomic<std::shared_ptr>, which Apple's C++ library does not provide.
    std::mutex m_onRMSMutex;
    std::shared_ptr<const RMSHandler> m_onRMS;
    std::mutex m_onInterruptedMutex;
    InterruptionHandler m_onInterrupted;
    LiveHandler m_onCaptureLive;
    // Last member: destroyed first, so no queued work outlives the state it touches.
    std::unique_ptr<SerialQueue> m_queue;
};

} // namespace sayvo
