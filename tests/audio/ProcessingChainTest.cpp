#include "audio/ProcessingChain.h"

#include "support/Signals.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <thread>

using namespace tesk;

namespace {

/// Plays two prepared channels from their start. Reaching `dryFrom`, it gives nothing for
/// `dryFrames` asked for, then goes on where it stopped: a reader late after a seek, or on a
/// machine too busy to read.
class VectorSource : public ChainSource {
public:
    VectorSource(std::vector<float> left, std::vector<float> right, std::size_t dryFrom = SIZE_MAX,
                 std::size_t dryFrames = 0)
        : mLeft(std::move(left))
        , mRight(std::move(right))
        , mDryFrom(dryFrom)
        , mDryFrames(dryFrames) {}

    std::uint32_t supplyFrames(const AudioBufferList& buffers, std::uint32_t frameCount,
                               SourceRuns& runs) noexcept override {
        if (mPosition >= mDryFrom && mRefused < mDryFrames) {
            mRefused += frameCount;
            return 0;
        }
        const auto frames =
            std::uint32_t(std::min({std::size_t(frameCount), mLeft.size() - mPosition,
                                    mPosition < mDryFrom ? mDryFrom - mPosition : SIZE_MAX}));
        std::copy_n(mLeft.begin() + mPosition, frames, buffers.buffers[0].data);
        std::copy_n(mRight.begin() + mPosition, frames, buffers.buffers[1].data);
        runs.count = 1;
        runs.runs[0] = {0, std::int64_t(mPosition), 1};
        mPosition += frames;
        return frames;
    }

private:
    std::vector<float> mLeft;
    std::vector<float> mRight;
    std::size_t mDryFrom;
    std::size_t mDryFrames;
    std::size_t mPosition = 0;
    std::size_t mRefused = 0;
};

struct Rendered {
    std::vector<float> left;
    std::vector<float> right;
    /// The steady part, after the chain's start-up.
    std::span<const float> steadyLeft() const { return std::span(left).subspan(22050, 44100); }
    std::span<const float> steadyRight() const { return std::span(right).subspan(22050, 44100); }
};

Rendered render(ProcessingChain& chain, std::size_t frames) {
    Rendered out{std::vector<float>(frames), std::vector<float>(frames)};
    for (std::size_t done = 0; done < frames; done += 512)
        chain.render(out.left.data() + done, out.right.data() + done,
                     std::uint32_t(std::min<std::size_t>(512, frames - done)));
    return out;
}

/// The largest magnitude on either channel; infinity if any sample is not finite.
float peak(const Rendered& out) {
    float largest = 0.0f;
    for (const auto* channel : {&out.left, &out.right}) {
        for (float sample : *channel)
            largest = std::max(largest, std::isfinite(sample) ? std::fabs(sample) : INFINITY);
    }
    return largest;
}

constexpr std::size_t kFrames = 44100 * 2;

/// A chain playing two prepared channels from their start.
struct PlayingChain {
    PlayingChain(std::vector<float> left, std::vector<float> right,
                 TimePitchQuality quality = TimePitchQuality::Standard)
        : source(std::move(left), std::move(right))
        , chain(44100.0, quality) {
        chain.setSource(&source);
    }
    VectorSource source;
    ProcessingChain chain;
};

/// A chain playing a 90 Hz tone, which passes the vocal remover whole, from its start at
/// `rate`, with the vocal reduction on or off.
struct LowToneChain : PlayingChain {
    LowToneChain(float rate, bool removeVocals)
        : PlayingChain(test::sine(90.0, 0.5, kFrames), test::sine(90.0, 0.5, kFrames)) {
        chain.setRate(rate);
        chain.setRemoveVocals(removeVocals);
        chain.reset();
    }
};

/// The first `frames` of an export of what `chain` plays, or all of it if it is shorter.
Rendered exportStart(ProcessingChain& chain, std::size_t frames) {
    Rendered out{std::vector<float>(frames), std::vector<float>(frames)};
    chain.beginExport();
    std::size_t done = 0;
    while (done < frames) {
        const std::uint32_t rendered = chain.renderForExport(
            out.left.data() + done, out.right.data() + done, std::uint32_t(frames - done));
        if (rendered == 0)
            break;
        done += rendered;
    }
    out.left.resize(done);
    out.right.resize(done);
    return out;
}

} // namespace

