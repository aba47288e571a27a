#include "audio/TeskOutputAudioUnit.h"
#include "audio/EngineConstants.h"
#include "audio/ExportJoin.h"

#include "audio/ProcessingChainPool.h"
#include "audio/TeskAudioFileWriter.h"
#include "audio/dsp/VectorUnit.h"
#include "diagnostics/NSXReturnThrowError.h"

#include <QFile>
#include <QFileInfo>
#include <QMetaObject>
#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace tesk {
namespace {

constexpr int kDeviceWatchMilliseconds = 500;
constexpr std::int64_t kProgressFrames = 22050;

/// Feeds a chain from a stretch of a song's decoded frames, played forwards, waiting for the
/// decoder where it has not got that far yet.
class FrameRangeSource : public ChainSource {
public:
    FrameRangeSource(const DecodedFrames& frames, qint64 start, qint64 count)
        : mFrames(frames)
        , mPosition(start)
        , mEnd(start + count) {}

    std::uint32_t supplyFrames(const AudioBufferList& buffers, std::uint32_t frameCount,
                               SourceRuns& runs) noexcept override {
        const auto wanted = std::uint32_t(std::clamp<qint64>(mEnd - mPosition, 0, frameCount));
        const std::uint32_t copied = copy(buffers, mPosition, wanted);
        runs.count = 1;
        runs.runs[0] = {0, mPosition, 1};
        mPosition += copied;
        return copied;
    }

    std::uint32_t supplyFramesPastEnd(const AudioBufferList& buffers,
                                      std::uint32_t frameCount) noexcept override {
        const std::uint32_t copied =
            copy(buffers, std::max(mPosition, mEnd) + mPastEnd, frameCount);
        mPastEnd += copied;
        return copied;
    }

    std::uint32_t supplyFramesBeforeStart(const AudioBufferList& buffers,
                                          std::uint32_t frameCount) noexcept override {
        const qint64 from = std::max<qint64>(0, mPosition - frameCount);
        return copy(buffers, from, std::uint32_t(mPosition - from));
    }

private:
    /// Copies up to `count` frames from `from` on; fewer only where the song ends.
    std::uint32_t copy(const AudioBufferList& buffers, qint64 from, std::uint32_t count) {
        std::uint32_t copied = 0;
        while (copied < count) {
            const qint64 read =
                mFrames.readFrames(from + copied, count - copied, buffers.buffers[0].data + copied,
                                   buffers.buffers[1].data + copied);
            copied += std::uint32_t(std::max<qint64>(read, 0));
            if (copied < count) {
                if (mFrames.isDecodingFinished() && mFrames.decodedFrameCount() <= from + copied)
                    break;
                // The export thread waits for the decoder to reach the frames it needs.
                mFrames.waitForDecodedFrames(from + count, std::chrono::milliseconds(50));
            }
        }
        return copied;
    }

