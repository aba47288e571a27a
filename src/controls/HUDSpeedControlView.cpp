#include "controls/HUDSpeedControlView.h"

#include "controls/CalloutWindow.h"
#include "controls/GlowText.h"
#include "controls/SThreePartImage.h"
#include "controls/TransportAccessibility.h"
#include "widgets/DevicePixels.h"
#include "widgets/NamedImage.h"

#include <QAccessible>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QWheelEvent>
#include <cmath>

namespace tesk {

namespace {
constexpr double kMarksBottomInset = 12.0;
constexpr double kTrackBelowMarks = 5.0;
} // namespace

HUDSpeedControlView::HUDSpeedControlView(QWidget* parent)
    : SBindingView(parent)
    , mMarks{{{QStringLiteral("\u00BC"), 0.25, 24, 9},
              {QStringLiteral("\u00BD"), 0.5, 24, 44},
              {QStringLiteral("\u00BE"), 0.75, 24, 80},
              {QStringLiteral("1x"), 1.0, 20, 114},
              {QStringLiteral("1.5"), 1.5, 20, 146}}} {
    setMouseTracking(true);
    setFocusPolicy(Qt::NoFocus);
    installTransportAccessibility();
    setAccessibleName(tr("Speed"));
    mCallout = new CalloutWindow(this);
    speedChanged();
}

HUDSpeedControlView::~HUDSpeedControlView() {
    delete mCallout;
}

QStringList HUDSpeedControlView::exposedBindings() const {
    return SBindingView::exposedBindings() +
           QStringList{QStringLiteral("playbackSpeed"), QStringLiteral("dirty")};
}

void HUDSpeedControlView::observableObjectChangedKeyPath(QObject* object, const QString& keyPath,
                                                         const QString& binding) {
    if (binding == QLatin1String("playbackSpeed"))
        setPlaybackSpeed(object->property(keyPath.toUtf8().constData()).toDouble());
}

QFont HUDSpeedControlView::markFont(const Mark& mark) const {
    QFont font = this->font();
    font.setPixelSize(mark.fontPixels);
    return font;
}

QRectF HUDSpeedControlView::markRect(int index) const {
    const Mark& mark = mMarks[std::size_t(index)];
    const QFontMetricsF metrics(markFont(mark));
    const double bottom = height() - kMarksBottomInset;
    return QRectF(mark.left, bottom - metrics.height(), metrics.horizontalAdvance(mark.text),
                  metrics.height());
}

std::array<double, TransportRules::kSpeedMarkCount> HUDSpeedControlView::markCentres() const {
    std::array<double, TransportRules::kSpeedMarkCount> centres;
    for (int i = 0; i < TransportRules::kSpeedMarkCount; ++i)
        centres[std::size_t(i)] = markRect(i).center().x();
    return centres;
}

std::array<double, TransportRules::kSpeedMarkCount> HUDSpeedControlView::markSpeeds() const {
    std::array<double, TransportRules::kSpeedMarkCount> speeds;
    for (std::size_t i = 0; i < speeds.size(); ++i)
        speeds[i] = mMarks[i].speed;
    return speeds;
}

QRectF HUDSpeedControlView::trackRect() const {
    const auto centres = markCentres();
    const double trackHeight = SThreePartImage::speedTrack().height();
    const double top = height() - kMarksBottomInset + kTrackBelowMarks - trackHeight / 2;
    return QRectF(centres.front(), top, centres.back() - centres.front(), trackHeight);
}

QRectF HUDSpeedControlView::knobRect() const {
    const QSizeF size = NamedImage::named(QStringLiteral("DisplaySliderKnob")).size();
    const double centreY = std::floor(trackRect().center().y()) + 1.0;
    return QRectF(mKnobX - size.width() / 2, centreY - size.height() / 2, size.width(),
                  size.height());
}

QRectF HUDSpeedControlView::scrollerBoundingBox() const {
    return trackRect().united(knobRect());
}

std::array<double, TransportRules::kSpeedMarkCount> HUDSpeedControlView::markOpacities() const {
    return TransportRules::markOpacities(mPlaybackSpeed, mKnobX, markCentres(), markSpeeds());
}

void HUDSpeedControlView::setPlaybackSpeed(double speed) {
    const bool changed = speed != mPlaybackSpeed;
    mPlaybackSpeed = speed;
    speedChanged();
    if (changed) {
        // Screen readers say the new speed, however it came: a key, the wheel, a drag.
        QAccessibleValueChangeEvent event(this, speed);
        QAccessible::updateAccessibility(&event);
    }
}

void HUDSpeedControlView::speedChanged() {
    // A speed beyond the last mark leaves the knob where it is.
    if (const auto x = TransportRules::knobXForSpeed(mPlaybackSpeed, markCentres(), markSpeeds()))
        mKnobX = *x;
    updateObservableObjectForBindingName(QStringLiteral("dirty"), dirty());
    if (mCallout && mCallout->isVisible())
        mCallout->follow(calloutTip(), TransportRules::speedText(mPlaybackSpeed));
    setAccessibleDescription(TransportRules::spokenSpeed(mPlaybackSpeed));
    // The marks show where the speed lies, and this what it is exactly.
    setToolTip(tr("Speed %1").arg(TransportRules::speedText(mPlaybackSpeed)));
    update();
}

void HUDSpeedControlView::setAndWriteBack(double speed) {
    setPlaybackSpeed(speed);
    updateObservableObjectForBindingName(QStringLiteral("playbackSpeed"), speed);
}

void HUDSpeedControlView::incrementPlaybackSpeed() {
    if (const auto speed = TransportRules::steppedSpeed(mPlaybackSpeed, true, markSpeeds()))
        setAndWriteBack(*speed);
}

void HUDSpeedControlView::decrementPlaybackSpeed() {
    if (const auto speed = TransportRules::steppedSpeed(mPlaybackSpeed, false, markSpeeds()))
        setAndWriteBack(*speed);
}

bool HUDSpeedControlView::canIncrementPlaybackSpeed() const {
    return mMarks.back().speed > mPlaybackSpeed;
}

bool HUDSpeedControlView::canDecrementPlaybackSpeed() const {
    return mPlaybackSpeed > mMarks.front().speed;
}

void HUDSpeedControlView::moveKnobTo(double x, bool snap) {
    const QRectF track = trackRect();
    mKnobX = std::floor(std::clamp(x, track.left(), track.right()));
    setAndWriteBack(TransportRules::speedForX(mKnobX, markCentres(), markSpeeds(), snap,
                                              scrollerBoundingBox().center().x()));
}

QPoint HUDSpeedControlView::calloutTip() const {
    return mapToGlobal(QPointF(mKnobX, knobRect().top()).toPoint());
}

void HUDSpeedControlView::setHovered(bool hovered) {
    if (mHovered == hovered)
        return;
    mHovered = hovered;
    update();
}

void HUDSpeedControlView::mousePressEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton || !scrollerBoundingBox().contains(event->position()))
        return; // a click on a mark acts on release
    mDragging = true;
    mPressKnobX = mKnobX;
    // Escape must reach the drag, but the keyboard focus stays where it was (the waveform's
    // keys keep working after the drag): take the keys only while dragging.
    grabKeyboard();
    mCallout->showAt(calloutTip(), TransportRules::speedText(mPlaybackSpeed));
}

