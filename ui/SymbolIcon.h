#pragma once

#include <QColor>
#include <QIcon>
#include <QString>

namespace sayvo {

// Sayvo's monochrome symbols ("mic", "waveform.circle", …), drawn from our own SVGs in the
// colour asked for, so the tray and the HUD read well on dark and light panels alike.
class SymbolIcon
{
public:
    // The icon for a symbol name in `color`; a null icon for an unknown name.
    static QIcon icon(const QString &symbolName, const QColor &color, int sizePx = 64);
    static bool exists(const QString &symbolName);
};

} // namespace sayvo
