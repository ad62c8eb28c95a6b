#include "desktop/PasteboardSnapshot.h"

namespace sayvo {

PasteboardSnapshot PasteboardSnapshot::capture(Pasteboard &pasteboard)
{
    // An item none of whose types could be read (data promised by an application that has
    // quit) would come back as an empty item, which pastes as nothing: leave it out.
    PasteboardSnapshot snapshot;
    for (PasteboardItem &item : pasteboard.items()) {
        if (!item.empty()) {
            snapshot.items.push_back(std::move(item));
        }
    }
    return snapshot;
}

bool PasteboardSnapshot::restore(Pasteboard &pasteboard) const
{
    // One write replaces the content, so the clipboard is never empty on the way back.
    if (items.empty()) {
        pasteboard.clearContents();
        return true;
    }
    return pasteboard.writeItems(items);
}

} // namespace sayvo
