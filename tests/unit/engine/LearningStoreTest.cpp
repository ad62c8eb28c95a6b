#include "engine/store/LearningStore.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <filesystem>

namespace sayvo {
namespace {

FeedbackRecord feedback(const std::string &id, const std::string &formatted,
    const std::string &final, const std::string &raw = "raw words",
    const std::string &domain = "default")
{
    return FeedbackRecord {id, raw, formatted, final, domain, "user", 1200, 1700000000000};
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
