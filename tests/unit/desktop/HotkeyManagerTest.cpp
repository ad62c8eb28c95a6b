#include "desktop/HotkeyManager.h"
#include "support/desktop/FakeKeyboardEventSource.h"

#include <QCoreApplication>
#include <QTest>

#include <gtest/gtest.h>

using namespace sayvo;
using namespace sayvo::testing;

namespace {

constexpr int kF5 = 96;
constexpr int kRightOption = 61;
constexpr int kLeftOption = 58;
constexpr int kShift = 56;
constexpr int kFn = 63;

class HotkeyManagerTest : public ::testing::Test
{
protected:
    void make(HotkeyTrigger trigger)
    {
        auto source = std::make_unique<FakeKeyboardEventSource>();
        m_source = source.get();
        m_manager = std::make_unique<HotkeyManager>(trigger, std::move(source));
        m_manager->setOnStart([this] { m_reports.push_back("start"); });
        m_manager->setOnEnd([this] { m_reports.push_back("end"); });
        ASSERT_TRUE(m_manager->start().ok());
    }

    // Lets the queued callbacks run.
    std::vector<std::string> reports()
    {
        QCoreApplication::processEvents();
        return m_reports;
    }

    FakeKeyboardEventSource *m_source = nullptr;
    std::unique_ptr<HotkeyManager> m_manager;
    std::vector<std::string> m_reports;
};

using Reports = std::vector<std::string>;

TEST_F(HotkeyManagerTest, HoldingF5GivesOneStartAndOneEndAndSwallowsEveryF5Event)
{
    make(HotkeyTrigger::f5);
    EXPECT_EQ(m_source->keyDown(kF5), KeyEventDisposition::swallow);
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(m_source->keyDown(kF5, true), KeyEventDisposition::swallow);
    }
    EXPECT_EQ(reports(), (Reports {"start"}));
    EXPECT_EQ(m_source->keyUp(kF5), KeyEventDisposition::swallow);
    EXPECT_EQ(reports(), (Reports {"start", "end"}));
}

TEST_F(HotkeyManagerTest, F5IsGrabbedWhereThePlatformSwallowsWholeKeys)
{
    make(HotkeyTrigger::f5);
    EXPECT_EQ(m_source->swallowedKeyCodes, std::vector<int> {kF5});
}

TEST_F(HotkeyManagerTest, OtherKeysPassWithF5AsTrigger)
{
    make(HotkeyTrigger::f5);
    EXPECT_EQ(m_source->keyDown(12), KeyEventDisposition::pass);
    EXPECT_EQ(m_source->keyUp(12), KeyEventDisposition::pass);
    EXPECT_EQ(m_source->flagsChanged(kShift, KeyFlags::kShift), KeyEventDisposition::pass);
    EXPECT_TRUE(reports().empty());
}

TEST_F(HotkeyManagerTest, CallbacksNeverRunInsideTheKeyboardCallback)
{
    make(HotkeyTrigger::f5);
    m_source->keyDown(kF5);
    EXPECT_TRUE(m_reports.empty());
    EXPECT_TRUE(m_manager->isKeyDown());
    EXPECT_EQ(reports(), (Reports {"start"}));
}

TEST_F(HotkeyManagerTest, RightOptionReportsDownAndUpAndPassesItsEvents)
{
    make(HotkeyTrigger::rightOption);
    EXPECT_TRUE(m_source->swallowedKeyCodes.empty());
    EXPECT_EQ(m_source->flagsChanged(kRightOption, KeyFlags::kOption), KeyEventDisposition::pass);
    EXPECT_EQ(reports(), (Reports {"start"}));
    EXPECT_EQ(m_source->flagsChanged(kRightOption, 0), KeyEventDisposition::pass);
    EXPECT_EQ(reports(), (Reports {"start", "end"}));
}

TEST_F(HotkeyManagerTest, LeftOptionReportsNothing)
{
    make(HotkeyTrigger::rightOption);
    m_source->flagsChanged(kLeftOption, KeyFlags::kOption);
    m_source->flagsChanged(kLeftOption, 0);
    EXPECT_TRUE(reports().empty());
}

TEST_F(HotkeyManagerTest, RightOptionReleasedWhileLeftHeldEndsOnlyWithAFlagEventWithoutOption)
{
    make(HotkeyTrigger::rightOption);
    m_source->flagsChanged(kRightOption, KeyFlags::kOption);
    m_source->flagsChanged(kLeftOption, KeyFlags::kOption);
    // Right released; the Option flag stays because the left key still holds it.
    m_source->flagsChanged(kRightOption, KeyFlags::kOption);
    m_source->flagsChanged(kLeftOption, 0);
    EXPECT_EQ(reports(), (Reports {"start"}));
    m_source->flagsChanged(kRightOption, 0);
    EXPECT_EQ(reports(), (Reports {"start", "end"}));
}

