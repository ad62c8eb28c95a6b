#include "desktop/AXHelpers.h"
#include "desktop/TextInserter.h"
#include "desktop/atspi/AccessibilityProviderAtSpi.h"
#include "desktop/atspi/WorkspaceAtSpi.h"
#include "desktop/x11/KeySynthesizerX11.h"
#include "desktop/x11/PasteboardX11.h"
#include "desktop/x11/WorkspaceX11.h"
#include "support/desktop/DesktopSession.h"
#include "support/desktop/TestEditor.h"

#include <QElapsedTimer>
#include <QTest>

#include <gtest/gtest.h>

using namespace sayvo;
using namespace sayvo::testing;

namespace {

class AccessibilityAtSpiTest : public ::testing::Test
{
protected:
    // Called through ASSERT_NO_FATAL_FAILURE: a failed assertion here returns from this
    // function only, and the test would go on with the objects it did not create.
    void start(bool accessibleEditor)
    {
        ASSERT_TRUE(m_session.isReady()) << m_session.failure().toStdString();
        m_editor = std::make_unique<TestEditor>(
            m_session, QStringLiteral("Accessible target"), accessibleEditor);
        ASSERT_TRUE(m_editor->isReady());
        m_accessibility = std::make_shared<AccessibilityProviderAtSpi>();
        m_inserter = std::make_unique<TextInserter>(std::make_shared<PasteboardX11>(),
            std::make_shared<KeySynthesizerX11>(), m_accessibility,
            std::make_shared<WorkspaceX11>());
    }

    // The toolkit registers with the accessibility bus shortly after its window appears.
    AccessibleElementPtr waitForFocus()
    {
        AccessibleElementPtr focused;
        (void)QTest::qWaitFor(
            [&] {
                focused = AXHelpers::focusedElement(*m_accessibility);
                return focused != nullptr;
            },
            10000);
        return focused;
    }

    // Inserts and waits for the outcome.
    bool insert(const QString &text, InsertionMethod method)
    {
        std::optional<bool> result;
        m_inserter->insert(text, method, [&](bool inserted) { result = inserted; });
        (void)QTest::qWaitFor([&] { return result.has_value(); }, 5000);
        return result.value_or(false);
    }

