#include "SymbolIcon.h"

#include <QApplication>
#include <QFile>
#include <QPainter>
#include <QPalette>
#include <QSvgRenderer>

namespace sayvo {

namespace {

QString path(const QString &name)
{
    return QStringLiteral(":/symbols/") + name + QStringLiteral(".svg");
}

QColor resolved(const QColor &color)
{
    return color.isValid() ? color : QApplication::palette().color(QPalette::WindowText);
}

} // namespace

bool SymbolIcon::exists(const QString &name)
{
    return QFile::exists(path(name));
}

QPixmap SymbolIcon::pixmap(const QString &name, int sizePx, const QColor &color)
{
    QFile file(path(name));
    if (!file.open(QIODevice::ReadOnly)) {
        return {};
    }
    // The SVGs are drawn in pure black; recolouring the source keeps edges antialiased.
    QByteArray svg = file.readAll();
    svg.replace("#000000", resolved(color).name(QColor::HexRgb).toLatin1());
    QSvgRenderer renderer(svg);
    const qreal ratio = qApp ? qApp->devicePixelRatio() : 1.0;
    QPixmap pixmap(QSize(sizePx, sizePx) * ratio);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    renderer.render(&painter);
    painter.end();
    pixmap.setDevicePixelRatio(ratio);
    return pixmap;
}

QIcon SymbolIcon::icon(const QString &name, const QColor &color)
{
    QIcon icon;
    for (const int size : {16, 24, 32, 48}) {
        icon.addPixmap(pixmap(name, size, color));
        icon.addPixmap(pixmap(name, size, QColor(0xc7, 0xc7, 0xcc)), QIcon::Disabled);
    }
    return icon;
}

} // namespace sayvo
