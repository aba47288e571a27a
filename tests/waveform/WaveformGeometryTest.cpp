#include "waveform/WaveformGeometry.h"
#include "waveform/PlayheadClock.h"
#include "waveform/WaveformStripCache.h"

#include <gtest/gtest.h>

using namespace tesk;

namespace {

constexpr qint64 kTenMinutes = 600 * 44100; // 26,460,000 frames

WaveformGeometry geometryFor(qint64 frames, double width, double zoom, qint64 start = 0) {
    WaveformGeometry geometry;
    geometry.frameCount = frames;
    geometry.width = width;
    geometry.zoomLevel = zoom;
    geometry.startFrame = start;
    geometry.updateMaximumZoomLevel();
    return geometry;
}

} // namespace

TEST(WaveformGeometry, ScaleStartPointAndLimitsAtSeveralLengthsWidthsAndZooms) {
    struct Case {
        const char* name;
        qint64 frames;
        double width, zoom;
        qint64 start;
        double maximumZoom, framesPerPoint;
        float visibleStart;
        qint64 visibleMinimum, visibleMaximum, tickStep;
    };
    const Case cases[] = {
        // 26,460,000 ÷ 80,000 − 1; rint(16537.5) rounds to the even 16538.
        {"whole song at zoom 0", kTenMinutes, 1600, 0.0, 0, 329.75, 16538, 0, 13230400, 13229600,
         264600},
        {"full zoom, start of song", kTenMinutes, 1600, 1.0, 0, 329.75, 50, 0, 40000, 26420000,
         4410},
        {"full zoom, middle", kTenMinutes, 1600, 1.0, 1000000, 329.75, 50, 19200, 40000, 26420000,
         4410},
        {"full zoom, pinned at the end", kTenMinutes, 1600, 1.0, kTenMinutes, 329.75, 50, 527600,
         40000, 26420000, 4410},
        {"half zoom, narrow view", 441000, 800, 0.5, 220500, 10.025, 301, 332, 120400, 320600,
         4410},
        // One second in a wide view: no zoom range, and the end limit is negative.
        {"short song at its start", 44100, 1600, 0.3, 0, 0.0, 50, 0, 40000, 4100, 4410},
        {"short song at its end", 44100, 1600, 0.3, 44100, 0.0, 50, -718, 40000, 4100, 4410},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const WaveformGeometry g = geometryFor(c.frames, c.width, c.zoom, c.start);
        EXPECT_DOUBLE_EQ(g.maximumZoomLevel, c.maximumZoom);
        EXPECT_EQ(g.framesPerPoint(), c.framesPerPoint);
        EXPECT_EQ(g.visibleStartPoint(), c.visibleStart);
        EXPECT_EQ(g.visibleMinimum(), c.visibleMinimum);
        EXPECT_EQ(g.visibleMaximum(), c.visibleMaximum);
        EXPECT_EQ(g.idealSampleStep(), c.tickStep);
    }
}

TEST(WaveformGeometry, ClampsScrollPositionsPagesAndConversions) {
    const WaveformGeometry full = geometryFor(kTenMinutes, 1600, 1.0, 1000000);
    EXPECT_EQ(full.sampleFromPoint(-3.0), 0) << "negative points give frame 0";
    EXPECT_EQ(full.sampleFromPoint(10.7), 535);
    EXPECT_FLOAT_EQ(full.pointFromSample(535), 10.7f);
    EXPECT_DOUBLE_EQ(full.visibleProportion(), 80000.0 / kTenMinutes);
    EXPECT_DOUBLE_EQ(full.scrollPosition(), 960000.0 / 26380000.0);

    WaveformGeometry half = full;
    half.setScrollPosition(0.5);
    EXPECT_EQ(half.startFrame, 40000 + 13190000);
    WaveformGeometry beyond = full;
    beyond.setScrollPosition(1.5);
    EXPECT_EQ(beyond.startFrame, 40000 + 39570000) << "setting does not clamp";
    EXPECT_EQ(geometryFor(0, 1600, 1.0).scrollPosition(), 0.0);

    // Pages move half a view, within the limits.
    EXPECT_EQ(full.pageLeftStartFrame(), 960000);
    EXPECT_EQ(full.pageRightStartFrame(), 1040000);
    EXPECT_EQ(geometryFor(kTenMinutes, 1600, 1.0, 50000).pageLeftStartFrame(), 40000);
    EXPECT_EQ(geometryFor(kTenMinutes, 1600, 1.0, 26400000).pageRightStartFrame(), 26420000);
    // A short song: the minimum exceeds the maximum and the maximum wins.
    const WaveformGeometry shortSong = geometryFor(44100, 1600, 1.0);
    EXPECT_EQ(shortSong.clampedStartFrame(20000), 4100);
    EXPECT_EQ(shortSong.pageRightStartFrame(), 4100);

    // The loop fills the view less 20 points each side at its zoom.
    WaveformGeometry loopZoom = geometryFor(kTenMinutes, 1600, 1.0);
    loopZoom.zoomLevel = loopZoom.loopZoomLevel(441000);
    // Within the rounding of frames per point to a whole number (283 for 282.7).
    EXPECT_NEAR(loopZoom.pointFromSample(441000), 1560.0, 2.0);
    EXPECT_EQ(loopZoom.loopZoomLevel(10), 1.0) << "bounded above by 1";
    // A song that fits the view at full zoom, looped whole (a little longer than the view less
    // its margins): every level shows the same, and the level stays a number.
    EXPECT_EQ(geometryFor(46305, 960, 1.0).loopZoomLevel(46305), 1.0);
}

