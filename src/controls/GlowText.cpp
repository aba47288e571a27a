#include "controls/GlowText.h"

#include "widgets/Glow.h"
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
    {
        QPainter painter(&image);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setFont(font);
        painter.setPen(look::hudLightBlue);
        painter.drawText(QPointF(kMargin, kMargin + metrics.ascent()), text);
    }
    return *kept.insert(key, QPixmap::fromImage(Glow::withGlow(image)));
}

} // namespace tesk
