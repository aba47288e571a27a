#include "audio/ExportJoin.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <vector>

namespace tesk {

ExportJoin::ExportJoin(std::span<const float> first, std::span<const float> second) {
    const auto length = std::int64_t(std::min<std::size_t>(first.size(), kCrossfadeFrames));
    double firstEnergy = 0.0;
    for (std::int64_t i = 0; i < length; ++i)
        firstEnergy += double(first[std::size_t(i)]) * first[std::size_t(i)];
    const std::int64_t offsets =
        std::clamp<std::int64_t>(std::int64_t(second.size()) - length + 1, 0, 2 * kMaxLag + 1);
    std::vector<double> likeness(std::size_t(offsets), -2.0); // below any real likeness: silence
    double best = -2.0;
    for (std::int64_t offset = 0; offset < offsets; ++offset) {
        double product = 0.0;
        double secondEnergy = 0.0;
        for (std::int64_t i = 0; i < length; ++i) {
            const double s = second[std::size_t(offset + i)];
            product += first[std::size_t(i)] * s;
            secondEnergy += s * s;
        }
        if (firstEnergy > 0.0 && secondEnergy > 0.0)
            likeness[std::size_t(offset)] = product / std::sqrt(firstEnergy * secondEnergy);
        best = std::max(best, likeness[std::size_t(offset)]);
    }
    // Silence on either side: nothing to line up, and nothing to lose.
    if (best < -1.0)
        return;
    // The smallest move either way that does nearly as well as the best, every frame moved
    // being heard as time: a beat 20 ms early after the join where the best match lay a bass
    // note's period away. Halves that line up whole somewhere are moved there (give or take
    // the frame grid's rounding of a high note); halves that match only in part anywhere (their
    // notes in other phases) may fall short of their best by as much as that best falls short
    // of whole, up to a quarter, and never by half of it: the crossfade's gain makes up for the
    // likeness they lack, but not for a note it cancels, which a move unlike the best can.
    const double shortfall = std::min({std::max(1.0 - best, 0.02), 0.25, 0.5 * best});
    const double enough = best - std::max(shortfall, 0.0);
    const auto distance = [](std::int64_t offset) { return std::abs(offset - kMaxLag); };
    std::int64_t chosen = -1;
    for (std::int64_t offset = 0; offset < offsets; ++offset) {
        if (likeness[std::size_t(offset)] >= enough &&
            (chosen < 0 || distance(offset) < distance(chosen)))
            chosen = offset;
    }
    mLag = chosen - kMaxLag;
    mLikeness = std::clamp(likeness[std::size_t(chosen)], 0.0, 1.0);
}

float ExportJoin::mix(std::int64_t index, float first, float second) const {
    const double in = double(index + 1) / double(kCrossfadeFrames + 1);
    const double out = 1.0 - in;
    // The power of a·x + b·y for signals alike by ρ is a² + b² + 2abρ: divided out, the level
    // stays where it was whether the halves are alike or unrelated.
    const double gain = 1.0 / std::sqrt(in * in + out * out + 2.0 * in * out * mLikeness);
    // The chain's limiter keeps each half within full scale; where the two are unlike, this
    // gain could take their sum past it.
    return float(std::clamp((out * first + in * second) * gain, -1.0, 1.0));
}

} // namespace tesk
