#include "audio/AudioCapture.h"
#include "audio/AudioDeviceObserver.h"
#include "audio/AudioDevices.h"
#include "audio/AudioPlatform.h"
#include "support/audio/pulse/PulseAudioServer.h"

#include <QElapsedTimer>
#include <QMutex>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <numbers>

using namespace sayvo;
using sayvo::test::PulseAudioServer;

namespace {

// 16-bit little-endian samples counting up from `first`: a lost, repeated or reordered
// sample shows.
QByteArray ramp(int samples, int first = 0)
{
    QByteArray bytes;
    for (int i = 0; i < samples; ++i) {
        const auto value = quint16(qint16(first + i * 7));
        bytes.append(char(value & 0xff));
        bytes.append(char(value >> 8));
    }
    return bytes;
}

std::vector<qint16> samplesOf(const QByteArray &bytes)
{
    std::vector<qint16> samples(std::size_t(bytes.size() / 2));
    const auto *data = reinterpret_cast<const uchar *>(bytes.constData());
    for (std::size_t i = 0; i < samples.size(); ++i) {
        samples[i] = qint16(quint16(data[2 * i]) | quint16(data[2 * i + 1]) << 8);
    }
    return samples;
}

class PulseAudioCaptureTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(server.start()) << server.error().toStdString();
        server.useForThisProcess();
    }

    void makeCapture()
    {
        hardware = createAudioHardware();
        capture = std::make_unique<AudioCapture>(createAudioInputEngine(), *hardware);
        capture->setOnChunk([this](const QByteArray &chunk) {
            QMutexLocker lock(&mutex);
            chunks.append(chunk);
        });
        capture->setOnCaptureLive([this] {
            QMutexLocker lock(&mutex);
            ++liveCount;
        });
    }

    // Waits until the capture has converted at least `bytes` and then no more arrive.
    bool waitForBytes(qint64 bytes)
    {
        if (!QTest::qWaitFor([&] { return capture->lastUtteranceBytes() >= bytes; }, 10000)) {
            return false;
        }
        qint64 previous = -1;
        while (previous != capture->lastUtteranceBytes()) {
            previous = capture->lastUtteranceBytes();
            QTest::qWait(150);
        }
        return true;
    }

    QByteArray takeAll()
    {
        QMutexLocker lock(&mutex);
        QByteArray all;
        for (const auto &chunk : chunks) {
            all += chunk;
        }
        chunks.clear();
        return all;
    }

    PulseAudioServer server;
    std::unique_ptr<AudioHardware> hardware;
    std::unique_ptr<AudioCapture> capture;
    QMutex mutex;
    QList<QByteArray> chunks;
    int liveCount = 0;
};

} // namespace

TEST_F(PulseAudioCaptureTest, SixteenKilohertzMonoArrivesByteExact)
{
    auto mic = server.addMicrophone("mic16", 16000, 1, "Desk Microphone");
    ASSERT_TRUE(mic);
    makeCapture();
    capture->setInputDevice(QStringLiteral("mic16"));
    ASSERT_TRUE(capture->prepare().ok());
    EXPECT_EQ(capture->activeDeviceUID(), "mic16");

    capture->startForwarding();
    const QByteArray audio = ramp(16000 + 1234);
    mic->play(audio);
    ASSERT_TRUE(waitForBytes(audio.size()));
    capture->stopForwarding(true);

    const QByteArray captured = takeAll();
    EXPECT_EQ(captured.size(), audio.size());
    EXPECT_TRUE(captured == audio);
    EXPECT_EQ(capture->lastUtteranceBytes(), audio.size());
    EXPECT_EQ(liveCount, 1);
}

TEST_F(PulseAudioCaptureTest, FortyEightKilohertzStereoSineKeepsFrequencyAndDuration)
{
    auto mic = server.addMicrophone("mic48", 48000, 2, "Studio Microphone");
    ASSERT_TRUE(mic);
    makeCapture();
    capture->setInputDevice(QStringLiteral("mic48"));
    ASSERT_TRUE(capture->prepare().ok());

    QByteArray audio;
    for (int frame = 0; frame < 48000; ++frame) {
        const auto value = quint16(qint16(
            std::lround(12000.0 * std::sin(2.0 * std::numbers::pi * 440.0 * frame / 48000.0))));
        for (int channel = 0; channel < 2; ++channel) {
            audio.append(char(value & 0xff));
            audio.append(char(value >> 8));
        }
    }
    capture->startForwarding();
    mic->play(audio);
    // One second at 16 kHz is 32000 bytes, less what the resampler's filter still holds.
    ASSERT_TRUE(waitForBytes(32000 - 1440));
    capture->stopForwarding(true);

    const auto samples = samplesOf(takeAll());
    EXPECT_LE(samples.size(), 16000u);
    EXPECT_GE(samples.size(), 16000u - 720u);
    std::vector<std::size_t> crossings;
    for (std::size_t i = 400; i < samples.size(); ++i) {
        if (samples[i - 1] < 0 && samples[i] >= 0) {
            crossings.push_back(i);
        }
    }
    ASSERT_GE(crossings.size(), 100u);
    const double frequency
        = double(crossings.size() - 1) * 16000.0 / double(crossings.back() - crossings.front());
    EXPECT_NEAR(frequency, 440.0, 1.0);
    int peak = 0;
    for (std::size_t i = 400; i < samples.size(); ++i) {
        peak = std::max(peak, std::abs(int(samples[i])));
    }
    EXPECT_NEAR(peak, 12000, 400);
}

