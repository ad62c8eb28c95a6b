// An idle Sayvo must not cost battery: connected to its engine, ready, and untouched, neither
// the application nor the engine is woken up, as the kernel counts it.
#include "support/ProcessStatus.h"
#include "support/e2e/DictationDesk.h"

#include <QRegularExpression>
#include <QTest>

#include <gtest/gtest.h>

using sayvo::test::DictationDesk;

namespace {

constexpr int kIdleSeconds = 20;
constexpr int kQuietMs = 2000;
constexpr int kLongestSettleMs = 30000;

std::string describe(const std::vector<sayvo::test::ThreadSwitches> &threads)
{
    std::string text;
    for (const auto &thread : threads) {
        if (thread.switches > 0) {
            text += " " + thread.name.toStdString() + "=" + std::to_string(thread.switches);
        }
    }
    return text;
}

} // namespace

TEST(IdleEndToEnd, ConnectedAndUntouchedNeitherProcessWakesUp)
{
    DictationDesk desk({QStringLiteral("pocketsphinx"), {}, QStringLiteral("Editor Idle")});
    ASSERT_TRUE(desk.isReady()) << desk.failure().toStdString();
    // A live microphone, as on a real desk: the sound server has audio all the time.
    desk.microphone().startStreaming();
    ASSERT_TRUE(desk.launchSayvo()) << desk.log().join('\n').toStdString();
    const QList<qint64> engines = desk.enginePids();
    ASSERT_EQ(engines.size(), 1);
    // With no tray host on this desktop the settings window stands in for the tray menu and
    // shows the live footprint while it is open; the user closes it and leaves the app idle.
    if (desk.countLog(QRegularExpression(QStringLiteral("no system tray"))) > 0) {
        // The window is mapped a little after the log line; later still on a busy machine.
        const QStringList findSettings {QStringLiteral("search"), QStringLiteral("--onlyvisible"),
            QStringLiteral("--name"), QStringLiteral("^Settings")};
        ASSERT_TRUE(QTest::qWaitFor(
            [&] {
                int found = -1;
                desk.desktop().run(QStringLiteral("xdotool"), findSettings, &found);
                return found == 0;
            },
            15000))
            << "the settings window did not appear";
        // Activation can fail while the window manager is still taking the new window in;
        // the user would simply press Escape again.
        ASSERT_TRUE(QTest::qWaitFor(
            [&] {
                desk.desktop().run(QStringLiteral("xdotool"),
                    findSettings
                        + QStringList {QStringLiteral("windowactivate"), QStringLiteral("--sync"),
                            QStringLiteral("key"), QStringLiteral("Escape")});
                int found = -1;
                desk.desktop().run(QStringLiteral("xdotool"), findSettings, &found);
                return found != 0;
            },
            15000))
            << "the settings window stayed open";
    }
    // Whatever start-up left to finish (the tray's first paint, the engine's first idle) may
    // take long on a busy machine: the measurement starts once both have been quiet for a
    // moment. A timer that fires at any period up to the measurement's length is still seen.
    auto clientBefore = sayvo::test::threadSwitches(desk.sayvoPid());
    auto engineBefore = sayvo::test::threadSwitches(engines.first());
    for (int waitedMs = 0; waitedMs < kLongestSettleMs; waitedMs += kQuietMs) {
        QTest::qWait(kQuietMs);
        const auto clientNow = sayvo::test::threadSwitches(desk.sayvoPid());
        const auto engineNow = sayvo::test::threadSwitches(engines.first());
        const bool quiet
            = sayvo::test::totalSwitches(sayvo::test::wakeupsBetween(clientBefore, clientNow)) == 0
            && sayvo::test::totalSwitches(sayvo::test::wakeupsBetween(engineBefore, engineNow))
                == 0;
        clientBefore = clientNow;
        engineBefore = engineNow;
        if (quiet) {
            break;
        }
    }
    QTest::qWait(kIdleSeconds * 1000);
    const auto client
        = sayvo::test::wakeupsBetween(clientBefore, sayvo::test::threadSwitches(desk.sayvoPid()));
    const auto engine
        = sayvo::test::wakeupsBetween(engineBefore, sayvo::test::threadSwitches(engines.first()));

    // None is the aim for both; one stray wake-up each (a late start-up event) is tolerated.
    EXPECT_LE(sayvo::test::totalSwitches(client), 1) << "sayvo:" << describe(client);
    EXPECT_LE(sayvo::test::totalSwitches(engine), 1) << "sayvo-engine:" << describe(engine);
}
