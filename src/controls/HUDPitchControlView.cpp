#include "controls/HUDPitchControlView.h"

#include "controls/CalloutWindow.h"
#include "controls/SThreePartImage.h"
#include "controls/TransportAccessibility.h"
#include "widgets/DevicePixels.h"
#include "widgets/NamedImage.h"

#include <QAccessible>
#include <QMouseEvent>
#include <QPainter>
#include <QWheelEvent>
#include <cmath>

namespace tesk {

namespace {
const NamedImage& image(const char* name) {
    return NamedImage::named(QString::fromLatin1(name));
}
} // namespace

HUDPitchControlView::HUDPitchControlView(QWidget* parent)
    : SBindingView(parent) {
    setFocusPolicy(Qt::NoFocus);
    installTransportAccessibility();
    setAccessibleName(tr("Pitch"));
    mCallout = new CalloutWindow(this);
    setPitchAdjustment(0.0);
}

HUDPitchControlView::~HUDPitchControlView() {
    delete mCallout;
}

QStringList HUDPitchControlView::exposedBindings() const {
    return SBindingView::exposedBindings() +
           QStringList{QStringLiteral("pitchAdjustment"), QStringLiteral("dirty")};
}

void HUDPitchControlView::observableObjectChangedKeyPath(QObject* object, const QString& keyPath,
                                                         const QString& binding) {
    if (binding == QLatin1String("pitchAdjustment"))
        setPitchAdjustment(object->property(keyPath.toUtf8().constData()).toDouble());
}

void HUDPitchControlView::setPitchAdjustment(double semitones) {
    const bool changed = semitones != mPitchAdjustment;
    mPitchAdjustment = semitones;
    if (changed) {
        QAccessibleValueChangeEvent event(this, semitones);
        QAccessible::updateAccessibility(&event);
    }
    updateObservableObjectForBindingName(QStringLiteral("dirty"), dirty());
    if (mCallout && mCallout->isVisible())
        mCallout->follow(calloutTip(), TransportRules::pitchText(mPitchAdjustment));
    // Qt hands a screen reader the value only as a number: the words go in the description.
    setAccessibleDescription(TransportRules::spokenPitch(semitones));
    const QString shown = TransportRules::pitchText(semitones);
    const bool one = shown == QLatin1String("+1") || shown == QLatin1String("-1");
    setToolTip((one ? tr("Pitch %1 semitone") : tr("Pitch %1 semitones")).arg(shown));
    update();
}

void HUDPitchControlView::setAndWriteBack(double semitones) {
    setPitchAdjustment(semitones);
    updateObservableObjectForBindingName(QStringLiteral("pitchAdjustment"), semitones);
}

void HUDPitchControlView::step(TransportRules::PitchStep step) {
    setAndWriteBack(TransportRules::steppedPitch(mPitchAdjustment, step));
    showCalloutBriefly();
}

QRectF HUDPitchControlView::sliderSlotRect() const {
    const double slotHeight = SThreePartImage::pitchTrack().height();
    // 25 points above the bottom edge, 8 in from each side.
    return QRectF(8, height() - 25 - slotHeight, width() - 16, slotHeight);
}

QRectF HUDPitchControlView::sliderKnobRect() const {
    const QSizeF knob = image("PitchSliderKnob").size();
    const QRectF slot = sliderSlotRect();
    const double x = TransportRules::pitchX(mPitchAdjustment, slot.x(), slot.width());
    // Under the slot, pointing up at it: its bottom 8 points above the view's.
    return QRectF(std::floor(x - knob.width() * 0.5), height() - 8 - knob.height(), knob.width(),
                  knob.height());
}

QRectF HUDPitchControlView::tickRect(int index) const {
    const QSizeF tick = image("PitchSliderTickMark").size();
    const QRectF slot = sliderSlotRect();
    const double x = TransportRules::pitchX(tickValue(index), slot.x(), slot.width());
    return QRectF(std::floor(x - tick.width() * 0.5), slot.center().y() - tick.height() / 2,
                  tick.width(), tick.height());
}

int HUDPitchControlView::pointInPitchTick(const QPointF& point) const {
    for (int i = 0; i < kTickCount; ++i)
        if (tickRect(i).adjusted(-4, -4, 4, 4).contains(point))
            return i;
    return kTickCount;
}

QPoint HUDPitchControlView::calloutTip() const {
    const QRectF knob = sliderKnobRect();
    return mapToGlobal(QPointF(knob.center().x(), sliderSlotRect().top()).toPoint());
}

void HUDPitchControlView::showCalloutBriefly() {
    // A menu's step while the speed control shows: no bubble beside a control nobody sees.
    if (!isVisible())
        return;
    mCallout->showAt(calloutTip(), TransportRules::pitchText(mPitchAdjustment));
    mCallout->fadeOutLater();
}

void HUDPitchControlView::moveKnobTo(double x, bool snap) {
    const QRectF slot = sliderSlotRect();
    setAndWriteBack(TransportRules::pitchForX(std::clamp(x, slot.left(), slot.right()), slot.x(),
                                              slot.width(), snap));
}

void HUDPitchControlView::mousePressEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton)
        return;
    const QPointF point = event->position();
    const bool snap = !(event->modifiers() & Qt::ShiftModifier);
    if (sliderKnobRect().contains(point)) {
        mDragging = true;
        mPressPitch = mPitchAdjustment;
        // Escape must reach the drag, as on the speed control, while the keyboard focus stays
        // where it was: the keys are taken only while dragging.
        grabKeyboard();
        mCallout->showAt(calloutTip(), TransportRules::pitchText(mPitchAdjustment));
    } else if (sliderSlotRect().adjusted(-2, -2, 2, 2).contains(point)) {
        moveKnobTo(point.x(), snap);
        showCalloutBriefly();
    } else if (const int tick = pointInPitchTick(point); tick < kTickCount) {
        setAndWriteBack(tickValue(tick));
        showCalloutBriefly();
    }
}

