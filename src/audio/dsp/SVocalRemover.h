#pragma once

#include "audio/dsp/BufferQueue.h"

#include <kiss_fftr.h>

#include <cstdint>
#include <memory>
#include <vector>

namespace tesk {

/// Removes centre-panned content (typically the lead vocal) from one frequency band of a stereo
/// signal: inside the band both channels receive the side signal (L − R) / 2, outside it each
/// channel keeps its own content.
///
/// Works in blocks of 2048 frames, transformed with a zero-padded 4096-point real FFT,
/// Hann-windowed after processing and overlap-added with a hop of 1024 frames. Frames go in with
/// `addInput` and come back, once a block is complete, with `getOutput`; the first output
/// appears once channel 0 has received more than 2048 frames.
///
/// The band edges are mapped to FFT bins against 22050 Hz whatever the stream's rate, so on a
/// 44.1 kHz stream the band actually processed lies at twice the frequencies set. Keep it so:
/// users set the band by ear and their documents store it, so a "corrected" mapping would move
/// every saved band.
///
/// Everything is allocated at creation; after that the remover never allocates or locks. It is
/// used on the thread that renders the output chain: the rendering thread during playback, the
/// export thread during an export. Not copyable.
class SVocalRemover {
public:
    /// Two channels with a buffer size of 4096 is what the output chain uses: the queues then
    /// take render slices of up to 2048 frames. `channelCount` must be at least 2; channels
    /// after the second pass through the block processing with their band untouched.
    /// Any thread; allocates.
    SVocalRemover(std::uint32_t channelCount, std::uint64_t bufferSize);
    ~SVocalRemover();

    SVocalRemover(const SVocalRemover&) = delete;
    SVocalRemover& operator=(const SVocalRemover&) = delete;

    /// The lower and upper edges of the band in Hz (default 150 and 3600), unchecked. A band
    /// whose upper bin is not above its lower bin removes nothing. Takes effect from the next
    /// processed block.
    /// Rendering thread. Never allocates or locks.
    void setLowFrequency(double hertz) noexcept { lowFrequency = hertz; }
    void setHighFrequency(double hertz) noexcept { highFrequency = hertz; }

    /// Queues `frameCount` frames of `channel` for processing. More than the buffer size in one
    /// call, or more than the queue has room for, fails an assertion.
    /// Rendering thread. Never allocates or locks.
    void addInput(std::uint32_t channel, const float* samples, std::uint32_t frameCount);

    /// Processes every complete block waiting in the input queues.
    /// Rendering thread. Never allocates or locks.
    void process();

    /// Moves up to `frameCount` processed frames of `channel` into `destination` and returns
    /// how many it moved; samples of `destination` past that count are left as they were, so
    /// the render buffers pass through unprocessed while the remover starts up.
    /// Rendering thread. Never allocates or locks.
    std::uint32_t getOutput(std::uint32_t channel, float* destination, std::uint32_t frameCount);

    /// Processed frames of channel 0 waiting to be taken with `getOutput`.
    /// Rendering thread. Never allocates or locks.
    std::uint32_t processedFrames() const noexcept;

    /// Forgets the tail of the last processed block, so the next block does not overlap-add
    /// onto audio from before a stop or an export. The queued samples are kept.
    /// Rendering thread. Never allocates or locks.
    void reset() noexcept;

    /// Forgets everything: the overlap and the queued samples, so that what comes out next
    /// starts with the next sample added. The first block then fades in over a hop, unless
    /// `startAtFullLevel` follows.
    /// Rendering thread. Never allocates or locks.
    void clear() noexcept;

    /// After `clear`: the first block's first hop comes out at the level of every later hop,
    /// instead of fading in, so that it matches the plain sound from the first frame: an
    /// export's range, playback after a seek (which the device fades in) or after a switch
    /// (which fades from the plain sound).
    /// Rendering thread. Never allocates or locks.
    void startAtFullLevel() noexcept { firstHopAtFullLevel = true; }

private:
    struct FFTDeleter {
        void operator()(kiss_fftr_state* state) const noexcept;
    };
    using FFTState = std::unique_ptr<kiss_fftr_state, FFTDeleter>;

    void processBlock();

    std::uint32_t channelCount;
    double lowFrequency = 150.0;
    double highFrequency = 3600.0;
    bool firstHopAtFullLevel = false;
    std::vector<std::unique_ptr<BufferQueue<float>>> inputQueues;
    std::vector<std::unique_ptr<BufferQueue<float>>> outputQueues;
    // Per channel: the block (2048 samples, then 2048 zeros) and, after processing, its result.
    std::vector<std::vector<float>> frameBuffers;
    // Per channel: the second half of the previous processed block, waiting to be overlap-added.
    std::vector<std::vector<float>> overlapBuffers;
    // Per channel: the block's spectrum with the band removed, and only the band.
    std::vector<std::vector<kiss_fft_cpx>> restSpectra;
    std::vector<std::vector<kiss_fft_cpx>> bandSpectra;
    std::vector<float> scratchBuffer;
    FFTState forwardFFT;
    FFTState inverseFFT;
};

} // namespace tesk