TEST_F(HotkeyManagerTest, FnStaysDownWhileOtherModifiersChange)
{
    make(HotkeyTrigger::fnGlobe);
    EXPECT_EQ(m_source->flagsChanged(kFn, KeyFlags::kSecondaryFunction), KeyEventDisposition::pass);
    EXPECT_EQ(m_source->flagsChanged(kShift, KeyFlags::kSecondaryFunction | KeyFlags::kShift),
        KeyEventDisposition::pass);
    m_source->flagsChanged(kShift, KeyFlags::kSecondaryFunction);
    EXPECT_EQ(reports(), (Reports {"start"}));
    m_source->flagsChanged(kFn, 0);
    EXPECT_EQ(reports(), (Reports {"start", "end"}));
}

TEST_F(HotkeyManagerTest, FnIgnoresKeyDownAndUpEvents)
{
    make(HotkeyTrigger::fnGlobe);
    EXPECT_EQ(
        m_source->keyDown(kF5, false, KeyFlags::kSecondaryFunction), KeyEventDisposition::pass);
    EXPECT_EQ(m_source->keyUp(kF5, 0), KeyEventDisposition::pass);
    EXPECT_TRUE(reports().empty());
}

TEST_F(HotkeyManagerTest, RepeatedIdenticalStatesAreReportedOnce)
{
    make(HotkeyTrigger::fnGlobe);
    m_source->flagsChanged(kFn, KeyFlags::kSecondaryFunction);
    m_source->flagsChanged(kFn, KeyFlags::kSecondaryFunction);
    m_source->flagsChanged(kFn, 0);
    m_source->flagsChanged(kFn, 0);
    EXPECT_EQ(reports(), (Reports {"start", "end"}));
}

TEST_F(HotkeyManagerTest, MenuBarTogglePassesEverythingAndReportsNothing)
{
    make(HotkeyTrigger::menuBarToggle);
    EXPECT_TRUE(m_source->swallowedKeyCodes.empty());
    EXPECT_EQ(m_source->keyDown(kF5), KeyEventDisposition::pass);
    EXPECT_EQ(m_source->keyUp(kF5), KeyEventDisposition::pass);
    EXPECT_EQ(m_source->flagsChanged(kRightOption, KeyFlags::kOption), KeyEventDisposition::pass);
    EXPECT_EQ(m_source->flagsChanged(kFn, KeyFlags::kSecondaryFunction), KeyEventDisposition::pass);
    EXPECT_TRUE(reports().empty());
}

TEST_F(HotkeyManagerTest, StartOnAnInstalledManagerDoesNotInstallASecondTap)
{
    make(HotkeyTrigger::f5);
    EXPECT_TRUE(m_manager->start().ok());
    EXPECT_EQ(m_source->installCount, 1);
    EXPECT_TRUE(m_manager->isInstalled());
}

TEST_F(HotkeyManagerTest, RefusedTapIsTapCreationFailedAndCanBeRetried)
{
    auto source = std::make_unique<FakeKeyboardEventSource>();
    FakeKeyboardEventSource *fake = source.get();
    fake->failInstall = true;
    HotkeyManager manager(HotkeyTrigger::f5, std::move(source));
    const Status<HotkeyError> refused = manager.start();
    ASSERT_FALSE(refused.ok());
    EXPECT_EQ(refused.error(), HotkeyError::tapCreationFailed);
    EXPECT_FALSE(describe(refused.error()).isEmpty());
    EXPECT_FALSE(manager.isInstalled());

    fake->failInstall = false;
    EXPECT_TRUE(manager.start().ok());
    EXPECT_TRUE(manager.isInstalled());
    EXPECT_EQ(fake->installCount, 1);
}

TEST_F(HotkeyManagerTest, WithoutLeaveToWatchTheKeyboardNothingCountsAsInstalledUntilGiven)
{
    auto source = std::make_unique<FakeKeyboardEventSource>();
    FakeKeyboardEventSource *fake = source.get();
    fake->permitted = false;
    HotkeyManager manager(HotkeyTrigger::f5, std::move(source));
    int starts = 0;
    manager.setOnStart([&] { ++starts; });

    for (int attempt = 0; attempt < 3; ++attempt) {
        const Status<HotkeyError> refused = manager.start();
        ASSERT_FALSE(refused.ok());
        EXPECT_EQ(refused.error(), HotkeyError::permissionMissing);
    }
    EXPECT_EQ(describe(HotkeyError::permissionMissing),
        QStringLiteral("Sayvo may not watch the keyboard yet"));
    EXPECT_FALSE(manager.isInstalled());
    EXPECT_EQ(fake->installCount, 0);

    // The user grants it; the next attempt installs and the trigger works.
    fake->permitted = true;
    ASSERT_TRUE(manager.start().ok());
    EXPECT_TRUE(manager.isInstalled());
    fake->keyDown(kF5);
    ASSERT_TRUE(QTest::qWaitFor([&] { return starts == 1; }, 2000));
}

