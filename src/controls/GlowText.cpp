#include "controls/GlowText.h"

#include "widgets/TeskLook.h"

#include <QHash>
#include <QPainter>
#include <cmath>

namespace tesk {

const QPixmap& GlowText::picture(const QString& text, const QFont& font, qreal ratio) {
    static QHash<QString, QPixmap> kept;
    const QString key = QStringLiteral("%1|%2|%3").arg(text, font.toString()).arg(ratio);
    const auto found = kept.constFind(key);
    if (found != kept.constEnd())
        return *found;

    const QFontMetricsF metrics(font);
    const QSizeF size(metrics.horizontalAdvance(text) + 2 * kMargin,
                      metrics.height() + 2 * kMargin);
    QImage image((size * ratio).toSize(), QImage::Format_ARGB32_Premultiplied);
    image.setDevicePixelRatio(ratio);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setFont(font);
    const QPointF origin(kMargin, kMargin + metrics.ascent());
    // The glow: the text spread in a ring of faint copies, then the sharp text over it.
    QColor halo = look::hudLightBlue;
    halo.setAlphaF(0.09);
    painter.setPen(halo);
    for (int step = 0; step < 12; ++step) {
        const double angle = step * M_PI / 6.0;
        for (double radius : {1.0, 2.0})
            painter.drawText(origin + QPointF(radius * std::cos(angle), radius * std::sin(angle)),
                             text);
    }
    painter.setPen(look::hudLightBlue);
    painter.drawText(origin, text);
    painter.end();
    return *kept.insert(key, QPixmap::fromImage(image));
}

} // namespace tesk