TEST(ProcessingChain, PanMixComesAfterTheSpectrumAndLevelLast) {
    // Left carries 300 Hz, right 700 Hz.
    PlayingChain playing(test::sine(300.0, 0.5, kFrames), test::sine(700.0, 0.5, kFrames));
    ProcessingChain& chain = playing.chain;
    chain.setPanAdjust(true);
    chain.setPanAmount(0.0); // the left channel on both sides
    chain.setLevel(0.5f);
    const Rendered out = render(chain, kFrames);

    EXPECT_NEAR(test::toneAmplitude(out.steadyLeft(), 300.0), 0.25, 0.01);
    EXPECT_NEAR(test::toneAmplitude(out.steadyRight(), 300.0), 0.25, 0.01);
    EXPECT_LT(test::toneAmplitude(out.steadyRight(), 700.0), 0.25 * 1e-3);

    // The spectrum saw both channels before the mix: the right one still peaks near 700 Hz.
    const auto table = chain.spectrumAnalyzer().frequencyTable();
    const auto right = chain.spectrumAnalyzer().spectrumForChannel(1);
    ASSERT_EQ(right.size(), table.size());
    const auto peak = std::max_element(right.begin(), right.end()) - right.begin();
    EXPECT_NEAR(table[std::size_t(peak)], 700.0, 700.0 * 0.13);
}

TEST(ProcessingChain, EqualizerAndVocalReductionFollowTheirSwitches) {
    // The same 100 Hz, 5 kHz and 8 kHz tones on both channels: centred, like a lead voice.
    const auto tones =
        test::mix(test::mix(test::sine(100.0, 0.3, kFrames), test::sine(5000.0, 0.3, kFrames)),
                  test::sine(8000.0, 0.3, kFrames));
    const auto rendered = [&](auto configure) {
        PlayingChain playing(tones, tones);
        configure(playing.chain);
        return render(playing.chain, kFrames);
    };

    // Bass only: the upper six bands cut by 20 dB.
    const Rendered bass = rendered([](ProcessingChain& chain) {
        chain.setEqualizerGains({0, 0, 0, 0, -20, -20, -20, -20, -20, -20});
        chain.setEqualizerEnabled(true);
    });
    EXPECT_NEAR(test::toneAmplitude(bass.steadyLeft(), 100.0), 0.3, 0.02);
    EXPECT_LT(test::toneAmplitude(bass.steadyLeft(), 8000.0), 0.3 * 0.15);

    // Gains set but the equalizer off (and the vocal reduction off, as it starts): nothing
    // changes.
    const Rendered bypassed = rendered([](ProcessingChain& chain) {
        chain.setEqualizerGains({0, 0, 0, 0, -20, -20, -20, -20, -20, -20});
    });
    EXPECT_NEAR(test::toneAmplitude(bypassed.steadyLeft(), 5000.0), 0.3, 0.02);

    // The male-vocals band covers 5 kHz (it works at twice the set frequencies, up to 5.6 kHz)
    // but neither 100 Hz nor 8 kHz.
    const Rendered reduced = rendered([](ProcessingChain& chain) {
        chain.setVocalBand(120.0, 2800.0);
        chain.setRemoveVocals(true);
    });
    EXPECT_LT(test::toneAmplitude(reduced.steadyLeft(), 5000.0), 0.3 * 0.01);
    EXPECT_LT(test::toneAmplitude(reduced.steadyRight(), 5000.0), 0.3 * 0.01);
    EXPECT_NEAR(test::toneAmplitude(reduced.steadyLeft(), 100.0), 0.3, 0.03);
    EXPECT_NEAR(test::toneAmplitude(reduced.steadyLeft(), 8000.0), 0.3, 0.03);
}

