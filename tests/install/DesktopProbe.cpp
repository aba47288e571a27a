// What a Qt desktop sees of the installed files, for check-install.sh:
//   tesk_desktop_probe type FILE...    the MIME type of each file by its name and content, then
//                                      by its content alone: "NAME-TYPE CONTENT-TYPE" a line
//   tesk_desktop_probe image FILE...   each image's size and how much of it is drawn:
//                                      "WIDTHxHEIGHT PERCENT" a line
// The MIME database is the one XDG_DATA_DIRS leads to, so the test can point it at a private
// copy with Tesk's type in it.
#include <QCoreApplication>
#include <QImage>
#include <QMimeDatabase>
#include <cstdio>

namespace {

int printTypes(const QStringList& paths) {
    const QMimeDatabase database;
    for (const QString& path : paths) {
        std::printf("%s %s\n", qPrintable(database.mimeTypeForFile(path).name()),
                    qPrintable(database.mimeTypeForFile(path, QMimeDatabase::MatchContent).name()));
    }
    return 0;
}

int printImages(const QStringList& paths) {
    for (const QString& path : paths) {
        const QImage image = QImage(path).convertToFormat(QImage::Format_ARGB32);
        if (image.isNull()) {
            std::fprintf(stderr, "tesk_desktop_probe: cannot read %s\n", qPrintable(path));
            return 1;
        }
        qint64 drawn = 0;
        for (int y = 0; y < image.height(); ++y)
            for (int x = 0; x < image.width(); ++x)
                drawn += qAlpha(image.pixel(x, y)) > 0 ? 1 : 0;
        const qint64 percent = 100 * drawn / (qint64(image.width()) * image.height());
        std::printf("%dx%d %lld\n", image.width(), image.height(), static_cast<long long>(percent));
    }
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    const QString command = arguments.value(1);
    if (command == QLatin1String("type"))
        return printTypes(arguments.mid(2));
    if (command == QLatin1String("image"))
        return printImages(arguments.mid(2));
    std::fprintf(stderr, "usage: tesk_desktop_probe type|image FILE...\n");
    return 2;
}
