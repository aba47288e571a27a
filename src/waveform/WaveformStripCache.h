#pragma once

#include <QImage>
#include <QRect>

namespace tesk {

/// Two images that keep the waveform drawn for the strip last shown, so that scrolling draws
/// only the newly exposed strip: the old picture is copied to its new place in the other image
/// and the two swap. Rects are in song device pixels (whole pixels, so scrolling never leaves
/// stray lines at fractional ratios).
///
/// Main thread.
class WaveformStripCache {
public:
    /// The strip that must be painted to show `rect` (empty when `rect` is what is cached; all
    /// of it when the cache is invalid, the size changed or nothing overlaps); afterwards
    /// `image()` holds the old picture moved into place, ready for that strip.
    QRect prepare(const QRect& rect, qreal devicePixelRatio);
    /// The next `prepare` redraws everything.
    void invalidate();
    /// The next `prepare` redraws `stale` (song device pixels) too, where it is shown.
    void invalidate(const QRect& stale);

    QImage& image() { return mImages[mIndex]; }
    QRect cachedRect() const { return mCachedRect; }

    /// The strip of `rect` not covered by `cached` (the rule alone, for tests and benches).
    static QRect dirtyStrip(const QRect& rect, const QRect& cached);

private:
    QImage mImages[2];
    unsigned mIndex = 0;
    QRect mCachedRect; // null when invalid
    QRect mStale;      // to draw again, within the cached rect
};

} // namespace tesk