TEST_F(PulseAudioCaptureTest, ASpeakerMonitorIsNeverTheMicrophone)
{
    // The server has only its null sink: its monitor is what @DEFAULT_SOURCE@ names now.
    makeCapture();
    const auto status = capture->prepare();
    ASSERT_FALSE(status.ok());
    EXPECT_EQ(status.error().kind, AudioCaptureError::Kind::invalidInputFormat);
    EXPECT_EQ(server.recordStreamCount(), 0);

    // With a microphone present but the monitor still the server's default, the microphone
    // is what is recorded.
    auto mic = server.addMicrophone("mic16", 16000, 1, "Desk Microphone");
    ASSERT_TRUE(mic);
    ASSERT_TRUE(server.setDefaultSource("null.monitor"));
    ASSERT_TRUE(capture->prepare().ok());
    capture->startForwarding();
    const QByteArray audio = ramp(4000, 5);
    mic->play(audio);
    ASSERT_TRUE(waitForBytes(audio.size()));
    capture->stopForwarding(true);
    EXPECT_TRUE(takeAll() == audio);
}

TEST_F(PulseAudioCaptureTest, NoRecordStreamWhileNotForwarding)
{
    auto mic = server.addMicrophone("mic16", 16000, 1, "Desk Microphone");
    ASSERT_TRUE(mic);
    makeCapture();
    ASSERT_TRUE(capture->prepare().ok());
    EXPECT_EQ(server.recordStreamCount(), 0);

    capture->startForwarding();
    EXPECT_EQ(server.recordStreamCount(), 1);
    capture->stopForwarding(true);
    EXPECT_EQ(server.recordStreamCount(), 0);

    capture->startForwarding();
    EXPECT_EQ(server.recordStreamCount(), 1);
    capture->rebuild();
    EXPECT_EQ(server.recordStreamCount(), 0);
    capture->stopForwarding(false);
    EXPECT_EQ(server.recordStreamCount(), 0);
}

TEST_F(PulseAudioCaptureTest, VanishedDeviceCapturesFromTheDefaultAndReconcileMovesBack)
{
    auto desk = server.addMicrophone("desk", 16000, 1, "Desk Microphone");
    ASSERT_TRUE(desk);
    ASSERT_TRUE(server.setDefaultSource("desk"));
    makeCapture();
    capture->setInputDevice(QStringLiteral("usb_mic"));
    ASSERT_TRUE(capture->prepare().ok());
    EXPECT_EQ(capture->activeDeviceUID(), std::nullopt);

    capture->startForwarding();
    const QByteArray fromDesk = ramp(4000, 1);
    desk->play(fromDesk);
    ASSERT_TRUE(waitForBytes(fromDesk.size()));
    capture->stopForwarding(true);
    EXPECT_TRUE(takeAll() == fromDesk);

    auto usb = server.addMicrophone("usb_mic", 16000, 1, "USB Microphone");
    ASSERT_TRUE(usb);
    QSet<QString> available;
    for (const auto &device : AudioDevices::inputDevices(*hardware)) {
        available.insert(device.uid);
    }
    capture->reconcile(available);
    EXPECT_EQ(capture->activeDeviceUID(), "usb_mic");

    capture->startForwarding();
    const QByteArray fromUsb = ramp(4000, 3);
    usb->play(fromUsb);
    ASSERT_TRUE(waitForBytes(fromUsb.size()));
    capture->stopForwarding(true);
    EXPECT_TRUE(takeAll() == fromUsb);
}

