#include "widgets/Glow.h"

#include "widgets/NamedImage.h"

#include <QHash>
#include <QPainter>
#include <algorithm>
#include <cmath>
#include <vector>

namespace tesk::Glow {
namespace {

/// One pass of a box blur along a line of `count` pixels `stride` apart, every channel
/// (premultiplied, so blurring each channel alike is right).
void blurLine(QRgb* line, int count, int stride, int radius, std::vector<QRgb>& scratch) {
    scratch.resize(std::size_t(count));
    for (int i = 0; i < count; ++i)
        scratch[std::size_t(i)] = line[i * stride];
    const int window = 2 * radius + 1;
    int sums[4] = {0, 0, 0, 0};
    const auto add = [&](int index, int sign) {
        if (index < 0 || index >= count)
            return; // clear beyond the edges
        const QRgb pixel = scratch[std::size_t(index)];
        sums[0] += sign * qAlpha(pixel);
        sums[1] += sign * qRed(pixel);
        sums[2] += sign * qGreen(pixel);
        sums[3] += sign * qBlue(pixel);
    };
    for (int i = -radius; i < radius; ++i)
        add(i, 1);
    for (int i = 0; i < count; ++i) {
        add(i + radius, 1);
        line[i * stride] =
            qRgba(sums[1] / window, sums[2] / window, sums[3] / window, sums[0] / window);
        add(i - radius, -1);
    }
}

} // namespace

QImage withGlow(const QImage& sharp, qreal radius, qreal intensity) {
    QImage blurred = sharp.convertToFormat(QImage::Format_ARGB32_Premultiplied);
    const int pixels = std::max(1, int(std::lround(radius * sharp.devicePixelRatio())));
    std::vector<QRgb> scratch;
    const int width = blurred.width();
    const int height = blurred.height();
    auto* bits = reinterpret_cast<QRgb*>(blurred.bits());
    const int stride = int(blurred.bytesPerLine() / 4);
    for (int pass = 0; pass < 3; ++pass) {
        for (int y = 0; y < height; ++y)
            blurLine(bits + y * stride, width, 1, pixels, scratch);
        for (int x = 0; x < width; ++x)
            blurLine(bits + x, height, stride, pixels, scratch);
    }
    QImage result(sharp.size(), QImage::Format_ARGB32_Premultiplied);
    result.setDevicePixelRatio(sharp.devicePixelRatio());
    result.fill(Qt::transparent);
    QPainter painter(&result);
    // The blur thins the light out: drawn twice at the intensity, it reads as a halo.
    painter.setOpacity(intensity);
    painter.drawImage(QPointF(0, 0), blurred);
    painter.drawImage(QPointF(0, 0), blurred);
    painter.setOpacity(1.0);
    painter.drawImage(QPointF(0, 0), sharp);
    return result;
}

const QPixmap& glowingPicture(const NamedImage& image, qreal ratio) {
    static QHash<QString, QPixmap> kept;
    const QString key = QStringLiteral("%1@%2").arg(image.name()).arg(ratio);
    const auto found = kept.constFind(key);
    if (found != kept.constEnd())
        return *found;
    const QSizeF size = image.size() + QSizeF(2 * kMargin, 2 * kMargin);
    QImage sharp(QSize(int(std::ceil(size.width() * ratio)), int(std::ceil(size.height() * ratio))),
                 QImage::Format_ARGB32_Premultiplied);
    sharp.setDevicePixelRatio(ratio);
    sharp.fill(Qt::transparent);
    {
        QPainter painter(&sharp);
        painter.drawPixmap(QPointF(kMargin, kMargin), image.pixmap(ratio));
    }
    return *kept.insert(key, QPixmap::fromImage(withGlow(sharp)));
}

} // namespace tesk::Glow
