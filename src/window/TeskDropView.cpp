#include "window/TeskDropView.h"

#include "widgets/DevicePixels.h"
#include "widgets/NamedImage.h"

#include <QDragEnterEvent>
#include <QMimeData>
#include <QPainter>
#include <QPainterPath>
#include <cmath>

namespace tesk {

bool TeskDropAcceptor::holdsOpenableTrack(const QMimeData& data) const {
    if (!data.hasUrls() || !canOpen)
        return false;
    const auto urls = data.urls();
    return std::any_of(urls.begin(), urls.end(), [this](const QUrl& url) { return canOpen(url); });
}

TeskDraggableContentView::TeskDraggableContentView(TeskDropAcceptor acceptor, QWidget* parent)
    : QWidget(parent)
    , mAcceptor(std::move(acceptor)) {
    setAcceptDrops(true);
}

void TeskDraggableContentView::dragEnterEvent(QDragEnterEvent* event) {
    if (event->mimeData()->hasUrls() && (event->possibleActions() & Qt::CopyAction)) {
        event->setDropAction(Qt::CopyAction);
        event->accept();
    }
}

void TeskDraggableContentView::dropEvent(QDropEvent* event) {
    if (mAcceptor.open)
        mAcceptor.open(*event->mimeData());
    event->setDropAction(Qt::CopyAction);
    event->accept();
}

TeskDropView::TeskDropView(TeskDropAcceptor acceptor, QWidget* parent)
    : QWidget(parent)
    , mAcceptor(std::move(acceptor)) {
    setAcceptDrops(true);
    setAccessibleName(tr("Drag Song Here"));
}

void TeskDropView::setActive(bool active) {
    if (mActive == active)
        return;
    mActive = active;
    update();
}

void TeskDropView::dragEnterEvent(QDragEnterEvent* event) {
    if ((event->possibleActions() & Qt::CopyAction) &&
        mAcceptor.holdsOpenableTrack(*event->mimeData())) {
        event->setDropAction(Qt::CopyAction);
        event->accept();
        setActive(true);
    }
}

void TeskDropView::dragLeaveEvent(QDragLeaveEvent*) {
    setActive(false);
}

void TeskDropView::dropEvent(QDropEvent* event) {
    setActive(false);
    if (mAcceptor.holdsOpenableTrack(*event->mimeData()) && mAcceptor.open)
        mAcceptor.open(*event->mimeData());
    event->setDropAction(Qt::CopyAction);
    event->accept();
}

void TeskDropView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    alignToDevicePixels(painter);
    painter.setRenderHint(QPainter::Antialiasing);
    QLinearGradient background(0, 0, 0, height());
    background.setColorAt(0, QColor(240, 241, 242));
    background.setColorAt(1, QColor(223, 225, 226));
    painter.fillRect(rect(), background);

    const NamedImage& image = NamedImage::named(mActive ? QStringLiteral("DropAreaOver")
                                                        : QStringLiteral("DropAreaNormal"));
    const QSizeF imageSize = image.size();
    const int imageTop = 40;
    image.draw(painter, QPointF(std::floor((width() - imageSize.width()) / 2), imageTop));

    // The title is engraved: a light edge below, a dark one above, then the face.
    QFont titleFont = font();
    titleFont.setBold(true);
    titleFont.setPixelSize(20);
    const QString title = tr("Drag Song Here");
    const qreal titleWidth = QFontMetricsF(titleFont).horizontalAdvance(title);
    const qreal titleBaseline = imageTop + imageSize.height() + 70 - 30;
    QPainterPath glyphs;
    glyphs.addText(QPointF((width() - titleWidth) / 2, titleBaseline), titleFont, title);
    painter.fillPath(glyphs.translated(0, 1), QColor(255, 255, 255, 191));
    painter.fillPath(glyphs.translated(0, -1), QColor(0, 0, 0, 102));
    painter.fillPath(glyphs, QColor(175, 178, 179));

    QFont textFont = font();
    textFont.setPixelSize(12);
    painter.setFont(textFont);
    const QRectF textRect(40, titleBaseline + 16, width() - 80, height() - titleBaseline - 24);
    const QString instructions =
        tr("Tesk allows you to slow down your favorite songs so you can hear the notes and how "
           "they are played. To get started, drag a song from your music player, or an audio "
           "file from your file manager, or choose File > Open.");
    const int flags = Qt::AlignHCenter | Qt::AlignTop | Qt::TextWordWrap;
    painter.setPen(QColor(255, 255, 255, 102));
    painter.drawText(textRect.translated(0, 1), flags, instructions);
    painter.setPen(QColor(153, 153, 153));
    painter.drawText(textRect, flags, instructions);
}

} // namespace tesk