TEST_F(PulseAudioCaptureTest, SystemDefaultFollowsTheServersNewDefaultSource)
{
    auto desk = server.addMicrophone("desk", 16000, 1, "Desk Microphone");
    auto headset = server.addMicrophone("headset", 16000, 1, "Headset Microphone");
    ASSERT_TRUE(desk && headset);
    ASSERT_TRUE(server.setDefaultSource("desk"));
    makeCapture();
    AudioDeviceObserver observer(*hardware);
    QObject::connect(&observer, &AudioDeviceObserver::defaultInputChanged,
        [this] { capture->followDefaultInput(); });
    QSignalSpy followed(&observer, &AudioDeviceObserver::defaultInputChanged);
    ASSERT_TRUE(capture->prepare().ok());

    // The user picks the headset as the system's input, as a desktop's sound settings would.
    ASSERT_EQ(server.pactl({"set-default-source", "headset"}).exitCode, 0);
    ASSERT_TRUE(followed.wait(5000));
    EXPECT_TRUE(capture->isReady());
    EXPECT_EQ(capture->activeDeviceUID(), std::nullopt);

    capture->startForwarding();
    const QByteArray audio = ramp(8000, 11);
    headset->play(audio);
    ASSERT_TRUE(waitForBytes(audio.size()));
    capture->stopForwarding(true);
    EXPECT_TRUE(takeAll() == audio);
}

TEST_F(PulseAudioCaptureTest, AStreamTheServerEndsIsAnInterruptionAndTheUtteranceGoesOn)
{
    auto mic = server.addMicrophone("mic16", 16000, 1, "Desk Microphone");
    ASSERT_TRUE(mic);
    makeCapture();
    // Rebuilt on the owner's thread, as the application does.
    QObject owner;
    std::atomic<int> interruptions {0};
    capture->setOnInterrupted([&](const QString &) {
        ++interruptions;
        QMetaObject::invokeMethod(
            &owner, [this] { capture->recover(); }, Qt::QueuedConnection);
    });
    ASSERT_TRUE(capture->prepare().ok());
    capture->startForwarding();
    const QByteArray before = ramp(4000, 1);
    mic->play(before);
    ASSERT_TRUE(waitForBytes(before.size()));

    // The user ends the recording in a sound mixer (or the server drops it).
    ASSERT_TRUE(server.killRecordStreams());
    ASSERT_TRUE(QTest::qWaitFor([&] { return interruptions == 1; }, 5000));
    ASSERT_TRUE(QTest::qWaitFor([&] { return server.recordStreamCount() == 1; }, 5000));

    const QByteArray after = ramp(4000, 30000);
    mic->play(after);
    ASSERT_TRUE(waitForBytes(before.size() + after.size()));
    capture->stopForwarding(true);
    EXPECT_TRUE(takeAll() == before + after);
    EXPECT_EQ(interruptions, 1);
    EXPECT_EQ(server.recordStreamCount(), 0);
}

TEST_F(PulseAudioCaptureTest, NoServerFailsPromptlyAndAServerThatComesBackIsUsed)
{
    server.stop();
    makeCapture();

    QElapsedTimer timer;
    timer.start();
    const auto status = capture->prepare();
    EXPECT_LT(timer.elapsed(), 2000);
    ASSERT_FALSE(status.ok());
    EXPECT_EQ(status.error().kind, AudioCaptureError::Kind::soundServerUnavailable);
    EXPECT_TRUE(status.error().describe().startsWith("could not reach the sound server: "))
        << status.error().describe().toStdString();
    EXPECT_FALSE(capture->isReady());

    ASSERT_TRUE(server.start()) << server.error().toStdString();
    auto mic = server.addMicrophone("mic16", 16000, 1, "Desk Microphone");
    ASSERT_TRUE(mic);
    ASSERT_TRUE(capture->prepare().ok());
    capture->startForwarding();
    const QByteArray audio = ramp(3200);
    mic->play(audio);
    ASSERT_TRUE(waitForBytes(audio.size()));
    capture->stopForwarding(true);
    EXPECT_TRUE(takeAll() == audio);
}

TEST_F(PulseAudioCaptureTest, ServerThatGoesAwayMidUtteranceNeitherHangsNorCrashes)
{
    auto mic = server.addMicrophone("mic16", 16000, 1, "Desk Microphone");
    ASSERT_TRUE(mic);
    makeCapture();
    ASSERT_TRUE(capture->prepare().ok());
    capture->startForwarding();
    mic->play(ramp(1600));
    ASSERT_TRUE(waitForBytes(3200));

    server.stop();
    QElapsedTimer timer;
    timer.start();
    capture->stopForwarding(true);
    capture->startForwarding();
    capture->stopForwarding(false);
    capture->rebuild();
    EXPECT_LT(timer.elapsed(), 2000);
    EXPECT_FALSE(capture->isReady());

    ASSERT_TRUE(server.start()) << server.error().toStdString();
    mic = server.addMicrophone("mic16", 16000, 1, "Desk Microphone");
    ASSERT_TRUE(mic);
    ASSERT_TRUE(capture->prepare().ok());
    capture->startForwarding();
    EXPECT_EQ(server.recordStreamCount(), 1);
    const QByteArray audio = ramp(3200, 11);
    takeAll();
    mic->play(audio);
    ASSERT_TRUE(waitForBytes(audio.size()));
    capture->stopForwarding(true);
    EXPECT_TRUE(takeAll() == audio);
}
