#include "audio/AudioCapture.h"
#include "audio/PCMConverter.h"
#include "support/LogCapture.h"
#include "support/audio/FakeAudioHardware.h"
#include "support/audio/FakeAudioInputEngine.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <thread>

using namespace sayvo;
using sayvo::test::LogCapture;

namespace {

// 16-bit little-endian samples counting up from `first`, wrapping from 32767 to -32767 (the
// most negative value has no positive mirror and is clipped), so any lost, repeated or
// reordered sample shows.
QByteArray ramp(int samples, int first = 0)
{
    QByteArray bytes;
    bytes.reserve(samples * 2);
    for (int i = 0; i < samples; ++i) {
        const auto value = quint16(qint16((first + i + 32767) % 65535 - 32767));
        bytes.append(char(value & 0xff));
        bytes.append(char(value >> 8));
    }
    return bytes;
}

FakeAudioDevice device(AudioObjectId id, const QString &uid, const QString &name)
{
    FakeAudioDevice result;
    result.id = id;
    result.uid = uid;
    result.name = name;
    return result;
}

class AudioCaptureTest : public ::testing::Test
{
protected:
    void makeCapture(AudioStreamFormat format = {16000.0, 1})
    {
        auto fake = std::make_unique<FakeAudioInputEngine>(format);
        engine = fake.get();
        capture = std::make_unique<AudioCapture>(std::move(fake), hardware);
        capture->setOnChunk([this](const QByteArray &chunk) {
            chunks.append(chunk);
            chunksOnQueue = chunksOnQueue && capture->queue().isCurrent();
        });
        capture->setOnCaptureLive([this] {
            ++liveCount;
            chunksWhenLive.append(chunks.size());
        });
    }

    void prepared(AudioStreamFormat format = {16000.0, 1})
    {
        makeCapture(format);
        ASSERT_TRUE(capture->prepare().ok());
    }

    // Waits until everything the tap posted has run on the capture queue.
    void drain()
    {
        capture->queue().sync([] {});
    }

    QByteArray joined() const
    {
        QByteArray all;
        for (const auto &chunk : chunks) {
            all += chunk;
        }
        return all;
    }

    QList<int> chunkSizes() const
    {
        QList<int> sizes;
        for (const auto &chunk : chunks) {
            sizes.append(int(chunk.size()));
        }
        return sizes;
    }

    FakeAudioHardware hardware;
    FakeAudioInputEngine *engine = nullptr;
    std::unique_ptr<AudioCapture> capture;
    // Written on the capture queue; read after drain() or a synchronous stop.
    QList<QByteArray> chunks;
    QList<int> chunksWhenLive;
    int liveCount = 0;
    bool chunksOnQueue = true;
};

} // namespace

TEST_F(AudioCaptureTest, PrepareInstallsTheTapButKeepsTheMicrophoneClosed)
{
    LogCapture log;
    makeCapture({48000.0, 1});
    EXPECT_FALSE(capture->isReady());

    ASSERT_TRUE(capture->prepare().ok());

    EXPECT_TRUE(capture->isReady());
    EXPECT_TRUE(capture->isPrepared());
    EXPECT_TRUE(engine->hasTap());
    EXPECT_EQ(engine->tapBufferFrames(), 960u); // 20 ms
    EXPECT_EQ(engine->tapFormat(), (AudioStreamFormat {48000.0, 1}));
    EXPECT_EQ(engine->startCalls(), 0);
    EXPECT_FALSE(engine->isRunning());
    EXPECT_TRUE(log.lines().contains(QString::fromUtf8(
        "info: audio ready (idle): input 48000.0 Hz, 1 ch \u2014 mic opens only while dictating")));
}

TEST_F(AudioCaptureTest, BuffersAreTwentyMillisecondsAtEveryRate)
{
    for (const double rate : {8000.0, 16000.0, 44100.0, 48000.0}) {
        makeCapture({rate, 1});
        ASSERT_TRUE(capture->prepare().ok());
        EXPECT_EQ(engine->tapBufferFrames(), quint32(std::lround(rate / 50))) << rate;
    }
}

