#include "support/desktop/FakePasteboard.h"

namespace sayvo::testing {

std::vector<PasteboardItem> FakePasteboard::items()
{
    log << QStringLiteral("items");
    return contents;
}

std::optional<QString> FakePasteboard::string()
{
    log << QStringLiteral("string");
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
    contents.clear();
    ++m_changeCount;
}

bool FakePasteboard::setConcealedString(const QString &text)
{
    log << QStringLiteral("setConcealedString:") + text;
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
    contents.insert(contents.end(), items.begin(), items.end());
    ++m_changeCount;
    return true;
}

void FakePasteboard::writeFromElsewhere(std::vector<PasteboardItem> items)
{
    contents = std::move(items);
    ++m_changeCount;
}

} // namespace sayvo::testing
