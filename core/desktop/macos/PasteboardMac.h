#pragma once

#include "desktop/Pasteboard.h"

namespace sayvo {

// The general NSPasteboard, item by item and type by type; type names are the pasteboard's
// own (UTIs such as "public.utf8-plain-text"). Main thread only.
class PasteboardMac : public Pasteboard
{
public:
    // The marker clipboard managers honour to keep an entry out of their history.
    static constexpr const char *kConcealedType = "org.nspasteboard.ConcealedType";

    std::vector<PasteboardItem> items() override;
    std::optional<QString> string() override;
    void clearContents() override;
    bool setConcealedString(const QString &text) override;
    bool writeItems(const std::vector<PasteboardItem> &items) override;
    qint64 changeCount() override;
};

} // namespace sayvo
