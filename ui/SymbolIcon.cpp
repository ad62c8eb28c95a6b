#include "ui/SymbolIcon.h"

#include <QApplication>
#include <QFile>
#include <QPainter>
#include <QPalette>
#include <QSvgRenderer>

// The symbols are compiled into the static ui library; its resources must be registered
// by hand before the first lookup.
static void registerSymbols()
{
    static const bool registered = [] {
        Q_INIT_RESOURCE(shell);
        Q_INIT_RESOURCE(windows);
        return true;
    }();
    (void)registered;
}

namespace sayvo {

namespace {

// The tray's set first, then the windows' own symbols.
QString resourcePath(const QString &symbolName)
{
    registerSymbols();
    QString shell = QStringLiteral(":/icons/%1.svg").arg(symbolName);
    if (QFile::exists(shell)) {
        return shell;
    }
    return QStringLiteral(":/symbols/%1.svg").arg(symbolName);
}

QColor resolved(const QColor &color)
{
    return color.isValid() ? color : QApplication::palette().color(QPalette::WindowText);
}

// The SVGs are drawn in black; recolouring the source keeps the edges antialiased.
QPixmap render(const QString &symbolName, int sizePx, const QColor &color, qreal ratio)
{
    QFile file(resourcePath(symbolName));
    if (!file.open(QIODevice::ReadOnly)) {
        return {};
    }
    QByteArray svg = file.readAll();
    svg.replace("#000000", color.name(QColor::HexRgb).toLatin1());
    QSvgRenderer renderer(svg);
    QPixmap pixmap(QSize(sizePx, sizePx) * ratio);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    renderer.render(&painter);
    painter.end();
    pixmap.setDevicePixelRatio(ratio);
    return pixmap;
}

} // namespace

bool SymbolIcon::exists(const QString &symbolName)
{
    return QFile::exists(resourcePath(symbolName));
}

QIcon SymbolIcon::icon(const QString &symbolName, const QColor &color, int sizePx)
{
    const QPixmap pixmap = render(symbolName, sizePx, color, 1.0);
    if (pixmap.isNull()) {
        return {};
    }
    QIcon icon(pixmap);
    icon.setIsMask(true);
    return icon;
}

QPixmap SymbolIcon::pixmap(const QString &symbolName, int sizePx, const QColor &color)
{
    return render(symbolName, sizePx, resolved(color), qApp ? qApp->devicePixelRatio() : 1.0);
}

QIcon SymbolIcon::windowIcon(const QString &symbolName, const QColor &color)
{
    QIcon icon;
    for (const int size : {16, 24, 32, 48}) {
        icon.addPixmap(pixmap(symbolName, size, color));
        icon.addPixmap(pixmap(symbolName, size, disabledColor()), QIcon::Disabled);
    }
    return icon;
}

} // namespace sayvo
