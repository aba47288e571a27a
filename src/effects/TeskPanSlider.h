#pragma once

#include "controls/SBindingView.h"

#include <QAbstractButton>
#include <QColor>

namespace tesk {

/// The pan slider of the effects panel: a horizontal slider from `minValue` (all left) to
/// `maxValue` (all right) between two small buttons, "L" and "R", that send it to its ends.
/// Dragging the knob detents at the centre: within 0.05 of it the value is exactly the centre.
/// The wheel moves the knob pixel by pixel. Every change the user makes is written back under
/// the binding "value" and then announced by `actionTriggered` (the panel switches panning on).
/// Main thread.
class TeskPanSlider : public SBindingView {
    Q_OBJECT
public:
    static constexpr double kDetent = 0.05;

    explicit TeskPanSlider(QWidget* parent = nullptr);
    ~TeskPanSlider() override;

    QStringList exposedBindings() const override;
    void observableObjectChangedKeyPath(QObject* object, const QString& keyPath,
                                        const QString& binding) override;

    double minValue() const { return mMinValue; }
    double maxValue() const { return mMaxValue; }
    void setRange(double minValue, double maxValue);
    double value() const { return mValue; }
    void setValue(double value);
    bool isPressed() const { return mIsPressed; }

    /// The ends, as the "L" and "R" buttons give them: written back, then the action.
    void setSliderToMinimum();
    void setSliderToMaximum();
    /// Any value, as the user sets it: written back, then the action.
    void setValueAsUser(double value);

    QAbstractButton* leftButton() const { return mLeftButton; }
    QAbstractButton* rightButton() const { return mRightButton; }
    /// Where the knob's centre travels: the track between the buttons, less half a knob.
    QRectF trackRect() const;
    QRectF knobRect() const;

    /// A value dragged to within kDetent of the centre becomes the centre.
    static double detented(double value, double minValue, double maxValue);
    /// The value after a wheel turn of (deltaX, deltaY) pixels on a slider `length` long.
    static double valueAfterWheel(double value, double minValue, double maxValue, double length,
                                  double deltaX, double deltaY);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override { return {90, sizeHint().height()}; }

signals:
    /// The user moved the slider.
    void actionTriggered();

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    bool event(QEvent* event) override;
    void abandonMouseGesture() override { endPress(); }

private:
    /// Lets go of the knob, which is drawn pressed while held.
    void endPress();
    double valueForX(double x) const;
    /// How far an arrow key or a wheel's notch moves the knob: a twentieth of the range.
    double keyStep() const { return (mMaxValue - mMinValue) / 20.0; }
    /// Qt hands a screen reader the value only as a number: the words go in the description.
    void refreshSpokenValue();
    bool windowIsActive() const;

    QAbstractButton* mLeftButton = nullptr;
    QAbstractButton* mRightButton = nullptr;
    double mMinValue = 0.0;
    double mMaxValue = 1.0;
    double mValue = 0.5;
    bool mIsPressed = false;
    double mGrabOffset = 0.0; // from the knob's centre to where it was grabbed
};

} // namespace tesk
