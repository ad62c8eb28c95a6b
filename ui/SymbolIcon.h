#pragma once

#include <QColor>
#include <QIcon>
#include <QPixmap>
#include <QString>

namespace sayvo {

// Sayvo's monochrome symbols ("mic", "waveform.circle", "checkmark.circle.fill", …), drawn from
// our own SVGs in the colour asked for, so the tray, the HUD and the windows read well on dark
// and light backgrounds alike. Main thread only (it renders with QSvgRenderer).
class SymbolIcon
{
public:
    // The icon for a symbol name in `color`, as one mask-like pixmap for the tray and the HUD; a
    // null icon for an unknown name.
    static QIcon icon(const QString &symbolName, const QColor &color, int sizePx = 64);
    // The icon for a window's buttons and lists: several sizes, greyed when disabled. The
    // palette's text colour unless a colour is given.
    static QIcon windowIcon(const QString &symbolName, const QColor &color = {});
    static QPixmap pixmap(const QString &symbolName, int sizePx, const QColor &color = {});
    static bool exists(const QString &symbolName);

    // Colours with a meaning, shared by the windows.
    static QColor successColor() { return QColor(0x2e, 0x9d, 0x4f); }
    static QColor failureColor() { return QColor(0xd6, 0x3b, 0x30); }
    static QColor warningColor() { return QColor(0xd9, 0x8a, 0x00); }
    static QColor accentColor() { return QColor(0x2f, 0x6f, 0xde); }
    static QColor secondaryColor() { return QColor(0x8a, 0x8a, 0x8e); }
    static QColor disabledColor() { return QColor(0xc7, 0xc7, 0xcc); }
};

} // namespace sayvo
