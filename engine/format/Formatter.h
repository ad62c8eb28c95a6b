#pragma once

#include "protocol/InboundMessages.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace sayvo {

// What one formatting pass produced from a recogniser's text.
struct FormatResult
{
    std::string text; // the text to insert: formatted, or the raw text when the guardrail held
    std::int64_t fillerCount = 0; // hesitation words removed
    std::int64_t spokenWordCount = 0; // recognised words, fillers included
    Guardrail guardrail;
};

// Rule-based formatter from a recogniser's lower-case words to written text in one of the
// domains "default", "email", "legal" and "casual". Stateless and cheap: safe to share
// between sessions and threads.
class Formatter
{
public:
    // Above this share of changed words the raw text is kept.
    static constexpr double kMaxEditRatio = 0.5;

    FormatResult format(std::string_view raw, std::string_view domain,
        const std::vector<std::string> &personalDictionary = {}) const;

    // The formatting rules alone, without the guardrail.
    std::string rewrite(std::string_view raw, std::string_view domain,
        const std::vector<std::string> &personalDictionary = {},
        std::int64_t *fillerCount = nullptr) const;

    // Share of the words of `before` that differ in `after` (word-level edit distance over
    // the number of words of `before`); case and punctuation are ignored.
    static double editRatio(std::string_view before, std::string_view after);

    // Lower-cased words with punctuation removed, apostrophes kept.
    static std::vector<std::string> normalizedWords(std::string_view text);

    static bool isFiller(std::string_view word);
};

} // namespace sayvo
