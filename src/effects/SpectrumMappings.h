#pragma once

namespace tesk {

/// Places a value on a straight axis: `minValue` lands on `minPoint`, `maxValue` on `maxPoint`,
/// and every value in proportion between and beyond them. The editors use one for the level
/// axis of the spectrum. Any thread.
class SLinearMapping {
public:
    void setMinValue(double value) { mMinValue = value; }
    void setMaxValue(double value) { mMaxValue = value; }
    void setMinPoint(double point) { mMinPoint = point; }
    void setMaxPoint(double point) { mMaxPoint = point; }
    double minValue() const { return mMinValue; }
    double maxValue() const { return mMaxValue; }

    double pointForValue(double value) const {
        return mMinPoint + (value - mMinValue) / (mMaxValue - mMinValue) * (mMaxPoint - mMinPoint);
    }
    double valueForPoint(double point) const {
        return mMinValue + (point - mMinPoint) / (mMaxPoint - mMinPoint) * (mMaxValue - mMinValue);
    }

private:
    double mMinValue = 0.0;
    double mMaxValue = 1.0;
    double mMinPoint = 0.0;
    double mMaxPoint = 1.0;
};

/// Places a positive value on an axis in proportion to its logarithm, so that equal ratios
/// (an octave, a decade) take equal distances: the editors' frequency axis. Any thread.
class SLogarithmicMapping {
public:
    void setMinValue(double value);
    void setMaxValue(double value);
    void setMinPoint(double point) { mMinPoint = point; }
    void setMaxPoint(double point) { mMaxPoint = point; }
    double minValue() const { return mMinValue; }
    double maxValue() const { return mMaxValue; }
    double minPoint() const { return mMinPoint; }
    double maxPoint() const { return mMaxPoint; }

    /// A value of 0 or below has no place; it lies infinitely far to the left.
    double pointForValue(double value) const;
    double valueForPoint(double point) const;

private:
    double mMinValue = 1.0;
    double mMaxValue = 10.0;
    double mLogMin = 0.0;
    double mLogMax = 1.0;
    double mMinPoint = 0.0;
    double mMaxPoint = 1.0;
};

} // namespace tesk
