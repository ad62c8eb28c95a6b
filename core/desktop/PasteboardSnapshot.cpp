#include "desktop/PasteboardSnapshot.h"

namespace sayvo {

PasteboardSnapshot PasteboardSnapshot::capture(Pasteboard &pasteboard)
{
    return PasteboardSnapshot {pasteboard.items()};
}

void PasteboardSnapshot::restore(Pasteboard &pasteboard) const
{
    pasteboard.clearContents();
    if (items.empty()) {
        return;
    }
    pasteboard.writeItems(items);
}

} // namespace sayvo
