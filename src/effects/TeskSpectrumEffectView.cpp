#include "effects/TeskSpectrumEffectView.h"

#include "diagnostics/TeskAssert.h"
#include "effects/TeskEffectViewDelegate.h"
#include "observation/KeyValueObserving.h"
#include "widgets/NamedImage.h"
#include "widgets/TeskLook.h"

#include <QPaintEvent>
#include <QPainter>
#include <cmath>

namespace tesk {

namespace {
const NamedImage& gradientImage() {
    static const NamedImage& image =
        NamedImage::named(QStringLiteral("EffectsWaveformBackgroundGradient"));
    return image;
}
const NamedImage& borderImage() {
    static const NamedImage& image =
        NamedImage::named(QStringLiteral("EffectsWaveformBackgroundBorder"));
    return image;
}
} // namespace

TeskSpectrumEffectView::TeskSpectrumEffectView(QWidget* parent)
    : SBindingView(parent) {
    setAttribute(Qt::WA_OpaquePaintEvent);
    mMagnitudeMapping.setMinValue(kLowestLevel);
    mMagnitudeMapping.setMaxValue(kHighestLevel);
    mFrequencyMapping.setMinValue(20.0);
    mFrequencyMapping.setMaxValue(20000.0);
}

TeskSpectrumEffectView::~TeskSpectrumEffectView() = default;

QStringList TeskSpectrumEffectView::exposedBindings() const {
    return SBindingView::exposedBindings() + QStringList{QStringLiteral("enabled")};
}

void TeskSpectrumEffectView::observableObjectChangedKeyPath(QObject* object, const QString& keyPath,
                                                            const QString& binding) {
    if (binding == QLatin1String("enabled"))
        setEffectEnabled(valueForKeyPath(object, keyPath).toBool());
    else
        SBindingView::observableObjectChangedKeyPath(object, keyPath, binding);
}

void TeskSpectrumEffectView::setEffectEnabled(bool enabled) {
    if (mEnabled == enabled)
        return;
    mEnabled = enabled;
    update();
}

void TeskSpectrumEffectView::setFrequencyTable(std::vector<float> table) {
    mFrequencyTable = std::move(table);
}

void TeskSpectrumEffectView::setSpectrum(std::vector<float> spectrum, unsigned channel) {
    TESK_PARAMETER_ASSERT(channel < 2);
    mSpectrum[channel] = std::move(spectrum);
}

const std::vector<float>& TeskSpectrumEffectView::spectrumForChannel(unsigned channel) const {
    TESK_PARAMETER_ASSERT(channel < 2);
    return mSpectrum[channel];
}

std::vector<float> TeskSpectrumEffectView::spectrum() const {
    const std::vector<float>& left = mSpectrum[0];
    const std::vector<float>& right = mSpectrum[1];
    if (left.empty() || right.empty() || left.size() != right.size())
        return {};
    std::vector<float> mean(left.size());
    for (std::size_t i = 0; i < mean.size(); ++i)
        mean[i] = (left[i] + right[i]) * 0.5f;
    return mean;
}

QPainterPath
TeskSpectrumEffectView::createPathForSpectrum(const std::vector<float>& spectrum) const {
    QPainterPath path;
    updateMappings();
    const std::size_t count = std::min(spectrum.size(), mFrequencyTable.size());
    // Point 0 is the constant term: it has no place on a logarithmic axis.
    for (std::size_t i = 1; i < count; ++i) {
        const QPointF point(mFrequencyMapping.pointForValue(mFrequencyTable[i]),
                            mMagnitudeMapping.pointForValue(spectrum[i]));
        if (i == 1)
            path.moveTo(point);
        else
            path.lineTo(point);
    }
    return path;
}

const SLinearMapping& TeskSpectrumEffectView::magnitudeMapping() const {
    updateMappings();
    return mMagnitudeMapping;
}

const SLogarithmicMapping& TeskSpectrumEffectView::frequencyMapping() const {
    updateMappings();
    return mFrequencyMapping;
}

void TeskSpectrumEffectView::updateMappings() const {
    // View coordinates run down: the axis floor is the bottom edge.
    mMagnitudeMapping.setMinPoint(height());
    mMagnitudeMapping.setMaxPoint(0.0);
    mFrequencyMapping.setMinPoint(0.0);
    mFrequencyMapping.setMaxPoint(width());
}

void TeskSpectrumEffectView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    drawGradientImage(painter);
    if (mEnabled)
        drawSpectrum(painter);
    painter.save();
    if (!mEnabled)
        painter.setOpacity(look::disabledOpacity);
    drawContents(painter);
    painter.restore();
    drawShadowImage(painter);
}

void TeskSpectrumEffectView::drawGradientImage(QPainter& painter) {
    updateMappings();
    gradientImage().draw(painter, QRectF(rect()));
    // The grid: a line at every octave from 31.25 Hz and every 10 dB, on whole device pixels.
    const qreal ratio = devicePixelRatioOf(painter);
    const auto snapped = [ratio](double logical) {
        return (std::floor(logical * ratio) + 0.5) / ratio;
    };
    QPen pen(look::graphGrid);
    pen.setWidthF(1.0 / ratio);
    pen.setCosmetic(false);
    painter.setPen(pen);
    for (double hertz = 31.25; hertz < 20000.0; hertz *= 2.0) {
        const double x = snapped(mFrequencyMapping.pointForValue(hertz));
        painter.drawLine(QPointF(x, 1.0), QPointF(x, height() - 1.0));
    }
    for (double level = -50.0; level < kHighestLevel; level += 10.0) {
        const double y = snapped(mMagnitudeMapping.pointForValue(level));
        painter.drawLine(QPointF(1.0, y), QPointF(width() - 1.0, y));
    }
}

void TeskSpectrumEffectView::drawSpectrum(QPainter& painter) {
    const std::vector<float> mean = spectrum();
    if (mean.empty())
        return;
    strokeSpectrumPath(painter, createPathForSpectrum(mean), QColor::fromRgbF(1, 1, 1, 0.15f));
}

void TeskSpectrumEffectView::strokeSpectrumPath(QPainter& painter, const QPainterPath& path,
                                                const QColor& colour) {
    painter.save();
    painter.setClipRect(
        QRectF(rect()).adjusted(kSpectrumInset, kSpectrumInset, -kSpectrumInset, -kSpectrumInset));
    painter.setRenderHint(QPainter::Antialiasing);
    QPen pen(colour);
    pen.setWidthF(1.0);
    painter.setPen(pen);
    painter.setBrush(Qt::NoBrush);
    painter.drawPath(path);
    painter.restore();
}

void TeskSpectrumEffectView::drawContents(QPainter&) {}

void TeskSpectrumEffectView::drawShadowImage(QPainter& painter) {
    borderImage().draw(painter, QRectF(rect()));
}

void TeskSpectrumEffectView::tellDelegateEditingBegan() {
    if (mDelegate)
        mDelegate->effectViewDidBeginEditing(this);
}

void TeskSpectrumEffectView::tellDelegateEditingEnded() {
    if (mDelegate)
        mDelegate->effectViewDidEndEditing(this);
}

} // namespace tesk
