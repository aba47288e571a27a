#pragma once

#include "controls/CalloutWindow.h"
#include "controls/SBindingView.h"
#include "controls/TransportRules.h"
#include "widgets/WheelNotches.h"

#include <QPointer>
#include <array>

namespace tesk {

/// The transport panel's speed control: five marks ("¼" … "1.5") over a track with a knob.
/// A click on a mark, a drag of the knob (snapping to marks unless Shift is held), the wheel
/// over the track and the faster/slower commands set the speed. Bindings: "playbackSpeed"
/// (read and written) and "dirty" (written: whether the speed differs from normal).
/// Main thread.
class HUDSpeedControlView : public SBindingView {
    Q_OBJECT
public:
    explicit HUDSpeedControlView(QWidget* parent = nullptr);
    ~HUDSpeedControlView() override;

    QStringList exposedBindings() const override;
    void observableObjectChangedKeyPath(QObject* object, const QString& keyPath,
                                        const QString& binding) override;

    double playbackSpeed() const { return mPlaybackSpeed; }
    void setPlaybackSpeed(double speed);
    bool dirty() const { return TransportRules::speedIsDirty(mPlaybackSpeed); }

    void incrementPlaybackSpeed();
    void decrementPlaybackSpeed();
    bool canIncrementPlaybackSpeed() const;
    bool canDecrementPlaybackSpeed() const;

    // Geometry, in view coordinates.
    QRectF markRect(int index) const;
    std::array<double, TransportRules::kSpeedMarkCount> markCentres() const;
    /// The marks' speeds, read from the marks.
    std::array<double, TransportRules::kSpeedMarkCount> markSpeeds() const;
    QRectF trackRect() const;
    QRectF knobRect() const;
    /// The track and the knob together: where drags and the wheel act.
    QRectF scrollerBoundingBox() const;
    double knobCentreX() const { return mKnobX; }
    std::array<double, TransportRules::kSpeedMarkCount> markOpacities() const;
    bool showsTrack() const { return mHovered; }
    CalloutWindow* callout() const { return mCallout; }

    QSize sizeHint() const override { return {180, 56}; }
    QSize minimumSizeHint() const override { return sizeHint(); }

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void abandonMouseGesture() override;
    void wheelEvent(QWheelEvent* event) override;
    void leaveEvent(QEvent* event) override;

private:
    struct Mark {
        QString text;
        double speed;
        int fontPixels;
        double left;
    };
    QFont markFont(const Mark& mark) const;
    void moveKnobTo(double x, bool snap);
    void endDrag();
    void setAndWriteBack(double speed);
    void speedChanged();
    QPoint calloutTip() const;
    void setHovered(bool hovered);

    std::array<Mark, TransportRules::kSpeedMarkCount> mMarks;
    double mPlaybackSpeed = 1.0;
    double mKnobX = 0.0;
    WheelNotches mWheelNotches;
    bool mHovered = false;
    bool mDragging = false;
    double mPressKnobX = 0.0;
    QPointer<CalloutWindow> mCallout;
};

} // namespace tesk
