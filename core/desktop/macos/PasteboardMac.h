#pragma once

#include "desktop/Pasteboard.h"

#include <QString>

namespace sayvo {

// An NSPasteboard, item by item and type by type; type names are the pasteboard's own (UTIs
// such as "public.utf8-plain-text"). The general pasteboard unless a name is given (tests use
// a private one). A dictated text stays on this Mac: Universal Clipboard does not carry it to
// the user's other devices. Main thread only.
class PasteboardMac : public Pasteboard
{
public:
    // The markers clipboard managers honour (nspasteboard.org): concealed keeps an entry out
    // of their history, transient tells them it is about to be replaced.
    static constexpr const char *kConcealedType = "org.nspasteboard.ConcealedType";
    static constexpr const char *kTransientType = "org.nspasteboard.TransientType";

    explicit PasteboardMac(QString name = {});

    std::vector<PasteboardItem> items() override;
    std::optional<QString> string() override;
    void clearContents() override;
    bool setConcealedString(const QString &text) override;
    bool writeItems(const std::vector<PasteboardItem> &items) override;
    qint64 changeCount() override;

private:
    QString m_name;
};

} // namespace sayvo
