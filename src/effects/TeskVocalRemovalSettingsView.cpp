#include "effects/TeskVocalRemovalSettingsView.h"

#include "effects/EffectsAccessibility.h"
#include "observation/KeyValueObserving.h"
#include "widgets/DevicePixels.h"
#include "widgets/NamedImage.h"
#include "widgets/TeskLook.h"

#include <QAccessible>
#include <QFontMetricsF>
#include <QKeyEvent>
#include <QLinearGradient>
#include <QMouseEvent>
#include <QPainter>
#include <QTimer>
#include <cmath>

namespace tesk {

TeskVocalRemovalSettingsView::TeskVocalRemovalSettingsView(QWidget* parent)
    : TeskSpectrumEffectView(parent)
    , mAnimation([this](double progress) { animationReachedMark(progress); }) {
    setAccessibleName(tr("Vocal band"));
    setMouseTracking(true); // the cursor tells what a press would do
    // Reached with Tab; a click leaves the keys to the window's commands.
    setFocusPolicy(Qt::TabFocus);
}

void TeskVocalRemovalSettingsView::keyPressEvent(QKeyEvent* event) {
    // Plain arrows, and Left and Right with Shift; Ctrl and Alt with them are the window's.
    const Qt::KeyboardModifiers modifiers = event->modifiers() & ~Qt::KeypadModifier;
    const int key = event->key();
    const bool pick = (key == Qt::Key_Up || key == Qt::Key_Down) && modifiers == Qt::NoModifier;
    const bool move = (key == Qt::Key_Left || key == Qt::Key_Right) &&
                      (modifiers == Qt::NoModifier || modifiers == Qt::ShiftModifier);
    if (!pick && !move) {
        TeskSpectrumEffectView::keyPressEvent(event);
        return;
    }
    if (mDragging)
        return; // an edge held with the mouse is the mouse's
    if (pick) {
        const bool low = key == Qt::Key_Down;
        if (low != mKeysMoveLowEdge) {
            mKeysMoveLowEdge = low;
            announceKeyEdge();
            update();
        }
        return;
    }
    const double octaves = modifiers == Qt::ShiftModifier ? 1.0 : 1.0 / 12.0;
    const double factor = std::exp2(key == Qt::Key_Left ? -octaves : octaves);
    setEdgeFrequencyAsUser(mKeysMoveLowEdge,
                           (mKeysMoveLowEdge ? mLowFrequency : mHighFrequency) * factor);
}

void TeskVocalRemovalSettingsView::announceKeyEdge() {
    QAccessibleEvent focus(this, QAccessible::Focus);
    focus.setChild(mKeysMoveLowEdge ? 0 : 1);
    QAccessible::updateAccessibility(&focus);
}

void TeskVocalRemovalSettingsView::focusInEvent(QFocusEvent* event) {
    TeskSpectrumEffectView::focusInEvent(event);
    // Tab comes to the low edge first, Shift+Tab to the high one.
    if (event->reason() == Qt::TabFocusReason || event->reason() == Qt::BacktabFocusReason)
        mKeysMoveLowEdge = event->reason() == Qt::TabFocusReason;
    // A screen reader says which edge the keys move. Qt tells of the focus on the whole view
    // after this event, which would leave the reader on the view: the edge is told after that.
    QTimer::singleShot(0, this, [this] {
        if (hasFocus())
            announceKeyEdge();
    });
}

bool TeskVocalRemovalSettingsView::focusNextPrevChild(bool next) {
    if (hasFocus() && !mDragging && next == mKeysMoveLowEdge) {
        mKeysMoveLowEdge = !next;
        announceKeyEdge();
        update();
        return true;
    }
    return TeskSpectrumEffectView::focusNextPrevChild(next);
}

QRectF TeskVocalRemovalSettingsView::focusRingRect() const {
    // Round the grip, reaching out on the edge's own side, so that at the narrowest band the
    // two rings differ; inside the view's border at either end of the axis.
    const QRectF edge = mKeysMoveLowEdge ? lowFrequencyRect() : highFrequencyRect();
    QRectF ring(mKeysMoveLowEdge ? edge.left() - 8.0 : edge.left() - 3.0, edge.center().y() - 9.0,
                12.0, 18.0);
    const QRectF inside = QRectF(rect()).adjusted(3.0, 3.0, -3.0, -3.0);
    ring.moveLeft(std::clamp(ring.left(), inside.left(),
                             std::max(inside.left(), inside.right() - ring.width())));
    return ring;
}

TeskVocalRemovalSettingsView::~TeskVocalRemovalSettingsView() = default;

QStringList TeskVocalRemovalSettingsView::exposedBindings() const {
    return TeskSpectrumEffectView::exposedBindings() +
           QStringList{QStringLiteral("lowFrequency"), QStringLiteral("highFrequency")};
}

void TeskVocalRemovalSettingsView::observableObjectChangedKeyPath(QObject* object,
                                                                  const QString& keyPath,
                                                                  const QString& binding) {
    const bool low = binding == QLatin1String("lowFrequency");
    if (!low && binding != QLatin1String("highFrequency")) {
        TeskSpectrumEffectView::observableObjectChangedKeyPath(object, keyPath, binding);
        return;
    }
    const double hertz = valueForKeyPath(object, keyPath).toDouble();
    const double current = low ? mLowFrequency : mHighFrequency;
    if (mDragging || !mHasBand) {
        mAnimation.stop();
        low ? setLowFrequency(hertz) : setHighFrequency(hertz);
        // A band glides only once both edges have been shown: binding shows them at once.
        const char* other = low ? "highFrequency" : "lowFrequency";
        mHasBand = mHasBand || bindingsManager().observableObject(other) != nullptr;
        return;
    }
    const double lowTarget =
        mAnimation.isAnimating() ? mLowFrequencyAnimation.mEndFrequency : mLowFrequency;
    const double highTarget =
        mAnimation.isAnimating() ? mHighFrequencyAnimation.mEndFrequency : mHighFrequency;
    if ((low ? lowTarget : highTarget) == hertz && current == hertz)
        return;
    mLowFrequencyAnimation = {mLowFrequency, low ? hertz : lowTarget};
    mHighFrequencyAnimation = {mHighFrequency, low ? highTarget : hertz};
    mAnimation.start();
}

void TeskVocalRemovalSettingsView::animationReachedMark(double progress) {
    const auto along = [progress](const FrequencyAnimation& glide) {
        return double(float(glide.mStartFrequency +
                            (glide.mEndFrequency - glide.mStartFrequency) * progress));
    };
    // A screen reader hears the edges a preset moved once, where they end, not at every step.
    mGlideStepping = true;
    setLowFrequency(progress >= 1.0 ? mLowFrequencyAnimation.mEndFrequency
                                    : along(mLowFrequencyAnimation));
    setHighFrequency(progress >= 1.0 ? mHighFrequencyAnimation.mEndFrequency
                                     : along(mHighFrequencyAnimation));
    mGlideStepping = false;
    if (progress < 1.0)
        return;
    if (mLowFrequency != mLowFrequencyAnimation.mStartFrequency)
        announceHandleValue(this, 0, mLowFrequency);
    if (mHighFrequency != mHighFrequencyAnimation.mStartFrequency)
        announceHandleValue(this, 1, mHighFrequency);
}

void TeskVocalRemovalSettingsView::setLowFrequency(double hertz) {
    if (mLowFrequency == hertz)
        return;
    mLowFrequency = hertz;
    if (!mGlideStepping)
        announceHandleValue(this, 0, hertz);
    update();
}

void TeskVocalRemovalSettingsView::setHighFrequency(double hertz) {
    if (mHighFrequency == hertz)
        return;
    mHighFrequency = hertz;
    if (!mGlideStepping)
        announceHandleValue(this, 1, hertz);
    update();
}

void TeskVocalRemovalSettingsView::setLowFrequencyWithPoint(double x) {
    const double hertz = geometry().lowFrequencyForPoint(x, mHighFrequency);
    setLowFrequency(hertz);
    updateObservableObjectForBindingName(QStringLiteral("lowFrequency"), hertz);
}

void TeskVocalRemovalSettingsView::setHighFrequencyWithPoint(double x) {
    const double hertz = geometry().highFrequencyForPoint(x, mLowFrequency);
    setHighFrequency(hertz);
    updateObservableObjectForBindingName(QStringLiteral("highFrequency"), hertz);
}

void TeskVocalRemovalSettingsView::setEdgeFrequencyAsUser(bool lowEdge, double hertz) {
    tellDelegateEditingBegan();
    mAnimation.finish();
    const double x = geometry().frequencyMapping().pointForValue(std::max(hertz, 1.0));
    lowEdge ? setLowFrequencyWithPoint(x) : setHighFrequencyWithPoint(x);
    tellDelegateEditingEnded();
}

TeskVocalRemovalSettingsView::Drag
TeskVocalRemovalSettingsView::dragForPoint(const QPointF& point) const {
    const auto holds = [&point](const QRectF& r) {
        return point.x() >= r.left() && point.x() < r.right() && point.y() >= r.top() &&
               point.y() < r.bottom();
    };
    if (holds(lowFrequencyHitRect()))
        return Drag::LowEdge;
    if (holds(highFrequencyHitRect()))
        return Drag::HighEdge;
    if (holds(midFrequencyHitRect()))
        return Drag::Shift;
    if (holds(QRectF(rect())))
        return Drag::Create;
    return Drag::None;
}

void TeskVocalRemovalSettingsView::mousePressEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton) {
        event->ignore();
        return;
    }
    // The delegate switches vocal reduction on first.
    tellDelegateEditingBegan();
    mAnimation.finish(); // the edge not dragged stays where the model holds it
    mDrag = dragForPoint(event->position());
    mDragging = mDrag != Drag::None;
    mPressX = event->position().x();
    const VocalBandGeometry band = geometry(); // kept: the mapping lives in it
    const SLogarithmicMapping& mapping = band.frequencyMapping();
    mLowStartPoint = mapping.pointForValue(mLowFrequency);
    mHighStartPoint = mapping.pointForValue(mHighFrequency);
    if (mDrag == Drag::Shift)
        setCursor(Qt::ClosedHandCursor);
}

