#include "desktop/PasteboardSnapshot.h"

namespace sayvo {

PasteboardSnapshot PasteboardSnapshot::capture(Pasteboard &pasteboard)
{
    return PasteboardSnapshot {pasteboard.items()};
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
