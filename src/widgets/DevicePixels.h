#pragma once

#include <QPainter>
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

/// A horizontal line one point high whose top edge is at point y, as `hairline` is across.
inline QRectF rowHairline(qreal y, qreal left, qreal width, qreal ratio) {
    const QRectF across = hairline(y, left, width, ratio);
    return QRectF(left, across.left(), width, across.width());
}

/// Moves `painter`'s origin onto a whole device pixel. A view one point into a window at 1.25
/// or 1.5 starts part-way through a device pixel, and what it puts on whole pixels of its own
/// (lines, the parts of a stretched picture, a picture it keeps) would fall between the
/// window's: blurred, a row thicker or thinner, the parts a row apart. The view's picture moves
/// by less than a device pixel. Call first thing in a paint event.
inline void alignToDevicePixels(QPainter& painter) {
    const QTransform device = painter.deviceTransform();
    if (device.type() > QTransform::TxScale)
        return; // turned or sheared: there are no whole pixels to keep to
    painter.translate((std::round(device.dx()) - device.dx()) / device.m11(),
                      (std::round(device.dy()) - device.dy()) / device.m22());
}

} // namespace tesk