TEST(ProcessingChain, EqualizerSettingsMadeWhileStoppedHoldFromTheFirstFrame) {
    // A cut set before an export (or a playback: both start with a reset) is not faded in over
    // its first frames: a new chain's equalizer starts switched off, and gains set earlier do
    // not glide from the old ones.
    const auto tone = test::sine(8000.0, 0.3, 44100);
    for (const bool changed : {false, true}) {
        SCOPED_TRACE(changed ? "changed after an earlier export" : "a new chain");
        PlayingChain playing(tone, tone);
        ProcessingChain& chain = playing.chain;
        if (changed) {
            chain.setEqualizerEnabled(true);
            exportStart(chain, 512);
        }
        chain.setEqualizerGains({0, 0, 0, 0, 0, 0, 0, 0, -20, -20});
        chain.setEqualizerEnabled(true);
        VectorSource source(tone, tone);
        chain.setSource(&source);
        chain.beginExport();
        std::vector<float> left(512), right(512);
        ASSERT_EQ(chain.renderForExport(left.data(), right.data(), 512), 512u);
        EXPECT_LT(test::toneAmplitude(std::span(left).subspan(64, 256), 8000.0), 0.3 * 0.15);
    }
}

TEST(ProcessingChain, WhatALoudPassageHeldBackPlaysAfterAResetAtItsOwnLevel) {
    // Raised past full scale, a tone is held back; after a seek or a start, at the volume
    // turned down again, it plays at once at its own level.
    PlayingChain playing(test::sine(440.0, 0.5, kFrames), test::sine(440.0, 0.5, kFrames));
    ProcessingChain& chain = playing.chain;
    chain.setLevel(4.0f);
    const Rendered loud = render(chain, 22050);
    EXPECT_NEAR(test::toneAmplitude(std::span(loud.left).last(4410), 440.0), 1.0, 0.01);
    chain.setLevel(1.0f);
    chain.reset();
    const Rendered after = render(chain, 22050);
    EXPECT_NEAR(test::toneAmplitude(std::span(after.left).subspan(4410, 4410), 440.0), 0.5, 0.01);
}

TEST(ProcessingChain, AnExportWithTheVocalReductionStartsAsOneWithout) {
    // A 90 Hz tone lies below the vocal remover's band and comes through it whole: from the
    // export's first frame, not faded in by the remover's first block.
    const auto tone = test::sine(90.0, 0.5, 44100);
    const auto exported = [&](bool vocals) {
        PlayingChain playing(tone, tone);
        playing.chain.setRemoveVocals(vocals);
        return exportStart(playing.chain, 2048).left;
    };
    const auto plain = exported(false);
    const auto reduced = exported(true);
    ASSERT_EQ(reduced.size(), plain.size());
    float largestDifference = 0.0f;
    for (std::size_t i = 0; i < plain.size(); ++i)
        largestDifference = std::max(largestDifference, std::fabs(reduced[i] - plain[i]));
    // Faded in, they differ by 0.37; the band filter's spill differs by up to 0.035.
    EXPECT_LT(largestDifference, 0.05f);
}

TEST(ProcessingChain, PanSwitchesAndMovesGlideWithoutAClick) {
    // 300 Hz on the left, 700 Hz on the right; the mix changes between two slices, a second in.
    const struct {
        const char* name;
        bool panBefore, outOfPhaseBefore;
        double amountBefore;
        bool panAfter, outOfPhaseAfter;
        double amountAfter;
    } cases[] = {{"pan on, to the left", false, false, 0.5, true, false, 0.0},
                 {"out of phase on", true, false, 0.5, true, true, 0.5},
                 {"pan moved across", true, false, 0.1, true, false, 0.9},
                 {"pan off, out of phase", true, true, 0.5, false, true, 0.5}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        PlayingChain playing(test::sine(300.0, 0.5, kFrames), test::sine(700.0, 0.5, kFrames));
        ProcessingChain& chain = playing.chain;
        chain.setPanAdjust(c.panBefore);
        chain.setOutOfPhase(c.outOfPhaseBefore);
        chain.setPanAmount(c.amountBefore);
        const Rendered before = render(chain, 44100 + 37); // where neither tone is near 0
        chain.setPanAdjust(c.panAfter);
        chain.setOutOfPhase(c.outOfPhaseAfter);
        chain.setPanAmount(c.amountAfter);
        const Rendered after = render(chain, 44100);
        for (const auto& [was, is] :
             {std::pair(&before.left, &after.left), std::pair(&before.right, &after.right)}) {
            std::vector<float> joined(was->end() - 4410, was->end());
            joined.insert(joined.end(), is->begin(), is->begin() + 4410);
            const double steady = std::max(test::largestStep(std::span(*was).subspan(22050, 4410)),
                                           test::largestStep(std::span(*is).subspan(22050, 4410)));
            EXPECT_LT(test::largestStep(joined), steady * 1.2);
        }
    }
}

