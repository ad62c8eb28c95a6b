#include "engine/store/LearningStore.h"

#include <sqlite3.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <sstream>

namespace sayvo {

namespace {

// A statement that finalises itself.
class Statement
{
public:
    Statement(sqlite3 *db, const char *sql) { sqlite3_prepare_v2(db, sql, -1, &m_stmt, nullptr); }
    ~Statement() { sqlite3_finalize(m_stmt); }
    Statement(const Statement &) = delete;
    Statement &operator=(const Statement &) = delete;

    bool ok() const { return m_stmt != nullptr; }
    void bind(int index, const std::string &text)
    {
        sqlite3_bind_text(
            m_stmt, index, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
    }
    void bind(int index, std::int64_t value) { sqlite3_bind_int64(m_stmt, index, value); }
    int step() { return sqlite3_step(m_stmt); }
    std::string text(int column) const
    {
        const auto *p = sqlite3_column_text(m_stmt, column);
        return p ? std::string(reinterpret_cast<const char *>(p),
                   static_cast<std::size_t>(sqlite3_column_bytes(m_stmt, column)))
                 : std::string();
    }
    std::int64_t integer(int column) const { return sqlite3_column_int64(m_stmt, column); }

private:
    sqlite3_stmt *m_stmt = nullptr;
};

constexpr const char *kSchema = R"sql(
CREATE TABLE IF NOT EXISTS feedback (
    id INTEGER PRIMARY KEY,
    utterance_id TEXT NOT NULL,
    raw_text TEXT NOT NULL,
    formatted_text TEXT NOT NULL,
    final_text TEXT NOT NULL,
    domain TEXT NOT NULL,
    source TEXT NOT NULL,
    edit_delay_ms INTEGER NOT NULL,
    created_at_ms INTEGER NOT NULL
);
CREATE TABLE IF NOT EXISTS corrections (
    feedback_id INTEGER NOT NULL REFERENCES feedback(id),
    misrecognized TEXT NOT NULL,
    suggested_term TEXT NOT NULL
);
CREATE INDEX IF NOT EXISTS corrections_pair ON corrections(misrecognized, suggested_term);
)sql";

// Words as written, split at white space; a word's comparison form drops the
// punctuation around it.
std::vector<std::string> words(const std::string &text)
{
    std::vector<std::string> out;
    std::istringstream stream(text);
    for (std::string w; stream >> w;) {
        out.push_back(w);
    }
    return out;
}

std::string bare(const std::string &word)
{
    const auto keep = [](unsigned char c) { return std::isalnum(c) || c == '\'' || c >= 0x80; };
    std::size_t begin = 0;
    std::size_t end = word.size();
    while (begin < end && !keep(static_cast<unsigned char>(word[begin]))) {
        ++begin;
    }
    while (end > begin && !keep(static_cast<unsigned char>(word[end - 1]))) {
        --end;
    }
    return word.substr(begin, end - begin);
}

std::string lower(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) {
        return static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
    });
    return text;
}

std::string joined(const std::vector<std::string> &parts)
{
    std::string out;
    for (const auto &p : parts) {
        out += (out.empty() ? "" : " ") + p;
    }
    return out;
}

} // namespace

Expected<std::unique_ptr<LearningStore>, std::string> LearningStore::open(const std::string &path)
{
    using Result = Expected<std::unique_ptr<LearningStore>, std::string>;
    std::error_code ec;
    const auto parent = std::filesystem::path(path).parent_path();
    if (!parent.empty() && !std::filesystem::exists(parent, ec)) {
        // Corrections quote what the user dictated: keep them from other local users.
        if (std::filesystem::create_directories(parent, ec)) {
            std::filesystem::permissions(parent, std::filesystem::perms::owner_all, ec);
        }
    }
    sqlite3 *db = nullptr;
    const int rc = sqlite3_open_v2(path.c_str(), &db,
        SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX, nullptr);
    if (rc != SQLITE_OK) {
        std::string reason = db ? sqlite3_errmsg(db) : sqlite3_errstr(rc);
        sqlite3_close(db);
        return Result::failure(path + ": " + reason);
    }
    std::unique_ptr<LearningStore> store(new LearningStore(db));
    sqlite3_busy_timeout(db, 2000);
    if (!store->exec("PRAGMA journal_mode=WAL") || !store->exec("PRAGMA synchronous=FULL")
        || !store->exec(kSchema)) {
        return Result::failure(path + ": " + store->lastError());
    }
    {
        Statement check(db, "PRAGMA quick_check");
        if (!check.ok() || check.step() != SQLITE_ROW || check.text(0) != "ok") {
            return Result::failure(path + ": the database is damaged (" + check.text(0) + ")");
        }
    }
    return store;
}

LearningStore::LearningStore(sqlite3 *db) : m_db(db) { }

LearningStore::~LearningStore()
{
    sqlite3_close(m_db);
}

bool LearningStore::exec(const char *sql)
{
    char *error = nullptr;
    if (sqlite3_exec(m_db, sql, nullptr, nullptr, &error) != SQLITE_OK) {
        m_lastError = error ? error : "unknown SQLite error";
        sqlite3_free(error);
        return false;
    }
    return true;
}

