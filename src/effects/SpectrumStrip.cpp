#include "effects/SpectrumStrip.h"

#include <QPainter>
#include <QPainterPath>
#include <cmath>

namespace tesk {

namespace {
constexpr double kLowestHertz = 20.0;
constexpr double kHighestHertz = 20000.0;
constexpr double kLowestDb = -60.0;
constexpr double kHighestDb = 45.0;
} // namespace

SpectrumStrip::SpectrumStrip(QWidget* parent)
    : QWidget(parent) {
    setAttribute(Qt::WA_OpaquePaintEvent);
}

void SpectrumStrip::setFrequencyTable(std::vector<float> table) {
    mFrequencies = std::move(table);
}

void SpectrumStrip::setSpectrum(std::vector<float> spectrum, unsigned channel) {
    if (channel < 2)
        mSpectra[channel] = std::move(spectrum);
}

void SpectrumStrip::setEffectEnabled(bool enabled) {
    mEnabled = enabled;
    update();
}

double SpectrumStrip::xForFrequency(double hertz, double width) {
    return std::log(hertz / kLowestHertz) / std::log(kHighestHertz / kLowestHertz) * width;
}

double SpectrumStrip::yForLevel(double decibels, double height) {
    return height - (decibels - kLowestDb) / (kHighestDb - kLowestDb) * height;
}

void SpectrumStrip::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.fillRect(rect(), QColor(24, 27, 31));
    painter.setRenderHint(QPainter::Antialiasing);
    // A faint grid: octaves across, every 10 dB up.
    painter.setPen(QColor(217, 238, 254, 28));
    for (double hertz = 31.25; hertz < kHighestHertz; hertz *= 2)
        painter.drawLine(QPointF(xForFrequency(hertz, width()), 0),
                         QPointF(xForFrequency(hertz, width()), height()));
    for (double db = -50; db < kHighestDb; db += 10)
        painter.drawLine(QPointF(0, yForLevel(db, height())),
                         QPointF(width(), yForLevel(db, height())));
    // Drawn only once both channels have delivered; bin 0 (no frequency) is skipped.
    if (mSpectra[0].empty() || mSpectra[1].empty() || mFrequencies.size() < 2)
        return;
    QPainterPath path;
    const std::size_t bins =
        std::min({mFrequencies.size(), mSpectra[0].size(), mSpectra[1].size()});
    bool started = false;
    for (std::size_t bin = 1; bin < bins; ++bin) {
        const double hertz = mFrequencies[bin];
        if (hertz < kLowestHertz || hertz > kHighestHertz)
            continue;
        const double level = 0.5 * (double(mSpectra[0][bin]) + double(mSpectra[1][bin]));
        const QPointF point(xForFrequency(hertz, width()),
                            std::clamp(yForLevel(level, height()), 0.0, double(height())));
        if (started)
            path.lineTo(point);
        else
            path.moveTo(point);
        started = true;
    }
    painter.setPen(QPen(QColor(217, 238, 254, mEnabled ? 200 : 80), 1.0));
    painter.drawPath(path);
}

} // namespace tesk
