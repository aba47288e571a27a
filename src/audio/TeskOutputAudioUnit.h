#pragma once

#include "audio/AheadRenderer.h"
#include "audio/DecodedFrames.h"
#include "audio/ProcessingChain.h"
#include "audio/SongMetadata.h"
#include "audio/TeskEqualizerSettings.h"
#include "audio/TeskSoundDevice.h"
#include "audio/TeskVocalReductionEffectSettings.h"
#include "audio/dsp/AudioStreamDescription.h"

#include <QObject>
#include <QTimer>
#include <functional>
#include <memory>
#include <vector>

namespace tesk {

class TeskOutputAudioUnit;

/// Told when the output starts and stops. Every message has an empty default; the delegate is
/// not owned. Main thread.
class TeskOutputAudioUnitDelegate {
public:
    virtual ~TeskOutputAudioUnitDelegate() = default;
    virtual void audioUnitDidStart(TeskOutputAudioUnit*) {}
    virtual void audioUnitDidStop(TeskOutputAudioUnit*) {}
    virtual void outputAudioUnitDidUpdateProgress(TeskOutputAudioUnit*, double) {}
};

/// The output of one song: its processing chain (equalizer, time-pitch, vocal reduction,
/// spectrum, pan, level), run ahead of the system's sound device, or of a silent device when
/// none opens. Created by the file player; the player's source feeds it.
///
/// Main thread, unless said otherwise.
class TeskOutputAudioUnit : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool equalizerEnabled READ equalizerEnabled WRITE setEqualizerEnabled NOTIFY
                   equalizerEnabledChanged)
    Q_PROPERTY(bool hasSoundOutput READ hasSoundOutput NOTIFY soundOutputChanged)