TEST_F(AudioCaptureTest, AnUtteranceSendsItsWholeDurationAndTheNextStartsClean)
{
    prepared({48000.0, 1});
    // Half a second of loud speech to the very end, in 20 ms buffers: the key is released
    // mid-word.
    std::vector<float> speech(24000);
    for (std::size_t i = 0; i < speech.size(); ++i) {
        speech[i] = 0.8f * float(std::sin(2.0 * std::numbers::pi * 250.0 * double(i) / 48000.0));
    }
    capture->startForwarding();
    engine->play(speech, 960);
    capture->stopForwarding(true);
    // Half a second at 16 kHz is 16000 bytes; all of it is sent, within one 10 ms frame.
    EXPECT_NEAR(double(joined().size()), 16000.0, 320.0);
    EXPECT_EQ(capture->lastUtteranceBytes(), joined().size());

    chunks.clear();
    capture->startForwarding();
    engine->play(std::vector<float>(24000, 0.0f), 960);
    capture->stopForwarding(true);
    const QByteArray second = joined();
    EXPECT_NEAR(double(second.size()), 16000.0, 320.0);
    for (qsizetype i = 0; i < second.size(); i += 2) {
        ASSERT_EQ(second[i], 0) << "speech of the first utterance at byte " << i;
        ASSERT_EQ(second[i + 1], 0) << "speech of the first utterance at byte " << i;
    }
}

TEST_F(AudioCaptureTest, AnAbandonedUtterancesTailNeverReachesTheNextOne)
{
    prepared({44100.0, 1});
    capture->startForwarding();
    engine->play(std::vector<float>(4410, 0.9f), 882);
    capture->stopForwarding(false);
    chunks.clear();
    capture->startForwarding();
    engine->play(std::vector<float>(4410, 0.0f), 882);
    capture->stopForwarding(true);
    const QByteArray second = joined();
    ASSERT_FALSE(second.isEmpty());
    EXPECT_EQ(second, QByteArray(second.size(), '\0'));
}

TEST_F(AudioCaptureTest, SecondPrepareDoesNothing)
{
    prepared();
    ASSERT_TRUE(capture->prepare().ok());
    EXPECT_EQ(engine->installTapCalls(), 1);
}

TEST_F(AudioCaptureTest, ZeroHertzZeroChannelsFailsWithThePermissionText)
{
    makeCapture({0.0, 0});

    const auto status = capture->prepare();

    ASSERT_FALSE(status.ok());
    EXPECT_EQ(status.error().kind, AudioCaptureError::Kind::invalidInputFormat);
    EXPECT_EQ(status.error().describe(),
        QString::fromUtf8("input node reported an unusable format (0.0 Hz, 0 ch) \u2014 mic "
                          "permission not granted, or no input device"));
    EXPECT_FALSE(capture->isReady());
    EXPECT_FALSE(engine->hasTap());
}

TEST_F(AudioCaptureTest, RateWithoutChannelsIsUnusable)
{
    makeCapture({44100.0, 0});
    const auto status = capture->prepare();
    ASSERT_FALSE(status.ok());
    EXPECT_EQ(status.error(), AudioCaptureError::invalidInputFormat(44100.0, 0));
}

TEST_F(AudioCaptureTest, FormatWithoutConverterFails)
{
    makeCapture({std::numeric_limits<double>::infinity(), 2});
    const auto status = capture->prepare();
    ASSERT_FALSE(status.ok());
    EXPECT_EQ(status.error().kind, AudioCaptureError::Kind::converterUnavailable);
    EXPECT_EQ(status.error().describe(), "no converter from inf Hz/2 ch to 16 kHz mono s16le");
    EXPECT_FALSE(engine->hasTap());
}

TEST_F(AudioCaptureTest, UnreachableServerFailsAndALaterPrepareSucceeds)
{
    makeCapture();
    engine->setUnavailable(QStringLiteral("Connection refused"));

    const auto status = capture->prepare();

    ASSERT_FALSE(status.ok());
    EXPECT_EQ(status.error().describe(), "could not reach the sound server: Connection refused");
    EXPECT_FALSE(capture->isReady());

    engine->setUnavailable(std::nullopt);
    EXPECT_TRUE(capture->prepare().ok());
    EXPECT_TRUE(capture->isReady());
}

TEST_F(AudioCaptureTest, ForwardingOpensAndClosesTheMicrophone)
{
    prepared();
    capture->startForwarding();
    EXPECT_TRUE(engine->isRunning());
    EXPECT_TRUE(capture->isForwarding());
    capture->stopForwarding(true);
    EXPECT_FALSE(engine->isRunning());
    EXPECT_FALSE(capture->isForwarding());
}

TEST_F(AudioCaptureTest, SevenThousandBytesWithFlushGiveTwoFullChunksAndTheRest)
{
    prepared();
    capture->startForwarding();
    engine->playS16(ramp(3500), 1600);
    capture->stopForwarding(true);

    EXPECT_EQ(chunkSizes(), (QList<int> {3200, 3200, 600}));
    EXPECT_EQ(joined(), ramp(3500));
    EXPECT_EQ(capture->lastUtteranceBytes(), 7000);
}