    const DecodedFrames& mFrames;
    qint64 mPosition;
    const qint64 mEnd;
    qint64 mPastEnd = 0; // frames given past the end so far
};

/// Fills `frameCount` frames of an export from `chain`; what is left after its end is silence.
/// Returns the frames the chain gave.
/// Starts building a spare chain as it goes: an export takes the spare that the next song
/// opened would play on, and builds it again once its own chains are freed.
struct SpareAfterwards {
    TimePitchQuality quality;
    ~SpareAfterwards() { ProcessingChainPool::prepare(quality); }
};

std::uint32_t renderExportSlice(ProcessingChain& chain, float* left, float* right,
                                std::uint32_t frameCount) {
    std::uint32_t filled = 0;
    while (filled < frameCount) {
        const std::uint32_t rendered =
            chain.renderForExport(left + filled, right + filled, frameCount - filled);
        if (rendered == 0)
            break;
        filled += rendered;
    }
    std::fill(left + filled, left + frameCount, 0.0f);
    std::fill(right + filled, right + frameCount, 0.0f);
    return filled;
}

/// Opens the file an export writes, or throws NSXError saying why it cannot.
std::unique_ptr<TeskAudioFileWriter> createExportWriter(const QString& path, ExportFormat format,
                                                        const SongMetadata& metadata) {
    std::optional<TeskError> error;
    auto writer = TeskAudioFileWriter::create(path, format, metadata, &error);
    if (!writer)
        throw NSXError(*error);
    return writer;
}

/// An unnamed file for an export's second half, gone when closed: in the export's own folder,
/// on the disk chosen for the export (the temporary folder is often in memory, and small), or
/// in the temporary folder when that file system cannot make one.
struct SpillFile {
    explicit SpillFile(const QString& exportPath) {
        const QByteArray folder = QFile::encodeName(QFileInfo(exportPath).absolutePath());
        descriptor = ::open(folder.constData(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
        if (descriptor >= 0)
            return;
        if (std::FILE* file = std::tmpfile()) {
            descriptor = ::dup(fileno(file));
            std::fclose(file);
        }
    }
    ~SpillFile() {
        if (descriptor >= 0)
            ::close(descriptor);
    }
    SpillFile(const SpillFile&) = delete;
    SpillFile& operator=(const SpillFile&) = delete;

    int descriptor = -1;
};

/// The second half is kept beside the export, on its disk: a failure to keep it is the
/// export's own, told as one (a full disk with its remedy), the system's reason as the detail.
TeskError spillError(AudioExportErrorCode code, int failure, const QString& exportPath) {
    return audioExportError(code, exportPath, QString::fromLocal8Bit(std::strerror(failure)));
}

/// Writes all `size` bytes at `offset`, as many calls as it takes; 0, or the errno of the
/// call that failed.
int writeAllAt(int descriptor, const void* data, std::size_t size, off_t offset) {
    const auto* bytes = static_cast<const char*>(data);
    while (size > 0) {
        const ssize_t written = ::pwrite(descriptor, bytes, size, offset);
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0)
            return errno;
        if (written == 0)
            return ENOSPC;
        bytes += written;
        size -= std::size_t(written);
        offset += written;
    }
    return 0;
}

/// Closes an export's file, or throws NSXError when its end could not be written. An export
/// cancelled before its first slice has nothing to finish.
TeskOutputAudioUnit::ExportOutcome finishExport(TeskAudioFileWriter& writer, bool cancelled) {
    std::optional<TeskError> error;
    if (!writer.finish(&error) && !(cancelled && writer.framesWritten() == 0))
        throw NSXError(*error);
    return cancelled ? TeskOutputAudioUnit::ExportOutcome::Cancelled
                     : TeskOutputAudioUnit::ExportOutcome::Written;
}

/// Every output of this Tesk, so that one the system's device will not take (a device for one
/// player at a time) can ask the stopped ones for theirs: a paused song keeps its device for
/// a while. Main thread.
QList<TeskOutputAudioUnit*>& allOutputs() {
    static QList<TeskOutputAudioUnit*> outputs;
    return outputs;
}

} // namespace

TeskOutputAudioUnit::TeskOutputAudioUnit(const AudioStreamDescription& streamDescription, bool,
                                         TimePitchQuality quality, QObject* parent)
    : QObject(parent)
    , mStreamDescription(streamDescription)
    , mChain(ProcessingChainPool::take(quality))
    , mRenderer(*mChain)
    , mEqualizerSettings(std::make_unique<TeskEqualizerSettings>())
    , mVocalReductionEffectSettings(TeskVocalReductionEffectSettings().copy()) {
    mChain->setVocalBand(150.0, 3600.0);
    mDeviceWatch.setInterval(kDeviceWatchMilliseconds);
    connect(&mDeviceWatch, &QTimer::timeout, this, &TeskOutputAudioUnit::checkDevice);
    mIdleDevice.setSingleShot(true);
    mIdleDevice.setInterval(kIdleDeviceMilliseconds);
    connect(&mIdleDevice, &QTimer::timeout, this, &TeskOutputAudioUnit::releaseIdleDevice);
    allOutputs().append(this);
}

TeskOutputAudioUnit::~TeskOutputAudioUnit() {
    allOutputs().removeOne(this);
    mDelegate = nullptr;
    mRenderer.stop();
}

void TeskOutputAudioUnit::setOutputAudioUnitHandler(ChainSource* handler) {
    mPlaybackSource = handler;
    mChain->setSource(handler);
}

bool TeskOutputAudioUnit::releaseIdleDevice() {
    // A silent device holds nothing another player could have.
    if (isRunning() || !mDevice || !mDevice->hasSoundOutput())
        return false;
    mIdleDevice.stop();
    mDevice.reset();
    return true;
}

void TeskOutputAudioUnit::openDevice() {
    const bool hadSoundOutput = mSoundOutput;
    const QString hadReason = std::exchange(mNoSoundReason, QString());
    if (mDeviceFactory) {
        mDevice = mDeviceFactory(mRenderer);
    } else {
        mDevice = openDefaultSoundDevice(mRenderer, &mNoSoundReason);
        if (!mDevice->hasSoundOutput()) {
            bool released = false;
            for (TeskOutputAudioUnit* other : allOutputs())
                released |= other != this && other->releaseIdleDevice();
            if (released) {
                mNoSoundReason.clear();
                mDevice.reset();
                mDevice = openDefaultSoundDevice(mRenderer, &mNoSoundReason);
            }
        }
    }
    mSoundOutput = mDevice->hasSoundOutput();
    mPlayingInPlaceOfSystemDevice = !mDeviceFactory && !mSoundOutput;
    if (!mSoundOutput && mNoSoundReason.isEmpty())
        mNoSoundReason = tr("Playing without sound output.");
    if (mSoundOutput != hadSoundOutput || mNoSoundReason != hadReason)
        emit soundOutputChanged();
}

void TeskOutputAudioUnit::setSoundDeviceFactory(SoundDeviceFactory factory) {
    mDeviceFactory = std::move(factory);
    mDevice.reset();
    // Until the next start opens one, there is no device to play to.
    if (std::exchange(mSoundOutput, false))
        emit soundOutputChanged();
}

void TeskOutputAudioUnit::useSilentDevice() {
    setSoundDeviceFactory([](AudioRenderer& renderer) {
        return openSilentSoundDevice(renderer, TeskSoundDevice::kDefaultBufferFrames);
    });
}

void TeskOutputAudioUnit::start() {
    if (isRunning())
        return;
    mIdleDevice.stop();
    // The system's device may be free by now (another player, or another program that held
    // it alone, has let go): each start asks for it again rather than play on in silence.
    if (mPlayingInPlaceOfSystemDevice)
        mDevice.reset();
    if (!mDevice)
        openDevice();
    mRenderer.start(*mDevice);
    mDeviceWatch.start();
    if (mDelegate)
        mDelegate->audioUnitDidStart(this);
    emit OutputAudioUnitDidStartNotification();
}

void TeskOutputAudioUnit::stop() {
    if (!isRunning())
        return;
    mDeviceWatch.stop();
    mRenderer.stop();
    mIdleDevice.start();
    if (mDelegate)
        mDelegate->audioUnitDidStop(this);
    emit OutputAudioUnitDidStopNotification();
}

bool TeskOutputAudioUnit::isRunning() const {
    return mRenderer.isRunning();
}

void TeskOutputAudioUnit::checkDevice() {
    if (!mDevice || !mDevice->isLost())
        return;
    // The device went away (unplugged): carry on with the default device as it is now, or
    // the silent one, without stopping the song.
    mRenderer.stop();
    mDevice.reset();
    openDevice();
    mRenderer.start(*mDevice);
}

void TeskOutputAudioUnit::setPlaybackRate(float rate) {
    mChain->setRate(rate);
}
float TeskOutputAudioUnit::playbackRate() const {
    return mChain->rate();
}
void TeskOutputAudioUnit::setPlaybackPitch(float cents) {
    mChain->setPitchCents(cents);
}
float TeskOutputAudioUnit::playbackPitch() const {
    return mChain->pitchCents();
}
void TeskOutputAudioUnit::setPlaybackLevel(float level) {
    mChain->setLevel(level);
}
float TeskOutputAudioUnit::playbackLevel() const {
    return mChain->level();
}

void TeskOutputAudioUnit::setEqualizerEnabled(bool enabled) {
    mChain->setEqualizerEnabled(enabled);
    emit equalizerEnabledChanged();
}

bool TeskOutputAudioUnit::equalizerEnabled() const {
    return mChain->equalizerEnabled();
}

void TeskOutputAudioUnit::setEqualizerSettings(const TeskEqualizerSettings* settings) {
    mEqualizerSettings = settings ? settings->copy() : std::make_unique<TeskEqualizerSettings>();
    std::array<float, ProcessingChain::kBandCount> gains{};
    for (int band = 0; band < int(gains.size()); ++band)
        gains[band] = float(mEqualizerSettings->gainOfBand(band));
    mChain->setEqualizerGains(gains);
}

void TeskOutputAudioUnit::setRemoveVocals(bool enabled) {
    mChain->setRemoveVocals(enabled);
}
bool TeskOutputAudioUnit::removeVocals() const {
    return mChain->removeVocals();
}

void TeskOutputAudioUnit::setVocalReductionEffectSettings(
    const TeskVocalReductionEffectSettings* settings) {
    mVocalReductionEffectSettings =
        settings ? settings->copy() : std::make_unique<TeskVocalReductionEffectSettings>();
    mChain->setVocalBand(mVocalReductionEffectSettings->lowFrequency(),
                         mVocalReductionEffectSettings->highFrequency());
}

void TeskOutputAudioUnit::setPanAdjust(bool enabled) {
    mChain->setPanAdjust(enabled);
}
bool TeskOutputAudioUnit::panAdjust() const {
    return mChain->panAdjust();
}
void TeskOutputAudioUnit::setPanAmount(double amount) {
    mChain->setPanAmount(amount);
}
double TeskOutputAudioUnit::panAmount() const {
    return mChain->panAmount();
}
void TeskOutputAudioUnit::setOutOfPhase(bool outOfPhase) {
    mChain->setOutOfPhase(outOfPhase);
}
bool TeskOutputAudioUnit::outOfPhase() const {
    return mChain->outOfPhase();
}

std::vector<float> TeskOutputAudioUnit::frequencyTable() {
    return mChain->spectrumAnalyzer().frequencyTable();
}

std::vector<float> TeskOutputAudioUnit::frequencyResponseForChannel(unsigned channel) {
    return mChain->spectrumAnalyzer().spectrumForChannel(channel);
}

bool TeskOutputAudioUnit::hasSoundOutput() const {
    return mSoundOutput;
}

std::uint64_t TeskOutputAudioUnit::framesUntilHeard() const {
    // The stretcher's estimate dips below zero once only silence is left in it: its last
    // input is then already that far into the ring.
    const double frames = std::ceil(mChain->latencyFrames()) +
                          double(mRenderer.queuedBlocks() * AheadRenderer::kBlockFrames) +
                          double(mDevice ? mDevice->bufferFrames() : 0);
    return std::uint64_t(std::max(0.0, frames));
}

double TeskOutputAudioUnit::heardSourceFrame() const {
    return mRenderer.hasHeardPosition() ? mRenderer.heardSourceFrame() : -1.0;
}

std::unique_ptr<ProcessingChain> TeskOutputAudioUnit::takeExportChain(ChainSource* source) const {
    std::unique_ptr<ProcessingChain> chain = ProcessingChainPool::take(mChain->timePitchQuality());
    chain->copyParametersFrom(*mChain);
    chain->setSource(source);
    return chain;
}

TeskOutputAudioUnit::ExportOutcome TeskOutputAudioUnit::writeSamples(qint64 sourceFrameCount,
                                                                     const QString& path,
                                                                     const SongMetadata& metadata) {
    const auto format = TeskAudioFileWriter::formatForExtension(QFileInfo(path).suffix());
    if (!format)
        return ExportOutcome::Ignored;
    ExportingFlag exporting(*this);
    const auto writer = createExportWriter(path, *format, metadata);
    std::optional<TeskError> error;

    const SpareAfterwards spare{mChain->timePitchQuality()};
    const std::unique_ptr<ProcessingChain> chain = takeExportChain(mPlaybackSource);
    chain->beginExport();
    const auto totalFrames = std::int64_t(std::llrint(double(sourceFrameCount) / chain->rate()));
    std::vector<float> left(kExportSliceFrames);
    std::vector<float> right(kExportSliceFrames);
    std::int64_t sampleTime = 0;
    std::int64_t lastReported = 0;
    bool cancelled = mCancelExport.load();
    while (!cancelled && totalFrames > sampleTime) {
        // Whole slices: a short end is silence, whatever the chain still had on its way (the
        // vocal reduction's last block reaches past the range).
        renderExportSlice(*chain, left.data(), right.data(), kExportSliceFrames);
        const auto inRange =
            std::size_t(std::clamp<std::int64_t>(totalFrames - sampleTime, 0, kExportSliceFrames));
        std::fill(left.begin() + std::ptrdiff_t(inRange), left.end(), 0.0f);
        std::fill(right.begin() + std::ptrdiff_t(inRange), right.end(), 0.0f);
        sampleTime += kExportSliceFrames;
        if (!writer->write(left.data(), right.data(), kExportSliceFrames, &error))
            throw NSXError(*error);
        cancelled = mCancelExport.load();
        if (!cancelled && sampleTime - lastReported > kProgressFrames) {
            postExportProgress(double(sampleTime) / double(totalFrames));
            lastReported = sampleTime;
        }
    }
    return finishExport(*writer, cancelled);
}

TeskOutputAudioUnit::ExportOutcome
TeskOutputAudioUnit::writeSamplesInTwoParts(const DecodedFrames& frames, qint64 location,
                                            qint64 sourceFrameCount, const QString& path,
                                            const SongMetadata& metadata) {
    const auto format = TeskAudioFileWriter::formatForExtension(QFileInfo(path).suffix());
    if (!format)
        return ExportOutcome::Ignored;
    ExportingFlag exporting(*this);
    const auto writer = createExportWriter(path, *format, metadata);
    std::optional<TeskError> error;

    // The second half starts a few seconds early, so its chain has settled by the join, at a
    // source frame whose output falls on the export's own frame grid.
    const double rate = mChain->rate();
    const auto total = std::int64_t(std::llrint(double(sourceFrameCount) / rate));
    const std::int64_t paddedTotal =
        (total + kExportSliceFrames - 1) / kExportSliceFrames * kExportSliceFrames;
    constexpr std::int64_t kCrossfade = ExportJoin::kCrossfadeFrames;
    const std::int64_t half = sourceFrameCount / 2;
    const std::int64_t preroll = engine::kExportPrerollFrames;
    std::int64_t secondStart = std::max<std::int64_t>(0, half - preroll);
    double bestMisfit = 1.0;
    for (std::int64_t candidate = secondStart;
         candidate > std::max<std::int64_t>(0, secondStart - 4000); --candidate) {
        const double output = double(candidate) / rate;
        const double misfit = std::fabs(output - std::round(output));
        if (misfit < bestMisfit) {
            bestMisfit = misfit;
            secondStart = candidate;
        }
        if (misfit < 1e-6)
            break;
    }
    const auto secondOffset = std::int64_t(std::llrint(double(secondStart) / rate));
    const std::int64_t joinStart = std::int64_t(std::llrint(double(half) / rate)) - kCrossfade / 2;
    const std::int64_t joinEnd = joinStart + kCrossfade;

    FrameRangeSource firstSource(frames, location, sourceFrameCount);
    // The second half goes on past the range's end by as much as the join may move it on.
    const auto joinReach = std::int64_t(std::ceil(double(ExportJoin::kMaxLag) * rate)) + 1;
    FrameRangeSource secondSource(frames, location + secondStart,
                                  sourceFrameCount - secondStart + joinReach);
    const SpareAfterwards spare{mChain->timePitchQuality()};
    const std::unique_ptr<ProcessingChain> first = takeExportChain(&firstSource);
    first->beginExport();

    // The second half goes to a temporary file (gone when closed) until the first is written;
    // from then on it is copied to the export while it is still being rendered, so the
    // encoder does not have to wait for the whole of it.
    const SpillFile spill(path);
    if (spill.descriptor < 0)
        throw NSXError(spillError(AudioExportErrorCode::CannotCreate, errno, path));
    const int spillFile = spill.descriptor;
    constexpr std::int64_t kSpillFrameBytes = 2 * sizeof(float);
    std::atomic<std::int64_t> secondRendered{0}; // output frames rendered, preroll included
    std::atomic<std::int64_t> secondSpilled{0};  // frames in the file, from kMaxLag before the join
    std::atomic<bool> secondDone{false};
    std::atomic<int> secondFailure{0}; // the errno of a failed write
    std::atomic<bool> abandon{false};
    std::thread secondThread([&] {
        clearVectorUpperState();
        // Taken here, so that building it does not hold up the first half.
        const std::unique_ptr<ProcessingChain> chain =
            ProcessingChainPool::take(first->timePitchQuality());
        chain->copyParametersFrom(*first);
        chain->setSource(&secondSource);
        chain->beginExport();
        std::vector<float> left(kExportSliceFrames), right(kExportSliceFrames);
        std::vector<float> interleaved(2 * kExportSliceFrames);
        std::int64_t output = secondOffset;
        std::int64_t spilled = 0;
        while (output < paddedTotal + ExportJoin::kMaxLag && !mCancelExport.load() &&
               !abandon.load()) {
            renderExportSlice(*chain, left.data(), right.data(), kExportSliceFrames);
            // Only what lies from as far before the join as it may move the second half back
            // is kept.
            const std::int64_t skip = std::clamp<std::int64_t>(
                joinStart - ExportJoin::kMaxLag - output, 0, kExportSliceFrames);
            std::size_t kept = 0;
            for (std::int64_t i = skip; i < kExportSliceFrames; ++i, ++kept) {
                interleaved[2 * kept] = left[std::size_t(i)];
                interleaved[2 * kept + 1] = right[std::size_t(i)];
            }
            const auto bytes = ssize_t(kept * kSpillFrameBytes);
            if (const int failure = writeAllAt(spillFile, interleaved.data(), std::size_t(bytes),
                                               off_t(spilled * kSpillFrameBytes))) {
                secondFailure = failure;
                break;
            }
            spilled += std::int64_t(kept);
            output += kExportSliceFrames;
            secondSpilled.store(spilled, std::memory_order_release);
            secondRendered.store(output - secondOffset, std::memory_order_release);
        }
        secondDone.store(true, std::memory_order_release);
    });
    struct JoinSecond {
        std::thread& thread;
        std::atomic<bool>& abandon;
        ~JoinSecond() {
            abandon = true;
            if (thread.joinable())
                thread.join();
        }
    } joinSecond{secondThread, abandon};

    const double work = double(joinEnd + (paddedTotal - secondOffset));
    std::int64_t reportedWork = 0;
    const auto reportProgress = [&](std::int64_t done) {
        // Once cancelled, nothing more is reported: the slice under way only finishes.
        if (done - reportedWork <= kProgressFrames || mCancelExport.load())
            return;
        postExportProgress(double(done) / work);
        reportedWork = done;
    };

    // The first half, written as it comes, and its part of the join kept aside.
    std::vector<float> left(kExportSliceFrames), right(kExportSliceFrames);
    std::vector<float> joinLeft(static_cast<std::size_t>(kCrossfade));
    std::vector<float> joinRight(static_cast<std::size_t>(kCrossfade));
    std::int64_t output = 0;
    bool cancelled = false;
    while (output < joinEnd && !(cancelled = mCancelExport.load())) {
        renderExportSlice(*first, left.data(), right.data(), kExportSliceFrames);
        const std::int64_t direct =
            std::clamp<std::int64_t>(joinStart - output, 0, kExportSliceFrames);
        if (direct > 0 && !writer->write(left.data(), right.data(), std::uint32_t(direct), &error))
            throw NSXError(*error);
        for (std::int64_t i = direct; i < kExportSliceFrames && output + i < joinEnd; ++i) {
            joinLeft[std::size_t(output + i - joinStart)] = left[std::size_t(i)];
            joinRight[std::size_t(output + i - joinStart)] = right[std::size_t(i)];
        }
        output += kExportSliceFrames;
        reportProgress(std::min(output, joinEnd) + secondRendered.load());
    }

    // The join, where the first half fades out as the second fades in, then the rest of the
    // second half as it arrives; silence pads the last slice.
    std::vector<float> interleaved(2 * kExportSliceFrames);
    const auto waitForSecond = [&](std::int64_t frames) {
        // Frames from kMaxLag before the join on that the second half has spilled, once it has
        // `frames` of them or has ended.
        for (;;) {
            if (const int failure = secondFailure.load()) {
                const bool full = failure == ENOSPC || failure == EDQUOT;
                throw NSXError(spillError(full ? AudioExportErrorCode::DiskFull
                                               : AudioExportErrorCode::CannotWrite,
                                          failure, path));
            }
            const bool done = secondDone.load(std::memory_order_acquire);
            const std::int64_t spilled = secondSpilled.load(std::memory_order_acquire);
            if (done || spilled >= frames || mCancelExport.load())
                return spilled;
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
            reportProgress(joinEnd + secondRendered.load());
        }
    };
    const auto readSecond = [&](std::int64_t from, std::int64_t count) {
        const ssize_t got =
            ::pread(spillFile, interleaved.data(), std::size_t(count * kSpillFrameBytes),
                    off_t(from * kSpillFrameBytes));
        const std::int64_t gotFrames = std::max<ssize_t>(got, 0) / kSpillFrameBytes;
        for (std::int64_t i = 0; i < count; ++i) {
            left[std::size_t(i)] = i < gotFrames ? interleaved[std::size_t(2 * i)] : 0.0f;
            right[std::size_t(i)] = i < gotFrames ? interleaved[std::size_t(2 * i + 1)] : 0.0f;
        }
    };

    // Where the second half lines up with the first, from a mono mix of each.
    std::vector<float> firstMix(static_cast<std::size_t>(kCrossfade));
    for (std::size_t i = 0; i < firstMix.size(); ++i)
        firstMix[i] = joinLeft[i] + joinRight[i];
    std::vector<float> secondMix;
    const std::int64_t reach = kCrossfade + 2 * ExportJoin::kMaxLag;
    const std::int64_t available = std::min(waitForSecond(reach), reach);
    for (std::int64_t from = 0; from < available; from += kExportSliceFrames) {
        const std::int64_t count = std::min<std::int64_t>(kExportSliceFrames, available - from);
        readSecond(from, count);
        for (std::int64_t i = 0; i < count; ++i)
            secondMix.push_back(left[std::size_t(i)] + right[std::size_t(i)]);
    }
    const ExportJoin join(firstMix, secondMix);

    std::int64_t written = joinStart;
    while (!cancelled && written < paddedTotal) {
        cancelled = mCancelExport.load();
        const std::int64_t from = written - joinStart + ExportJoin::kMaxLag + join.lag();
        const std::int64_t wanted =
            std::min<std::int64_t>(kExportSliceFrames, paddedTotal - written);
        const std::int64_t spilled = waitForSecond(from + wanted);
        const bool done = secondDone.load(std::memory_order_acquire);
        const std::int64_t want = done ? wanted : std::min(wanted, spilled - from);
        if (want <= 0)
            continue;
        readSecond(from, want);
        for (std::int64_t i = 0; i < want; ++i) {
            // The second half renders on past the range for the join's sake; the last slice
            // is filled with silence, as a one-part export's is.
            if (written + i >= total) {
                left[std::size_t(i)] = right[std::size_t(i)] = 0.0f;
                continue;
            }
            const std::int64_t inJoin = written + i - joinStart;
            if (inJoin < kCrossfade) {
                const auto at = std::size_t(inJoin);
                left[std::size_t(i)] = join.mix(inJoin, joinLeft[at], left[std::size_t(i)]);
                right[std::size_t(i)] = join.mix(inJoin, joinRight[at], right[std::size_t(i)]);
            }
        }
        if (!writer->write(left.data(), right.data(), std::uint32_t(want), &error))
            throw NSXError(*error);
        written += want;
        reportProgress(joinEnd + secondRendered.load());
    }
    abandon = true;
    secondThread.join();
    return finishExport(*writer, cancelled);
}

void TeskOutputAudioUnit::postExportProgress(double progress) {
    progress = std::min(1.0, progress);
    QMetaObject::invokeMethod(
        this,
        [this, progress] {
            if (mDelegate)
                mDelegate->outputAudioUnitDidUpdateProgress(this, progress);
        },
        Qt::QueuedConnection);
}

} // namespace tesk
