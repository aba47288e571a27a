#pragma once

#include <QPainterPath>

namespace tesk {

/// The outline of a waveform's peaks as columns one device pixel wide, from the base line
/// and back to it: each column as high as the peak path reaches anywhere across it.
///
/// A path of peaks has about one vertex a point, and a peak narrower than a pixel is a spike
/// between two vertices that may share a column; filled as it is, without antialiasing, such a
/// spike covers no pixel centre and disappears, and one that falls between pixel centres is
/// cut short. Filled as columns, every peak reaches its height, sharp at any ratio.
///
/// `peaks` runs from left to right in points (as `Waveform::createPathForRect` makes it);
/// columns lie on multiples of 1 / `pixelRatio` points, the device pixels of a picture
/// whose origin is at such a multiple. Main thread.
QPainterPath peakColumns(const QPainterPath& peaks, qreal pixelRatio);

} // namespace tesk