TEST(WaveformGeometry, RulerLabelsCountMinutesWithoutWrapping) {
    const std::pair<qint64, const char*> cases[] = {
        {0, "00:00"},
        {44100 * 60, "01:00"},
        {44100 * 60 - 1, "00:59"},
        {44100 * 3599, "59:59"},
        {44100 * 3600, "60:00"},
        {44100 * 6000 + 44100 * 5, "100:05"},
    };
    for (const auto& [frame, label] : cases) {
        SCOPED_TRACE(frame);
        EXPECT_EQ(rulerLabel(frame), QString(label));
    }
}

TEST(WaveformGeometry, FollowRuleDuringPlayback) {
    // Full zoom, 50 frames a point: the view shows points 19200 … 20800, middle 20000.
    const WaveformGeometry g = geometryFor(kTenMinutes, 1600, 1.0, 1000000);
    struct Case {
        const char* name;
        double cursorPoint;
        LoopRange loop;
        bool scrollerDragging;
        qint64 returnAdjust;
        std::optional<qint64> start;
        qint64 returnAdjustAfter;
    };
    const Case cases[] = {
        {"left of centre: the view stands", 19500, {}, false, 0, std::nullopt, 0},
        {"at the centre: the view scrolls with it", 20000, {}, false, 0, 1000000, 0},
        {"right of centre after a click: eases back by 10 points",
         20300,
         {},
         false,
         15000,
         1015000 - 15000,
         14500},
        {"easing stops at 0", 20300, {}, false, 300, 1015000 - 300, 0},
        {"off screen: jumps to centre it", 40000, {}, false, 0, 2000000, 0},
        {"on the left edge counts as off screen", 19200, {}, false, 0, 960000, 0},
        {"a visible loop keeps the view still", 20700, {1000000, 35000}, false, 0, std::nullopt, 0},
        {"a loop running off screen does not", 20700, {1000000, 100000}, false, 0, 1035000, 0},
        {"dragging the scroller stops following", 40000, {}, true, 0, std::nullopt, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        FollowState state{qint64(c.cursorPoint * 50), c.loop, c.scrollerDragging, c.returnAdjust};
        EXPECT_EQ(followPlayPosition(g, state), c.start);
        EXPECT_EQ(state.returnAdjustFramesCount, c.returnAdjustAfter);
    }

    // A cursor clicked 300 points right of the centre is back there in 1.5 s, 200 points a
    // second (give or take the whole frames an update moves by), whether the play head moves
    // 20, 60 or 144 times a second.
    for (const double updatesPerSecond : {20.0, 60.0, 144.0}) {
        SCOPED_TRACE(updatesPerSecond);
        FollowState state{20300 * 50, {}, false, 300 * 50};
        state.easePoints = easePointsForUpdate(1.0 / updatesPerSecond);
        int updates = 0;
        for (; state.returnAdjustFramesCount > 0 && updates < 1000; ++updates)
            followPlayPosition(g, state);
        EXPECT_NEAR(updates / updatesPerSecond, 1.5, 0.03) << "whole frames an update";
    }
    // An update after a long wait eases 10 points, as one of 20 a second does.
    EXPECT_EQ(easePointsForUpdate(2.0), 10.0);
    EXPECT_EQ(easePointsForUpdate(0.0), 0.0);
}

TEST(WaveformGeometry, LoopDragsDrawShiftResizeFlipAndCut) {
    const WaveformGeometry g = geometryFor(kTenMinutes, 1600, 1.0); // 50 frames a point
    struct Case {
        const char* name;
        double from, to;
        LoopRange before;
        bool resizing, left, shifting;
        LoopRange after;
        std::optional<bool> rightAligned;
    };
    const Case cases[] = {
        {"new, left to right", 100, 300, {}, false, false, false, {5000, 10000}, true},
        {"new, right to left", 300, 100, {}, false, false, false, {5000, 10000}, false},
        {"shift", 100, 150, {10000, 5000}, false, false, true, {12500, 5000}, std::nullopt},
        {"shift against the start",
         100,
         0,
         {1000, 5000},
         false,
         false,
         true,
         {0, 5000},
         std::nullopt},
        {"shift against the end",
         0,
         1000,
         {26450000, 5000},
         false,
         false,
         true,
         {26455000, 5000},
         std::nullopt},
        {"right edge", 100, 150, {10000, 5000}, true, false, false, {10000, 7500}, std::nullopt},
        {"right edge past the left",
         150,
         0,
         {10000, 5000},
         true,
         false,
         false,
         {7500, 2500},
         std::nullopt},
        {"left edge", 100, 150, {10000, 5000}, true, true, false, {12500, 2500}, std::nullopt},
        {"left edge past the right",
         100,
         250,
         {10000, 5000},
         true,
         true,
         false,
         {15000, 2500},
         std::nullopt},
        // An edge taken on either side of it and dragged past the song's start stops at frame
        // 0, and the other edge stays.
        {"left edge past the start", 22, -50, {1000, 5000}, true, true, false, {0, 6000}, {}},
        {"left edge taken outside it, past the start",
         18,
         -50,
         {1000, 5000},
         true,
         true,
         false,
         {0, 6000},
         std::nullopt},
        {"right edge past the left and the start",
         122,
         -50,
         {1000, 5000},
         true,
         false,
         false,
         {0, 1000},
         std::nullopt},
        {"new loop cut at the song's end",
         529000,
         531000,
         {},
         false,
         false,
         false,
         {26450000, 10000},
         true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const LoopDrag drag =
            loopRangeForStartPoint(g, c.from, c.to, c.before, c.resizing, c.left, c.shifting);
        EXPECT_EQ(drag.range.location, c.after.location);
        EXPECT_EQ(drag.range.length, c.after.length);
        EXPECT_EQ(drag.rightAligned, c.rightAligned);
    }
}

TEST(WaveformGeometry, ExtendingTheLoopKeepsItsAnchor) {
    struct Case {
        const char* name;
        LoopRange loop;
        qint64 anchor, current, frame;
        LoopRange after;
        qint64 anchorAfter;
    };
    const Case cases[] = {
        {"no loop, forwards", {}, 0, 1000, 5000, {1000, 4000}, 1000},
        {"no loop, backwards", {}, 0, 5000, 1000, {1000, 4000}, 5000},
        {"before the loop", {1000, 4000}, 1000, 3000, 500, {500, 500}, 1000},
        {"inside the loop", {1000, 4000}, 1000, 5000, 3000, {1000, 2000}, 1000},
        {"after the loop", {1000, 4000}, 1000, 3000, 9000, {1000, 8000}, 1000},
        {"inside, anchored at the end", {1000, 4000}, 5000, 1000, 2000, {2000, 3000}, 5000},
        // A loop set some other way: the end farther from the play position holds.
        {"set elsewhere, inside", {30000, 15000}, 0, 40000, 41000, {30000, 11000}, 30000},
        {"set elsewhere, after", {1000, 4000}, 9999, 4000, 9000, {1000, 8000}, 1000},
        {"set elsewhere, before", {1000, 4000}, 0, 2000, 500, {500, 4500}, 5000},
        // A second on from near the end stops at the end (100000 frames).
        {"no loop, past the end", {}, 0, 90000, 134100, {90000, 10000}, 90000},
        {"after the loop, past the end", {1000, 4000}, 1000, 3000, 134100, {1000, 99000}, 1000},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        qint64 anchor = c.anchor;
        const LoopRange after = extendLoopToNewFrame(c.loop, c.current, c.frame, 100000, anchor);
        EXPECT_EQ(after, c.after);
        EXPECT_EQ(anchor, c.anchorAfter);
    }
}

TEST(WaveformGeometry, LoopButtonStaysEightPointsInsideTheSong) {
    const QSizeF button(22, 22);
    struct Case {
        const char* name;
        QRectF loop;
        bool right;
        float songEnd;
        QPointF at;
    };
    const Case cases[] = {
        {"left-aligned at the first frame", {0, 40, 300, 140}, false, 5000, {8, 150}},
        {"right-aligned", {100, 40, 300, 140}, true, 5000, {370, 150}},
        {"right-aligned, loop too short: pushed right to 8",
         {0, 40, 20, 140},
         true,
         5000,
         {8, 150}},
        {"right-aligned at the song's end", {700, 40, 300, 140}, false, 1000, {708, 150}},
        {"ends 8 points before the song's end", {700, 40, 300, 140}, true, 1000, {970, 150}},
        {"left-aligned past the end limit", {995, 40, 5, 140}, false, 1000, {970, 150}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(loopButtonPosition(c.loop, button, c.right, c.songEnd), c.at);
    }
}

TEST(WaveformStripCache, RepaintsOnlyTheNewlyExposedStrip) {
    const QRect cached(0, 0, 100, 50);
    struct Case {
        const char* name;
        QRect cached, shown, dirty;
    };
    const Case cases[] = {
        {"invalid cache: everything", QRect(), cached, cached},
        {"unchanged: nothing", cached, cached, QRect()},
        {"scrolled right: the strip on the right", cached, QRect(10, 0, 100, 50),
         QRect(100, 0, 10, 50)},
        {"scrolled left: the strip on the left", cached, QRect(-7, 0, 100, 50),
         QRect(-7, 0, 7, 50)},
        {"no overlap: everything", cached, QRect(300, 0, 100, 50), QRect(300, 0, 100, 50)},
        {"resized: everything", cached, QRect(0, 0, 120, 50), QRect(0, 0, 120, 50)},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(WaveformStripCache::dirtyStrip(c.shown, c.cached), c.dirty);
    }

    // The picture kept moves with the scroll: column x of the song stays column x.
    WaveformStripCache cache;
    ASSERT_EQ(cache.prepare(cached, 1.0), cached);
    for (int x = 0; x < 100; ++x)
        for (int y = 0; y < 50; ++y)
            cache.image().setPixel(x, y, qRgb(x, y, 7));
    const QRect scrolled(10, 0, 100, 50);
    EXPECT_EQ(cache.prepare(scrolled, 1.0), QRect(100, 0, 10, 50));
    EXPECT_EQ(cache.image().pixel(0, 3), qRgb(10, 3, 7));
    EXPECT_EQ(cache.image().pixel(89, 49), qRgb(99, 49, 7));
    cache.invalidate();
    EXPECT_EQ(cache.prepare(scrolled, 1.0), scrolled);
}

TEST(PlayheadClock, ExtrapolatesBetweenReportsWithinTwoPeriods) {
    constexpr std::int64_t ms = 1000000;
    const PlayheadClock::HeardPosition forwards{1000.0, 1.0, 100 * ms, 441, 1};
    struct Case {
        const char* name;
        PlayheadClock::HeardPosition report;
        LoopRange loop;
        bool looping;
        std::int64_t at;
        double frame;
    };
    const Case cases[] = {
        {"at the report", forwards, {}, false, 100 * ms, 1000.0},
        {"5 ms later", forwards, {}, false, 105 * ms, 1220.5},
        {"a stall: at most two periods ahead", forwards, {}, false, 400 * ms, 1882.0},
        {"a time before the report", forwards, {}, false, 90 * ms, 1000.0},
        {"half speed", {1000.0, 0.5, 100 * ms, 441, 1}, {}, false, 110 * ms, 1220.5},
        {"backwards", {1000.0, -1.0, 100 * ms, 441, 1}, {}, false, 110 * ms, 559.0},
        {"wraps at the loop's end",
         {1400.0, 1.0, 100 * ms, 441, 1},
         {1000, 500},
         true,
         105 * ms,
         1120.5},
        {"no wrap when not looping",
         {1400.0, 1.0, 100 * ms, 441, 1},
         {1000, 500},
         false,
         105 * ms,
         1620.5},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        PlayheadClock clock;
        EXPECT_FALSE(clock.frameAt(c.at)) << "nothing before a report";
        clock.setLoop(c.loop, c.looping);
        clock.report(c.report);
        EXPECT_DOUBLE_EQ(*clock.frameAt(c.at), c.frame);
    }

    PlayheadClock clock;
    clock.report(forwards);
    clock.report({50000.0, 1.0, 101 * ms, 441, 2});
    EXPECT_DOUBLE_EQ(*clock.frameAt(101 * ms), 50000.0) << "a seek jumps";
    clock.report({1500.0, 1.0, 102 * ms, 441, 1});
    EXPECT_DOUBLE_EQ(*clock.frameAt(101 * ms), 50000.0) << "a report from before the seek";
}
