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
        int code = -1;
        desk.desktop().run(QStringLiteral("xdotool"),
            {QStringLiteral("search"), QStringLiteral("--name"), QStringLiteral("^Settings"),
                QStringLiteral("windowactivate"), QStringLiteral("--sync"), QStringLiteral("key"),
                QStringLiteral("Escape")},
            &code);
        ASSERT_EQ(code, 0) << "the settings window could not be closed";
    }
    // Whatever start-up left to finish (the tray's first paint, the engine's first idle).
    QTest::qWait(3000);

    const auto clientBefore = sayvo::test::threadSwitches(desk.sayvoPid());
    const auto engineBefore = sayvo::test::threadSwitches(engines.first());
    QTest::qWait(kIdleSeconds * 1000);
    const auto client
        = sayvo::test::wakeupsBetween(clientBefore, sayvo::test::threadSwitches(desk.sayvoPid()));
    const auto engine
        = sayvo::test::wakeupsBetween(engineBefore, sayvo::test::threadSwitches(engines.first()));

    // None is the aim for both; one stray wake-up each (a late start-up event) is tolerated.
    EXPECT_LE(sayvo::test::totalSwitches(client), 1) << "sayvo:" << describe(client);
    EXPECT_LE(sayvo::test::totalSwitches(engine), 1) << "sayvo-engine:" << describe(engine);
}
