#include "store/SettingsStore.h"

namespace sayvo {

const std::vector<LanguageChoice> &languageChoices()
{
    static const std::vector<LanguageChoice> choices {
        {QStringLiteral("Engine default"), std::nullopt},
        {QStringLiteral("English"), QStringLiteral("en")},
        {QStringLiteral("Hindi"), QStringLiteral("hi")},
    };
    return choices;
}

std::optional<QString> languageNote()
{
    return std::nullopt;
}

} // namespace sayvo
