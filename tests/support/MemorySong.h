#pragma once

#include "audio/DecodedFrames.h"

#include <atomic>
#include <memory>
#include <vector>

namespace tesk::test {

/// A song held in memory, whose decoding can be made to lag behind, for tests of what reads
/// songs.
class MemorySong : public DecodedFrames {
public:
    MemorySong(std::vector<float> left, std::vector<float> right);

    /// Frame i is i on the left and -i on the right: every frame says where it came from.
    static std::shared_ptr<MemorySong> counting(qint64 frames);
    /// The same sine on both channels.
    static std::shared_ptr<MemorySong> sine(qint64 frames, double frequency, double amplitude);

    /// Pretends decoding has only reached `frames` so far.
    void decodeOnlyUpTo(qint64 frames) {
        mFinished = false;
        mDecoded = frames;
    }
    void finishDecoding() {
        mDecoded = qint64(mLeft.size());
        mFinished = true;
    }
    /// Until decoding finishes, the length is only guessed: `frames`.
    void guessLength(qint64 frames) { mGuessedLength = frames; }

    qint64 frameCount() const override {
        return mFinished || mGuessedLength < 0 ? qint64(mLeft.size()) : mGuessedLength.load();
    }
    qint64 decodedFrameCount() const override { return mDecoded; }
    bool isDecodingFinished() const override { return mFinished; }
    qint64 readFrames(qint64 start, qint64 count, float* left, float* right) const override;

private:
    std::vector<float> mLeft;
    std::vector<float> mRight;
    std::atomic<qint64> mDecoded;
    std::atomic<bool> mFinished{true};
    std::atomic<qint64> mGuessedLength{-1};
};

} // namespace tesk::test
