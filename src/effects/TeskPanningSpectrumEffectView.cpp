#include "effects/TeskPanningSpectrumEffectView.h"

#include "observation/KeyValueObserving.h"
#include "widgets/DevicePixels.h"

#include <QPainter>
#include <algorithm>

namespace tesk {

const QColor& TeskPanningSpectrumEffectView::leftSpectrumColor() {
    static const QColor colour = QColor::fromRgbF(0.0902f, 0.349f, 0.4235f);
    return colour;
}

const QColor& TeskPanningSpectrumEffectView::rightSpectrumColor() {
    static const QColor colour = QColor::fromRgbF(0.1098f, 0.302f, 0.5765f);
    return colour;
}

TeskPanningSpectrumEffectView::TeskPanningSpectrumEffectView(QWidget* parent)
    : TeskSpectrumEffectView(parent) {
    setAccessibleName(tr("Stereo spectrum"));
}

TeskPanningSpectrumEffectView::~TeskPanningSpectrumEffectView() = default;

QStringList TeskPanningSpectrumEffectView::exposedBindings() const {
    return TeskSpectrumEffectView::exposedBindings() + QStringList{QStringLiteral("panFraction")};
}

void TeskPanningSpectrumEffectView::observableObjectChangedKeyPath(QObject* object,
                                                                   const QString& keyPath,
                                                                   const QString& binding) {
    if (binding == QLatin1String("panFraction"))
        setPanFraction(valueForKeyPath(object, keyPath).toDouble());
    else
        TeskSpectrumEffectView::observableObjectChangedKeyPath(object, keyPath, binding);
}

void TeskPanningSpectrumEffectView::setPanFraction(double fraction) {
    if (fraction == mPanFraction)
        return;
    mPanFraction = fraction;
    update();
}

double TeskPanningSpectrumEffectView::channelWeight(unsigned channel, double panFraction) {
    return channel == 0 ? std::min(1.0, 2.0 * (1.0 - panFraction))
                        : std::min(1.0, 2.0 * panFraction);
}

std::vector<float> TeskPanningSpectrumEffectView::scaledTowardsFloor(std::vector<float> spectrum,
                                                                     float floor, float weight) {
    for (float& value : spectrum)
        value = (value - floor) * weight + floor;
    return spectrum;
}

void TeskPanningSpectrumEffectView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    alignToDevicePixels(painter);
    drawGradientImage(painter);
    if (isEffectEnabled()) {
        const float floor = float(magnitudeMapping().minValue());
        for (unsigned channel = 0; channel < 2; ++channel) {
            const std::vector<float>& spectrum = spectrumForChannel(channel);
            if (spectrum.empty())
                continue;
            const float weight = float(channelWeight(channel, mPanFraction));
            strokeSpectrumPath(painter,
                               createPathForSpectrum(scaledTowardsFloor(spectrum, floor, weight)),
                               channel == 0 ? leftSpectrumColor() : rightSpectrumColor());
        }
    }
    drawShadowImage(painter);
}

} // namespace tesk
