#include "widgets/KLTexturedSlider.h"

#include "widgets/DevicePixels.h"
#include "widgets/TeskLook.h"

#include <QAccessible>
#include <QAccessibleValueInterface>
#include <QAccessibleWidget>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QWheelEvent>
#include <algorithm>
#include <cmath>

namespace tesk {

namespace {
// The groove is dark and inset, the part left of the knob a muted blue, the knob a light
// round cap: the same on light and dark desktops.
const QColor kGrooveTop(86, 90, 96);
const QColor kGrooveBottom(128, 132, 138);
const QColor kFillTop(62, 110, 168);
const QColor kFillBottom(96, 146, 204);
const QColor kKnobLight(252, 252, 252);
const QColor kKnobDark(204, 207, 212);
const QColor kKnobEdge(96, 100, 108);
// The end pictures stand on the window's own background, light or dark: they take its text
// colour, softened (a dark grey on a light desktop).
constexpr qreal kIndicatorOpacity = 0.62;
constexpr qreal kGrooveHeight = 5.0;
} // namespace

KLTexturedSlider::KLTexturedSlider(QWidget* parent)
    : QWidget(parent) {
    setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
    installTexturedSliderAccessibility();
    refreshSpokenValue();
}

void KLTexturedSlider::refreshSpokenValue() {
    const double span = mMaxValue - mMinValue;
    const double fraction = span > 0.0 ? (mValue - mMinValue) / span : 0.0;
    const QString spoken = tr("%1 %").arg(std::lround(fraction * 100.0));
    if (spoken != accessibleDescription())
        setAccessibleDescription(spoken);
}

void KLTexturedSlider::setValue(double value) {
    value = std::clamp(value, mMinValue, mMaxValue);
    if (value == mValue)
        return;
    mValue = value;
    update();
    refreshSpokenValue();
    QAccessibleValueChangeEvent event(this, mValue);
    QAccessible::updateAccessibility(&event);
}

void KLTexturedSlider::setRange(double minValue, double maxValue) {
    mMinValue = minValue;
    mMaxValue = std::max(minValue, maxValue);
    if (!mStepSet)
        mStep = (mMaxValue - mMinValue) / 10.0;
    setValue(mValue);
    refreshSpokenValue();
    update();
}

void KLTexturedSlider::setIndicatorIndex(int index) {
    mIndicator = (index == VolumeIndicator || index == ZoomIndicator) ? index : NoIndicator;
    update();
}

QRectF KLTexturedSlider::minimumEndRect() const {
    if (mIndicator == NoIndicator)
        return {};
    return {0.0, (height() - kEndWidth) / 2.0, qreal(kEndWidth), qreal(kEndWidth)};
}

QRectF KLTexturedSlider::maximumEndRect() const {
    if (mIndicator == NoIndicator)
        return {};
    return {qreal(width() - kEndWidth), (height() - kEndWidth) / 2.0, qreal(kEndWidth),
            qreal(kEndWidth)};
}

qreal KLTexturedSlider::knobTravelStart() const {
    const qreal end = mIndicator == NoIndicator ? 0.0 : kEndWidth + kGap;
    return end + kKnobDiameter / 2.0;
}

qreal KLTexturedSlider::knobTravelEnd() const {
    const qreal end = mIndicator == NoIndicator ? 0.0 : kEndWidth + kGap;
    return std::max(knobTravelStart(), width() - end - kKnobDiameter / 2.0);
}

qreal KLTexturedSlider::xForValue(double value) const {
    const double span = mMaxValue - mMinValue;
    const double fraction =
        span > 0.0 ? (std::clamp(value, mMinValue, mMaxValue) - mMinValue) / span : 0.0;
    return knobTravelStart() + fraction * (knobTravelEnd() - knobTravelStart());
}

double KLTexturedSlider::valueForX(qreal x) const {
    const qreal travel = knobTravelEnd() - knobTravelStart();
    const double fraction =
        travel > 0.0 ? std::clamp((x - knobTravelStart()) / travel, 0.0, 1.0) : 0.0;
    return mMinValue + fraction * (mMaxValue - mMinValue);
}

QPointF KLTexturedSlider::knobCentre() const {
    return {xForValue(mValue), height() / 2.0};
}

void KLTexturedSlider::userSetValue(double value) {
    value = std::clamp(value, mMinValue, mMaxValue);
    if (value == mValue)
        return;
    setValue(value);
    emit valueChanged(mValue);
}

void KLTexturedSlider::keyPressEvent(QKeyEvent* event) {
    if ((event->modifiers() & ~Qt::KeypadModifier) != Qt::NoModifier || !isEnabled()) {
        QWidget::keyPressEvent(event);
        return;
    }
    switch (event->key()) {
    case Qt::Key_Left:
    case Qt::Key_Down:
        userSetValue(mValue - mStep);
        emit steppedTowardsMinimum();
        return;
    case Qt::Key_Right:
    case Qt::Key_Up:
        userSetValue(mValue + mStep);
        emit steppedTowardsMaximum();
        return;
    case Qt::Key_Home:
        userSetValue(mMinValue);
        return;
    case Qt::Key_End:
        userSetValue(mMaxValue);
        return;
    default:
        QWidget::keyPressEvent(event);
    }
}

void KLTexturedSlider::mousePressEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton || !isEnabled())
        return;
    const QPointF at = event->position();
    if (minimumEndRect().contains(at)) {
        userSetValue(mValue - mStep);
        emit steppedTowardsMinimum();
        return;
    }
    if (maximumEndRect().contains(at)) {
        userSetValue(mValue + mStep);
        emit steppedTowardsMaximum();
        return;
    }
    // A press on the groove takes the knob there and goes on dragging it.
    mDragging = true;
    userSetValue(valueForX(at.x()));
}

