#include "audio/TeskExtendedAudioFile.h"

#include "audio/FfmpegSetup.h"

#include "audio/SongCache.h"
#include "audio/SongDecoder.h"
#include "audio/SongFileError.h"
#include "audio/dsp/VectorUnit.h"

#include <algorithm>
#include <pthread.h>

namespace tesk {

std::unique_ptr<TeskExtendedAudioFile>
TeskExtendedAudioFile::openForPlayback(const QString& path, std::optional<TeskError>* error) {
    setUpFfmpeg();
    std::optional<TeskError> failure;
    std::unique_ptr<SongDecoder> decoder = SongDecoder::open(path, &failure);
    std::unique_ptr<SongCache> cache;
    if (decoder) {
        QString reason;
        cache = SongCache::create(&reason);
        if (!cache)
            failure = songFileError(SongFileErrorCode::CacheUnavailable, path, reason);
    }
    if (failure) {
        if (error)
            *error = std::move(failure);
        return nullptr;
    }
    std::unique_ptr<TeskExtendedAudioFile> file(
        new TeskExtendedAudioFile(path, decoder->info(), std::move(cache)));
    file->mDecoderThread =
        std::thread(&TeskExtendedAudioFile::decode, file.get(), std::move(decoder));
    return file;
}

TeskExtendedAudioFile::TeskExtendedAudioFile(QString path, const SongFileInfo& info,
                                             std::unique_ptr<SongCache> cache)
    : mPath(std::move(path))
    , mInfo(info)
    , mCache(std::move(cache)) {}

TeskExtendedAudioFile::~TeskExtendedAudioFile() {
    stopDecoding();
}

void TeskExtendedAudioFile::decode(std::unique_ptr<SongDecoder> decoder) {
    pthread_setname_np(pthread_self(), "tesk-decoder");
    clearVectorUpperState();
    SongDecodingOutcome outcome = decoder->decodeInto(*mCache, mStopRequested);
    // FFmpeg's contexts (a long MP4's packet index among them) go as soon as they are done
    // with, not when the song is closed.
    decoder.reset();
    {
        std::lock_guard lock(mMutex);
        mDecodingError = std::move(outcome.error);
        mLengthKnown.store(outcome.finished, std::memory_order_release);
        mDecodingFinished.store(true, std::memory_order_release);
    }
    mFinishedCondition.notify_all();
    mCache->wakeWaiters();
}

bool TeskExtendedAudioFile::waitForDecodedFrames(qint64 end,
                                                 std::chrono::milliseconds timeout) const {
    return mCache->waitForFrames(end, timeout);
}

qint64 TeskExtendedAudioFile::frameCount() const {
    const bool lengthKnown = mLengthKnown.load(std::memory_order_acquire);
    const qint64 decoded = mCache->frameCount();
    return lengthKnown ? decoded : std::max(mInfo.frameCount, decoded);
}

qint64 TeskExtendedAudioFile::decodedFrameCount() const {
    return mCache->frameCount();
}

void TeskExtendedAudioFile::waitUntilDecoded() const {
    std::unique_lock lock(mMutex);
    mFinishedCondition.wait(lock, [this] { return mDecodingFinished.load(); });
}

void TeskExtendedAudioFile::stopDecoding() {
    mStopRequested.store(true);
    std::lock_guard lock(mJoinMutex);
    if (mDecoderThread.joinable())
        mDecoderThread.join();
}

std::optional<TeskError> TeskExtendedAudioFile::decodingError() const {
    std::lock_guard lock(mMutex);
    return mDecodingError;
}

std::optional<TeskError> TeskExtendedAudioFile::noRoomError() const {
    std::optional<TeskError> error = decodingError();
    if (error && (error->domain() != SongFileErrorDomain ||
                  error->code() != qint64(SongFileErrorCode::CacheUnavailable)))
        error.reset();
    return error;
}

qint64 TeskExtendedAudioFile::readFrames(qint64 start, qint64 count, float* left,
                                         float* right) const {
    return mCache->read(start, count, left, right);
}

SongFileInfo TeskExtendedAudioFile::info() const {
    SongFileInfo info = mInfo;
    info.frameCount = frameCount();
    if (mLengthKnown.load(std::memory_order_acquire))
        info.durationSeconds = double(info.frameCount) / streamDescription().sampleRate;
    return info;
}

} // namespace tesk
