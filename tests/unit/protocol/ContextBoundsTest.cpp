// What of each context text goes to the engine: heads and tails within their limits, never a
// character cut in half, and a frame the engine always accepts.
#include "protocol/ContextBounds.h"
#include "protocol/WireCodec.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

using namespace sayvo;

namespace {

bool isValidUtf8(const std::string &text)
{
    // The codec replaces broken sequences; a text that survives a round trip was whole.
    const nlohmann::json value = text;
    return nlohmann::json::parse(
               value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace))
               .get<std::string>()
        == text;
}

std::string repeated(const std::string &piece, std::size_t count)
{
    std::string text;
    text.reserve(piece.size() * count);
    for (std::size_t i = 0; i < count; ++i) {
        text += piece;
    }
    return text;
}

} // namespace

TEST(ContextBoundsTest, ShortTextsPassWhole)
{
    EXPECT_EQ(headWithin("hello", 5), "hello");
    EXPECT_EQ(tailWithin("hello", 5), "hello");
    EXPECT_EQ(headWithin("", 0), "");
    EXPECT_EQ(headWithin("hello", 0), "");
}

TEST(ContextBoundsTest, HeadsAndTailsCountEscapedBytes)
{
    EXPECT_EQ(headWithin("abcdef", 4), "abcd");
    EXPECT_EQ(tailWithin("abcdef", 4), "cdef");
    // A quote takes two bytes in the frame, a control character six.
    EXPECT_EQ(headWithin("a\"bc", 3), "a\"");
    EXPECT_EQ(headWithin("a\"bc", 2), "a");
    EXPECT_EQ(tailWithin(std::string("ab\x01", 3), 6), std::string("\x01", 1));
    EXPECT_EQ(tailWithin(std::string("ab\x01", 3), 5), "");
}

TEST(ContextBoundsTest, NoCharacterIsCutInHalf)
{
    const std::string text = "\xC3\xA9t\xC3\xA9 \xF0\x9F\x98\x80 \xE2\x82\xAC"; // été 😀 €
    for (std::size_t limit = 0; limit <= text.size(); ++limit) {
        const std::string head = headWithin(text, limit);
        const std::string tail = tailWithin(text, limit);
        EXPECT_TRUE(isValidUtf8(head)) << limit;
        EXPECT_TRUE(isValidUtf8(tail)) << limit;
        EXPECT_LE(head.size(), limit);
        EXPECT_LE(tail.size(), limit);
        EXPECT_EQ(text.substr(0, head.size()), head);
        EXPECT_EQ(text.substr(text.size() - tail.size()), tail);
    }
    EXPECT_EQ(headWithin(text, 7), "\xC3\xA9t\xC3\xA9 "); // not the first byte of the emoji
    EXPECT_EQ(tailWithin(text, 7), " \xE2\x82\xAC");
}

TEST(ContextBoundsTest, AHugeClipboardAndSelectionKeepTheirHeadAndTail)
{
    ContextPack pack;
    pack.clipboard = "START" + repeated("clipboard text ", 1'400'000) + "END"; // 20 MB
    pack.screenText = "BEGIN" + repeated("selected words ", 140'000) + "CARET"; // 2 MB
    pack.appName = "Editor";
    const ContextPack bounded = boundedForWire(pack);
    ASSERT_TRUE(bounded.clipboard && bounded.screenText);
    EXPECT_EQ(bounded.clipboard->size(), ContextLimits::kClipboardBytes);
    EXPECT_EQ(bounded.clipboard->substr(0, 5), "START");
    EXPECT_EQ(bounded.screenText->size(), ContextLimits::kScreenTextBytes);
    EXPECT_EQ(bounded.screenText->substr(bounded.screenText->size() - 5), "CARET");
    EXPECT_EQ(bounded.appName, "Editor");
}

TEST(ContextBoundsTest, EvenTheWorstPackMakesAFrameTheEngineAccepts)
{
    // Every text as long as possible and made of characters that escape to six bytes.
    const std::string controls(1024 * 1024, '\x01');
    ContextPack pack;
    pack.appBundleId = controls;
    pack.appName = controls;
    pack.windowTitle = controls;
    pack.screenText = controls;
    pack.clipboard = controls;
    pack.personalDictionary = std::vector<std::string>(400, std::string(2000, '"'));
    ContextUpdateMessage message;
    message.context = boundedForWire(pack);
    const std::string frame = encode(message);
    EXPECT_LE(frame.size(), ContextLimits::kMaxFrameBytes);
    EXPECT_LT(ContextLimits::kMaxFrameBytes, std::size_t {1024 * 1024});
}

TEST(ContextBoundsTest, TheDictionaryKeepsItsEntriesInOrderWhileTheyFit)
{
    ContextPack pack;
    std::vector<std::string> words;
    for (int i = 0; i < 40'000; ++i) {
        words.push_back("word" + std::to_string(i));
    }
    pack.personalDictionary = words;
    const ContextPack bounded = boundedForWire(pack);
    ASSERT_TRUE(bounded.personalDictionary.has_value());
    const auto &kept = *bounded.personalDictionary;
    ASSERT_LT(kept.size(), words.size());
    EXPECT_GT(kept.size(), 20'000u);
    EXPECT_TRUE(std::equal(kept.begin(), kept.end(), words.begin()));

    const ContextPack small = boundedForWire(ContextPack {{}, {}, {}, {}, {}, words});
    EXPECT_EQ(small.personalDictionary->front(), "word0");
    pack.personalDictionary = std::vector<std::string> {"Sayvo", std::string(3000, 'x')};
    const auto cut = *boundedForWire(pack).personalDictionary;
    ASSERT_EQ(cut.size(), 2u);
    EXPECT_EQ(cut[0], "Sayvo");
    EXPECT_EQ(cut[1].size(), ContextLimits::kDictionaryEntryBytes);
}
