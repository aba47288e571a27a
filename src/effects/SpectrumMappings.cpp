#include "effects/SpectrumMappings.h"

#include <cmath>

namespace tesk {

void SLogarithmicMapping::setMinValue(double value) {
    mMinValue = value;
    mLogMin = std::log(value);
}

void SLogarithmicMapping::setMaxValue(double value) {
    mMaxValue = value;
    mLogMax = std::log(value);
}

double SLogarithmicMapping::pointForValue(double value) const {
    return mMinPoint + (std::log(value) - mLogMin) / (mLogMax - mLogMin) * (mMaxPoint - mMinPoint);
}

double SLogarithmicMapping::valueForPoint(double point) const {
    return std::exp(mLogMin + (point - mMinPoint) / (mMaxPoint - mMinPoint) * (mLogMax - mLogMin));
}

} // namespace tesk
