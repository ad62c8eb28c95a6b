#include "store/SettingsStore.h"

namespace sayvo {

// The bundled engine is PocketSphinx with its US English model.
const std::vector<LanguageChoice> &languageChoices()
{
    static const std::vector<LanguageChoice> choices {
        {QStringLiteral("Engine default"), std::nullopt},
        {QStringLiteral("English"), QStringLiteral("en")},
    };
    return choices;
}

std::optional<QString> languageNote()
{
    return QStringLiteral("The bundled engine (PocketSphinx) recognises English only.");
}

} // namespace sayvo
