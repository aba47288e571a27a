#pragma once

#include "effects/SpectrumMappings.h"

#include <QRectF>
#include <QSizeF>

namespace tesk {

/// Where the vocal band editor puts the band's two edges on the 20 Hz to 20 kHz axis of a view
/// of `bounds`, and the rules for moving an edge: each edge stays within 20 to 20000 Hz, and the
/// high edge at least 5 points right of the low one (points, not Hz, so the band may not vanish
/// at either end of the axis). Any thread.
class VocalBandGeometry {
public:
    static constexpr double kLowestFrequency = 20.0;
    static constexpr double kHighestFrequency = 20000.0;
    static constexpr double kMinimumGap = 5.0; // points
    static constexpr double kHitMargin = 2.0;

    explicit VocalBandGeometry(const QSizeF& bounds);

    const SLogarithmicMapping& frequencyMapping() const { return mFrequencyMapping; }

    /// The 1-point handle line of an edge at `hertz`.
    QRectF edgeRect(double hertz) const;
    /// The handle grown by 2 points on every side.
    QRectF edgeHitRect(double hertz) const;
    /// The ground between the two edges' hit rectangles.
    QRectF midHitRect(double lowHertz, double highHertz) const;

    /// The low edge for a pointer at `x`, kept 5 points left of `highHertz`, then limited to
    /// the axis (so at the very ends the limit wins over the gap).
    double lowFrequencyForPoint(double x, double highHertz) const;
    /// The mirror of `lowFrequencyForPoint`.
    double highFrequencyForPoint(double x, double lowHertz) const;

    /// Where the band's readout of `text` size goes: in the top corner, right or left, that
    /// neither edge's handle crosses (the right one when both or neither are crossed), 6 points
    /// in from the side and 4 from the top.
    QRectF readoutRect(const QSizeF& text, double lowHertz, double highHertz) const;

private:
    static double limited(float hertz);

    QSizeF mBounds;
    SLogarithmicMapping mFrequencyMapping;
};

} // namespace tesk
