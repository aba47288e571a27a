#include "effects/TeskEQSettingsView.h"

#include "effects/EffectsAccessibility.h"
#include "observation/KeyValueObserving.h"
#include "widgets/NamedImage.h"
#include "widgets/TeskLook.h"

#include <QAccessible>
#include <QHelpEvent>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QTimer>
#include <QToolTip>
#include <algorithm>
#include <cmath>
#include <utility>

namespace tesk {

namespace {
const NamedImage& image(const char* name) {
    return NamedImage::named(QString::fromLatin1(name));
}
const NamedImage& knobImage() {
    static const NamedImage& knob = image("EffectsEQSliderKnobN");
    return knob;
}
const NamedImage& pressedKnobImage() {
    static const NamedImage& knob = image("EffectsEQSliderKnobP");
    return knob;
}
} // namespace

TeskEQSettingsView::TeskEQSettingsView(QWidget* parent)
    : TeskSpectrumEffectView(parent)
    , mAnimation([this](double progress) { animationReachedMark(progress); }) {
    setAccessibleName(tr("Equalizer"));
    // Reached with Tab; a click leaves the keys to the window's commands.
    setFocusPolicy(Qt::TabFocus);
}

TeskEQSettingsView::~TeskEQSettingsView() = default;

QString TeskEQSettingsView::bandName(int index) {
    static const char* const names[kBandCount] = {"31.5 Hz", "63 Hz", "125 Hz", "250 Hz", "500 Hz",
                                                  "1 kHz",   "2 kHz", "4 kHz",  "8 kHz",  "16 kHz"};
    return tr(names[index]);
}

QStringList TeskEQSettingsView::exposedBindings() const {
    return TeskSpectrumEffectView::exposedBindings() + QStringList{QStringLiteral("bands")};
}

void TeskEQSettingsView::observableObjectChangedKeyPath(QObject* object, const QString& keyPath,
                                                        const QString& binding) {
    if (binding != QLatin1String("bands")) {
        TeskSpectrumEffectView::observableObjectChangedKeyPath(object, keyPath, binding);
        return;
    }
    const QList<double> bands = valueForKeyPath(object, keyPath).value<QList<double>>();
    if (mBands.isEmpty() || mDragging) {
        mAnimation.stop();
        setBands(bands);
        return;
    }
    if (bands == mBands && !mAnimation.isAnimating())
        return; // our own write-back coming round
    mStartBands = mBands;
    mFinalBands = bands;
    mAnimation.start();
}

void TeskEQSettingsView::animationReachedMark(double progress) {
    // A screen reader hears the bands a preset moved once, where they end, not at every step.
    if (progress >= 1.0) {
        showBands(mFinalBands);
        announceChangesFrom(mStartBands);
        return;
    }
    QList<double> bands = mFinalBands;
    for (qsizetype i = 0; i < bands.size() && i < mStartBands.size(); ++i)
        bands[i] = float(mStartBands[i] + (mFinalBands[i] - mStartBands[i]) * progress);
    showBands(bands);
}

void TeskEQSettingsView::setBands(const QList<double>& bands) {
    if (bands == mBands)
        return;
    const QList<double> before = mBands;
    showBands(bands);
    announceChangesFrom(before);
}

void TeskEQSettingsView::showBands(const QList<double>& bands) {
    if (bands == mBands)
        return;
    mBands = bands;
    update();
}

void TeskEQSettingsView::announceChangesFrom(const QList<double>& before) {
    for (int band = 0; band < kBandCount; ++band)
        if (valueForBand(band) != (band < before.size() ? before[band] : 0.0))
            announceHandleValue(this, band, valueForBand(band));
}

double TeskEQSettingsView::valueForBand(int index) const {
    return index >= 0 && index < mBands.size() ? mBands[index] : 0.0;
}

EQBandGeometry TeskEQSettingsView::geometry() const {
    return EQBandGeometry(QSizeF(size()), knobImage().size());
}

void TeskEQSettingsView::setBandValueAsUser(int index, double gain) {
    if (index < 0 || index >= kBandCount)
        return;
    tellDelegateEditingBegan();
    mAnimation.finish();
    QList<double> bands = mBands;
    while (bands.size() < kBandCount)
        bands.append(0.0);
    bands[index] = gain;
    // The value comes back as is, without a glide; a drag under way goes on after it.
    const bool dragging = std::exchange(mDragging, true);
    setBands(bands);
    updateObservableObjectForBindingName(QStringLiteral("bands"), QVariant::fromValue(bands));
    mDragging = dragging;
    tellDelegateEditingEnded();
}

bool TeskEQSettingsView::event(QEvent* event) {
    if (event->type() != QEvent::ToolTip)
        return TeskSpectrumEffectView::event(event);
    // The slots carry no labels: hovering one names its band and gain.
    const auto* help = static_cast<QHelpEvent*>(event);
    const int band = geometry().bandIndexForPoint(help->pos());
    if (band == kNoBand)
        QToolTip::hideText();
    else
        QToolTip::showText(help->globalPos(),
                           tr("%1, %2").arg(bandName(band), spokenGain(valueForBand(band))), this);
    return true;
}

void TeskEQSettingsView::mousePressEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton) {
        event->ignore();
        return;
    }
    // The delegate switches the effect on before the first value changes.
    tellDelegateEditingBegan();
    mDragging = true;
    mPressedIndex = geometry().bandIndexForPoint(event->position());
    update();
    if (mPressedIndex != kNoBand) {
        mAnimation.finish(); // the other bands are written back as the model holds them
        setPressedBandFromPoint(event->position().y());
    }
}

