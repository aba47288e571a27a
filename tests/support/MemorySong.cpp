#include "support/MemorySong.h"

#include "support/Signals.h"

#include <algorithm>

namespace tesk::test {

MemorySong::MemorySong(std::vector<float> left, std::vector<float> right)
    : mLeft(std::move(left))
    , mRight(std::move(right))
    , mDecoded(qint64(mLeft.size())) {}

std::shared_ptr<MemorySong> MemorySong::counting(qint64 frames) {
    std::vector<float> left(static_cast<std::size_t>(frames));
    std::vector<float> right(static_cast<std::size_t>(frames));
    for (qint64 i = 0; i < frames; ++i) {
        left[std::size_t(i)] = float(i);
        right[std::size_t(i)] = -float(i);
    }
    return std::make_shared<MemorySong>(std::move(left), std::move(right));
}

std::shared_ptr<MemorySong> MemorySong::sine(qint64 frames, double frequency, double amplitude) {
    auto samples = test::sine(frequency, amplitude, std::size_t(frames));
    return std::make_shared<MemorySong>(samples, samples);
}

qint64 MemorySong::readFrames(qint64 start, qint64 count, float* left, float* right) const {
    const qint64 end = std::min(start + count, decodedFrameCount());
    if (start < 0 || start >= end)
        return 0;
    std::copy(mLeft.begin() + start, mLeft.begin() + end, left);
    std::copy(mRight.begin() + start, mRight.begin() + end, right);
    return end - start;
}

} // namespace tesk::test
