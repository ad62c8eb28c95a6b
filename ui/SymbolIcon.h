#pragma once

#include <QColor>
#include <QIcon>
#include <QPixmap>
#include <QString>

namespace sayvo {

// The windows' monochrome symbols ("checkmark.circle.fill", "gearshape", ...), drawn from our
// own SVGs in one colour. Main thread only (it renders with QSvgRenderer).
class SymbolIcon
{
public:
    // The palette's text colour unless a colour is given.
    static QIcon icon(const QString &name, const QColor &color = {});
    static QPixmap pixmap(const QString &name, int sizePx, const QColor &color = {});
    static bool exists(const QString &name);

    // Colours with a meaning, shared by the windows.
    static QColor successColor() { return QColor(0x2e, 0x9d, 0x4f); }
    static QColor failureColor() { return QColor(0xd6, 0x3b, 0x30); }
    static QColor warningColor() { return QColor(0xd9, 0x8a, 0x00); }
    static QColor accentColor() { return QColor(0x2f, 0x6f, 0xde); }
    static QColor secondaryColor() { return QColor(0x8a, 0x8a, 0x8e); }
};

} // namespace sayvo
