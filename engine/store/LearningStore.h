#pragma once

#include "base/Expected.h"
#include "protocol/InboundMessages.h"

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

struct sqlite3;

namespace sayvo {

// One piece of post-edit feedback with what the engine had produced for the utterance.
struct FeedbackRecord
{
    std::string utteranceId;
    std::string rawText;
    std::string formattedText;
    std::string finalText; // as the user left it
    std::string domain;
    std::string source;
    std::int64_t editDelayMs = 0;
    std::int64_t createdAtUnixMs = 0;
};

// The engine's memory of how users corrected it, in an SQLite database (WAL mode, every
// record one committed transaction, so a killed engine keeps everything it accepted).
// Used from the engine's main thread only.
class LearningStore
{
public:
    // A correction must recur this often before it is suggested.
    static constexpr int kMinOccurrences = 2;

    static Expected<std::unique_ptr<LearningStore>, std::string> open(const std::string &path);
    ~LearningStore();

    // Stores the record and the word corrections found in it; false when it was not
    // stored (the reason goes to `lastError()`).
    bool record(const FeedbackRecord &feedback);

    SuggestionsMessage suggestions() const;
    const std::string &lastError() const { return m_lastError; }

    // The places where `finalText` differs from `formattedText`, as pairs of (recognised
    // words in lower case, words the user wrote), found by a word alignment. Pure
    // insertions and deletions, and rewrites longer than three words, are not
    // corrections of a word.
    static std::vector<std::pair<std::string, std::string>> corrections(
        const std::string &formattedText, const std::string &finalText);

private:
    explicit LearningStore(sqlite3 *db);
    bool exec(const char *sql);

    sqlite3 *m_db;
    std::string m_lastError;
};

} // namespace sayvo
