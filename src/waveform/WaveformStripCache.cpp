#include "waveform/WaveformStripCache.h"

#include <QPainter>

#include <utility>

namespace tesk {

QRect WaveformStripCache::dirtyStrip(const QRect& rect, const QRect& cached) {
    if (cached.isNull() || cached.size() != rect.size())
        return rect;
    const QRect overlap = rect & cached;
    if (overlap.isEmpty())
        return rect;
    if (overlap == rect)
        return {};
    if (overlap.right() != rect.right()) // new strip on the right
        return QRect(QPoint(overlap.right() + 1, rect.top()), rect.bottomRight());
    return QRect(rect.topLeft(), QPoint(overlap.left() - 1, rect.bottom()));
}

QRect WaveformStripCache::prepare(const QRect& rect, qreal devicePixelRatio) {
    QRect dirty = dirtyStrip(rect, mCachedRect);
    const QRect stale = std::exchange(mStale, QRect()) & rect;
    if (!mCachedRect.isNull() && !stale.isEmpty()) {
        dirty = dirty.isEmpty() ? stale : (dirty | stale);
        if (rect == mCachedRect && devicePixelRatio == image().devicePixelRatio())
            return dirty; // drawn again in place
    }
    if (dirty.isEmpty())
        return dirty;
    const unsigned next = (mIndex + 1) & 1;
    for (QImage& image : mImages) {
        if (image.size() != rect.size() || image.devicePixelRatio() != devicePixelRatio) {
            image = QImage(rect.size(), QImage::Format_ARGB32_Premultiplied);
            image.setDevicePixelRatio(devicePixelRatio);
            mCachedRect = QRect(); // both images are new: nothing to copy
        }
    }
    const QRect overlap = mCachedRect.isNull() ? QRect() : (rect & mCachedRect);
    if (!overlap.isEmpty() && dirty != rect) {
        QImage& target = mImages[next];
        const QImage& cached = mImages[mIndex];
        // Copy the overlap row by row: a raw move, no painter, no scaling.
        const int bytes = overlap.width() * 4;
        const int fromX = overlap.left() - mCachedRect.left();
        const int toX = overlap.left() - rect.left();
        for (int y = 0; y < rect.height(); ++y) {
            memcpy(target.scanLine(y) + toX * 4, cached.constScanLine(y) + fromX * 4, bytes);
        }
        mIndex = next;
        mCachedRect = rect;
        return dirty;
    }
    mIndex = next;
    mCachedRect = rect;
    return rect;
}

void WaveformStripCache::invalidate() {
    mIndex = 0;
    mCachedRect = QRect();
    mStale = QRect();
}

void WaveformStripCache::invalidate(const QRect& stale) {
    mStale |= stale;
}

} // namespace tesk