void TeskVocalRemovalSettingsView::mouseMoveEvent(QMouseEvent* event) {
    if (mDragging && (event->buttons() & Qt::LeftButton))
        dragTo(event->position().x());
    else if (!mDragging)
        showCursorFor(event->position());
}

void TeskVocalRemovalSettingsView::dragTo(double x) {
    switch (mDrag) {
    case Drag::LowEdge:
        setLowFrequencyWithPoint(x);
        break;
    case Drag::HighEdge:
        setHighFrequencyWithPoint(x);
        break;
    case Drag::Shift: {
        const double offset = x - mPressX;
        setLowFrequencyWithPoint(mLowStartPoint + offset);
        setHighFrequencyWithPoint(mHighStartPoint + offset);
        break;
    }
    case Drag::Create:
        if (x < mPressX) {
            setLowFrequencyWithPoint(x);
            setHighFrequencyWithPoint(mPressX);
        } else if (x > mPressX) {
            setLowFrequencyWithPoint(mPressX);
            setHighFrequencyWithPoint(x);
        }
        break;
    case Drag::None:
        break;
    }
}

void TeskVocalRemovalSettingsView::mouseReleaseEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton)
        return;
    endDrag();
    showCursorFor(event->position());
}

void TeskVocalRemovalSettingsView::endDrag() {
    if (!mDragging)
        return;
    if (mDrag == Drag::Shift)
        unsetCursor();
    mDragging = false;
    mDrag = Drag::None;
    tellDelegateEditingEnded();
    update();
}

