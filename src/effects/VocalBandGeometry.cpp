#include "effects/VocalBandGeometry.h"

#include <cmath>

namespace tesk {

VocalBandGeometry::VocalBandGeometry(const QSizeF& bounds)
    : mBounds(bounds) {
    mFrequencyMapping.setMinValue(kLowestFrequency);
    mFrequencyMapping.setMaxValue(kHighestFrequency);
    mFrequencyMapping.setMinPoint(0.0);
    mFrequencyMapping.setMaxPoint(bounds.width());
}

QRectF VocalBandGeometry::edgeRect(double hertz) const {
    return {std::floor(mFrequencyMapping.pointForValue(hertz)), 2.0, 1.0, mBounds.height() - 4.0};
}

QRectF VocalBandGeometry::edgeHitRect(double hertz) const {
    return edgeRect(hertz).adjusted(-kHitMargin, -kHitMargin, kHitMargin, kHitMargin);
}

QRectF VocalBandGeometry::midHitRect(double lowHertz, double highHertz) const {
    const QRectF low = edgeHitRect(lowHertz);
    const QRectF high = edgeHitRect(highHertz);
    return {low.right(), low.top(), high.left() - low.right(), low.height()};
}

double VocalBandGeometry::limited(float hertz) {
    if (hertz <= kLowestFrequency)
        return kLowestFrequency;
    return hertz > kHighestFrequency ? kHighestFrequency : double(hertz);
}

double VocalBandGeometry::lowFrequencyForPoint(double x, double highHertz) const {
    float hertz = float(mFrequencyMapping.valueForPoint(x));
    const double highPoint = mFrequencyMapping.pointForValue(highHertz);
    if (highPoint - mFrequencyMapping.pointForValue(hertz) < kMinimumGap)
        hertz = float(mFrequencyMapping.valueForPoint(highPoint - kMinimumGap));
    return limited(hertz);
}

double VocalBandGeometry::highFrequencyForPoint(double x, double lowHertz) const {
    float hertz = float(mFrequencyMapping.valueForPoint(x));
    const double lowPoint = mFrequencyMapping.pointForValue(lowHertz);
    if (mFrequencyMapping.pointForValue(hertz) - lowPoint < kMinimumGap)
        hertz = float(mFrequencyMapping.valueForPoint(lowPoint + kMinimumGap));
    return limited(hertz);
}

QRectF VocalBandGeometry::readoutRect(const QSizeF& text, double lowHertz, double highHertz) const {
    constexpr double kSide = 6.0;
    constexpr double kTop = 4.0;
    const QRectF right(mBounds.width() - kSide - text.width(), kTop, text.width(), text.height());
    const QRectF left(kSide, kTop, text.width(), text.height());
    const auto crossed = [&](const QRectF& place) {
        for (const double hertz : {lowHertz, highHertz}) {
            const QRectF handle = edgeHitRect(hertz);
            if (handle.right() > place.left() && handle.left() < place.right())
                return true;
        }
        return false;
    };
    return crossed(right) && !crossed(left) ? left : right;
}

} // namespace tesk
