#include "controls/CalloutWindow.h"

#include "widgets/NamedImage.h"

#include <QFontInfo>
#include <QFontMetricsF>
#include <QImage>
#include <QPainter>
#include <QRegion>
#include <algorithm>

namespace tesk {

namespace {
// The arrow's tip lies this far below the bubble.
constexpr int kArrowInset = 6;
// The bubble's round corners, which the label keeps clear of.
constexpr qreal kCornerInset = 5.0;
constexpr qreal kSmallestPointSize = 6.0;

// Every pixel the bubble's picture touches, at its own size.
QRegion shapeOf(const NamedImage& picture) {
    const QImage image = picture.pixmap(1.0).toImage().convertToFormat(QImage::Format_ARGB32);
    QRegion shape;
    for (int y = 0; y < image.height(); ++y) {
        const auto* row = reinterpret_cast<const QRgb*>(image.constScanLine(y));
        for (int x = 0; x < image.width();) {
            while (x < image.width() && qAlpha(row[x]) == 0)
                ++x;
            const int start = x;
            while (x < image.width() && qAlpha(row[x]) > 0)
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
    const NamedImage& picture = NamedImage::named(QStringLiteral("PitchArrow"));
    setFixedSize(picture.size().toSize());
    // Without a compositing window manager the clear corners of a translucent window show
    // black; shaped like the bubble, the window has no corners to show.
    setMask(shapeOf(picture));
    mFade.setDuration(250);
    mFade.setStartValue(1.0);
    mFade.setEndValue(0.0);
    connect(&mFade, &QPropertyAnimation::finished, this, &QWidget::hide);
    mDelayedFade.setSingleShot(true);
    mDelayedFade.setInterval(500);
    connect(&mDelayedFade, &QTimer::timeout, this, &CalloutWindow::fadeOut);
}

void CalloutWindow::showAt(const QPoint& tip, const QString& text) {
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
