// The drawing operations of `Waveform`: the scale between frames and view points, and the
// outline of the peaks under a view rect.
#include "waveform/Waveform.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace tesk {

double Waveform::framesPerPoint(double maximumZoom, double zoom) const {
    return std::rint(double(mSamplesPerBin) * ((1.0 - zoom) * maximumZoom + 1.0));
}

qint64 Waveform::sampleFromPoint(float point, double maximumZoom, double zoom) const {
    const double frame = std::floor(double(point) * framesPerPoint(maximumZoom, zoom));
    // Far-off points (or a scale of 0 from a zoom out of range) must not overflow the cast.
    constexpr double kLimit = double(std::numeric_limits<qint32>::max());
    if (std::isnan(frame))
        return 0;
    return qint64(std::clamp(frame, -kLimit, kLimit));
}

float Waveform::pointFromSample(qint64 frame, double maximumZoom, double zoom) const {
    return float(double(frame) / framesPerPoint(maximumZoom, zoom));
}

qsizetype Waveform::blockIndexForPoint(float point, double maximumZoom, double zoom) const {
    const qint64 frame = sampleFromPoint(point, maximumZoom, zoom);
    // Blocks are contiguous and in order, so the only candidate is the last one starting at or
    // before the frame.
    const auto after = std::upper_bound(
        mWaveformBlocks.begin(), mWaveformBlocks.end(), frame,
        [](qint64 frame, const WaveformBlock& block) { return frame < block.startFrame(); });
    if (after == mWaveformBlocks.begin())
        return NSNotFound;
    const WaveformBlock& block = *(after - 1);
    if (frame >= block.startFrame() + block.frameCount())
        return NSNotFound;
    return qsizetype(after - mWaveformBlocks.begin()) - 1;
}

const WaveformPointBuffer& Waveform::thinnedPoints(std::size_t index, std::uint32_t skip) const {
    if (skip != mThinnedSkip) {
        mThinnedPoints.clear();
        mThinnedSkip = skip;
    }
    if (mThinnedPoints.size() < mWaveformBlocks.size())
        mThinnedPoints.resize(mWaveformBlocks.size());
    std::shared_ptr<const WaveformPointBuffer>& thinned = mThinnedPoints[index];
    if (!thinned)
        thinned = mWaveformBlocks[index].pointBufferWithSkip(skip);
    return *thinned;
}

std::optional<QPainterPath> Waveform::createPathForRect(const QRectF& rect, double maximumZoom,
                                                        double zoom) const {
    const QRectF bounds = rect.normalized();
    const qsizetype first = blockIndexForPoint(float(bounds.left()), maximumZoom, zoom);
    if (first == NSNotFound)
        return std::nullopt;
    qsizetype last = blockIndexForPoint(float(bounds.right()), maximumZoom, zoom);
    if (last == NSNotFound)
        last = qsizetype(mWaveformBlocks.size()) - 1;

    const WaveformBlock& firstBlock = mWaveformBlocks[std::size_t(first)];
    const WaveformBlock& lastBlock = mWaveformBlocks[std::size_t(last)];
    const qint64 startFrame = firstBlock.startFrame();
    const qint64 endFrame = lastBlock.startFrame() + lastBlock.frameCount() - 1;
    const float x0 = pointFromSample(startFrame, maximumZoom, zoom);
    const float x1 = pointFromSample(endFrame, maximumZoom, zoom);

    // The bins that fall in one point, so the outline has about one vertex per point whatever
    // the zoom.
    const double binsPerPoint =
        double((endFrame + 1 - startFrame) / qint64(mSamplesPerBin)) / double(x1 - x0);
    std::uint32_t skip = 1;
    if (binsPerPoint >= 2.0)
        skip = binsPerPoint < double(std::numeric_limits<std::uint32_t>::max())
                   ? std::uint32_t(binsPerPoint)
                   : std::numeric_limits<std::uint32_t>::max();

    std::size_t pointCount = 0;
    for (qsizetype index = first; index <= last; ++index)
        pointCount += mWaveformBlocks[std::size_t(index)].pointBuffer()->size() / skip + 1;
    WaveformPointBuffer points;
    points.reserve(pointCount);
    for (qsizetype index = first; index <= last; ++index) {
        const WaveformPointBuffer& thinned = thinnedPoints(std::size_t(index), skip);
        points.insert(points.end(), thinned.begin(), thinned.end());
    }

    const auto viewX = [&](qint64 frame) { return pointFromSample(frame, maximumZoom, zoom); };
    QPainterPath path;
    path.reserve(int(points.size()) + 2);
    // From the base line and back to it, so that the view can fill the outline.
    path.moveTo(viewX(startFrame), 0.0);
    for (const WaveformPoint& point : points)
        path.lineTo(viewX(qint64(point.x)), point.y);
    path.lineTo(viewX(endFrame), 0.0);
    return path;
}

} // namespace tesk
