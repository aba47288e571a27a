#pragma once

#include "audio/ProcessingChain.h"

#include <memory>

namespace tesk {

/// Keeps one processing chain ready for the next song. Building a chain takes the stretcher
/// library a good tenth of a second (it sizes its tables for every rate and pitch up front, so
/// that playing never has to), which is too long to wait for when a song is opened; the pool
/// builds the next one in the background instead.
/// Main thread.
class ProcessingChainPool {
public:
    static constexpr double kSampleRate = 44100.0;

    /// Starts building a spare chain of `quality` in the background, if none is ready or on its
    /// way. Tesk calls it at start-up.
    static void prepare(TimePitchQuality quality = TimePitchQuality::Standard);

    /// A chain of `quality`: the spare when there is one (waiting for it if it is still being
    /// built), else a new one. Then starts building the next spare.
    static std::unique_ptr<ProcessingChain> take(TimePitchQuality quality);
};

} // namespace tesk
