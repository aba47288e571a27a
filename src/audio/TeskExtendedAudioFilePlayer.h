#pragma once

#include "audio/DecodedFrames.h"
#include "audio/TeskAudioFileReader.h"
#include "audio/TeskOutputAudioUnit.h"

#include <QObject>
#include <QTimer>
#include <atomic>
#include <chrono>
#include <memory>
#include <optional>

namespace tesk {

class TeskExtendedAudioFilePlayer;

/// Told of the end of the song, of a stop and of export progress. Every message has an empty
/// default; the delegate is not owned. Always on the main thread.
class TeskExtendedAudioFilePlayerDelegate {
public:
    virtual ~TeskExtendedAudioFilePlayerDelegate() = default;
    virtual void audioFilePlayerDidReachEndOfFile(TeskExtendedAudioFilePlayer*) {}
    virtual void audioFilePlayerDidStop(TeskExtendedAudioFilePlayer*) {}
    virtual void audioFilePlayerUpdatedExportWithProgress(TeskExtendedAudioFilePlayer*, double) {}
};

/// Plays one song through one output: keeps the play position in frames, loops over a range,
/// plays forwards or backwards, and tells its delegate when the song ends or playback stops.
/// Its effect and level operations pass on to the output with the conversions the transport
/// needs (speed sign as direction, semitones to cents, decibels to gain).
///
/// Main thread, except `supplyFrames`, which the rendering thread calls.
class TeskExtendedAudioFilePlayer : public QObject,
                                    private ChainSource,
                                    private TeskOutputAudioUnitDelegate {
    Q_OBJECT
    Q_PROPERTY(qint64 currentFrame READ currentFrame WRITE setCurrentFrame)
    Q_PROPERTY(float currentTime READ currentTime WRITE setCurrentTime)
    Q_CLASSINFO("keyPathsForValuesAffectingCurrentTime", "currentFrame")

public:
    /// Plays `frames`, which the player shares with whoever else reads the song.
    TeskExtendedAudioFilePlayer(std::shared_ptr<const DecodedFrames> frames, bool forEffects,
                                TimePitchQuality quality = TimePitchQuality::Standard,
                                QObject* parent = nullptr);
    ~TeskExtendedAudioFilePlayer() override;

    TeskOutputAudioUnit* outputAudioUnit() const { return mOutputAudioUnit.get(); }
    const std::shared_ptr<const DecodedFrames>& audioFile() const { return mAudioFile; }

    void startFilePlaying();
    /// Stops with the position where the sound already handed to the device ends (it is still
    /// heard, fading out), so that playing again goes on from there without repeating it.
    void stopFilePlaying();
    bool isFilePlaying() const;

    /// A negative speed plays backwards; zero is a programming error.
    void setPlaybackSpeed(float speed);
    /// Always positive: the direction is not reported back.
    float playbackSpeed() const;
    void setPlaybackPitchInSemitones(double semitones);
    double playbackPitchInSemitones() const;
    /// Decibels; 0 dB is unity.
    void setPlaybackVolume(float decibels);
    /// Linear gain.
    void setPlaybackLevel(float level);

    /// Switched while playing, the sound goes on without a stop, rendered again where the sound
    /// on its way would otherwise run past the loop's seam or wrap at it (see `setLoopRange`).
    void setLooping(bool looping);
    bool isLooping() const;
    /// While a loop plays, a new range whose seam falls inside the sound already on its way to
    /// the device renders that sound again, from the first frame the device has not yet been
    /// handed (a seek).
    void setLoopRange(LoopRange range);
    LoopRange loopRange() const;
    /// Whether a loop changed from `before` to `after` while playing must replay the sound on its
    /// way from the frame `from` (the next the device is handed), the reader being at `read`: it
    /// has wrapped at the old seam, the new seam lies inside it or behind the reader, or the
    /// reader is inside either seam's crossfade, where frames already read were faded for the
    /// old loop and the next ones would be for the new.
    /// Any thread.
    static bool loopChangeReplays(LoopRange before, LoopRange after, qint64 read, qint64 from,
                                  bool reverse);
    /// How long the end watch may wait before it looks again, the reader being `framesToEnd`
    /// from the song's end in the direction of play at `speed`: the time it needs to get there,
    /// less what may be rendered ahead at once after a seek, between 20 and 250 ms. Loops only
    /// make the way longer; a file that stops short of its length is told at most 250 ms late.
    /// Any thread.
    static std::chrono::milliseconds endWatchWait(qint64 framesToEnd, float speed);

    void setVocalRemoval(bool enabled);
    bool vocalRemoval() const;
    void setVocalReductionEffectSettings(const TeskVocalReductionEffectSettings* settings);
    const TeskVocalReductionEffectSettings* vocalReductionEffectSettings() const;
    void setPanAdjust(bool enabled);
    bool panAdjust() const;
    void setPanAmount(double amount);
    double panAmount() const;
    void setEqualizerEnabled(bool enabled);
    bool equalizerEnabled() const;
    void setEqualizerSettings(const TeskEqualizerSettings* settings);
    const TeskEqualizerSettings* equalizerSettings() const;
    void setOutOfPhase(bool outOfPhase);
    bool outOfPhase() const;
    std::vector<float> frequencyTable();
    std::vector<float> frequencyResponseForChannel(unsigned channel);

    /// While playing, the frame being heard now; else the last one seen or set.
    qint64 currentFrame() const;
    /// While playing, the newest report of which frame the device started to play and when, so
    /// a view can place the play position for the moment it draws; nothing when stopped, or
    /// until the first report after a start or a seek. Main thread.
    std::optional<AheadRenderer::HeardPosition> heardPosition() const;
    /// The source frame the device will be handed next while playing (where the sound goes on
    /// from if the stream is made again), else the position. Main thread.
    qint64 nextHandedFrame() const;
    /// Clamped to the song (a value of exactly the length is kept); a seek while playing.
    void setCurrentFrame(qint64 frame);
    /// Milliseconds.
    float currentTime() const;
    /// Moves the reader directly, without clamping.
    void setCurrentTime(float milliseconds);
    qint64 totalFrames() const;
    float maxTime() const;

    /// Renders the source frames of `range` (from its first frame, or from its last when playing
    /// backwards; looping as the reader does) through the chain into a file whose type its
    /// extension chooses, tagged with the song's metadata, as TeskOutputAudioUnit::writeSamples
    /// does. Progress reaches the delegate on the main thread. Playback must be stopped. Export
    /// thread. Throws NSXError when the file cannot be written.
    TeskOutputAudioUnit::ExportOutcome writeSamplesInRange(LoopRange range, const QString& path);
    /// As `writeSamplesInRange` for the whole song, once decoding has found its exact length
    /// (a song still decoding may have only an estimate); a cancel ends the wait. Export thread.
    TeskOutputAudioUnit::ExportOutcome writeWholeSong(const QString& path);
    /// Stops a running export after its current slice, or one about to begin before its first.
    /// Any thread.
    void cancelWriteToFile();
    /// Forgets a cancel that came after the last export ended: call it before starting an
    /// export on another thread, so that a cancel from then on reaches that export even if it
    /// comes before the export has begun. Not while an export runs.
    void clearCancelWriteToFile();
    /// Whether a cancel has been asked for since. Any thread.
    bool isWriteToFileCancelled() const;
    /// The title, artist, album and cover written into exported files. Main thread, before an
    /// export.
    void setSongMetadata(const SongMetadata& metadata) { mSongMetadata = metadata; }
    const SongMetadata& songMetadata() const { return mSongMetadata; }

    void setDelegate(TeskExtendedAudioFilePlayerDelegate* delegate) { mDelegate = delegate; }
    TeskExtendedAudioFilePlayerDelegate* delegate() const { return mDelegate; }

private:
    std::uint32_t supplyFrames(const AudioBufferList& buffers, std::uint32_t frameCount,
                               SourceRuns& runs) noexcept override;
    std::uint32_t supplyFramesPastEnd(const AudioBufferList& buffers,
                                      std::uint32_t frameCount) noexcept override;
    std::uint32_t supplyFramesBeforeStart(const AudioBufferList& buffers,
                                          std::uint32_t frameCount) noexcept override;
    /// Copies up to `frameCount` frames from the reader into `buffers`, waiting for it at most
    /// `wait` in all; fewer when a newer seek has made the render stale, the wait runs out or
    /// the song ends (`ended`).
    /// The rendering thread or the export thread.
    std::uint32_t copyFromReader(const AudioBufferList& buffers, std::uint32_t frameCount,
                                 SourceRuns& runs, std::chrono::steady_clock::duration wait,
                                 bool& ended) noexcept;
    bool hasFramesReady() noexcept override;
    void audioUnitDidStop(TeskOutputAudioUnit* unit) override;
    void outputAudioUnitDidUpdateProgress(TeskOutputAudioUnit* unit, double progress) override;
    void checkForEndOfFile();
    /// Has the end watch look again soon, after a seek or a faster speed. Main thread.
    void watchForEndSoon();
    /// Whether the reader has handed over the song's last frame since the last seek. `mDone`
    /// alone is not enough: the rendering thread may set it for the stream a seek has just
    /// replaced. Any thread.
    bool hasEnded() const noexcept {
        return mDone.load(std::memory_order_acquire) && mFileReader.endOfStream();
    }
    double sampleRate() const;
    /// Moves the reader to `frame` and has the output drop what it holds.
    /// A seek; one that renders again the sound on its way goes on from `mark`, where the frame
    /// is, so that nothing handed to the device meanwhile is handed again.
    void seek(qint64 frame, std::optional<AheadRenderer::HandedMark> mark = std::nullopt);
    /// The device's next frame as `nextHandedFrame` says it, with the device's count then.
    std::optional<AheadRenderer::HandedMark> nextHandedMark() const;
    /// A mark the device counted on from a block's first frame, put back inside the loop it
    /// may have wrapped at and inside the song.
    std::optional<AheadRenderer::HandedMark>
    inSong(std::optional<AheadRenderer::HandedMark> mark) const;
    /// A frame counted on from a block's first frame put back inside the loop it wrapped at:
    /// a loop shorter than a block wraps inside it, maybe more than once.
    double insideLoop(double frame) const;

    std::shared_ptr<const DecodedFrames> mAudioFile;
    std::unique_ptr<TeskOutputAudioUnit> mOutputAudioUnit;
    TeskAudioFileReader mFileReader;
    TeskExtendedAudioFilePlayerDelegate* mDelegate = nullptr;
    mutable qint64 mCurrentFrame = 0;
    /// Set by the rendering thread at the end of the song, cleared at each start.
    std::atomic<bool> mDone{false};
    /// The rendering generation of the newest seek, set (main thread) before the reader moves:
    /// a render for an older one is stale and takes no more frames, so none of those at the new
    /// place are lost to it. A flag that the chain's restart cleared could be cleared by the
    /// restart of the render before, and lose the newest seek's first frames.
    std::atomic<std::uint64_t> mSeekGeneration{0};
    bool mEndReported = false;
    /// Once the song has ended: the renderer's count of blocks when that was first seen, and
    /// the device's played frames at which its last frame is heard.
    std::optional<std::uint64_t> mEndSeenAtBlock;
    std::optional<std::uint64_t> mEndHeardAt;
    /// While exporting: the source frames still to give the chain (export thread only), or
    /// negative when not exporting.
    qint64 mExportFramesLeft = -1;
    SongMetadata mSongMetadata;
    /// The rendering thread never messages the main thread; the main thread looks instead,
    /// seldom while the end is far (`endWatchWait`).
    QTimer mEndWatch;
};

} // namespace tesk
