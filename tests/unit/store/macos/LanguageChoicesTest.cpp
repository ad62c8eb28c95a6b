#include "store/SettingsStore.h"

#include <gtest/gtest.h>

namespace sayvo {
namespace {

TEST(LanguageChoicesMac, OfferEngineDefaultEnglishAndHindi)
{
    const std::vector<LanguageChoice> expected {
        {"Engine default", std::nullopt},
        {"English", QStringLiteral("en")},
        {"Hindi", QStringLiteral("hi")},
    };
    EXPECT_EQ(languageChoices(), expected);
    EXPECT_FALSE(languageNote().has_value());
}

} // namespace
} // namespace sayvo
