#pragma once

#include "audio/AudioBufferQueue.h"
#include "audio/dsp/AudioStreamDescription.h"
#include "audio/dsp/LatestValue.h"
#include "audio/dsp/RealVector.h"

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

namespace tesk {

/// Keeps a smoothed, lightly time-averaged magnitude spectrum of what is playing, per channel,
/// for the effects editors to draw behind their controls.
///
/// The output chain copies each processed render slice in (`copyFromAudioBufferList`, on the
/// rendering thread or the export thread); every full block of 2048 frames is windowed (Hamming),
/// transformed (bins 1 to 1024, scaled so that a full-scale sine reads `kFullScaleLevel`),
/// reduced to points a sixth of an octave apart (each the level in dB of its band's power) and
/// averaged with the two blocks before it. Each
/// channel's result crosses to the main thread through a latest-value slot, so the main thread
/// never sees a half-written spectrum and nothing it reads is freed under it.
///
/// Everything is allocated at creation; the analysis never allocates, locks or throws.
class SSpectrumAnalyzer : public AudioBufferQueue {
public:
    static constexpr std::uint32_t kBlockCount = 3;
    static constexpr std::uint32_t kBlockFrames = 2048;
    static constexpr std::uint32_t kFftLength = 2048;
    static constexpr std::uint32_t kFirstBin = 1;
    static constexpr std::uint32_t kBinCount = 1024;
    static constexpr std::uint32_t kHistoryLength = 3;
    /// The level of a sine at full scale, at any frequency: the top of the scale the effects
    /// views draw (-60 to 45), so that only a clipping song goes past it. A tone 20 dB softer
    /// reads 25.
    static constexpr float kFullScaleLevel = 45.0f;

    /// Analyses a stream of `streamDescription`'s format; its channel count is the number of
    /// spectra. Blocks of a non-interleaved format are analysed channel by channel; blocks of
    /// an interleaved multi-channel format do not match the channel count and are never
    /// analysed.
    /// Any thread, before frames come in; allocates.
    explicit SSpectrumAnalyzer(const AudioStreamDescription& streamDescription);
    ~SSpectrumAnalyzer() override;

    /// The current spectrum of `channel` in dB, one value per frequency-table point; empty
    /// before the first block has been analysed. `channel` must be below `channels()`.
    /// Main thread (the one reader of the spectra). Allocates the returned copy.
    std::vector<float> spectrumForChannel(unsigned channel);

    /// The element-wise average of all channels' current spectra; empty while any channel has
    /// none yet.
    /// Main thread. Allocates.
    std::vector<float> spectrum();

    /// The centre frequency in Hz of each spectrum point, increasing. Fixed at creation.
    /// Any thread.
    const std::vector<float>& frequencyTable() const { return mFrequencyTable; }
    const AudioStreamDescription& streamDescription() const { return mStreamDescription; }
    std::uint32_t channels() const { return mChannels; }

protected:
    /// Analyses one full block. A block whose buffer count is not the channel count is left
    /// alone and stays in use.
    /// Rendering thread (or the export thread). Never allocates, locks or throws.
    void processBuffer(Block& block) override;

private:
    // The last few smoothed spectra of one channel, oldest overwritten first.
    struct History {
        std::array<std::vector<float>, kHistoryLength> spectra;
        std::uint32_t count = 0;
        std::uint32_t next = 0;
    };

    std::vector<float> mFrequencyTable;
    // The current spectrum of each channel, handed from the analysing thread to the main thread.
    std::vector<std::unique_ptr<LatestValue<std::vector<float>>>> mSpectrum;
    std::vector<History> mSpectrumAverageArray;
    AudioStreamDescription mStreamDescription;
    std::uint32_t mChannels;
    float mSmoothFraction;

    // Analysis tables and work space, used only by processBuffer.
    HammingWindow mWindow;
    float mFullScaleGain; // brings raw FFT magnitudes to the scale of `kFullScaleLevel`
    FftMagnitudes mFft;
    OctaveSmoother mSmoother;
    std::vector<float> mSamples;
    std::vector<float> mMagnitudes;
};

} // namespace tesk
