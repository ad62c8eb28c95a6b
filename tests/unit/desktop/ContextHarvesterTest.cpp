#include "desktop/ContextHarvester.h"
#include "protocol/ContextBounds.h"
#include "support/desktop/FakeAccessibilityProvider.h"
#include "support/desktop/FakePasteboard.h"
#include "support/desktop/FakeWindowList.h"
#include "support/desktop/FakeWorkspace.h"

#include <gtest/gtest.h>

using namespace sayvo;
using namespace sayvo::testing;

namespace {

constexpr qint64 kPid = 4242;

QString digits(int count)
{
    QString text;
    for (int i = 0; i < count; ++i) {
        text += QChar(u'0' + i % 10);
    }
    return text;
}

class ContextHarvesterTest : public ::testing::Test
{
protected:
    ContextHarvesterTest()
        : m_workspace(std::make_shared<FakeWorkspace>()),
          m_accessibility(std::make_shared<FakeAccessibilityProvider>()),
          m_windows(std::make_shared<FakeWindowList>()),
          m_pasteboard(std::make_shared<FakePasteboard>()),
          m_harvester(m_workspace, m_accessibility, m_windows, m_pasteboard)
    {
        m_workspace->front = FrontApplication {
            QStringLiteral("SayvoTestEditor"), QStringLiteral("sayvo-test-editor"), kPid};
    }

    ContextPack harvest(const QStringList &dictionary = {})
    {
        return m_harvester.harvestCheapContext(dictionary);
    }

