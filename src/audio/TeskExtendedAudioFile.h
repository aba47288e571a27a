#pragma once

#include "audio/DecodedFrames.h"
#include "audio/SongFileInfo.h"
#include "audio/dsp/AudioStreamDescription.h"
#include "diagnostics/TeskError.h"

#include <QString>
#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

namespace tesk {

class SongCache;
class SongDecoder;

/// An opened song, decoded once in the background into a cache at the engine format
/// (44100 Hz, stereo). Frames can be read as soon as they are decoded, from any thread, while
/// decoding goes on.
class TeskExtendedAudioFile : public DecodedFrames {
public:
    /// Opens `path` and starts decoding it in the background; returns once the file is
    /// recognised and its first sound decoded. On failure returns null and sets `*error` (when
    /// given) to a description that names the file and says why.
    /// Any thread but the device callback and the rendering thread.
    static std::unique_ptr<TeskExtendedAudioFile> openForPlayback(const QString& path,
                                                                  std::optional<TeskError>* error);

    /// Stops decoding (within a packet's work: the decoder checks between packets and FFmpeg
    /// inside its reads) and closes the cache.
    ~TeskExtendedAudioFile() override;

    TeskExtendedAudioFile(const TeskExtendedAudioFile&) = delete;
    TeskExtendedAudioFile& operator=(const TeskExtendedAudioFile&) = delete;

    /// Always the engine format. Any thread.
    AudioStreamDescription streamDescription() const {
        return AudioStreamDescription::engineFormat();
    }

    /// The song's length in engine frames: exact once decoding has gone as far as it can;
    /// before that (or after `stopDecoding`) the container's estimate, never less than what
    /// has been decoded. Any thread.
    qint64 frameCount() const override;
    /// Frames [0, n) can be read now. Any thread.
    qint64 decodedFrameCount() const override;
    /// Decoding has ended: finished, failed part-way, or stopped. Any thread.
    bool isDecodingFinished() const override {
        return mDecodingFinished.load(std::memory_order_acquire);
    }
    /// Waits on the decoder's "frames decoded" signal. Any thread but the device callback and the
    /// rendering thread.
    bool waitForDecodedFrames(qint64 end, std::chrono::milliseconds timeout) const override;
    /// Blocks until decoding has ended. For tests and export; never on the main or audio
    /// thread.
    void waitUntilDecoded() const;
    /// Stops decoding and waits for the decoder to let go; what was decoded stays readable.
    /// Any thread.
    void stopDecoding();
    /// Why the song ends early or has gaps (a truncated or damaged file plays what could be
    /// decoded); empty otherwise. Any thread.
    std::optional<TeskError> decodingError() const;
    /// The decoding error when decoding stopped for want of room on the disk for the sound: the
    /// song is then cut short by the machine, not by its file, and an export or a document made
    /// of it would pass for the whole song. Empty otherwise. Any thread.
    std::optional<TeskError> noRoomError() const;

    /// Copies up to `count` decoded frames from `start` into `left` and `right`; returns how
    /// many: fewer at the decoded frontier, 0 beyond it or for a negative `start`.
    /// Any thread but the device callback and the rendering thread (it reads a file). Thread-safe.
    qint64 readFrames(qint64 start, qint64 count, float* left, float* right) const override;

    /// What the file says about itself, with `frameCount` as above. Any thread.
    SongFileInfo info() const;
    QString path() const { return mPath; }

private:
    TeskExtendedAudioFile(QString path, const SongFileInfo& info, std::unique_ptr<SongCache> cache);
    void decode(std::unique_ptr<SongDecoder> decoder);

    const QString mPath;
    const SongFileInfo mInfo;
    const std::unique_ptr<SongCache> mCache;
    std::atomic<bool> mStopRequested{false};
    std::atomic<bool> mDecodingFinished{false};
    /// Set with mDecodingFinished when decoding went to the end rather than being stopped.
    std::atomic<bool> mLengthKnown{false};

    mutable std::mutex mMutex;
    mutable std::condition_variable mFinishedCondition;
    std::optional<TeskError> mDecodingError;
    std::mutex mJoinMutex;
    std::thread mDecoderThread;
};

} // namespace tesk
