#include "audio/AudioDeviceObserver.h"
#include "support/audio/FakeAudioHardware.h"

#include <QSignalSpy>
#include <QTest>
#include <QThread>

#include <gtest/gtest.h>

#include <thread>

using namespace sayvo;

namespace {

FakeAudioDevice mic(AudioObjectId id, const QString &uid)
{
    FakeAudioDevice device;
    device.id = id;
    device.uid = uid;
    device.name = uid;
    return device;
}

} // namespace

TEST(AudioDeviceObserverTest, StartsWithTheCurrentList)
{
    FakeAudioHardware hardware;
    hardware.setDevices({mic(1, "a"), mic(2, "b")});
    AudioDeviceObserver observer(hardware);
    ASSERT_EQ(observer.devices().size(), 2);
    EXPECT_EQ(observer.devices()[1].uid, "b");
    EXPECT_EQ(observer.property("devices").value<AudioInputDeviceList>(), observer.devices());
}

TEST(AudioDeviceObserverTest, PluggingInADevicePublishesOnce)
{
    FakeAudioHardware hardware;
    hardware.setDevices({mic(1, "a")});
    AudioDeviceObserver observer(hardware);
    QSignalSpy spy(&observer, &AudioDeviceObserver::devicesChanged);

    hardware.addDevice(mic(2, "b"));
    hardware.notifyDeviceListChanged();

    ASSERT_TRUE(spy.wait(2000));
    QTest::qWait(50);
    ASSERT_EQ(spy.size(), 1);
    const auto published = spy[0][0].value<AudioInputDeviceList>();
    ASSERT_EQ(published.size(), 2);
    EXPECT_EQ(published[1].uid, "b");
    EXPECT_EQ(observer.devices(), published);
}

TEST(AudioDeviceObserverTest, ABurstOfNotificationsIsOneEnumeration)
{
    FakeAudioHardware hardware;
    hardware.setDevices({mic(1, "a")});
    AudioDeviceObserver observer(hardware);
    QSignalSpy spy(&observer, &AudioDeviceObserver::devicesChanged);
    const int readsBefore = hardware.deviceListReads();

    // A module load reports several events at once, from the sound server's thread.
    hardware.addDevice(mic(2, "b"));
    std::thread soundServer([&] {
        for (int i = 0; i < 5; ++i) {
            hardware.notifyDeviceListChanged();
        }
    });
    soundServer.join();

    ASSERT_TRUE(spy.wait(2000));
    QTest::qWait(50);
    EXPECT_EQ(spy.size(), 1);
    EXPECT_EQ(hardware.deviceListReads() - readsBefore, 1);
}

TEST(AudioDeviceObserverTest, UnrelatedNotificationPublishesNothing)
{
    FakeAudioHardware hardware;
    hardware.setDevices({mic(1, "a")});
    AudioDeviceObserver observer(hardware);
    QSignalSpy spy(&observer, &AudioDeviceObserver::devicesChanged);

    auto speakers = mic(9, "speakers");
    speakers.inputChannels = 0;
    hardware.addDevice(speakers);
    hardware.notifyDeviceListChanged();
    hardware.notifyDeviceListChanged();

    EXPECT_FALSE(spy.wait(300));
    EXPECT_EQ(observer.devices().size(), 1);
}

TEST(AudioDeviceObserverTest, ChangedFieldOrOrderPublishes)
{
    FakeAudioHardware hardware;
    hardware.setDevices({mic(1, "a"), mic(2, "b")});
    AudioDeviceObserver observer(hardware);
    QSignalSpy spy(&observer, &AudioDeviceObserver::devicesChanged);

    hardware.setDevices({mic(2, "b"), mic(1, "a")});
    observer.refresh();
    auto renamed = mic(2, "b");
    renamed.sampleRate = 16000.0;
    hardware.setDevices({renamed, mic(1, "a")});
    observer.refresh();

    ASSERT_EQ(spy.size(), 2);
    EXPECT_EQ(observer.devices()[0].sampleRate, 16000.0);
}

TEST(AudioDeviceObserverTest, NotificationFromAnotherThreadPublishesOnTheMainThread)
{
    FakeAudioHardware hardware;
    AudioDeviceObserver observer(hardware);
    QThread *publishingThread = nullptr;
    QObject::connect(&observer, &AudioDeviceObserver::devicesChanged, &observer,
        [&] { publishingThread = QThread::currentThread(); });

    hardware.addDevice(mic(1, "a"));
    std::thread soundServer([&] { hardware.notifyDeviceListChanged(); });
    soundServer.join();

    ASSERT_TRUE(QTest::qWaitFor([&] { return publishingThread != nullptr; }, 2000));
    EXPECT_EQ(publishingThread, QThread::currentThread());
}

TEST(AudioDeviceObserverTest, ListenerIsRemovedWithTheObserver)
{
    FakeAudioHardware hardware;
    {
        AudioDeviceObserver observer(hardware);
        EXPECT_EQ(hardware.listenerCount(), 1);
        hardware.notifyDeviceListChanged();
    }
    EXPECT_EQ(hardware.listenerCount(), 0);
    // A refresh queued just before the observer went away must not run on a dead object.
    QTest::qWait(20);
}

TEST(AudioDeviceObserverTest, ADefaultInputChangeIsAnnouncedOnceOnTheObserversThread)
{
    FakeAudioHardware hardware;
    hardware.setDevices({mic(1, "a"), mic(2, "b")});
    AudioDeviceObserver observer(hardware);
    QSignalSpy spy(&observer, &AudioDeviceObserver::defaultInputChanged);
    QThread *announcedOn = nullptr;
    QObject::connect(&observer, &AudioDeviceObserver::defaultInputChanged,
        [&] { announcedOn = QThread::currentThread(); });

    std::thread soundServer([&] {
        for (int i = 0; i < 3; ++i) {
            hardware.notifyDefaultInputChanged();
        }
    });
    soundServer.join();

    ASSERT_TRUE(spy.wait(2000));
    QTest::qWait(50);
    EXPECT_EQ(spy.size(), 1);
    EXPECT_EQ(announcedOn, observer.thread());

    // A later change is announced again.
    hardware.notifyDefaultInputChanged();
    ASSERT_TRUE(spy.wait(2000));
    EXPECT_EQ(spy.size(), 2);
}

TEST(AudioDeviceObserverTest, StopsListeningForTheDefaultInputWhenGone)
{
    FakeAudioHardware hardware;
    {
        AudioDeviceObserver observer(hardware);
        EXPECT_EQ(hardware.defaultInputListenerCount(), 1);
    }
    EXPECT_EQ(hardware.defaultInputListenerCount(), 0);
    hardware.notifyDefaultInputChanged();
    QCoreApplication::processEvents();
}
