#include "ui/SymbolIconSet.h"

#include "ui/SymbolIcon.h"

namespace sayvo {

QIcon SymbolIconSet::icon(const QString &symbolName, const QColor &color, int sizePx)
{
    const QString key
        = QStringLiteral("%1|%2|%3").arg(symbolName, color.name(QColor::HexArgb)).arg(sizePx);
    const auto found = m_icons.constFind(key);
    if (found != m_icons.constEnd()) {
        return *found;
    }
    const QIcon drawn = SymbolIcon::icon(symbolName, color, sizePx);
    m_icons.insert(key, drawn);
    return drawn;
}

} // namespace sayvo
