#pragma once

#include <cstdint>
#include <span>

namespace tesk {

/// How the second half of an export rendered in two parts takes over from the first.
///
/// The halves come from two time-pitch stages that started at different places in the song, so
/// one note can leave them out of phase: a plain crossfade would hollow it out, down to silence
/// for a tone in opposite phase. The second half is moved on or back by up to `kMaxLag` frames,
/// as little as lines it up with the first nearly as well as can be, so the beat after the join
/// keeps its time (a drummer hears a beat 10 ms early); what likeness is left sets the
/// crossfade's gain, so the level holds across it.
///
/// Export thread; plain arithmetic, no state shared.
class ExportJoin {
public:
    static constexpr std::int64_t kCrossfadeFrames = 4096;
    /// The longest move: a period of a 43 Hz tone, the lowest a bass line lingers on.
    static constexpr std::int64_t kMaxLag = 1024;

    /// `first`: the first half's frames of the join (a mono mix of them will do);
    /// `second`: the second half's frames from kMaxLag before the join's start on,
    /// kCrossfadeFrames + 2 × kMaxLag of them where there are so many.
    ExportJoin(std::span<const float> first, std::span<const float> second);

    /// How far the second half is moved on at the join: frame i of the join takes its frame
    /// kMaxLag + lag + i of `second`. Negative moves it back, repeating a few milliseconds.
    std::int64_t lag() const { return mLag; }
    /// How alike the two halves are across the join, after the move: 1 the same, 0 unrelated
    /// (a likeness below 0 counts as 0).
    double likeness() const { return mLikeness; }

    /// Frame `index` of the join, from the two halves' samples of it (the second's moved).
    float mix(std::int64_t index, float first, float second) const;

private:
    std::int64_t mLag = 0;
    double mLikeness = 1.0;
};

} // namespace tesk
