#include "desktop/KeySynthesizer.h"

#include <gtest/gtest.h>

using namespace sayvo;

namespace {

// X keysyms, as X11's keysymdef.h numbers them.
constexpr quint32 kControlL = 0xffe3;
constexpr quint32 kShiftL = 0xffe1;
constexpr quint32 kAltL = 0xffe9;
constexpr quint32 kInsert = 0xff63;
constexpr quint32 kLowerV = 0x0076;

} // namespace

TEST(PasteChordTest, EveryChordHasItsModifiersFirstAndItsKeyLast)
{
    EXPECT_EQ(pasteChordKeysyms(PasteShortcut::standard), (std::vector {kControlL, kLowerV}));
    EXPECT_EQ(pasteChordKeysyms(PasteShortcut::controlShiftV),
        (std::vector {kControlL, kShiftL, kLowerV}));
    EXPECT_EQ(
        pasteChordKeysyms(PasteShortcut::controlAltV), (std::vector {kControlL, kAltL, kLowerV}));
    EXPECT_EQ(pasteChordKeysyms(PasteShortcut::shiftInsert), (std::vector {kShiftL, kInsert}));
}