    std::shared_ptr<FakeWorkspace> m_workspace;
    std::shared_ptr<FakeAccessibilityProvider> m_accessibility;
    std::shared_ptr<FakeWindowList> m_windows;
    std::shared_ptr<FakePasteboard> m_pasteboard;
    ContextHarvester m_harvester;
};

TEST_F(ContextHarvesterTest, AFullHarvest)
{
    m_accessibility->addApplication(kPid, QStringLiteral("Notes"), QStringLiteral("Dear Sam,"));
    m_pasteboard->preload({{{FakePasteboard::kPlainTextType, QByteArray("clip")}}});
    const ContextPack pack = harvest({QStringLiteral("Sayvo"), QStringLiteral("Kubernetes")});
    EXPECT_EQ(pack.appBundleId, "SayvoTestEditor");
    EXPECT_EQ(pack.appName, "sayvo-test-editor");
    EXPECT_EQ(pack.windowTitle, "Notes");
    EXPECT_EQ(pack.screenText, "Dear Sam,");
    EXPECT_EQ(pack.clipboard, "clip");
    EXPECT_EQ(pack.personalDictionary, (std::vector<std::string> {"Sayvo", "Kubernetes"}));
    EXPECT_EQ(m_windows->queryCount, 0);
}

TEST_F(ContextHarvesterTest, AWindowWithoutProcessGivesItsTitleAndTheDesktopsFocusedText)
{
    // A Wayland toplevel: app id and title, no process.
    m_workspace->front = FrontApplication {QStringLiteral("org.gnome.TextEditor"),
        QStringLiteral("org.gnome.TextEditor"), 0, QStringLiteral("Draft - Text Editor")};
    const auto field = m_accessibility->addApplication(kPid, std::nullopt, QStringLiteral("Hi"));
    m_accessibility->focusSystemWide(field);
    const ContextPack pack = harvest();
    EXPECT_EQ(pack.appBundleId, "org.gnome.TextEditor");
    EXPECT_EQ(pack.windowTitle, "Draft - Text Editor");
    EXPECT_EQ(pack.screenText, "Hi");
    EXPECT_EQ(m_windows->queryCount, 0);
}

TEST_F(ContextHarvesterTest, TheAccessibleTitleWinsOverTheOneGivenWithTheApplication)
{
    m_workspace->front->windowTitle = QStringLiteral("Given");
    m_accessibility->addApplication(kPid, QStringLiteral("Accessible"), std::nullopt);
    EXPECT_EQ(harvest().windowTitle, "Accessible");
}

TEST_F(ContextHarvesterTest, AFieldOf500CharactersGivesItsLast200)
{
    const QString text = digits(500);
    m_accessibility->addApplication(kPid, QStringLiteral("t"), text);
    EXPECT_EQ(harvest().screenText, text.right(200).toStdString());
}

TEST_F(ContextHarvesterTest, AFieldOfExactly200CharactersIsWhole)
{
    const QString text = QStringLiteral("abcdefghij").repeated(20);
    m_accessibility->addApplication(kPid, QStringLiteral("t"), text);
    EXPECT_EQ(harvest().screenText, text.toStdString());
}

TEST_F(ContextHarvesterTest, TheTailIsCountedInUserPerceivedCharacters)
{
    // A family emoji is five code points (eight UTF-16 units) but one character.
    const QString family = QStringLiteral("\U0001F468\u200D\U0001F469\u200D\U0001F467");
    const QString accented = QStringLiteral("e\u0301");
    QString text;
    for (int i = 0; i < 150; ++i) {
        text += family + accented;
    }
    m_accessibility->addApplication(kPid, QStringLiteral("t"), text);
    QString expected;
    for (int i = 0; i < 100; ++i) {
        expected += family + accented;
    }
    EXPECT_EQ(harvest().screenText, expected.toStdString());
}

TEST_F(ContextHarvesterTest, ASelectionOf5000CharactersIsWhole)
{
    const QString selected = digits(5000);
    auto field = m_accessibility->addApplication(kPid, QStringLiteral("t"), QString());
    field->attributes[QStringLiteral("AXSelectedText")] = AttributeValue(selected);
    field->text = QStringLiteral("before ") + selected + QStringLiteral(" after");
    EXPECT_EQ(harvest().screenText, selected.toStdString());
}

TEST_F(ContextHarvesterTest, AnEmptySelectionFallsThroughToTheValue)
{
    auto field = m_accessibility->addApplication(kPid, QStringLiteral("t"), QStringLiteral("v"));
    field->selectionStart = field->selectionEnd = 1;
    EXPECT_EQ(harvest().screenText, "v");
}

TEST_F(ContextHarvesterTest, AnEmptyValueGivesNoScreenText)
{
    m_accessibility->addApplication(kPid, QStringLiteral("t"), QString());
    const ContextPack pack = harvest();
    EXPECT_EQ(pack.screenText, std::nullopt);
    EXPECT_EQ(pack.windowTitle, "t");
}

TEST_F(ContextHarvesterTest, AValueThatIsNotAStringGivesNoScreenText)
{
    auto field = m_accessibility->addApplication(kPid, QStringLiteral("t"), std::nullopt);
    field->attributes[QStringLiteral("AXValue")] = AttributeValue(OtherAttributeValue {});
    EXPECT_EQ(harvest().screenText, std::nullopt);
}

TEST_F(ContextHarvesterTest, AnEmptyAccessibleTitleIsKeptAndTheWindowListIsNotConsulted)
{
    m_accessibility->addApplication(kPid, QString(), QStringLiteral("x"));
    m_windows->windows = std::vector<WindowInfo> {{kPid, QStringLiteral("From the list")}};
    EXPECT_EQ(harvest().windowTitle, std::optional<std::string>(""));
    EXPECT_EQ(m_windows->queryCount, 0);
}

TEST_F(ContextHarvesterTest, AMissingAccessibleTitleFallsBackToTheFirstNamedWindowOfTheApp)
{
    m_accessibility->addApplication(kPid, std::nullopt, QStringLiteral("x"));
    m_windows->windows = std::vector<WindowInfo> {
        {kPid + 1, QStringLiteral("Another app")},
        {std::nullopt, QStringLiteral("No owner")},
        {kPid, std::nullopt},
        {kPid, QString()},
        {kPid + (qint64(1) << 32), QStringLiteral("Owner beyond 32 bits")},
        {kPid, QStringLiteral("Front window")},
        {kPid, QStringLiteral("Back window")},
    };
    EXPECT_EQ(harvest().windowTitle, "Front window");
    EXPECT_EQ(m_windows->queryCount, 1);
}

TEST_F(ContextHarvesterTest, ATitleThatIsNotAStringFallsBackToTheWindowList)
{
    m_accessibility->addApplication(kPid, std::nullopt, QStringLiteral("x"));
    auto window = std::make_shared<FakeAccessibleElement>(QStringLiteral("window"));
    window->attributes[QStringLiteral("AXTitle")] = AttributeValue(OtherAttributeValue {});
    m_accessibility->applications[kPid]->attributes[QStringLiteral("AXFocusedWindow")]
        = AttributeValue(AccessibleElementPtr(window));
    m_windows->windows = std::vector<WindowInfo> {{kPid, QStringLiteral("Listed")}};
    EXPECT_EQ(harvest().windowTitle, "Listed");
}

TEST_F(ContextHarvesterTest, NoTitleAnywhereLeavesItAbsent)
{
    m_accessibility->addApplication(kPid, std::nullopt, QStringLiteral("x"));
    EXPECT_EQ(harvest().windowTitle, std::nullopt);
    m_windows->windows = std::vector<WindowInfo> {{kPid + 1, QStringLiteral("Other")}};
    EXPECT_EQ(harvest().windowTitle, std::nullopt);
}

TEST_F(ContextHarvesterTest, WithoutAFrontApplicationThePackStillCarriesClipboardAndDictionary)
{
    m_workspace->front.reset();
    m_pasteboard->preload({{{FakePasteboard::kPlainTextType, QByteArray("clip")}}});
    const ContextPack pack = harvest({QStringLiteral("word")});
    EXPECT_EQ(pack.appBundleId, std::nullopt);
    EXPECT_EQ(pack.appName, std::nullopt);
    EXPECT_EQ(pack.windowTitle, std::nullopt);
    EXPECT_EQ(pack.screenText, std::nullopt);
    EXPECT_EQ(pack.clipboard, "clip");
    EXPECT_EQ(pack.personalDictionary, (std::vector<std::string> {"word"}));
    EXPECT_TRUE(m_accessibility->log.isEmpty());
    EXPECT_EQ(m_windows->queryCount, 0);
}

TEST_F(ContextHarvesterTest, AnEmptyPersonalDictionaryIsLeftOut)
{
    EXPECT_EQ(harvest({}).personalDictionary, std::nullopt);
}

TEST_F(ContextHarvesterTest, TheClipboardIsTakenWholeAndIsAbsentWithoutText)
{
    EXPECT_EQ(harvest().clipboard, std::nullopt);
    m_pasteboard->preload({{{QStringLiteral("image/png"), QByteArray("\x89PNG")}}});
    EXPECT_EQ(harvest().clipboard, std::nullopt);
    const QString big = digits(10000);
    m_pasteboard->preload({{{FakePasteboard::kPlainTextType, big.toUtf8()}}});
    EXPECT_EQ(harvest().clipboard, big.toStdString());
}

TEST_F(ContextHarvesterTest, AHugeClipboardGivesItsHeadWithinTheLimit)
{
    for (const qsizetype megabytes : {2, 20}) {
        // Two-byte characters, so a cut by bytes could fall inside one.
        const QString big
            = QStringLiteral("Dear team,") + QString(megabytes * 512 * 1024, u'\u00e9');
        m_pasteboard->preload({{{FakePasteboard::kPlainTextType, big.toUtf8()}}});
        const std::optional<std::string> clipboard = harvest().clipboard;
        ASSERT_TRUE(clipboard.has_value());
        EXPECT_LE(clipboard->size(), ContextLimits::kClipboardBytes);
        EXPECT_GE(clipboard->size(), ContextLimits::kClipboardBytes - 1);
        EXPECT_EQ(QString::fromStdString(*clipboard),
            big.left(QString::fromStdString(*clipboard).size()));
    }
}

TEST_F(ContextHarvesterTest, AHugeSelectionGivesItsTailWithinTheLimit)
{
    const QString selected = QString(3 * 1024 * 1024, u'x') + QStringLiteral(" \U0001F600 end");
    auto field = m_accessibility->addApplication(kPid, QStringLiteral("Notes"), selected);
    field->selectionStart = 0;
    field->selectionEnd = static_cast<int>(selected.size());
    const std::optional<std::string> screen = harvest().screenText;
    ASSERT_TRUE(screen.has_value());
    EXPECT_EQ(screen->size(), ContextLimits::kScreenTextBytes);
    EXPECT_TRUE(QString::fromStdString(*screen).endsWith(QStringLiteral(" \U0001F600 end")));
}

TEST_F(ContextHarvesterTest, AnApplicationWithoutBundleIdOrNameLeavesThemAbsent)
{
    m_workspace->front = FrontApplication {std::nullopt, std::nullopt, kPid};
    const ContextPack pack = harvest();
    EXPECT_EQ(pack.appBundleId, std::nullopt);
    EXPECT_EQ(pack.appName, std::nullopt);
}

TEST_F(ContextHarvesterTest, WithAccessibilityOffOnlyTheWindowListAndClipboardAnswer)
{
    m_accessibility->addApplication(kPid, QStringLiteral("t"), QStringLiteral("x"));
    m_accessibility->available = false;
    m_windows->windows = std::vector<WindowInfo> {{kPid, QStringLiteral("Listed")}};
    const ContextPack pack = harvest();
    EXPECT_EQ(pack.appBundleId, "SayvoTestEditor");
    EXPECT_EQ(pack.windowTitle, "Listed");
    EXPECT_EQ(pack.screenText, std::nullopt);
}

TEST_F(ContextHarvesterTest, AnApplicationUnknownToAccessibilityGivesNoScreenText)
{
    m_windows->windows = std::nullopt;
    const ContextPack pack = harvest();
    EXPECT_EQ(pack.windowTitle, std::nullopt);
    EXPECT_EQ(pack.screenText, std::nullopt);
}

} // namespace
