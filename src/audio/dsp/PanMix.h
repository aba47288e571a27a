#pragma once

#include <cstdint>

namespace tesk {

/// The pan / out-of-phase mix, in place. With p the pan amount (0 to 1, 0.5 the centre):
/// left' = L (1 − p) ± R p, then right' = left' (1 − p) ± p R, subtracting when `outOfPhase`.
/// The right side mixes from the new left sample, not the original one, so p = 0 puts the
/// left channel on both sides, p = 1 the right channel, and p = 0.5 leaves the right side at
/// 0.25 L + 0.75 R. Computed in double precision.
/// Any thread; never allocates.
inline void applyPanMix(float* left, float* right, std::uint32_t frameCount, double p,
                        bool outOfPhase) noexcept {
    const double sign = outOfPhase ? -1.0 : 1.0;
    for (std::uint32_t i = 0; i < frameCount; ++i) {
        const double l = left[i];
        const double r = right[i];
        left[i] = float(l * (1.0 - p) + sign * r * p);
        right[i] = float(double(left[i]) * (1.0 - p) + sign * p * r);
    }
}

} // namespace tesk
