#include "waveform/TeskScroller.h"

#include "diagnostics/TeskAssert.h"
#include "observation/KeyValueObserving.h"
#include "widgets/DevicePixels.h"
#include "widgets/NamedImage.h"
#include "widgets/TeskLook.h"

#include "waveform/WaveformAccessibility.h"

#include <QAccessible>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QWheelEvent>
#include <algorithm>
#include <cmath>

namespace tesk {

namespace {

const NamedImage& image(const char* name, bool active) {
    return NamedImage::named(QString::fromLatin1(name) + (active ? "" : "Inactive"));
}

const NamedImage& scrollerMarkerImageForType(std::uint32_t kind) {
    static const char* const names[kMarkerKindCount] = {
        "ScrollerGenericMarker", "ScrollerChorusMarker", "ScrollerVerseMarker",
        "ScrollerBridgeMarker"};
    TESK_PARAMETER_ASSERT(kind < kMarkerKindCount);
    return NamedImage::named(QString::fromLatin1(names[kind]));
}

/// The line through a marker's dot, a shade darker than the dot. Drawn here rather than in the
/// picture, so that it falls on whole device pixels at every ratio: a line one point wide in
/// the picture is a pixel and a half at 1.5, and blurred.
QColor scrollerMarkerStemColour(std::uint32_t kind) {
    static const QColor colours[kMarkerKindCount] = {
        QColor(0x51, 0x62, 0x75), QColor(0xc5, 0x6c, 0x20), QColor(0x3d, 0x88, 0x47),
        QColor(0x78, 0x4a, 0x95)};
    return colours[kind];
}

} // namespace

TeskScroller::TeskScroller(QWidget* parent)
    : SBindingView(parent) {
    installWaveformAccessibility();
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    setFixedHeight(look::scrollerHeight);
    refreshSpokenValue();
    mPageRepeat.setSingleShot(true);
    connect(&mPageRepeat, &QTimer::timeout, this, &TeskScroller::pageAgain);
}

void TeskScroller::refreshSpokenValue() {
    // Following the play head can take the view past the song's ends, where the knob stops.
    const double position = std::clamp(mValue, 0.0, 1.0);
    const QString spoken = tr("%1 %").arg(std::lround(position * 100.0));
    if (spoken == accessibleDescription())
        return;
    setAccessibleDescription(spoken);
    QAccessibleValueChangeEvent event(this, position);
    QAccessible::updateAccessibility(&event);
}

TeskScroller::~TeskScroller() = default;

QSize TeskScroller::sizeHint() const {
    return QSize(400, look::scrollerHeight);
}

QStringList TeskScroller::exposedBindings() const {
    return SBindingView::exposedBindings() +
           QStringList{"chorusMarkers", "verseMarkers", "genericMarkers",
                       "bridgeMarkers", "minValue",     "maxValue",
                       "dragging",      "value",        "knobProportion"};
}

void TeskScroller::observableObjectChangedKeyPath(QObject* object, const QString& keyPath,
                                                  const QString& binding) {
    const QVariant value = valueForKeyPath(object, keyPath);
    if (binding == "minValue") {
        setMinValue(value.toDouble());
    } else if (binding == "maxValue") {
        setMaxValue(value.toDouble());
    } else if (binding == "value") {
        // A dragged knob stays under the pointer; a paging one follows the view.
        if (!mPressed || mPagingDirection != 0)
            setValue(value.toDouble());
    } else if (binding == "knobProportion") {
        setKnobProportion(value.toDouble());
    } else if (binding != "dragging") {
        for (std::uint32_t kind = 0; kind < kMarkerKindCount; ++kind) {
            if (binding == bindingNameForType(kind))
                setMarkers(value.value<QList<quint32>>(), kind);
        }
    }
}

QList<quint32> TeskScroller::markersForType(std::uint32_t kind) const {
    TESK_PARAMETER_ASSERT(kind < kMarkerKindCount);
    return mMarkers[kind];
}

// While a song plays the scroller is told its values at every step of the play head; it
// repaints only what they change.

void TeskScroller::setMarkers(const QList<quint32>& markers, std::uint32_t kind) {
    TESK_PARAMETER_ASSERT(kind < kMarkerKindCount);
    if (markers == mMarkers[kind])
        return;
    mMarkers[kind] = markers;
    update();
}

void TeskScroller::setMinValue(double value) {
    if (value == mMinValue)
        return;
    mMinValue = value;
    update();
}

void TeskScroller::setMaxValue(double value) {
    if (value == mMaxValue)
        return;
    mMaxValue = value;
    update();
}

void TeskScroller::setValue(double value) {
    if (!std::isfinite(value))
        value = 0.0;
    if (value == mValue)
        return;
    const QRectF before = knobRect();
    mValue = value;
    refreshSpokenValue();
    // The knob stands on whole points and moves far more rarely than the value: where it was
    // and where it is, over the view's height (its picture reaches past the slot).
    const QRectF after = knobRect();
    if (after == before)
        return;
    const auto strip = [this](const QRectF& knob) {
        return QRect(int(std::floor(knob.left())) - 1, 0, int(std::ceil(knob.width())) + 2,
                     height());
    };
    update(QRegion(strip(before)) + strip(after));
}

void TeskScroller::setKnobProportion(double proportion) {
    proportion = std::isfinite(proportion) ? std::clamp(proportion, 0.0, 1.0) : 1.0;
    if (proportion == mKnobProportion)
        return;
    mKnobProportion = proportion;
    update();
}

QRectF TeskScroller::knobSlotRect() const {
    return QRectF(2, 2, std::max(0, width() - 4), 11);
}

QRectF TeskScroller::knobRect() const {
    const QRectF slot = knobSlotRect();
    const qreal knobWidth =
        std::min(slot.width(), std::max(kMinimumKnobWidth, slot.width() * mKnobProportion));
    const qreal x = slot.left() + (slot.width() - knobWidth) * std::clamp(mValue, 0.0, 1.0);
    return QRectF(std::round(x), slot.top(), std::round(knobWidth), slot.height());
}

std::optional<qreal> TeskScroller::markerPositionForValue(double value) const {
    if (mMaxValue == mMinValue)
        return std::nullopt;
    const QRectF slot = knobSlotRect().adjusted(1, 0, -1, 0);
    return slot.left() + std::floor(slot.width() * (value - mMinValue) / (mMaxValue - mMinValue));
}

bool TeskScroller::drawsActive() const {
    return !window() || window()->isActiveWindow();
}

void TeskScroller::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    alignToDevicePixels(painter);
    const bool active = drawsActive();
    image("ScrollerBarFill", active).draw(painter, QRectF(rect()));
    drawThreePartImage(painter, knobSlotRect().adjusted(0, -2, 0, 2),
                       image("ScrollerSlotLeft", active), image("ScrollerSlotFill", active),
                       image("ScrollerSlotRight", active));
    for (std::uint32_t kind = 0; kind < kMarkerKindCount; ++kind)
        drawMarkersOfType(painter, kind);
    if (mKnobProportion < 1.0 && mMaxValue > mMinValue) {
        drawThreePartImage(painter, knobRect().adjusted(0, -2, 0, 2),
                           image("ScrollerKnobLeft", active), image("ScrollerKnobFill", active),
                           image("ScrollerKnobRight", active));
    }
}

