#pragma once

#include <QColor>
#include <QHash>
#include <QIcon>
#include <QString>

namespace sayvo {

// Symbol icons drawn once for each symbol, colour and size, and the same icon handed out
// again after that. Qt keeps the scaled copies it makes of an icon in its pixmap cache under
// that icon's own key until the cache is full (10 MiB): a fresh icon for every state shown
// grew the process a little with every dictation, and drew its SVG again each time. Main
// thread only.
class SymbolIconSet
{
public:
    // SymbolIcon::icon's icon, drawn on the first request for these arguments.
    QIcon icon(const QString &symbolName, const QColor &color, int sizePx = 64);
    // How many different icons were drawn.
    qsizetype size() const { return m_icons.size(); }

private:
    QHash<QString, QIcon> m_icons;
};

} // namespace sayvo