void TeskEQSettingsView::mouseMoveEvent(QMouseEvent* event) {
    if (mDragging && mPressedIndex != kNoBand && (event->buttons() & Qt::LeftButton))
        setPressedBandFromPoint(event->position().y());
}

void TeskEQSettingsView::mouseReleaseEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton)
        endDrag();
}

void TeskEQSettingsView::endDrag() {
    if (!mDragging)
        return;
    mDragging = false;
    mPressedIndex = kNoBand;
    tellDelegateEditingEnded();
    update();
}

void TeskEQSettingsView::setPressedBandFromPoint(double y) {
    QList<double> bands = mBands;
    while (bands.size() < kBandCount)
        bands.append(0.0);
    bands[mPressedIndex] = geometry().valueForPoint(y);
    setBands(bands);
    updateObservableObjectForBindingName(QStringLiteral("bands"), QVariant::fromValue(bands));
}

void TeskEQSettingsView::drawBackgroundContents(QPainter& painter) {
    static const NamedImage& top = image("EffectsEQSliderTrackTop");
    static const NamedImage& fill = image("EffectsEQSliderTrackFill");
    static const NamedImage& bottom = image("EffectsEQSliderTrackBottom");
    const EQBandGeometry places = geometry();
    // The ends and the fill meet on whole device pixels, without a seam or an overlap.
    const qreal ratio = devicePixelRatioOf(painter);
    const auto snap = [ratio](double y) { return std::round(y * ratio) / ratio; };
    const double capHeight = snap(top.height());
    const double slotTop = snap(places.pointForValue(EQBandGeometry::kDisplayRange) - top.height());
    const double slotBottom =
        snap(places.pointForValue(-EQBandGeometry::kDisplayRange) + bottom.height());
    const double bottomHeight = snap(bottom.height());
    for (int index = 0; index < kBandCount; ++index) {
        const double left = places.slotLeftForBand(index, top.width(), ratio);
        top.draw(painter, QRectF(left, slotTop, top.width(), capHeight));
        // The fill is the same in every row: rendered whole device pixels high, so that no
        // partly covered row is stretched down the slot.
        const QPixmap& column = fill.pixmap(
            QSizeF(fill.width(), std::ceil(fill.height() * ratio - 1e-6) / ratio), ratio);
        painter.drawPixmap(QRectF(left, slotTop + capHeight, fill.width(),
                                  slotBottom - bottomHeight - slotTop - capHeight),
                           column, QRectF(QPointF(0, 0), QSizeF(column.size())));
        bottom.draw(painter, QRectF(left, slotBottom - bottomHeight, bottom.width(), bottomHeight));
    }
}

