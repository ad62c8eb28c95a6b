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

// How much feedback survives a restart: the newest `maxRows` rows, and none older than
// `maxAgeDays`, whichever keeps fewer. Applied when the store is opened.
struct FeedbackRetention
{
    std::int64_t maxRows = 10000;
    int maxAgeDays = 90;
};

// The engine's memory of how users corrected it, in an SQLite database (WAL mode, every
// record one committed transaction, so a killed engine keeps everything it accepted).
// It quotes what the user dictated, so the file is private to its user (0600 in a 0700
// folder), deleted rows are overwritten, and only a bounded history is kept. Used from one
// thread at a time.
class LearningStore
{
public:
    // A correction must recur this often before it is suggested.
    static constexpr int kMinOccurrences = 2;
    // Texts longer than this (in words, either side) are stored without looking for
    // corrections: aligning them would cost time in proportion to the product of their
    // lengths, and a text that long is a document, not a corrected utterance.
    static constexpr std::size_t kMaxCorrectionWords = 2000;

    using Retention = FeedbackRetention;

    static Expected<std::unique_ptr<LearningStore>, std::string> open(
        const std::string &path, Retention retention = {});
    ~LearningStore();

    // Stores the record and the word corrections found in it; false when it was not
    // stored (the reason goes to `lastError()`), in which case nothing of it was kept and
    // the store goes on working.
    bool record(const FeedbackRecord &feedback);

    SuggestionsMessage suggestions() const;
    std::int64_t feedbackCount() const;
    const std::string &lastError() const { return m_lastError; }

    // The places where `finalText` differs from `formattedText`, as pairs of (recognised
    // words in lower case, words the user wrote), found by a word alignment in memory
    // linear in the texts' length. Pure insertions and deletions, and rewrites longer than
    // three words, are not corrections of a word; texts over `kMaxCorrectionWords` yield
    // none.
    static std::vector<std::pair<std::string, std::string>> corrections(
        const std::string &formattedText, const std::string &finalText);

private:
    explicit LearningStore(sqlite3 *db);
    bool exec(const char *sql);
    bool applyRetention(const Retention &retention);
    void rollBack();

    sqlite3 *m_db;
    std::string m_lastError;
};

} // namespace sayvo