TEST_F(AudioCaptureTest, SevenThousandBytesWithoutFlushGiveOnlyTheFullChunks)
{
    prepared();
    capture->startForwarding();
    engine->playS16(ramp(3500), 1600);
    capture->stopForwarding(false);

    EXPECT_EQ(chunkSizes(), (QList<int> {3200, 3200}));
    EXPECT_EQ(joined(), ramp(3200));
}

TEST_F(AudioCaptureTest, DroppedRemainderDoesNotLeakIntoTheNextUtterance)
{
    prepared();
    capture->startForwarding();
    engine->playS16(ramp(1000), 1000);
    capture->stopForwarding(false);
    capture->startForwarding();
    engine->playS16(ramp(1600, 5000), 1600);
    drain();

    ASSERT_EQ(chunkSizes(), QList<int> {3200});
    EXPECT_EQ(chunks[0], ramp(1600, 5000));
}

TEST_F(AudioCaptureTest, FlushWithNothingPendingDeliversNothing)
{
    prepared();
    capture->startForwarding();
    engine->playS16(ramp(1600), 1600);
    capture->stopForwarding(true);
    EXPECT_EQ(chunkSizes(), QList<int> {3200});
}

TEST_F(AudioCaptureTest, FortyEightKilohertzEmitsAChunkAboutEveryThirdBuffer)
{
    prepared({48000.0, 1});
    capture->startForwarding();
    std::vector<float> buffer(1600);
    for (std::size_t i = 0; i < buffer.size(); ++i) {
        buffer[i] = 0.3f * float(std::sin(2.0 * std::numbers::pi * 300.0 * double(i) / 48000.0));
    }
    for (int i = 0; i < 30; ++i) {
        engine->deliver(buffer.data(), 1600);
        drain();
        // Each buffer adds about 1066 bytes; a chunk leaves as soon as 3200 are there and
        // the remainder waits for the next buffer.
        EXPECT_EQ(chunks.size(), capture->lastUtteranceBytes() / 3200) << "after buffer " << i;
    }

    // One second of audio, less what the resampler's filter still holds: nine chunks, one
    // about every third buffer.
    const qint64 bytes = capture->lastUtteranceBytes();
    EXPECT_LE(bytes, 32000);
    EXPECT_GE(bytes, 32000 - 1440);
    EXPECT_EQ(chunks.size(), 9);
    for (const auto &chunk : chunks) {
        EXPECT_EQ(chunk.size(), 3200);
    }
}

TEST_F(AudioCaptureTest, OddBufferSizesLoseAndRepeatNothing)
{
    prepared();
    capture->startForwarding();
    const QByteArray audio = ramp(1 + 7 + 1601 + 48000 + 3);
    const auto *samples = audio.constData();
    int offset = 0;
    for (int frames : {1, 7, 1601, 48000, 3}) {
        engine->playS16(QByteArray(samples + offset * 2, frames * 2), quint32(frames));
        offset += frames;
    }
    capture->stopForwarding(true);

    EXPECT_EQ(joined(), audio);
    for (int i = 0; i + 1 < chunks.size(); ++i) {
        EXPECT_EQ(chunks[i].size(), 3200);
    }
}

TEST_F(AudioCaptureTest, OddBufferSizesAtFortyEightKilohertzMatchOneBlockConversion)
{
    std::vector<float> stereo(2 * (1 + 7 + 1601 + 48000));
    for (std::size_t frame = 0; frame < stereo.size() / 2; ++frame) {
        stereo[2 * frame]
            = 0.4f * float(std::sin(2.0 * std::numbers::pi * 523.25 * double(frame) / 48000.0));
        stereo[2 * frame + 1] = -0.1f;
    }
    auto reference = PCMConverter::create({48000.0, 2});
    const auto expected = reference->convert({stereo.data(), quint32(stereo.size() / 2), 2}).value()
        + reference->drain().value();

    prepared({48000.0, 2});
    capture->startForwarding();
    std::size_t frame = 0;
    for (quint32 frames : {1u, 7u, 1601u, 48000u}) {
        engine->deliver(stereo.data() + 2 * frame, frames);
        frame += frames;
    }
    capture->stopForwarding(true);

    const QByteArray actual = joined();
    ASSERT_EQ(actual.size(), expected.size());
    int maxDifference = 0;
    for (qsizetype i = 0; i < actual.size(); i += 2) {
        const auto a = qint16(quint16(uchar(actual[i])) | quint16(uchar(actual[i + 1])) << 8);
        const auto b = qint16(quint16(uchar(expected[i])) | quint16(uchar(expected[i + 1])) << 8);
        maxDifference = std::max(maxDifference, std::abs(int(a) - int(b)));
    }
    EXPECT_LE(maxDifference, 1);
}

