#include "audio/AudioDevices.h"
#include "support/audio/FakeAudioHardware.h"

#include <gtest/gtest.h>

using namespace sayvo;

namespace {

FakeAudioDevice mic(AudioObjectId id, const QString &uid, const QString &name = "Mic")
{
    FakeAudioDevice device;
    device.id = id;
    device.uid = uid;
    device.name = name;
    return device;
}

QStringList uids(const AudioInputDeviceList &devices)
{
    QStringList result;
    for (const auto &device : devices) {
        result << device.uid;
    }
    return result;
}

} // namespace

TEST(AudioDevicesTest, ListsInputDevicesInSystemOrderWithTheirProperties)
{
    FakeAudioHardware hardware;
    auto usb = mic(7, "usb-mic", "USB Microphone");
    usb.transport = AudioTransportType::usb;
    usb.sampleRate = 44100.0;
    auto builtIn = mic(3, "built-in", "MacBook Microphone");
    hardware.setDevices({usb, builtIn});

    const auto devices = AudioDevices::inputDevices(hardware);

    ASSERT_EQ(devices.size(), 2);
    EXPECT_EQ(devices[0], (AudioInputDevice {7, "usb-mic", "USB Microphone", false, 44100.0}));
    EXPECT_EQ(devices[1], (AudioInputDevice {3, "built-in", "MacBook Microphone", false, 48000.0}));
}

TEST(AudioDevicesTest, OutputOnlyDeviceNeverAppears)
{
    FakeAudioHardware hardware;
    auto speakers = mic(1, "speakers", "Speakers");
    speakers.inputChannels = 0;
    hardware.setDevices({speakers, mic(2, "mic")});

    EXPECT_EQ(uids(AudioDevices::inputDevices(hardware)), QStringList {"mic"});
}

TEST(AudioDevicesTest, SystemDefaultAggregateIsHidden)
{
    FakeAudioHardware hardware;
    auto aggregate = mic(1, "CADefaultDeviceAggregate-1234-0", "Default");
    aggregate.transport = AudioTransportType::aggregate;
    auto byName = mic(2, "some-uid", "CADefaultDeviceAggregate-99");
    byName.transport = AudioTransportType::aggregate;
    hardware.setDevices({aggregate, byName, mic(3, "mic")});

    EXPECT_EQ(uids(AudioDevices::inputDevices(hardware)), QStringList {"mic"});
}

TEST(AudioDevicesTest, UserMadeAggregateIsListedUnlessMarkedPrivate)
{
    FakeAudioHardware hardware;
    auto userAggregate = mic(1, "my-aggregate", "Podcast Rig");
    userAggregate.transport = AudioTransportType::aggregate;
    auto declaredPublic = mic(2, "public-aggregate");
    declaredPublic.transport = AudioTransportType::aggregate;
    declaredPublic.aggregatePrivate = false;
    auto privateAggregate = mic(3, "app-private");
    privateAggregate.transport = AudioTransportType::aggregate;
    privateAggregate.aggregatePrivate = true;
    hardware.setDevices({userAggregate, declaredPublic, privateAggregate});

    EXPECT_EQ(uids(AudioDevices::inputDevices(hardware)),
        (QStringList {"my-aggregate", "public-aggregate"}));
}

TEST(AudioDevicesTest, SystemAggregatePrefixWithAnotherTransportIsListed)
{
    FakeAudioHardware hardware;
    auto usb = mic(1, "CADefaultDeviceAggregate-usb");
    usb.transport = AudioTransportType::usb;
    auto unreadable = mic(2, "CADefaultDeviceAggregate-unknown");
    unreadable.transport = AudioTransportType::aggregate;
    unreadable.transportReadable = false;
    hardware.setDevices({usb, unreadable});

    EXPECT_EQ(uids(AudioDevices::inputDevices(hardware)),
        (QStringList {"CADefaultDeviceAggregate-usb", "CADefaultDeviceAggregate-unknown"}));
}

TEST(AudioDevicesTest, OutputMonitorIsHidden)
{
    FakeAudioHardware hardware;
    auto monitor = mic(1, "alsa_output.pci.monitor", "Monitor of Speakers");
    monitor.transport = AudioTransportType::outputMonitor;
    monitor.inputChannels = 2;
    hardware.setDevices({monitor, mic(2, "mic")});

    EXPECT_EQ(uids(AudioDevices::inputDevices(hardware)), QStringList {"mic"});
}

TEST(AudioDevicesTest, BluetoothAndBluetoothLowEnergyAreMarked)
{
    FakeAudioHardware hardware;
    auto classic = mic(1, "bt");
    classic.transport = AudioTransportType::bluetooth;
    auto lowEnergy = mic(2, "ble");
    lowEnergy.transport = AudioTransportType::bluetoothLowEnergy;
    auto usb = mic(3, "usb");
    usb.transport = AudioTransportType::usb;
    auto unknown = mic(4, "unknown");
    unknown.transportReadable = false;
    hardware.setDevices({classic, lowEnergy, usb, unknown});

    const auto devices = AudioDevices::inputDevices(hardware);

    ASSERT_EQ(devices.size(), 4);
    EXPECT_TRUE(devices[0].isBluetooth);
    EXPECT_TRUE(devices[1].isBluetooth);
    EXPECT_FALSE(devices[2].isBluetooth);
    EXPECT_FALSE(devices[3].isBluetooth);
}

