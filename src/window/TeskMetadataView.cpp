#include "window/TeskMetadataView.h"

#include "widgets/NamedImage.h"

#include <QPainter>

namespace tesk {

TeskMetadataView::TeskMetadataView(QWidget* parent)
    : QWidget(parent) {
    setAccessibleName(tr("Song"));
}

void TeskMetadataView::setAlbumArt(const QImage& art) {
    mArt = art;
    update();
}
void TeskMetadataView::setTitle(const QString& title) {
    mTitle = title;
    changed();
}
void TeskMetadataView::setArtist(const QString& artist) {
    mArtist = artist;
    changed();
}
void TeskMetadataView::setAlbum(const QString& album) {
    mAlbum = album;
    changed();
}

void TeskMetadataView::changed() {
    QStringList known{mTitle, mArtist, mAlbum};
    known.removeAll(QString());
    setAccessibleDescription(known.join(QStringLiteral(", ")));
    update();
}

void TeskMetadataView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    const QRectF artRect(14, 10, kArtworkSide, kArtworkSide);
    const qreal ratio = devicePixelRatioF();
    QPixmap art;
    if (mArt.isNull()) {
        art = NamedImage::named(QStringLiteral("NoAlbumArt")).pixmap(artRect.size(), ratio);
    } else {
        art = QPixmap::fromImage(mArt.scaled((artRect.size() * ratio).toSize(),
                                             Qt::IgnoreAspectRatio, Qt::SmoothTransformation));
        art.setDevicePixelRatio(ratio);
    }
    painter.drawPixmap(artRect.topLeft(), art);

    // The reflection: the lower part of the picture mirrored and fading out.
    const int reflectionHeight = int(height() - artRect.bottom() - 2);
    if (reflectionHeight > 0) {
        // With an alpha channel of its own: an opaque cover's pixmap has none, and the fade
        // would darken it to black instead of letting the background through.
        QImage mirrored = art.toImage()
                              .convertToFormat(QImage::Format_ARGB32_Premultiplied)
                              .mirrored(false, true);
        QPainter fade(&mirrored);
        fade.setCompositionMode(QPainter::CompositionMode_DestinationIn);
        // In the image's own points: it carries the screen's pixel ratio.
        QLinearGradient alpha(0, 0, 0, reflectionHeight);
        alpha.setColorAt(0, QColor(0, 0, 0, 90));
        alpha.setColorAt(1, QColor(0, 0, 0, 0));
        fade.fillRect(mirrored.rect(), alpha);
        fade.end();
        painter.drawImage(
            QRectF(artRect.left(), artRect.bottom() + 2, artRect.width(), reflectionHeight),
            mirrored, QRectF(0, 0, mirrored.width(), reflectionHeight * ratio));
    }

    const qreal textLeft = artRect.right() + 14;
    const qreal textWidth = width() - textLeft - 8;
    QFont titleFont = font();
    titleFont.setBold(true);
    titleFont.setPixelSize(15);
    QFont otherFont = font();
    otherFont.setPixelSize(12);
    painter.setPen(palette().color(QPalette::WindowText));
    painter.setFont(titleFont);
    const auto elided = [&](const QString& text, const QFont& f) {
        return QFontMetrics(f).elidedText(text, Qt::ElideRight, int(textWidth));
    };
    painter.drawText(QPointF(textLeft, artRect.top() + 18), elided(mTitle, titleFont));
    painter.setFont(otherFont);
    painter.setPen(palette().color(QPalette::PlaceholderText));
    painter.drawText(QPointF(textLeft, artRect.top() + 40), elided(mArtist, otherFont));
    painter.drawText(QPointF(textLeft, artRect.top() + 58), elided(mAlbum, otherFont));
}

} // namespace tesk
