#include "engine/store/LearningStore.h"

#include <sqlite3.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <filesystem>
#include <optional>
#include <sstream>
#include <system_error>
#include <unistd.h>
#include <unordered_map>

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

// The pairs of equal words in a least-edits alignment of two word sequences (Levenshtein:
// substitutions, insertions and deletions cost one each), by Hirschberg's divide and
// conquer, which needs memory linear in the sequences' length where the textbook table
// needs their product.
class WordAlignment
{
public:
    WordAlignment(std::vector<int> a, std::vector<int> b) : m_a(std::move(a)), m_b(std::move(b))
    {
        align(0, m_a.size(), 0, m_b.size());
    }

    // Index pairs (in a, in b), both ascending.
    const std::vector<std::pair<std::size_t, std::size_t>> &matches() const { return m_matches; }

private:
    // row[k] = edits from a[aFrom, aTo) to the first k words of b[bFrom, bTo), or, reversed,
    // to its last k words.
    std::vector<std::size_t> lastRow(
        std::size_t aFrom, std::size_t aTo, std::size_t bFrom, std::size_t bTo, bool reversed) const
    {
        const std::size_t n = aTo - aFrom;
        const std::size_t m = bTo - bFrom;
        std::vector<std::size_t> row(m + 1);
        for (std::size_t k = 0; k <= m; ++k) {
            row[k] = k;
        }
        for (std::size_t i = 1; i <= n; ++i) {
            const int ai = reversed ? m_a[aTo - i] : m_a[aFrom + i - 1];
            std::size_t diagonal = row[0];
            row[0] = i;
            for (std::size_t k = 1; k <= m; ++k) {
                const int bk = reversed ? m_b[bTo - k] : m_b[bFrom + k - 1];
                const std::size_t above = row[k];
                row[k] = std::min({diagonal + (ai == bk ? 0 : 1), above + 1, row[k - 1] + 1});
                diagonal = above;
            }
        }
        return row;
    }

    void align(std::size_t aFrom, std::size_t aTo, std::size_t bFrom, std::size_t bTo)
    {
        if (aFrom == aTo || bFrom == bTo) {
            return;
        }
        if (aTo - aFrom == 1) {
            // One word: matching it wherever it occurs is never worse than not.
            for (std::size_t k = bTo; k > bFrom; --k) {
                if (m_b[k - 1] == m_a[aFrom]) {
                    m_matches.emplace_back(aFrom, k - 1);
                    return;
                }
            }
            return;
        }
        const std::size_t mid = aFrom + (aTo - aFrom) / 2;
        const std::size_t m = bTo - bFrom;
        std::size_t split = 0;
        {
            const std::vector<std::size_t> head = lastRow(aFrom, mid, bFrom, bTo, false);
            const std::vector<std::size_t> tail = lastRow(mid, aTo, bFrom, bTo, true);
            std::size_t best = head[0] + tail[m];
            for (std::size_t k = 1; k <= m; ++k) {
                if (head[k] + tail[m - k] <= best) {
                    best = head[k] + tail[m - k];
                    split = k;
                }
            }
        }
        align(aFrom, mid, bFrom, bFrom + split);
        align(mid, aTo, bFrom + split, bTo);
    }

    std::vector<int> m_a;
    std::vector<int> m_b;
    std::vector<std::pair<std::size_t, std::size_t>> m_matches;
};

std::string joined(const std::vector<std::string> &parts)
{
    std::string out;
    for (const auto &p : parts) {
        out += (out.empty() ? "" : " ") + p;
    }
    return out;
}

// The folder 0700 and the database 0600, created so or tightened when an older version left
// them open; SQLite gives its -wal and -shm files the database's mode. Nothing, or what
// went wrong.
std::optional<std::string> makePrivate(const std::string &path)
{
    namespace fs = std::filesystem;
    std::error_code ec;
    const fs::path parent = fs::path(path).parent_path();
    if (!parent.empty()) {
        fs::create_directories(parent, ec);
        fs::permissions(parent, fs::perms::owner_all, ec);
    }
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0) {
        return std::error_code(errno, std::generic_category()).message();
    }
    ::close(fd);
    for (const std::string &file : {path, path + "-wal", path + "-shm"}) {
        if (fs::exists(file, ec)) {
            fs::permissions(file, fs::perms::owner_read | fs::perms::owner_write, ec);
        }
    }
    return std::nullopt;
}

} // namespace

