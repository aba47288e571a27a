#include "audio/TeskExtendedAudioFilePlayer.h"

#include "support/Assertions.h"
#include "support/ManualSoundDevice.h"
#include "support/MemorySong.h"
#include "support/Signals.h"

#include <QCoreApplication>
#include <QSignalSpy>
#include <QTest>
#include <atomic>
#include <cmath>
#include <functional>
#include <gtest/gtest.h>
#include <limits>
#include <optional>
#include <thread>
#include <utility>

using namespace tesk;
using tesk::test::ManualSoundDevice;
using tesk::test::MemorySong;

namespace {

class RecordingDelegate : public TeskExtendedAudioFilePlayerDelegate {
public:
    void audioFilePlayerDidReachEndOfFile(TeskExtendedAudioFilePlayer*) override { ++ends; }
    void audioFilePlayerDidStop(TeskExtendedAudioFilePlayer*) override { ++stops; }
    int ends = 0;
    int stops = 0;
};

/// A device pulled by hand that, when told to, takes one more period as a stop asks whether it
/// runs, before the stop's fade: what a device does while a busy main thread gets there.
class LatePullingDevice : public ManualSoundDevice {
public:
    using ManualSoundDevice::ManualSoundDevice;
    bool isRunning() const override {
        auto* self = const_cast<LatePullingDevice*>(this);
        if (pullAsAsked && std::this_thread::get_id() == mainThread) {
            self->pull();
            self->pullAsAsked = false;
        }
        return ManualSoundDevice::isRunning();
    }
    std::atomic<bool> pullAsAsked{false}; // the test's other pulls wait for this one
    const std::thread::id mainThread = std::this_thread::get_id();
};

/// A player whose output goes to a device the test pulls by hand.
struct ManualPlayer {
    explicit ManualPlayer(std::shared_ptr<DecodedFrames> song)
        : player(std::move(song), false) {
        player.outputAudioUnit()->setSoundDeviceFactory([this](AudioRenderer& renderer) {
            auto made = std::make_unique<LatePullingDevice>(renderer);
            device = made.get();
            ahead = dynamic_cast<AheadRenderer*>(&renderer);
            return made;
        });
    }
    ~ManualPlayer() {
        // With the device pulling, the stop need not wait out its last period.
        if (player.isFilePlaying())
            stopWhileTheDevicePulls();
    }

    /// Pulls device periods as soon as the rendering thread has one ready: as fast as the
    /// machine renders, and never into an empty ring, however loaded the machine is.
    void play(int periods) {
        for (int i = 0; i < periods; ++i) {
            waitForAPeriod();
            device->pull();
            positions.push_back(player.currentFrame());
            reports.push_back(player.heardPosition());
        }
    }

    /// Waits until the rendering thread has a period ready for the device.
    void waitForAPeriod() const {
        waitUntil([this] {
            return ahead->leadBlocks() >=
                   TeskSoundDevice::kDefaultBufferFrames / AheadRenderer::kBlockFrames;
        });
    }

    /// Waits until the ring holds `blocks`.
    void waitForQueued(std::uint64_t blocks) const {
        waitUntil([&] { return ahead->queuedBlocks() >= blocks; });
    }

    /// Waits until `condition` holds, for 30 seconds at most: a loaded machine running the
    /// sanitizer build renders a period in seconds at worst, and a wait given up too early
    /// would hand the device silence the test takes for the player's.
    static void waitUntil(const std::function<bool()>& condition) {
        const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (!condition() && std::chrono::steady_clock::now() < giveUp)
            std::this_thread::sleep_for(std::chrono::microseconds(100));
    }

    /// Stops the player while the device goes on pulling, as a real one does while the stop
    /// waits for its last period.
    void stopWhileTheDevicePulls() {
        std::thread pulling([this] {
            waitUntil([this] { return !device->pullAsAsked; });
            while (device->isRunning()) {
                device->pull();
                std::this_thread::sleep_for(std::chrono::milliseconds(2));
            }
        });
        player.stopFilePlaying();
        pulling.join();
    }

    /// Pauses while the device takes one more period as the stop reaches it, and returns where
    /// in what it was handed the period that faded out began: the last one with sound in it.
    std::size_t pauseAsTheDeviceTakesAPeriod() {
        waitForAPeriod();
        device->pullAsAsked = true;
        stopWhileTheDevicePulls();
        const std::vector<float>& heard = device->left;
        const auto lastSound =
            std::find_if(heard.rbegin(), heard.rend(), [](float sample) { return sample != 0.0f; });
        const std::size_t period = TeskSoundDevice::kDefaultBufferFrames;
        if (lastSound == heard.rend())
            return 0;
        return std::size_t(heard.rend() - lastSound - 1) / period * period;
    }

    /// Plays period by period until the player reports what is heard (a hundred at most).
    std::optional<AheadRenderer::HeardPosition> playUntilReported() {
        int periods = 0;
        do
            play(1);
        while (++periods < 100 && !reports.back());
        return reports.back();
    }

    /// The source frame first reported heard from here on (0 if none is).
    double heardFrame() {
        return playUntilReported().value_or(AheadRenderer::HeardPosition{}).sourceFrame;
    }

    /// Plays from `frame`.
    void startAt(qint64 frame) {
        player.setCurrentFrame(frame);
        player.startFilePlaying();
    }