TEST(AudioDevicesTest, DeviceWithUnreadableUIDIsSkipped)
{
    FakeAudioHardware hardware;
    auto broken = mic(1, "broken");
    broken.uidReadable = false;
    hardware.setDevices({broken, mic(2, "mic")});

    EXPECT_EQ(uids(AudioDevices::inputDevices(hardware)), QStringList {"mic"});
}

TEST(AudioDevicesTest, NameReadIsRetriedExactlyOnce)
{
    FakeAudioHardware hardware;
    auto flaky = mic(1, "flaky", "Flaky Mic");
    flaky.failingNameReads = 1;
    auto dead = mic(2, "dead", "Never Read");
    dead.failingNameReads = 5;
    auto empty = mic(3, "empty", "");
    hardware.setDevices({flaky, dead, empty});

    const auto devices = AudioDevices::inputDevices(hardware);

    ASSERT_EQ(devices.size(), 3);
    EXPECT_EQ(devices[0].name, "Flaky Mic");
    EXPECT_EQ(devices[1].name, "Microphone");
    EXPECT_EQ(devices[2].name, "Microphone");
    EXPECT_EQ(hardware.nameReads(1), 2);
    EXPECT_EQ(hardware.nameReads(2), 2);
    EXPECT_EQ(hardware.nameReads(3), 2);
}

TEST(AudioDevicesTest, UnreadableOrEmptyListGivesNoDevices)
{
    FakeAudioHardware hardware;
    EXPECT_TRUE(AudioDevices::inputDevices(hardware).isEmpty());
    hardware.setDevices({mic(1, "mic")});
    hardware.setListReadable(false);
    EXPECT_TRUE(AudioDevices::inputDevices(hardware).isEmpty());
}

TEST(AudioDevicesTest, LookupByUIDMatchesExactly)
{
    FakeAudioHardware hardware;
    hardware.setDevices({mic(1, "usb-mic", "First"), mic(2, "usb-mic-2", "Second")});

    const auto found = AudioDevices::inputDevice(hardware, "usb-mic-2");
    ASSERT_TRUE(found);
    EXPECT_EQ(found->id, 2u);
    EXPECT_EQ(found->name, "Second");
    EXPECT_FALSE(AudioDevices::inputDevice(hardware, "USB-MIC"));
    EXPECT_FALSE(AudioDevices::inputDevice(hardware, "gone"));
}

TEST(AudioDevicesTest, BluetoothHeadsetIsRaisedToItsBestRate)
{
    FakeAudioHardware hardware;
    auto headset = mic(5, "headset");
    headset.transport = AudioTransportType::bluetooth;
    headset.sampleRate = 16000.0;
    headset.sampleRates = {{8000.0, 8000.0}, {16000.0, 16000.0}, {48000.0, 48000.0}};
    hardware.setDevices({headset});

    EXPECT_EQ(AudioDevices::raiseToHighestSampleRate(hardware, 5), 48000.0);
    ASSERT_EQ(hardware.rateWrites().size(), 1u);
    EXPECT_EQ(hardware.rateWrites()[0].rateHz, 48000.0);
    EXPECT_EQ(AudioDevices::inputDevice(hardware, "headset")->sampleRate, 48000.0);
}

TEST(AudioDevicesTest, DeviceAlreadyAtItsBestRateIsNotWritten)
{
    FakeAudioHardware hardware;
    auto headset = mic(5, "headset");
    headset.sampleRate = 48000.0;
    headset.sampleRates = {{16000.0, 48000.0}};
    auto nearly = mic(6, "nearly");
    nearly.sampleRate = 47999.5;
    nearly.sampleRates = {{16000.0, 48000.0}};
    hardware.setDevices({headset, nearly});

    EXPECT_EQ(AudioDevices::raiseToHighestSampleRate(hardware, 5), 48000.0);
    EXPECT_EQ(AudioDevices::raiseToHighestSampleRate(hardware, 6), 47999.5);
    EXPECT_TRUE(hardware.rateWrites().empty());
}

TEST(AudioDevicesTest, RefusedRateWriteYieldsTheCurrentRate)
{
    FakeAudioHardware hardware;
    auto headset = mic(5, "headset");
    headset.sampleRate = 16000.0;
    headset.sampleRates = {{16000.0, 48000.0}};
    headset.rateWritable = false;
    hardware.setDevices({headset});

    EXPECT_EQ(AudioDevices::raiseToHighestSampleRate(hardware, 5), 16000.0);
    EXPECT_EQ(hardware.rateWrites().size(), 1u);
}

TEST(AudioDevicesTest, NoUsableRatesYieldNothing)
{
    FakeAudioHardware hardware;
    auto none = mic(5, "none");
    auto zero = mic(6, "zero");
    zero.sampleRates = {{0.0, 0.0}};
    hardware.setDevices({none, zero});

    EXPECT_FALSE(AudioDevices::raiseToHighestSampleRate(hardware, 5));
    EXPECT_FALSE(AudioDevices::raiseToHighestSampleRate(hardware, 6));
    EXPECT_FALSE(AudioDevices::raiseToHighestSampleRate(hardware, 99));
    EXPECT_TRUE(hardware.rateWrites().empty());
}
