#pragma once

#include <QWidget>
#include <vector>

namespace tesk {

/// The song's live spectrum on a logarithmic frequency axis (20 Hz to 20 kHz) and a linear
/// level axis (-60 to 45 dB), drawn behind an effect's controls. Dimmed while the effect is
/// off. Main thread.
class SpectrumStrip : public QWidget {
    Q_OBJECT
public:
    explicit SpectrumStrip(QWidget* parent = nullptr);

    void setFrequencyTable(std::vector<float> table);
    /// Channel 0 or 1; the spectrum is drawn once both have arrived.
    void setSpectrum(std::vector<float> spectrum, unsigned channel);
    void setEffectEnabled(bool enabled);

    /// The mappings, in the strip's coordinates.
    static double xForFrequency(double hertz, double width);
    static double yForLevel(double decibels, double height);

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    std::vector<float> mFrequencies;
    std::vector<float> mSpectra[2];
    bool mEnabled = false;
};

} // namespace tesk
