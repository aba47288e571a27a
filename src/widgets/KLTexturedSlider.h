#pragma once

#include "widgets/WheelNotches.h"

#include <QWidget>

namespace tesk {

/// The bottom bar's slider: a textured groove with a round knob, and a small picture at each
/// end that says what the slider changes (the indicator) and is also a button that steps the
/// value towards its end. Values are doubles from `minValue` to `maxValue`.
///
/// `valueChanged` is sent only for what the user does (drag, click, wheel, end buttons), never
/// for `setValue`, so a window can show a model's value without hearing it back.
///
/// Main thread only.
class KLTexturedSlider : public QWidget {
    Q_OBJECT
    Q_PROPERTY(double value READ value WRITE setValue)

public:
    /// The end pictures: index 3 a speaker, quiet and loud; index 4 a magnifier, out and in.
    /// Any other index draws none.
    enum Indicator { NoIndicator = 0, VolumeIndicator = 3, ZoomIndicator = 4 };

    explicit KLTexturedSlider(QWidget* parent = nullptr);

    double value() const { return mValue; }
    /// Clamped to the range.
    void setValue(double value);
    double minValue() const { return mMinValue; }
    double maxValue() const { return mMaxValue; }
    void setRange(double minValue, double maxValue);
    /// How far an end button or a wheel notch moves the value; a tenth of the range unless set.
    /// A slider whose owner steps it on a grid of its own sets 0.
    double step() const { return mStep; }
    void setStep(double step) {
        mStep = step;
        mStepSet = true;
    }
    int indicatorIndex() const { return mIndicator; }
    void setIndicatorIndex(int index);

    QSize sizeHint() const override { return {kEndWidth * 2 + 2 * kGap + 110, 22}; }
    QSize minimumSizeHint() const override { return {kEndWidth * 2 + 2 * kGap + 40, 22}; }

    // The geometry the painting and the mouse share, in logical pixels.
    /// The rectangles of the two end pictures (empty without an indicator).
    QRectF minimumEndRect() const;
    QRectF maximumEndRect() const;
    /// The span the knob's centre moves along.
    qreal knobTravelStart() const;
    qreal knobTravelEnd() const;
    /// The knob's centre for `value`, and the value under `x` (clamped).
    qreal xForValue(double value) const;
    double valueForX(qreal x) const;
    QPointF knobCentre() const;

    static constexpr qreal kKnobDiameter = 13.0;

signals:
    /// The user moved the value.
    void valueChanged(double value);
    /// The user stepped the value towards an end: with its picture, or a notch of the wheel.
    /// The value has already moved by `step`; with a step of 0 it is left to the receiver.
    void steppedTowardsMinimum();
    void steppedTowardsMaximum();

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    /// Given the focus (by Tab), Left and Down step towards the least as the end picture does,
    /// Right and Up towards the most, Home and End go to either end.
    void keyPressEvent(QKeyEvent* event) override;
    /// A dialog that opens mid-drag (a shortcut typed) takes the button's release with it, and
    /// a hidden slider hears none: the drag ends where it is.
    bool event(QEvent* event) override;

private:
    static constexpr int kEndWidth = 16;

    /// Qt hands a screen reader the value only as a number: the words ("70 %" of the way from
    /// the least to the most) go in the description.
    void refreshSpokenValue();
    static constexpr int kGap = 5;

    void userSetValue(double value);
    void drawIndicator(QPainter& painter, const QRectF& rect, bool maximumEnd) const;

    double mValue = 0.0;
    double mMinValue = 0.0;
    double mMaxValue = 1.0;
    double mStep = 0.1;
    int mIndicator = NoIndicator;
    bool mDragging = false;
    bool mStepSet = false;
    WheelNotches mWheelNotches;
};

/// Installs the screen-reader description of textured sliders (name and value). Safe to call
/// more than once.
void installTexturedSliderAccessibility();

} // namespace tesk
