#pragma once

#include <QRectF>
#include <algorithm>
#include <cmath>

namespace tesk {

/// A vertical line one point wide whose left edge is at point x: whole device pixels, as many
/// as a point has rounded, centred on the point's centre, so that it is as crisp at 1.25 as at
/// 1 and 2, and lines drawn for one time stand in one column at every ratio.
inline QRectF hairline(qreal x, qreal top, qreal height, qreal ratio) {
    const qreal devicePixels = std::max<qreal>(1, std::round(ratio));
    const qreal left = std::round((x + 0.5) * ratio - devicePixels * 0.5);
    return QRectF(left / ratio, top, devicePixels / ratio, height);
}

} // namespace tesk
