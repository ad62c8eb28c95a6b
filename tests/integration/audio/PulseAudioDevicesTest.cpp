#include "audio/AudioDeviceObserver.h"
#include "audio/AudioDevices.h"
#include "audio/AudioPlatform.h"
#include "support/audio/pulse/PulseAudioServer.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

#include <atomic>

using namespace sayvo;
using sayvo::test::PulseAudioServer;

namespace {

QStringList uids(const AudioInputDeviceList &devices)
{
    QStringList result;
    for (const auto &device : devices) {
        result << device.uid;
    }
    return result;
}

class PulseAudioDevicesTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(server.start()) << server.error().toStdString();
        server.useForThisProcess();
    }

    PulseAudioServer server;
};

} // namespace

TEST_F(PulseAudioDevicesTest, ListsTheMicrophonesWithNamesRatesAndTheBluetoothFlag)
{
    auto mic16 = server.addMicrophone("mic16", 16000, 1, "Desk Microphone");
    auto mic48 = server.addMicrophone("mic48", 48000, 2, "Studio Microphone");
    auto headset = server.addMicrophone("bt_headset", 16000, 1, "Headset", "device.bus=bluetooth");
    ASSERT_TRUE(mic16 && mic48 && headset);
    auto hardware = createAudioHardware();

    const auto devices = AudioDevices::inputDevices(*hardware);

    // The null sink's monitor is there too, but hidden.
    ASSERT_EQ(uids(devices), (QStringList {"mic16", "mic48", "bt_headset"}));
    EXPECT_EQ(devices[0].name, "Desk Microphone");
    EXPECT_EQ(devices[0].sampleRate, 16000.0);
    EXPECT_FALSE(devices[0].isBluetooth);
    EXPECT_EQ(devices[1].name, "Studio Microphone");
    EXPECT_EQ(devices[1].sampleRate, 48000.0);
    EXPECT_FALSE(devices[1].isBluetooth);
    EXPECT_EQ(devices[2].name, "Headset");
    EXPECT_TRUE(devices[2].isBluetooth);

    const auto found = AudioDevices::inputDevice(*hardware, "mic48");
    ASSERT_TRUE(found);
    EXPECT_EQ(*found, devices[1]);
    EXPECT_FALSE(AudioDevices::inputDevice(*hardware, "null.monitor"));
    // The server chooses a source's rate; the raise leaves it where it is.
    EXPECT_EQ(AudioDevices::raiseToHighestSampleRate(*hardware, devices[2].id), 16000.0);
}

TEST_F(PulseAudioDevicesTest, LoadingAndUnloadingAMicrophonePublishesOneListEach)
{
    auto hardware = createAudioHardware();
    AudioDeviceObserver observer(*hardware);
    EXPECT_TRUE(observer.devices().isEmpty());
    QSignalSpy spy(&observer, &AudioDeviceObserver::devicesChanged);

    auto mic = server.addMicrophone("usb_mic", 48000, 1, "USB Microphone");
    ASSERT_TRUE(mic);
    ASSERT_TRUE(spy.wait(5000));
    QTest::qWait(700);
    ASSERT_EQ(spy.size(), 1);
    EXPECT_EQ(uids(observer.devices()), QStringList {"usb_mic"});

    ASSERT_TRUE(server.unloadModule(mic->moduleIndex()));
    ASSERT_TRUE(spy.wait(5000));
    QTest::qWait(700);
    EXPECT_EQ(spy.size(), 2);
    EXPECT_TRUE(observer.devices().isEmpty());
}

TEST_F(PulseAudioDevicesTest, UnrelatedChangePublishesNothing)
{
    auto mic = server.addMicrophone("mic16", 16000, 1, "Desk Microphone");
    ASSERT_TRUE(mic);
    auto hardware = createAudioHardware();
    AudioDeviceObserver observer(*hardware);
    ASSERT_EQ(uids(observer.devices()), QStringList {"mic16"});
    QSignalSpy spy(&observer, &AudioDeviceObserver::devicesChanged);

    // A new output brings a new (hidden) monitor source and source events with it.
    ASSERT_TRUE(server.loadModule("module-null-sink", "sink_name=speakers"));
    ASSERT_EQ(server.pactl({"set-source-volume", "mic16", "50%"}).exitCode, 0);
    // Only the list is watched: another default input alone is no change of it.
    ASSERT_TRUE(server.setDefaultSource("speakers.monitor"));

    EXPECT_FALSE(spy.wait(1000));
    EXPECT_EQ(uids(observer.devices()), QStringList {"mic16"});
}

