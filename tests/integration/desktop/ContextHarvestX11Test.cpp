#include "desktop/ContextHarvester.h"
#include "desktop/atspi/AccessibilityProviderAtSpi.h"
#include "desktop/x11/PasteboardX11.h"
#include "desktop/x11/WindowListX11.h"
#include "desktop/x11/WorkspaceX11.h"
#include "support/desktop/DesktopSession.h"
#include "support/desktop/TestEditor.h"

#include <QElapsedTimer>
#include <QScopeGuard>
#include <QTest>

#include <csignal>

#include <gtest/gtest.h>

using namespace sayvo;
using namespace sayvo::testing;

namespace {

QString sentence(int length)
{
    QString text;
    for (int i = 0; text.size() < length; ++i) {
        text += QStringLiteral("word%1 ").arg(i);
    }
    return text.left(length);
}

class ContextHarvestX11Test : public ::testing::Test
{
protected:
    // Called through ASSERT_NO_FATAL_FAILURE: a failed assertion here returns from this
    // function only, and the test would go on with the objects it did not create.
    void start(bool accessibleEditor)
    {
        ASSERT_TRUE(m_session.isReady()) << m_session.failure().toStdString();
        m_editor = std::make_unique<TestEditor>(
            m_session, QStringLiteral("Harvest target"), accessibleEditor);
        ASSERT_TRUE(m_editor->isReady());
        m_harvester = std::make_unique<ContextHarvester>(std::make_shared<WorkspaceX11>(),
            std::make_shared<AccessibilityProviderAtSpi>(), std::make_shared<WindowListX11>(),
            std::make_shared<PasteboardX11>());
    }

    // Harvests until the toolkit has registered with the accessibility bus.
    ContextPack harvestWhenVisible(const QStringList &dictionary = {})
    {
        ContextPack pack;
        (void)QTest::qWaitFor(
            [&] {
                pack = m_harvester->harvestCheapContext(dictionary);
                return pack.screenText.has_value();
            },
            10000);
        return pack;
    }

    DesktopSession m_session;
    std::unique_ptr<TestEditor> m_editor;
    std::unique_ptr<ContextHarvester> m_harvester;
};

TEST_F(ContextHarvestX11Test, HarvestOfAGtkFieldOf500Characters)
{
    ASSERT_NO_FATAL_FAILURE(start(true));
    const QString text = sentence(500);
    m_editor->setText(text);
    m_editor->copy(QStringLiteral("on the clipboard"));
    const ContextPack pack = harvestWhenVisible({QStringLiteral("Sayvo")});
    EXPECT_EQ(pack.appBundleId, "SayvoTestEditor");
    EXPECT_EQ(pack.appName, "sayvo-test-editor");
    EXPECT_EQ(pack.windowTitle, "Harvest target");
    EXPECT_EQ(pack.screenText, text.right(200).toStdString());
    EXPECT_EQ(pack.clipboard, "on the clipboard");
    EXPECT_EQ(pack.personalDictionary, (std::vector<std::string> {"Sayvo"}));
}

TEST_F(ContextHarvestX11Test, ASelectionIsHarvestedWhole)
{
    ASSERT_NO_FATAL_FAILURE(start(true));
    const QString text = sentence(500);
    m_editor->setText(text, 10, 400);
    const ContextPack pack = harvestWhenVisible();
    EXPECT_EQ(pack.screenText, text.mid(10, 390).toStdString());
}

TEST_F(ContextHarvestX11Test, AnApplicationWithoutAccessibilityGetsItsTitleFromTheWindowList)
{
    ASSERT_NO_FATAL_FAILURE(start(false));
    const ContextPack pack = m_harvester->harvestCheapContext({});
    EXPECT_EQ(pack.appBundleId, "SayvoTestEditor");
    EXPECT_EQ(pack.windowTitle, "Harvest target");
    EXPECT_EQ(pack.screenText, std::nullopt);
    EXPECT_EQ(pack.clipboard, std::nullopt);
    EXPECT_EQ(pack.personalDictionary, std::nullopt);
}

TEST_F(ContextHarvestX11Test, AHungApplicationCostsOneTimeOutPerService)
{
    ASSERT_NO_FATAL_FAILURE(start(true));
    m_editor->setText(sentence(300));
    m_editor->copy(QStringLiteral("owned by the hung application"));
    ASSERT_TRUE(harvestWhenVisible().screenText);

    ASSERT_EQ(::kill(pid_t(m_editor->pid()), SIGSTOP), 0);
    const auto resume = qScopeGuard([this] { ::kill(pid_t(m_editor->pid()), SIGCONT); });
    QElapsedTimer timer;
    timer.start();
    const ContextPack pack = m_harvester->harvestCheapContext({});
    const qint64 elapsedMs = timer.elapsed();
    // One wait for the accessibility calls and one for the clipboard, not one per request.
    EXPECT_LT(elapsedMs, 4 * AccessibilityProviderAtSpi::kTimeoutMs);
    EXPECT_EQ(pack.appBundleId, "SayvoTestEditor");
    EXPECT_EQ(pack.windowTitle, "Harvest target");
    EXPECT_EQ(pack.screenText, std::nullopt);
    EXPECT_EQ(pack.clipboard, std::nullopt);
}

TEST_F(ContextHarvestX11Test, TheWindowListRunsFrontToBack)
{
    ASSERT_NO_FATAL_FAILURE(start(false));
    TestEditor second(m_session, QStringLiteral("Second window"), false);
    ASSERT_TRUE(second.isReady());
    const auto windows = WindowListX11().onScreenWindows();
    ASSERT_TRUE(windows);
    ASSERT_GE(windows->size(), 2u);
    EXPECT_EQ((*windows)[0].name, QStringLiteral("Second window"));
    EXPECT_EQ((*windows)[0].ownerPid, second.pid());
    ASSERT_TRUE(m_editor->activate());
    const auto reordered = WindowListX11().onScreenWindows();
    ASSERT_TRUE(reordered);
    EXPECT_EQ((*reordered)[0].name, QStringLiteral("Harvest target"));
}

} // namespace