TEST_F(AudioCaptureTest, ChunksArriveOnTheCaptureQueue)
{
    prepared();
    capture->startForwarding();
    engine->playS16(ramp(4000), 1600);
    capture->stopForwarding(true);
    ASSERT_EQ(chunks.size(), 3);
    EXPECT_TRUE(chunksOnQueue);
}

TEST_F(AudioCaptureTest, LevelRunsOnTheAudioThreadAndChunksOnTheQueue)
{
    prepared();
    std::thread::id levelThread;
    std::thread::id liveThread;
    bool liveOnQueue = false;
    capture->setOnRMS([&](float) { levelThread = std::this_thread::get_id(); });
    capture->setOnCaptureLive([&] {
        liveThread = std::this_thread::get_id();
        liveOnQueue = capture->queue().isCurrent();
    });
    capture->startForwarding();
    std::thread audioThread([&] { engine->playS16(ramp(3200), 1600); });
    const std::thread::id audioThreadId = audioThread.get_id();
    audioThread.join();
    capture->stopForwarding(true);

    EXPECT_EQ(levelThread, audioThreadId);
    EXPECT_TRUE(liveOnQueue);
    EXPECT_NE(liveThread, audioThreadId);
    EXPECT_EQ(chunks.size(), 2);
    EXPECT_TRUE(chunksOnQueue);
}

TEST_F(AudioCaptureTest, LiveSignalFiresOnceOnTheFirstConvertedBuffer)
{
    prepared();
    capture->startForwarding();
    engine->playS16(ramp(100), 100);
    drain();
    EXPECT_EQ(liveCount, 1);
    EXPECT_EQ(chunksWhenLive, QList<int> {0});

    engine->playS16(ramp(4000), 1600);
    capture->stopForwarding(true);
    EXPECT_EQ(liveCount, 1);

    capture->startForwarding();
    engine->playS16(ramp(10), 10);
    drain();
    EXPECT_EQ(liveCount, 2);
}

TEST_F(AudioCaptureTest, NoLiveSignalWhenTheMicrophoneDeliversNothing)
{
    prepared();
    engine->setStartFailure(QStringLiteral("device busy"));
    capture->startForwarding();
    EXPECT_EQ(engine->playS16(ramp(1600), 1600), 0);
    capture->stopForwarding(true);
    EXPECT_EQ(liveCount, 0);
    EXPECT_EQ(capture->lastUtteranceBytes(), 0);
}

TEST_F(AudioCaptureTest, StartFailureIsLoggedAndForwardingIsStillFlagged)
{
    LogCapture log;
    prepared();
    engine->setStartFailure(QStringLiteral("device busy"));
    const auto started = capture->startForwarding();
    ASSERT_FALSE(started.ok());
    EXPECT_EQ(started.error(), AudioCaptureError::microphoneStartFailed("device busy"));
    EXPECT_TRUE(capture->isForwarding());
    EXPECT_TRUE(log.lines().contains("error: could not start mic capture: device busy"));
}

TEST_F(AudioCaptureTest, ForwardingWithoutPreparationIsFlaggedButOpensNothing)
{
    makeCapture();
    EXPECT_TRUE(capture->startForwarding().ok());
    EXPECT_TRUE(capture->isForwarding());
    EXPECT_EQ(engine->startCalls(), 0);
    capture->stopForwarding(true);
    EXPECT_EQ(engine->stopCalls(), 0);
    EXPECT_TRUE(chunks.isEmpty());
}

TEST_F(AudioCaptureTest, PeakLevelAndByteCountCoverTheUtterance)
{
    prepared();
    capture->startForwarding();
    engine->play(std::vector<float>(800, 0.25f), 800);
    engine->play(std::vector<float>(400, 0.5f), 400);
    engine->play(std::vector<float>(800, 0.1f), 800);
    capture->stopForwarding(true);

    EXPECT_FLOAT_EQ(capture->lastUtterancePeakRMS(), 0.5f);
    EXPECT_EQ(capture->lastUtteranceBytes(), 4000);
}

