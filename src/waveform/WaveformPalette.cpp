#include "waveform/WaveformPalette.h"

#include <QSettings>
#include <QVariantList>

namespace tesk {

namespace {

QVariantList numbers(std::initializer_list<double> values) {
    QVariantList list;
    for (double value : values)
        list.append(value);
    return list;
}

QColor colourAt(const QVariantList& list, int first, bool hasAlpha) {
    auto channel = [&](int i, double fallback) {
        return i < list.size() ? list[i].toDouble() : fallback;
    };
    QColor colour =
        QColor::fromRgbF(float(channel(first, 0) / 255.0), float(channel(first + 1, 0) / 255.0),
                         float(channel(first + 2, 0) / 255.0));
    if (hasAlpha)
        colour.setAlphaF(float(channel(first + 3, 1.0)));
    return colour;
}

QVariantList setting(const QSettings& settings, const char* key, const QVariantList& fallback) {
    const QVariantList list = settings.value(key, fallback).toList();
    return list.isEmpty() ? fallback : list;
}

} // namespace

QLinearGradient GradientStops::over(const QRectF& rect) const {
    QLinearGradient gradient(rect.left(), rect.top(), rect.left(), rect.bottom());
    gradient.setColorAt(0.0, top);
    gradient.setColorAt(1.0, bottom);
    return gradient;
}

WaveformPalette WaveformPalette::fromSettings() {
    const QSettings settings;
    WaveformPalette palette;
    const QVariantList waveform =
        setting(settings, "KLWaveformGradient", numbers({78, 98, 118, 25, 34, 46}));
    palette.waveformGradient = {colourAt(waveform, 0, false), colourAt(waveform, 3, false)};
    const QVariantList selected =
        setting(settings, "KLSelectedWaveformGradient", numbers({242, 249, 255, 150, 171, 190}));
    palette.selectedWaveformGradient = {colourAt(selected, 0, false), colourAt(selected, 3, false)};
    palette.darkMidlineColor =
        colourAt(setting(settings, "KLWaveformTopLineColor", numbers({43, 56, 69, 1.0})), 0, true);
    palette.lightMidlineColor = colourAt(
        setting(settings, "KLWaveformBottomLineColor", numbers({255, 255, 255, 0.02})), 0, true);
    palette.loopToplineColor = colourAt(
        setting(settings, "KLSelectedWaveformTopLineColor", numbers({92, 94, 96, 1.0})), 0, true);
    palette.loopBottomlineColor = colourAt(
        setting(settings, "KLSelectedWaveformBottomLineColor", numbers({0, 0, 0, 0.4})), 0, true);
    return palette;
}

const WaveformPalette& WaveformPalette::shared() {
    static const WaveformPalette palette = fromSettings();
    return palette;
}

} // namespace tesk
