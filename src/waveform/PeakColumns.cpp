#include "waveform/PeakColumns.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace tesk {

QPainterPath peakColumns(const QPainterPath& peaks, qreal pixelRatio) {
    const int count = peaks.elementCount();
    if (count < 2 || !(pixelRatio > 0))
        return {};
    const auto column = [pixelRatio](qreal x) { return qint64(std::floor(x * pixelRatio)); };
    const qint64 first = column(peaks.elementAt(0).x);
    const qint64 end =
        std::max(first + 1, qint64(std::ceil(peaks.elementAt(count - 1).x * pixelRatio)));
    std::vector<qreal> heights(std::size_t(end - first), 0.0);
    const auto raise = [&](qint64 at, qreal height) {
        const std::size_t index = std::size_t(std::clamp<qint64>(at - first, 0, end - first - 1));
        heights[index] = std::max(heights[index], height);
    };

    // A straight piece reaches its highest over a column at one of the column's edges or at one
    // of its own ends.
    for (int i = 0; i + 1 < count; ++i) {
        QPointF a = peaks.elementAt(i);
        QPointF b = peaks.elementAt(i + 1);
        if (b.x() < a.x())
            std::swap(a, b);
        raise(column(a.x()), a.y());
        raise(column(b.x()), b.y());
        // An end on a column's left edge also closes the column before it.
        raise(qint64(std::ceil(b.x() * pixelRatio)) - 1, b.y());
        for (qint64 edge = column(a.x()) + 1; edge < qint64(std::ceil(b.x() * pixelRatio));
             ++edge) {
            const qreal x = qreal(edge) / pixelRatio;
            const qreal y = a.y() + (b.y() - a.y()) * (x - a.x()) / (b.x() - a.x());
            raise(edge - 1, y);
            raise(edge, y);
        }
    }

    QPainterPath outline;
    outline.reserve(int(heights.size()) * 2 + 2);
    outline.moveTo(qreal(first) / pixelRatio, 0.0);
    for (std::size_t i = 0; i < heights.size(); ++i) {
        // Neighbours of one height share their corners.
        if (i > 0 && heights[i] == heights[i - 1])
            continue;
        outline.lineTo(qreal(first + qint64(i)) / pixelRatio, heights[i]);
        std::size_t last = i;
        while (last + 1 < heights.size() && heights[last + 1] == heights[i])
            ++last;
        outline.lineTo(qreal(first + qint64(last) + 1) / pixelRatio, heights[i]);
    }
    outline.lineTo(qreal(end) / pixelRatio, 0.0);
    outline.closeSubpath();
    return outline;
}

} // namespace tesk
