#include "audio/TeskExtendedAudioFilePlayer.h"
#include "audio/EngineConstants.h"

#include "diagnostics/TeskAssert.h"

#include <QMetaObject>
#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>
#include <thread>

namespace tesk {
namespace {
using Clock = std::chrono::steady_clock;
/// The end watch's wait once the end is near, and its longest.
constexpr std::chrono::milliseconds kEndWatchNear{20};
constexpr std::chrono::milliseconds kEndWatchFar{250};
/// What the renderer may take from the reader at once after a seek: its ring, the device's
/// buffer and the stretcher's latency, with room to spare.
constexpr std::chrono::milliseconds kEndWatchMargin{200};
/// How long rendering waits for the reader before it plays silence instead.
constexpr auto kReaderWait = std::chrono::milliseconds(40);
/// From this length on, an export renders its two halves at once.
constexpr std::uint32_t kTwoPartFrames = 20 * engine::kSampleRate;
/// An export can wait for the decoder as long as it has to; this only ends a stalled one.
constexpr auto kExportReaderWait = std::chrono::seconds(30);
} // namespace

TeskExtendedAudioFilePlayer::TeskExtendedAudioFilePlayer(
    std::shared_ptr<const DecodedFrames> frames, bool forEffects, TimePitchQuality quality,
    QObject* parent)
    : QObject(parent)
    , mAudioFile(std::move(frames))
    , mOutputAudioUnit(std::make_unique<TeskOutputAudioUnit>(AudioStreamDescription::engineFormat(),
                                                             forEffects, quality))
    , mFileReader(3, 4096) {
    mOutputAudioUnit->setDelegate(this);
    mFileReader.setAudioFile(mAudioFile);
    mOutputAudioUnit->setOutputAudioUnitHandler(this);
    mEndWatch.setInterval(kEndWatchNear);
    connect(&mEndWatch, &QTimer::timeout, this, &TeskExtendedAudioFilePlayer::checkForEndOfFile);
}

TeskExtendedAudioFilePlayer::~TeskExtendedAudioFilePlayer() {
    mOutputAudioUnit->setDelegate(nullptr);
    mOutputAudioUnit->stop();
    mFileReader.stop();
}

double TeskExtendedAudioFilePlayer::sampleRate() const {
    return AudioStreamDescription::engineFormat().sampleRate;
}

void TeskExtendedAudioFilePlayer::startFilePlaying() {
    if (isFilePlaying())
        return;
    mDone = false;
    mEndReported = false;
    mEndSeenAtBlock.reset();
    mEndHeardAt.reset();
    mFileReader.setCurrentFrame(mCurrentFrame);
    mFileReader.start();
    mOutputAudioUnit->start();
    mEndWatch.start(kEndWatchNear);
}

void TeskExtendedAudioFilePlayer::stopFilePlaying() {
    // Playback stops where the sound the device was handed ends, which is still heard after
    // the stop: from the heard position, a device period or two behind it, playing on would
    // repeat it. The period that fades it out says where that is; one the device took while
    // the stop was on its way is heard too. Past the end, the end is where it stopped.
    const bool playing = isFilePlaying();
    const std::optional<AheadRenderer::HandedMark> handedBefore =
        hasEnded() ? std::nullopt : nextHandedMark();
    currentFrame();
    mOutputAudioUnit->stop();
    mFileReader.stop();
    mEndWatch.stop();
    const std::optional<AheadRenderer::HandedMark> faded =
        playing ? mOutputAudioUnit->markWhereStopFaded() : std::nullopt;
    // Once the fade lies past the song's end (it played to its end), the end is where it is.
    const bool fadedInSong = faded && faded->sourceFrame > 0 && faded->sourceFrame < totalFrames();
    const std::optional<AheadRenderer::HandedMark> handed =
        fadedInSong ? inSong(faded) : handedBefore;
    if (handed)
        mCurrentFrame = qint64(handed->sourceFrame);
}

bool TeskExtendedAudioFilePlayer::isFilePlaying() const {
    return mOutputAudioUnit->isRunning();
}

void TeskExtendedAudioFilePlayer::setPlaybackSpeed(float speed) {
    TESK_PARAMETER_ASSERT(speed > 0.0 || speed < 0.0);
    const bool reverse = speed < 0.0f;
    if (reverse != mFileReader.isReverse()) {
        // Turn round where the sound the device holds ends, not where the reader has got to
        // ahead of it, nor at what is heard, which would go back over what the device plays.
        const qint64 turn = nextHandedFrame();
        mFileReader.setReverse(reverse);
        if (isFilePlaying())
            seek(turn);
    }
    if (std::fabs(speed) > playbackSpeed())
        watchForEndSoon();
    mOutputAudioUnit->setPlaybackRate(std::fabs(speed));
}

float TeskExtendedAudioFilePlayer::playbackSpeed() const {
    return mOutputAudioUnit->playbackRate();
}

void TeskExtendedAudioFilePlayer::setPlaybackPitchInSemitones(double semitones) {
    mOutputAudioUnit->setPlaybackPitch(float(100.0 * semitones));
}

double TeskExtendedAudioFilePlayer::playbackPitchInSemitones() const {
    return double(mOutputAudioUnit->playbackPitch()) / 100.0;
}

void TeskExtendedAudioFilePlayer::setPlaybackVolume(float decibels) {
    mOutputAudioUnit->setPlaybackLevel(float(std::pow(10.0, double(decibels) / 20.0)));
}

void TeskExtendedAudioFilePlayer::setPlaybackLevel(float level) {
    mOutputAudioUnit->setPlaybackLevel(level);
}

void TeskExtendedAudioFilePlayer::setLooping(bool looping) {
    const bool changes = looping != mFileReader.isLooping();
    const LoopRange range = mFileReader.loopRange();
    const qint64 read = mFileReader.currentFrame();
    const std::optional<AheadRenderer::HandedMark> mark = nextHandedMark();
    const qint64 from = mark ? qint64(mark->sourceFrame) : currentFrame();
    mFileReader.setLooping(looping);
    // Switched while playing, as a new loop is: the sound on its way was read with looping as it
    // was, and where the switch would play it otherwise (past the seam it now wraps at, or
    // wrapped at a seam there no longer is) it is rendered again from the first frame the device
    // has not been handed.
    if (changes && isFilePlaying() && range.length > 0 &&
        loopChangeReplays(range, range, read, from, mFileReader.isReverse()))
        seek(from, mark);
}
bool TeskExtendedAudioFilePlayer::isLooping() const {
    return mFileReader.isLooping();
}
void TeskExtendedAudioFilePlayer::setLoopRange(LoopRange range) {
    const LoopRange before = mFileReader.loopRange();
    const qint64 read = mFileReader.currentFrame();
    // Under the old loop, which the device's sound is of.
    const std::optional<AheadRenderer::HandedMark> mark = nextHandedMark();
    const qint64 from = mark ? qint64(mark->sourceFrame) : currentFrame();
    mFileReader.setLoopRange(range);
    if (!isFilePlaying() || !mFileReader.isLooping() || range == before || range.length == 0)
        return;
    // The sound on its way from the reader to the device was read under the old loop. Where the
    // new loop would play it otherwise (its seam lies inside it, or it has already wrapped at the
    // old seam), it is rendered again from the first frame the device has not been handed, so
    // that playback neither runs past the new seam nor jumps back from there without the seam's
    // crossfade. Not from what is heard: the device's last periods would be heard twice, and a
    // loop dragged would stand still, each move going back to where the last one started.
    if (loopChangeReplays(before, range, read, from, mFileReader.isReverse()))
        seek(from, mark);
}

bool TeskExtendedAudioFilePlayer::loopChangeReplays(LoopRange before, LoopRange after, qint64 read,
                                                    qint64 from, bool reverse) {
    const auto seamOf = [reverse](LoopRange range) {
        return reverse ? qint64(range.location) : qint64(range.location) + range.length;
    };
    const qint64 seam = seamOf(after);
    const bool wrapped = reverse ? read > from : read < from;
    const bool seamOnItsWay = reverse ? read <= seam && seam < from : from < seam && seam <= read;
    // The crossfade runs over the frames before a seam in the direction of play.
    constexpr qint64 fade = TeskAudioFileReader::kLoopCrossfadeFrames;
    const auto inFade = [&](qint64 at) {
        return reverse ? at <= read && read <= at + fade : at - fade <= read && read <= at;
    };
    const bool fadeChanges = inFade(seamOf(before)) || inFade(seam);
    // A reader beyond the new loop's seam (a loop drawn behind it) jumps to the loop's other end
    // at once: replayed, the jump comes with the fades of a seek.
    const bool jumps = reverse ? read < qint64(after.location) : read > seam;
    return wrapped || seamOnItsWay || fadeChanges || jumps;
}
LoopRange TeskExtendedAudioFilePlayer::loopRange() const {
    return mFileReader.loopRange();
}

void TeskExtendedAudioFilePlayer::setVocalRemoval(bool enabled) {
    mOutputAudioUnit->setRemoveVocals(enabled);
}
bool TeskExtendedAudioFilePlayer::vocalRemoval() const {
    return mOutputAudioUnit->removeVocals();
}
void TeskExtendedAudioFilePlayer::setVocalReductionEffectSettings(
    const TeskVocalReductionEffectSettings* settings) {
    mOutputAudioUnit->setVocalReductionEffectSettings(settings);
}
const TeskVocalReductionEffectSettings*
TeskExtendedAudioFilePlayer::vocalReductionEffectSettings() const {
    return mOutputAudioUnit->vocalReductionEffectSettings();
}
void TeskExtendedAudioFilePlayer::setPanAdjust(bool enabled) {
    mOutputAudioUnit->setPanAdjust(enabled);
}
bool TeskExtendedAudioFilePlayer::panAdjust() const {
    return mOutputAudioUnit->panAdjust();
}
void TeskExtendedAudioFilePlayer::setPanAmount(double amount) {
    mOutputAudioUnit->setPanAmount(amount);
}
double TeskExtendedAudioFilePlayer::panAmount() const {
    return mOutputAudioUnit->panAmount();
}
void TeskExtendedAudioFilePlayer::setEqualizerEnabled(bool enabled) {
    mOutputAudioUnit->setEqualizerEnabled(enabled);
}
bool TeskExtendedAudioFilePlayer::equalizerEnabled() const {
    return mOutputAudioUnit->equalizerEnabled();
}
void TeskExtendedAudioFilePlayer::setEqualizerSettings(const TeskEqualizerSettings* settings) {
    mOutputAudioUnit->setEqualizerSettings(settings);
}
const TeskEqualizerSettings* TeskExtendedAudioFilePlayer::equalizerSettings() const {
    return mOutputAudioUnit->equalizerSettings();
}
void TeskExtendedAudioFilePlayer::setOutOfPhase(bool outOfPhase) {
    mOutputAudioUnit->setOutOfPhase(outOfPhase);
}
bool TeskExtendedAudioFilePlayer::outOfPhase() const {
    return mOutputAudioUnit->outOfPhase();
}
std::vector<float> TeskExtendedAudioFilePlayer::frequencyTable() {
    return mOutputAudioUnit->frequencyTable();
}
std::vector<float> TeskExtendedAudioFilePlayer::frequencyResponseForChannel(unsigned channel) {
    return mOutputAudioUnit->frequencyResponseForChannel(channel);
}

qint64 TeskExtendedAudioFilePlayer::currentFrame() const {
    if (isFilePlaying()) {
        const double heard = mOutputAudioUnit->heardSourceFrame();
        // Until the first frames are heard, the position is where playback started.
        if (heard >= 0.0)
            mCurrentFrame = qint64(std::floor(insideLoop(heard)));
    }
    return mCurrentFrame;
}

qint64 TeskExtendedAudioFilePlayer::nextHandedFrame() const {
    const std::optional<AheadRenderer::HandedMark> mark = nextHandedMark();
    return mark ? qint64(mark->sourceFrame) : currentFrame();
}

std::optional<AheadRenderer::HandedMark> TeskExtendedAudioFilePlayer::nextHandedMark() const {
    return isFilePlaying() ? inSong(mOutputAudioUnit->nextHandedMark()) : std::nullopt;
}

std::optional<AheadRenderer::HandedMark>
TeskExtendedAudioFilePlayer::inSong(std::optional<AheadRenderer::HandedMark> mark) const {
    if (!mark)
        return std::nullopt;
    const auto frame = qint64(insideLoop(double(mark->sourceFrame)));
    mark->sourceFrame = std::clamp<qint64>(frame, 0, std::max<qint64>(totalFrames() - 1, 0));
    return mark;
}

double TeskExtendedAudioFilePlayer::insideLoop(double frame) const {
    // Past the seam in the direction of play, the frame is as far into the loop's other end.
    // Frames before the loop, where playback started, are played on the way into it.
    const LoopRange loop = mFileReader.loopRange();
    const double start = double(loop.location);
    const double end = std::min(start + double(loop.length), double(totalFrames()));
    if (!mFileReader.isLooping() || end <= start)
        return frame;
    const bool pastSeam = mFileReader.isReverse() ? frame < start : frame >= end;
    if (!pastSeam)
        return frame;
    const double into = std::fmod(frame - start, end - start);
    return into < 0.0 ? end + into : start + into;
}

std::optional<AheadRenderer::HeardPosition> TeskExtendedAudioFilePlayer::heardPosition() const {
    if (!isFilePlaying())
        return std::nullopt;
    std::optional<AheadRenderer::HeardPosition> heard = mOutputAudioUnit->heardPosition();
    if (heard)
        heard->sourceFrame = insideLoop(heard->sourceFrame);
    return heard;
}

void TeskExtendedAudioFilePlayer::setCurrentFrame(qint64 frame) {
    const qint64 total = totalFrames();
    if (frame < 0)
        frame = 0;
    if (frame > total)
        frame = total - 1; // exactly the length is kept as it is
    mCurrentFrame = frame;
    if (isFilePlaying())
        seek(frame);
}

void TeskExtendedAudioFilePlayer::seek(qint64 frame,
                                       std::optional<AheadRenderer::HandedMark> mark) {
    mCurrentFrame = frame;
    // Before the reader moves, so that no frame from the new place goes to the old render.
    mSeekGeneration.store(mOutputAudioUnit->nextGeneration(), std::memory_order_release);
    mFileReader.setCurrentFrame(frame);
    mDone = false;
    mEndReported = false;
    mEndSeenAtBlock.reset();
    mEndHeardAt.reset();
    watchForEndSoon();
    if (mark)
        mOutputAudioUnit->flush(*mark);
    else
        mOutputAudioUnit->flush();
}

float TeskExtendedAudioFilePlayer::currentTime() const {
    return float(currentFrame()) / float(sampleRate()) * 1000.0f;
}

void TeskExtendedAudioFilePlayer::setCurrentTime(float milliseconds) {
    setCurrentFrame(qint64(std::floor(float(sampleRate()) * (milliseconds / 1000.0f))));
}

qint64 TeskExtendedAudioFilePlayer::totalFrames() const {
    return mAudioFile->frameCount();
}

float TeskExtendedAudioFilePlayer::maxTime() const {
    return float(totalFrames()) / float(sampleRate()) * 1000.0f;
}

std::uint32_t TeskExtendedAudioFilePlayer::supplyFrames(const AudioBufferList& buffers,
                                                        std::uint32_t frameCount,
                                                        SourceRuns& runs) noexcept {
    // After the end the buffers stay as they came: silent.
    if (hasEnded())
        return 0;
    const bool exporting = mExportFramesLeft >= 0;
    if (exporting)
        frameCount = std::uint32_t(std::min<qint64>(frameCount, mExportFramesLeft));
    bool ended = false;
    const std::uint32_t written = copyFromReader(
        buffers, frameCount, runs, exporting ? kExportReaderWait : kReaderWait, ended);
    if (ended)
        mDone.store(true, std::memory_order_release);
    if (exporting)
        mExportFramesLeft -= written;
    return written;
}

std::uint32_t TeskExtendedAudioFilePlayer::supplyFramesPastEnd(const AudioBufferList& buffers,
                                                               std::uint32_t frameCount) noexcept {
    // The reader goes on as it would have played: on through the song, backwards, or round the
    // loop.
    if (mExportFramesLeft != 0 || hasEnded())
        return 0;
    SourceRuns runs;
    bool ended = false;
    return copyFromReader(buffers, frameCount, runs, kExportReaderWait, ended);
}

std::uint32_t
TeskExtendedAudioFilePlayer::supplyFramesBeforeStart(const AudioBufferList& buffers,
                                                     std::uint32_t frameCount) noexcept {
    // The reader hands the music before the start ahead of the start's own frames. Playing, the
    // rendering thread has already waited for those; an export waits here, as `supplyFrames`
    // would, so that it comes out the same whatever the reader's pace.
    if (mExportFramesLeft >= 0) {
        const Clock::time_point deadline = Clock::now() + kExportReaderWait;
        while (!hasFramesReady() && Clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::microseconds(200));
    } else if (mOutputAudioUnit->renderingGeneration() <
               mSeekGeneration.load(std::memory_order_acquire)) {
        return 0; // a render made stale by a seek: the new place's music is for that seek's
    }
    return hasEnded() ? 0 : mFileReader.copyPreroll(buffers, frameCount);
}

std::uint32_t TeskExtendedAudioFilePlayer::copyFromReader(const AudioBufferList& buffers,
                                                          std::uint32_t frameCount,
                                                          SourceRuns& runs, Clock::duration wait,
                                                          bool& ended) noexcept {
    // The rendering thread runs ahead of the device, so it can afford to wait a moment for the
    // reader rather than play a gap that would also put the position out of step.
    Clock::time_point deadline{};
    std::uint32_t written = 0;
    runs.count = 0;
    for (;;) {
        // A render made stale by a seek plays silence at once (it is never heard) instead of
        // taking, or waiting for, the frames at the new place. An export renders no seek.
        if (mExportFramesLeft < 0 && mOutputAudioUnit->renderingGeneration() <
                                         mSeekGeneration.load(std::memory_order_acquire))
            break;
        std::uint32_t copied = 0;
        SourceRuns copiedRuns;
        mFileReader.copyInto(buffers, frameCount - written, copied, &copiedRuns, written);
        for (std::uint32_t i = 0; i < copiedRuns.count && runs.count < SourceRuns::kMaxRuns; ++i)
            runs.runs[runs.count++] = copiedRuns.runs[i];
        written += copied;
        if (mFileReader.endOfStream()) {
            ended = true;
            break;
        }
        if (written == frameCount)
            break;
        const Clock::time_point now = Clock::now();
        if (deadline == Clock::time_point{})
            deadline = now + wait;
        else if (now >= deadline)
            break;
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    return written;
}

bool TeskExtendedAudioFilePlayer::hasFramesReady() noexcept {
    return hasEnded() || mFileReader.hasFramesReady();
}

void TeskExtendedAudioFilePlayer::checkForEndOfFile() {
    if (mEndReported)
        return;
    if (!hasEnded()) {
        // A change of direction or loop after the end plays on.
        mEndSeenAtBlock.reset();
        mEndHeardAt.reset();
        const qint64 read = mFileReader.currentFrame();
        mEndWatch.setInterval(
            endWatchWait(mFileReader.isReverse() ? read : totalFrames() - read, playbackSpeed()));
        return;
    }
    mEndWatch.setInterval(kEndWatchNear);
    // The song's last frames are still on their way to the ear (in the stretcher, waiting
    // ahead of the device, in its buffer): the end is told once they have played, so that
    // stopping there does not cut off the last notes. They are counted once the block the
    // rendering thread was making as the end came is done: until then the last frames taken
    // may be neither in the stretcher nor in the ring.
    if (!mEndSeenAtBlock)
        mEndSeenAtBlock = mOutputAudioUnit->renderedBlocks();
    if (!mEndHeardAt) {
        if (mOutputAudioUnit->renderedBlocks() <= *mEndSeenAtBlock)
            return;
        mEndHeardAt = mOutputAudioUnit->playedFrames() + mOutputAudioUnit->framesUntilHeard();
    }
    if (mOutputAudioUnit->playedFrames() < *mEndHeardAt)
        return;
    mEndReported = true;
    if (mDelegate)
        mDelegate->audioFilePlayerDidReachEndOfFile(this);
}

std::chrono::milliseconds TeskExtendedAudioFilePlayer::endWatchWait(qint64 framesToEnd,
                                                                    float speed) {
    const double seconds = double(std::max<qint64>(framesToEnd, 0)) /
                           (double(std::max(speed, 0.01f)) * engine::kSampleRateHz);
    const auto wait = std::chrono::milliseconds(qint64(seconds * 1000.0)) - kEndWatchMargin;
    return std::clamp(wait, kEndWatchNear, kEndWatchFar);
}

void TeskExtendedAudioFilePlayer::watchForEndSoon() {
    if (mEndWatch.isActive() && mEndWatch.intervalAsDuration() > kEndWatchNear)
        mEndWatch.start(kEndWatchNear);
}

void TeskExtendedAudioFilePlayer::audioUnitDidStop(TeskOutputAudioUnit*) {
    // Told after the current event, as a message from the output would be.
    QMetaObject::invokeMethod(
        this,
        [this] {
            if (mDelegate)
                mDelegate->audioFilePlayerDidStop(this);
        },
        Qt::QueuedConnection);
}

TeskOutputAudioUnit::ExportOutcome
TeskExtendedAudioFilePlayer::writeSamplesInRange(LoopRange range, const QString& path) {
    // A long stretch played forwards renders in two halves on the machine's two cores; the
    // reader, which follows loops and plays backwards, serves the rest.
    if (!mFileReader.isReverse() && !mFileReader.isLooping() && range.length >= kTwoPartFrames) {
        return mOutputAudioUnit->writeSamplesInTwoParts(*mAudioFile, range.location, range.length,
                                                        path, mSongMetadata);
    }
    mDone = false;
    // Played backwards, the range is heard from its last frame down to its first.
    mFileReader.setCurrentFrame(mFileReader.isReverse() ? qint64(range.location) + range.length
                                                        : qint64(range.location));
    mFileReader.start();
    mExportFramesLeft = range.length;
    struct Restore {
        TeskExtendedAudioFilePlayer& player;
        ~Restore() {
            player.mExportFramesLeft = -1;
            player.mFileReader.stop();
        }
    } restore{*this};
    return mOutputAudioUnit->writeSamples(range.length, path, mSongMetadata);
}

TeskOutputAudioUnit::ExportOutcome
TeskExtendedAudioFilePlayer::writeWholeSong(const QString& path) {
    while (!mAudioFile->isDecodingFinished() && !isWriteToFileCancelled())
        mAudioFile->waitForDecodedFrames(std::numeric_limits<qint64>::max(),
                                         std::chrono::milliseconds(50));
    return writeSamplesInRange({0, std::uint32_t(mAudioFile->frameCount())}, path);
}

void TeskExtendedAudioFilePlayer::cancelWriteToFile() {
    mOutputAudioUnit->cancelWriteToFile();
}

void TeskExtendedAudioFilePlayer::clearCancelWriteToFile() {
    mOutputAudioUnit->clearCancelWriteToFile();
}

bool TeskExtendedAudioFilePlayer::isWriteToFileCancelled() const {
    return mOutputAudioUnit->isWriteToFileCancelled();
}

void TeskExtendedAudioFilePlayer::outputAudioUnitDidUpdateProgress(TeskOutputAudioUnit*,
                                                                   double progress) {
    // Passed on after the current event, as the output passed it to us.
    QMetaObject::invokeMethod(
        this,
        [this, progress] {
            if (mDelegate)
                mDelegate->audioFilePlayerUpdatedExportWithProgress(this, progress);
        },
        Qt::QueuedConnection);
}

} // namespace tesk
