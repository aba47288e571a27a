#include "effects/EQBandGeometry.h"

#include <algorithm>
#include <cmath>

namespace tesk {

double EQBandGeometry::pointForBandIndex(int index) const {
    return 4.0 + bandWidth() * 0.5 + bandWidth() * index;
}

double EQBandGeometry::heightForValue(double gain) const {
    const double height = mBounds.height();
    const double up =
        std::floor((gain + kDisplayRange) / (2 * kDisplayRange) * (height - 20.0)) + 10.0;
    return std::clamp(up, 10.0, std::max(10.0, height - 10.0));
}

double EQBandGeometry::pointForValue(double gain) const {
    return mBounds.height() - heightForValue(gain);
}

double EQBandGeometry::valueForPoint(double y) const {
    const double height = mBounds.height();
    return (height - y - 10.0) / (height - 20.0) * (2 * kDisplayRange) - kDisplayRange;
}

QRectF EQBandGeometry::hitRectForBand(int index) const {
    const double width = bandWidth();
    return {std::floor(pointForBandIndex(index)) - std::floor(width * 0.5), 8.0, width,
            mBounds.height() - 16.0};
}

QRectF EQBandGeometry::handleRectForBand(int index, double gain) const {
    const double centreX = std::floor(pointForBandIndex(index));
    const double centreUp = std::floor(heightForValue(gain));
    // Centred as measured from the bottom, then turned over into view coordinates.
    const double left = centreX - std::floor(mKnobSize.width() * 0.5);
    const double bottomUp = centreUp - std::floor(mKnobSize.height() * 0.5);
    return {left, mBounds.height() - bottomUp - mKnobSize.height(), mKnobSize.width(),
            mKnobSize.height()};
}

double EQBandGeometry::slotLeftForBand(int index, double slotWidth, double ratio) const {
    const QRectF knob = handleRectForBand(index, 0.0);
    return std::round((knob.center().x() - slotWidth * 0.5) * ratio) / ratio;
}

int EQBandGeometry::bandIndexForPoint(const QPointF& point) const {
    for (int index = 0; index < kBandCount; ++index) {
        const QRectF hit = hitRectForBand(index);
        // Half-open, so a point on the line between two columns belongs to one of them.
        if (point.x() >= hit.left() && point.x() < hit.right() && point.y() >= hit.top() &&
            point.y() < hit.bottom())
            return index;
    }
    return kNoBand;
}

} // namespace tesk
