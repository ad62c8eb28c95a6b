#include "store/SettingsStore.h"

#include <gtest/gtest.h>

namespace sayvo {
namespace {

// PocketSphinx ships a US English model only: that is all the choice offers, and it says so.
TEST(LanguageChoicesLinux, OfferOnlyWhatTheBundledEngineRecognises)
{
    const std::vector<LanguageChoice> expected {
        {"Engine default", std::nullopt},
        {"English", QStringLiteral("en")},
    };
    EXPECT_EQ(languageChoices(), expected);
    EXPECT_EQ(languageNote(),
        QStringLiteral("The bundled engine (PocketSphinx) recognises English only."));
}

} // namespace
} // namespace sayvo
