#pragma once

// Helpers for tests of views: read the pixels of a grab() where the geometry puts things, at the
// device pixel ratio the test runs with (QT_SCALE_FACTOR, see tesk_add_test's SCALE_FACTORS).

#include <QColor>
#include <QGuiApplication>
#include <QImage>
#include <QScreen>
#include <QWidget>
#include <cmath>
#include <cstdlib>
#include <ostream>

namespace tesk::test {

/// The device pixel ratio views are drawn at in this run.
inline qreal testPixelRatio() {
    return QGuiApplication::primaryScreen()->devicePixelRatio();
}

/// The device pixel that holds the logical coordinate `logical`.
inline int devicePixel(qreal logical, qreal ratio) {
    return int(std::floor(logical * ratio + 1e-9));
}

/// What the user sees of `widget`, at the run's ratio.
inline QImage grabImage(QWidget& widget) {
    return widget.grab().toImage();
}

/// The colour of the device pixel under the logical point (x, y) of `image`.
inline QColor pixelAt(const QImage& image, qreal x, qreal y) {
    const qreal ratio = image.devicePixelRatio();
    return image.pixelColor(devicePixel(x, ratio), devicePixel(y, ratio));
}

/// Colours equal within `tolerance` on each channel (alpha included).
inline bool coloursClose(const QColor& a, const QColor& b, int tolerance = 2) {
    return std::abs(a.red() - b.red()) <= tolerance &&
           std::abs(a.green() - b.green()) <= tolerance &&
           std::abs(a.blue() - b.blue()) <= tolerance &&
           std::abs(a.alpha() - b.alpha()) <= tolerance;
}

} // namespace tesk::test

/// Colours print as #aarrggbb in failure messages.
inline void PrintTo(const QColor& colour, std::ostream* out) {
    *out << colour.name(QColor::HexArgb).toStdString();
}
