#include "calibration/WordErrorRate.h"

#include <gtest/gtest.h>

namespace sayvo {
namespace {

TEST(NormalizedWordsTest, LowerCasesAndSplitsAtPunctuationKeepingStraightApostrophes)
{
    EXPECT_EQ(normalizedWords(QStringLiteral("I can't make it to the call at 4:30.")),
        (QStringList {"i", "can't", "make", "it", "to", "the", "call", "at", "4", "30"}));
    EXPECT_EQ(normalizedWords(QStringLiteral("$42.")), QStringList {"42"});
    EXPECT_EQ(normalizedWords(QStringLiteral("3pm")), QStringList {"3pm"});
}

TEST(NormalizedWordsTest, ATypographicApostropheSplitsTheWord)
{
    EXPECT_EQ(normalizedWords(QStringLiteral("can\u2019t")), (QStringList {"can", "t"}));
}

TEST(NormalizedWordsTest, EmptyAndPunctuationOnlyTextsHaveNoWords)
{
    EXPECT_TRUE(normalizedWords(QString()).isEmpty());
    EXPECT_TRUE(normalizedWords(QStringLiteral(" \u2014 ... !")).isEmpty());
}

TEST(NormalizedWordsTest, LettersBeyondTheBasicPlaneStayOneWord)
{
    EXPECT_EQ(
        normalizedWords(QStringLiteral("a\U0001D400b c")), (QStringList {"a\U0001D400b", "c"}));
}

TEST(NormalizedWordsTest, ALetterWithACombiningAccentStaysInItsWord)
{
    EXPECT_EQ(normalizedWords(QStringLiteral("Cafe\u0301s open")),
        (QStringList {QStringLiteral("cafe\u0301s"), QStringLiteral("open")}));
    EXPECT_EQ(normalizedWords(QStringLiteral("n\u0303o\u0308")), QStringList {"n\u0303o\u0308"});
    EXPECT_EQ(
        wordErrorRate(QStringLiteral("Cafe\u0301s open"), QStringLiteral("cafe\u0301s open")), 0.0);
}

TEST(WordErrorRateTest, CaseAndPunctuationDifferencesScoreZero)
{
    EXPECT_EQ(wordErrorRate(QStringLiteral("The total comes to $42."),
                  QStringLiteral("the total comes to 42")),
        0.0);
}

TEST(WordErrorRateTest, TwoSubstitutionsAndADeletionOverTenWordsScoreThreeTenths)
{
    EXPECT_DOUBLE_EQ(wordErrorRate(QStringLiteral("I can't make it to the call at 4:30."),
                         QStringLiteral("I cant make it to the call at 430.")),
        0.3);
}

TEST(WordErrorRateTest, ALongSpuriousTranscriptScoresAboveOne)
{
    EXPECT_DOUBLE_EQ(
        wordErrorRate(QStringLiteral("ship it friday"), QStringLiteral("a b c d e f")), 2.0);
}

TEST(WordErrorRateTest, InsertionsDeletionsAndSubstitutionsCountOneEach)
{
    EXPECT_DOUBLE_EQ(wordErrorRate(QStringLiteral("a b c d"), QStringLiteral("a x c d e")), 0.5);
    EXPECT_DOUBLE_EQ(wordErrorRate(QStringLiteral("a b c d"), QStringLiteral("b c d")), 0.25);
    EXPECT_DOUBLE_EQ(wordErrorRate(QStringLiteral("a b c d"), QString()), 1.0);
}

TEST(WordErrorRateTest, AReferenceWithoutWordsScoresZeroOrOne)
{
    EXPECT_EQ(wordErrorRate(QString(), QStringLiteral("...")), 0.0);
    EXPECT_EQ(wordErrorRate(QStringLiteral("?"), QStringLiteral("hello")), 1.0);
}

} // namespace
} // namespace sayvo