void HUDPitchControlView::abandonMouseGesture() {
    // The drag ends where it is, and its bubble goes.
    if (!mDragging)
        return;
    endDrag();
    mCallout->fadeOut();
}

void HUDPitchControlView::endDrag() {
    mDragging = false;
    releaseKeyboard();
}

void HUDPitchControlView::keyPressEvent(QKeyEvent* event) {
    if (mDragging && event->key() == Qt::Key_Escape) {
        endDrag(); // back to the shift the drag began at
        setAndWriteBack(mPressPitch);
        mCallout->fadeOut();
        return;
    }
    SBindingView::keyPressEvent(event);
}

void HUDPitchControlView::mouseMoveEvent(QMouseEvent* event) {
    if (mDragging)
        moveKnobTo(event->position().x(), !(event->modifiers() & Qt::ShiftModifier));
}

void HUDPitchControlView::mouseReleaseEvent(QMouseEvent* event) {
    if (!mDragging || event->button() != Qt::LeftButton)
        return;
    endDrag();
    moveKnobTo(event->position().x(), !(event->modifiers() & Qt::ShiftModifier));
    mCallout->fadeOut();
}

void HUDPitchControlView::wheelEvent(QWheelEvent* event) {
    event->accept();
    const int notches = mWheelNotches.take(*event);
    if (notches != 0)
        setAndWriteBack(TransportRules::wheeledPitch(
            mPitchAdjustment, notches * TransportRules::kPitchWheelUnitsPerNotch,
            event->modifiers() & Qt::ShiftModifier));
}

void HUDPitchControlView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    alignToDevicePixels(painter);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    SThreePartImage::pitchTrack().draw(painter, sliderSlotRect());
    // A tick's picture is a line one point wide in the middle of three: drawn scaled so that
    // the line covers whole device pixels, it stays one crisp column at 1.25 too.
    const qreal ratio = devicePixelRatioOf(painter);
    for (int i = 0; i < kTickCount; ++i) {
        const QRectF tick = tickRect(i);
        const QRectF line = hairline(tick.left() + 1, tick.top(), tick.height(), ratio);
        image("PitchSliderTickMark")
            .draw(painter, QRectF(line.left() - line.width(), tick.top(),
                                  tick.width() * line.width(), tick.height()));
    }
    image("PitchSliderKnob").draw(painter, sliderKnobRect());
}

} // namespace tesk