void KLTexturedSlider::mouseMoveEvent(QMouseEvent* event) {
    if (mDragging)
        userSetValue(valueForX(event->position().x()));
}

void KLTexturedSlider::mouseReleaseEvent(QMouseEvent* event) {
    if (mDragging && event->button() == Qt::LeftButton) {
        userSetValue(valueForX(event->position().x()));
        mDragging = false;
    }
}

bool KLTexturedSlider::event(QEvent* event) {
    if (event->type() == QEvent::WindowDeactivate || event->type() == QEvent::Hide)
        mDragging = false;
    return QWidget::event(event);
}

void KLTexturedSlider::wheelEvent(QWheelEvent* event) {
    const int notches = mWheelNotches.take(*event);
    if (notches != 0 && isEnabled()) {
        userSetValue(mValue + notches * mStep);
        for (int notch = 0; notch < std::abs(notches); ++notch) {
            if (notches > 0)
                emit steppedTowardsMaximum();
            else
                emit steppedTowardsMinimum();
        }
    }
    event->accept();
}

void KLTexturedSlider::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    alignToDevicePixels(painter);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setOpacity(isEnabled() ? 1.0 : 0.45);

    const qreal middle = height() / 2.0;
    const qreal left = knobTravelStart() - kKnobDiameter / 2.0;
    const qreal right = knobTravelEnd() + kKnobDiameter / 2.0;
    const QRectF groove(left, middle - kGrooveHeight / 2.0, right - left, kGrooveHeight);
    QLinearGradient grooveFill(groove.topLeft(), groove.bottomLeft());
    grooveFill.setColorAt(0.0, kGrooveTop);
    grooveFill.setColorAt(1.0, kGrooveBottom);
    painter.setPen(Qt::NoPen);
    painter.setBrush(grooveFill);
    painter.drawRoundedRect(groove, kGrooveHeight / 2.0, kGrooveHeight / 2.0);

    const QPointF knob = knobCentre();
    QRectF filled = groove;
    filled.setRight(knob.x());
    QLinearGradient fill(filled.topLeft(), filled.bottomLeft());
    fill.setColorAt(0.0, kFillTop);
    fill.setColorAt(1.0, kFillBottom);
    painter.setBrush(fill);
    painter.drawRoundedRect(filled, kGrooveHeight / 2.0, kGrooveHeight / 2.0);

    const QRectF knobRect(knob.x() - kKnobDiameter / 2.0, middle - kKnobDiameter / 2.0,
                          kKnobDiameter, kKnobDiameter);
    QLinearGradient cap(knobRect.topLeft(), knobRect.bottomLeft());
    cap.setColorAt(0.0, kKnobLight);
    cap.setColorAt(1.0, kKnobDark);
    painter.setPen(QPen(kKnobEdge, 1.0));
    painter.setBrush(cap);
    painter.drawEllipse(knobRect.adjusted(0.5, 0.5, -0.5, -0.5));
    if (hasFocus()) {
        // Reached with Tab: the knob's rim turns blue, to say where the arrow keys go.
        painter.setPen(QPen(look::focusRing, 2.0));
        painter.setBrush(Qt::NoBrush);
        painter.drawEllipse(knobRect.adjusted(1.0, 1.0, -1.0, -1.0));
    }

    if (mIndicator != NoIndicator) {
        drawIndicator(painter, minimumEndRect(), false);
        drawIndicator(painter, maximumEndRect(), true);
    }
}

