// Draws an SVG icon into PNG files of the sizes asked for, at build time, with the same SVG
// renderer Tesk itself uses, so that the PNGs match what Qt draws and no picture is committed.
//   tesk-svg-to-png ICON.svg SIZE OUTPUT.png [SIZE OUTPUT.png]...
#include <QCoreApplication>
#include <QImage>
#include <QPainter>
#include <QSvgRenderer>
#include <cstdio>

int main(int argc, char** argv) {
    // Shapes and gradients draw into an image without a display or a platform plugin; an icon
    // with text in it would need a QGuiApplication for the fonts, and Tesk's icons have none.
    QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() < 4 || arguments.size() % 2 != 0) {
        std::fprintf(stderr,
                     "usage: tesk-svg-to-png ICON.svg SIZE OUTPUT.png [SIZE OUTPUT.png]...\n");
        return 1;
    }
    QSvgRenderer renderer(arguments[1]);
    if (!renderer.isValid()) {
        std::fprintf(stderr, "tesk-svg-to-png: cannot read %s\n", qPrintable(arguments[1]));
        return 1;
    }
    for (qsizetype i = 2; i < arguments.size(); i += 2) {
        bool ok = false;
        const int size = arguments[i].toInt(&ok);
        if (!ok || size < 1 || size > 4096) {
            std::fprintf(stderr, "tesk-svg-to-png: bad size %s\n", qPrintable(arguments[i]));
            return 1;
        }
        QImage image(size, size, QImage::Format_ARGB32_Premultiplied);
        image.fill(Qt::transparent);
        QPainter painter(&image);
        painter.setRenderHint(QPainter::Antialiasing);
        renderer.render(&painter, QRectF(0, 0, size, size));
        painter.end();
        if (!image.save(arguments[i + 1], "PNG")) {
            std::fprintf(stderr, "tesk-svg-to-png: cannot write %s\n",
                         qPrintable(arguments[i + 1]));
            return 1;
        }
    }
    return 0;
}