public:
    /// `forEffects` is accepted for callers that open a song to process it; the chain is the
    /// same either way.
    TeskOutputAudioUnit(const AudioStreamDescription& streamDescription, bool forEffects,
                        TimePitchQuality quality = TimePitchQuality::Standard,
                        QObject* parent = nullptr);
    ~TeskOutputAudioUnit() override;

    /// Where the chain's frames come from. While stopped.
    void setOutputAudioUnitHandler(ChainSource* handler);

    /// Starts playing; on a running output it changes nothing. Opens the sound device the first
    /// time, falling back to the silent device when none opens.
    void start();
    void stop();
    bool isRunning() const;

    /// Drops what is queued for the device and restarts the chain from the source's next
    /// frames, so a seek is heard at once.
    void flush() { mRenderer.flush(); }
    /// As `flush`, for a seek to `mark`'s frame that renders again the sound on its way: what the
    /// device was handed since the mark is not handed again.
    void flush(AheadRenderer::HandedMark mark) { mRenderer.flush(mark); }
    /// The generation the next flush makes, and the one the rendering thread renders for:
    /// see AheadRenderer.
    std::uint64_t nextGeneration() const { return mRenderer.generation() + 1; }
    std::uint64_t renderingGeneration() const { return mRenderer.renderingGeneration(); }

    void setPlaybackRate(float rate);
    float playbackRate() const;
    /// Cents.
    void setPlaybackPitch(float cents);
    float playbackPitch() const;
    /// Linear gain.
    void setPlaybackLevel(float level);
    float playbackLevel() const;

    void setEqualizerEnabled(bool enabled);
    bool equalizerEnabled() const;
    /// Stores a copy; bands 0 to 9 reach the equalizer (a missing band is 0 dB).
    void setEqualizerSettings(const TeskEqualizerSettings* settings);
    const TeskEqualizerSettings* equalizerSettings() const { return mEqualizerSettings.get(); }
    void setRemoveVocals(bool enabled);
    bool removeVocals() const;
    /// Stores a copy; its band applies from the next block.
    void setVocalReductionEffectSettings(const TeskVocalReductionEffectSettings* settings);
    const TeskVocalReductionEffectSettings* vocalReductionEffectSettings() const {
        return mVocalReductionEffectSettings.get();
    }
    void setPanAdjust(bool enabled);
    bool panAdjust() const;
    void setPanAmount(double amount);
    double panAmount() const;
    void setOutOfPhase(bool outOfPhase);
    bool outOfPhase() const;

    void setDelegate(TeskOutputAudioUnitDelegate* delegate) { mDelegate = delegate; }
    TeskOutputAudioUnitDelegate* delegate() const { return mDelegate; }
    const AudioStreamDescription& streamDescription() const { return mStreamDescription; }

    /// The frequency of each spectrum point, and the live spectrum of a channel (empty before
    /// the first analysis).
    std::vector<float> frequencyTable();
    std::vector<float> frequencyResponseForChannel(unsigned channel);

    /// False while playing into the silent device; `noSoundReason` then says why.
    bool hasSoundOutput() const;
    QString noSoundReason() const { return mNoSoundReason; }

    /// The source frame being heard now, while running; negative when not known yet.
    double heardSourceFrame() const;
    /// While running, the source frame the device will be handed next; nothing before the
    /// first frame handed since the start or the last flush. Main thread.
    std::optional<AheadRenderer::HandedMark> nextHandedMark() const {
        return mRenderer.nextHandedMark();
    }
    /// After `stop`: where the sound heard up to it ends (see AheadRenderer). Main thread.
    std::optional<AheadRenderer::HandedMark> markWhereStopFaded() const {
        return mRenderer.markWhereStopFaded();
    }
    /// Frames the device has played since the start, in whole blocks. Any thread.
    std::uint64_t playedFrames() const {
        return mRenderer.playedBlocks() * AheadRenderer::kBlockFrames;
    }
    /// Blocks rendered since the start (see AheadRenderer). Any thread.
    std::uint64_t renderedBlocks() const { return mRenderer.renderedBlocks(); }
    /// Frames the device will play before the last source frame taken so far is heard, at
    /// most: what the stretcher holds, what waits ahead of the device, the device's buffer.
    /// Main thread, while running.
    std::uint64_t framesUntilHeard() const;
    /// While running, the newest report of which source frame the device started to play and
    /// when; nothing before the first report since the start or the last flush. Main thread.
    std::optional<AheadRenderer::HeardPosition> heardPosition() {
        return mRenderer.heardPosition();
    }
    /// Times the device found nothing to play while running.
    std::uint64_t underrunCount() const { return mRenderer.underrunCount(); }

    /// How an export ended.
    enum class ExportOutcome {
        Written,   ///< the whole range is in the file
        Cancelled, ///< stopped by `cancelWriteToFile` after the slice being written
        Ignored,   ///< the file name ends neither in "aif" nor in "m4a": no file, no error
    };

    /// Renders `sourceFrameCount` frames of the source through the chain, as fast as it goes,
    /// into a file whose type its extension chooses ("aif": AIFF, 16-bit; "m4a": AAC), tagged
    /// with `metadata`. The file holds round(frames / rate) frames rounded up to whole slices;
    /// progress goes to the delegate on the main thread at most every 22050 frames. A cancelled
    /// export leaves what it wrote. Playback must not run meanwhile.
    /// Export thread (neither the main thread nor the rendering thread). Throws NSXError when the
    /// file cannot be written.
    /// A chain that has never played, set as the playing one is, reading `source`: the
    /// stretcher keeps traces of what it played through a reset, and an export must come out
    /// the same every time, as `tesk-render` makes it. The export thread; takes the spare chain
    /// (waiting for it if it is being built) or builds one, in about 70 ms.
    std::unique_ptr<ProcessingChain> takeExportChain(ChainSource* source) const;
    ExportOutcome writeSamples(qint64 sourceFrameCount, const QString& path,
                               const SongMetadata& metadata = {});
    /// As `writeSamples`, for `sourceFrameCount` frames of `frames` from `location`, played
    /// forwards: the two halves render on two chains at once, one on this thread and one on a
    /// thread of its own, and join in a short crossfade. Takes half the time on two cores.
    /// Export thread. Throws NSXError when the file cannot be written.
    ExportOutcome writeSamplesInTwoParts(const DecodedFrames& frames, qint64 location,
                                         qint64 sourceFrameCount, const QString& path,
                                         const SongMetadata& metadata = {});

    /// Stops a running export after its current slice; asked for before an export begins, it
    /// stops that export before its first slice. An export that ends forgets it. Any thread.
    void cancelWriteToFile() { mCancelExport.store(true); }
    /// Forgets a cancel that came while no export ran. Not while an export runs; any thread.
    void clearCancelWriteToFile() { mCancelExport.store(false); }
    /// Whether a cancel has been asked for and not yet forgotten. Any thread.
    bool isWriteToFileCancelled() const { return mCancelExport.load(); }
    bool isExporting() const { return mExportingAudio.load(); }

    /// The frames of one export slice.
    static constexpr std::uint32_t kExportSliceFrames = 1024;

    /// The chain itself, for an offline render (export) while stopped.
    ProcessingChain& chain() { return *mChain; }

    /// Makes the devices this output plays into from now on (opened at the next start): for
    /// tests and headless use. The default opens the system's device, or the silent one.
    using SoundDeviceFactory =
        std::function<std::unique_ptr<TeskSoundDevice>(AudioRenderer& renderer)>;
    void setSoundDeviceFactory(SoundDeviceFactory factory);
    /// Plays into the silent device instead of the system's. While stopped.
    void useSilentDevice();
    /// How long a stopped output keeps its device open, so that playing again starts at once.
    /// An open device goes on taking silence, and the sound server can then never let the
    /// hardware sleep: after this long it is closed, and the next start opens it again.
    static constexpr int kIdleDeviceMilliseconds = 30000;
    void setIdleDeviceMilliseconds(int milliseconds) { mIdleDevice.setInterval(milliseconds); }
    /// Whether a device is open now. Main thread.
    bool hasOpenDevice() const { return mDevice != nullptr; }

