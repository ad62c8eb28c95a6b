// A real client that takes the clipboard through Qt's own clipboard code and offers several
// formats at once, as a word processor or browser does:
//   sayvo-test-clipboard-owner [--text T] [--text-file F] [--html H] [--png] [--window]
// It prints "owned" once the clipboard is its own, and keeps serving it until it is killed.
// The PNG is a fixed 4x4 red square; its bytes are printed base64-encoded after "png:".
// With --window it first shows a small window, prints "shown" once it has the focus, and
// takes the clipboard at the first key pressed in it: a Wayland compositor takes the
// selection only from a client answering the user's input.
#include <QBuffer>
#include <QClipboard>
#include <QFile>
#include <QGuiApplication>
#include <QImage>
#include <QMimeData>
#include <QKeyEvent>
#include <QRasterWindow>

#include <cstdio>
#include <functional>

namespace {

class KeyWindow : public QRasterWindow
{
public:
    std::function<void()> onKey;

protected:
    void keyPressEvent(QKeyEvent *) override
    {
        if (onKey) {
            onKey();
        }
    }
};

} // namespace

int main(int argc, char **argv)
{
    QGuiApplication app(argc, argv);
    auto *data = new QMimeData;
    const QStringList arguments = app.arguments();
    QByteArray png;
    for (qsizetype i = 1; i < arguments.size(); ++i) {
        if (arguments[i] == QLatin1String("--text") && i + 1 < arguments.size()) {
            data->setData(QStringLiteral("text/plain"), arguments[++i].toUtf8());
        } else if (arguments[i] == QLatin1String("--text-file") && i + 1 < arguments.size()) {
            QFile file(arguments[++i]);
            if (file.open(QIODevice::ReadOnly)) {
                data->setData(QStringLiteral("text/plain"), file.readAll());
            }
        } else if (arguments[i] == QLatin1String("--html") && i + 1 < arguments.size()) {
            data->setData(QStringLiteral("text/html"), arguments[++i].toUtf8());
        } else if (arguments[i] == QLatin1String("--png")) {
            QImage image(4, 4, QImage::Format_RGB32);
            image.fill(Qt::red);
            QBuffer buffer(&png);
            buffer.open(QIODevice::WriteOnly);
            image.save(&buffer, "PNG");
            data->setData(QStringLiteral("image/png"), png);
        }
    }
    bool owned = false;
    const auto own = [data, png, &owned] {
        if (owned) {
            return;
        }
        owned = true;
        QGuiApplication::clipboard()->setMimeData(data, QClipboard::Clipboard);
        std::printf("owned\n");
        if (!png.isEmpty()) {
            std::printf("png:%s\n", png.toBase64().constData());
        }
        std::fflush(stdout);
    };
    KeyWindow window;
    if (arguments.contains(QStringLiteral("--window"))) {
        window.setTitle(QStringLiteral("Clipboard Owner"));
        window.resize(200, 100);
        window.onKey = own;
        QObject::connect(&app, &QGuiApplication::focusWindowChanged, &app, [](QWindow *focus) {
            if (focus) {
                std::printf("shown\n");
                std::fflush(stdout);
            }
        });
        window.show();
    } else {
        own();
    }
    return app.exec();
}