TEST(ProcessingChain, ASourceThatRunsDryAndComesBackFadesOutAndInWithoutAClick) {
    // A reader late after a seek, or on a machine too busy to read: the source gives nothing for
    // a while. The stretcher keeps the waveform, so silence fed in its place would come out as a
    // cut to silence and a cut back, both clicks; and a stream that runs dry soon after its
    // start (a fresh seek) plays its cut within a few blocks.
    const struct {
        std::size_t dryFrom, dryFrames;
    } cases[] = {{1000, 3000}, {30000, 5000}, {30000, 40}};
    const auto tone = test::sine(110.0, 0.5, 2 * kFrames);
    const double toneStep = 2.0 * M_PI * 110.0 / 44100.0;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.dryFrom);
        VectorSource source(tone, tone, c.dryFrom, c.dryFrames);
        ProcessingChain chain(44100.0, TimePitchQuality::Standard);
        chain.setSource(&source);
        const Rendered rendered = render(chain, kFrames);
        const auto out = std::span(rendered.left).subspan(256);
        // After the chain's start-up, no step larger than the tone's own (a fade moves by
        // about as much); a cut jumps by up to half scale.
        EXPECT_LT(test::largestStep(out), 1.5 * 0.5 * toneStep);
        EXPECT_GE(test::longestQuiet(out), std::size_t(c.dryFrames / 2)) << "the source ran dry";
    }
}

TEST(ProcessingChain, PlaysAtTheExtremesOfSpeedAndPitch) {
    // Every speed from 0.05 to 4 and every pitch from -24 to +24 semitones: sound comes out,
    // finite and within range, with no silence where the song plays.
    for (const float rate : {0.05f, 0.5f, 4.0f}) {
        for (const float cents : {-2400.0f, 0.0f, 2400.0f}) {
            SCOPED_TRACE(testing::Message() << "rate " << rate << " cents " << cents);
            PlayingChain playing(test::noise(0.3, kFrames * 4, 3),
                                 test::noise(0.3, kFrames * 4, 4));
            playing.chain.setRate(rate);
            playing.chain.setPitchCents(cents);
            const Rendered out = render(playing.chain, 22050);
            EXPECT_LT(peak(out), 2.0f);
            EXPECT_GT(test::rms(std::span(out.left).subspan(11025)), 0.02);
        }
    }
}