signals:
    void equalizerEnabledChanged();
    void OutputAudioUnitDidStartNotification();
    void OutputAudioUnitDidStopNotification();
    void soundOutputChanged();

private:
    /// Marks an export as running for as long as it lives; a cancel asked for during it, or
    /// before it began, is for this export alone and is forgotten when it ends.
    struct ExportingFlag {
        explicit ExportingFlag(TeskOutputAudioUnit& unit)
            : unit(unit) {
            unit.mExportingAudio = true;
        }
        ~ExportingFlag() {
            unit.mCancelExport = false;
            unit.mExportingAudio = false;
        }
        TeskOutputAudioUnit& unit;
    };

    void openDevice();
    /// Lets go of the sound device of a stopped output; whether there was one.
    bool releaseIdleDevice();
    /// Tells the delegate, on the main thread, how far an export has got. Export thread.
    void postExportProgress(double progress);
    void checkDevice();

    AudioStreamDescription mStreamDescription;
    TeskOutputAudioUnitDelegate* mDelegate = nullptr;
    std::unique_ptr<ProcessingChain> mChain;
    AheadRenderer mRenderer;
    std::unique_ptr<TeskSoundDevice> mDevice;
    QString mNoSoundReason;
    // Whether the device last opened plays to speakers: kept while a stopped output has let
    // go of it.
    bool mSoundOutput = false;
    // The silent device stands in for a system device that would not open.
    bool mPlayingInPlaceOfSystemDevice = false;
    SoundDeviceFactory mDeviceFactory;
    QTimer mDeviceWatch;
    QTimer mIdleDevice; // closes the device of a stopped output
    std::unique_ptr<TeskEqualizerSettings> mEqualizerSettings;
    std::unique_ptr<TeskVocalReductionEffectSettings> mVocalReductionEffectSettings;
    ChainSource* mPlaybackSource = nullptr;
    std::atomic<bool> mCancelExport{false};
    std::atomic<bool> mExportingAudio{false};
};

} // namespace tesk