void TeskScroller::drawMarkersOfType(QPainter& painter, std::uint32_t kind) {
    if (mMarkers[kind].isEmpty() || mMaxValue == mMinValue)
        return;
    painter.save();
    QPainterPath slot;
    slot.addRoundedRect(knobSlotRect().adjusted(1, 0, -1, 0), kSlotRadius, kSlotRadius);
    painter.setClipPath(slot);
    const NamedImage& marker = scrollerMarkerImageForType(kind);
    const qreal top = std::floor(knobSlotRect().center().y() - marker.height() / 2.0);
    const qreal ratio = devicePixelRatioOf(painter);
    const QColor stem = scrollerMarkerStemColour(kind);
    for (const quint32 frame : mMarkers[kind]) {
        const std::optional<qreal> x = markerPositionForValue(frame);
        painter.fillRect(hairline(*x - 0.5, top, marker.height(), ratio), stem);
        marker.draw(painter, QPointF(*x - marker.width() / 2.0, top));
    }
    painter.restore();
}

void TeskScroller::moveKnobTo(qreal knobLeft) {
    const QRectF slot = knobSlotRect();
    const qreal travel = slot.width() - knobRect().width();
    const double value = travel > 0 ? std::clamp((knobLeft - slot.left()) / travel, 0.0, 1.0) : 0;
    setValue(value);
    updateObservableObjectForBindingName("value", value);
}

