#pragma once

#include <QByteArray>
#include <QString>

#include <functional>
#include <optional>
#include <utility>
#include <vector>

namespace sayvo {

// One item of the clipboard: each type it offers (a MIME type or platform type name) with its
// data, in the order the item offers them.
using PasteboardItem = std::vector<std::pair<QString, QByteArray>>;

// The system clipboard (or, on X11, also the primary selection). Main thread only. The change
// count goes up whenever anyone, this process included, writes it; it has no meaning across
// processes.
//
// Writes replace the whole content in one step: at no moment is the clipboard empty or
// ownerless on the way, which a clipboard manager would take as a reason to put its own
// entry back.
//
// Read reports: an adapter that can see another application being given the data this
// process put on the clipboard (on X11 a selection request answered with it, on Wayland a
// data-control source asked to send it) says so with reportServed(), and reportsServed()
// is true. A paste keeps its text on the clipboard until that report (see TextInserter), so
// adapters only report the event and decide nothing.
class Pasteboard
{
public:
    virtual ~Pasteboard() = default;

    // Every item with every type whose data could be read; types that cannot be read are left
    // out. An empty clipboard has no items.
    virtual std::vector<PasteboardItem> items() = 0;
    // The plain-text content, absent when the clipboard holds no text.
    virtual std::optional<QString> string() = 0;
    // Empties the clipboard.
    virtual void clearContents() = 0;
    // Puts text on the clipboard as plain text, marked so that clipboard managers keep it out of
    // their history. False when the clipboard could not be taken.
    virtual bool setConcealedString(const QString &text) = 0;
    // Replaces the content with these items; false when the clipboard could not be taken.
    virtual bool writeItems(const std::vector<PasteboardItem> &items) = 0;
    virtual qint64 changeCount() = 0;
    // False where the session keeps the clipboard from Sayvo; pasting is not tried then.
    virtual bool isAvailable() const { return true; }

    // Whether this adapter calls reportServed(); without it a paste can only wait a fixed
    // time for the target to read.
    virtual bool reportsServed() const { return false; }
    // Runs on the main thread each time another application was handed the data this process
    // wrote, after the whole transfer (a look at the list of types does not count).
    void setOnServed(std::function<void()> handler) { m_onServed = std::move(handler); }

protected:
    void reportServed()
    {
        if (m_onServed) {
            m_onServed();
        }
    }

private:
    std::function<void()> m_onServed;
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
