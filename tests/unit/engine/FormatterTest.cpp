#include "engine/format/Formatter.h"

#include <gtest/gtest.h>

namespace sayvo {
namespace {

struct Prompt
{
    const char *domain;
    const char *spoken;
    const char *written;
};

// Each calibration sentence as a recogniser hears it (lower-case words, numbers spelled
// out, spoken punctuation only where no rule could place the mark) and as it must be written.
const Prompt kPrompts[] = {
    {"default", "the meeting is at three pm in room two oh four",
        "The meeting is at 3pm in room 204."},
    {"default", "the total comes to forty two dollars", "The total comes to $42."},
    {"default", "can you send me the file when you're done",
        "Can you send me the file when you're done?"},
    {"default", "i can't make it to the call at four thirty",
        "I can't make it to the call at 4:30."},
    {"default", "there's a bug in the checkout flow period we should fix it",
        "There's a bug in the checkout flow. We should fix it."},
    {"email", "hi maren just following up on the proposal we sent last week",
        "Hi Maren, just following up on the proposal we sent last week."},
    {"email", "can you confirm you'll be at the two pm meeting",
        "Can you confirm you'll be at the 2pm meeting?"},
    {"email", "circling back on this dash can we chat tomorrow",
        "Circling back on this \xE2\x80\x94 can we chat tomorrow?"},
    {"legal", "the indemnification obligations survive termination of this agreement",
        "The indemnification obligations survive termination of this Agreement."},
    {"legal", "notwithstanding section one comma the covenant remains in force",
        "Notwithstanding Section 1, the covenant remains in force."},
    {"legal", "the effective date is january first twenty twenty six",
        "The Effective Date is January 1, 2026."},
    {"casual", "i think we should ship it on friday", "i think we should ship it on friday"},
    {"casual", "you wanna hang out this weekend", "you wanna hang out this weekend"},
};

class CalibrationPrompts : public ::testing::TestWithParam<Prompt>
{
};

TEST_P(CalibrationPrompts, SpokenFormBecomesTheWrittenSentence)
{
    const Prompt p = GetParam();
    const FormatResult result = Formatter().format(p.spoken, p.domain);
    EXPECT_EQ(result.text, p.written);
    EXPECT_TRUE(result.guardrail.applied);
}

INSTANTIATE_TEST_SUITE_P(AllThirteen, CalibrationPrompts, ::testing::ValuesIn(kPrompts));

std::string fmt(
    const char *raw, const char *domain = "default", std::vector<std::string> dictionary = {})
{
    return Formatter().rewrite(raw, domain, dictionary);
}

TEST(Formatter, RemovesAndCountsFillers)
{
    const FormatResult r = Formatter().format("um so uh we er ship ah today hmm", "default");
    EXPECT_EQ(r.text, "So we ship today.");
    EXPECT_EQ(r.fillerCount, 5);
    EXPECT_EQ(r.spokenWordCount, 9);
    EXPECT_TRUE(r.guardrail.applied);
}

TEST(Formatter, CapitalisesSentencesAndI)
{
    EXPECT_EQ(fmt("i think i'm ready period i'll call you"), "I think I'm ready. I'll call you.");
}

TEST(Formatter, WritesNumbersTenAndUpAsDigitsAndKeepsSmallCountsAsWords)
{
    EXPECT_EQ(fmt("we have two ideas and twenty three bugs"), "We have two ideas and 23 bugs.");
    EXPECT_EQ(fmt("about one hundred and five people came"), "About 105 people came.");
    EXPECT_EQ(fmt("we sold twelve thousand five hundred units"), "We sold 12,500 units.");
    EXPECT_EQ(fmt("growth was seven percent"), "Growth was 7%.");
}

TEST(Formatter, WritesTimes)
{
    EXPECT_EQ(fmt("see you at seven thirty pm"), "See you at 7:30pm.");
    EXPECT_EQ(fmt("it starts at nine oh five"), "It starts at 9:05.");
    EXPECT_EQ(fmt("call me at eleven am"), "Call me at 11am.");
}

TEST(Formatter, WritesMoney)
{
    EXPECT_EQ(fmt("it costs nineteen dollars and ninety nine cents"), "It costs $19.99.");
    EXPECT_EQ(fmt("lunch was five dollars"), "Lunch was $5.");
}

TEST(Formatter, WritesDates)
{
    EXPECT_EQ(fmt("the launch is on march third"), "The launch is on March 3.");
    EXPECT_EQ(fmt("born on july fourth nineteen eighty four"), "Born on July 4, 1984.");
    EXPECT_EQ(fmt("due december twenty first two thousand twenty five"), "Due December 21, 2025.");
}

TEST(Formatter, MayAndMarchAreMonthsOnlyBeforeAnOrdinal)
{
    EXPECT_EQ(fmt("we may one day agree"), "We may one day agree.");
    EXPECT_EQ(fmt("it ships may fifth"), "It ships May 5.");
    EXPECT_EQ(fmt("we march on"), "We march on.");
}

TEST(Formatter, AsksQuestions)
{
    EXPECT_EQ(fmt("what time is it"), "What time is it?");
    EXPECT_EQ(fmt("do you have a minute"), "Do you have a minute?");
    EXPECT_EQ(fmt("do it now"), "Do it now.");
    EXPECT_EQ(fmt("when you're done send it over"), "When you're done send it over.");
}

TEST(Formatter, FollowsSpokenPunctuation)
{
    EXPECT_EQ(fmt("first comma second period third question mark"), "First, second. Third?");
    EXPECT_EQ(fmt("thanks for the update new line see you"), "Thanks for the update.\nSee you.");
    EXPECT_EQ(fmt("wait dash really"), "Wait \xE2\x80\x94 really.");
}

TEST(Formatter, SpellsPersonalDictionaryTermsTheirWay)
{
    EXPECT_EQ(fmt("ask maren about the type script build", "default", {"Maren", "TypeScript"}),
        "Ask Maren about the TypeScript build.");
    EXPECT_EQ(fmt("iphone sales are up", "default", {"iPhone"}), "iPhone sales are up.");
    EXPECT_EQ(fmt("we met in new york", "casual", {"New York"}), "we met in New York");
}

TEST(Formatter, CasualStaysLowerCaseAndOpen)
{
    EXPECT_EQ(
        fmt("i will see you at three pm on monday", "casual"), "i will see you at 3pm on monday");
    EXPECT_EQ(fmt("are you coming", "casual"), "are you coming");
}

TEST(Formatter, EmailGreetsWithACommaAndLegalCapitalisesDefinedTerms)
{
    EXPECT_EQ(fmt("hello there quick question", "email"), "Hello there, quick question.");
    EXPECT_EQ(
        fmt("the parties agree under section four", "legal"), "The Parties agree under Section 4.");
    EXPECT_EQ(fmt("the parties agree under section four", "default"),
        "The parties agree under section 4.");
}

TEST(Formatter, EmptyAndFillerOnlyInputGivesEmptyText)
{
    EXPECT_EQ(Formatter().format("", "default").text, "");
    const FormatResult r = Formatter().format("um uh", "default");
    EXPECT_EQ(r.text, "");
    EXPECT_EQ(r.fillerCount, 2);
}

TEST(Formatter, GuardrailKeepsRawTextWhenMostWordsWouldChange)
{
    const char *raw = "one hundred twenty three thousand four hundred fifty six";
    const FormatResult r = Formatter().format(raw, "default");
    EXPECT_EQ(r.text, raw);
    EXPECT_FALSE(r.guardrail.applied);
    ASSERT_TRUE(r.guardrail.editRatio.has_value());
    EXPECT_GT(*r.guardrail.editRatio, 0.5);
    EXPECT_EQ(r.guardrail.policy, "max_edit_ratio_0.5");
    ASSERT_TRUE(r.guardrail.reason.has_value());
    EXPECT_NE(r.guardrail.reason->find("raw text kept"), std::string::npos);
}

TEST(Formatter, GuardrailLetsOrdinaryFormattingThrough)
{
    const FormatResult r = Formatter().format("the total comes to forty two dollars", "default");
    EXPECT_TRUE(r.guardrail.applied);
    EXPECT_NEAR(*r.guardrail.editRatio, 3.0 / 7.0, 1e-9);
    EXPECT_FALSE(r.guardrail.reason.has_value());
}

TEST(Formatter, EditRatioIgnoresCaseAndPunctuation)
{
    EXPECT_DOUBLE_EQ(Formatter::editRatio("hello world", "Hello, world!"), 0.0);
    EXPECT_DOUBLE_EQ(Formatter::editRatio("a b c d", "a x c"), 0.5);
    EXPECT_DOUBLE_EQ(Formatter::editRatio("", ""), 0.0);
}

TEST(Formatter, OddInputDoesNotBreakIt)
{
    EXPECT_EQ(fmt("period period comma"), "..,");
    EXPECT_EQ(fmt("hundred thousand million"), "Hundred thousand million.");
    EXPECT_EQ(fmt("MIXED Case words"), "Mixed case words.");
    EXPECT_NO_THROW(fmt("\xff\xfe caf\xc3\xa9 \xE2\x80\x94"));
}

} // namespace
} // namespace sayvo
