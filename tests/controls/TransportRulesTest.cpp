#include "controls/TransportRules.h"

#include <cmath>
#include <gtest/gtest.h>

using namespace tesk;
using namespace tesk::TransportRules;

namespace {
// Mark centres 30 points apart from x = 20.
constexpr std::array<double, kSpeedMarkCount> kCentres{20, 50, 80, 110, 140};
} // namespace

TEST(TransportRules, SpeedFollowsTheMarksWithTheirSnapZones) {
    const struct {
        double x;
        bool snap;
        double speed;
    } cases[] = {
        {50, true, 0.5},
        {53.9, true, 0.5},
        {54.0, false, 0.5 + 0.25 * 4 / 30},
        {46.5, true, 0.5},
        {46.5, false, 0.25 + 0.25 * 26.5 / 30},
        {65, true, 0.625},
        {125, true, 1.25},
        {137, true, 1.5},
        {10, true, 0.25},
        {10, false, 0.25},
        {200, false, 1.5},
        {140, false, 1.5},  // beyond the last pair: the right end
        {106.5, true, 1.0}, // right mark of the pair tested first
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "x " << c.x << " snap " << c.snap);
        EXPECT_NEAR(speedForX(c.x, kCentres, kSpeedMarks, c.snap, 80.0), c.speed, 1e-12);
    }
}

TEST(TransportRules, TheKnobAndTheMarksShowTheSpeed) {
    EXPECT_EQ(knobXForSpeed(0.75, kCentres, kSpeedMarks), 80.0);
    EXPECT_EQ(knobXForSpeed(1.25, kCentres, kSpeedMarks), 125.0);
    EXPECT_EQ(knobXForSpeed(0.1, kCentres, kSpeedMarks), 20.0); // below the first mark
    EXPECT_FALSE(knobXForSpeed(1.6, kCentres, kSpeedMarks));    // beyond: the knob stays

    const auto exact = markOpacities(1.0, 110, kCentres, kSpeedMarks);
    EXPECT_EQ(exact, (std::array<double, 5>{0.5, 0.5, 0.5, 0.93, 0.5}));
    // 1.1 lies a fifth of the way from "1x" to "1.5": both light, the nearer more.
    const auto between = markOpacities(1.1, 116, kCentres, kSpeedMarks);
    EXPECT_NEAR(between[3], 0.5 + 0.8 * 0.5, 1e-12);
    EXPECT_NEAR(between[4], 0.5 + 0.2 * 0.5, 1e-12);
    EXPECT_EQ(markOpacities(2.0, 140, kCentres, kSpeedMarks),
              (std::array<double, 5>{0.5, 0.5, 0.5, 0.5, 0.5}));
}

TEST(TransportRules, SpeedStepsFromMarkToMarkAndStopsAtTheEnds) {
    const struct {
        double from;
        std::optional<double> up, down;
    } cases[] = {
        {0.6, 0.75, 0.5}, {1.5, std::nullopt, 1.0}, {0.25, 0.5, std::nullopt}, {1.0, 1.5, 0.75}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.from);
        EXPECT_EQ(steppedSpeed(c.from, true, kSpeedMarks), c.up);
        EXPECT_EQ(steppedSpeed(c.from, false, kSpeedMarks), c.down);
    }
    EXPECT_FALSE(speedIsDirty(1.0));
    EXPECT_TRUE(speedIsDirty(1.1));
    EXPECT_FALSE(speedIsDirty(std::nan("")));
    EXPECT_EQ(speedText(0.75), "75%");
}

TEST(TransportRules, PitchGeometryStepsAndText) {
    // A 96-point slot from x = 8: two points a semitone.
    EXPECT_DOUBLE_EQ(pitchX(0, 8, 96), 56.5);
    EXPECT_DOUBLE_EQ(pitchX(-24, 8, 96), 8.5);
    EXPECT_DOUBLE_EQ(pitchX(24, 8, 96), 104.5);
    EXPECT_DOUBLE_EQ(pitchForX(57, 8, 96, false), 0.5);
    EXPECT_DOUBLE_EQ(pitchForX(57, 8, 96, true), 0.0); // half to even
    EXPECT_DOUBLE_EQ(pitchForX(59, 8, 96, true), 2.0); // 1.5 to even

    const struct {
        double from;
        PitchStep step;
        double to;
    } steps[] = {
        {0.3, PitchStep::Up, 1.0},         {0.3, PitchStep::Down, 0.0},
        {20, PitchStep::UpOctave, 24},     {-20, PitchStep::DownOctave, -24},
        {23.995, PitchStep::UpFinely, 24}, {1.0, PitchStep::DownFinely, 0.99},
        {24, PitchStep::Up, 24},           {-7.5, PitchStep::Reset, 0},
    };
    for (const auto& s : steps) {
        SCOPED_TRACE(testing::Message() << s.from << " step " << int(s.step));
        EXPECT_NEAR(steppedPitch(s.from, s.step), s.to, 1e-9);
    }
    // Fine steps there and back, by key or wheel, come back to no shift at all.
    double there = 0.0;
    double wheeled = 0.0;
    for (const int direction : {1, 1, 1, -1, -1, -1}) {
        there = steppedPitch(there, direction > 0 ? PitchStep::UpFinely : PitchStep::DownFinely);
        wheeled = wheeledPitch(wheeled, direction * 0.5, true);
    }
    EXPECT_FALSE(pitchIsDirty(there)) << there;
    EXPECT_FALSE(pitchIsDirty(wheeled)) << wheeled;
    EXPECT_DOUBLE_EQ(wheeledPitch(0, 3, false), 2.0);  // 1.5 rounded
    EXPECT_DOUBLE_EQ(wheeledPitch(0, 3, true), 0.06);  // fine, unrounded
    EXPECT_DOUBLE_EQ(wheeledPitch(23, 10, false), 24); // clamped
    // A screen reader hears what the display shows.
    const struct {
        double semitones;
        const char* shown;
        const char* heard;
    } texts[] = {{0, "0", "0 semitones"},
                 {1.5, "+1.5", "plus 1.5 semitones"},
                 {-12, "-12", "minus 12 semitones"},
                 {3.0 / 7.0 * 8.0, "+3.43", "plus 3.43 semitones"},
                 {-0.004, "0", "0 semitones"},
                 {1, "+1", "plus 1 semitone"},
                 {-1.001, "-1", "minus 1 semitone"},
                 {-11, "-11", "minus 11 semitones"}};
    for (const auto& text : texts) {
        EXPECT_EQ(pitchText(text.semitones), text.shown) << text.semitones;
        EXPECT_EQ(spokenPitch(text.semitones), text.heard) << text.semitones;
    }
}

TEST(TransportRules, TheTimeIsMinutesSecondsAndMilliseconds) {
    const struct {
        qint64 frame;
        const char* text;
    } cases[] = {{0, "00:00.000"},
                 {44100, "00:01.000"},
                 {2646000, "01:00.000"},
                 {48000, "00:01.088"},
                 {264600000, "100:00.000"}};
    for (const auto& c : cases)
        EXPECT_EQ(timeString(millisecondsForFrame(c.frame)), c.text) << c.frame;
}
