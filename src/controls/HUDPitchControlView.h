#pragma once

#include "controls/CalloutWindow.h"
#include "controls/SBindingView.h"
#include "controls/TransportRules.h"
#include "widgets/WheelNotches.h"

#include <QPointer>

namespace tesk {

/// The transport panel's pitch control: a slider over two octaves down to two octaves up, in
/// semitones, with a tick every octave. Dragging the knob snaps to whole semitones unless Shift
/// is held; a click on the slot moves the knob there, on a tick sets its octave; the wheel and
/// the stepping commands change it too. A callout shows the value while it changes. Bindings:
/// "pitchAdjustment" (read and written) and "dirty" (written). Main thread.
class HUDPitchControlView : public SBindingView {
    Q_OBJECT
public:
    static constexpr int kTickCount = 5;

    explicit HUDPitchControlView(QWidget* parent = nullptr);
    ~HUDPitchControlView() override;

    QStringList exposedBindings() const override;
    void observableObjectChangedKeyPath(QObject* object, const QString& keyPath,
                                        const QString& binding) override;

    double pitchAdjustment() const { return mPitchAdjustment; }
    void setPitchAdjustment(double semitones);
    bool dirty() const { return TransportRules::pitchIsDirty(mPitchAdjustment); }

    void step(TransportRules::PitchStep step);
    bool canIncreasePitch() const { return mPitchAdjustment < TransportRules::kPitchRange; }
    bool canDecreasePitch() const { return mPitchAdjustment > -TransportRules::kPitchRange; }

    // Geometry, in view coordinates.
    QRectF sliderSlotRect() const;
    QRectF sliderKnobRect() const;
    QRectF tickRect(int index) const;
    static double tickValue(int index) { return index * 12.0 - 24.0; }
    /// The tick whose rectangle, grown by 4 points, holds `point`; kTickCount for none.
    int pointInPitchTick(const QPointF& point) const;
    CalloutWindow* callout() const { return mCallout; }

    QSize sizeHint() const override { return {190, 44}; }
    QSize minimumSizeHint() const override { return sizeHint(); }

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    void abandonMouseGesture() override;
    /// Escape during a drag puts back the shift it began at.
    void keyPressEvent(QKeyEvent* event) override;

private:
    void endDrag();
    void moveKnobTo(double x, bool snap);
    void setAndWriteBack(double semitones);
    void showCalloutBriefly();
    QPoint calloutTip() const;

    double mPitchAdjustment = 0.0;
    bool mDragging = false;
    double mPressPitch = 0.0;
    WheelNotches mWheelNotches;
    QPointer<CalloutWindow> mCallout;
};

} // namespace tesk