int TeskScroller::sideOfKnob(qreal x) const {
    const QRectF knob = knobRect();
    return x < knob.left() ? -1 : x >= knob.right() ? 1 : 0;
}

void TeskScroller::mousePressEvent(QMouseEvent* event) {
    const bool jump = event->button() == Qt::MiddleButton ||
                      (event->button() == Qt::LeftButton && event->modifiers() & Qt::ShiftModifier);
    if (mPressed || (event->button() != Qt::LeftButton && !jump))
        return;
    const qreal x = event->position().x();
    const int side = sideOfKnob(x);
    mPressed = true;
    mPressButton = event->button();
    updateObservableObjectForBindingName("dragging", true);
    if (side != 0 && !jump) {
        mPagingDirection = side;
        mPagingPointerX = x;
        emit pageRequested(side);
        mPageRepeat.start(mFirstPageRepeatMs);
        return;
    }
    const QRectF knob = knobRect();
    mGrabOffset = side == 0 ? x - knob.left() : knob.width() / 2.0;
    if (side != 0)
        moveKnobTo(x - mGrabOffset);
}

void TeskScroller::pageAgain() {
    // Paging waits while the knob is under the pointer (or past it), and goes on once the
    // pointer moves on along the slot.
    if (mPagingDirection == 0)
        return;
    if (sideOfKnob(mPagingPointerX) == mPagingDirection)
        emit pageRequested(mPagingDirection);
    mPageRepeat.start(mPageRepeatMs);
}

void TeskScroller::mouseMoveEvent(QMouseEvent* event) {
    if (mPagingDirection != 0)
        mPagingPointerX = event->position().x();
    else if (mPressed)
        moveKnobTo(event->position().x() - mGrabOffset);
}

void TeskScroller::mouseReleaseEvent(QMouseEvent* event) {
    if (event->button() == mPressButton)
        endPress();
}

void TeskScroller::endPress() {
    mPageRepeat.stop();
    mPagingDirection = 0;
    if (!mPressed)
        return;
    mPressed = false;
    updateObservableObjectForBindingName("dragging", false);
}

bool TeskScroller::event(QEvent* event) {
    // Only the window itself hears that its activation changed; the views in it hear that it
    // came to the front or went behind.
    if (event->type() == QEvent::WindowActivate || event->type() == QEvent::WindowDeactivate)
        update(); // the inactive pictures while another window is in front
    return SBindingView::event(event);
}

void TeskScroller::changeEvent(QEvent* event) {
    if (event->type() == QEvent::EnabledChange && !isEnabled())
        endPress();
    SBindingView::changeEvent(event);
}

void TeskScroller::wheelEvent(QWheelEvent* event) {
    const QPoint pixels = event->pixelDelta();
    const QPointF deltas = pixels.isNull() ? QPointF(event->angleDelta()) / 8.0 : QPointF(pixels);
    const qreal delta = std::abs(deltas.x()) >= std::abs(deltas.y()) ? deltas.x() : deltas.y();
    const qreal travel = knobSlotRect().width() - knobRect().width();
    if (travel > 0 && delta != 0) {
        const double value = std::clamp(mValue - delta / travel, 0.0, 1.0);
        setValue(value);
        updateObservableObjectForBindingName("value", value);
    }
    event->accept();
}

} // namespace tesk
