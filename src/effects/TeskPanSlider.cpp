#include "effects/TeskPanSlider.h"

#include "effects/EffectsAccessibility.h"
#include "observation/KeyValueObserving.h"
#include "widgets/DevicePixels.h"
#include "widgets/NamedImage.h"
#include "widgets/TeskLook.h"

#include <QAccessible>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QPen>
#include <QWheelEvent>
#include <algorithm>
#include <cmath>
#include <utility>

namespace tesk {

namespace {

const NamedImage& image(const char* name) {
    return NamedImage::named(QString::fromLatin1(name));
}

/// The "L" and "R" buttons: the channel button picture with its letter drawn on it.
class ChannelButton : public QAbstractButton {
public:
    ChannelButton(const QString& letter, QWidget* parent)
        : QAbstractButton(parent) {
        setText(letter);
        setFocusPolicy(Qt::NoFocus);
        const QSizeF size = image("EffectsMonoChannelButtonN").size();
        setFixedSize(int(std::ceil(size.width())), int(std::ceil(size.height())));
    }

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter painter(this);
        alignToDevicePixels(painter);
        image(isDown() ? "EffectsMonoChannelButtonP" : "EffectsMonoChannelButtonN")
            .draw(painter, QRectF(rect()));
        QFont font(QStringLiteral("Helvetica"));
        font.setBold(true);
        font.setPixelSize(10);
        painter.setFont(font);
        // A light shadow one point below and right: the letter looks pressed into the button.
        painter.setPen(QColor::fromRgbF(1, 1, 1, 0.45f));
        painter.drawText(QRectF(rect()).translated(1, 1), Qt::AlignCenter, text());
        painter.setPen(QColor(40, 46, 54));
        painter.drawText(QRectF(rect()), Qt::AlignCenter, text());
    }
};

} // namespace

TeskPanSlider::TeskPanSlider(QWidget* parent)
    : SBindingView(parent) {
    setAccessibleName(tr("Pan"));
    // Reached with Tab; a click leaves the keys to the window's commands.
    setFocusPolicy(Qt::TabFocus);
    mLeftButton = new ChannelButton(QStringLiteral("L"), this);
    mRightButton = new ChannelButton(QStringLiteral("R"), this);
    mLeftButton->setAccessibleName(tr("Pan all left"));
    mRightButton->setAccessibleName(tr("Pan all right"));
    connect(mLeftButton, &QAbstractButton::clicked, this, &TeskPanSlider::setSliderToMinimum);
    connect(mRightButton, &QAbstractButton::clicked, this, &TeskPanSlider::setSliderToMaximum);
    refreshSpokenValue();
}

void TeskPanSlider::refreshSpokenValue() {
    const double range = mMaxValue - mMinValue;
    setAccessibleDescription(spokenPan(range > 0.0 ? (mValue - mMinValue) / range : 0.5));
}

TeskPanSlider::~TeskPanSlider() = default;

QStringList TeskPanSlider::exposedBindings() const {
    return SBindingView::exposedBindings() + QStringList{QStringLiteral("value")};
}

void TeskPanSlider::observableObjectChangedKeyPath(QObject* object, const QString& keyPath,
                                                   const QString& binding) {
    if (binding == QLatin1String("value"))
        setValue(valueForKeyPath(object, keyPath).toDouble());
    else
        SBindingView::observableObjectChangedKeyPath(object, keyPath, binding);
}

QSize TeskPanSlider::sizeHint() const {
    const double knob = image("EffectsMonoSliderKnobN").height();
    const double button = image("EffectsMonoChannelButtonN").height();
    return {200, int(std::ceil(std::max(knob, button)))};
}

void TeskPanSlider::setRange(double minValue, double maxValue) {
    mMinValue = minValue;
    mMaxValue = maxValue;
    setValue(std::clamp(mValue, minValue, maxValue));
    refreshSpokenValue();
}