void HUDSpeedControlView::endDrag() {
    mDragging = false;
    releaseKeyboard();
}

void HUDSpeedControlView::mouseMoveEvent(QMouseEvent* event) {
    if (mDragging) {
        moveKnobTo(event->position().x(), !(event->modifiers() & Qt::ShiftModifier));
        return;
    }
    setHovered(scrollerBoundingBox().contains(event->position()));
}

void HUDSpeedControlView::mouseReleaseEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton)
        return;
    if (mDragging) {
        endDrag();
        moveKnobTo(event->position().x(), !(event->modifiers() & Qt::ShiftModifier));
        mCallout->fadeOut();
        return;
    }
    for (int i = 0; i < TransportRules::kSpeedMarkCount; ++i) {
        if (markRect(i).contains(event->position())) {
            setAndWriteBack(mMarks[std::size_t(i)].speed);
            return;
        }
    }
}

void HUDSpeedControlView::keyPressEvent(QKeyEvent* event) {
    if (mDragging && event->key() == Qt::Key_Escape) {
        // Back to where the drag began.
        endDrag();
        mKnobX = mPressKnobX;
        setAndWriteBack(TransportRules::speedForX(mKnobX, markCentres(), markSpeeds(), true,
                                                  scrollerBoundingBox().center().x()));
        mCallout->fadeOut();
        return;
    }
    SBindingView::keyPressEvent(event);
}

void HUDSpeedControlView::abandonMouseGesture() {
    // The drag ends where it is.
    if (!mDragging)
        return;
    endDrag();
    mCallout->fadeOut();
}

void HUDSpeedControlView::wheelEvent(QWheelEvent* event) {
    if (!scrollerBoundingBox().contains(event->position())) {
        event->ignore();
        return;
    }
    event->accept();
    const int notches = mWheelNotches.take(*event);
    if (notches == 0)
        return;
    // Deliberately not clamped: the speed found there puts the knob back on the track.
    mKnobX = std::floor(mKnobX + notches * TransportRules::kSpeedWheelPointsPerNotch);
    setAndWriteBack(TransportRules::speedForX(mKnobX, markCentres(), markSpeeds(),
                                              !(event->modifiers() & Qt::ShiftModifier),
                                              scrollerBoundingBox().center().x()));
}

void HUDSpeedControlView::leaveEvent(QEvent*) {
    setHovered(false);
}

void HUDSpeedControlView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    alignToDevicePixels(painter);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    const qreal ratio = devicePixelRatioOf(painter);
    const auto alphas = markOpacities();
    for (int i = 0; i < TransportRules::kSpeedMarkCount; ++i) {
        const Mark& mark = mMarks[std::size_t(i)];
        const QPixmap& text = GlowText::picture(mark.text, markFont(mark), ratio);
        painter.setOpacity(alphas[std::size_t(i)]);
        painter.drawPixmap(markRect(i).topLeft() - QPointF(GlowText::kMargin, GlowText::kMargin),
                           text);
    }
    painter.setOpacity(1.0);
    if (mHovered || mDragging)
        SThreePartImage::speedTrack().draw(painter, trackRect());
    NamedImage::named(mHovered || mDragging ? QStringLiteral("DisplaySliderKnob")
                                            : QStringLiteral("DisplaySliderDot"))
        .draw(painter, knobRect());
}

} // namespace tesk
