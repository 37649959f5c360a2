// Renders the application icon's SVG to a square PNG at build time:
//   keyferry_icon_renderer <input.svg> <output.png> <size in pixels>
// Exits non-zero (with a one-line reason) when the SVG cannot be read or the PNG cannot be written.
#include <QGuiApplication>
#include <QImage>
#include <QPainter>
#include <QSvgRenderer>

#include <cstdio>

int main(int argc, char* argv[]) {
    QGuiApplication application(argc, argv);
    const QStringList arguments = QGuiApplication::arguments();
    if (arguments.size() != 4) {
        std::fputs("usage: keyferry_icon_renderer <input.svg> <output.png> <size>\n", stderr);
        return 2;
    }
    bool sizeIsNumber = false;
    const int size = arguments.at(3).toInt(&sizeIsNumber);
    QSvgRenderer renderer(arguments.at(1));
    if (!renderer.isValid() || !sizeIsNumber || size <= 0) {
        std::fputs("keyferry_icon_renderer: unreadable SVG or bad size\n", stderr);
        return 1;
    }
    QImage image(size, size, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    {
        QPainter painter(&image);
        painter.setRenderHint(QPainter::Antialiasing);
        renderer.render(&painter, QRectF(0, 0, size, size));
    }
    if (!image.save(arguments.at(2), "PNG")) {
        std::fputs("keyferry_icon_renderer: could not write the PNG\n", stderr);
        return 1;
    }
    return 0;
}
