#pragma once

#include "audio/EngineConstants.h"
#include "audio/SongMetadata.h"
#include "diagnostics/TeskError.h"

#include <QString>
#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

struct AVAudioFifo;
struct AVCodecContext;
struct AVFormatContext;
struct AVFrame;
struct AVPacket;
struct AVStream;

namespace tesk {

/// The kinds of file an export can write.
enum class ExportFormat {
    /// AIFF: 16-bit big-endian PCM, stereo, 44100 Hz. Samples are rounded to the nearest
    /// 16-bit value and clipped, without dither. Tags and cover in an ID3 chunk (plus the
    /// title in a NAME chunk, which FFmpeg writes for every AIFF).
    Aiff,
    /// MPEG-4 audio (brand "M4A "): AAC from FFmpeg's own encoder at its default bit rate,
    /// stereo, 44100 Hz. Tags and cover as iTunes-style metadata. The encoder's delay and the
    /// exact length are recorded in the edit list, in samples.
    M4a,
};

inline const QString AudioExportErrorDomain = QStringLiteral("TeskAudioExportErrorDomain");
/// The path of the file being written, in the user information of every export error.
inline const QString AudioExportPathKey = QStringLiteral("NSFilePath");
/// FFmpeg's or the system's own account of the failure, for logs; not shown to the user.
inline const QString AudioExportDetailKey = QStringLiteral("TeskAudioExportDetail");

enum class AudioExportErrorCode : qint64 {
    /// The file couldn't be created: no such folder, no permission, a read-only disk.
    CannotCreate = 1,
    /// Writing failed part-way: an I/O error, a disk that went away.
    CannotWrite,
    DiskFull,
    /// The encoder or the container refused the sound.
    EncodingFailed,
    /// finish() came before any frame: no file is made of no sound.
    NothingWritten,
    /// cancel() was called; the partial file is gone.
    Cancelled,
};

/// An export error of `code` about the file at `path`, which its description names; `detail`
/// (FFmpeg's or the system's account, when there is one) goes under AudioExportDetailKey.
TeskError audioExportError(AudioExportErrorCode code, const QString& path,
                           const QString& detail = {});

/// Writes Tesk's rendered sound (44100 Hz, stereo, 32-bit float, non-interleaved) to an AIFF
/// or M4A file at exactly the path given, with FFmpeg.
///
/// Encoding and writing run on the writer's own thread, fed through a bounded queue of slices
/// allocated at creation: write() only copies a slice and returns, so the export thread goes on
/// rendering on one core while the other encodes.
///
/// Errors are returned, never thrown: a call that fails returns false (or null) and, when
/// `error` isn't null, stores an error of AudioExportErrorDomain whose description names the
/// file. A failure on the writer's thread (full disk, I/O error, encoder error) is reported by
/// the next write() or by finish(). The export thread raises it as an NSXError if it wants to.
///
/// After a failure, or once cancelled, the writer has deleted its partial file (only ever a
/// regular file: a device given as the path is left alone) and every later write() or finish()
/// returns false.
///
/// create(), write() and finish() are for the export thread (any thread but the device callback and
/// the rendering thread, one at a time); cancel() and framesWritten() for any thread.
class TeskAudioFileWriter {
public:
    static constexpr int kSampleRate = engine::kSampleRate;
    static constexpr int kChannelCount = 2;
    /// The most frames one queue slot holds; longer writes fill several slots.
    static constexpr std::uint32_t kSliceFrames = 4096;
    /// Queue slots: about half a second of sound, enough to ride out a slow disk write.
    static constexpr std::size_t kSliceCount = 6;

    /// The format for a path extension, compared exactly: "aif" and "m4a" only ("aiff", "AIF"
    /// and everything else give nullopt).
    static std::optional<ExportFormat> formatForExtension(const QString& extension);

    /// Creates (or replaces) the file at `path`, writes its header, tags and cover, and starts
    /// the writer's thread. A cover that is neither JPEG nor PNG (judged by its bytes, not by
    /// its MIME type) or that doesn't decode is left out. On failure returns null, sets `error`
    /// and leaves no file behind.
    static std::unique_ptr<TeskAudioFileWriter> create(const QString& path, ExportFormat format,
                                                       const SongMetadata& metadata,
                                                       std::optional<TeskError>* error);

    /// Cancels (deleting the partial file) unless finish() succeeded.
    ~TeskAudioFileWriter();

    TeskAudioFileWriter(const TeskAudioFileWriter&) = delete;
    TeskAudioFileWriter& operator=(const TeskAudioFileWriter&) = delete;

    /// Queues `frameCount` frames of the two channels for writing. Blocks only while the queue
    /// is full. Never allocates. Returns false when an earlier failure or a cancel ended the
    /// export. Export thread; not after finish().
    bool write(const float* left, const float* right, std::uint32_t frameCount,
               std::optional<TeskError>* error);

    /// Writes what is queued, flushes the encoder, completes and closes the file. Fails with
    /// NothingWritten, leaving no file, when no frame was written. A second call gives the
    /// same answer. Export thread.
    bool finish(std::optional<TeskError>* error);

    /// Stops the export and deletes the partial file; a write() blocked on the full queue
    /// returns false. Does nothing after a successful finish(): the file is complete and the
    /// caller's. Any thread.
    void cancel();

    /// The frames accepted by write() so far. Any thread.
    std::int64_t framesWritten() const { return mFramesWritten.load(std::memory_order_relaxed); }

private:
    struct Slice {
        std::vector<float> left;
        std::vector<float> right;
        std::uint32_t frames = 0;
    };

    TeskAudioFileWriter(const QString& path, ExportFormat format);

    std::optional<TeskError> open(const SongMetadata& metadata);
    void run();
    std::optional<TeskError> encodeSlice(const Slice& slice);
    std::optional<TeskError> encodeFromFifo(int frameCount);
    std::optional<TeskError> sendToEncoder(const AVFrame* frame);
    std::optional<TeskError> complete();
    /// Waits for the writer's thread, closes the file and deletes it unless it is complete.
    /// Caller holds mLifecycleMutex.
    void end();
    TeskError failure(AudioExportErrorCode code, int status = 0) const;

    const QString mPath;
    const ExportFormat mFormat;

    // FFmpeg's side: set up by create(), then used by the writer's thread alone.
    AVFormatContext* mOutput = nullptr;
    AVCodecContext* mEncoder = nullptr;
    AVStream* mAudioStream = nullptr;
    AVFrame* mFrame = nullptr;
    AVPacket* mPacket = nullptr;
    AVAudioFifo* mFifo = nullptr;
    std::int64_t mNextPts = 0;
    bool mFileCreated = false;
    bool mTrailerWritten = false;

    // The queue: slots [mFirstFilled, mFirstFilled + mFilledCount) (modulo kSliceCount) wait
    // for the writer's thread, the rest are free. Only the export thread fills and only the
    // writer's thread empties, so a slot is copied into or encoded outside the lock.
    std::vector<Slice> mSlices;
    std::size_t mFirstFilled = 0;
    std::size_t mFilledCount = 0;
    bool mFinishing = false;
    bool mCancelled = false;
    std::optional<TeskError> mFailure;
    std::mutex mMutex;
    std::condition_variable mSliceFilled;
    std::condition_variable mSliceFreed;
    std::thread mThread;

    // Serialises finish(), cancel() and the destructor, which may race from two threads.
    std::mutex mLifecycleMutex;
    bool mEnded = false;
    bool mComplete = false;

    std::atomic<std::int64_t> mFramesWritten{0};
};

} // namespace tesk
