#include "controls/CalloutWindow.h"

#include "widgets/NamedImage.h"

#include <QFontInfo>
#include <QFontMetricsF>
#include <QImage>
#include <QPainter>
#include <QRegion>
#include <algorithm>
#include <cmath>

namespace tesk {

namespace {
// The arrow's tip lies this far below the bubble.
constexpr int kArrowInset = 6;
// The bubble's round corners, which the label keeps clear of.
constexpr qreal kCornerInset = 5.0;
constexpr qreal kSmallestPointSize = 6.0;

// The window's shape at `ratio`: each point of which the bubble's picture, drawn there, paints
// any pixel (a pixel belongs to the point its top left corner lies in). Its soft edge stays
// whole where a compositor blends it.
QRegion shapeOf(const NamedImage& picture, qreal ratio) {
    const QImage image = picture.pixmap(ratio).toImage().convertToFormat(QImage::Format_ARGB32);
    const auto painted = [&](int x, int y) {
        const int right = std::min(image.width(), int(std::ceil((x + 1) * ratio)));
        const int bottom = std::min(image.height(), int(std::ceil((y + 1) * ratio)));
        for (int row = int(std::ceil(y * ratio)); row < bottom; ++row)
            for (int column = int(std::ceil(x * ratio)); column < right; ++column)
                if (qAlpha(image.pixel(column, row)) > 0)
                    return true;
        return false;
    };
    const QSize size = picture.size().toSize();
    QRegion shape;
    for (int y = 0; y < size.height(); ++y) {
        for (int x = 0; x < size.width();) {
            while (x < size.width() && !painted(x, y))
                ++x;
            const int start = x;
            while (x < size.width() && painted(x, y))
                ++x;
            if (x > start)
                shape += QRect(start, y, x - start, 1);
        }
    }
    return shape;
}
} // namespace

QFont CalloutWindow::labelFont(const QFont& base, const QString& text, qreal width) {
    QFont font = base;
    font.setBold(true);
    font.setPixelSize(12);
    const qreal room = width - 2.0 * kCornerInset;
    // Glyph widths do not shrink in proportion to the size: step down until it fits.
    for (qreal size = QFontInfo(font).pointSizeF();
         QFontMetricsF(font).horizontalAdvance(text) > room && size > kSmallestPointSize;) {
        size = std::max(kSmallestPointSize, size - 0.25);
        font.setPointSizeF(size);
    }
    return font;
}

CalloutWindow::CalloutWindow(QWidget* owner)
    : QWidget(owner, Qt::ToolTip | Qt::FramelessWindowHint | Qt::WindowDoesNotAcceptFocus)
    , mFade(this, "windowOpacity") {
    setAttribute(Qt::WA_TranslucentBackground);
    setAttribute(Qt::WA_ShowWithoutActivating);
    setAttribute(Qt::WA_TransparentForMouseEvents);
    setFocusPolicy(Qt::NoFocus);
    setFixedSize(NamedImage::named(QStringLiteral("PitchArrow")).size().toSize());
    takeBubbleShape();
    mFade.setDuration(250);
    mFade.setStartValue(1.0);
    mFade.setEndValue(0.0);
    connect(&mFade, &QPropertyAnimation::finished, this, &QWidget::hide);
    mDelayedFade.setSingleShot(true);
    mDelayedFade.setInterval(500);
    connect(&mDelayedFade, &QTimer::timeout, this, &CalloutWindow::fadeOut);
}

void CalloutWindow::takeBubbleShape() {
    // Without a compositing window manager the clear corners of a translucent window show
    // black; shaped like the bubble, the window has no corners to show. The picture's outline
    // lies on whole points, so its edge covers whole pixels at any ratio.
    const qreal ratio = devicePixelRatioF();
    if (ratio == mShapeRatio)
        return;
    mShapeRatio = ratio;
    setMask(shapeOf(NamedImage::named(QStringLiteral("PitchArrow")), ratio));
}

void CalloutWindow::showAt(const QPoint& tip, const QString& text) {
    takeBubbleShape(); // the screen it shows on may have another ratio
    mFade.stop();
    mDelayedFade.stop();
    setWindowOpacity(1.0);
    follow(tip, text);
    show();
}

void CalloutWindow::follow(const QPoint& tip, const QString& text) {
    mText = text;
    // Centred over the knob, the arrow's tip (the picture's bottom edge) on `tip`.
    move(tip.x() - width() / 2, tip.y() - height());
    update();
}

void CalloutWindow::fadeOut() {
    mDelayedFade.stop();
    if (isVisible() && mFade.state() != QAbstractAnimation::Running)
        mFade.start();
}

void CalloutWindow::fadeOutLater() {
    mDelayedFade.start(); // restarted by each step of a run
}

void CalloutWindow::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    NamedImage::named(QStringLiteral("PitchArrow")).draw(painter, QPointF(0, 0));
    painter.setFont(labelFont(font(), mText, width()));
    const QRectF bubble(0, 0, width(), height() - kArrowInset);
    painter.setPen(QColor(0, 0, 0, 160));
    painter.drawText(bubble.translated(0, 1), Qt::AlignCenter, mText);
    painter.setPen(QColor(217, 238, 254));
    painter.drawText(bubble, Qt::AlignCenter, mText);
}

} // namespace tesk
