#pragma once

#include "effects/TeskSpectrumEffectView.h"

#include <QColor>

namespace tesk {

/// The pan section's spectrum: the left and right channels' spectra in two colours, each scaled
/// towards the floor of the level axis by how far the pan leans away from it. At the centre
/// (0.5) both are drawn whole; at either end the far channel lies flat on the floor. A switched
/// off view draws only its background and border. Bindings: "enabled", "panFraction" (0 to 1,
/// read only). Main thread.
class TeskPanningSpectrumEffectView : public TeskSpectrumEffectView {
    Q_OBJECT
public:
    static const QColor& leftSpectrumColor();
    static const QColor& rightSpectrumColor();

    explicit TeskPanningSpectrumEffectView(QWidget* parent = nullptr);
    ~TeskPanningSpectrumEffectView() override;

    QStringList exposedBindings() const override;
    void observableObjectChangedKeyPath(QObject* object, const QString& keyPath,
                                        const QString& binding) override;

    double panFraction() const { return mPanFraction; }
    void setPanFraction(double fraction);

    /// How much of channel `channel`'s height above the floor is drawn at `panFraction`.
    static double channelWeight(unsigned channel, double panFraction);
    /// `spectrum` scaled towards `floor` by `weight`: floor + (s - floor) × weight.
    static std::vector<float> scaledTowardsFloor(std::vector<float> spectrum, float floor,
                                                 float weight);

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    double mPanFraction = 0.5;
};

} // namespace tesk
