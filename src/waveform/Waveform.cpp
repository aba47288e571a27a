#include "waveform/Waveform.h"

#include "audio/TeskExtendedAudioFile.h"
#include "audio/dsp/VectorUnit.h"

#include <QMetaObject>
#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <pthread.h>

namespace tesk {
namespace {

/// How long the worker sleeps when it has caught up with decoding: short beside the time a
/// chunk takes to decode, so blocks follow the decoder closely.
constexpr std::chrono::milliseconds kDecodingPoll{2};

} // namespace

struct Waveform::ScanState {
    std::mutex mutex;
    std::condition_variable condition;
    bool stopRequested = false;
    quint64 handOversCompleted = 0;
    std::atomic<bool> scanning{true};

    bool isStopRequested() {
        std::lock_guard lock(mutex);
        return stopRequested;
    }
};

Waveform::Waveform(std::shared_ptr<const DecodedFrames> frames, const QUrl& fileURL,
                   WaveformDelegate* delegate, QObject* parent)
    : QObject(parent)
    , mFileURL(fileURL)
    , mDelegate(delegate) {
    beginScanningFileOperation(std::move(frames), QString());
}

Waveform::Waveform(const QUrl& fileURL, WaveformDelegate* delegate, QObject* parent)
    : QObject(parent)
    , mFileURL(fileURL)
    , mDelegate(delegate) {
    beginScanningFileOperation(nullptr, fileURL.toLocalFile());
}

Waveform::~Waveform() {
    stop();
}

void Waveform::beginScanningFileOperation(std::shared_ptr<const DecodedFrames> frames,
                                          QString pathToOpen) {
    mScan = std::make_shared<ScanState>();
    mWorker = std::thread(&Waveform::scanFile, this, std::move(frames), std::move(pathToOpen),
                          mSamplesPerBin);
}

void Waveform::stop() {
    {
        std::lock_guard lock(mScan->mutex);
        mScan->stopRequested = true;
    }
    mScan->condition.notify_all();
    if (mWorker.joinable())
        mWorker.join();
}

bool Waveform::isScanning() const {
    return mScan->scanning.load(std::memory_order_acquire);
}

qint64 Waveform::availableFrameCount() const {
    if (mWaveformBlocks.empty())
        return 0;
    const WaveformBlock& last = mWaveformBlocks.back();
    return last.startFrame() + last.frameCount();
}

void Waveform::scanFile(std::shared_ptr<const DecodedFrames> frames, const QString& pathToOpen,
                        std::uint32_t samplesPerBin) {
    pthread_setname_np(pthread_self(), "tesk-waveform");
    clearVectorUpperState();
    if (!frames && !pathToOpen.isEmpty())
        frames = TeskExtendedAudioFile::openForPlayback(pathToOpen, nullptr);

    // The length the file reports now: for a song still decoding, the container's estimate.
    const qint64 totalFrameCount = frames ? frames->frameCount() : 0;
    bool going =
        performOnMainThreadAndWait([this, totalFrameCount] { scanningStarted(totalFrameCount); });

    if (going && frames) {
        std::vector<float> left(static_cast<std::size_t>(kScanChunkFrames));
        std::vector<float> right(static_cast<std::size_t>(kScanChunkFrames));
        AudioBufferList buffers;
        buffers.bufferCount = 2;
        buffers.buffers[0].data = left.data();
        buffers.buffers[1].data = right.data();
        qint64 startFrame = 0;
        while (going) {
            const qint64 wanted = waitForFramesToScan(*frames, startFrame);
            // A failed read ends the scan like the song's end, keeping the blocks made so far.
            const qint64 read =
                wanted > 0 ? frames->readFrames(startFrame, wanted, left.data(), right.data()) : 0;
            if (read <= 0)
                break;
            buffers.buffers[0].sampleCount = std::uint32_t(read);
            buffers.buffers[1].sampleCount = std::uint32_t(read);
            WaveformBlock block(buffers, startFrame, samplesPerBin);
            going = performOnMainThreadAndWait([this, block] { addBlock(block); });
            startFrame += read;
        }
        const qint64 exactFrameCount = frames->frameCount();
        const bool finished = going && frames->isDecodingFinished();
        if (finished && exactFrameCount != totalFrameCount)
            going = performOnMainThreadAndWait([this, exactFrameCount] {
                mTotalFrameCount = exactFrameCount;
                if (mDelegate)
                    mDelegate->waveformDidLearnFrameCount(this);
            });
        // A hand-over of its own: the message before may have closed the song.
        if (finished && going)
            performOnMainThreadAndWait([this] {
                if (mDelegate)
                    mDelegate->waveformDidFinishScanning(this);
            });
    }
    // A song the worker opened itself closes here, off the main thread.
    frames.reset();
    mScan->scanning.store(false, std::memory_order_release);
}

qint64 Waveform::waitForFramesToScan(const DecodedFrames& frames, qint64 startFrame) const {
    for (;;) {
        // Finished first: once decoding has ended, the decoded count read after it is final.
        const bool finished = frames.isDecodingFinished();
        const qint64 waiting = frames.decodedFrameCount() - startFrame;
        if (waiting >= kScanChunkFrames)
            return kScanChunkFrames;
        if (finished)
            return std::max<qint64>(waiting, 0);
        std::unique_lock lock(mScan->mutex);
        if (mScan->condition.wait_for(lock, kDecodingPoll, [this] { return mScan->stopRequested; }))
            return 0;
    }
}

bool Waveform::performOnMainThreadAndWait(std::function<void()> work) {
    // A blocking queued call would deadlock against a main thread that is stopping the scan
    // and waiting for the worker; this hand-over waits on a condition that stopping also meets.
    const std::shared_ptr<ScanState> scan = mScan;
    std::unique_lock lock(scan->mutex);
    if (scan->stopRequested)
        return false;
    const quint64 ticket = scan->handOversCompleted + 1;
    lock.unlock();
    QMetaObject::invokeMethod(
        this,
        [scan, ticket, work = std::move(work)] {
            // Work queued before a stop is dropped: after stop() the delegate hears nothing.
            if (!scan->isStopRequested())
                work();
            // `work` may have deleted the waveform (its delegate closing the song); only the
            // shared state is touched from here on.
            {
                std::lock_guard lock(scan->mutex);
                scan->handOversCompleted = ticket;
            }
            scan->condition.notify_all();
        },
        Qt::QueuedConnection);
    lock.lock();
    scan->condition.wait(lock,
                         [&] { return scan->stopRequested || scan->handOversCompleted >= ticket; });
    return !scan->stopRequested;
}

void Waveform::scanningStarted(qint64 totalFrameCount) {
    mTotalFrameCount = totalFrameCount;
    if (mDelegate)
        mDelegate->waveformDidBeginScanningFile(this);
}

void Waveform::addBlock(const WaveformBlock& block) {
    mWaveformBlocks.push_back(block);
    if (mDelegate)
        mDelegate->waveformHasAvailableFrames(this, {block.startFrame(), block.frameCount()});
}

} // namespace tesk
