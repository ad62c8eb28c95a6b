// Draws an SVG icon into a square PNG, so that the fixed sizes of the icon theme all come from
// the one scalable drawing.
//   sayvo-render-icon SOURCE.svg SIZE OUTPUT.png
#include <QImage>
#include <QPainter>
#include <QString>
#include <QSvgRenderer>

#include <cstdio>

int main(int argc, char **argv)
{
    if (argc != 4) {
        std::fputs("usage: sayvo-render-icon SOURCE.svg SIZE OUTPUT.png\n", stderr);
        return 2;
    }
    const QString source = QString::fromLocal8Bit(argv[1]);
    bool sizeOk = false;
    const int sizePx = QString::fromLocal8Bit(argv[2]).toInt(&sizeOk);
    const QString output = QString::fromLocal8Bit(argv[3]);
    if (!sizeOk || sizePx < 1 || sizePx > 4096) {
        std::fprintf(stderr, "sayvo-render-icon: bad size %s\n", argv[2]);
        return 2;
    }
    QSvgRenderer renderer(source);
    if (!renderer.isValid()) {
        std::fprintf(stderr, "sayvo-render-icon: cannot read %s\n", argv[1]);
        return 1;
    }
    QImage image(sizePx, sizePx, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    renderer.render(&painter);
    painter.end();
    if (!image.save(output, "PNG")) {
        std::fprintf(stderr, "sayvo-render-icon: cannot write %s\n", argv[3]);
        return 1;
    }
    return 0;
}
