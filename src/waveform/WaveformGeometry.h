#pragma once

#include "audio/TeskAudioFileReader.h"

#include <QRectF>
#include <QString>
#include <QtGlobal>
#include <algorithm>
#include <optional>

namespace tesk {

/// How the waveform view maps frames to points and which frames it shows: the zoom scale, the
/// visible start point, the scroll limits and the commands that move the view. Plain values, so
/// every rule can be checked without a widget. Points are "song points": x from the song's start
/// at the current zoom; the view shifts them on screen by `visibleStartPoint`.
///
/// Main thread (it is part of the view), but holds no Qt object.
struct WaveformGeometry {
    static constexpr double kSamplesPerBin = 50.0;
    /// The view always counts 44100 frames a second, whatever the song's rate.
    static constexpr qint64 kFramesPerSecond = 44100;

    qint64 frameCount = 0;
    /// The view's width in points.
    double width = 0.0;
    double zoomLevel = 1.0;
    double maximumZoomLevel = 10.0;
    /// The frame at the view's horizontal centre.
    qint64 startFrame = 0;

    /// rint(samplesPerBin × ((1 − zoom) × maximumZoom + 1)).
    double framesPerPoint() const;
    /// floor(point × framesPerPoint), raised to 0.
    qint64 sampleFromPoint(double point) const;
    float pointFromSample(qint64 frame) const;

    /// max(frameCount ÷ (width × samplesPerBin) − 1, 0): at zoom 0 the song spans the width.
    void updateMaximumZoomLevel();
    /// The song point at the view's left edge (negative for a song shorter than the view).
    float visibleStartPoint() const;
    double visibleProportion() const;
    /// The range allowed for `startFrame`; the minimum can exceed the maximum for a short song.
    qint64 visibleMinimum() const;
    qint64 visibleMaximum() const;
    /// Raised to the minimum, then lowered to the maximum (which so wins).
    qint64 clampedStartFrame(qint64 frame) const;

    /// 0 … 1 between the limits; 0 without a song. Setting does not clamp.
    double scrollPosition() const;
    void setScrollPosition(double position);

    /// The spacing of the ruler's ticks: the first of 0.1, 1, 2, 6 and 12 s at least 10 points
    /// wide.
    qint64 idealSampleStep() const;
    /// The zoom at which `loopLength` frames fill the width less 40 points (bounded above by 1
    /// only).
    double loopZoomLevel(qint64 loopLength) const;

    /// Half a view to the left / right, clamped to the limits.
    qint64 pageLeftStartFrame() const;
    qint64 pageRightStartFrame() const;

    /// The loop's band in song points: x floor(point of location), width ceil(point of length).
    QRectF loopRect(LoopRange loop, double top, double height) const;
};

/// The ruler's label of a frame, "mm:ss" at 44100 frames a second whatever the song's rate;
/// minutes are not wrapped into hours.
QString rulerLabel(qint64 frame);

/// A cursor a click put right of the centre eases back to it by 10 points an update at 20
/// updates a second; the play head moves at the screen's rate, so an update eases by its share
/// of those 200 points a second, and never by more than 10 points after a longer wait.
constexpr double kEasePointsPerUpdate = 10.0;
constexpr double kEasePointsPerSecond = 200.0;
constexpr double easePointsForUpdate(double secondsSincePreviousUpdate) {
    return std::clamp(kEasePointsPerSecond * secondsSincePreviousUpdate, 0.0, kEasePointsPerUpdate);
}

/// What the follow rule needs besides the geometry.
struct FollowState {
    qint64 currentFrame = 0;
    LoopRange loop;
    bool scrollerDragging = false;
    /// Frames right of the centre the cursor is still kept at; eased towards 0 by each update.
    qint64 returnAdjustFramesCount = 0;
    /// How many points this update eases it by (see `easePointsForUpdate`).
    double easePoints = kEasePointsPerUpdate;
};

/// The follow rule during playback: the new start frame, or nothing when the view stays.
/// Lowers `state.returnAdjustFramesCount` when the view scrolls with the cursor.
std::optional<qint64> followPlayPosition(const WaveformGeometry& geometry, FollowState& state);

/// The loop after a drag from `startPoint` to `endPoint` (song points) of a loop that was
/// `startRange` at the press: drawn anew, shifted or one edge resized (flipping over the other
/// edge), cut at the song's end. `rightAligned` says where the loop button goes for a new loop.
struct LoopDrag {
    LoopRange range;
    std::optional<bool> rightAligned;
};
LoopDrag loopRangeForStartPoint(const WaveformGeometry& geometry, double startPoint,
                                double endPoint, LoopRange startRange, bool isResizing,
                                bool isResizingLeft, bool isShifting);

/// The loop when the play position moves to `frame` with Shift held, ending at the song's end
/// at the latest; `anchor` is the loop's fixed end, set here when there was no loop or it is
/// neither of the loop's ends.
LoopRange extendLoopToNewFrame(LoopRange loop, qint64 currentFrame, qint64 frame, qint64 frameCount,
                               qint64& anchor);

/// The play button's top-left, in song points, for a loop band `visibleLoopRect` and a button
/// `buttonSize`; kept 8 points inside the song, in single precision.
QPointF loopButtonPosition(const QRectF& visibleLoopRect, QSizeF buttonSize, bool rightAligned,
                           float songEndPoint);

} // namespace tesk
