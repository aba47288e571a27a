#include "effects/TeskSpectrumEffectView.h"

#include "diagnostics/TeskAssert.h"
#include "effects/TeskEffectViewDelegate.h"
#include "observation/KeyValueObserving.h"
#include "widgets/DevicePixels.h"
#include "widgets/NamedImage.h"
#include "widgets/TeskLook.h"

#include <QPaintEvent>
#include <QPainter>
#include <QRegion>
#include <algorithm>
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
    alignToDevicePixels(painter);
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
    const qreal ratio = devicePixelRatioOf(painter);
    const QSize pixels(int(std::ceil(width() * ratio)), int(std::ceil(height() * ratio)));
    if (mBackground.size() != pixels || mBackground.devicePixelRatio() != ratio ||
        mBackgroundEnabled != mEnabled) {
        mBackground = QPixmap(pixels);
        mBackground.setDevicePixelRatio(ratio);
        mBackground.fill(Qt::black);
        mBackgroundEnabled = mEnabled;
        QPainter cache(&mBackground);
        paintBackground(cache);
    }
    // One opaque copy per frame: the timer repaints 15 times a second.
    painter.drawPixmap(QPointF(0, 0), mBackground);
}

void TeskSpectrumEffectView::paintBackground(QPainter& painter) {
    updateMappings();
    gradientImage().draw(painter, QRectF(rect()));
    // The grid: a line at every octave from 31.25 Hz and every 10 dB, on whole device pixels.
    const qreal ratio = devicePixelRatioOf(painter);
    const auto snapped = [ratio](double logical) {
        return (std::floor(logical * ratio) + 0.5) / ratio;
    };
    QPen pen(look::graphGrid);
    pen.setWidthF(1.0 / ratio);
    painter.setPen(pen);
    for (double hertz = 31.25; hertz < 20000.0; hertz *= 2.0) {
        const double x = snapped(mFrequencyMapping.pointForValue(hertz));
        painter.drawLine(QPointF(x, 1.0), QPointF(x, height() - 1.0));
    }
    for (double level = -50.0; level < kHighestLevel; level += 10.0) {
        const double y = snapped(mMagnitudeMapping.pointForValue(level));
        painter.drawLine(QPointF(1.0, y), QPointF(width() - 1.0, y));
    }
    if (!mEnabled)
        painter.setOpacity(look::disabledOpacity);
    drawBackgroundContents(painter);
}

void TeskSpectrumEffectView::drawBackgroundContents(QPainter&) {}

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
    // A line one point thick, drawn as hairlines one device pixel apart: the painter's hairline
    // is many times faster than its general stroker, and this is drawn 15 times a second.
    QPen pen(colour);
    pen.setCosmetic(true);
    pen.setWidthF(1.0);
    painter.setPen(pen);
    painter.setBrush(Qt::NoBrush);
    const qreal ratio = devicePixelRatioOf(painter);
    const int passes = std::max(1, int(std::lround(ratio)));
    for (int pass = 0; pass < passes; ++pass)
        painter.drawPath(path.translated(0.0, (pass - (passes - 1) * 0.5) / ratio));
    painter.restore();
}

void TeskSpectrumEffectView::drawContents(QPainter&) {}

void TeskSpectrumEffectView::drawShadowImage(QPainter& painter) {
    // The border lies along the edges: only they are blended, not the whole view.
    painter.save();
    painter.setClipRegion(QRegion(rect()).subtracted(QRegion(rect().adjusted(2, 2, -2, -2))));
    borderImage().draw(painter, QRectF(rect()));
    painter.restore();
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
