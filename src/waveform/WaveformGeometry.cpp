#include "waveform/WaveformGeometry.h"

#include <algorithm>
#include <cmath>

namespace tesk {

double WaveformGeometry::framesPerPoint() const {
    return std::rint(kSamplesPerBin * ((1.0 - zoomLevel) * maximumZoomLevel + 1.0));
}

qint64 WaveformGeometry::sampleFromPoint(double point) const {
    const double frame = std::floor(point * framesPerPoint());
    return frame > 0.0 ? qint64(frame) : 0;
}

float WaveformGeometry::pointFromSample(qint64 frame) const {
    return float(double(frame) / framesPerPoint());
}

void WaveformGeometry::updateMaximumZoomLevel() {
    maximumZoomLevel =
        width > 0.0 ? std::max(double(frameCount) / (width * kSamplesPerBin) - 1.0, 0.0) : 0.0;
}

float WaveformGeometry::visibleStartPoint() const {
    const float p = std::floor(pointFromSample(startFrame)) - std::floor(float(width) / 2.0f);
    if (!(p >= 0.0f))
        return 0.0f;
    const float limit = std::floor(pointFromSample(frameCount)) - std::floor(float(width));
    return p > limit ? limit : p;
}

double WaveformGeometry::visibleProportion() const {
    return frameCount > 0 ? double(sampleFromPoint(width)) / double(frameCount) : 0.0;
}

qint64 WaveformGeometry::visibleMinimum() const {
    return sampleFromPoint(width * 0.5);
}

qint64 WaveformGeometry::visibleMaximum() const {
    return frameCount - sampleFromPoint(width * 0.5);
}

qint64 WaveformGeometry::clampedStartFrame(qint64 frame) const {
    return std::min(std::max(frame, visibleMinimum()), visibleMaximum());
}

double WaveformGeometry::scrollPosition() const {
    if (frameCount <= 0)
        return 0.0;
    return double(startFrame - visibleMinimum()) / double(visibleMaximum() - visibleMinimum());
}

void WaveformGeometry::setScrollPosition(double position) {
    startFrame = visibleMinimum() +
                 qint64(std::trunc(double(visibleMaximum() - visibleMinimum()) * position));
}

qint64 WaveformGeometry::idealSampleStep() const {
    for (const qint64 step : {4410, 44100, 88200, 264600, 529200}) {
        if (pointFromSample(step) >= 10.0f)
            return step;
    }
    return 529200;
}

double WaveformGeometry::loopZoomLevel(qint64 loopLength) const {
    // A song that fits the view at full zoom shows 50 frames a point at every level: any level
    // fits, and dividing by its maximum of 0 would give an infinite one.
    if (maximumZoomLevel <= 0.0)
        return 1.0;
    const double ratio = double(loopLength) / ((width - 40.0) * kSamplesPerBin);
    return std::min(1.0, (1.0 - ratio) / maximumZoomLevel + 1.0);
}

qint64 WaveformGeometry::pageLeftStartFrame() const {
    const qint64 half = sampleFromPoint(width * 0.5);
    return clampedStartFrame(std::min(startFrame, visibleMaximum()) - half);
}

qint64 WaveformGeometry::pageRightStartFrame() const {
    const qint64 half = sampleFromPoint(width * 0.5);
    return clampedStartFrame(std::max(startFrame, visibleMinimum()) + half);
}

QRectF WaveformGeometry::loopRect(LoopRange loop, double top, double height) const {
    return {std::floor(pointFromSample(loop.location)), top + 1.0,
            std::ceil(pointFromSample(loop.length)), height - 2.0};
}

QString rulerLabel(qint64 frame) {
    const qint64 seconds = frame / WaveformGeometry::kFramesPerSecond;
    const qint64 minutes = seconds / 60;
    return QString::asprintf("%02lld:%02lld", minutes, seconds - 60 * minutes);
}

std::optional<qint64> followPlayPosition(const WaveformGeometry& geometry, FollowState& state) {
    if (state.scrollerDragging)
        return std::nullopt;
    const float cursor = std::floor(geometry.pointFromSample(state.currentFrame));
    const float left = geometry.visibleStartPoint();
    const float right = left + float(geometry.width);
    const float middle = std::floor(left + (right - left) * 0.5f);
    const bool cursorInside = left < cursor && cursor < right;
    const QRectF loop = geometry.loopRect(state.loop, 0.0, 2.0);
    const bool loopInside = left < loop.left() && loop.right() < right;
    if (state.loop.length != 0 && cursorInside && loopInside)
        return std::nullopt;
    if (!cursorInside)
        return state.currentFrame;
    if (cursor < middle)
        return std::nullopt;
    const qint64 start = state.currentFrame - state.returnAdjustFramesCount;
    state.returnAdjustFramesCount = std::max<qint64>(
        0, state.returnAdjustFramesCount - geometry.sampleFromPoint(state.easePoints));
    return start;
}

LoopDrag loopRangeForStartPoint(const WaveformGeometry& geometry, double startPoint,
                                double endPoint, LoopRange startRange, bool isResizing,
                                bool isResizingLeft, bool isShifting) {
    const qint64 total = geometry.frameCount;
    const qint64 start = geometry.sampleFromPoint(startPoint);
    const qint64 end = geometry.sampleFromPoint(endPoint);
    // An edge follows the pointer past the song's start, where the pointer's frame stops at 0,
    // so that it reaches frame 0 wherever on the edge it was taken; the edge, not the pointer,
    // is then held inside the song.
    const auto unclampedFrame = [&](double point) {
        return qint64(std::floor(point * geometry.framesPerPoint()));
    };
    const qint64 delta = unclampedFrame(endPoint) - unclampedFrame(startPoint);
    const qint64 oldLocation = startRange.location;
    const qint64 oldLength = startRange.length;
    qint64 location = 0;
    qint64 length = 0;
    std::optional<bool> rightAligned;
    if (isShifting) {
        location = std::max<qint64>(0, oldLocation + delta);
        location = std::min(location, total - oldLength);
        length = oldLength;
    } else if (isResizing && !isResizingLeft) {
        if (oldLength + delta < 0) {
            location = oldLocation + oldLength + delta;
            length = oldLocation - location;
        } else {
            location = oldLocation;
            length = oldLength + delta;
        }
    } else if (isResizing) {
        if (oldLength < delta) {
            location = oldLocation + oldLength;
            length = delta - oldLength;
        } else {
            location = oldLocation + delta;
            length = oldLength - delta;
        }
    } else {
        rightAligned = startPoint <= endPoint;
        location = std::min(start, end);
        length = std::max(start, end) - location;
    }
    // The edge that moved stops at the song's start or end; the other stays where it was.
    const qint64 loopEnd = std::clamp<qint64>(location + length, 0, total);
    location = std::clamp<qint64>(location, 0, loopEnd);
    length = loopEnd - location;
    return {LoopRange{std::uint32_t(location), std::uint32_t(length)}, rightAligned};
}

LoopRange extendLoopToNewFrame(LoopRange loop, qint64 currentFrame, qint64 frame, qint64 frameCount,
                               qint64& anchor) {
    qint64 from = 0;
    qint64 to = 0;
    const qint64 start = loop.location;
    const qint64 end = start + loop.length;
    // A loop set some other way (opened, undone, resized, selected whole) has no anchor of its
    // own yet: the end farther from the play position stays put.
    if (loop.length != 0 && anchor != start && anchor != end)
        anchor = std::abs(currentFrame - start) > std::abs(currentFrame - end) ? start : end;
    if (loop.length == 0) {
        from = std::min(currentFrame, frame);
        to = std::max(currentFrame, frame);
        anchor = currentFrame;
    } else if (frame < qint64(loop.location)) {
        from = frame;
        to = anchor;
    } else if (frame <= qint64(loop.location) + qint64(loop.length)) {
        from = std::min(frame, anchor);
        to = std::max(frame, anchor);
    } else {
        from = anchor;
        to = frame;
    }
    from = std::max<qint64>(0, from);
    to = std::min(to, frameCount);
    return LoopRange{std::uint32_t(from), std::uint32_t(std::max<qint64>(0, to - from))};
}

QPointF loopButtonPosition(const QRectF& visibleLoopRect, QSizeF buttonSize, bool rightAligned,
                           float songEndPoint) {
    const float w = float(buttonSize.width());
    const float h = float(buttonSize.height());
    const float y = float(visibleLoopRect.bottom()) - h - 8.0f;
    float x = rightAligned ? float(visibleLoopRect.right()) - w - 8.0f
                           : float(visibleLoopRect.left()) + 8.0f;
    x = x < 8.0f ? 8.0f : std::min(songEndPoint - 8.0f - w, x);
    return {x, y};
}

} // namespace tesk
