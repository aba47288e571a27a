#pragma once

#include "audio/DecodedFrames.h"

#include <algorithm>
#include <memory>

namespace tesk {

/// Frames [first, end) of a song, seen as a song of their own, so that the player plays just
/// that part and reports the end of the file exactly where the part ends, in either direction
/// (a loop range would wrap instead, and watching the position overshoots by a poll).
/// Any thread, as the song it reads.
class SongPart final : public DecodedFrames {
public:
    SongPart(std::shared_ptr<const DecodedFrames> song, qint64 first, qint64 end)
        : mSong(std::move(song))
        , mFirst(first)
        , mEnd(std::max(first, end)) {}

    qint64 frameCount() const override {
        return std::clamp(mSong->frameCount(), mFirst, mEnd) - mFirst;
    }
    qint64 decodedFrameCount() const override {
        return std::clamp(mSong->decodedFrameCount(), mFirst, mEnd) - mFirst;
    }
    /// The part is whole once the decoder has passed its end, long before the song is.
    bool isDecodingFinished() const override {
        return mSong->isDecodingFinished() || mSong->decodedFrameCount() >= mEnd;
    }
    bool waitForDecodedFrames(qint64 end, std::chrono::milliseconds timeout) const override {
        return mSong->waitForDecodedFrames(std::min(mFirst + end, mEnd), timeout);
    }
    qint64 readFrames(qint64 start, qint64 count, float* left, float* right) const override {
        count = std::min(count, mEnd - mFirst - start);
        if (start < 0 || count <= 0)
            return 0;
        return mSong->readFrames(mFirst + start, count, left, right);
    }

private:
    const std::shared_ptr<const DecodedFrames> mSong;
    const qint64 mFirst;
    const qint64 mEnd;
};

} // namespace tesk