TEST_F(PulseAudioDevicesTest, VolumeAndMuteChangesAreNoDeviceListChange)
{
    auto mic = server.addMicrophone("mic16", 16000, 1, "Desk Microphone");
    ASSERT_TRUE(mic);
    auto hardware = createAudioHardware();
    std::atomic<int> notifications {0};
    const auto listener = hardware->addDeviceListListener([&] { ++notifications; });
    // The first connection to the server counts as a change of its own.
    notifications = 0;

    for (const char *volume : {"40%", "60%", "80%"}) {
        ASSERT_EQ(server.pactl({"set-source-volume", "mic16", volume}).exitCode, 0);
    }
    ASSERT_EQ(server.pactl({"set-source-mute", "mic16", "1"}).exitCode, 0);
    // A real change after them: the server reports events in order, so once it is heard
    // the volume events have been handled too.
    auto second = server.addMicrophone("usb_mic", 48000, 1, "USB Microphone");
    ASSERT_TRUE(second);
    ASSERT_TRUE(QTest::qWaitFor([&] { return notifications > 0; }, 5000));
    QTest::qWait(300);
    EXPECT_EQ(notifications, 1);
    hardware->removeDeviceListListener(listener);
}

TEST_F(PulseAudioDevicesTest, ServerThatGoesAwayEmptiesTheList)
{
    auto mic = server.addMicrophone("mic16", 16000, 1, "Desk Microphone");
    ASSERT_TRUE(mic);
    auto hardware = createAudioHardware();
    AudioDeviceObserver observer(*hardware);
    ASSERT_EQ(observer.devices().size(), 1);
    QSignalSpy spy(&observer, &AudioDeviceObserver::devicesChanged);

    server.stop();

    ASSERT_TRUE(spy.wait(5000));
    EXPECT_TRUE(observer.devices().isEmpty());
}

TEST_F(PulseAudioDevicesTest, ServerThatComesBackIsPublishedAgain)
{
    auto hardware = createAudioHardware();
    AudioDeviceObserver observer(*hardware);
    QSignalSpy spy(&observer, &AudioDeviceObserver::devicesChanged);
    server.stop();
    QTest::qWait(300);
    EXPECT_TRUE(spy.isEmpty());

    ASSERT_TRUE(server.start()) << server.error().toStdString();
    auto mic = server.addMicrophone("mic16", 16000, 1, "Desk Microphone");
    ASSERT_TRUE(mic);

    ASSERT_TRUE(QTest::qWaitFor([&] { return observer.devices().size() == 1; }, 5000));
    EXPECT_EQ(observer.devices()[0].uid, "mic16");
}

TEST(PulseAudioWithoutServerTest, ObserverStartsEmptyAndPicksUpAServerThatStartsLater)
{
    QTemporaryDir nowhere;
    qputenv("PULSE_SERVER", "unix:" + nowhere.filePath("native").toUtf8());
    auto hardware = createAudioHardware();
    AudioDeviceObserver observer(*hardware);
    EXPECT_TRUE(observer.devices().isEmpty());

    PulseAudioServer server;
    ASSERT_TRUE(server.start()) << server.error().toStdString();
    auto mic = server.addMicrophone("mic16", 16000, 1, "Desk Microphone");
    ASSERT_TRUE(mic);
    server.useForThisProcess();

    ASSERT_TRUE(QTest::qWaitFor([&] { return observer.devices().size() == 1; }, 5000));
    EXPECT_EQ(observer.devices()[0].name, "Desk Microphone");
}

TEST_F(PulseAudioDevicesTest, ANewDefaultSourceIsADefaultInputChangeAndNothingElseIs)
{
    auto desk = server.addMicrophone("desk", 16000, 1, "Desk Microphone");
    auto headset = server.addMicrophone("headset", 16000, 1, "Headset Microphone");
    ASSERT_TRUE(desk && headset);
    ASSERT_TRUE(server.setDefaultSource("desk"));
    auto hardware = createAudioHardware();
    std::atomic<int> notifications {0};
    const auto listener = hardware->addDefaultInputListener([&] { ++notifications; });
    // Answered in order after the first look at the default, which is no change.
    ASSERT_TRUE(hardware->deviceIds());

    // Setting the same default again, a volume step and a new device leave it where it was.
    ASSERT_TRUE(server.setDefaultSource("desk"));
    ASSERT_EQ(server.pactl({"set-source-volume", "desk", "50%"}).exitCode, 0);
    auto usb = server.addMicrophone("usb_mic", 48000, 1, "USB Microphone");
    ASSERT_TRUE(usb);
    // Another default is a change; the server reports events in order, so once it is heard
    // the ones before it have been handled too.
    ASSERT_TRUE(server.setDefaultSource("headset"));
    ASSERT_TRUE(QTest::qWaitFor([&] { return notifications > 0; }, 5000));
    QTest::qWait(300);
    EXPECT_EQ(notifications, 1);

    hardware->removeDefaultInputListener(listener);
    ASSERT_TRUE(server.setDefaultSource("desk"));
    QTest::qWait(300);
    EXPECT_EQ(notifications, 1);
}