void TeskEQSettingsView::drawContents(QPainter& painter) {
    const EQBandGeometry places = geometry();
    for (int index = 0; index < kBandCount; ++index) {
        const NamedImage& knob = index == mPressedIndex ? pressedKnobImage() : knobImage();
        knob.draw(painter, places.handleRectForBand(index, valueForBand(index)).topLeft());
    }
    if (hasFocus()) {
        // Reached with Tab: a blue ring round the knob the arrow keys move, at full strength on
        // a switched-off editor too.
        painter.save();
        painter.setOpacity(1.0);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(QPen(look::focusRing, 2.0));
        painter.setBrush(Qt::NoBrush);
        const QRectF ring =
            places.handleRectForBand(mKeyBand, valueForBand(mKeyBand)).adjusted(-2, -2, 2, 2);
        painter.drawRoundedRect(ring, 3.0, 3.0);
        painter.restore();
    }
}

double TeskEQSettingsView::gainAfterKey(double gain, int key) {
    const double range = EQBandGeometry::kDisplayRange;
    // Towards the editor's end and no further. A gain a drag took beyond an end stays there when
    // the key points further out, and comes back to that end in one step when it points in.
    const auto up = [&](double to) { return gain >= range ? gain : std::clamp(to, -range, range); };
    const auto down = [&](double to) {
        return gain <= -range ? gain : std::clamp(to, -range, range);
    };
    switch (key) {
    case Qt::Key_Up:
        return up(std::floor(gain + 1.0));
    case Qt::Key_Down:
        return down(std::ceil(gain - 1.0)) + 0.0; // never -0
    case Qt::Key_PageUp:
        return up(gain + 5.0);
    case Qt::Key_PageDown:
        return down(gain - 5.0);
    case Qt::Key_Home:
        return 0.0;
    default:
        return gain;
    }
}

void TeskEQSettingsView::keyPressEvent(QKeyEvent* event) {
    // The keys without modifiers; Ctrl and Alt with the arrows are the window's (jumps).
    const bool plain = (event->modifiers() & ~Qt::KeypadModifier) == Qt::NoModifier;
    const int key = event->key();
    const bool ours = key == Qt::Key_Left || key == Qt::Key_Right || key == Qt::Key_Up ||
                      key == Qt::Key_Down || key == Qt::Key_PageUp || key == Qt::Key_PageDown ||
                      key == Qt::Key_Home;
    if (!plain || !ours) {
        TeskSpectrumEffectView::keyPressEvent(event);
        return;
    }
    if (mPressedIndex != kNoBand)
        return; // a knob held with the mouse is the mouse's
    if (key == Qt::Key_Left || key == Qt::Key_Right) {
        const int band = std::clamp(mKeyBand + (key == Qt::Key_Left ? -1 : 1), 0, kBandCount - 1);
        if (band != mKeyBand) {
            mKeyBand = band;
            announceKeyBand();
            update();
        }
        return;
    }
    const double gain = valueForBand(mKeyBand);
    const double next = gainAfterKey(gain, key);
    if (next != gain)
        setBandValueAsUser(mKeyBand, next);
}

void TeskEQSettingsView::announceKeyBand() {
    QAccessibleEvent focus(this, QAccessible::Focus);
    focus.setChild(mKeyBand);
    QAccessible::updateAccessibility(&focus);
}

void TeskEQSettingsView::focusInEvent(QFocusEvent* event) {
    TeskSpectrumEffectView::focusInEvent(event);
    // A screen reader says which band the keys move. Qt tells of the focus on the whole view
    // after this event, which would leave the reader on the view: the band is told after that.
    QTimer::singleShot(0, this, [this] {
        if (hasFocus())
            announceKeyBand();
    });
}

} // namespace tesk