void TeskVocalRemovalSettingsView::showCursorFor(const QPointF& point) {
    switch (dragForPoint(point)) {
    case Drag::LowEdge:
    case Drag::HighEdge:
        setCursor(Qt::SizeHorCursor);
        break;
    case Drag::Shift:
        setCursor(Qt::OpenHandCursor);
        break;
    default:
        setCursor(Qt::CrossCursor);
        break;
    }
}

void TeskVocalRemovalSettingsView::drawContents(QPainter& painter) {
    // Both edges as wide, on whole device pixels.
    const qreal ratio = devicePixelRatioOf(painter);
    const QRectF lowRect = lowFrequencyRect();
    const QRectF highRect = highFrequencyRect();
    const QRectF low = hairline(lowRect.left(), lowRect.top(), lowRect.height(), ratio);
    const QRectF high = hairline(highRect.left(), highRect.top(), highRect.height(), ratio);
    const QRectF band(low.right(), low.top(), high.left() - low.right(), low.height());
    if (band.width() > 0) {
        // The band: a light veil, brighter at the top, with a lighter rim.
        QLinearGradient highlight(band.topLeft(), band.bottomLeft());
        QColor top = look::hudLightBlue;
        top.setAlpha(52);
        QColor bottom = look::hudLightBlue;
        bottom.setAlpha(18);
        highlight.setColorAt(0.0, top);
        highlight.setColorAt(1.0, bottom);
        painter.fillRect(band, highlight);
        QColor rim = look::hudLightBlue;
        rim.setAlpha(90);
        painter.fillRect(rowHairline(band.top(), band.left(), band.width(), ratio), rim);
    }
    const QColor handle = look::hudLightBlue;
    painter.fillRect(low, handle);
    painter.fillRect(high, handle);
    // A small grip at the middle of each handle.
    for (const QRectF& edge : {low, high}) {
        const QRectF grip(edge.left() - 2.0, edge.center().y() - 6.0, 5.0, 12.0);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(Qt::NoPen);
        painter.setBrush(handle);
        painter.drawRoundedRect(grip, 2.0, 2.0);
    }
    // The band in whole hertz, as the settings round it, in a top corner clear of its edges, on
    // a plate of the panel's dark where an edge passes under it all the same.
    QFont font = painter.font();
    font.setPixelSize(10);
    painter.setFont(font);
    const QString readout = tr("%1 – %2 Hz")
                                .arg(std::lrint(float(mLowFrequency)))
                                .arg(std::lrint(float(mHighFrequency)));
    const QRectF place = geometry().readoutRect(
        QFontMetricsF(font).size(Qt::TextSingleLine, readout), mLowFrequency, mHighFrequency);
    painter.setPen(Qt::NoPen);
    painter.setBrush(look::hudPanel);
    painter.drawRoundedRect(place.adjusted(-3.0, -1.0, 3.0, 1.0), 3.0, 3.0);
    QColor label = look::hudLightBlue;
    label.setAlpha(200);
    painter.setPen(label);
    // Low to high along the axis, in every language: right to left, "Hz 800 – 150".
    painter.setLayoutDirection(Qt::LeftToRight);
    painter.drawText(place, Qt::AlignTop | Qt::AlignLeft, readout);
    if (hasFocus()) {
        // Reached with Tab: a blue ring round the edge the arrow keys move, at full strength on
        // a switched-off editor too.
        painter.save();
        painter.setOpacity(1.0);
        painter.setPen(QPen(look::focusRing, 2.0));
        painter.setBrush(Qt::NoBrush);
        painter.drawRoundedRect(focusRingRect(), 3.0, 3.0);
        painter.restore();
    }
}

} // namespace tesk