TEST_F(HotkeyManagerTest, StopRemovesTheTapAndForgetsAHeldKeyWithoutAnEnd)
{
    make(HotkeyTrigger::f5);
    m_source->keyDown(kF5);
    m_manager->stop();
    EXPECT_FALSE(m_manager->isInstalled());
    EXPECT_FALSE(m_source->isInstalled());
    EXPECT_EQ(m_source->uninstallCount, 1);
    EXPECT_FALSE(m_manager->isKeyDown());
    EXPECT_EQ(reports(), (Reports {"start"}));

    ASSERT_TRUE(m_manager->start().ok());
    m_source->keyDown(kF5);
    EXPECT_EQ(reports(), (Reports {"start", "start"}));
}

TEST_F(HotkeyManagerTest, ATapTheSystemDisabledIsReenabledAndStaysInstalled)
{
    make(HotkeyTrigger::f5);
    EXPECT_EQ(m_source->deliver({KeyEventType::tapDisabledByTimeout, 0, 0, false}),
        KeyEventDisposition::pass);
    EXPECT_EQ(m_source->deliver({KeyEventType::tapDisabledByUserInput, 0, 0, false}),
        KeyEventDisposition::pass);
    EXPECT_EQ(m_source->reenableCount, 2);
    EXPECT_TRUE(m_manager->isInstalled());
    EXPECT_TRUE(reports().empty());
}

TEST_F(HotkeyManagerTest, TheCallbackAtTheMomentOfTheReportIsTheOneThatRuns)
{
    make(HotkeyTrigger::f5);
    m_source->keyDown(kF5);
    m_manager->setOnStart([this] { m_reports.push_back("replacement"); });
    EXPECT_EQ(reports(), (Reports {"start"}));
}

TEST_F(HotkeyManagerTest, NoCallbackRunsAfterTheManagerIsGone)
{
    make(HotkeyTrigger::f5);
    m_source->keyDown(kF5);
    m_manager.reset();
    EXPECT_TRUE(reports().empty());
}

TEST_F(HotkeyManagerTest, ABindingsPressAndReleaseAreTheKeysDownAndUp)
{
    make(HotkeyTrigger::fnGlobe);
    m_manager->press();
    // A key binding that repeats, or a second press while down.
    m_manager->press();
    EXPECT_TRUE(m_manager->isKeyDown());
    EXPECT_EQ(reports(), (Reports {"start"}));
    m_manager->release();
    m_manager->release();
    EXPECT_EQ(reports(), (Reports {"start", "end"}));
}

TEST_F(HotkeyManagerTest, AToggleIsOneWholePressAndRelease)
{
    make(HotkeyTrigger::f5);
    m_manager->pressAndRelease();
    EXPECT_FALSE(m_manager->isKeyDown());
    EXPECT_EQ(reports(), (Reports {"start", "end"}));
    m_manager->pressAndRelease();
    EXPECT_EQ(reports(), (Reports {"start", "end", "start", "end"}));
}

TEST_F(HotkeyManagerTest, TheBindingAndTheWatchedKeyShareOneKeyState)
{
    make(HotkeyTrigger::f5);
    m_source->keyDown(kF5);
    m_manager->press();
    m_manager->release();
    m_source->keyUp(kF5);
    EXPECT_EQ(reports(), (Reports {"start", "end"}));
}

TEST_F(HotkeyManagerTest, ABindingWorksWithoutAnInstalledTap)
{
    auto source = std::make_unique<FakeKeyboardEventSource>();
    source->failInstall = true;
    HotkeyManager manager(HotkeyTrigger::fnGlobe, std::move(source));
    int starts = 0;
    manager.setOnStart([&starts] { ++starts; });
    ASSERT_FALSE(manager.start().ok());
    manager.press();
    QCoreApplication::processEvents();
    EXPECT_EQ(starts, 1);
}

TEST_F(HotkeyManagerTest, MissingCallbacksAreFine)
{
    auto source = std::make_unique<FakeKeyboardEventSource>();
    FakeKeyboardEventSource *fake = source.get();
    HotkeyManager manager(HotkeyTrigger::f5, std::move(source));
    ASSERT_TRUE(manager.start().ok());
    EXPECT_EQ(manager.trigger(), HotkeyTrigger::f5);
    EXPECT_EQ(fake->keyDown(kF5), KeyEventDisposition::swallow);
    EXPECT_EQ(fake->keyUp(kF5), KeyEventDisposition::swallow);
    QCoreApplication::processEvents();
    EXPECT_FALSE(manager.isKeyDown());
}

} // namespace
