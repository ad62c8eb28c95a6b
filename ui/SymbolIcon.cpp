#include "SymbolIcon.h"

#include <QFile>
#include <QPainter>
#include <QPixmap>
#include <QSvgRenderer>

// The symbols are compiled into the static ui library; its resources must be registered
// by hand before the first lookup.
static void registerSymbols()
{
    static const bool registered = [] {
        Q_INIT_RESOURCE(shell);
        return true;
    }();
    (void)registered;
}

namespace sayvo {

namespace {
QString resourcePath(const QString &symbolName)
{
    return QStringLiteral(":/icons/%1.svg").arg(symbolName);
}
} // namespace

bool SymbolIcon::exists(const QString &symbolName)
{
    registerSymbols();
    return QFile::exists(resourcePath(symbolName));
}

QIcon SymbolIcon::icon(const QString &symbolName, const QColor &color, int sizePx)
{
    registerSymbols();
    QFile file(resourcePath(symbolName));
    if (!file.open(QIODevice::ReadOnly)) {
        return {};
    }
    // The SVGs are drawn in black; recolour them before rendering.
    QByteArray svg = file.readAll();
    svg.replace("#000000", color.name(QColor::HexRgb).toLatin1());
    QSvgRenderer renderer(svg);
    QPixmap pixmap(sizePx, sizePx);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    renderer.render(&painter);
    painter.end();
    QIcon icon(pixmap);
    icon.setIsMask(true);
    return icon;
}

} // namespace sayvo