TEST(ProcessingChain, OutlandishSettingsCannotMakeItDeafeningOrSilenceItWithNaN) {
    // What a damaged document or a script could ask for, none of which the controls allow.
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float huge = 1e30f;
    PlayingChain playing(test::noise(0.25, kFrames, 5), test::noise(0.25, kFrames, 6));
    ProcessingChain& chain = playing.chain;
    chain.setLevel(huge);
    chain.setLevel(nan);
    chain.setRate(nan);
    chain.setPitchCents(huge);
    chain.setEqualizerEnabled(true);
    std::array<float, ProcessingChain::kBandCount> gains{};
    gains.fill(huge);
    gains[3] = nan;
    gains[5] = -huge;
    chain.setEqualizerGains(gains);
    chain.setRemoveVocals(true);
    chain.setVocalBand(-huge, double(huge));
    chain.setVocalBand(double(nan), 1000.0);
    chain.setPanAdjust(true);
    chain.setPanAmount(double(huge));
    chain.setPanAmount(double(nan));

    EXPECT_EQ(chain.level(), ProcessingChain::kMaximumLevel);
    // The rate an export's length is reckoned from is the one played.
    EXPECT_EQ(chain.rate(), 1.0f);
    EXPECT_EQ(chain.pitchCents(), float(TimePitchStage::kMaximumPitchCents));
    EXPECT_EQ(chain.panAmount(), 1.0);
    EXPECT_EQ(chain.equalizerGains()[0], ProcessingChain::kMaximumBandGain);
    EXPECT_EQ(chain.equalizerGains()[3], 0.0f);
    // The deepest cut is the one the command line accepts too.
    EXPECT_EQ(chain.equalizerGains()[5], -40.0f);
    const Rendered out = render(chain, kFrames);
    EXPECT_GT(test::rms(out.steadyLeft()), 0.01);
    // Noise through nine bands at the highest boost, at the loudest level: loud, yet held
    // within full scale, where the device and a 16-bit export would clip it.
    EXPECT_LE(peak(out), 1.0f);
    chain.setRate(-huge);
    EXPECT_EQ(chain.rate(), float(TimePitchStage::kMinimumRate));
}

TEST(ProcessingChain, ThePositionOfASliceFollowsWhatIsHeardAcrossSpeedChanges) {
    // Bursts every half second; the speed changes while they play. Each burst heard in the last
    // two and a half seconds must be where the slice's position says, within 10 ms of listening
    // (15 ms for the lighter engine, whose placement wanders a little away from speed 1).
    constexpr std::uint32_t kSlice = 512;
    constexpr double kSpacing = 22050.0;
    constexpr double kFirst = 4000.0;
    std::vector<float> bursts(44100 * 12, 0.0f);
    for (double centre = kFirst; centre < double(bursts.size()); centre += kSpacing)
        test::addToneBurst(bursts, centre, 220.0);
    const struct {
        TimePitchQuality quality;
        std::vector<float> rates; // two seconds each, the last one longer
    } cases[] = {
        {TimePitchQuality::Standard, {0.5f, 1.0f}}, {TimePitchQuality::Standard, {2.0f, 1.0f}},
        {TimePitchQuality::Standard, {1.0f, 0.5f}}, {TimePitchQuality::Standard, {1.0f, 2.0f}},
        {TimePitchQuality::Light, {0.5f, 1.0f}},    {TimePitchQuality::Light, {1.0f, 0.5f}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << (c.quality == TimePitchQuality::Light ? "Light " : "")
                                        << "speeds " << testing::PrintToString(c.rates));
        PlayingChain playing(bursts, bursts, c.quality);
        std::vector<float> heard;
        std::vector<SlicePosition> positions;
        const std::size_t slicesPerRate = 2 * 44100 / kSlice;
        const std::size_t slices = slicesPerRate * (c.rates.size() + 1);
        std::vector<float> left(kSlice), right(kSlice);
        for (std::size_t slice = 0; slice < slices; ++slice) {
            if (slice % slicesPerRate == 0)
                playing.chain.setRate(c.rates[std::min(slice / slicesPerRate, c.rates.size() - 1)]);
            playing.chain.render(left.data(), right.data(), kSlice, &positions.emplace_back());
            heard.insert(heard.end(), left.begin(), left.end());
        }

        const double rate = c.rates.back();
        const double tolerance = (c.quality == TimePitchQuality::Light ? 661.5 : 441.0) * rate;
        int checked = 0;
        for (std::size_t i = heard.size() - 110250; i + 3000 < heard.size(); ++i) {
            if (std::fabs(heard[i]) < 0.05f)
                continue;
            const double centre =
                double(i - 1500) + test::energyCentre(std::span(heard).subspan(i - 1500, 4500));
            const SlicePosition& slice = positions[std::size_t(centre) / kSlice];
            const double reported =
                slice.sourceFrame + rate * (centre - double(std::size_t(centre) / kSlice * kSlice));
            const double burst = kFirst + std::round((reported - kFirst) / kSpacing) * kSpacing;
            EXPECT_NEAR(reported, burst, tolerance) << "output frame " << centre;
            ++checked;
            i += 3000;
        }
        EXPECT_GE(checked, 2);
    }
}

