#pragma once

#include <cstdint>

namespace tesk::engine {

/// The rate every song is decoded to and everything renders at: frames are 1/44100 s
/// everywhere in Tesk.
constexpr int kSampleRate = 44100;
constexpr double kSampleRateHz = 44100.0;

/// The slowest and fastest a song plays, as a factor of its speed.
constexpr double kMinimumPlaybackRate = 0.05;
constexpr double kMaximumPlaybackRate = 4.0;

/// The loudest linear level the chain plays (about +12 dB). The controls stay well inside it; a
/// damaged document or script must never make the chain deafening.
constexpr float kMaximumLinearLevel = 4.0f;

/// The equalizer's deepest cut and highest boost per band, in dB. The editor shows -20 to +20;
/// a cut of 40 dB already takes a band out of the mix (what is left is the neighbouring bands'
/// skirts), so deeper values only hide mistakes, and the command line and the chain agree on it.
constexpr float kMinimumBandGainDb = -40.0f;
constexpr float kMaximumBandGainDb = 24.0f;

/// The music read before the position of a start or a seek: the time-pitch stage's analysis
/// reaches that far back from its first frame (its start pad, 2048 frames at most at any speed
/// and pitch with Rubber Band 3, and its run-in, as much again), so it begins at the music's
/// level instead of rising from silence.
constexpr std::int64_t kStartPrerollFrames = 4096;

/// The second half of a two-part export starts this many frames early, so that its time-pitch
/// stage has settled by the join.
constexpr std::int64_t kExportPrerollFrames = kSampleRate + kSampleRate / 2;

} // namespace tesk::engine
