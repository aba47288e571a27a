#include "window/TeskMetadataView.h"

#include "widgets/DevicePixels.h"
#include "widgets/NamedImage.h"

#include <QEvent>
#include <QPainter>

namespace tesk {

namespace {
constexpr qreal kTextLeft = 14 + TeskMetadataView::kArtworkSide + 14;

QFont titleFont(QFont font) {
    font.setBold(true);
    font.setPixelSize(15);
    return font;
}
QFont otherFont(QFont font) {
    font.setPixelSize(12);
    return font;
}
} // namespace

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

QStringList TeskMetadataView::knownTags() const {
    QStringList known{mTitle, mArtist, mAlbum};
    known.removeAll(QString());
    return known;
}

void TeskMetadataView::changed() {
    setAccessibleDescription(knownTags().join(QStringLiteral(", ")));
    update();
}

QString TeskMetadataView::elided(const QString& text, const QFont& font) const {
    return QFontMetrics(font).elidedText(text, Qt::ElideRight, int(width() - kTextLeft - 8));
}

bool TeskMetadataView::event(QEvent* event) {
    // A tag cut short can be read whole, with the others, by pointing at the view; whether one
    // is cut is asked then, at the width and font the view has.
    if (event->type() == QEvent::ToolTip) {
        const bool cut = elided(mTitle, titleFont(font())) != mTitle ||
                         elided(mArtist, otherFont(font())) != mArtist ||
                         elided(mAlbum, otherFont(font())) != mAlbum;
        setToolTip(cut ? knownTags().join(QLatin1Char('\n')) : QString());
    }
    return QWidget::event(event);
}

void TeskMetadataView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    alignToDevicePixels(painter);
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

    painter.setPen(palette().color(QPalette::WindowText));
    painter.setFont(titleFont(font()));
    painter.drawText(QPointF(kTextLeft, artRect.top() + 18), elided(mTitle, titleFont(font())));
    painter.setFont(otherFont(font()));
    painter.setPen(palette().color(QPalette::PlaceholderText));
    painter.drawText(QPointF(kTextLeft, artRect.top() + 40), elided(mArtist, otherFont(font())));
    painter.drawText(QPointF(kTextLeft, artRect.top() + 58), elided(mAlbum, otherFont(font())));
}

} // namespace tesk