bool LearningStore::record(const FeedbackRecord &feedback)
{
    if (!exec("BEGIN IMMEDIATE")) {
        return false;
    }
    Statement insert(m_db,
        "INSERT INTO feedback (utterance_id, raw_text, formatted_text, final_text, domain, "
        "source, edit_delay_ms, created_at_ms) VALUES (?, ?, ?, ?, ?, ?, ?, ?)");
    bool ok = insert.ok();
    if (ok) {
        insert.bind(1, feedback.utteranceId);
        insert.bind(2, feedback.rawText);
        insert.bind(3, feedback.formattedText);
        insert.bind(4, feedback.finalText);
        insert.bind(5, feedback.domain);
        insert.bind(6, feedback.source);
        insert.bind(7, feedback.editDelayMs);
        insert.bind(8, feedback.createdAtUnixMs);
        ok = insert.step() == SQLITE_DONE;
    }
    const std::int64_t id = sqlite3_last_insert_rowid(m_db);
    for (const auto &[wrong, right] : corrections(feedback.formattedText, feedback.finalText)) {
        if (!ok) {
            break;
        }
        Statement pair(m_db,
            "INSERT INTO corrections (feedback_id, misrecognized, suggested_term) VALUES (?, ?, "
            "?)");
        ok = pair.ok();
        if (ok) {
            pair.bind(1, id);
            pair.bind(2, wrong);
            pair.bind(3, right);
            ok = pair.step() == SQLITE_DONE;
        }
    }
    if (!ok) {
        m_lastError = sqlite3_errmsg(m_db);
        exec("ROLLBACK");
        return false;
    }
    return exec("COMMIT");
}

SuggestionsMessage LearningStore::suggestions() const
{
    SuggestionsMessage out;
    // The same utterance reported twice counts once.
    Statement dictionary(m_db,
        "SELECT c.misrecognized, c.suggested_term, COUNT(DISTINCT f.utterance_id) AS n "
        "FROM corrections c JOIN feedback f ON f.id = c.feedback_id "
        "GROUP BY c.misrecognized, c.suggested_term HAVING n >= ? "
        "ORDER BY n DESC, c.misrecognized, c.suggested_term");
    if (dictionary.ok()) {
        dictionary.bind(1, std::int64_t {kMinOccurrences});
        while (dictionary.step() == SQLITE_ROW) {
            out.dictionary.push_back(DictionarySuggestion {
                dictionary.text(0), dictionary.text(1), dictionary.integer(2)});
        }
    }
    Statement exemplars(m_db,
        "SELECT domain, raw_text, final_text, COUNT(DISTINCT utterance_id) AS n FROM feedback "
        "WHERE final_text <> formatted_text AND raw_text <> '' "
        "GROUP BY domain, raw_text, final_text HAVING n >= ? "
        "ORDER BY n DESC, domain, raw_text");
    if (exemplars.ok()) {
        exemplars.bind(1, std::int64_t {kMinOccurrences});
        while (exemplars.step() == SQLITE_ROW) {
            out.exemplars.push_back(ExemplarSuggestion {
                exemplars.text(0), exemplars.text(1), exemplars.text(2), exemplars.integer(3)});
        }
    }
    return out;
}

std::vector<std::pair<std::string, std::string>> LearningStore::corrections(
    const std::string &formattedText, const std::string &finalText)
{
    const auto a = words(formattedText);
    const auto b = words(finalText);
    std::vector<std::string> aKey;
    std::vector<std::string> bKey;
    aKey.reserve(a.size());
    bKey.reserve(b.size());
    for (const auto &w : a) {
        aKey.push_back(bare(w));
    }
    for (const auto &w : b) {
        bKey.push_back(bare(w));
    }
    // Edit distance table, then walk back to find the runs of differing words.
    const std::size_t n = a.size();
    const std::size_t m = b.size();
    std::vector<std::vector<std::size_t>> d(n + 1, std::vector<std::size_t>(m + 1));
    for (std::size_t i = 0; i <= n; ++i) {
        d[i][0] = i;
    }
    for (std::size_t j = 0; j <= m; ++j) {
        d[0][j] = j;
    }
    for (std::size_t i = 1; i <= n; ++i) {
        for (std::size_t j = 1; j <= m; ++j) {
            const std::size_t cost = aKey[i - 1] == bKey[j - 1] ? 0 : 1;
            d[i][j] = std::min({d[i - 1][j - 1] + cost, d[i - 1][j] + 1, d[i][j - 1] + 1});
        }
    }
    std::vector<std::pair<std::string, std::string>> out;
    std::vector<std::string> wrong;
    std::vector<std::string> right;
    auto flush = [&] {
        if (!wrong.empty() && !right.empty() && wrong.size() <= 3 && right.size() <= 3) {
            std::reverse(wrong.begin(), wrong.end());
            std::reverse(right.begin(), right.end());
            std::vector<std::string> wrongBare;
            std::vector<std::string> rightBare;
            wrongBare.reserve(wrong.size());
            rightBare.reserve(right.size());
            for (const auto &w : wrong) {
                wrongBare.push_back(lower(bare(w)));
            }
            for (const auto &w : right) {
                rightBare.push_back(bare(w));
            }
            const std::string from = joined(wrongBare);
            const std::string to = joined(rightBare);
            if (!from.empty() && !to.empty() && from != to) {
                out.emplace_back(from, to);
            }
        }
        wrong.clear();
        right.clear();
    };
    std::size_t i = n;
    std::size_t j = m;
    while (i > 0 || j > 0) {
        if (i > 0 && j > 0 && aKey[i - 1] == bKey[j - 1] && d[i][j] == d[i - 1][j - 1]) {
            flush();
            --i;
            --j;
        } else if (i > 0 && j > 0 && d[i][j] == d[i - 1][j - 1] + 1) {
            wrong.push_back(a[--i]);
            right.push_back(b[--j]);
        } else if (i > 0 && d[i][j] == d[i - 1][j] + 1) {
            wrong.push_back(a[--i]);
        } else {
            right.push_back(b[--j]);
        }
    }
    flush();
    std::reverse(out.begin(), out.end());
    return out;
}

} // namespace sayvo
