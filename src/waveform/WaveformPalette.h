#pragma once

#include <QColor>
#include <QLinearGradient>
#include <QRectF>

namespace tesk {

/// Two colours of a vertical gradient: `top` at the top edge, `bottom` at the bottom.
struct GradientStops {
    QColor top;
    QColor bottom;
    /// A linear gradient over `rect`'s height.
    QLinearGradient over(const QRectF& rect) const;
};

/// The waveform view's colours. Six of them can be changed in the settings (keys
/// "KLWaveformGradient", "KLSelectedWaveformGradient", "KLWaveformTopLineColor",
/// "KLWaveformBottomLineColor", "KLSelectedWaveformTopLineColor",
/// "KLSelectedWaveformBottomLineColor": lists of numbers, channels 0–255, alpha 0–1); they are
/// read once, on first use, and kept for the run.
///
/// Main thread.
struct WaveformPalette {
    GradientStops waveformGradient;
    GradientStops selectedWaveformGradient;
    QColor darkMidlineColor;
    QColor lightMidlineColor;
    QColor loopToplineColor;
    QColor loopBottomlineColor;

    QColor backgroundColor{119, 119, 119};
    GradientStops backgroundGradient{QColor(252, 252, 252), QColor(226, 226, 226)};
    GradientStops secondMarkerGradient{QColor(222, 226, 229), QColor(200, 205, 210)};
    GradientStops loopSecondMarkerGradient{QColor(71, 112, 161), QColor(51, 91, 140)};
    GradientStops selectedBackgroundGradient{QColor(53, 98, 154), QColor(36, 79, 135)};
    QColor darkSelectedMidlineColor{170, 187, 203};
    QColor lightSelectedMidlineColor{255, 255, 255, 41};
    QColor cursorlineColor{51, 101, 165};
    QColor loopCursorlineColor{26, 54, 92};
    QColor timeIndicatorLineColor{149, 153, 155};
    QColor timeIndicatorTextColor{58, 58, 58};

    static const WaveformPalette& shared();
    /// Reads the six keys from the application's settings, falling back on their defaults.
    static WaveformPalette fromSettings();
};

} // namespace tesk
