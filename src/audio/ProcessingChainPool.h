#pragma once

#include "audio/EngineConstants.h"
#include "audio/ProcessingChain.h"

#include <memory>

namespace tesk {

/// Keeps one processing chain ready for the next song. Building a chain takes the stretcher
/// library a good tenth of a second (it sizes its tables for every rate and pitch up front, so
/// that playing never has to), which is too long to wait for when a song is opened; the pool
/// builds the next one in the background instead.
/// Any thread but the device callback and the rendering thread (both may wait): the main thread
/// takes a song's chain, an export thread the second chain of a two-part export.
class ProcessingChainPool {
public:
    static constexpr double kSampleRate = engine::kSampleRateHz;

    /// Starts building a spare chain of `quality` in the background, at a lower priority than
    /// decoding and drawing, if none is ready or on its way. Tesk calls it at start-up and again
    /// a few seconds after a song has opened; a spare costs memory (the stretcher's tables), so
    /// nothing builds one unasked.
    static void prepare(TimePitchQuality quality = TimePitchQuality::Standard);

    /// A chain of `quality`: the spare when there is one (waiting for it if it is still being
    /// built), else a new one.
    static std::unique_ptr<ProcessingChain> take(TimePitchQuality quality);
};

} // namespace tesk