void KLTexturedSlider::drawIndicator(QPainter& painter, const QRectF& rect, bool maximumEnd) const {
    painter.save();
    painter.translate(rect.topLeft());
    QColor indicator = palette().color(QPalette::WindowText);
    indicator.setAlphaF(kIndicatorOpacity);
    const QPen line(indicator, 1.4, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin);
    if (mIndicator == VolumeIndicator) {
        // A speaker; the loud end has two sound waves.
        QPainterPath speaker;
        speaker.moveTo(2, 6);
        speaker.lineTo(5, 6);
        speaker.lineTo(9, 2.5);
        speaker.lineTo(9, 13.5);
        speaker.lineTo(5, 10);
        speaker.lineTo(2, 10);
        speaker.closeSubpath();
        painter.setPen(Qt::NoPen);
        painter.setBrush(indicator);
        painter.drawPath(speaker);
        if (maximumEnd) {
            painter.setPen(line);
            painter.setBrush(Qt::NoBrush);
            painter.drawArc(QRectF(7, 5, 5, 6), -60 * 16, 120 * 16);
            painter.drawArc(QRectF(7, 2.5, 8, 11), -60 * 16, 120 * 16);
        }
    } else {
        // A magnifier, small and minus for zooming out, larger and plus for zooming in.
        const qreal radius = maximumEnd ? 5.0 : 4.0;
        const QPointF centre(6.5, 6.5);
        painter.setPen(line);
        painter.setBrush(Qt::NoBrush);
        painter.drawEllipse(centre, radius, radius);
        painter.setPen(QPen(indicator, 2.2, Qt::SolidLine, Qt::RoundCap));
        const qreal reach = radius * 0.7071;
        painter.drawLine(centre + QPointF(reach, reach), QPointF(14.5, 14.5));
        painter.setPen(line);
        const qreal arm = radius * 0.5;
        painter.drawLine(centre - QPointF(arm, 0), centre + QPointF(arm, 0));
        if (maximumEnd)
            painter.drawLine(centre - QPointF(0, arm), centre + QPointF(0, arm));
    }
    painter.restore();
}

// --- Screen readers -------------------------------------------------------------------------

namespace {
class AccessibleTexturedSlider : public QAccessibleWidget, public QAccessibleValueInterface {
public:
    explicit AccessibleTexturedSlider(KLTexturedSlider* slider)
        : QAccessibleWidget(slider, QAccessible::Slider) {}

    void* interface_cast(QAccessible::InterfaceType type) override {
        if (type == QAccessible::ValueInterface)
            return static_cast<QAccessibleValueInterface*>(this);
        return QAccessibleWidget::interface_cast(type);
    }
    QVariant currentValue() const override { return slider()->value(); }
    void setCurrentValue(const QVariant& value) override {
        // A screen reader's change is the user's.
        const double before = slider()->value();
        slider()->setValue(value.toDouble());
        if (slider()->value() != before)
            QMetaObject::invokeMethod(slider(), "valueChanged", Q_ARG(double, slider()->value()));
    }
    QVariant maximumValue() const override { return slider()->maxValue(); }
    QVariant minimumValue() const override { return slider()->minValue(); }
    QVariant minimumStepSize() const override {
        // A slider stepped on its owner's grid still moves for a screen reader's increment.
        const double step = slider()->step();
        return step > 0.0 ? step : (slider()->maxValue() - slider()->minValue()) / 20.0;
    }

private:
    KLTexturedSlider* slider() const { return static_cast<KLTexturedSlider*>(widget()); }
};

QAccessibleInterface* texturedSliderFactory(const QString& className, QObject* object) {
    if (className == QLatin1String("tesk::KLTexturedSlider") && object && object->isWidgetType())
        return new AccessibleTexturedSlider(static_cast<KLTexturedSlider*>(object));
    return nullptr;
}
} // namespace

void installTexturedSliderAccessibility() {
    static const bool installed = [] {
        QAccessible::installFactory(texturedSliderFactory);
        return true;
    }();
    (void)installed;
}

} // namespace tesk
