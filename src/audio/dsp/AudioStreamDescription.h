#pragma once

#include <cstdint>

namespace tesk {

/// The layout of a stream of 32-bit float frames. Tesk decodes every song to one format
/// (`engineFormat()`), so most code only ever sees that one; the other layouts exist for the
/// few places that must describe something else, such as an interleaved device buffer.
/// Plain value; any thread.
struct AudioStreamDescription {
    static constexpr std::uint32_t kBytesPerSample = sizeof(float);

    double sampleRate = 44100.0;
    std::uint32_t channelsPerFrame = 2;
    /// Interleaved: one buffer holding every channel, frame after frame. Otherwise one buffer
    /// per channel.
    bool interleaved = false;

    /// How many buffers a buffer list in this format has.
    constexpr std::uint32_t buffersPerList() const { return interleaved ? 1 : channelsPerFrame; }
    /// How many channels each of those buffers holds.
    constexpr std::uint32_t channelsPerBuffer() const { return interleaved ? channelsPerFrame : 1; }
    /// The size of one frame within one buffer.
    constexpr std::uint32_t bytesPerFrame() const { return channelsPerBuffer() * kBytesPerSample; }

    /// What every song reaches the engine as: 44100 Hz, stereo, non-interleaved.
    static constexpr AudioStreamDescription engineFormat() { return {44100.0, 2, false}; }

    friend constexpr bool operator==(const AudioStreamDescription&,
                                     const AudioStreamDescription&) = default;
};

} // namespace tesk