void TeskPanSlider::setValue(double value) {
    if (value == mValue)
        return;
    mValue = value;
    update();
    refreshSpokenValue();
    QAccessibleValueChangeEvent event(this, value);
    QAccessible::updateAccessibility(&event);
}

void TeskPanSlider::setValueAsUser(double value) {
    setValue(value);
    updateObservableObjectForBindingName(QStringLiteral("value"), mValue);
    emit actionTriggered();
}

void TeskPanSlider::setSliderToMinimum() {
    setValueAsUser(mMinValue);
}

void TeskPanSlider::setSliderToMaximum() {
    setValueAsUser(mMaxValue);
}

double TeskPanSlider::detented(double value, double minValue, double maxValue) {
    const double centre = minValue + (maxValue - minValue) * 0.5;
    return std::fabs(value - centre) <= kDetent ? centre : value;
}

double TeskPanSlider::valueAfterWheel(double value, double minValue, double maxValue, double length,
                                      double deltaX, double deltaY) {
    double pixels = (value - minValue) / (maxValue - minValue) * length;
    pixels = pixels + deltaY - deltaX;
    return float(minValue + (maxValue - minValue) * pixels / length);
}

QRectF TeskPanSlider::trackRect() const {
    const double knobWidth = image("EffectsMonoSliderKnobN").width();
    const double left = mLeftButton->geometry().right() + 1.0 + 2.0 + knobWidth * 0.5;
    const double right = mRightButton->geometry().left() - 2.0 - knobWidth * 0.5;
    return {left, 0.0, std::max(1.0, right - left), double(height())};
}

QRectF TeskPanSlider::knobRect() const {
    const NamedImage& knob = image("EffectsMonoSliderKnobN");
    const QRectF track = trackRect();
    const double fraction = (mValue - mMinValue) / (mMaxValue - mMinValue);
    const double centreX = track.left() + std::clamp(fraction, 0.0, 1.0) * track.width();
    return {std::round(centreX - knob.width() * 0.5), std::round((height() - knob.height()) * 0.5),
            knob.width(), knob.height()};
}

double TeskPanSlider::valueForX(double x) const {
    const QRectF track = trackRect();
    const double fraction = std::clamp((x - track.left()) / track.width(), 0.0, 1.0);
    return mMinValue + (mMaxValue - mMinValue) * fraction;
}

void TeskPanSlider::resizeEvent(QResizeEvent* event) {
    const int middle = height() / 2;
    mLeftButton->move(0, middle - mLeftButton->height() / 2);
    mRightButton->move(width() - mRightButton->width(), middle - mRightButton->height() / 2);
    SBindingView::resizeEvent(event);
}

bool TeskPanSlider::windowIsActive() const {
    return window() != nullptr && window()->isActiveWindow();
}

bool TeskPanSlider::event(QEvent* event) {
    // Only the window itself hears that its activation changed; the views in it hear that it
    // came to the front or went behind.
    if (event->type() == QEvent::WindowActivate || event->type() == QEvent::WindowDeactivate)
        update(); // the inactive pictures while another window is in front
    return SBindingView::event(event);
}