TEST(ProcessingChain, CopiesTheEqualizerWholeWhileTheMainThreadSetsIt) {
    // An export copies the playing chain's settings on its own thread, while a slider may be
    // moving: each copy must be one whole set of bands, never half of each.
    ProcessingChain playing(44100.0, TimePitchQuality::Standard);
    ProcessingChain copy(44100.0, TimePitchQuality::Standard);
    std::array<float, ProcessingChain::kBandCount> cut{}, boost{};
    cut.fill(-12.0f);
    boost.fill(12.0f);
    std::atomic<bool> done{false};
    std::thread slider([&] {
        while (!done.load())
            for (const auto* gains : {&cut, &boost})
                playing.setEqualizerGains(*gains);
    });
    int torn = 0;
    for (int i = 0; i < 200000 && torn == 0; ++i) {
        copy.copyParametersFrom(playing);
        const auto gains = copy.equalizerGains();
        torn += int(std::count(gains.begin(), gains.end(), gains[0]) != int(gains.size()));
    }
    done = true;
    slider.join();
    EXPECT_EQ(torn, 0);
}

TEST(ProcessingChain, VocalReductionSwitchesAndSeeksNeitherClickNorBringBackOldSound) {
    // A 90 Hz tone lies below the band the remover works on: it comes through whole, a block
    // and a half late. A switch either way may not cut it.
    const double lowStep = 2.0 * M_PI * 90.0 / 44100.0 * 0.5;
    for (const bool on : {true, false}) {
        SCOPED_TRACE(on ? "switched on" : "switched off");
        LowToneChain playing(1.0f, !on);
        const Rendered before = render(playing.chain, 8192);
        playing.chain.setRemoveVocals(on);
        const Rendered after = render(playing.chain, 8192);
        std::vector<float> heard(before.left.end() - 2048, before.left.end());
        heard.insert(heard.end(), after.left.begin(), after.left.end());
        EXPECT_LT(test::largestStep(heard), 2.0 * lowStep);
    }

    // A seek to an 8 kHz tone, above the band: nothing of the 90 Hz tone comes after it.
    LowToneChain playing(1.0f, true);
    render(playing.chain, 8192);
    const auto high = test::sine(8000.0, 0.5, kFrames);
    VectorSource sought(high, high);
    playing.chain.setSource(&sought);
    playing.chain.reset();
    const Rendered after = render(playing.chain, 8192);
    EXPECT_LT(test::toneAmplitude(std::span(after.left).first(4096), 90.0), 0.01);
    EXPECT_NEAR(test::toneAmplitude(std::span(after.left).last(4096), 8000.0), 0.5, 0.05);
}

