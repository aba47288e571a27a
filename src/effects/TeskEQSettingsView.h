#pragma once

#include "effects/EQBandGeometry.h"
#include "effects/ProgressMarkAnimation.h"
#include "effects/TeskSpectrumEffectView.h"

#include <QList>

namespace tesk {

/// The graphic equalizer's editor over the live spectrum: ten slots, one per band, each with a
/// knob at the band's gain (-20 to +20 dB shown). Dragging a knob sets its band's gain from the
/// pointer's height, without a limit: a pointer beyond the slot gives more than 20 dB and the
/// knob waits at the slot's end. A new set of bands from outside (a preset) glides there in
/// 0.2 s, unless a drag is under way. Bindings: "enabled", "bands" (ten gains in dB, read and
/// written). The delegate hears when a press begins and ends, even a press between slots.
/// Reached with Tab, the keys work it: Left and Right pick a band (ringed in blue), Up and Down
/// move it a decibel, Page Up and Page Down five, Home sets it to 0.
/// Main thread.
class TeskEQSettingsView : public TeskSpectrumEffectView {
    Q_OBJECT
public:
    static constexpr int kBandCount = EQBandGeometry::kBandCount;
    static constexpr int kNoBand = EQBandGeometry::kNoBand;

    explicit TeskEQSettingsView(QWidget* parent = nullptr);
    ~TeskEQSettingsView() override;

    QStringList exposedBindings() const override;
    void observableObjectChangedKeyPath(QObject* object, const QString& keyPath,
                                        const QString& binding) override;

    /// The bands shown (during a glide, the glide's values).
    QList<double> bands() const { return mBands; }
    void setBands(const QList<double>& bands);
    double valueForBand(int index) const;
    bool bandPressed(int index) const { return index == mPressedIndex; }
    int pressedIndex() const { return mPressedIndex; }
    bool isDragging() const { return mDragging; }

    /// The band's gain set as a user would: shown, written back, delegate told. For screen
    /// readers.
    void setBandValueAsUser(int index, double gain);

    EQBandGeometry geometry() const;
    ProgressMarkAnimation& presetAnimation() { return mAnimation; }

    /// The band centres' names for the user, "31.5 Hz" to "16 kHz".
    static QString bandName(int index);
    /// The band the keys work, ringed while the editor has the focus.
    int keyBand() const { return mKeyBand; }
    /// A band's gain after `key` (Up, Down, Page Up, Page Down, Home): whole decibels, five
    /// for a page, towards the editor's range and never past it.
    static double gainAfterKey(double gain, int key);

protected:
    bool event(QEvent* event) override;
    void drawBackgroundContents(QPainter& painter) override;
    void drawContents(QPainter& painter) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void focusInEvent(QFocusEvent* event) override;
    void abandonMouseGesture() override { endDrag(); }

private:
    /// Lets go of the knob held, which gives the keys back.
    void endDrag();
    void announceKeyBand();
    /// Draws `bands`, telling nobody.
    void showBands(const QList<double>& bands);
    /// Tells screen readers of each band whose gain differs from `before`.
    void announceChangesFrom(const QList<double>& before);
    void setPressedBandFromPoint(double y);
    void animationReachedMark(double progress);

    QList<double> mBands;
    QList<double> mStartBands;
    QList<double> mFinalBands;
    int mPressedIndex = kNoBand;
    int mKeyBand = 0;
    bool mDragging = false;
    ProgressMarkAnimation mAnimation;
};

} // namespace tesk
