#pragma once

#include "audio/DecodedFrames.h"
#include "waveform/WaveformBlock.h"
#include "waveform/WaveformDelegate.h"

#include <QObject>
#include <QPainterPath>
#include <QRectF>
#include <QUrl>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

namespace tesk {

/// The peak summary of one song, from which the waveform view draws it at any zoom.
///
/// Scanning starts as soon as the waveform is made: a worker thread reads the song in chunks
/// of `kScanChunkFrames` as they are decoded, summarises each into a `WaveformBlock` and hands
/// it to the main thread, waiting until it has been added, so the main thread sees the blocks
/// in file order, contiguous from frame 0, and the worker is never more than one block ahead.
/// The delegate hears of the start and of each block from the main thread's event loop, so
/// not before the code that made the waveform returns to it.
///
/// Main thread only: making, reading, drawing, stopping and destroying.
class Waveform : public QObject {
    Q_OBJECT

public:
    /// Frames summarised by one point.
    static constexpr std::uint32_t kSamplesPerBin = 50;
    /// Frames read at a time, and so the length of every block but the last.
    static constexpr qint64 kScanChunkFrames = 88200;
    /// What `blockIndexForPoint` answers when no block holds the point.
    static constexpr qsizetype NSNotFound = 0x7FFFFFFF;

    /// Summarises `frames`, the same decoded song the player reads, without decoding it again:
    /// the scan follows the decoding. `fileURL` only names the song.
    Waveform(std::shared_ptr<const DecodedFrames> frames, const QUrl& fileURL,
             WaveformDelegate* delegate, QObject* parent = nullptr);
    /// Opens and decodes the local file `fileURL` itself, for use without a player. A file
    /// that cannot be opened gives a scan that begins with length 0 and has no block.
    Waveform(const QUrl& fileURL, WaveformDelegate* delegate, QObject* parent = nullptr);
    /// Stops the scan and waits for the worker.
    ~Waveform() override;

    Waveform(const Waveform&) = delete;
    Waveform& operator=(const Waveform&) = delete;

    /// Ends the scan between two blocks (or while it waits for decoding or for a hand-over)
    /// and waits for the worker: what has been added stays, nothing more arrives and the
    /// delegate hears nothing more. Safe from inside a delegate message.
    void stop();
    /// The worker is still running: neither at the song's end nor stopped. Once false, every
    /// block of the scan has been added.
    bool isScanning() const;

    /// In file order, contiguous from frame 0.
    const std::vector<WaveformBlock>& waveformBlocks() const { return mWaveformBlocks; }
    QUrl fileURL() const { return mFileURL; }
    std::uint32_t samplesPerBin() const { return mSamplesPerBin; }
    /// The song's length as the file reported it when scanning began; 0 until then.
    qint64 totalFrameCount() const { return mTotalFrameCount; }
    /// The end of the last block; 0 before the first.
    qint64 availableFrameCount() const;

    WaveformDelegate* delegate() const { return mDelegate; }
    void setDelegate(WaveformDelegate* delegate) { mDelegate = delegate; }

    // Drawing. The view's zoom runs from 0 (the whole song at `maximumZoom`'s scale) to 1 (one
    // bin per point); every operation shares one scale, `framesPerPoint`.

    /// rint(samplesPerBin × ((1 − zoom) × maximumZoom + 1)).
    double framesPerPoint(double maximumZoom, double zoom) const;
    /// The frame under a view point: floor(point × framesPerPoint).
    qint64 sampleFromPoint(float point, double maximumZoom, double zoom) const;
    /// The view point of a frame: frame ÷ framesPerPoint.
    float pointFromSample(qint64 frame, double maximumZoom, double zoom) const;
    /// The index of the block holding the frame under `point`; `NSNotFound` when none does
    /// (before the song, or past what has been scanned).
    qsizetype blockIndexForPoint(float point, double maximumZoom, double zoom) const;
    /// An outline of the peaks of the blocks under `rect`'s horizontal range (in view
    /// points from the song's start): it starts and ends on the base line (y 0), has about one
    /// vertex per point and leaves y as the peak amplitude for the view to scale. Nothing when
    /// `rect` begins past the scanned part; a rect that ends past it is drawn up to the last
    /// block. Main thread.
    std::optional<QPainterPath> createPathForRect(const QRectF& rect, double maximumZoom,
                                                  double zoom) const;

private:
    struct ScanState;

    void beginScanningFileOperation(std::shared_ptr<const DecodedFrames> frames,
                                    QString pathToOpen);
    // Worker thread.
    void scanFile(std::shared_ptr<const DecodedFrames> frames, const QString& pathToOpen,
                  std::uint32_t samplesPerBin);
    qint64 waitForFramesToScan(const DecodedFrames& frames, qint64 startFrame) const;
    bool performOnMainThreadAndWait(std::function<void()> work);
    // Main thread, from the worker's hand-overs.
    void scanningStarted(qint64 totalFrameCount);
    void addBlock(const WaveformBlock& block);

    /// Block `index`'s points thinned by `skip`, kept while the skip stays the same: a long
    /// song seen whole is drawn again as each block arrives, and thinning every block each
    /// time would make loading it slower the longer it is. Main thread.
    const WaveformPointBuffer& thinnedPoints(std::size_t index, std::uint32_t skip) const;

    std::vector<WaveformBlock> mWaveformBlocks;
    mutable std::vector<std::shared_ptr<const WaveformPointBuffer>> mThinnedPoints;
    mutable std::uint32_t mThinnedSkip = 0;
    QUrl mFileURL;
    const std::uint32_t mSamplesPerBin = kSamplesPerBin;
    qint64 mTotalFrameCount = 0;
    WaveformDelegate* mDelegate = nullptr;

    // Shared with the worker and with hand-overs still queued, which may outlive a waveform
    // deleted from inside a delegate message.
    std::shared_ptr<ScanState> mScan;
    std::thread mWorker;
};

} // namespace tesk