    DesktopSession m_session;
    std::unique_ptr<TestEditor> m_editor;
    std::shared_ptr<AccessibilityProviderAtSpi> m_accessibility;
    std::unique_ptr<TextInserter> m_inserter;
};

TEST_F(AccessibilityAtSpiTest, DirectInsertionReplacesTheSelectionAndKeepsTheRest)
{
    ASSERT_NO_FATAL_FAILURE(start(true));
    m_editor->setText(QStringLiteral("keep THIS text"), 5, 9);
    ASSERT_TRUE(waitForFocus());
    EXPECT_TRUE(insert(QStringLiteral("that"), InsertionMethod::axDirect));
    EXPECT_TRUE(m_editor->waitForText(QStringLiteral("keep that text")));
}

TEST_F(AccessibilityAtSpiTest, DirectInsertionWithoutSelectionInsertsAtTheCaret)
{
    ASSERT_NO_FATAL_FAILURE(start(true));
    m_editor->setText(QStringLiteral("front back"), 6, 6);
    ASSERT_TRUE(waitForFocus());
    EXPECT_EQ(m_inserter->insertViaAX(QStringLiteral("middle ")), AccessibilityWrite::written);
    EXPECT_TRUE(m_editor->waitForText(QStringLiteral("front middle back")));
}

TEST_F(AccessibilityAtSpiTest, TheValueFallbackReplacesTheWholeText)
{
    ASSERT_NO_FATAL_FAILURE(start(true));
    m_editor->setText(QStringLiteral("all of this goes"), 0, 3);
    const AccessibleElementPtr focused = waitForFocus();
    ASSERT_TRUE(focused);
    EXPECT_EQ(AXHelpers::setValue(
                  *m_accessibility, QStringLiteral("replaced"), AXHelpers::kValue, focused),
        AccessibilityWrite::written);
    EXPECT_TRUE(m_editor->waitForText(QStringLiteral("replaced")));
}

TEST_F(AccessibilityAtSpiTest, SelectionAndValueAreReadFromTheFocusedField)
{
    ASSERT_NO_FATAL_FAILURE(start(true));
    m_editor->setText(QStringLiteral("read THIS please"), 5, 9);
    const AccessibleElementPtr focused = waitForFocus();
    ASSERT_TRUE(focused);
    EXPECT_EQ(AXHelpers::stringAttribute(*m_accessibility, AXHelpers::kSelectedText, focused),
        QStringLiteral("THIS"));
    EXPECT_EQ(AXHelpers::stringAttribute(*m_accessibility, AXHelpers::kValue, focused),
        QStringLiteral("read THIS please"));
    EXPECT_EQ(AXHelpers::windowTitle(*m_accessibility, m_editor->pid()),
        QStringLiteral("Accessible target"));
}

TEST_F(AccessibilityAtSpiTest, WithoutAnAccessibleFocusDirectInsertionFailsAndPasteIsUsed)
{
    ASSERT_NO_FATAL_FAILURE(start(false));
    m_editor->setText(QString());
    EXPECT_EQ(AXHelpers::focusedElement(*m_accessibility), nullptr);
    EXPECT_EQ(
        m_inserter->insertViaAX(QStringLiteral("pasted instead")), AccessibilityWrite::refused);
    EXPECT_TRUE(insert(QStringLiteral("pasted instead"), InsertionMethod::axDirect));
    EXPECT_TRUE(m_editor->waitForText(QStringLiteral("pasted instead")));
}

// Accents, CJK, emoji outside the Basic Multilingual Plane and a combining mark, into GTK 3,
// GTK 4 and Qt 6 fields, each through its toolkit's own AT-SPI code.
class DirectInsertionByToolkitTest : public ::testing::TestWithParam<TestEditor::Toolkit>
{
};

TEST_P(DirectInsertionByToolkitTest, EveryCharacterLandsExactly)
{
    DesktopSession session;
    ASSERT_TRUE(session.isReady()) << session.failure().toStdString();
    TestEditor editor(session, QStringLiteral("Toolkit target"), true, GetParam());
    ASSERT_TRUE(editor.isReady());
    auto accessibility = std::make_shared<AccessibilityProviderAtSpi>();
    TextInserter inserter(std::make_shared<PasteboardX11>(), std::make_shared<KeySynthesizerX11>(),
        accessibility, std::make_shared<WorkspaceX11>());

    editor.setText(QStringLiteral("Start  end"), 6, 6);
    ASSERT_TRUE(QTest::qWaitFor(
        [&] { return AXHelpers::focusedElement(*accessibility) != nullptr; }, 10000));
    const QString words = QString::fromUtf8("naïve café, 東京で会う 🎉🇫🇷 e\u0301t\u00e9");
    EXPECT_EQ(inserter.insertViaAX(words), AccessibilityWrite::written);
    EXPECT_TRUE(editor.waitForText(QStringLiteral("Start ") + words + QStringLiteral(" end")))
        << editor.text().toStdString();

    // Replacing a selection.
    editor.setText(QStringLiteral("keep THIS text"), 5, 9);
    EXPECT_EQ(inserter.insertViaAX(QString::fromUtf8("ça 🎉")), AccessibilityWrite::written);
    EXPECT_TRUE(editor.waitForText(QString::fromUtf8("keep ça 🎉 text")))
        << editor.text().toStdString();
}

INSTANTIATE_TEST_SUITE_P(Toolkits, DirectInsertionByToolkitTest,
    ::testing::Values(
        TestEditor::Toolkit::gtk3, TestEditor::Toolkit::gtk4, TestEditor::Toolkit::qt6),
    [](const ::testing::TestParamInfo<TestEditor::Toolkit> &info) {
        switch (info.param) {
        case TestEditor::Toolkit::gtk3:
            return std::string("Gtk3");
        case TestEditor::Toolkit::gtk4:
            return std::string("Gtk4");
        case TestEditor::Toolkit::qt6:
            return std::string("Qt6");
        }
        return std::string();
    });

TEST(AccessibilityAtSpiUnavailableTest, WithoutTheAccessibilityBusEverythingIsAbsentAndQuick)
{
    DesktopSession session(DesktopSession::Options {true, false});
    ASSERT_TRUE(session.isReady()) << session.failure().toStdString();
    TestEditor editor(session, QStringLiteral("Nobody listens"));
    ASSERT_TRUE(editor.isReady());
    AccessibilityProviderAtSpi provider;
    QElapsedTimer timer;
    timer.start();
    EXPECT_EQ(provider.systemWideElement(), nullptr);
    EXPECT_EQ(provider.applicationElement(editor.pid()), nullptr);
    EXPECT_EQ(AXHelpers::focusedElement(provider), nullptr);
    EXPECT_EQ(AXHelpers::screenText(provider, editor.pid(), 200), std::nullopt);
    EXPECT_EQ(AXHelpers::windowTitle(provider, editor.pid()), std::nullopt);
    EXPECT_LT(timer.elapsed(), 5 * AccessibilityProviderAtSpi::kTimeoutMs);
}

TEST_F(AccessibilityAtSpiTest, TheWindowInFrontAndItsActivationsComeFromAccessibility)
{
    ASSERT_TRUE(m_session.isReady()) << m_session.failure().toStdString();
    auto accessibility = std::make_shared<AccessibilityProviderAtSpi>();
    WorkspaceAtSpi workspace(accessibility);
    int activations = 0;
    workspace.setOnActivation([&activations] { ++activations; });
    auto titleInFront = [&workspace] {
        const auto front = workspace.frontmostApplication();
        return front ? front->windowTitle.value_or(QString()) : QString();
    };

    TestEditor first(m_session, QStringLiteral("First window"));
    ASSERT_TRUE(first.isReady());
    ASSERT_TRUE(QTest::qWaitFor([&] { return titleInFront() == "First window"; }, 10000));
    const auto front = workspace.frontmostApplication();
    ASSERT_TRUE(front);
    EXPECT_EQ(front->name, QStringLiteral("sayvo-test-editor"));
    EXPECT_EQ(front->bundleId, QStringLiteral("sayvo-test-editor"));
    EXPECT_EQ(front->pid, first.pid());

    TestEditor second(m_session, QStringLiteral("Second window"));
    ASSERT_TRUE(second.isReady());
    ASSERT_TRUE(QTest::qWaitFor([&] { return titleInFront() == "Second window"; }, 10000));
    const int beforeSwitch = activations;
    ASSERT_TRUE(first.activate());
    ASSERT_TRUE(QTest::qWaitFor([&] { return titleInFront() == "First window"; }, 10000));
    EXPECT_TRUE(QTest::qWaitFor([&] { return activations > beforeSwitch; }, 10000));
}

} // namespace
