#include "audio/dsp/PanMix.h"

#include <gtest/gtest.h>

using tesk::applyPanMix;

namespace {

std::pair<float, float> mixed(float left, float right, double p, bool outOfPhase = false) {
    applyPanMix(&left, &right, 1, p, outOfPhase);
    return {left, right};
}

} // namespace

TEST(PanMix, FollowsItsFormulasIncludingTheRightSideFromTheNewLeft) {
    const float l = 0.8f;
    const float r = -0.4f;
    EXPECT_EQ(mixed(l, r, 0.0), std::make_pair(l, l)); // left on both sides
    EXPECT_EQ(mixed(l, r, 1.0), std::make_pair(r, r)); // right on both sides

    const auto [centreLeft, centreRight] = mixed(l, r, 0.5);
    EXPECT_FLOAT_EQ(centreLeft, 0.5f * l + 0.5f * r);
    EXPECT_FLOAT_EQ(centreRight, 0.25f * l + 0.75f * r);

    const auto [outLeft, outRight] = mixed(l, r, 0.5, true);
    EXPECT_FLOAT_EQ(outLeft, 0.5f * l - 0.5f * r);
    EXPECT_FLOAT_EQ(outRight, 0.25f * l - 0.75f * r);
}
