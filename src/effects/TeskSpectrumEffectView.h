#pragma once

#include "controls/SBindingView.h"
#include "effects/SpectrumMappings.h"

#include <QPainterPath>
#include <QPixmap>
#include <array>
#include <vector>

namespace tesk {

class TeskEffectViewDelegate;

/// The base of the effect editors: a dark graph area with a faint octave and 10 dB grid and,
/// while the effect is on, the live spectrum of what is playing as a faint line, on a
/// logarithmic frequency axis (20 Hz to 20 kHz, left to right) and a linear level axis (-60 dB
/// at the bottom to 45 dB at the top). Subclasses draw their handles over it. Binding:
/// "enabled" (the effect's switch, read only). A switched-off editor is dimmed.
///
/// The spectra come from the window's display timer: `setFrequencyTable` when playing starts,
/// `setSpectrum` for each channel and then `update()` (through the panel's
/// `refreshFrequencyDisplays`). Setting a spectrum only stores it. Main thread.
class TeskSpectrumEffectView : public SBindingView {
    Q_OBJECT
public:
    static constexpr double kLowestLevel = -60.0; // dB, the axis floor
    static constexpr double kHighestLevel = 45.0;
    static constexpr double kSpectrumInset = 3.0;

    explicit TeskSpectrumEffectView(QWidget* parent = nullptr);
    ~TeskSpectrumEffectView() override;

    QStringList exposedBindings() const override;
    void observableObjectChangedKeyPath(QObject* object, const QString& keyPath,
                                        const QString& binding) override;

    bool isEffectEnabled() const { return mEnabled; }
    void setEffectEnabled(bool enabled);

    /// The frequency in Hz of each spectrum point.
    void setFrequencyTable(std::vector<float> table);
    const std::vector<float>& frequencyTable() const { return mFrequencyTable; }
    /// The latest spectrum (dB per point) of `channel`, 0 (left) or 1 (right).
    void setSpectrum(std::vector<float> spectrum, unsigned channel);
    const std::vector<float>& spectrumForChannel(unsigned channel) const;
    /// The mean of both channels' spectra, or empty until both have one.
    std::vector<float> spectrum() const;

    /// The spectrum's line: one point per spectrum point but the first (the constant term).
    QPainterPath createPathForSpectrum(const std::vector<float>& spectrum) const;

    /// The axes for the view's present size.
    const SLinearMapping& magnitudeMapping() const;
    const SLogarithmicMapping& frequencyMapping() const;

    void setDelegate(TeskEffectViewDelegate* delegate) { mDelegate = delegate; }
    TeskEffectViewDelegate* delegate() const { return mDelegate; }

    QSize sizeHint() const override { return {300, 130}; }
    QSize minimumSizeHint() const override { return {120, 60}; }

protected:
    void paintEvent(QPaintEvent* event) override;

    /// The background picture, the grid and the subclass's fixed parts, from a cached picture
    /// made again only when the size, pixel ratio or switch changes.
    void drawGradientImage(QPainter& painter);
    /// What never moves (the equalizer's slots), drawn once into the cached background; dimmed
    /// with the rest while the effect is off. The base draws nothing.
    virtual void drawBackgroundContents(QPainter& painter);
    /// The averaged spectrum line, clipped inside the border.
    void drawSpectrum(QPainter& painter);
    /// The subclass's handles, over the spectrum; the base draws none.
    virtual void drawContents(QPainter& painter);
    /// The border picture over everything.
    void drawShadowImage(QPainter& painter);
    /// Strokes `path` in `colour`, clipped to the bounds inset by 3 points.
    void strokeSpectrumPath(QPainter& painter, const QPainterPath& path, const QColor& colour);

    void tellDelegateEditingBegan();
    void tellDelegateEditingEnded();

private:
    void updateMappings() const;
    void paintBackground(QPainter& painter);

    std::vector<float> mFrequencyTable;
    std::array<std::vector<float>, 2> mSpectrum;
    // Follow the size, which a hidden view learns before its resize event.
    mutable SLinearMapping mMagnitudeMapping;
    mutable SLogarithmicMapping mFrequencyMapping;
    bool mEnabled = false;
    QPixmap mBackground;
    bool mBackgroundEnabled = false;             // the switch the cached background was drawn for
    TeskEffectViewDelegate* mDelegate = nullptr; // not owned
};

} // namespace tesk
