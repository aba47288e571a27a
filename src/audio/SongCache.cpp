#include "audio/SongCache.h"

#include <QDir>
#include <QFile>
#include <QStandardPaths>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

namespace tesk {
namespace {

/// An anonymous file in `folder`, or -1 with errno set.
int createAnonymousFile(const QString& folder) {
    const QByteArray encoded = QFile::encodeName(folder);
    // O_TMPFILE never gives the file a name, so not even a crash between creating and
    // unlinking can leave one behind. Some file systems lack it; those get a named file that
    // is unlinked at once.
    int descriptor = ::open(encoded.constData(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    if (descriptor >= 0)
        return descriptor;
    QByteArray pattern = encoded + "/tesk-song-XXXXXX";
    descriptor = ::mkostemp(pattern.data(), O_CLOEXEC);
    if (descriptor >= 0)
        ::unlink(pattern.constData());
    return descriptor;
}

} // namespace

std::unique_ptr<SongCache> SongCache::create(QString* reason) {
    QStringList folders;
    const QString cacheFolder = QStandardPaths::writableLocation(QStandardPaths::CacheLocation);
    if (!cacheFolder.isEmpty() && QDir().mkpath(cacheFolder))
        folders << cacheFolder;
    folders << QDir::tempPath();
    for (const QString& folder : folders) {
        const int descriptor = createAnonymousFile(folder);
        if (descriptor >= 0)
            return std::unique_ptr<SongCache>(new SongCache(descriptor));
        if (reason)
            *reason = QStringLiteral("%1: %2").arg(folder, qt_error_string(errno));
    }
    return nullptr;
}

SongCache::SongCache(int descriptor)
    : mDescriptor(descriptor) {}

SongCache::~SongCache() {
    ::close(mDescriptor);
}

bool SongCache::append(const std::int16_t* interleaved, qint64 frameCount, QString* reason) {
    const qint64 written = mFrameCount.load(std::memory_order_relaxed);
    const char* bytes = reinterpret_cast<const char*>(interleaved);
    qint64 remaining = frameCount * kBytesPerFrame;
    off_t offset = written * kBytesPerFrame;
    while (remaining > 0) {
        const ssize_t done = ::pwrite(mDescriptor, bytes, std::size_t(remaining), offset);
        if (done < 0 && errno == EINTR)
            continue;
        if (done <= 0) {
            if (reason)
                *reason = qt_error_string(done < 0 ? errno : ENOSPC);
            return false;
        }
        bytes += done;
        offset += done;
        remaining -= done;
    }
    // Readers only look at frames below the count, so the count goes up after the data is in.
    mFrameCount.store(written + frameCount, std::memory_order_release);
    {
        // Taken so that a reader between its check and its wait cannot miss this.
        std::lock_guard lock(mWaitMutex);
    }
    mFramesAppended.notify_all();
    return true;
}

bool SongCache::waitForFrames(qint64 end, std::chrono::milliseconds timeout) const {
    std::unique_lock lock(mWaitMutex);
    return mFramesAppended.wait_for(lock, timeout, [&] {
        return mWriterDone || frameCount() >= end;
    }) && frameCount() >= end;
}

void SongCache::wakeWaiters() {
    {
        std::lock_guard lock(mWaitMutex);
        mWriterDone = true;
    }
    mFramesAppended.notify_all();
}

qint64 SongCache::read(qint64 start, qint64 count, float* left, float* right) const {
    const qint64 available = frameCount();
    if (start < 0 || count <= 0 || start >= available)
        return 0;
    const qint64 total = std::min(count, available - start);
    constexpr qint64 kChunkFrames = 2048;
    std::array<std::int16_t, kChunkFrames * kChannels> chunk;
    qint64 copied = 0;
    while (copied < total) {
        const qint64 wanted = std::min(kChunkFrames, total - copied);
        const ssize_t done =
            ::pread(mDescriptor, chunk.data(), std::size_t(wanted * kBytesPerFrame),
                    off_t((start + copied) * kBytesPerFrame));
        if (done < 0 && errno == EINTR)
            continue;
        const qint64 frames = done > 0 ? done / kBytesPerFrame : 0;
        if (frames == 0)
            break;
        constexpr float kScale = 1.0f / 32768.0f;
        for (qint64 i = 0; i < frames; ++i) {
            left[copied + i] = float(chunk[std::size_t(2 * i)]) * kScale;
            right[copied + i] = float(chunk[std::size_t(2 * i + 1)]) * kScale;
        }
        copied += frames;
    }
    return copied;
}

} // namespace tesk