Expected<std::unique_ptr<LearningStore>, std::string> LearningStore::open(
    const std::string &path, Retention retention)
{
    using Result = Expected<std::unique_ptr<LearningStore>, std::string>;
    if (path != ":memory:") {
        if (auto failed = makePrivate(path)) {
            return Result::failure(path + ": " + *failed);
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
    // Deleted rows are overwritten, so text past its retention is gone from the file too.
    if (!store->exec("PRAGMA journal_mode=WAL") || !store->exec("PRAGMA synchronous=FULL")
        || !store->exec("PRAGMA secure_delete=ON") || !store->exec(kSchema)) {
        return Result::failure(path + ": " + store->lastError());
    }
    {
        Statement check(db, "PRAGMA quick_check");
        if (!check.ok() || check.step() != SQLITE_ROW || check.text(0) != "ok") {
            return Result::failure(path + ": the database is damaged (" + check.text(0) + ")");
        }
    }
    if (!store->applyRetention(retention)) {
        return Result::failure(path + ": could not drop old feedback: " + store->lastError());
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

void LearningStore::rollBack()
{
    // A failed statement or COMMIT may leave the transaction open (SQLite rolls back by
    // itself only for some errors); every later BEGIN would then fail.
    if (!sqlite3_get_autocommit(m_db)) {
        sqlite3_exec(m_db, "ROLLBACK", nullptr, nullptr, nullptr);
    }
}

bool LearningStore::record(const FeedbackRecord &feedback)
{
    rollBack();
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
        rollBack();
        return false;
    }
    if (!exec("COMMIT")) {
        rollBack();
        return false;
    }
    return true;
}

bool LearningStore::applyRetention(const Retention &retention)
{
    using namespace std::chrono;
    const std::int64_t cutoffMs = duration_cast<milliseconds>(
        (system_clock::now() - hours(24) * retention.maxAgeDays).time_since_epoch())
                                      .count();
    if (!exec("BEGIN IMMEDIATE")) {
        return false;
    }
    Statement drop(m_db,
        "DELETE FROM feedback WHERE created_at_ms < ? OR id NOT IN "
        "(SELECT id FROM feedback ORDER BY id DESC LIMIT ?)");
    bool ok = drop.ok();
    if (ok) {
        drop.bind(1, cutoffMs);
        drop.bind(2, retention.maxRows);
        ok = drop.step() == SQLITE_DONE;
    }
    const int dropped = ok ? sqlite3_changes(m_db) : 0;
    ok = ok && exec("DELETE FROM corrections WHERE feedback_id NOT IN (SELECT id FROM feedback)");
    if (!ok) {
        if (m_lastError.empty()) {
            m_lastError = sqlite3_errmsg(m_db);
        }
        rollBack();
        return false;
    }
    if (!exec("COMMIT")) {
        rollBack();
        return false;
    }
    // Moves the overwritten pages into the database file and empties the log, which still
    // held the rows as they were.
    return dropped == 0 || exec("PRAGMA wal_checkpoint(TRUNCATE)");
}

std::int64_t LearningStore::feedbackCount() const
{
    Statement count(m_db, "SELECT COUNT(*) FROM feedback");
    return count.ok() && count.step() == SQLITE_ROW ? count.integer(0) : 0;
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
    if (a.size() > kMaxCorrectionWords || b.size() > kMaxCorrectionWords) {
        return {};
    }
    // Words compare by their bare form; number each distinct form once.
    std::unordered_map<std::string, int> numbers;
    const auto keys = [&numbers](const std::vector<std::string> &text) {
        std::vector<int> out;
        out.reserve(text.size());
        for (const auto &w : text) {
            out.push_back(
                numbers.try_emplace(bare(w), static_cast<int>(numbers.size())).first->second);
        }
        return out;
    };
    const WordAlignment alignment {keys(a), keys(b)};

    std::vector<std::pair<std::string, std::string>> out;
    // The words between two matched pairs (or an end) are one rewrite.
    const auto rewrite
        = [&](std::size_t aFrom, std::size_t aTo, std::size_t bFrom, std::size_t bTo) {
              const std::size_t wrongCount = aTo - aFrom;
              const std::size_t rightCount = bTo - bFrom;
              if (wrongCount == 0 || rightCount == 0 || wrongCount > 3 || rightCount > 3) {
                  return;
              }
              std::vector<std::string> wrongBare;
              std::vector<std::string> rightBare;
              wrongBare.reserve(wrongCount);
              rightBare.reserve(rightCount);
              for (std::size_t i = aFrom; i < aTo; ++i) {
                  wrongBare.push_back(lower(bare(a[i])));
              }
              for (std::size_t j = bFrom; j < bTo; ++j) {
                  rightBare.push_back(bare(b[j]));
              }
              const std::string from = joined(wrongBare);
              const std::string to = joined(rightBare);
              if (!from.empty() && !to.empty() && from != to) {
                  out.emplace_back(from, to);
              }
          };
    std::size_t i = 0;
    std::size_t j = 0;
    for (const auto &[ai, bj] : alignment.matches()) {
        rewrite(i, ai, j, bj);
        i = ai + 1;
        j = bj + 1;
    }
    rewrite(i, a.size(), j, b.size());
    return out;
}

} // namespace sayvo