void TeskPanSlider::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    alignToDevicePixels(painter);
    const bool active = windowIsActive() || !isVisible() || testAttribute(Qt::WA_DontShowOnScreen);
    const NamedImage& left =
        image(active ? "EffectsMonoSliderTrackLeft" : "EffectsMonoSliderTrackLeftInactive");
    const NamedImage& fill =
        image(active ? "EffectsMonoSliderTrackFill" : "EffectsMonoSliderTrackFillInactive");
    const NamedImage& right =
        image(active ? "EffectsMonoSliderTrackRight" : "EffectsMonoSliderTrackRightInactive");
    const QRectF track = trackRect();
    const double knobWidth = image("EffectsMonoSliderKnobN").width();
    const QRectF bar(track.left() - knobWidth * 0.5, std::round((height() - left.height()) * 0.5),
                     track.width() + knobWidth, left.height());
    drawThreePartImage(painter, bar, left, fill, right);
    // A tick under the centre, where the detent holds the knob.
    painter.fillRect(QRectF(std::floor(track.center().x()), bar.bottom() + 1.0, 1.0, 3.0),
                     QColor(217, 238, 254, 110));
    const char* knob = !active      ? "EffectsMonoSliderKnobInactive"
                       : mIsPressed ? "EffectsMonoSliderKnobP"
                                    : "EffectsMonoSliderKnobN";
    image(knob).draw(painter, knobRect().topLeft());
    if (hasFocus()) {
        // Reached with Tab: the knob's rim turns blue, to say where the arrow keys go. The slider
        // is only as tall as its knob, so the ring lies on the rim, not round it.
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(QPen(look::focusRing, 2.0));
        painter.setBrush(Qt::NoBrush);
        const QRectF ring = knobRect().adjusted(1.0, 1.0, -1.0, -1.0);
        painter.drawRoundedRect(ring, ring.height() * 0.5, ring.height() * 0.5);
    }
}

void TeskPanSlider::mousePressEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton) {
        event->ignore();
        return;
    }
    const QRectF knob = knobRect();
    mIsPressed = true;
    if (knob.contains(event->position())) {
        mGrabOffset = event->position().x() - knob.center().x();
        update();
        return;
    }
    // A press beside the knob brings the knob there, and the drag goes on from it.
    mGrabOffset = 0.0;
    setValueAsUser(detented(valueForX(event->position().x()), mMinValue, mMaxValue));
}

void TeskPanSlider::mouseMoveEvent(QMouseEvent* event) {
    if (!mIsPressed || !(event->buttons() & Qt::LeftButton))
        return;
    const double value =
        detented(valueForX(event->position().x() - mGrabOffset), mMinValue, mMaxValue);
    if (value != mValue)
        setValueAsUser(value);
}

void TeskPanSlider::mouseReleaseEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton)
        endPress();
}

void TeskPanSlider::endPress() {
    if (!std::exchange(mIsPressed, false))
        return;
    update();
}

void TeskPanSlider::keyPressEvent(QKeyEvent* event) {
    // The keys without modifiers; Ctrl and Alt with the arrows are the window's (jumps).
    if (event->modifiers() & (Qt::ControlModifier | Qt::AltModifier)) {
        SBindingView::keyPressEvent(event);
        return;
    }
    const double step = keyStep();
    // Up and Down too, as on any slider: they would otherwise reach the window, which changes
    // the speed, while the pan slider shows the focus.
    switch (event->key()) {
    case Qt::Key_Left:
    case Qt::Key_Down:
        setValueAsUser(std::max(mMinValue, mValue - step));
        break;
    case Qt::Key_Right:
    case Qt::Key_Up:
        setValueAsUser(std::min(mMaxValue, mValue + step));
        break;
    case Qt::Key_Home:
        setSliderToMinimum();
        break;
    case Qt::Key_End:
        setSliderToMaximum();
        break;
    default:
        SBindingView::keyPressEvent(event);
    }
}

void TeskPanSlider::wheelEvent(QWheelEvent* event) {
    const QPoint pixels = event->pixelDelta();
    const QPoint angle = event->angleDelta();
    if (pixels.isNull() && angle.isNull()) {
        event->ignore();
        return;
    }
    // A touchpad's pixels move the knob as far along the slider. A mouse wheel's notch moves it
    // as an arrow key does: at a pixel a notch, a side was a hundred notches away.
    const double notches = double(angle.y() - angle.x()) / 120.0;
    const double value = !pixels.isNull() ? valueAfterWheel(mValue, mMinValue, mMaxValue, width(),
                                                            pixels.x(), pixels.y())
                                          : mValue + notches * keyStep();
    setValueAsUser(std::clamp(value, mMinValue, mMaxValue));
}

} // namespace tesk