TEST(ProcessingChain, VocalReductionSwitchedWhilePlayingNeitherPausesNorSkips) {
    // The 90 Hz tone passes the remover whole, so with it switched on or off at any moment the
    // sound must stay what it is without: no pause while the remover fills up, no skip when
    // it lets go of what it held, no lag left behind. After a seek with it on, the sound comes
    // within the remover's first hop, as it does without.
    constexpr std::size_t kLength = 44100;
    // Switches come at the first slice that starts at or after each frame given.
    struct Case {
        const char* name;
        float rate;
        bool startOn;
        std::vector<std::size_t> switchesAt;
        std::size_t slice; // the player renders 256 frames at a time
    };
    const Case cases[] = {
        {"on", 1.0f, false, {8192}, 256},
        {"on and off", 1.0f, false, {8192, 16384}, 256},
        {"off", 1.0f, true, {8192}, 256},
        {"off and on", 1.0f, true, {8192, 12800}, 256},
        {"quickly back and forth", 1.0f, false, {8192, 8448, 8704, 9216, 20480}, 256},
        {"on at half speed", 0.5f, false, {8192, 24576}, 256},
        {"off at twice the speed", 2.0f, true, {10240}, 256},
        {"on and off in slices of 600", 1.0f, false, {8192, 8700}, 600},
        {"on and off in slices of 1000", 1.0f, false, {8192, 18000}, 1000},
        {"on and off in slices of 441 at half speed", 0.5f, false, {8192, 9900}, 441},
    };
    const auto play = [&](float rate, bool startOn, const std::vector<std::size_t>& switchesAt,
                          std::size_t slice) {
        LowToneChain playing(rate, startOn);
        ProcessingChain& chain = playing.chain;
        std::vector<float> heard(kLength);
        bool on = startOn;
        std::size_t switches = 0;
        for (std::size_t done = 0; done < kLength; done += slice) {
            if (switches < switchesAt.size() && done >= switchesAt[switches]) {
                chain.setRemoveVocals(on = !on);
                ++switches;
            }
            const std::size_t frames = std::min(slice, kLength - done);
            std::vector<float> right(frames);
            chain.render(heard.data() + done, right.data(), std::uint32_t(frames));
        }
        return heard;
    };
    std::map<float, std::vector<float>> plainAtRate; // what each speed sounds like without it
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        auto [known, added] = plainAtRate.try_emplace(c.rate);
        if (added)
            known->second = play(c.rate, false, {}, 256);
        const std::vector<float>& plain = known->second;
        const std::vector<float> heard = play(c.rate, c.startOn, c.switchesAt, c.slice);
        // Past the first hop, which fades in after a start with the remover on.
        double largestDifference = 0.0;
        std::size_t where = 0;
        for (std::size_t i = 2048; i < kLength; ++i) {
            if (std::fabs(heard[i] - plain[i]) > largestDifference)
                largestDifference = std::fabs(heard[i] - plain[i]), where = i;
        }
        EXPECT_LT(largestDifference, 0.05) << "at frame " << where;
        if (c.startOn) {
            const auto firstHop = [](const std::vector<float>& out) {
                return test::toneAmplitude(std::span(out).subspan(1024, 2048), 90.0);
            };
            EXPECT_NEAR(firstHop(heard), firstHop(plain), 0.05);
        }
    }
}

TEST(ProcessingChain, FramesHeldForTheVocalReductionKeepThePositionThroughASpeedChange) {
    // Frames held for the vocal reduction were stretched at the speed of their time: after a
    // change the position neither jumps by them nor counts them at the new speed.
    constexpr std::uint32_t kSlice = 256;
    const auto steps = [&](float from, float to, bool held) {
        LowToneChain playing(from, held);
        ProcessingChain& chain = playing.chain;
        std::vector<float> left(kSlice), right(kSlice);
        std::vector<double> positions;
        for (int slice = 0; slice < 60; ++slice) {
            if (slice == 10)
                chain.setRemoveVocals(false); // the delay stays
            if (slice == 40)
                chain.setRate(to);
            SlicePosition position;
            chain.render(left.data(), right.data(), kSlice, &position);
            positions.push_back(position.sourceFrame);
        }
        std::vector<double> steps;
        for (std::size_t i = 39; i + 1 < positions.size(); ++i)
            steps.push_back(positions[i + 1] - positions[i]);
        return steps;
    };
    for (const auto& [from, to] : {std::pair{1.0f, 2.0f}, {2.0f, 0.5f}, {0.5f, 1.0f}}) {
        SCOPED_TRACE(testing::Message() << "from " << from << " to " << to);
        const std::vector<double> plain = steps(from, to, false);
        const std::vector<double> held = steps(from, to, true);
        // The step into the slice the speed changes in, where the stretcher's own latency
        // is counted again at the new speed, is the same; then the held frames play at the
        // speed they were stretched at, and the rest at the new one.
        EXPECT_NEAR(held.front(), plain.front(), 64.0);
        for (std::size_t i = 1; i < held.size(); ++i) {
            EXPECT_TRUE(std::fabs(held[i] - kSlice * from) < 1 ||
                        std::fabs(held[i] - kSlice * to) < 1)
                << "slice " << 40 + i << " moved on " << held[i];
        }
        EXPECT_NEAR(held.back(), kSlice * to, 1.0);
    }
}
