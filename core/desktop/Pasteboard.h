#pragma once

#include <QByteArray>
#include <QString>

#include <optional>
#include <utility>
#include <vector>

namespace sayvo {

// One item of the clipboard: each type it offers (a MIME type or platform type name) with its
// data, in the order the item offers them.
using PasteboardItem = std::vector<std::pair<QString, QByteArray>>;

// The system clipboard. Main thread only. The change count goes up whenever anyone, this
// process included, writes the clipboard; it has no meaning across processes.
class Pasteboard
{
public:
    virtual ~Pasteboard() = default;

    // Every item with every type whose data could be read; types that cannot be read are left
    // out. An empty clipboard has no items.
    virtual std::vector<PasteboardItem> items() = 0;
    // The plain-text content, absent when the clipboard holds no text.
    virtual std::optional<QString> string() = 0;
    virtual void clearContents() = 0;
    // Puts text on the clipboard as plain text, marked so that clipboard managers keep it out of
    // their history. False when the clipboard could not be taken.
    virtual bool setConcealedString(const QString &text) = 0;
    virtual bool writeItems(const std::vector<PasteboardItem> &items) = 0;
    virtual qint64 changeCount() = 0;
    // False where the session keeps the clipboard from Sayvo; pasting is not tried then.
    virtual bool isAvailable() const { return true; }
};

// The clipboard of a session that keeps it from Sayvo: always empty, never written.
class NoPasteboard : public Pasteboard
{
public:
    std::vector<PasteboardItem> items() override { return {}; }
    std::optional<QString> string() override { return std::nullopt; }
    void clearContents() override { }
    bool setConcealedString(const QString &) override { return false; }
    bool writeItems(const std::vector<PasteboardItem> &) override { return false; }
    qint64 changeCount() override { return 0; }
    bool isAvailable() const override { return false; }
};

} // namespace sayvo