    TeskExtendedAudioFilePlayer player;
    LatePullingDevice* device = nullptr;
    AheadRenderer* ahead = nullptr;
    std::vector<qint64> positions;                                    // after each period
    std::vector<std::optional<AheadRenderer::HeardPosition>> reports; // after each period
};

/// 2 kHz bursts (sigma 5 ms) every `spacing` frames from `first` on, on the side only, which the
/// vocal reduction keeps.
std::shared_ptr<MemorySong> bursts(qint64 frames, qint64 first, qint64 spacing) {
    std::vector<float> samples(static_cast<std::size_t>(frames), 0.0f);
    for (qint64 centre = first; centre < frames; centre += spacing)
        test::addToneBurst(samples, double(centre), 220.0);
    auto side = test::Stereo::side(samples);
    return std::make_shared<MemorySong>(std::move(side.left), std::move(side.right));
}

/// The output frame at the energy centre of each burst: of what lies around its loud part,
/// short of the next burst.
std::vector<double> burstCentres(const std::vector<float>& samples) {
    std::vector<double> centres;
    for (std::size_t i = 0; i < samples.size(); ++i) {
        if (std::fabs(samples[i]) < 0.05f)
            continue;
        const std::size_t begin = i > 1500 ? i - 1500 : 0;
        const std::size_t end = std::min(samples.size(), i + 3000);
        centres.push_back(double(begin) +
                          test::energyCentre(std::span(samples).subspan(begin, end - begin)));
        i = end;
    }
    return centres;
}
/// A 110 Hz tone at half scale whose frames stop coming once `stall` is set, holding the
/// rendering thread as a machine too busy to render would, until `resume`. Sought, it goes on
/// from the frame given once the renderer renders for the seek, as a player's reader does.
class StallingTone : public ChainSource {
public:
    explicit StallingTone(const AheadRenderer& ahead)
        : mAhead(ahead) {}

    /// Main thread: from `frame` for the seek the renderer's next flush makes.
    void seek(std::int64_t frame) {
        mSeekFrame = frame;
        mSeekGeneration = mAhead.generation() + 1;
    }

