#include "support/desktop/FakePasteboard.h"

namespace sayvo::testing {

std::vector<PasteboardItem> FakePasteboard::items()
{
    log << QStringLiteral("items");
    logTimesMs << clock.elapsed();
    return contents;
}

std::optional<QString> FakePasteboard::string()
{
    log << QStringLiteral("string");
    logTimesMs << clock.elapsed();
    for (const PasteboardItem &item : contents) {
        for (const auto &[type, data] : item) {
            if (type == kPlainTextType) {
                return QString::fromUtf8(data);
            }
        }
    }
    return std::nullopt;
}

void FakePasteboard::clearContents()
{
    log << QStringLiteral("clear");
    logTimesMs << clock.elapsed();
    contents.clear();
    ++m_changeCount;
}

bool FakePasteboard::setConcealedString(const QString &text)
{
    log << QStringLiteral("setConcealedString:") + text;
    logTimesMs << clock.elapsed();
    if (failSetString) {
        return false;
    }
    contents = {{{kPlainTextType, text.toUtf8()}, {kConcealedType, QByteArrayLiteral("secret")}}};
    ++m_changeCount;
    return true;
}

bool FakePasteboard::writeItems(const std::vector<PasteboardItem> &items)
{
    log << QStringLiteral("writeItems:%1").arg(items.size());
    logTimesMs << clock.elapsed();
    contents = items;
    ++m_changeCount;
    return true;
}

void FakePasteboard::writeFromElsewhere(std::vector<PasteboardItem> items)
{
    contents = std::move(items);
    ++m_changeCount;
}

} // namespace sayvo::testing

namespace sayvo::testing {

qint64 FakePasteboard::lastTimeMs(const QString &prefix) const
{
    for (qsizetype i = log.size() - 1; i >= 0; --i) {
        if (log[i].startsWith(prefix)) {
            return logTimesMs[i];
        }
    }
    return -1;
}

} // namespace sayvo::testing
