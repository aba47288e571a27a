// The effects panel's mappings, places and rules, without a widget.
#include "effects/EQBandGeometry.h"
#include "effects/EffectsAccessibility.h"
#include "effects/PresetMenuRule.h"
#include "effects/ProgressMarkAnimation.h"
#include "effects/SpectrumMappings.h"
#include "effects/TeskPanSlider.h"
#include "effects/TeskPanningSpectrumEffectView.h"
#include "effects/VocalBandGeometry.h"

#include <cmath>
#include <gtest/gtest.h>

using namespace tesk;

TEST(SpectrumMappings, LevelsAreLinearAndFrequenciesLogarithmic) {
    SLinearMapping level;
    level.setMinValue(-60);
    level.setMaxValue(45);
    level.setMinPoint(140); // the bottom of a view 140 high
    level.setMaxPoint(0);
    SLogarithmicMapping frequency;
    frequency.setMinValue(20);
    frequency.setMaxValue(20000);
    frequency.setMinPoint(0);
    frequency.setMaxPoint(300);
    const struct {
        double decibels, y, hertz, x;
    } cases[] = {
        {-60, 140, 20, 0},         {45, 0, 20000, 300},
        {-7.5, 70, 632.4555, 150}, {-30, 100, 200, 100},
        {-95, 186.6667, 2, -100},  {66, -28, 40000, 300 + 100 * std::log10(2.0)},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.hertz);
        EXPECT_NEAR(level.pointForValue(c.decibels), c.y, 1e-3);
        EXPECT_NEAR(level.valueForPoint(c.y), c.decibels, 1e-3);
        EXPECT_NEAR(frequency.pointForValue(c.hertz), c.x, 1e-3);
        EXPECT_NEAR(frequency.valueForPoint(c.x), c.hertz, c.hertz * 1e-6);
    }
    // Equal ratios, equal distances.
    EXPECT_NEAR(frequency.pointForValue(880) - frequency.pointForValue(440),
                frequency.pointForValue(8000) - frequency.pointForValue(4000), 1e-9);
}

TEST(EQBandGeometry, SlotsKnobsAndHitsFallWhereTheRulesSay) {
    const EQBandGeometry places(QSizeF(408, 140), QSizeF(17, 9)); // bands 40 wide
    EXPECT_DOUBLE_EQ(places.pointForBandIndex(0), 24);
    EXPECT_DOUBLE_EQ(places.pointForBandIndex(9), 384);
    const struct {
        double gain, knobY;
    } heights[] = {{20, 10}, {25, 10}, {60, 10}, {0, 70}, {-20, 130}, {-35, 130}, {3, 61}};
    for (const auto& h : heights) {
        SCOPED_TRACE(h.gain);
        EXPECT_DOUBLE_EQ(places.pointForValue(h.gain), h.knobY);
        const QRectF knob = places.handleRectForBand(2, h.gain);
        EXPECT_EQ(knob.size(), QSizeF(17, 9));
        EXPECT_DOUBLE_EQ(knob.left(), 104 - 8);
        // Odd heights sit half a point high: centred on whole points measured from the bottom.
        EXPECT_NEAR(knob.center().y(), h.knobY - 0.5, 1e-9);
    }
    EXPECT_EQ(places.handleRectForBand(0, 20), places.handleRectForBand(0, 25));
    // Dragging is not limited: above the slot's end the gain goes on growing.
    EXPECT_DOUBLE_EQ(places.valueForPoint(70), 0);
    EXPECT_DOUBLE_EQ(places.valueForPoint(10), 20);
    EXPECT_NEAR(places.valueForPoint(-5), 25, 1e-9);
    EXPECT_NEAR(places.valueForPoint(160), -30, 1e-9);

    EXPECT_EQ(places.hitRectForBand(0), QRectF(4, 8, 40, 124));
    EXPECT_EQ(places.hitRectForBand(9), QRectF(364, 8, 40, 124));
    const struct {
        QPointF point;
        int band;
    } hits[] = {{{4, 50}, 0},    {{43.9, 8}, 0},  {{44, 50}, 1},   {{403.9, 131.9}, 9},
                {{3.9, 50}, -1}, {{24, 7.9}, -1}, {{24, 132}, -1}, {{404, 70}, -1}};
    for (const auto& h : hits) {
        SCOPED_TRACE(QString("%1,%2").arg(h.point.x()).arg(h.point.y()).toStdString());
        EXPECT_EQ(places.bandIndexForPoint(h.point), h.band);
    }
}

