#pragma once

#include "desktop/Pasteboard.h"

#include <QElapsedTimer>
#include <QStringList>

#include <functional>

namespace sayvo::testing {

// An in-memory clipboard. Every write bumps the change count; `log` records each operation
// ("items", "string", "clear", "setConcealedString:<text>", "writeItems:<n>") and `logTimesMs`
// when it happened. With `servedReports` it reports reads, which the test makes with
// serveToTarget().
class FakePasteboard : public Pasteboard
{
public:
    FakePasteboard() { clock.start(); }

    static inline const QString kPlainTextType = QStringLiteral("text/plain;charset=utf-8");
    static inline const QString kConcealedType = QStringLiteral("x-kde-passwordManagerHint");

    std::vector<PasteboardItem> items() override;
    std::optional<QString> string() override;
    void clearContents() override;
    bool setConcealedString(const QString &text) override;
    bool writeItems(const std::vector<PasteboardItem> &items) override;
    qint64 changeCount() override { return m_changeCount; }
    bool isAvailable() const override { return available; }
    bool reportsServed() const override { return servedReports; }

    // The target application reading the clipboard.
    void serveToTarget() { reportServed(); }
    // When the last operation whose log entry starts with `prefix` happened; -1 if none did.
    qint64 lastTimeMs(const QString &prefix) const;

    // Another program writing the clipboard.
    void writeFromElsewhere(std::vector<PasteboardItem> items);
    // Sets the content without counting it as a change or logging it (the starting state).
    void preload(std::vector<PasteboardItem> items) { contents = std::move(items); }

    std::vector<PasteboardItem> contents;
    QStringList log;
    QList<qint64> logTimesMs;
    QElapsedTimer clock;
    bool failSetString = false;
    // False: a session that keeps the clipboard from Sayvo.
    bool available = true;
    bool servedReports = false;

private:
    qint64 m_changeCount = 0;
};

} // namespace sayvo::testing
