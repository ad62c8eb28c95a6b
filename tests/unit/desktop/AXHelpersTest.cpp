#include "desktop/AXHelpers.h"
#include "support/desktop/FakeAccessibilityProvider.h"

#include <gtest/gtest.h>

using namespace sayvo;
using namespace sayvo::testing;

namespace {

TEST(AXHelpersTest, StringAttributeReturnsOnlyStringsAndKeepsEmptyOnes)
{
    FakeAccessibilityProvider provider;
    auto element = std::make_shared<FakeAccessibleElement>(QStringLiteral("e"));
    element->attributes[QStringLiteral("AXTitle")] = AttributeValue(QString());
    element->attributes[QStringLiteral("AXRole")] = AttributeValue(OtherAttributeValue {});
    element->attributes[QStringLiteral("AXParent")] = AttributeValue(AccessibleElementPtr(element));
    EXPECT_EQ(AXHelpers::stringAttribute(provider, QStringLiteral("AXTitle"), element), QString());
    EXPECT_EQ(
        AXHelpers::stringAttribute(provider, QStringLiteral("AXRole"), element), std::nullopt);
    EXPECT_EQ(
        AXHelpers::stringAttribute(provider, QStringLiteral("AXParent"), element), std::nullopt);
    EXPECT_EQ(
        AXHelpers::stringAttribute(provider, QStringLiteral("AXMissing"), element), std::nullopt);
    EXPECT_EQ(
        AXHelpers::stringAttribute(provider, QStringLiteral("AXTitle"), nullptr), std::nullopt);
}

TEST(AXHelpersTest, FocusedElementsComeFromTheSystemWideAndApplicationElements)
{
    FakeAccessibilityProvider provider;
    EXPECT_EQ(AXHelpers::focusedElement(provider), nullptr);
    auto field = provider.addApplication(7, QStringLiteral("Title"), QStringLiteral("text"));
    provider.focusSystemWide(field);
    EXPECT_EQ(AXHelpers::focusedElement(provider), field);
    EXPECT_EQ(AXHelpers::focusedElement(provider, 7), field);
    EXPECT_EQ(AXHelpers::focusedElement(provider, 8), nullptr);
    EXPECT_EQ(AXHelpers::windowTitle(provider, 7), QStringLiteral("Title"));
    EXPECT_EQ(AXHelpers::windowTitle(provider, 8), std::nullopt);
}

TEST(AXHelpersTest, ScreenTextWithoutAFocusedElementIsAbsent)
{
    FakeAccessibilityProvider provider;
    EXPECT_EQ(AXHelpers::screenText(provider, 1, 200), std::nullopt);
}

TEST(AXHelpersTest, SetValueReportsWhetherThePlatformAccepted)
{
    FakeAccessibilityProvider provider;
    auto field = std::make_shared<FakeAccessibleElement>(QStringLiteral("f"));
    field->writable = {QStringLiteral("AXValue")};
    EXPECT_EQ(AXHelpers::setValue(provider, QStringLiteral("v"), QStringLiteral("AXValue"), field),
        AccessibilityWrite::written);
    EXPECT_EQ(field->text, QStringLiteral("v"));
    EXPECT_EQ(
        AXHelpers::setValue(provider, QStringLiteral("v"), QStringLiteral("AXSelectedText"), field),
        AccessibilityWrite::refused);
    EXPECT_EQ(
        AXHelpers::setValue(provider, QStringLiteral("v"), QStringLiteral("AXValue"), nullptr),
        AccessibilityWrite::refused);
}

TEST(AXHelpersTest, AnApplicationTooSlowForAReadStillGetsItsWrite)
{
    FakeAccessibilityProvider provider;
    auto field = provider.addApplication(7, QStringLiteral("Title"), QStringLiteral("text"));
    field->writable = {QStringLiteral("AXValue")};
    field->answerAfter = AXHelpers::kReadTimeout * 2;
    ASSERT_LT(field->answerAfter, AXHelpers::kWriteTimeout);

    EXPECT_EQ(AXHelpers::screenText(provider, 7, 200), std::nullopt);
    EXPECT_EQ(
        AXHelpers::setValue(provider, QStringLiteral("new"), QStringLiteral("AXValue"), field),
        AccessibilityWrite::written);
    EXPECT_EQ(field->text, QStringLiteral("new"));
}

TEST(AXHelpersTest, ReadsWaitForEachElementOnItsOwn)
{
    FakeAccessibilityProvider provider;
    provider.addApplication(7, QStringLiteral("Title"), QStringLiteral("the field's text"));
    const auto window = std::get<AccessibleElementPtr>(
        provider.applications.at(7)->attributes.at(QStringLiteral("AXFocusedWindow")));
    std::dynamic_pointer_cast<FakeAccessibleElement>(window)->answerAfter
        = AXHelpers::kReadTimeout * 2;

    // The window that does not answer costs its title, not the field's text.
    EXPECT_EQ(AXHelpers::windowTitle(provider, 7), std::nullopt);
    EXPECT_EQ(AXHelpers::screenText(provider, 7, 200), QStringLiteral("the field's text"));
}

TEST(AXHelpersTest, AWriteLeftUnansweredIsReportedSoAndNotAsRefused)
{
    FakeAccessibilityProvider provider;
    auto field = std::make_shared<FakeAccessibleElement>(QStringLiteral("f"));
    field->writable = {QStringLiteral("AXValue")};
    field->answerAfter = AXHelpers::kWriteTimeout * 2;
    EXPECT_EQ(AXHelpers::setValue(provider, QStringLiteral("v"), QStringLiteral("AXValue"), field),
        AccessibilityWrite::unanswered);
    EXPECT_EQ(field->text, QStringLiteral("v"));
}

TEST(AXHelpersTest, LastCharactersCountsGraphemeClusters)
{
    EXPECT_EQ(AXHelpers::lastCharacters(QStringLiteral("abcdef"), 3), QStringLiteral("def"));
    EXPECT_EQ(AXHelpers::lastCharacters(QStringLiteral("ab"), 3), QStringLiteral("ab"));
    EXPECT_EQ(AXHelpers::lastCharacters(QStringLiteral("abc"), 0), QString());
    EXPECT_EQ(AXHelpers::lastCharacters(QString(), 5), QString());
    // A flag is two regional indicators; a skin-toned thumb is two code points; never split.
    const QString flag = QStringLiteral("\U0001F1E9\U0001F1EA");
    const QString thumb = QStringLiteral("\U0001F44D\U0001F3FD");
    EXPECT_EQ(AXHelpers::lastCharacters(QStringLiteral("x") + flag + thumb, 2), flag + thumb);
    EXPECT_EQ(AXHelpers::lastCharacters(flag + thumb, 1), thumb);
}

} // namespace
