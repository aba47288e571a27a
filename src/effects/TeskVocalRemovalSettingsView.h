#pragma once

#include "effects/ProgressMarkAnimation.h"
#include "effects/TeskSpectrumEffectView.h"
#include "effects/VocalBandGeometry.h"

namespace tesk {

/// The vocal reduction band's editor over the live spectrum: the band's low and high edges as
/// two handles with the band highlighted between them. A press on an edge drags that edge; a
/// press inside the band shifts the whole band (each edge limited on its own, so the band
/// narrows against an end of the axis); a press elsewhere sweeps out a new band from the press
/// point. Edges stay within 20 to 20000 Hz and at least 5 points apart. A band set from outside
/// (a preset) glides there in 0.2 s. Bindings: "enabled", "lowFrequency" and "highFrequency"
/// (Hz, read and written). Reached with Tab, the keys work it: Down picks the low edge and Up
/// the high one (ringed in blue), Left and Right move it a semitone, with Shift an octave.
/// Main thread.
class TeskVocalRemovalSettingsView : public TeskSpectrumEffectView {
    Q_OBJECT
public:
    /// What a press at a point does.
    enum class Drag { None, LowEdge, HighEdge, Shift, Create };

    explicit TeskVocalRemovalSettingsView(QWidget* parent = nullptr);
    ~TeskVocalRemovalSettingsView() override;

    QStringList exposedBindings() const override;
    void observableObjectChangedKeyPath(QObject* object, const QString& keyPath,
                                        const QString& binding) override;

    double lowFrequency() const { return mLowFrequency; }
    double highFrequency() const { return mHighFrequency; }
    void setLowFrequency(double hertz);
    void setHighFrequency(double hertz);
    bool isDragging() const { return mDragging; }

    VocalBandGeometry geometry() const { return VocalBandGeometry(QSizeF(size())); }
    QRectF lowFrequencyRect() const { return geometry().edgeRect(mLowFrequency); }
    QRectF highFrequencyRect() const { return geometry().edgeRect(mHighFrequency); }
    QRectF lowFrequencyHitRect() const { return geometry().edgeHitRect(mLowFrequency); }
    QRectF highFrequencyHitRect() const { return geometry().edgeHitRect(mHighFrequency); }
    QRectF midFrequencyHitRect() const {
        return geometry().midHitRect(mLowFrequency, mHighFrequency);
    }
    /// Which drag a press at `point` starts, in the order the press tests them.
    Drag dragForPoint(const QPointF& point) const;

    /// The edge setters every drag uses: from a pointer's x, with the gap and the limits,
    /// written back.
    void setLowFrequencyWithPoint(double x);
    void setHighFrequencyWithPoint(double x);
    /// An edge set as a user would: with the gap and the limits, shown, written back, the
    /// delegate told (which switches vocal reduction on). For screen readers.
    void setEdgeFrequencyAsUser(bool lowEdge, double hertz);
    /// Whether the keys move the low edge (else the high one).
    bool keysMoveLowEdge() const { return mKeysMoveLowEdge; }
    /// The blue ring round the edge the keys move, while the editor has the focus.
    QRectF focusRingRect() const;

    ProgressMarkAnimation& bandAnimation() { return mAnimation; }

protected:
    void drawContents(QPainter& painter) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void focusInEvent(QFocusEvent* event) override;
    /// Tab goes from the low edge to the high one before it leaves, Shift+Tab the other way.
    bool focusNextPrevChild(bool next) override;
    void abandonMouseGesture() override { endDrag(); }

private:
    /// Lets go of what the mouse holds, which gives the keys back.
    void endDrag();
    struct FrequencyAnimation {
        double mStartFrequency = 0.0;
        double mEndFrequency = 0.0;
    };

    void dragTo(double x);
    void announceKeyEdge();
    void animationReachedMark(double progress);
    void showCursorFor(const QPointF& point);

    double mLowFrequency = 0.0;
    bool mKeysMoveLowEdge = true;
    bool mGlideStepping = false; // a glide's step, told to nobody
    double mHighFrequency = 0.0;
    FrequencyAnimation mLowFrequencyAnimation;
    FrequencyAnimation mHighFrequencyAnimation;
    bool mDragging = false;
    bool mHasBand = false; // false until both edges have been bound
    ProgressMarkAnimation mAnimation;

    // The drag under way: what it moves, where it began, the edges' places then.
    Drag mDrag = Drag::None;
    double mPressX = 0.0;
    double mLowStartPoint = 0.0;
    double mHighStartPoint = 0.0;
};

} // namespace tesk
