#pragma once

#include <QString>
#include <QStringList>

namespace sayvo {

// The words of a text as the error rate compares them: lower-cased, split at every character
// that is neither a letter, a digit nor the straight apostrophe (a typographic apostrophe
// splits), empty pieces dropped. "4:30." gives "4", "30"; "can't" stays one word.
QStringList normalizedWords(const QString &text);

// Word-level Levenshtein distance of the hypothesis from the reference, divided by the number
// of reference words. Not capped: a long spurious transcript scores above 1. A reference
// without words scores 0 against a hypothesis without words and 1 against anything else.
double wordErrorRate(const QString &reference, const QString &hypothesis);

} // namespace sayvo
