#pragma once

#include "desktop/Pasteboard.h"

#include <vector>

namespace sayvo {

// A copy of the whole clipboard, taken before a paste and put back afterwards: every item
// with at least one readable type.
struct PasteboardSnapshot
{
    std::vector<PasteboardItem> items;

    static PasteboardSnapshot capture(Pasteboard &pasteboard);
    // Puts every saved item back in order, in one write; an empty snapshot empties the
    // clipboard. False when the clipboard could not be written.
    bool restore(Pasteboard &pasteboard) const;

    bool operator==(const PasteboardSnapshot &) const = default;
};

} // namespace sayvo
