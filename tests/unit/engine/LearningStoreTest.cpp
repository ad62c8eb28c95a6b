#include "engine/store/LearningStore.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sys/resource.h>

namespace sayvo {
namespace {

std::int64_t unixMsDaysAgo(int days)
{
    using namespace std::chrono;
    return duration_cast<milliseconds>((system_clock::now() - days * 24h).time_since_epoch())
        .count();
}

FeedbackRecord feedback(const std::string &id, const std::string &formatted,
    const std::string &final, const std::string &raw = "raw words",
    const std::string &domain = "default")
{
    return FeedbackRecord {id, raw, formatted, final, domain, "user", 1200, unixMsDaysAgo(0)};
}

std::filesystem::perms permissionsOf(const std::string &path)
{
    return std::filesystem::status(path).permissions() & std::filesystem::perms::all;
}

std::string fileBytes(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// `count` words "w0 w1 ...", each a distinct word.
std::string manyWords(int count)
{
    std::string out;
    for (int i = 0; i < count; ++i) {
        out += (i ? " w" : "w") + std::to_string(i);
    }
    return out;
}

class LearningStoreTest : public ::testing::Test
{
protected:
    std::string path() const { return m_dir.filePath("learning.sqlite3").toStdString(); }
    QTemporaryDir m_dir;
};

TEST(LearningStoreCorrections, FindsSubstitutedWordsAndSpans)
{
    using Pairs = std::vector<std::pair<std::string, std::string>>;
    EXPECT_EQ(LearningStore::corrections("Ask Marin about it.", "Ask Maren about it."),
        (Pairs {{"marin", "Maren"}}));
    EXPECT_EQ(LearningStore::corrections("We use post gress here.", "We use Postgres here."),
        (Pairs {{"post gress", "Postgres"}}));
    EXPECT_EQ(LearningStore::corrections("Same text.", "Same text."), Pairs {});
    EXPECT_EQ(LearningStore::corrections("Hello there.", "Hello there, friend."), Pairs {});
    EXPECT_EQ(LearningStore::corrections("", "anything"), Pairs {});
}

TEST(LearningStoreCorrections, FindsACorrectionInTheLongestTextsItAligns)
{
    using Pairs = std::vector<std::pair<std::string, std::string>>;
    const int n = static_cast<int>(LearningStore::kMaxCorrectionWords) - 3;
    const std::string formatted = manyWords(n) + " ask Marin.";
    const std::string edited = manyWords(n) + " ask Maren.";
    EXPECT_EQ(LearningStore::corrections(formatted, edited), (Pairs {{"marin", "Maren"}}));
}

TEST(LearningStoreCorrections, TextsOverTheWordLimitYieldNoCorrections)
{
    // A whole document pasted back as the "edited" text: aligning it word by word against
    // the utterance would cost memory in proportion to the product of their lengths.
    const std::string formatted = "Ask Marin about it. " + manyWords(1500);
    std::string edited = "Ask Maren about it. " + manyWords(1500);
    while (edited.size() < std::size_t {1024} * 1024) {
        edited += " and more words the user typed";
    }
    EXPECT_TRUE(LearningStore::corrections(formatted, edited).empty());
    EXPECT_TRUE(LearningStore::corrections(edited, formatted).empty());
}

TEST_F(LearningStoreTest, SuggestsATermCorrectedTwice)
{
    auto store = LearningStore::open(path());
    ASSERT_TRUE(store) << store.error();
    ASSERT_TRUE((*store)->record(feedback("A", "Ask Marin now.", "Ask Maren now.")));
    EXPECT_TRUE((*store)->suggestions().dictionary.empty()) << "once is not a pattern";
    ASSERT_TRUE((*store)->record(feedback("B", "Tell Marin.", "Tell Maren.")));
    const SuggestionsMessage s = (*store)->suggestions();
    ASSERT_EQ(s.dictionary.size(), 1u);
    EXPECT_EQ(s.dictionary[0], (DictionarySuggestion {"marin", "Maren", 2}));
}

TEST_F(LearningStoreTest, TheSameUtteranceReportedTwiceCountsOnce)
{
    auto store = LearningStore::open(path());
    ASSERT_TRUE(store);
    ASSERT_TRUE((*store)->record(feedback("A", "Ask Marin.", "Ask Maren.")));
    ASSERT_TRUE((*store)->record(feedback("A", "Ask Marin.", "Ask Maren.")));
    EXPECT_TRUE((*store)->suggestions().dictionary.empty());
}

TEST_F(LearningStoreTest, SuggestsAnExemplarForARepeatedRewriteInADomain)
{
    auto store = LearningStore::open(path());
    ASSERT_TRUE(store);
    for (const char *id : {"A", "B", "C"}) {
        ASSERT_TRUE((*store)->record(
            feedback(id, "Thanks a lot.", "Many thanks!", "thanks a lot", "email")));
    }
    ASSERT_TRUE(
        (*store)->record(feedback("D", "Thanks a lot.", "Many thanks!", "thanks a lot", "casual")));
    const SuggestionsMessage s = (*store)->suggestions();
    ASSERT_EQ(s.exemplars.size(), 1u);
    EXPECT_EQ(s.exemplars[0], (ExemplarSuggestion {"email", "thanks a lot", "Many thanks!", 3}));
}

TEST_F(LearningStoreTest, UneditedFeedbackSuggestsNothing)
{
    auto store = LearningStore::open(path());
    ASSERT_TRUE(store);
    ASSERT_TRUE((*store)->record(feedback("A", "Fine.", "Fine.")));
    ASSERT_TRUE((*store)->record(feedback("B", "Fine.", "Fine.")));
    const SuggestionsMessage s = (*store)->suggestions();
    EXPECT_TRUE(s.dictionary.empty());
    EXPECT_TRUE(s.exemplars.empty());
}

TEST_F(LearningStoreTest, SuggestionsSurviveReopening)
{
    {
        auto store = LearningStore::open(path());
        ASSERT_TRUE(store);
        ASSERT_TRUE((*store)->record(feedback("A", "Ask Marin.", "Ask Maren.")));
        ASSERT_TRUE((*store)->record(feedback("B", "Ask Marin.", "Ask Maren.")));
    }
    auto reopened = LearningStore::open(path());
    ASSERT_TRUE(reopened);
    EXPECT_EQ((*reopened)->suggestions().dictionary.size(), 1u);
}

TEST_F(LearningStoreTest, UsesWriteAheadLogging)
{
    auto store = LearningStore::open(path());
    ASSERT_TRUE(store);
    ASSERT_TRUE((*store)->record(feedback("A", "x", "y")));
    EXPECT_TRUE(std::filesystem::exists(path() + "-wal"));
}

TEST_F(LearningStoreTest, ANewDataFolderIsPrivate)
{
    const std::string nested = m_dir.filePath("fresh/learning.sqlite3").toStdString();
    ASSERT_TRUE(LearningStore::open(nested));
    const auto perms = std::filesystem::status(m_dir.filePath("fresh").toStdString()).permissions();
    EXPECT_EQ(perms & (std::filesystem::perms::group_all | std::filesystem::perms::others_all),
        std::filesystem::perms::none);
}

TEST_F(LearningStoreTest, TheDatabaseIsPrivateToItsUserEvenInAnExistingFolder)
{
    const std::string folder = m_dir.filePath("shared").toStdString();
    std::filesystem::create_directory(folder);
    std::filesystem::permissions(folder, std::filesystem::perms(0755));
    const std::string file = folder + "/learning.sqlite3";
    {
        auto store = LearningStore::open(file);
        ASSERT_TRUE(store) << store.error();
        ASSERT_TRUE((*store)->record(feedback("A", "Ask Marin.", "Ask Maren.")));
        EXPECT_EQ(permissionsOf(folder), std::filesystem::perms::owner_all);
        for (const std::string &part : {file, file + "-wal", file + "-shm"}) {
            ASSERT_TRUE(std::filesystem::exists(part)) << part;
            EXPECT_EQ(permissionsOf(part),
                std::filesystem::perms::owner_read | std::filesystem::perms::owner_write)
                << part;
        }
    }
    // A database left readable by an older version is made private when opened.
    std::filesystem::permissions(file, std::filesystem::perms(0644));
    ASSERT_TRUE(LearningStore::open(file));
    EXPECT_EQ(permissionsOf(file),
        std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
}

TEST_F(LearningStoreTest, ReopeningKeepsOnlyTheNewestRowsWithinTheRetention)
{
    const LearningStore::Retention retention {3, 90};
    {
        auto store = LearningStore::open(path(), retention);
        ASSERT_TRUE(store);
        // Oldest first: one row past the age limit, then five recent ones.
        FeedbackRecord old = feedback("OLD", "Ask Marin.", "Ask Maren.");
        old.createdAtUnixMs = unixMsDaysAgo(91);
        ASSERT_TRUE((*store)->record(old));
        for (int i = 0; i < 5; ++i) {
            FeedbackRecord recent = feedback("R" + std::to_string(i), "Tell Marin.", "Tell Maren.");
            recent.createdAtUnixMs = unixMsDaysAgo(10 - i);
            ASSERT_TRUE((*store)->record(recent));
        }
        EXPECT_EQ((*store)->feedbackCount(), 6) << "retention applies when the engine starts";
    }
    auto reopened = LearningStore::open(path(), retention);
    ASSERT_TRUE(reopened);
    EXPECT_EQ((*reopened)->feedbackCount(), 3);
    // The three that are left are the newest: R2, R3 and R4, each with its correction.
    EXPECT_EQ((*reopened)->suggestions().dictionary,
        (std::vector<DictionarySuggestion> {{"marin", "Maren", 3}}));
}

TEST_F(LearningStoreTest, RowsPastTheAgeLimitGoEvenWhenFewAndLeaveNoTraceInTheFile)
{
    {
        auto store = LearningStore::open(path());
        ASSERT_TRUE(store);
        FeedbackRecord old = feedback("OLD", "Call zebraphone now.", "Call Zebrafone now.");
        old.createdAtUnixMs = unixMsDaysAgo(LearningStore::Retention {}.maxAgeDays + 1);
        ASSERT_TRUE((*store)->record(old));
        ASSERT_TRUE((*store)->record(feedback("NEW", "Fine.", "Fine.")));
    }
    ASSERT_NE(fileBytes(path()).find("zebraphone"), std::string::npos);
    {
        auto reopened = LearningStore::open(path());
        ASSERT_TRUE(reopened);
        EXPECT_EQ((*reopened)->feedbackCount(), 1);
    }
    for (const std::string &part : {path(), path() + "-wal"}) {
        EXPECT_EQ(fileBytes(part).find("ebraphone"), std::string::npos) << part;
        EXPECT_EQ(fileBytes(part).find("ebrafone"), std::string::npos) << part;
    }
}

TEST_F(LearningStoreTest, TheDefaultRetentionIsTenThousandRowsOrNinetyDays)
{
    EXPECT_EQ(LearningStore::Retention {}.maxRows, 10000);
    EXPECT_EQ(LearningStore::Retention {}.maxAgeDays, 90);
}

TEST_F(LearningStoreTest, FeedbackOverTheWordLimitIsStoredWithoutCorrections)
{
    auto store = LearningStore::open(path());
    ASSERT_TRUE(store);
    std::string edited = "Ask Maren. ";
    while (edited.size() < std::size_t {1024} * 1024) {
        edited += "the rest of a long document ";
    }
    for (const char *id : {"A", "B"}) {
        ASSERT_TRUE((*store)->record(feedback(id, "Ask Marin.", edited)));
    }
    EXPECT_EQ((*store)->feedbackCount(), 2);
    EXPECT_TRUE((*store)->suggestions().dictionary.empty());
}

// The file system refuses to let the database grow, as a full disk would.
class FileSizeLimit
{
public:
    explicit FileSizeLimit(rlim_t bytes)
    {
        m_previousHandler = std::signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &m_previous);
        const rlimit tight {bytes, m_previous.rlim_max};
        setrlimit(RLIMIT_FSIZE, &tight);
    }
    ~FileSizeLimit()
    {
        setrlimit(RLIMIT_FSIZE, &m_previous);
        std::signal(SIGXFSZ, m_previousHandler);
    }
    FileSizeLimit(const FileSizeLimit &) = delete;
    FileSizeLimit &operator=(const FileSizeLimit &) = delete;

private:
    rlimit m_previous {};
    void (*m_previousHandler)(int) = nullptr;
};

TEST_F(LearningStoreTest, AWriteThatFailsOnAFullDiskIsRolledBackAndTheStoreKeepsWorking)
{
    auto store = LearningStore::open(path());
    ASSERT_TRUE(store);
    ASSERT_TRUE((*store)->record(feedback("A", "Ask Marin.", "Ask Maren.")));
    const auto largest
        = std::max(std::filesystem::file_size(path()), std::filesystem::file_size(path() + "-wal"));
    {
        const FileSizeLimit full(largest);
        const std::string big(std::size_t {256} * 1024, 'x');
        EXPECT_FALSE((*store)->record(feedback("B", "Ask Marin.", "Ask Maren. " + big)));
        EXPECT_FALSE((*store)->lastError().empty());
    }
    EXPECT_EQ((*store)->feedbackCount(), 1) << "nothing of the failed write is kept";
    ASSERT_TRUE((*store)->record(feedback("C", "Tell Marin.", "Tell Maren.")))
        << (*store)->lastError();
    EXPECT_EQ((*store)->suggestions().dictionary,
        (std::vector<DictionarySuggestion> {{"marin", "Maren", 2}}));
}

TEST_F(LearningStoreTest, AnUnopenableDatabaseIsReportedWithItsPath)
{
    const std::string blocker = m_dir.filePath("not-a-dir").toStdString();
    {
        std::FILE *f = std::fopen(blocker.c_str(), "w");
        std::fclose(f);
    }
    const std::string bad = blocker + "/learning.sqlite3";
    auto store = LearningStore::open(bad);
    ASSERT_FALSE(store);
    EXPECT_NE(store.error().find(bad), std::string::npos);
}

TEST_F(LearningStoreTest, AFileThatIsNotADatabaseIsRefused)
{
    {
        std::FILE *f = std::fopen(path().c_str(), "w");
        std::fputs("this is no database at all, really not", f);
        std::fclose(f);
    }
    auto store = LearningStore::open(path());
    ASSERT_FALSE(store);
    EXPECT_NE(store.error().find(path()), std::string::npos);
}

} // namespace
} // namespace sayvo