TEST_F(AudioCaptureTest, StartResetsStatisticsEvenWithoutAStop)
{
    prepared();
    capture->startForwarding();
    engine->play(std::vector<float>(1600, 0.5f), 1600);
    drain();
    ASSERT_EQ(liveCount, 1);

    capture->startForwarding();
    EXPECT_EQ(capture->lastUtterancePeakRMS(), 0.0f);
    EXPECT_EQ(capture->lastUtteranceBytes(), 0);
    engine->play(std::vector<float>(100, 0.125f), 100);
    drain();
    EXPECT_EQ(liveCount, 2);
    EXPECT_FLOAT_EQ(capture->lastUtterancePeakRMS(), 0.125f);
    EXPECT_EQ(capture->lastUtteranceBytes(), 200);
}

TEST_F(AudioCaptureTest, LevelIsReportedWheneverTheMicrophoneRunsButAudioOnlyWhileForwarding)
{
    prepared();
    std::vector<float> levels;
    capture->setOnRMS([&](float rms) { levels.push_back(rms); });
    ASSERT_FALSE(engine->start());

    engine->play(std::vector<float>(1600, 0.5f), 1600);
    drain();

    ASSERT_EQ(levels.size(), 1u);
    EXPECT_FLOAT_EQ(levels[0], 0.5f);
    EXPECT_TRUE(chunks.isEmpty());
    EXPECT_EQ(liveCount, 0);
    EXPECT_EQ(capture->lastUtteranceBytes(), 0);
}

TEST_F(AudioCaptureTest, ChunksPostedBeforeTheStopComeBeforeTheFlush)
{
    prepared();
    capture->startForwarding();
    engine->playS16(ramp(1600 * 5 + 123), 1600);
    capture->stopForwarding(true);
    EXPECT_EQ(chunkSizes(), (QList<int> {3200, 3200, 3200, 3200, 3200, 246}));
    EXPECT_EQ(joined(), ramp(1600 * 5 + 123));
}

// The key-up's last audio reaches the engine without waiting for the capture's own thread to
// be scheduled: the stopping thread delivers it, in order, as the queue.
TEST_F(AudioCaptureTest, AFlushDeliversTheLastChunkOnTheStoppingThread)
{
    prepared();
    std::vector<std::thread::id> chunkThreads;
    capture->setOnChunk([&](const QByteArray &chunk) {
        chunks.append(chunk);
        chunksOnQueue = chunksOnQueue && capture->queue().isCurrent();
        chunkThreads.push_back(std::this_thread::get_id());
    });
    capture->startForwarding();
    engine->playS16(ramp(1600 * 2 + 50), 1600);
    capture->stopForwarding(true);
    EXPECT_EQ(chunkSizes(), (QList<int> {3200, 3200, 100}));
    EXPECT_EQ(joined(), ramp(1600 * 2 + 50));
    EXPECT_TRUE(chunksOnQueue);
    ASSERT_EQ(chunkThreads.size(), 3u);
    EXPECT_EQ(chunkThreads.back(), std::this_thread::get_id());
}

TEST_F(AudioCaptureTest, ChosenDeviceIsBound)
{
    LogCapture log;
    hardware.setDevices({device(4, "usb-mic", "USB Mic"), device(5, "other", "Other")});
    makeCapture();
    capture->setInputDevice(QStringLiteral("usb-mic"));
    ASSERT_TRUE(capture->prepare().ok());

    EXPECT_EQ(engine->currentDevice(), 4u);
    EXPECT_EQ(capture->activeDeviceUID(), "usb-mic");
    EXPECT_EQ(capture->desiredDeviceUID(), "usb-mic");
    EXPECT_TRUE(log.lines().contains("info: input device: USB Mic"));
    EXPECT_TRUE(hardware.rateWrites().empty());
}

TEST_F(AudioCaptureTest, BluetoothDeviceIsRaisedToItsBestRate)
{
    LogCapture log;
    auto headset = device(6, "bt-headset", "Headset");
    headset.transport = AudioTransportType::bluetooth;
    headset.sampleRate = 16000.0;
    headset.sampleRates = {{16000.0, 16000.0}, {48000.0, 48000.0}};
    hardware.setDevices({headset});
    makeCapture();
    capture->setInputDevice(QStringLiteral("bt-headset"));
    ASSERT_TRUE(capture->prepare().ok());

    ASSERT_EQ(hardware.rateWrites().size(), 1u);
    EXPECT_EQ(hardware.rateWrites()[0].rateHz, 48000.0);
    const QStringList lines = log.lines();
    const auto raised = lines.indexOf("info: input 'Headset': 48000 Hz (best available)");
    const auto selected = lines.indexOf("info: input device: Headset");
    ASSERT_GE(raised, 0);
    EXPECT_GT(selected, raised);
}

