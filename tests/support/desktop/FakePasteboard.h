#pragma once

#include "desktop/Pasteboard.h"

#include <QStringList>

#include <functional>

namespace sayvo::testing {

// An in-memory clipboard. Every write bumps the change count; `log` records each operation
// ("items", "string", "clear", "setConcealedString:<text>", "writeItems:<n>").
class FakePasteboard : public Pasteboard
{
public:
    static inline const QString kPlainTextType = QStringLiteral("text/plain;charset=utf-8");
    static inline const QString kConcealedType = QStringLiteral("x-kde-passwordManagerHint");

    std::vector<PasteboardItem> items() override;
    std::optional<QString> string() override;
    void clearContents() override;
    bool setConcealedString(const QString &text) override;
    bool writeItems(const std::vector<PasteboardItem> &items) override;
    qint64 changeCount() override { return m_changeCount; }
    bool isAvailable() const override { return available; }

    // Another program writing the clipboard.
    void writeFromElsewhere(std::vector<PasteboardItem> items);
    // Sets the content without counting it as a change or logging it (the starting state).
    void preload(std::vector<PasteboardItem> items) { contents = std::move(items); }

    std::vector<PasteboardItem> contents;
    QStringList log;
    bool failSetString = false;
    // False: a session that keeps the clipboard from Sayvo.
    bool available = true;

private:
    qint64 m_changeCount = 0;
};

} // namespace sayvo::testing
