#include "desktop/KeyCodeLookup.h"

#include <gtest/gtest.h>

#include <map>

using namespace sayvo;

namespace {

// The letter rows of a layout by the Mac's key codes (0 = A on QWERTY, 9 = V, 47 = period).
using Layout = std::map<int, QString>;

const Layout kQwerty {{0, "a"}, {1, "s"}, {7, "x"}, {8, "c"}, {9, "v"}, {11, "b"}, {47, "."}};
const Layout kDvorak {{0, "a"}, {1, "o"}, {7, "q"}, {8, "j"}, {9, "k"}, {11, "x"}, {47, "v"}};
const Layout kRussian {
    {0, QString::fromUtf8("ф")}, {8, QString::fromUtf8("с")}, {9, QString::fromUtf8("м")}};

KeyCodeLookup::KeyOutput typing(const Layout &layout)
{
    return [&layout](int keyCode) {
        const auto found = layout.find(keyCode);
        return found == layout.end() ? QString() : found->second;
    };
}

} // namespace

TEST(KeyCodeLookupTest, QwertyTypesVOnItsUsualKey)
{
    EXPECT_EQ(KeyCodeLookup::keyCodeTyping(u'v', 128, 9, typing(kQwerty)), 9);
}

TEST(KeyCodeLookupTest, DvorakTypesVWhereQwertyHasThePeriod)
{
    // Key code 9 types "k" there: posting it would send Command-K.
    EXPECT_EQ(KeyCodeLookup::keyCodeTyping(u'v', 128, 9, typing(kDvorak)), 47);
}

TEST(KeyCodeLookupTest, ALayoutWithoutTheLetterGivesTheFallback)
{
    EXPECT_EQ(KeyCodeLookup::keyCodeTyping(u'v', 128, 9, typing(kRussian)), 9);
}

TEST(KeyCodeLookupTest, AnUnreadableLayoutGivesTheFallback)
{
    EXPECT_EQ(KeyCodeLookup::keyCodeTyping(u'v', 128, 9, [](int) { return QString(); }), 9);
}

TEST(KeyCodeLookupTest, CapitalOutputCountsAndOnlyWholeOutputsMatch)
{
    const Layout capsLock {{3, "vv"}, {5, "V"}, {9, "k"}};
    EXPECT_EQ(KeyCodeLookup::keyCodeTyping(u'v', 128, 9, typing(capsLock)), 5);
}

TEST(KeyCodeLookupTest, OnlyKeyCodesBelowTheCountAreAsked)
{
    int highest = -1;
    KeyCodeLookup::keyCodeTyping(u'v', 128, 9, [&](int keyCode) {
        highest = std::max(highest, keyCode);
        return QString();
    });
    EXPECT_EQ(highest, 127);
}