TEST_F(AudioCaptureTest, VanishedDeviceCapturesFromTheDefault)
{
    hardware.setDevices({device(4, "usb-mic", "USB Mic")});
    makeCapture();
    capture->setInputDevice(QStringLiteral("usb-mic"));
    ASSERT_TRUE(capture->prepare().ok());
    ASSERT_EQ(engine->currentDevice(), 4u);

    hardware.removeDevice("usb-mic");
    capture->reconcile({});

    EXPECT_TRUE(capture->isReady());
    EXPECT_EQ(engine->currentDevice(), std::nullopt);
    EXPECT_EQ(capture->activeDeviceUID(), std::nullopt);
    EXPECT_EQ(capture->desiredDeviceUID(), "usb-mic");
}

TEST_F(AudioCaptureTest, ChoosingAnAbsentDeviceBindsTheDefaultAndReconcileMovesBack)
{
    makeCapture();
    capture->setInputDevice(QStringLiteral("usb-mic"));
    ASSERT_TRUE(capture->prepare().ok());
    EXPECT_EQ(capture->activeDeviceUID(), std::nullopt);
    EXPECT_EQ(engine->currentDevice(), std::nullopt);

    hardware.setDevices({device(9, "usb-mic", "USB Mic")});
    capture->reconcile({"usb-mic"});

    EXPECT_EQ(capture->activeDeviceUID(), "usb-mic");
    EXPECT_EQ(engine->currentDevice(), 9u);
    EXPECT_TRUE(capture->isReady());
}

TEST_F(AudioCaptureTest, FailedBindingIsLoggedAndFallsBackToTheDefault)
{
    LogCapture log;
    hardware.setDevices({device(4, "usb-mic", "USB Mic")});
    makeCapture();
    engine->setDeviceStatus(4, -50);
    capture->setInputDevice(QStringLiteral("usb-mic"));

    ASSERT_TRUE(capture->prepare().ok());

    EXPECT_EQ(capture->activeDeviceUID(), std::nullopt);
    EXPECT_EQ(engine->currentDevice(), std::nullopt);
    EXPECT_TRUE(log.lines().contains(
        "error: could not select input 'USB Mic' (OSStatus -50); using default"));
}

TEST_F(AudioCaptureTest, InputWithoutDeviceSelectionUsesTheDefault)
{
    LogCapture log;
    hardware.setDevices({device(4, "usb-mic", "USB Mic")});
    makeCapture();
    engine->setCanSelectDevice(false);
    capture->setInputDevice(QStringLiteral("usb-mic"));

    ASSERT_TRUE(capture->prepare().ok());

    EXPECT_EQ(capture->activeDeviceUID(), std::nullopt);
    EXPECT_TRUE(
        log.lines().contains("error: input node has no audio unit; using system default input"));
}

TEST_F(AudioCaptureTest, DeviceChoiceRebuildsOnlyWhenPrepared)
{
    hardware.setDevices({device(4, "a", "A"), device(5, "b", "B")});
    makeCapture();
    capture->setInputDevice(QStringLiteral("a"));
    EXPECT_EQ(engine->installTapCalls(), 0);
    ASSERT_TRUE(capture->prepare().ok());

    capture->setInputDevice(QStringLiteral("b"));

    EXPECT_EQ(engine->removeTapCalls(), 1);
    EXPECT_EQ(engine->installTapCalls(), 2);
    EXPECT_EQ(engine->currentDevice(), 5u);
    EXPECT_EQ(capture->activeDeviceUID(), "b");

    capture->setInputDevice(std::nullopt);
    EXPECT_EQ(engine->currentDevice(), std::nullopt);
    EXPECT_EQ(capture->activeDeviceUID(), std::nullopt);
}

TEST_F(AudioCaptureTest, ReconcileRebuildsOnlyOnAMismatch)
{
    hardware.setDevices({device(4, "a", "A")});
    makeCapture();

    // Not prepared: nothing happens whatever the list says.
    capture->reconcile({"x"});
    EXPECT_EQ(engine->installTapCalls(), 0);

    ASSERT_TRUE(capture->prepare().ok());
    // No choice, bound to the default: nothing to do.
    capture->reconcile({"a"});
    EXPECT_EQ(engine->installTapCalls(), 1);

    capture->setInputDevice(QStringLiteral("a"));
    ASSERT_EQ(engine->installTapCalls(), 2);
    // Choice present and bound: nothing to do.
    capture->reconcile({"a", "b"});
    EXPECT_EQ(engine->installTapCalls(), 2);

    // Choice gone while bound to it: back to the default.
    hardware.removeDevice("a");
    capture->reconcile({"b"});
    EXPECT_EQ(engine->installTapCalls(), 3);
    EXPECT_EQ(capture->activeDeviceUID(), std::nullopt);

    // Choice still gone, already on the default: nothing to do.
    capture->reconcile({"b"});
    EXPECT_EQ(engine->installTapCalls(), 3);

    // Choice back: rebind.
    hardware.addDevice(device(8, "a", "A"));
    capture->reconcile({"a", "b"});
    EXPECT_EQ(engine->installTapCalls(), 4);
    EXPECT_EQ(capture->activeDeviceUID(), "a");
    EXPECT_EQ(engine->currentDevice(), 8u);
}

