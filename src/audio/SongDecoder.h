#pragma once

#include "audio/SongFileInfo.h"
#include "diagnostics/TeskError.h"

#include <QString>
#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

struct AVCodecContext;
struct AVFormatContext;
struct AVFrame;
struct AVIOContext;
struct AVPacket;
struct SwrContext;

namespace tesk {

class SongCache;

/// How a decoding run ended.
struct SongDecodingOutcome {
    /// Decoding went as far as it could: the end of the song, or the point where the file
    /// could no longer be read or the disk filled up. False when it was stopped on request.
    bool finished = false;
    /// Why part of the song is missing, when it is.
    std::optional<TeskError> error;
};

/// Turns one song file into engine frames with FFmpeg: recognises the format by content,
/// decodes the first sound track in file order, removes the encoder's delay and padding,
/// doubles mono, mixes more channels down to stereo, converts other rates to 44100 Hz, and
/// appends the result to a SongCache as 16-bit stereo.
/// Opened on any thread, then used by one thread at a time.
class SongDecoder {
public:
    /// Opens and probes `path` and decodes its first sound, so that a file without any fails
    /// here. On failure returns null and sets `error`.
    static std::unique_ptr<SongDecoder> open(const QString& path, std::optional<TeskError>* error);
    ~SongDecoder();

    SongDecoder(const SongDecoder&) = delete;
    SongDecoder& operator=(const SongDecoder&) = delete;

    /// What the container says; `frameCount` is its estimate.
    const SongFileInfo& info() const { return mInfo; }

    /// Decodes the whole song into `cache`; frames become readable there as they are final.
    /// Returns at the end of the song, when the file can't be read further, or soon after
    /// `stop` becomes true (checked between packets, and by FFmpeg inside its reads). Call
    /// once.
    SongDecodingOutcome decodeInto(SongCache& cache, const std::atomic<bool>& stop);

private:
    /// One stretch of the song with a single source format (almost always the whole song).
    struct Segment {
        int format = -1;
        int sampleRate = 0;
        int channels = 0;
        std::uint64_t channelMask = 0;
        /// Float planar or packed, mono or stereo, already at 44100 Hz: no converter needed.
        bool direct = false;
        SwrContext* converter = nullptr;
        qint64 sourceFrames = 0;
        /// Source frames past this are encoder padding, not sound.
        qint64 sourceLimit = 0;
        qint64 firstEngineFrame = 0;
    };

    SongDecoder() = default;
    static int interrupted(void* decoder);

    bool openFile(const QString& path, std::optional<TeskError>* error);
    /// 0 with a frame in mFrame, AVERROR_EOF at the end, AVERROR_EXIT when stopped.
    int receiveFrame();
    bool startSegment(const AVFrame& frame);
    void finishSegment();
    void convert(const AVFrame& frame, int frameCount);
    void appendFloat(const float* interleaved, qint64 frameCount);
    qint64 finalFrameEnd() const;
    /// Moves final frames to the cache once there are `minimumFrames` of them; every pending
    /// frame when `everything` (the end of the song).
    bool flush(qint64 minimumFrames, bool everything = false);
    qint64 pendingEnd() const { return mFlushedFrames + qint64(mPending.size() / 2); }

    QString mPath;
    SongFileInfo mInfo;
    AVIOContext* mIO = nullptr;
    AVFormatContext* mFormat = nullptr;
    AVCodecContext* mCodec = nullptr;
    AVPacket* mPacket = nullptr;
    AVFrame* mFrame = nullptr;
    int mStreamIndex = -1;
    bool mFrameReady = false;
    bool mDraining = false;
    const std::atomic<bool>* mStop = nullptr;

    /// How many source frames the container says the sound lasts, when it says so itself
    /// rather than guessing from the bit rate; -1 otherwise.
    qint64 mDeclaredFrames = -1;
    /// How many bytes shorter the file is than its header says.
    qint64 mMissingBytes = 0;
    int mDamagedPackets = 0;
    int mReadError = 0;

    Segment mSegment;
    bool mFirstSegment = true;
    std::vector<float> mFloat;
    /// Converted frames not yet in the cache, starting at engine frame mFlushedFrames.
    std::vector<std::int16_t> mPending;
    qint64 mFlushedFrames = 0;
    SongCache* mCache = nullptr;
    QString mWriteFailure;
};

} // namespace tesk