TEST(EQBandGeometry, EachSlotLiesUnderTheMiddleOfItsKnobOnWholeDevicePixels) {
    const EQBandGeometry places(QSizeF(408, 140), QSizeF(17, 9));
    for (const double ratio : {1.0, 1.25, 1.5, 2.0}) {
        for (int band = 0; band < EQBandGeometry::kBandCount; ++band) {
            SCOPED_TRACE(testing::Message() << "ratio " << ratio << " band " << band);
            const double left = places.slotLeftForBand(band, 5.0, ratio);
            EXPECT_DOUBLE_EQ(left * ratio, std::round(left * ratio));
            // Within half a device pixel of the knob's middle.
            EXPECT_LE(std::abs(left + 2.5 - places.handleRectForBand(band, 0.0).center().x()),
                      0.5 / ratio + 1e-9);
        }
    }
}

TEST(VocalBandGeometry, EdgesKeepTheirGapAndTheAxisLimits) {
    const VocalBandGeometry band(QSizeF(300, 100)); // 100 points a decade from 20 Hz
    EXPECT_EQ(band.edgeRect(200), QRectF(100, 2, 1, 96));
    EXPECT_EQ(band.edgeHitRect(200), QRectF(98, 0, 5, 100));
    EXPECT_EQ(band.midHitRect(200, 2000), QRectF(103, 0, 95, 100));

    const auto at = [](double x) { return double(float(20.0 * std::pow(10.0, x / 100.0))); };
    const struct {
        const char* what;
        double x, otherEdge, low, high;
    } cases[] = {
        {"free", 50, 2000, at(50), 0},
        {"onto the high edge: 5 points short", 199, 2000, at(195), 0},
        {"past the high edge", 260, 2000, at(195), 0},
        {"beyond the left end", -30, 2000, 20, 0},
        {"the left end", 0, 2000, 20, 0},
        {"high, free", 250, 200, 0, at(250)},
        {"high onto the low edge", 101, 200, 0, at(105)},
        {"high to the far left", -50, 200, 0, at(105)},
        {"high to the right end", 300, 200, 0, 20000},
        {"high beyond the right end", 340, 200, 0, 20000},
        {"the limit wins over the gap", 300, at(298), 0, 20000},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        if (c.low > 0)
            EXPECT_NEAR(band.lowFrequencyForPoint(c.x, c.otherEdge), c.low, c.low * 1e-6);
        else
            EXPECT_NEAR(band.highFrequencyForPoint(c.x, c.otherEdge), c.high, c.high * 1e-6);
    }
    EXPECT_EQ(band.lowFrequencyForPoint(-30, 2000), 20.0) << "exactly";
    EXPECT_EQ(band.highFrequencyForPoint(300, 200), 20000.0) << "exactly";

    // The readout, 80 points wide, in the top corner no edge's handle crosses: the right one
    // lies from 214 to 294, the left one from 6 to 86.
    const QRectF right(214, 4, 80, 12);
    const QRectF left(6, 4, 80, 12);
    const struct {
        const char* what;
        double low, high;
        QRectF place;
    } readouts[] = {
        {"clear of both edges", 200, 2000, right},
        {"the high edge under the right corner", 200, 5000, left},
        {"the low edge under the left corner", 25, 2000, right},
        {"an edge under each corner", 25, 5000, right},
        {"the high edge a handle's margin from the right corner", 200, at(210), right},
        {"the high edge touching it", 200, at(213), left},
    };
    for (const auto& r : readouts) {
        SCOPED_TRACE(r.what);
        EXPECT_EQ(band.readoutRect(QSizeF(80, 12), r.low, r.high), r.place);
    }
}

