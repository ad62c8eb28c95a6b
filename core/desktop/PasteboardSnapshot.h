#pragma once

#include "desktop/Pasteboard.h"

#include <vector>

namespace sayvo {

// A copy of the whole clipboard, taken before a paste and put back afterwards.
struct PasteboardSnapshot
{
    std::vector<PasteboardItem> items;

    static PasteboardSnapshot capture(Pasteboard &pasteboard);
    // Clears the clipboard and writes every saved item back in order; an empty snapshot leaves
    // the clipboard empty.
    void restore(Pasteboard &pasteboard) const;

    bool operator==(const PasteboardSnapshot &) const = default;
};

} // namespace sayvo