TEST_F(AudioCaptureTest, FailedRebuildIsLoggedAndLeavesTheCaptureUnprepared)
{
    LogCapture log;
    hardware.setDevices({device(4, "a", "A")});
    prepared();
    engine->setFormat({0.0, 0});

    capture->rebuild();

    EXPECT_FALSE(capture->isReady());
    EXPECT_FALSE(engine->hasTap());
    EXPECT_TRUE(log.lines().contains(QString::fromUtf8(
        "error: audio device switch failed: input node reported an unusable format (0.0 Hz, 0 "
        "ch) \u2014 mic permission not granted, or no input device")));

    engine->setFormat({16000.0, 1});
    EXPECT_TRUE(capture->prepare().ok());
}

TEST_F(AudioCaptureTest, RebuildWhileForwardingLeavesTheMicrophoneClosed)
{
    prepared();
    capture->startForwarding();
    ASSERT_TRUE(engine->isRunning());

    capture->rebuild();

    EXPECT_TRUE(capture->isReady());
    EXPECT_FALSE(engine->isRunning());
    EXPECT_TRUE(capture->isForwarding());
    EXPECT_EQ(engine->startCalls(), 1);
}

TEST_F(AudioCaptureTest, ANewDefaultInputRebuildsACaptureThatFollowsTheDefault)
{
    prepared();
    engine->setFormat({44100.0, 2});

    capture->followDefaultInput();

    EXPECT_TRUE(capture->isReady());
    EXPECT_EQ(engine->installTapCalls(), 2);
    EXPECT_EQ(engine->currentDevice(), std::nullopt);
    EXPECT_EQ(engine->tapFormat(), (AudioStreamFormat {44100.0, 2}));
    EXPECT_FALSE(engine->isRunning());
}

TEST_F(AudioCaptureTest, ANewDefaultInputLeavesAChosenDeviceBound)
{
    hardware.setDevices({device(4, "usb-mic", "USB Mic")});
    makeCapture();
    capture->setInputDevice(QStringLiteral("usb-mic"));
    ASSERT_TRUE(capture->prepare().ok());

    capture->followDefaultInput();

    EXPECT_EQ(engine->installTapCalls(), 1);
    EXPECT_EQ(engine->currentDevice(), 4u);
}

TEST_F(AudioCaptureTest, ANewDefaultInputBeforePreparationWaitsForIt)
{
    makeCapture();
    capture->followDefaultInput();
    EXPECT_EQ(engine->installTapCalls(), 0);
    EXPECT_FALSE(capture->isReady());
}

TEST_F(AudioCaptureTest, ANewDefaultInputDuringAnUtteranceKeepsItGoingOnTheNewInput)
{
    prepared();
    capture->startForwarding();
    engine->playS16(ramp(1600), 320);

    engine->setFormat({16000.0, 2});
    capture->followDefaultInput();

    ASSERT_TRUE(engine->isRunning());
    EXPECT_EQ(engine->startCalls(), 2);
    // The same ramp on both channels of the new input comes out unchanged as mono.
    QByteArray stereo;
    const QByteArray mono = ramp(1600, 1600);
    for (int i = 0; i < mono.size(); i += 2) {
        stereo.append(mono.mid(i, 2));
        stereo.append(mono.mid(i, 2));
    }
    engine->playS16(stereo, 320);
    capture->stopForwarding(true);
    EXPECT_EQ(capture->lastUtteranceBytes(), 6400);
    EXPECT_TRUE(joined() == ramp(1600) + mono);
}