TEST(PanRules, DetentWheelAndTheChannelsWeights) {
    const struct {
        double value, minValue, maxValue, detented;
    } detents[] = {{0.54, 0, 1, 0.5}, {0.549, 0, 1, 0.5},   {0.5501, 0, 1, 0.5501},
                   {0.46, 0, 1, 0.5}, {0.449, 0, 1, 0.449}, {0.04, -1, 1, 0},
                   {0.2, -1, 1, 0.2}, {1, 0, 1, 1}};
    for (const auto& d : detents) {
        SCOPED_TRACE(d.value);
        EXPECT_EQ(TeskPanSlider::detented(d.value, d.minValue, d.maxValue), d.detented);
    }
    const struct {
        double value, length, dx, dy, after;
    } wheels[] = {{0.5, 200, 0, 1, 0.505},
                  {0.5, 200, 1, 0, 0.495},
                  {0.5, 100, 0, -2, 0.48},
                  {0.0, 200, 0, -1, -0.005},
                  {0.25, 400, 3, 1, 0.245}};
    for (const auto& w : wheels) {
        SCOPED_TRACE(w.after);
        EXPECT_NEAR(TeskPanSlider::valueAfterWheel(w.value, 0, 1, w.length, w.dx, w.dy), w.after,
                    1e-6);
    }
    const struct {
        double pan, left, right;
    } weights[] = {{0.5, 1, 1}, {0.75, 0.5, 1}, {0.0, 1, 0}, {1.0, 0, 1}, {0.25, 1, 0.5}};
    for (const auto& w : weights) {
        SCOPED_TRACE(w.pan);
        EXPECT_DOUBLE_EQ(TeskPanningSpectrumEffectView::channelWeight(0, w.pan), w.left);
        EXPECT_DOUBLE_EQ(TeskPanningSpectrumEffectView::channelWeight(1, w.pan), w.right);
    }
    EXPECT_EQ(TeskPanningSpectrumEffectView::scaledTowardsFloor({-60, 0, 40, -80}, -60, 0.5),
              (std::vector<float>{-60, -30, -10, -70}));
}

TEST(ProgressMarkAnimation, GlidesEaseOutThroughMarksAFifthApartAndEndsOnOne) {
    const struct {
        double seconds, mark;
    } marks[] = {{0, 0},   {0.05, 0.4}, {0.1, 0.75}, {0.15, 0.9}, {0.199, 1.0 - 0.05},
                 {0.2, 1}, {5, 1},      {-1, 0}};
    for (const auto& m : marks) {
        SCOPED_TRACE(m.seconds);
        EXPECT_NEAR(ProgressMarkAnimation::markAt(m.seconds), m.mark, 1e-12);
    }
    std::vector<double> seen;
    ProgressMarkAnimation glide([&](double progress) { seen.push_back(progress); });
    glide.start();
    for (double t = 0.01; t < 0.25; t += 0.0333)
        glide.advanceTo(t);
    EXPECT_FALSE(glide.isAnimating());
    ASSERT_GE(seen.size(), 3u);
    EXPECT_EQ(seen.front(), 0.0);
    EXPECT_EQ(seen.back(), 1.0);
    for (std::size_t i = 1; i < seen.size(); ++i) {
        EXPECT_GT(seen[i], seen[i - 1]) << "each reported mark is a new one";
        EXPECT_NEAR(std::fmod(seen[i] * 20 + 1e-9, 1.0), 0.0, 1e-6) << "on the 1/20 grid";
    }
    EXPECT_EQ(glide.framesShown(), int(seen.size()));
}

TEST(PresetMenuRule, TheLastEqualPresetWinsAndNoneIsManual) {
    const struct {
        std::vector<bool> equal;
        int index;
    } cases[] = {{{false, false, false}, 0},
                 {{true, false, false}, 2},
                 {{true, false, true}, 4},
                 {{false, true, false}, 3},
                 {{}, 0}};
    for (const auto& c : cases)
        EXPECT_EQ(
            presetMenuIndex(int(c.equal.size()), [&](int i) { return c.equal[std::size_t(i)]; }),
            c.index);
}

TEST(EffectsAccessibility, ValuesAreSpokenPlainly) {
    const struct {
        double gain;
        const char* spoken;
    } gains[] = {{3, "+3 dB"}, {-20, "-20 dB"}, {0, "0 dB"}, {2.46, "+2.5 dB"}, {-0.02, "0 dB"}};
    for (const auto& g : gains)
        EXPECT_EQ(spokenGain(g.gain), QString::fromUtf8(g.spoken));
    EXPECT_EQ(spokenFrequency(199.6), "200 Hz");
    EXPECT_EQ(spokenPan(0.5), "Centre");
    EXPECT_EQ(spokenPan(0.25), "50% left");
    EXPECT_EQ(spokenPan(1.0), "100% right");
}
