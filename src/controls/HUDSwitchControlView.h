#pragma once

#include <QWidget>

namespace tesk {

/// The transport panel's switch between the speed control (state 0, "SPEED" on top) and the
/// pitch control (state 1, "PITCH"). Each title carries a dot lit while that setting differs
/// from normal. A click on the switch picks by the half clicked and always sends `activated`.
/// Main thread.
class HUDSwitchControlView : public QWidget {
    Q_OBJECT
    Q_PROPERTY(int switchState READ switchState WRITE setSwitchState NOTIFY switchStateChanged)
    Q_PROPERTY(bool speedDirty READ speedDirty WRITE setSpeedDirty NOTIFY speedDirtyChanged)
    Q_PROPERTY(bool pitchDirty READ pitchDirty WRITE setPitchDirty NOTIFY pitchDirtyChanged)
public:
    explicit HUDSwitchControlView(QWidget* parent = nullptr);

    int switchState() const { return mControlSwitchState; }
    void setSwitchState(int state);
    bool speedDirty() const { return mSpeedDirty; }
    void setSpeedDirty(bool dirty);
    bool pitchDirty() const { return mPitchDirty; }
    void setPitchDirty(bool dirty);

    QRectF switchRect() const;
    /// The state a click at `point` on the switch picks: pitch more than 2 points below the
    /// switch's middle, else speed.
    int stateForPoint(const QPointF& point) const;
    QRectF dotRect(int title) const;

    QSize sizeHint() const override { return {78, 44}; }
    QSize minimumSizeHint() const override { return sizeHint(); }

signals:
    void activated();
    void switchStateChanged();
    void speedDirtyChanged();
    void pitchDirtyChanged();

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;

private:
    void refreshToolTip();

    int mControlSwitchState = 0;
    bool mSpeedDirty = false;
    bool mPitchDirty = false;
};

} // namespace tesk