TEST_F(AudioCaptureTest, HundredMillisecondBuffersGiveWholeChunksAndALevelForEach)
{
    // The shortest buffers some sound systems deliver, at 48 kHz stereo: 4800 frames.
    prepared({48000.0, 2});
    QList<float> levels;
    capture->setOnRMS([&](float rms) { levels.append(rms); });
    capture->startForwarding();
    std::vector<float> buffer(4800 * 2);
    for (std::size_t frame = 0; frame < 4800; ++frame) {
        const auto value
            = 0.3f * float(std::sin(2.0 * std::numbers::pi * 300.0 * double(frame) / 48000.0));
        buffer[2 * frame] = value;
        buffer[2 * frame + 1] = value;
    }
    for (int i = 0; i < 10; ++i) {
        ASSERT_TRUE(engine->deliver(buffer.data(), 4800));
    }
    capture->stopForwarding(true);

    ASSERT_EQ(levels.size(), 10);
    for (const float level : levels) {
        EXPECT_NEAR(level, 0.3f / std::sqrt(2.0f), 0.01f);
    }
    // One second of audio, flushed: about 32000 bytes in whole chunks and the rest.
    const qint64 bytes = capture->lastUtteranceBytes();
    EXPECT_NEAR(double(bytes), 32000.0, 100.0);
    EXPECT_EQ(joined().size(), bytes);
    ASSERT_GE(chunks.size(), 9);
    for (int i = 0; i < 9; ++i) {
        EXPECT_EQ(chunks[i].size(), 3200);
    }
}

TEST_F(AudioCaptureTest, ARefusedTapFailsPreparationWithTheReasonAndALaterOneSucceeds)
{
    makeCapture();
    engine->setTapFailure(QStringLiteral("format mismatch"));

    const auto status = capture->prepare();

    ASSERT_FALSE(status.ok());
    EXPECT_EQ(status.error(), AudioCaptureError::tapRefused(QStringLiteral("format mismatch")));
    EXPECT_EQ(status.error().describe(),
        QStringLiteral("the sound system refused the capture tap: format mismatch"));
    EXPECT_FALSE(capture->isReady());
    capture->startForwarding();
    EXPECT_EQ(engine->startCalls(), 0);
    capture->stopForwarding(false);

    engine->setTapFailure(std::nullopt);
    EXPECT_TRUE(capture->prepare().ok());
    EXPECT_TRUE(engine->hasTap());
}

TEST_F(AudioCaptureTest, AnInterruptionIsPassedOnFromTheSoundSystemsThread)
{
    prepared();
    QString heard;
    std::thread::id heardOn;
    capture->setOnInterrupted([&](const QString &reason) {
        heard = reason;
        heardOn = std::this_thread::get_id();
    });
    capture->startForwarding();
    std::thread soundSystem([&] { engine->interrupt(QStringLiteral("device gone")); });
    const auto soundSystemId = soundSystem.get_id();
    soundSystem.join();

    EXPECT_EQ(heard, QStringLiteral("device gone"));
    EXPECT_EQ(heardOn, soundSystemId);

    capture->setOnInterrupted({});
    heard.clear();
    engine->interrupt(QStringLiteral("again"));
    EXPECT_TRUE(heard.isEmpty());
}

TEST_F(AudioCaptureTest, RecoveringDuringAnUtteranceReopensTheMicrophoneInTheNewFormat)
{
    prepared();
    capture->startForwarding();
    engine->playS16(ramp(1600), 320);
    engine->setFormat({48000.0, 1});
    engine->interrupt(QStringLiteral("configuration changed"));
    ASSERT_FALSE(engine->isRunning());

    capture->recover();

    EXPECT_TRUE(engine->isRunning());
    EXPECT_EQ(engine->startCalls(), 2);
    EXPECT_EQ(engine->tapFormat(), (AudioStreamFormat {48000.0, 1}));
    EXPECT_EQ(engine->playS16(ramp(4800, 3), 960), 5);
    capture->stopForwarding(true);
    EXPECT_GT(capture->lastUtteranceBytes(), 3200 + 3000);
    EXPECT_EQ(joined().left(3200), ramp(1600));
}

TEST_F(AudioCaptureTest, RecoveringWhileIdleRebuildsForANewFormatAndKeepsTheMicrophoneClosed)
{
    prepared();
    engine->setFormat({44100.0, 2});

    capture->recover();

    EXPECT_EQ(engine->installTapCalls(), 2);
    EXPECT_EQ(engine->tapFormat(), (AudioStreamFormat {44100.0, 2}));
    EXPECT_FALSE(engine->isRunning());
    EXPECT_EQ(engine->startCalls(), 0);
}

TEST_F(AudioCaptureTest, RecoveringWhenNothingChangedLeavesTheCaptureAlone)
{
    // A rebuild makes the sound system report a configuration change of its own; answering
    // that with another rebuild would never end.
    prepared();
    capture->recover();
    EXPECT_EQ(engine->installTapCalls(), 1);

    capture->startForwarding();
    capture->recover();
    EXPECT_EQ(engine->installTapCalls(), 1);
    EXPECT_EQ(engine->startCalls(), 1);
    capture->stopForwarding(false);
}
