#pragma once

#include <array>
#include <cstdint>

namespace tesk {

/// Ten-band graphic equalizer: one peaking filter per band, centred on the one-third-octave
/// bands 31.5 Hz to 16 kHz of the ISO series and one third of an octave wide, on two
/// non-interleaved channels processed in place.
///
/// Nothing a user does while the song plays may click: a new band gain glides there over
/// about 10 ms, and switching the bypass crossfades between the filtered and the untouched
/// signal over about 10 ms. The filters keep running while bypassed, so switching back finds
/// them already settled on the music. Once a bypass has faded in, the output is the input bit
/// for bit.
///
/// Everything is allocated at construction (there is nothing to allocate). Used on the thread
/// that renders the output chain: the rendering thread during playback, the export thread during an
/// export. Not copyable.
class GraphicEqualizer {
public:
    static constexpr std::size_t kBandCount = 10;
    static constexpr std::uint32_t kChannelCount = 2;

    /// The bands' centre frequencies in Hz, lowest first; the effects views draw them.
    static constexpr std::array<double, kBandCount> kCentreFrequencies = {
        31.5, 63.0, 125.0, 250.0, 500.0, 1000.0, 2000.0, 4000.0, 8000.0, 16000.0};

    /// One third of an octave between the -3 dB points: Q = 2^(1/6) / (2^(1/3) − 1).
    static constexpr double kQuality = 4.3184727;

    /// Starts flat (every band at 0 dB) and not bypassed. Bands whose centre lies too close to
    /// the Nyquist frequency to be drawn as a bell stay flat.
    /// Any thread.
    explicit GraphicEqualizer(double sampleRate);

    GraphicEqualizer(const GraphicEqualizer&) = delete;
    GraphicEqualizer& operator=(const GraphicEqualizer&) = delete;

    /// The gain of each band in dB, lowest band first. The output chain passes the newest values
    /// at the start of every block; a band whose value changed glides to it. Values that are not
    /// finite are ignored.
    /// Rendering thread. Never allocates or locks.
    void setBandGains(const std::array<float, kBandCount>& gainsDb) noexcept;

    /// Passes the signal untouched while true; a change crossfades.
    /// Rendering thread. Never allocates or locks.
    void setBypassed(bool bypassed) noexcept;

    /// Rendering thread.
    bool isBypassed() const noexcept { return mBypassed; }

    /// Filters `frameCount` frames of both channels in place.
    /// Rendering thread. Never allocates or locks.
    void process(float* const* channels, std::uint32_t frameCount) noexcept;

    /// Forgets the filters' memory and ends any glide or crossfade at its destination, so the
    /// next block (after a seek, a stop or at the start of an export) owes nothing to audio
    /// from before.
    /// Rendering thread. Never allocates or locks.
    void reset() noexcept;

private:
    // Normalised (a0 = 1) coefficients of one biquad.
    struct Coefficients {
        double b0 = 1.0, b1 = 0.0, b2 = 0.0, a1 = 0.0, a2 = 0.0;
    };
    // Direct form I: its state is the signal itself, so coefficients that move every sample
    // cannot leave it holding values that no longer fit them.
    struct State {
        double x1 = 0.0, x2 = 0.0, y1 = 0.0, y2 = 0.0;
    };
    struct Band {
        double cosine = 1.0; // cos(ω0)
        double alpha = 0.0;  // sin(ω0) / 2Q
        bool active = false; // false: too close to Nyquist, always flat
        double currentDb = 0.0;
        double targetDb = 0.0;
        double stepDb = 0.0; // per frame while gliding
        std::uint32_t framesLeft = 0;
        Coefficients coefficients;
        std::array<State, kChannelCount> states;
    };

    Coefficients coefficientsFor(const Band& band, double gainDb) const noexcept;
    void processSubBlock(float* const* channels, std::uint32_t offset,
                         std::uint32_t frameCount) noexcept;

    std::array<Band, kBandCount> mBands;
    bool mBypassed = false;
    double mWetGain = 1.0;      // 1: filtered, 0: untouched
    double mWetGainStep = 0.0;  // per sample during a crossfade
    std::uint32_t mFadeFrames;  // length of a bypass crossfade
    std::uint32_t mGlideFrames; // length of a gain glide
};

} // namespace tesk