    std::uint32_t supplyFrames(const AudioBufferList& buffers, std::uint32_t frameCount,
                               SourceRuns& runs) noexcept override {
        while ((stall.load() || mAhead.leadBlocks() >= stallAtLead.load()) && !resume.load()) {
            held = true;
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        const std::uint64_t sought = mSeekGeneration.load();
        if (mAhead.renderingGeneration() < sought)
            return 0; // for a render the seek made stale
        if (sought != mSoughtGeneration) {
            mSoughtGeneration = sought;
            mSupplied = mSeekFrame.load();
        }
        for (std::uint32_t i = 0; i < frameCount; ++i) {
            const auto value = float(0.5 * std::sin(kStep * double(mSupplied + i)));
            buffers.buffers[0].data[i] = value;
            buffers.buffers[1].data[i] = value;
        }
        runs.count = 1;
        runs.runs[0] = {0, mSupplied, 1};
        mSupplied += frameCount;
        return frameCount;
    }

    static constexpr double kStep = 2.0 * M_PI * 110.0 / 44100.0;
    std::atomic<bool> stall{false};
    /// Stalls once the renderer is this many blocks ahead.
    std::atomic<std::uint64_t> stallAtLead{std::numeric_limits<std::uint64_t>::max()};
    std::atomic<bool> held{false}; // the rendering thread waits in here
    std::atomic<bool> resume{false};

private:
    const AheadRenderer& mAhead;
    std::atomic<std::int64_t> mSeekFrame{0};
    std::atomic<std::uint64_t> mSeekGeneration{0};
    std::uint64_t mSoughtGeneration = 0;
    std::int64_t mSupplied = 0;
};

/// Waits, at most ten seconds, for `condition`.
bool waitFor(const std::function<bool()>& condition) {
    for (int i = 0; i < 10000 && !condition(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return condition();
}
} // namespace

/// A tone played by hand through a renderer, period by period.
struct ManualRenderer {
    ManualRenderer() {
        chain.setSource(&tone);
        ahead.start(device);
    }
    ~ManualRenderer() {
        tone.resume = true; // a test that ends early leaves no rendering thread held
        ahead.stop();
    }

    /// Pulls a period once the renderer is `blocks` ahead.
    void pullWhenAhead(std::uint64_t blocks = kPeriod / AheadRenderer::kBlockFrames) {
        EXPECT_TRUE(waitFor([&] { return ahead.leadBlocks() >= blocks; }));
        device.pull();
    }
    /// Plays four periods, then waits for the renderer's whole lead; whether it came.
    bool playAhead() {
        for (int period = 0; period < 4; ++period)
            pullWhenAhead();
        return waitFor([&] { return ahead.leadBlocks() == AheadRenderer::kLeadBlocks; });
    }
    /// Stalls the tone on the next block the device makes room for; whether it is held there.
    bool stallNextBlock() {
        tone.stall = true;
        device.pull(AheadRenderer::kBlockFrames);
        return waitFor([&] { return tone.held.load(); });
    }
    /// After a seek: pulls periods, each once the renderer has filled what room it has, until
    /// the device reports what it started to play.
    std::optional<AheadRenderer::HeardPosition> pullUntilHeard() {
        for (int period = 0; period < 20 && !ahead.heardPosition(); ++period) {
            EXPECT_TRUE(waitFor([&] {
                return ahead.queuedBlocks() == AheadRenderer::kBlockCount ||
                       ahead.leadBlocks() == AheadRenderer::kLeadBlocks;
            }));
            device.pull();
        }
        return ahead.heardPosition();
    }

    static constexpr std::uint32_t kPeriod = TeskSoundDevice::kDefaultBufferFrames;
    ProcessingChain chain{44100.0, TimePitchQuality::Standard};
    AheadRenderer ahead{chain};
    StallingTone tone{ahead};
    ManualSoundDevice device{ahead};
};

TEST(AheadRenderer, ARingThatRunsDryFadesOutWhereverThePeriodStands) {
    // The ring runs dry `into` frames into a period: at its start, with nothing of the period
    // to fade, or too few frames into it for a fade of its own.
    for (const std::uint32_t into : {0u, 8u}) {
        SCOPED_TRACE(into);
        ManualRenderer manual;
        ASSERT_TRUE(
            waitFor([&] { return manual.ahead.queuedBlocks() == AheadRenderer::kLeadBlocks; }));
        ASSERT_TRUE(manual.stallNextBlock());
        const auto left = std::uint32_t(manual.ahead.queuedBlocks() * AheadRenderer::kBlockFrames);
        manual.device.pull(left - into);
        manual.device.pull(AheadRenderer::kBlockFrames);
        EXPECT_EQ(manual.ahead.underrunCount(), 1u);
        manual.tone.resume = true;
        manual.ahead.stop();
        // After the start's fade-in, no step may be larger than the tone's own: a cut to
        // silence jumps by up to half scale.
        EXPECT_LT(test::largestStep(std::span(manual.device.left).subspan(128)),
                  1.5 * 0.5 * StallingTone::kStep);
    }
}

TEST(AheadRenderer, ASeekFromTheDevicesNextFrameSkipsWhatItWasHandedMeanwhile) {
    // A loop changed while playing renders the sound on its way again from the frame the device
    // is handed next. A period the device takes between that mark and the seek is not handed a
    // second time: the new stream goes on after it.
    for (const std::uint32_t slipped : {0u, 1u, 2u}) {
        SCOPED_TRACE(slipped);
        ManualRenderer manual;
        for (int period = 0; period < 4; ++period)
            manual.pullWhenAhead();
        const std::optional<AheadRenderer::HandedMark> mark = manual.ahead.nextHandedMark();
        ASSERT_TRUE(mark);
        EXPECT_EQ(mark->sourceFrame, 4 * ManualRenderer::kPeriod);
        for (std::uint32_t period = 0; period < slipped; ++period)
            manual.pullWhenAhead();
        manual.tone.seek(mark->sourceFrame);
        manual.ahead.flush(*mark);
        const std::optional<AheadRenderer::HeardPosition> heard = manual.pullUntilHeard();
        ASSERT_TRUE(heard);
        EXPECT_NEAR(heard->sourceFrame,
                    double(mark->sourceFrame + slipped * ManualRenderer::kPeriod), 1.0);
    }
}

TEST(AheadRenderer, TheOldSoundPlaysOnUntilAPeriodOfTheSoughtOneIsReady) {
    // The device's period comes when the rendering thread has rendered only one block since a
    // seek. Played at once, the new sound would run dry half-way through the period; faded out
    // at once, the old one would leave silence until the next period. The old tone goes on
    // instead, and the new one follows from the frame sought once it is ready.
    ManualRenderer manual;
    // The old sound's lead whole, and no block of it being rendered as the seek comes (one
    // would be cut short by it).
    ASSERT_TRUE(manual.playAhead());
    constexpr std::int64_t kSought = 44100;
    manual.tone.seek(kSought);
    manual.tone.stallAtLead = 1;
    manual.ahead.flush();
    ASSERT_TRUE(waitFor([&] { return manual.tone.held.load() && manual.ahead.leadBlocks() > 0; }));
    ASSERT_LT(manual.ahead.leadBlocks() * AheadRenderer::kBlockFrames, ManualRenderer::kPeriod);
    const std::size_t waited = manual.device.left.size();
    manual.device.pull();
    // The tone crosses zero in a few frames; silence would stay there.
    EXPECT_LT(test::longestQuiet(std::span(manual.device.left).subspan(waited)), 8u)
        << "the old tone, without a gap";
    manual.tone.resume = true;
    const std::optional<AheadRenderer::HeardPosition> heard = manual.pullUntilHeard();
    ASSERT_TRUE(heard);
    EXPECT_NEAR(heard->sourceFrame, double(kSought), 1.0);
    EXPECT_EQ(manual.ahead.underrunCount(), 0u);
}

TEST(AheadRenderer, AnOldSoundThatEndsBeforeTheSoughtOneIsReadyFadesOutOrHandsOver) {
    // Seeks soon after one another: the sound playing has only a few blocks rendered, and they
    // run out before a period of the newest is ready. It fades from its last frame rather than
    // stopping dead; where a seek in between (a play head dragged along) left blocks that were
    // never heard, they play on in its place rather than silence.
    for (const bool between : {false, true}) {
        SCOPED_TRACE(between ? "a seek in between" : "one seek");
        ManualRenderer manual;
        ASSERT_TRUE(manual.playAhead());
        ASSERT_TRUE(manual.stallNextBlock());
        const auto queued = std::uint32_t(manual.ahead.queuedBlocks());
        manual.device.pull((queued - 2) * AheadRenderer::kBlockFrames);
        if (between) {
            manual.tone.seek(88200);
            manual.tone.stallAtLead = 3;
            manual.ahead.flush();
            manual.tone.stall = false;
            ASSERT_TRUE(waitFor([&] { return manual.ahead.leadBlocks() == 3; }));
        }
        manual.tone.seek(44100);
        manual.tone.stallAtLead = 1;
        manual.ahead.flush();
        manual.tone.stall = false; // the block it holds ends, then one block of the newest sound
        ASSERT_TRUE(waitFor([&] { return manual.ahead.leadBlocks() == 1; }));
        const std::size_t before = manual.device.left.size();
        manual.device.pull(1024);
        const std::span<const float> heard = std::span(manual.device.left).subspan(before - 1);
        // A cut jumps by up to half scale; a fade moves by the tone's own step, a crossfade of
        // the tone at two phases by the steps of both at once.
        EXPECT_LT(test::largestStep(heard), (between ? 2.5 : 1.5) * 0.5 * StallingTone::kStep);
        if (between) {
            EXPECT_LT(test::longestQuiet(heard), 16u) << "the sound sought in between plays on";
        }
    }
}

TEST(TeskExtendedAudioFilePlayer, ALoopChangedNearASeamReplaysWhatIsOnItsWay) {
    // A loop over 10000 … 20000 heard at 15000 (backwards: the seam is at 10000). The sound
    // between what is heard and the reader is replayed where the new loop would play it
    // otherwise, or where frames already read were faded for the old seam (132 frames before it
    // in the direction of play) or would start half-way into the new one's fade.
    const struct {
        const char* name;
        bool reverse;
        qint64 read;
        LoopRange after;
        bool replays;
    } cases[] = {
        {"far from both seams", false, 16000, {10000, 12000}, false},
        {"in the old fade, the end moved on", false, 19950, {10000, 12000}, true},
        {"in the old fade, the start moved", false, 19950, {5000, 15000}, true},
        {"just before the new end", false, 16000, {10000, 6050}, true},
        {"the new end already read", false, 17000, {10000, 6500}, true},
        {"wrapped at the old seam", false, 10100, {10000, 12000}, true},
        {"backwards, far from both seams", true, 14000, {9000, 11000}, false},
        {"backwards, in the old fade", true, 10050, {9000, 11000}, true},
        {"backwards, just above the new start", true, 14000, {13950, 6050}, true},
        {"backwards, a loop drawn above", true, 14000, {40000, 5000}, true},
        {"a loop drawn behind", false, 16000, {2000, 5000}, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(TeskExtendedAudioFilePlayer::loopChangeReplays({10000, 10000}, c.after, c.read,
                                                                 15000, c.reverse),
                  c.replays);
    }
}

TEST(TeskExtendedAudioFilePlayer, APausedSongLetsGoOfTheDeviceAfterAWhileAndPlaysOnWithANewOne) {
    TeskExtendedAudioFilePlayer player(MemorySong::sine(44100 * 10, 440.0, 0.5), false);
    TeskOutputAudioUnit* output = player.outputAudioUnit();
    int opened = 0;
    const auto openDevice = [&](AudioRenderer& renderer) {
        ++opened;
        return std::make_unique<ManualSoundDevice>(renderer); // one with speakers
    };
    output->setSoundDeviceFactory(openDevice);
    output->setIdleDeviceMilliseconds(100);
    // Played again at once, a paused song keeps its device; left paused, it lets go of it.
    player.startFilePlaying();
    player.stopFilePlaying();
    player.startFilePlaying();
    EXPECT_EQ(opened, 1);
    player.stopFilePlaying();
    EXPECT_TRUE(output->hasOpenDevice());
    EXPECT_TRUE(QTest::qWaitFor([&] { return !output->hasOpenDevice(); }, 5000));
    EXPECT_TRUE(output->hasSoundOutput()) << "the last device's answer, kept";
    output->useSilentDevice(); // until the next start, no device to play to
    EXPECT_FALSE(output->hasSoundOutput());
    output->setSoundDeviceFactory(openDevice);
    player.startFilePlaying();
    EXPECT_EQ(opened, 2);
    EXPECT_TRUE(player.isFilePlaying());
    player.stopFilePlaying();
}

TEST(TeskExtendedAudioFilePlayer, APlayerLeftSilentByABusyDeviceAsksForItAgainAtItsNextStart) {
    // The test driver, as some systems' sound, has one device for one player at a time.
    TeskExtendedAudioFilePlayer first(MemorySong::sine(44100 * 10, 440.0, 0.5), false);
    TeskExtendedAudioFilePlayer second(MemorySong::sine(44100 * 10, 660.0, 0.5), false);
    TeskOutputAudioUnit* firstOutput = first.outputAudioUnit();
    TeskOutputAudioUnit* secondOutput = second.outputAudioUnit();
    QSignalSpy told(secondOutput, &TeskOutputAudioUnit::soundOutputChanged);
    first.startFilePlaying();
    ASSERT_TRUE(firstOutput->hasSoundOutput());
    second.startFilePlaying();
    EXPECT_FALSE(secondOutput->hasSoundOutput());
    EXPECT_EQ(told.count(), 1);
    // Still playing, the first keeps the device; the second's next start, in silence again,
    // is not told again.
    second.stopFilePlaying();
    second.startFilePlaying();
    EXPECT_FALSE(secondOutput->hasSoundOutput());
    EXPECT_TRUE(firstOutput->hasOpenDevice());
    EXPECT_EQ(told.count(), 1);
    // Paused, the first would keep its device for a while: the second takes it.
    first.stopFilePlaying();
    second.stopFilePlaying();
    second.startFilePlaying();
    EXPECT_TRUE(secondOutput->hasSoundOutput());
    EXPECT_FALSE(firstOutput->hasOpenDevice());
    second.stopFilePlaying();
}

TEST(TeskExtendedAudioFilePlayer, ConvertsTransportValuesAndClampsThePosition) {
    TeskExtendedAudioFilePlayer player(MemorySong::counting(10000), false);
    player.setCurrentFrame(-5);
    EXPECT_EQ(player.currentFrame(), 0);
    player.setCurrentFrame(10001);
    EXPECT_EQ(player.currentFrame(), 9999);
    player.setCurrentFrame(10000); // exactly the length is kept
    EXPECT_EQ(player.currentFrame(), 10000);
    EXPECT_FLOAT_EQ(player.currentTime(), 10000.0f / 44100.0f * 1000.0f);
    EXPECT_FLOAT_EQ(player.maxTime(), 10000.0f / 44100.0f * 1000.0f);

    player.setPlaybackSpeed(-0.5f);
    EXPECT_FLOAT_EQ(player.playbackSpeed(), 0.5f); // the direction is not reported back
    player.setPlaybackPitchInSemitones(-2.0);
    EXPECT_FLOAT_EQ(player.outputAudioUnit()->playbackPitch(), -200.0f);
    EXPECT_DOUBLE_EQ(player.playbackPitchInSemitones(), -2.0);
    player.setPlaybackVolume(0.0f);
    EXPECT_FLOAT_EQ(player.outputAudioUnit()->playbackLevel(), 1.0f);
    player.setPlaybackVolume(-6.0f);
    EXPECT_NEAR(player.outputAudioUnit()->playbackLevel(), 0.501, 0.001);

    EXPECT_TESK_ASSERTION(player.setPlaybackSpeed(0.0f),
                          "Invalid parameter not satisfying: speed > 0.0 || speed < 0.0");
}

TEST(TeskExtendedAudioFilePlayer, TheReportedPositionIsTheFrameBeingHeard) {
    // Bursts every 0.25 s: wherever one is heard, the position reported for that moment must
    // name its source frame within 10 ms, of the song and of the listener's time alike, at any
    // speed and in either direction, and through the vocal reduction's block delay.
    const qint64 spacing = 11025;
    const qint64 first = 4000;
    const struct {
        float speed;
        bool vocals;
    } cases[] = {{1.0f, false},   {0.5f, false}, {2.0f, false}, {-1.0f, false},
                 {-0.75f, false}, {1.0f, true},  {-0.75f, true}};
    for (const auto [speed, vocals] : cases) {
        SCOPED_TRACE(testing::Message() << "speed " << speed << " vocals " << vocals);
        ManualPlayer manual(bursts(44100 * 8, first, spacing));
        manual.player.setPlaybackSpeed(speed);
        manual.player.setVocalRemoval(vocals);
        manual.startAt(speed < 0 ? 44100 * 6 : 0);
        manual.play(200);
        EXPECT_EQ(manual.player.outputAudioUnit()->underrunCount(), 0u);
        const auto centres = burstCentres(manual.device->left);
        ASSERT_GE(centres.size(), 4u);
        const std::uint32_t period = TeskSoundDevice::kDefaultBufferFrames;
        const double tolerance = 441.0 * std::min(1.0, double(std::fabs(speed)));
        for (double centre : centres) {
            const auto callback = std::size_t(centre) / period;
            if (callback + 1 >= manual.positions.size())
                continue;
            // Reported after the next period: the frame heard at the start of this one.
            const double heardAtStart = double(manual.positions[callback + 1]);
            const double heard = heardAtStart + (centre - double(callback * period)) * speed;
            const double nearest =
                double(first) + std::round((heard - double(first)) / spacing) * spacing;
            EXPECT_NEAR(heard, nearest, tolerance) << "output frame " << centre;
        }

        // The timed reports a view extrapolates from say the same frame, at the speed played,
        // one device period apart and never back in time.
        std::int64_t lastTime = 0;
        for (std::size_t i = 1; i < manual.reports.size(); ++i) {
            const auto& report = manual.reports[i];
            ASSERT_TRUE(report.has_value()) << "period " << i;
            EXPECT_NEAR(report->sourceFrame, double(manual.positions[i]), 1.0);
            EXPECT_DOUBLE_EQ(report->sourceStep, double(speed));
            EXPECT_EQ(report->periodFrames, period);
            EXPECT_GE(report->steadyTimeNs, lastTime);
            lastTime = report->steadyTimeNs;
        }
        // A seek makes the old report stale at once; the next period reports the new place.
        manual.player.setCurrentFrame(22050);
        EXPECT_FALSE(manual.player.heardPosition().has_value());
        EXPECT_NEAR(manual.heardFrame(), 22050.0, 1.0);
        manual.player.stopFilePlaying();
        EXPECT_FALSE(manual.player.heardPosition().has_value());
    }
}

TEST(TeskExtendedAudioFilePlayer, ALoopEndPutIntoTheSoundOnItsWayIsWhereItWraps) {
    // The loop's end moved to just past what is heard, inside what the reader has already read
    // for the old loop; or a loop there switched on while the song plays plain, the reader
    // already past its end: playback goes no further than the end and wraps there smoothly.
    for (const bool switchedOn : {false, true}) {
        SCOPED_TRACE(switchedOn ? "looping switched on" : "the end moved");
        ManualPlayer manual(MemorySong::sine(44100 * 8, 440.0, 0.5));
        manual.player.setLooping(!switchedOn);
        manual.player.setLoopRange({0, 44100 * 4});
        manual.player.startFilePlaying();
        manual.play(40);
        const qint64 heard = manual.player.currentFrame();
        ASSERT_GT(heard, 10000);
        const std::size_t changed = manual.device->left.size();
        const std::size_t reportsBefore = manual.positions.size();
        const auto end = std::uint32_t(heard + 2000);
        manual.player.setLoopRange({0, end});
        manual.player.setLooping(true);
        manual.play(40);
        const auto after =
            std::vector<qint64>(manual.positions.begin() + reportsBefore, manual.positions.end());
        EXPECT_LE(*std::max_element(after.begin(), after.end()), qint64(end));
        EXPECT_LT(*std::min_element(after.begin(), after.end()), 10000) << "it wrapped";
        const double sineStep = 2.0 * M_PI * 440.0 / 44100.0 * 0.5;
        EXPECT_LT(test::largestStep(std::span(manual.device->left).subspan(changed)),
                  1.5 * sineStep);
    }
}

TEST(TeskExtendedAudioFilePlayer, ALoopDraggedWhilePlayingGoesOnWithoutRepeatingOrStalling) {
    // The loop's seam moved into the sound on its way, again and again as a drag moves it: the
    // sound is rendered again from the first frame the device was not yet handed, so the heard
    // position moves on a period for each period played. (Replayed from what was heard, the
    // device's last two periods were heard twice on each move, and a move each period held
    // the position still.)
    const struct {
        const char* name;
        bool reverse;
        int periodsPerMove;
    } drags[] = {{"a move each period", false, 1},
                 {"a move every third period", false, 3},
                 {"backwards, a move every other period", true, 2}};
    constexpr int kMoves = 12;
    constexpr double kPeriod = TeskSoundDevice::kDefaultBufferFrames;
    for (const auto& drag : drags) {
        SCOPED_TRACE(drag.name);
        ManualPlayer manual(MemorySong::sine(44100 * 8, 440.0, 0.5));
        manual.player.setLooping(true);
        manual.player.setLoopRange({0, 44100 * 8});
        if (drag.reverse)
            manual.player.setPlaybackSpeed(-1.0f);
        manual.startAt(44100 * 4);
        manual.play(20);
        const qint64 start = manual.player.currentFrame();
        for (int move = 0; move < kMoves; ++move) {
            // The seam 3000 frames ahead of what is heard: inside what the reader has read.
            const qint64 heard = manual.player.currentFrame();
            manual.player.setLoopRange(drag.reverse ? LoopRange{std::uint32_t(heard - 3000), 44100}
                                                    : LoopRange{0, std::uint32_t(heard + 3000)});
            manual.play(drag.periodsPerMove);
        }
        const double moved = double(manual.player.currentFrame() - start) * (drag.reverse ? -1 : 1);
        EXPECT_NEAR(moved, kMoves * drag.periodsPerMove * kPeriod, 2 * kPeriod);
    }
}

TEST(TeskExtendedAudioFilePlayer, EverythingTheLoopReportsIsInsideItHoweverShort) {
    // Loops shorter than the device's blocks wrap inside them: the frame handed next, the frame
    // heard and the timed report are where the loop has got to, never past its end where a
    // block's start would say.
    constexpr qint64 kStart = 44100;
    const struct {
        qint64 length;
        float speed;
    } loops[] = {{1000, 1.0f}, {100, 1.0f}, {1, 1.0f}, {100, -1.0f}, {30, 0.5f}};
    for (const auto [length, speed] : loops) {
        SCOPED_TRACE(testing::Message() << length << " frames at " << speed);
        ManualPlayer manual(MemorySong::sine(44100 * 4, 440.0, 0.5));
        manual.player.setLooping(true);
        manual.player.setLoopRange({std::uint32_t(kStart), std::uint32_t(length)});
        manual.player.setPlaybackSpeed(speed);
        manual.startAt(kStart);
        manual.playUntilReported();
        const std::size_t reported = manual.positions.size() - 1;
        for (int period = 0; period < 24; ++period) {
            manual.play(1);
            if (speed != 1.0f)
                continue;
            const qint64 next = manual.player.nextHandedFrame();
            const auto handed = qint64(manual.device->left.size());
            EXPECT_NEAR(next, kStart + handed % length, 2) << period;
        }
        for (std::size_t i = reported; i < manual.positions.size(); ++i) {
            EXPECT_GE(manual.positions[i], kStart) << i;
            EXPECT_LT(manual.positions[i], kStart + length) << i;
            ASSERT_TRUE(manual.reports[i]);
            EXPECT_GE(manual.reports[i]->sourceFrame, double(kStart)) << i;
            EXPECT_LT(manual.reports[i]->sourceFrame, double(kStart + length)) << i;
        }
    }
}

TEST(TeskExtendedAudioFilePlayer, TurnedRoundWhilePlayingItGoesBackFromWhereTheSoundHadGot) {
    // The device holds two periods when the speed turns round: the sound plays on through them
    // and turns at their end, as a tape would, rather than going back over them.
    constexpr double kPeriod = TeskSoundDevice::kDefaultBufferFrames;
    for (const float before : {1.0f, -1.0f}) {
        SCOPED_TRACE(before);
        ManualPlayer manual(MemorySong::sine(44100 * 8, 440.0, 0.5));
        manual.player.setPlaybackSpeed(before);
        manual.startAt(44100 * 4);
        manual.playUntilReported();
        manual.play(4);
        const double heard = manual.reports.back().value().sourceFrame;
        manual.player.setPlaybackSpeed(-before);
        const auto turned = manual.playUntilReported();
        ASSERT_TRUE(turned);
        EXPECT_NEAR(turned->sourceFrame, heard + 2 * kPeriod * before, 8.0);
        EXPECT_EQ(turned->sourceStep, -before);
    }
}

TEST(TeskExtendedAudioFilePlayer, ASeekIsHeardFromTheFrameSought) {
    // Playing into frames still decoding, the rendering thread waits for the reader when the
    // seek comes. The frames at the new place belong to the render that starts there, not to
    // the one the seek made stale: the first frame heard after the seek is the one sought.
    for (const float speed : {1.0f, 2.0f, -1.0f}) {
        SCOPED_TRACE(speed);
        auto song = MemorySong::sine(44100 * 4, 440.0, 0.5);
        song->decodeOnlyUpTo(44100 * 2);
        ManualPlayer manual(song);
        manual.player.setPlaybackSpeed(speed);
        manual.startAt(44100 * 2 - 1000);
        manual.play(1); // past the decoded frames: the reader has run dry
        manual.player.setCurrentFrame(22050);
        EXPECT_NEAR(manual.heardFrame(), 22050.0, 1.0);

        // Sought where decoding has not reached: the position stays where it was sent until
        // the frames there are heard, never at the song's start.
        manual.player.setCurrentFrame(44100 * 3);
        manual.play(1);
        EXPECT_EQ(manual.positions.back(), 44100 * 3);
        song->finishDecoding();
        const auto report = manual.playUntilReported().value_or(AheadRenderer::HeardPosition{});
        EXPECT_NEAR(report.sourceFrame, 44100.0 * 3, 1.0);
        EXPECT_EQ(report.sourceStep, speed);
    }
}

TEST(TeskExtendedAudioFilePlayer, AStartOrASeekBeginsAtTheLevelOfTheMusicThere) {
    // A steady tone started, and then sought, in the middle: past the device's fade-in, the
    // first 5 ms windows heard are at the tone's level, with its speed and pitch changed too
    // (where the stretcher once heard the music cut in from silence, and rose over 15 ms).
    constexpr std::size_t kWindow = 220;
    const struct {
        float speed;
        double semitones;
    } settings[] = {{1.5f, -3.0}, {-1.5f, -3.0}, {0.5f, 7.0}};
    for (const auto& setting : settings) {
        SCOPED_TRACE(testing::Message() << setting.speed << "x " << setting.semitones);
        ManualPlayer manual(MemorySong::sine(44100 * 4, 1000.0, 0.5));
        manual.player.setPlaybackSpeed(setting.speed);
        manual.player.setPlaybackPitchInSemitones(setting.semitones);
        manual.startAt(44100 * 2);
        for (const qint64 seek : {qint64(0), qint64(44100 * 3)}) {
            const std::size_t from = manual.device->left.size();
            if (seek > 0)
                manual.player.setCurrentFrame(seek);
            manual.play(8);
            const double tone = 1000.0 * std::exp2(setting.semitones / 12.0);
            const auto level = [&](std::size_t window) {
                return test::toneAmplitude(
                    std::span(manual.device->left).subspan(from + window * kWindow, kWindow), tone);
            };
            EXPECT_GT(level(0), 0.3) << "faded in from " << from;
            for (const std::size_t window : {1, 2})
                EXPECT_GT(level(window), 0.45) << from;
        }
    }
}

TEST(TeskExtendedAudioFilePlayer, PlayingOnAfterAPauseGoesOnWhereTheSoundStopped) {
    // What the device was handed before a pause is still heard after it: the position stops at
    // its end, a device period or two past what was heard when the pause came, and playing on
    // starts there, repeating none of it (a device period, 23 ms, was heard twice).
    constexpr std::size_t period = TeskSoundDevice::kDefaultBufferFrames;
    for (const float speed : {1.0f, 0.75f, -1.0f}) {
        SCOPED_TRACE(speed);
        ManualPlayer manual(MemorySong::sine(44100 * 4, 440.0, 0.5));
        manual.player.setPlaybackSpeed(speed);
        manual.startAt(44100 * 2);
        manual.play(8);
        const std::size_t fadedFrom = manual.pauseAsTheDeviceTakesAPeriod();
        EXPECT_GE(fadedFrom, 9 * period); // the period taken as the stop came was heard whole
        const auto stoppedAt = double(manual.player.currentFrame());
        EXPECT_NEAR(stoppedAt, 44100 * 2 + speed * double(fadedFrom), 2.0);
        // Sent somewhere while paused, and paused again: it stays where it was sent.
        manual.player.setCurrentFrame(44100);
        manual.player.stopFilePlaying();
        EXPECT_EQ(manual.player.currentFrame(), 44100);
        manual.startAt(qint64(stoppedAt));
        EXPECT_NEAR(manual.heardFrame(), stoppedAt, 2.0);
        // Paused before the device was handed anything of a seek, it stays where it was sent.
        manual.player.setCurrentFrame(44100 * 3);
        manual.player.stopFilePlaying();
        EXPECT_EQ(manual.player.currentFrame(), 44100 * 3);
    }
    {
        // Near the end, where the reader is done with the song before its end is heard.
        ManualPlayer nearEnd(MemorySong::sine(44100, 440.0, 0.5));
        nearEnd.startAt(44100 - 8 * period);
        nearEnd.play(2);
        const std::size_t fadedFrom = nearEnd.pauseAsTheDeviceTakesAPeriod();
        EXPECT_EQ(nearEnd.player.currentFrame(), qint64(44100 - 8 * period + fadedFrom));
    }
    // In a loop shorter than a block, whose end the fading period may have wrapped at: the
    // position stays inside the loop, however far into the period the pause comes.
    ManualPlayer manual(MemorySong::sine(44100 * 4, 440.0, 0.5));
    manual.player.setLoopRange({44100, 1000});
    manual.player.setLooping(true);
    manual.player.setCurrentFrame(44100);
    for (int periods = 1; periods <= 12; ++periods) {
        SCOPED_TRACE(periods);
        manual.player.startFilePlaying();
        manual.play(periods);
        manual.stopWhileTheDevicePulls();
        EXPECT_GE(manual.player.currentFrame(), 44100);
        EXPECT_LT(manual.player.currentFrame(), 44100 + 1000);
    }
}

TEST(TeskExtendedAudioFilePlayer, AfterAStopInTheMiddleOfABlockPlaysFromWhereItStarts) {
    ManualPlayer manual(MemorySong::sine(44100 * 2, 440.0, 0.5));
    manual.startAt(1000);
    manual.playUntilReported();
    manual.waitForQueued(2);
    manual.device->pull(300); // a period that ends inside a block
    manual.player.stopFilePlaying();
    manual.startAt(30000);
    EXPECT_NEAR(manual.heardFrame(), 30000.0, 1.0);
}

TEST(TeskExtendedAudioFilePlayer, StartsSeeksAndStopsWithoutAClick) {
    // A steady tone, started from silence, sought to places where its phase differs and
    // stopped: the old sound fades out and the new one in, so no sample jumps further than the
    // tone itself does (a cut would jump by up to its amplitude). The new sound follows at once,
    // in the device's next period: the ring has room for it beside the old stream's blocks, and
    // the vocal reduction does not wait to fill up. The tone is on the side, which it keeps
    // whole on the left.
    const double toneStep = 2.0 * M_PI * 440.0 / 44100.0 * 0.5;
    const auto tone = test::Stereo::side(test::sine(440.0, 0.5, 44100 * 4));
    for (const auto& [speed, vocals] : {std::pair{1.0f, false}, {-1.0f, false}, {1.0f, true}}) {
        SCOPED_TRACE(testing::Message() << "speed " << speed << " vocals " << vocals);
        ManualPlayer manual(std::make_shared<MemorySong>(tone.left, tone.right));
        manual.player.setPlaybackSpeed(speed);
        manual.player.setVocalRemoval(vocals);
        manual.startAt(44100 + 17);
        manual.play(8);
        // Each seek played for `periods`; the last but one, at the tone's peak, for one only
        // before the next.
        for (const auto& [frame, periods] : {std::pair{44100 * 3 + 31, 8},
                                             {44100 * 2 + 5, 8},
                                             {44100 + 50, 8},
                                             {44100 * 3 + 25, 1},
                                             {44100 * 2 + 77, 8}}) {
            // As in playback at the device's pace, the ring is full when a seek comes.
            manual.waitForQueued(AheadRenderer::kLeadBlocks);
            manual.player.setCurrentFrame(frame);
            const std::size_t sought = manual.device->left.size();
            manual.play(periods);
            const std::span after(manual.device->left);
            EXPECT_GT(test::rms(after.subspan(sought + AheadRenderer::kSeekFadeFrames, 256)), 0.2);
        }
        manual.waitForQueued(AheadRenderer::kLeadBlocks);
        manual.stopWhileTheDevicePulls();
        std::vector<float> heard{0.0f}; // the silence before the start
        heard.insert(heard.end(), manual.device->left.begin(), manual.device->left.end());
        heard.push_back(0.0f); // and after the stop
        EXPECT_GT(test::rms(heard), 0.2);
        EXPECT_LT(test::largestStep(heard), 1.5 * toneStep);
    }
}

TEST(TeskExtendedAudioFilePlayer, TheEndWatchLooksSeldomOnlyWhileTheEndIsFar) {
    const struct {
        const char* name;
        qint64 framesToEnd;
        float speed;
        int waitMs;
    } cases[] = {
        {"minutes away", 600 * 44100, 1.0f, 250},
        {"0.4 s away", 17640, 1.0f, 200},
        {"0.4 s away at 4x", 4 * 17640, 4.0f, 200},
        {"0.4 s of song at 4x", 17640, 4.0f, 20},
        {"0.1 s of song at 0.25x", 4410, 0.25f, 200},
        {"near", 5000, 1.0f, 20},
        {"past it", -100, 1.0f, 20},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(TeskExtendedAudioFilePlayer::endWatchWait(c.framesToEnd, c.speed).count(),
                  c.waitMs);
    }
}

TEST(TeskExtendedAudioFilePlayer, TellsTheEndOfTheSongOnceAndPlaysSilenceAfterIt) {
    // Started near the end; and started where the player looks seldom, far from the end or
    // slowed down, then sent near it or sped up: it looks closely again at once.
    const struct {
        const char* name;
        qint64 frames;
        qint64 start;
        float speed;                  // until the change
        std::optional<qint64> seekTo; // the change: a seek, or else the speed back to 1
    } cases[] = {
        {"started near the end", 20000, 15000, 1.0f, std::nullopt},
        {"sent near the end", 441000, 0, 1.0f, 436000},
        {"sped up near the end", 20000, 15000, 0.05f, std::nullopt},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const qint64 frames = c.frames;
        ManualPlayer manual(MemorySong::sine(frames, 440.0, 0.5));
        RecordingDelegate delegate;
        manual.player.setDelegate(&delegate);
        manual.player.setPlaybackSpeed(c.speed);
        manual.startAt(c.start);
        if (c.seekTo || c.speed != 1.0f) {
            manual.play(1);
            QTest::qWait(300);
            if (c.seekTo)
                manual.player.setCurrentFrame(*c.seekTo);
            else
                manual.player.setPlaybackSpeed(1.0f);
        }
        // Period by period, with the player looking in between.
        const auto& heard = manual.device->left;
        const std::size_t first = heard.size();
        for (int periods = 0; delegate.ends == 0 && periods < 200; ++periods) {
            manual.play(1);
            QTest::qWait(5);
        }
        ASSERT_EQ(delegate.ends, 1);
        EXPECT_TRUE(manual.player.isFilePlaying()); // the end stops nothing by itself
        // Told soon after the last notes have been heard (within the periods on their way and a
        // few looks), not while any are still on their way.
        const auto played = std::span(heard).subspan(first);
        ASSERT_GT(played.size(), 5000u);
        EXPECT_GT(test::rms(played.subspan(0, 4000)), 0.2);
        const auto lastSound = std::find_if(played.rbegin(), played.rend(),
                                            [](float sample) { return std::abs(sample) > 1e-3f; });
        EXPECT_LT(std::distance(played.rbegin(), lastSound),
                  12 * std::ptrdiff_t(TeskSoundDevice::kDefaultBufferFrames))
            << "silence played before the end was told";
        const std::size_t told = heard.size();
        manual.play(40);
        EXPECT_LT(test::rms(std::span(heard).subspan(told)), 1e-4)
            << "sound after the end was told";
        // The position stops at the end; it does not run on through the silence.
        EXPECT_LE(*std::max_element(manual.positions.begin(), manual.positions.end()), frames);
        // Long after the end nothing is on its way: at most the ring ahead and the device's
        // buffer.
        EXPECT_LE(manual.player.outputAudioUnit()->framesUntilHeard(),
                  AheadRenderer::kLeadBlocks * AheadRenderer::kBlockFrames +
                      TeskSoundDevice::kDefaultBufferFrames);

        manual.player.stopFilePlaying();
        QCoreApplication::processEvents();
        EXPECT_EQ(delegate.stops, 1);
        EXPECT_EQ(delegate.ends, 1);
    }
}
