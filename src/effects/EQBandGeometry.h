#pragma once

#include <QPointF>
#include <QRectF>
#include <QSizeF>

namespace tesk {

/// Where the equalizer editor puts its ten slots and knobs in a view of `bounds` (view
/// coordinates, y down). The slots share the width less 4 points at each side; a knob's height
/// shows its band's gain from -20 dB (10 points above the bottom) to +20 dB (10 points below the
/// top), and gains beyond that stay drawn at the slot's end. Any thread.
class EQBandGeometry {
public:
    static constexpr int kBandCount = 10;
    static constexpr double kDisplayRange = 20.0; // dB either side of 0
    static constexpr int kNoBand = -1;

    EQBandGeometry(const QSizeF& bounds, const QSizeF& knobSize)
        : mBounds(bounds)
        , mKnobSize(knobSize) {}

    /// The width of one band's column.
    double bandWidth() const { return (mBounds.width() - 8.0) / kBandCount; }
    /// The x of band `index`'s centre.
    double pointForBandIndex(int index) const;
    /// The y of a knob showing `gain` dB, limited to the slot.
    double pointForValue(double gain) const;
    /// The gain a knob at `y` shows; not limited, so a pointer beyond the slot gives more.
    double valueForPoint(double y) const;
    /// Where a press grabs band `index`: its column, 8 points short of the top and bottom.
    QRectF hitRectForBand(int index) const;
    /// The knob of band `index` showing `gain`, on whole points.
    QRectF handleRectForBand(int index, double gain) const;
    /// The left edge of band `index`'s slot, `slotWidth` wide, under the middle of its knob and
    /// on a whole device pixel at `ratio`, so that every slot looks the same.
    double slotLeftForBand(int index, double slotWidth, double ratio) const;
    /// The first band whose hit rectangle holds `point`, or kNoBand.
    int bandIndexForPoint(const QPointF& point) const;

private:
    // The knob's height measured up from the bottom, as whole points.
    double heightForValue(double gain) const;

    QSizeF mBounds;
    QSizeF mKnobSize;
};

} // namespace tesk
