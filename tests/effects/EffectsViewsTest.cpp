// The effect editors as the user meets them: drags through mouse events, glides stepped by
// hand, and pixels read where the rules put things, at every scale factor.
#include "audio/TeskEffectsSettings.h"
#include "effects/EffectsAccessibility.h"
#include "effects/TeskEQSettingsView.h"
#include "effects/TeskEffectViewDelegate.h"
#include "effects/TeskPanSlider.h"
#include "effects/TeskPanningSpectrumEffectView.h"
#include "effects/TeskVocalRemovalSettingsView.h"
#include "support/Assertions.h"
#include "support/ViewTesting.h"

#include <QAccessible>
#include <QAccessibleValueInterface>
#include <QApplication>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <cmath>
#include <gtest/gtest.h>

using namespace tesk;
using namespace tesk::test;

namespace {

struct Recorder : TeskEffectViewDelegate {
    int began = 0;
    int ended = 0;
    void effectViewDidBeginEditing(TeskSpectrumEffectView*) override { ++began; }
    void effectViewDidEndEditing(TeskSpectrumEffectView*) override { ++ended; }
};

void send(QWidget& view, QEvent::Type type, const QPointF& at) {
    const Qt::MouseButtons held =
        type == QEvent::MouseButtonRelease ? Qt::NoButton : Qt::LeftButton;
    QMouseEvent event(type, at, view.mapToGlobal(at), Qt::LeftButton, held, Qt::NoModifier);
    QCoreApplication::sendEvent(&view, &event);
}

/// A press at `from`, moves through `path`, a release at the last point.
void drag(QWidget& view, const QPointF& from, std::initializer_list<QPointF> path) {
    send(view, QEvent::MouseButtonPress, from);
    QPointF last = from;
    for (const QPointF& point : path)
        send(view, QEvent::MouseMove, last = point);
    send(view, QEvent::MouseButtonRelease, last);
}

int brightness(const QColor& colour) {
    return (colour.red() + colour.green() + colour.blue()) / 3;
}

/// How far the brightest pixel within a device pixel of logical row `y` in column `x` stands
/// above the same place of `background`.
int lift(const QImage& image, const QImage& background, double x, double y) {
    const qreal ratio = image.devicePixelRatio();
    const int column = devicePixel(x, ratio);
    int most = -255;
    for (int row = devicePixel(y, ratio) - 1; row <= devicePixel(y, ratio) + 1; ++row)
        most = std::max(most, brightness(image.pixelColor(column, row)) -
                                  brightness(background.pixelColor(column, row)));
    return most;
}

/// (blue lift) / (green lift) of the most lifted pixel near (x, y): the spectrum colours differ
/// there (about 1.2 for the left colour, above 2 for the right).
double blueOverGreen(const QImage& image, const QImage& background, double x, double y) {
    const qreal ratio = image.devicePixelRatio();
    const int column = devicePixel(x, ratio);
    int bestRow = -1;
    int most = 0;
    for (int row = devicePixel(y, ratio) - 2; row <= devicePixel(y, ratio) + 2; ++row) {
        const int lifted = brightness(image.pixelColor(column, row)) -
                           brightness(background.pixelColor(column, row));
        if (lifted > most)
            most = lifted, bestRow = row;
    }
    if (bestRow < 0)
        return 0.0;
    const QColor pixel = image.pixelColor(column, bestRow);
    const QColor under = background.pixelColor(column, bestRow);
    return double(pixel.blue() - under.blue()) / std::max(1, pixel.green() - under.green());
}

/// A flat spectrum at `level` dB on every point, with a table from 10 Hz up.
void feedFlatSpectrum(TeskSpectrumEffectView& view, float level, bool bothChannels = true) {
    std::vector<float> table;
    for (double hertz = 10.0; hertz < 22000.0; hertz *= std::pow(2.0, 1.0 / 6))
        table.push_back(float(hertz));
    view.setFrequencyTable(table);
    view.setSpectrum(std::vector<float>(table.size(), level), 0);
    view.setSpectrum(bothChannels ? std::vector<float>(table.size(), level) : std::vector<float>{},
                     1);
}

/// The three effect editors in one window, one above the other, as the panel holds them.
struct EditorsWindow {
    EditorsWindow() {
        eq->setGeometry(0, 0, 408, 140);
        vocal->setGeometry(0, 150, 300, 100);
        pan->setGeometry(0, 260, 200, pan->sizeHint().height());
    }
    QWidget window;
    TeskEQSettingsView* eq = new TeskEQSettingsView(&window);
    TeskVocalRemovalSettingsView* vocal = new TeskVocalRemovalSettingsView(&window);
    TeskPanSlider* pan = new TeskPanSlider(&window);
};

} // namespace

TEST(TeskSpectrumEffectView, TheSpectrumShowsOnlyWithBothChannelsAndTheEffectOn) {
    const struct {
        bool bothChannels, enabled, drawn;
    } cases[] = {{true, true, true}, {false, true, false}, {true, false, false}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.bothChannels << c.enabled);
        TeskSpectrumEffectView view;
        view.resize(300, 105);
        view.setEffectEnabled(c.enabled);
        const QImage background = grabImage(view);
        feedFlatSpectrum(view, -5.0f, c.bothChannels); // 50 points from the top
        const QImage picture = grabImage(view);
        const double x = view.frequencyMapping().pointForValue(1414.0); // between grid lines
        EXPECT_NEAR(view.magnitudeMapping().pointForValue(-5.0), 50.0, 1e-9);
        if (c.drawn)
            EXPECT_GT(lift(picture, background, x, 50.0), 8);
        else
            EXPECT_EQ(picture, background);
    }
    TeskSpectrumEffectView view;
    EXPECT_TESK_ASSERTION(view.setSpectrum({1.0f}, 2),
                          "Invalid parameter not satisfying: channel < 2");
}

TEST(TeskSpectrumEffectView, ADarkLineBordersEveryEdge) {
    TeskSpectrumEffectView view;
    view.resize(382, 130);
    const QImage picture = grabImage(view);
    const qreal ratio = test::testPixelRatio();
    const qreal last = 1.0 / ratio; // the last device pixel inside each edge, in points
    const struct {
        const char* edge;
        QPointF on, inside;
    } edges[] = {{"left", {0.0, 65.0}, {6.0, 65.0}},
                 {"right", {382.0 - last, 65.0}, {376.0, 65.0}},
                 {"top", {191.0, 0.0}, {191.0, 6.0}},
                 {"bottom", {191.0, 130.0 - last}, {191.0, 124.0}}};
    for (const auto& e : edges) {
        const QColor on = test::pixelAt(picture, e.on.x(), e.on.y());
        const QColor inside = test::pixelAt(picture, e.inside.x(), e.inside.y());
        EXPECT_LT(on.lightness(), inside.lightness() - 6)
            << e.edge << ": " << on.name().toStdString() << " " << inside.name().toStdString();
    }
}

TEST(TeskSpectrumEffectView, ThePathSkipsTheConstantTerm) {
    TeskSpectrumEffectView view;
    view.resize(300, 105);
    view.setFrequencyTable({0.0f, 20.0f, 200.0f, 20000.0f});
    const QPainterPath path = view.createPathForSpectrum({100.0f, -60.0f, -5.0f, 45.0f});
    ASSERT_EQ(path.elementCount(), 3);
    EXPECT_EQ(QPointF(path.elementAt(0)), QPointF(0, 105));
    EXPECT_EQ(QPointF(path.elementAt(1)), QPointF(100, 50));
    EXPECT_EQ(QPointF(path.elementAt(2)), QPointF(300, 0));
}

TEST(TeskEQSettingsView, DraggingABandWritesItsGainBackWithoutALimit) {
    TeskEffectsSettings settings;
    settings.setEqualizerEnabled(true); // a switched-off editor is dimmed
    TeskEQSettingsView view;
    Recorder delegate;
    view.setDelegate(&delegate);
    view.resize(408, 140);
    view.show();
    ASSERT_TRUE(view.bind("bands", &settings, "equalizerSettings.bands"));
    ASSERT_TRUE(view.bind("enabled", &settings, "equalizerEnabled"));
    const EQBandGeometry places = view.geometry();
    const QPointF slot(places.pointForBandIndex(2), places.pointForValue(0));

    send(view, QEvent::MouseButtonPress, slot);
    EXPECT_EQ(delegate.began, 1);
    EXPECT_TRUE(view.bandPressed(2));
    send(view, QEvent::MouseMove, {slot.x() + 15, 10}); // sideways does not change the band
    EXPECT_DOUBLE_EQ(settings.equalizerSettings()->bands()[2], 20.0);
    const QImage at20 = grabImage(view);
    send(view, QEvent::MouseMove, {slot.x(), -5});
    EXPECT_DOUBLE_EQ(settings.equalizerSettings()->bands()[2], 25.0);
    EXPECT_EQ(view.valueForBand(2), 25.0);
    const QImage at25 = grabImage(view);
    send(view, QEvent::MouseButtonRelease, {slot.x(), -5});
    EXPECT_EQ(delegate.ended, 1);
    EXPECT_FALSE(view.bandPressed(2));
    EXPECT_EQ(settings.equalizerSettings()->bands(),
              (QList<double>{0, 0, 25, 0, 0, 0, 0, 0, 0, 0}));

    // +25 dB is drawn where +20 dB is: 10 points below the top, in the pressed picture.
    const QRectF knob = places.handleRectForBand(2, 25.0);
    EXPECT_EQ(knob, places.handleRectForBand(2, 20.0));
    const QPointF onKnob(knob.left() + 4, knob.top() + 2.5);
    EXPECT_GT(brightness(pixelAt(at25, onKnob.x(), onKnob.y())), 150);
    EXPECT_EQ(pixelAt(at25, onKnob.x(), onKnob.y()), pixelAt(at20, onKnob.x(), onKnob.y()));
    const QRectF rest = places.handleRectForBand(2, 0.0);
    EXPECT_LT(brightness(pixelAt(grabImage(view), rest.left() + 4, rest.top() + 2.5)), 100)
        << "no knob left at 0 dB";

    // A click between slots changes nothing, yet editing begins and ends.
    for (const QPointF between : {QPointF(2, 70), QPointF(slot.x(), 4), QPointF(406, 70)}) {
        drag(view, between, {});
        EXPECT_EQ(settings.equalizerSettings()->bands()[2], 25.0);
    }
    EXPECT_EQ(delegate.began, 4);
    EXPECT_EQ(delegate.ended, 4);
}

TEST(TeskEQSettingsView, EachSlotCoversTheGridBehindItFromEndToEnd) {
    // At any ratio, no row of a slot lets more of the spectrum's background through than the
    // rest: beside the slot and under it, the background is the same.
    TeskEffectsSettings settings;
    settings.setEqualizerEnabled(true);
    settings.equalizerSettings()->setBands(QList<double>(10, 20.0)); // knobs out of the way
    TeskEQSettingsView view;
    view.resize(408, 140);
    ASSERT_TRUE(view.bind("bands", &settings, "equalizerSettings.bands"));
    ASSERT_TRUE(view.bind("enabled", &settings, "equalizerEnabled"));
    const QImage picture = grabImage(view);
    const EQBandGeometry places = view.geometry();
    for (int band = 0; band < TeskEQSettingsView::kBandCount; ++band) {
        const double x = places.slotLeftForBand(band, 5.0, picture.devicePixelRatio()) + 1.5;
        double most = 0.0;
        for (double y = places.pointForValue(12.0); y <= places.pointForValue(-19.0); y += 0.5) {
            // The darker side, in case a grid line runs down the other.
            const int beside = std::min(brightness(pixelAt(picture, x - 4, y)),
                                        brightness(pixelAt(picture, x + 6, y)));
            const int slot = brightness(pixelAt(picture, x, y));
            most = std::max(most, double(slot) / std::max(1, beside));
        }
        EXPECT_LT(most, 0.7) << "band " << band; // about 0.5, and 0.9 where a slot shows through
    }
}

TEST(TeskEQSettingsView, ReachedWithTabTheKeysPickABandAndMoveItsGain) {
    installEffectsAccessibility();
    TeskEffectsSettings settings;
    QWidget window;
    auto* eq = new TeskEQSettingsView(&window);
    eq->setGeometry(0, 0, 408, 140);
    ASSERT_TRUE(eq->bind("bands", &settings, "equalizerSettings.bands"));
    window.show();
    window.activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&window));
    const auto ringed = [&](int band) {
        const QRectF knob = eq->geometry().handleRectForBand(band, eq->valueForBand(band));
        const QColor beside =
            test::pixelAt(test::grabImage(*eq), knob.left() - 1.5, knob.center().y());
        return beside.blue() > beside.red() + 80;
    };
    eq->clearFocus(); // which the window gave it, its first stop for Tab
    EXPECT_FALSE(ringed(0)) << "no ring without the focus";
    eq->setFocus(Qt::TabFocusReason);
    ASSERT_TRUE(eq->hasFocus());
    const struct {
        Qt::Key key;
        int band;
        double gain;
    } steps[] = {
        {Qt::Key_Left, 0, 0.0}, // no band before the first
        {Qt::Key_Right, 1, 0.0},      {Qt::Key_Up, 1, 1.0},         {Qt::Key_Up, 1, 2.0},
        {Qt::Key_PageUp, 1, 7.0},     {Qt::Key_Down, 1, 6.0},       {Qt::Key_Home, 1, 0.0},
        {Qt::Key_PageDown, 1, -5.0},  {Qt::Key_PageDown, 1, -10.0}, {Qt::Key_PageDown, 1, -15.0},
        {Qt::Key_PageDown, 1, -20.0}, {Qt::Key_PageDown, 1, -20.0}, // the editor's end
    };
    for (const auto& step : steps) {
        QTest::keyClick(eq, step.key);
        EXPECT_EQ(eq->keyBand(), step.band) << step.key;
        EXPECT_EQ(settings.equalizerSettings()->bands().value(step.band), step.gain) << step.key;
        if (step.gain == 0.0) { // never -0, which would read as "-0 dB"
            EXPECT_FALSE(std::signbit(settings.equalizerSettings()->bands().value(step.band)));
        }
    }
    EXPECT_TRUE(ringed(1));
    EXPECT_FALSE(ringed(0));
    // A gain between whole decibels steps to the next whole one.
    settings.equalizerSettings()->setBands({0, 0.5, 0, 0, 0, 0, 0, 0, 0, 0});
    ASSERT_TRUE(QTest::qWaitFor([&] { return eq->valueForBand(1) == 0.5; }, 5000));
    QTest::keyClick(eq, Qt::Key_Down);
    EXPECT_EQ(settings.equalizerSettings()->bands().value(1), 0.0);
    QTest::keyClick(eq, Qt::Key_Up);
    EXPECT_EQ(settings.equalizerSettings()->bands().value(1), 1.0);

    // A screen reader is told the band the keys move, and only that one is focused.
    QAccessibleInterface* editor = QAccessible::queryAccessibleInterface(eq);
    ASSERT_NE(editor->focusChild(), nullptr);
    EXPECT_EQ(editor->indexOfChild(editor->focusChild()), 1);
    EXPECT_FALSE(editor->child(0)->state().focused);
    // With Ctrl or Alt the arrows are the window's: the editor leaves them alone.
    const QList<double> before = settings.equalizerSettings()->bands();
    for (const auto& [key, modifiers] :
         {std::pair{Qt::Key_Right, Qt::ControlModifier}, std::pair{Qt::Key_Left, Qt::AltModifier},
          std::pair{Qt::Key_Up, Qt::ControlModifier}}) {
        QTest::keyClick(eq, key, modifiers);
        EXPECT_EQ(eq->keyBand(), 1) << key;
        EXPECT_EQ(settings.equalizerSettings()->bands(), before) << key;
    }
    // A key while a knob is held leaves the drag to the mouse, which ends it as it began.
    Recorder delegate;
    eq->setDelegate(&delegate);
    const EQBandGeometry places = eq->geometry();
    const double x = places.pointForBandIndex(5);
    send(*eq, QEvent::MouseButtonPress, {x, places.pointForValue(0)});
    QTest::keyClick(eq, Qt::Key_Up);
    send(*eq, QEvent::MouseMove, {x, places.pointForValue(0) - 10});
    send(*eq, QEvent::MouseButtonRelease, {x, places.pointForValue(0) - 10});
    EXPECT_EQ(eq->pressedIndex(), TeskEQSettingsView::kNoBand);
    EXPECT_FALSE(eq->isDragging());
    EXPECT_EQ(delegate.began, delegate.ended);
    EXPECT_GT(settings.equalizerSettings()->bands().value(5), 0.0) << "the drag went on";
}

TEST(TeskEQSettingsView, KeysStepTowardsTheEditorsEndsAndBackInsideThemInOneStep) {
    const struct {
        double gain;
        Qt::Key key;
        double after;
    } steps[] = {
        {0.0, Qt::Key_Up, 1.0},         {-0.3, Qt::Key_Up, 0.0},
        {19.5, Qt::Key_Up, 20.0},       {20.0, Qt::Key_Up, 20.0},
        {25.0, Qt::Key_Up, 25.0},       {25.0, Qt::Key_PageUp, 25.0},
        {17.0, Qt::Key_PageUp, 20.0},   {25.0, Qt::Key_Down, 20.0},
        {-25.0, Qt::Key_Down, -25.0},   {-25.0, Qt::Key_PageDown, -25.0},
        {-25.0, Qt::Key_Up, -20.0},     {0.5, Qt::Key_Down, 0.0},
        {7.5, Qt::Key_Home, 0.0},       {200.7, Qt::Key_Down, 20.0},
        {-90.0, Qt::Key_PageUp, -20.0}, {25.0, Qt::Key_PageDown, 20.0},
    };
    for (const auto& step : steps) {
        const double after = TeskEQSettingsView::gainAfterKey(step.gain, step.key);
        EXPECT_EQ(after, step.after) << step.gain << " " << step.key;
        EXPECT_FALSE(after == 0.0 && std::signbit(after)) << "never -0";
    }
}

TEST(TeskEQSettingsView, APresetGlidesThereUnlessADragIsUnderWay) {
    TeskEffectsSettings settings;
    TeskEQSettingsView view;
    view.resize(408, 140);
    view.bind("bands", &settings, "equalizerSettings.bands");
    settings.setEqualizerSettings(TeskEqualizerSettings::isolateMidsPreset().get());
    ASSERT_TRUE(view.presetAnimation().isAnimating());
    EXPECT_EQ(view.valueForBand(0), 0.0) << "mark 0: still the start";
    view.presetAnimation().advanceTo(0.1); // ease-out: three quarters of the way
    EXPECT_EQ(view.valueForBand(0), double(float(-15.0)));
    EXPECT_EQ(view.valueForBand(4), 0.0);
    view.presetAnimation().advanceTo(0.2);
    EXPECT_FALSE(view.presetAnimation().isAnimating());
    EXPECT_EQ(view.bands(), settings.equalizerSettings()->bands());

    // While a band is held, a preset is taken at once.
    view.show();
    const EQBandGeometry places = view.geometry();
    send(view, QEvent::MouseButtonPress, {places.pointForBandIndex(5), 30});
    settings.setEqualizerSettings(TeskEqualizerSettings::isolateBassPreset().get());
    EXPECT_FALSE(view.presetAnimation().isAnimating());
    EXPECT_EQ(view.bands(), TeskEqualizerSettings::isolateBassPreset()->bands());
    send(view, QEvent::MouseButtonRelease, {places.pointForBandIndex(5), 30});

    // A band pressed in the middle of a glide: the others are the preset's, not half-way.
    settings.setEqualizerSettings(TeskEqualizerSettings::isolateMidsPreset().get());
    view.presetAnimation().advanceTo(0.1);
    send(view, QEvent::MouseButtonPress, {places.pointForBandIndex(5), 30});
    send(view, QEvent::MouseButtonRelease, {places.pointForBandIndex(5), 30});
    QList<double> expected = TeskEqualizerSettings::isolateMidsPreset()->bands();
    expected[5] = settings.equalizerSettings()->bands()[5];
    EXPECT_EQ(settings.equalizerSettings()->bands(), expected);
    EXPECT_EQ(view.bands(), expected);
}

TEST(TeskVocalRemovalSettingsView, ReachedWithTabTheKeysPickAnEdgeAndMoveIt) {
    TeskEffectsSettings settings;
    QWidget window;
    auto* before = new QPushButton(&window);
    auto* vocal = new TeskVocalRemovalSettingsView(&window);
    auto* after = new QPushButton(&window);
    vocal->setGeometry(0, 0, 300, 100);
    ASSERT_TRUE(
        vocal->bind("lowFrequency", &settings, "vocalReductionEffectSettings.lowFrequency"));
    ASSERT_TRUE(
        vocal->bind("highFrequency", &settings, "vocalReductionEffectSettings.highFrequency"));
    window.show();
    window.activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&window));
    // Tab comes to the low edge, goes on to the high one and then on out; Shift+Tab the other
    // way round.
    before->setFocus(Qt::TabFocusReason);
    for (const bool forwards : {true, false}) {
        SCOPED_TRACE(forwards ? "Tab" : "Shift+Tab");
        const Qt::Key tab = forwards ? Qt::Key_Tab : Qt::Key_Backtab;
        QTest::keyClick(QApplication::focusWidget(), tab);
        ASSERT_TRUE(vocal->hasFocus());
        EXPECT_EQ(vocal->keysMoveLowEdge(), forwards);
        QTest::keyClick(vocal, tab);
        ASSERT_TRUE(vocal->hasFocus());
        EXPECT_EQ(vocal->keysMoveLowEdge(), !forwards);
        QTest::keyClick(vocal, tab);
        EXPECT_TRUE((forwards ? after : before)->hasFocus());
    }
    vocal->setFocus(Qt::TabFocusReason);
    ASSERT_TRUE(vocal->hasFocus());
    const TeskVocalReductionEffectSettings& band = *settings.vocalReductionEffectSettings();
    const double low = band.lowFrequency(), high = band.highFrequency();
    const double semitone = std::exp2(1.0 / 12.0);
    const struct {
        Qt::Key key;
        Qt::KeyboardModifiers modifiers;
        bool lowEdge;
        double low, high;
    } steps[] = {
        {Qt::Key_Right, Qt::NoModifier, true, low * semitone, high},
        {Qt::Key_Left, Qt::NoModifier, true, low, high},
        {Qt::Key_Up, Qt::NoModifier, false, low, high},
        {Qt::Key_Left, Qt::ShiftModifier, false, low, high / 2.0},
        {Qt::Key_Down, Qt::NoModifier, true, low, high / 2.0},
        {Qt::Key_Left, Qt::ShiftModifier, true, low / 2.0, high / 2.0},
    };
    for (const auto& step : steps) {
        QTest::keyClick(vocal, step.key, step.modifiers);
        EXPECT_EQ(vocal->keysMoveLowEdge(), step.lowEdge) << step.key;
        EXPECT_NEAR(band.lowFrequency() / step.low, 1.0, 1e-3) << step.key;
        EXPECT_NEAR(band.highFrequency() / step.high, 1.0, 1e-3) << step.key;
    }
    // With Ctrl or Alt the arrows are the window's.
    for (const auto& [key, modifiers] :
         {std::pair{Qt::Key_Left, Qt::ControlModifier}, std::pair{Qt::Key_Up, Qt::AltModifier}}) {
        QTest::keyClick(vocal, key, modifiers);
        EXPECT_TRUE(vocal->keysMoveLowEdge()) << key;
        EXPECT_NEAR(band.lowFrequency() / (low / 2.0), 1.0, 1e-3) << key;
    }
    // The ring stays inside the view's border at either end of the axis, and at the narrowest
    // band the two edges' rings differ.
    const QRectF inside = QRectF(vocal->rect()).adjusted(2, 2, -2, -2);
    for (const auto& [lowEdge, hertz] :
         {std::pair{true, 20.0}, std::pair{false, 20000.0}, std::pair{false, 2800.0}}) {
        QTest::keyClick(vocal, lowEdge ? Qt::Key_Down : Qt::Key_Up);
        vocal->setEdgeFrequencyAsUser(lowEdge, hertz);
        EXPECT_TRUE(inside.contains(vocal->focusRingRect())) << hertz;
    }
    vocal->setEdgeFrequencyAsUser(true, 1000.0);
    vocal->setEdgeFrequencyAsUser(false, 1000.0); // held 5 points above the low edge
    QTest::keyClick(vocal, Qt::Key_Down);
    const QRectF lowRing = vocal->focusRingRect();
    QTest::keyClick(vocal, Qt::Key_Up);
    EXPECT_GT(std::abs(vocal->focusRingRect().center().x() - lowRing.center().x()), 8.0);
    QTest::keyClick(vocal, Qt::Key_Down);
    vocal->setEdgeFrequencyAsUser(true, low / 2.0);
    vocal->setEdgeFrequencyAsUser(false, high / 2.0);
    // The edge the keys move is ringed in blue, the other not.
    const QPointF onLowRing(vocal->focusRingRect().left() + 0.5,
                            vocal->focusRingRect().center().y());
    const auto blueAt = [&](const QPointF& at) {
        const QColor c = test::pixelAt(test::grabImage(*vocal), at.x(), at.y());
        return c.blue() > c.red() + 80;
    };
    EXPECT_TRUE(blueAt(onLowRing));
    QTest::keyClick(vocal, Qt::Key_Up);
    EXPECT_FALSE(blueAt(onLowRing));
}

TEST(TeskVocalRemovalSettingsView, EdgeShiftAndCreateDragsFollowTheRules) {
    // 300 points wide: 100 points a decade from 20 Hz.
    const auto at = [](double x) { return double(float(20.0 * std::pow(10.0, x / 100.0))); };
    const auto x = [](double hertz) { return 100.0 * std::log10(hertz / 20.0); };
    const double lowX = x(120), highX = x(2800);
    const struct {
        const char* what;
        double from;
        std::vector<double> path;
        double low, high;
    } drags[] = {
        {"low edge onto the high edge", lowX, {lowX + 40, highX + 10}, at(highX - 5), 2800},
        {"high edge far right", highX + 1, {299, 420}, 120, 20000},
        {"high edge far left", highX - 1, {100, -50}, 120, at(lowX + 5)},
        {"create leftwards", 250, {200, 30}, at(30), at(250)},
        {"create rightwards", 10, {40, 70}, at(10), at(70)},
        {"press without a move", 250, {}, 120, 2800},
        {"shift", 150, {170}, at(lowX + 20), at(highX + 20)},
        {"shift against 20 kHz", 150, {250, 350}, at(lowX + 200), 20000},
    };
    for (const auto& d : drags) {
        SCOPED_TRACE(d.what);
        TeskEffectsSettings settings;
        TeskVocalRemovalSettingsView view;
        Recorder delegate;
        view.setDelegate(&delegate);
        view.resize(300, 100);
        view.show();
        view.bind("lowFrequency", &settings, "vocalReductionEffectSettings.lowFrequency");
        view.bind("highFrequency", &settings, "vocalReductionEffectSettings.highFrequency");
        send(view, QEvent::MouseButtonPress, {d.from, 50});
        EXPECT_EQ(delegate.began, 1);
        EXPECT_EQ(view.isDragging(), true);
        for (double to : d.path)
            send(view, QEvent::MouseMove, {to, 50});
        send(view, QEvent::MouseButtonRelease, {d.path.empty() ? d.from : d.path.back(), 50});
        EXPECT_EQ(delegate.ended, 1);
        const TeskVocalReductionEffectSettings* band = settings.vocalReductionEffectSettings();
        EXPECT_NEAR(band->lowFrequency(), d.low, d.low * 1e-6);
        EXPECT_NEAR(band->highFrequency(), d.high, d.high * 1e-6);
        EXPECT_EQ(view.lowFrequency(), band->lowFrequency());
        EXPECT_EQ(view.highFrequency(), band->highFrequency());
    }
}

TEST(TeskVocalRemovalSettingsView, ItsAxisAndItsBandReadLowToHighInARightToLeftWindow) {
    // Hertz grow to the right in every language; the band's words were reordered, "Hz 800 – 150".
    TeskVocalRemovalSettingsView view;
    view.resize(300, 100);
    view.setLowFrequency(150);
    view.setHighFrequency(800);
    view.show();
    const QImage leftToRight = test::grabImage(view);
    QGuiApplication::setLayoutDirection(Qt::RightToLeft);
    const QImage rightToLeft = test::grabImage(view);
    QGuiApplication::setLayoutDirection(Qt::LeftToRight);
    EXPECT_EQ(rightToLeft, leftToRight);
}

TEST(TeskVocalRemovalSettingsView, CursorsTellTheDragAndPresetsGlide) {
    TeskEffectsSettings settings;
    TeskVocalRemovalSettingsView view;
    view.resize(300, 100);
    view.show();
    view.bind("lowFrequency", &settings, "vocalReductionEffectSettings.lowFrequency");
    view.bind("highFrequency", &settings, "vocalReductionEffectSettings.highFrequency");
    const struct {
        QPointF point;
        Qt::CursorShape cursor;
    } places[] = {{view.lowFrequencyRect().center(), Qt::SizeHorCursor},
                  {view.highFrequencyHitRect().topLeft() + QPointF(0.5, 1), Qt::SizeHorCursor},
                  {view.midFrequencyHitRect().center(), Qt::OpenHandCursor},
                  {{290, 20}, Qt::CrossCursor}};
    for (const auto& p : places) {
        SCOPED_TRACE(int(p.cursor));
        QMouseEvent hover(QEvent::MouseMove, p.point, view.mapToGlobal(p.point), Qt::NoButton,
                          Qt::NoButton, Qt::NoModifier);
        QCoreApplication::sendEvent(&view, &hover);
        EXPECT_EQ(view.cursor().shape(), p.cursor);
    }

    settings.setVocalReductionEffectSettings(
        TeskVocalReductionEffectSettings::femaleVocalPreset().get());
    ASSERT_TRUE(view.bandAnimation().isAnimating());
    view.bandAnimation().advanceTo(0.1);
    EXPECT_EQ(view.lowFrequency(), double(float(120 + (350 - 120) * 0.75)));
    EXPECT_EQ(view.highFrequency(), double(float(2800 + (3500 - 2800) * 0.75)));
    view.bandAnimation().advanceTo(0.3);
    EXPECT_EQ(view.lowFrequency(), 350.0);
    EXPECT_EQ(view.highFrequency(), 3500.0);

    // The low edge pressed in the middle of a glide: the high edge is the preset's.
    settings.setVocalReductionEffectSettings(
        TeskVocalReductionEffectSettings::maleVocalPreset().get());
    view.bandAnimation().advanceTo(0.1);
    const QPointF lowEdge = view.lowFrequencyRect().center();
    QMouseEvent press(QEvent::MouseButtonPress, lowEdge, view.mapToGlobal(lowEdge), Qt::LeftButton,
                      Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(&view, &press);
    EXPECT_EQ(view.highFrequency(), 2800.0);
    EXPECT_EQ(view.lowFrequency(), 120.0);
}

TEST(TeskPanSlider, RepaintsInAWindowThatComesToTheFrontOrGoesBehind) {
    QWidget window;
    auto* slider = new TeskPanSlider(&window);
    slider->setGeometry(0, 0, 200, slider->sizeHint().height());
    EXPECT_TRUE(test::repaintsOnActivation(*slider));
}

TEST(TeskPanSlider, EndsDetentAndWheelWriteBackAndSendTheAction) {
    TeskEffectsSettings settings;
    TeskPanSlider slider;
    slider.resize(200, slider.sizeHint().height());
    slider.show();
    ASSERT_TRUE(slider.bind("value", &settings, "panAmount"));
    QSignalSpy actions(&slider, &TeskPanSlider::actionTriggered);

    QTest::mouseClick(slider.leftButton(), Qt::LeftButton);
    EXPECT_EQ(settings.panAmount(), 0.0);
    EXPECT_EQ(actions.count(), 1);
    QTest::mouseClick(slider.rightButton(), Qt::LeftButton);
    EXPECT_EQ(settings.panAmount(), 1.0);
    EXPECT_EQ(actions.count(), 2);

    // The knob dragged to 0.04 from the centre lands on it; 0.1 from it does not.
    const QRectF track = slider.trackRect();
    const double y = slider.height() / 2.0;
    drag(slider, slider.knobRect().center(), {{track.left() + track.width() * 0.46, y}});
    EXPECT_EQ(settings.panAmount(), 0.5);
    EXPECT_TRUE(actions.count() >= 3);
    drag(slider, slider.knobRect().center(), {{track.left() + track.width() * 0.6, y}});
    EXPECT_NEAR(settings.panAmount(), 0.6, 1e-9);
    EXPECT_FALSE(slider.isPressed());

    // A notch of the wheel moves it as an arrow key does, a part of one a part as far, and either
    // way; a touchpad's pixels move it that far along the slider.
    const struct {
        QPoint pixels, angle;
        double moved;
    } wheels[] = {{{}, {0, 120}, 0.05},
                  {{}, {0, -240}, -0.1},
                  {{}, {0, 30}, 0.0125},
                  {{}, {120, 0}, -0.05},
                  {{0, 3}, {0, 120}, 3.0 / slider.width()}};
    for (const auto& w : wheels) {
        SCOPED_TRACE(w.moved);
        settings.setPanAmount(0.5);
        const int sent = actions.count();
        QWheelEvent wheel(QPointF(100, y), slider.mapToGlobal(QPointF(100, y)), w.pixels, w.angle,
                          Qt::NoButton, Qt::NoModifier, Qt::NoScrollPhase, false);
        QCoreApplication::sendEvent(&slider, &wheel);
        EXPECT_NEAR(settings.panAmount(), 0.5 + w.moved, 1e-6);
        EXPECT_EQ(actions.count(), sent + 1);
    }

    // The plain arrows, Up and Down too, step by a twentieth; with Ctrl or Alt they are the
    // window's (jumps).
    settings.setPanAmount(0.5);
    const struct {
        Qt::Key key;
        Qt::KeyboardModifiers modifiers;
        double after;
    } keys[] = {{Qt::Key_Left, Qt::NoModifier, 0.45},   {Qt::Key_Left, Qt::ControlModifier, 0.45},
                {Qt::Key_Right, Qt::AltModifier, 0.45}, {Qt::Key_End, Qt::ControlModifier, 0.45},
                {Qt::Key_Right, Qt::NoModifier, 0.5},   {Qt::Key_Left, Qt::ShiftModifier, 0.45},
                {Qt::Key_Up, Qt::NoModifier, 0.5},      {Qt::Key_Down, Qt::NoModifier, 0.45},
                {Qt::Key_Home, Qt::NoModifier, 0.0}};
    for (const auto& k : keys) {
        QTest::keyClick(&slider, k.key, k.modifiers);
        EXPECT_NEAR(settings.panAmount(), k.after, 1e-9) << k.key << " " << k.modifiers;
    }
}

TEST(EffectEditors, ADragWhoseReleaseNeverComesIsLetGoAndTheKeysWorkAgain) {
    // A dialog that opens mid-drag (a shortcut typed) takes the button's release with it, and
    // the window goes behind; an editor hidden mid-drag hears no release either.
    enum class Ending { WindowBehind, Hidden };
    for (const Ending ending : {Ending::WindowBehind, Ending::Hidden}) {
        SCOPED_TRACE(ending == Ending::Hidden ? "hidden" : "window behind");
        installEffectsAccessibility();
        TeskEffectsSettings settings;
        Recorder delegate;
        EditorsWindow editors;
        QWidget& window = editors.window;
        auto* eq = editors.eq;
        auto* vocal = editors.vocal;
        auto* pan = editors.pan;
        ASSERT_TRUE(eq->bind("bands", &settings, "equalizerSettings.bands"));
        ASSERT_TRUE(
            vocal->bind("lowFrequency", &settings, "vocalReductionEffectSettings.lowFrequency"));
        ASSERT_TRUE(
            vocal->bind("highFrequency", &settings, "vocalReductionEffectSettings.highFrequency"));
        ASSERT_TRUE(pan->bind("value", &settings, "panAmount"));
        eq->setDelegate(&delegate);
        vocal->setDelegate(&delegate);
        window.show();
        window.activateWindow();
        ASSERT_TRUE(QTest::qWaitForWindowActive(&window));
        const auto pressAndLoseTheRelease = [&](QWidget& view, const QPointF& at) {
            send(view, QEvent::MouseButtonPress, at);
            if (ending == Ending::Hidden) {
                view.hide();
                view.show();
            } else {
                QEvent behind(QEvent::WindowDeactivate); // the window hands it to its views
                QCoreApplication::sendEvent(&window, &behind);
            }
        };

        const EQBandGeometry places = eq->geometry();
        pressAndLoseTheRelease(*eq, {places.pointForBandIndex(5), places.pointForValue(0)});
        EXPECT_FALSE(eq->isDragging());
        EXPECT_EQ(eq->pressedIndex(), TeskEQSettingsView::kNoBand) << "the knob is drawn held";
        eq->setFocus(Qt::TabFocusReason);
        QTest::keyClick(eq, Qt::Key_Up);
        EXPECT_EQ(settings.equalizerSettings()->bands().value(0), 1.0);

        const double low = settings.vocalReductionEffectSettings()->lowFrequency();
        pressAndLoseTheRelease(*vocal, vocal->lowFrequencyHitRect().center());
        EXPECT_FALSE(vocal->isDragging());
        vocal->setFocus(Qt::TabFocusReason);
        QTest::keyClick(vocal, Qt::Key_Right);
        EXPECT_GT(settings.vocalReductionEffectSettings()->lowFrequency(), low);
        EXPECT_EQ(delegate.began, delegate.ended) << "an edit left open";

        const QImage idle = grabImage(*pan);
        pressAndLoseTheRelease(*pan, pan->knobRect().center());
        EXPECT_FALSE(pan->isPressed());
        EXPECT_EQ(grabImage(*pan), idle) << "the knob is drawn pressed";
    }
}

TEST(TeskPanningSpectrumEffectView, EachSideIsDrawnAtTheHeightThePanLeavesIt) {
    // A flat spectrum at 25 dB: 20 points from the top of a view 105 high; the floor is -60.
    const struct {
        double pan, leftLevel, rightLevel; // NAN: flat on the floor, out of sight
    } cases[] = {{0.75, -17.5, 25}, {0.0, 25, NAN}, {0.5, 25, 25}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.pan);
        TeskEffectsSettings settings;
        settings.setPanAmount(c.pan);
        TeskPanningSpectrumEffectView view;
        view.resize(300, 105);
        view.bind("panFraction", &settings, "panAmount");
        const QImage background = grabImage(view);
        feedFlatSpectrum(view, 25.0f);
        EXPECT_EQ(grabImage(view), background) << "switched off: background and border only";
        view.setEffectEnabled(true);
        const QImage picture = grabImage(view);
        const double x = view.frequencyMapping().pointForValue(1414.0);
        const double leftY = view.magnitudeMapping().pointForValue(c.leftLevel);
        if (c.leftLevel == c.rightLevel) {
            EXPECT_GT(lift(picture, background, x, leftY), 8);
            continue;
        }
        EXPECT_LT(blueOverGreen(picture, background, x, leftY), 1.7) << "the left colour";
        if (std::isnan(c.rightLevel)) {
            for (double y = 4; y < 101; y += 1) {
                if (std::fabs(y - leftY) > 2) {
                    ASSERT_LE(lift(picture, background, x, y), 2) << "nothing else at " << y;
                }
            }
        } else {
            const double rightY = view.magnitudeMapping().pointForValue(c.rightLevel);
            EXPECT_GT(blueOverGreen(picture, background, x, rightY), 1.7) << "the right colour";
        }
    }
}

TEST(EffectsAccessibility, HandlesHaveNamesAndValuesAndCanBeSet) {
    installEffectsAccessibility();
    TeskEffectsSettings settings;
    EditorsWindow editors;
    auto* eq = editors.eq;
    auto* vocal = editors.vocal;
    auto* pan = editors.pan;
    QWidget& window = editors.window;
    window.show();
    QList<double> bands(10, 0.0);
    bands[2] = 3.0;
    settings.equalizerSettings()->setBands(bands);
    eq->bind("bands", &settings, "equalizerSettings.bands");
    vocal->bind("lowFrequency", &settings, "vocalReductionEffectSettings.lowFrequency");
    vocal->bind("highFrequency", &settings, "vocalReductionEffectSettings.highFrequency");
    pan->bind("value", &settings, "panAmount");

    QAccessibleInterface* equalizer = QAccessible::queryAccessibleInterface(eq);
    ASSERT_NE(equalizer, nullptr);
    ASSERT_EQ(equalizer->childCount(), 10);
    QAccessibleInterface* band = equalizer->child(2);
    EXPECT_EQ(band->text(QAccessible::Name), "125 Hz");
    EXPECT_EQ(band->text(QAccessible::Value), "+3 dB");
    EXPECT_EQ(equalizer->child(9)->text(QAccessible::Name), "16 kHz");
    band->valueInterface()->setCurrentValue(-4.5);
    EXPECT_EQ(settings.equalizerSettings()->bands()[2], -4.5);
    EXPECT_EQ(band->text(QAccessible::Value), "-4.5 dB");

    QAccessibleInterface* edges = QAccessible::queryAccessibleInterface(vocal);
    ASSERT_EQ(edges->childCount(), 2);
    EXPECT_EQ(edges->child(0)->text(QAccessible::Name), "Vocal band low edge");
    EXPECT_EQ(edges->child(0)->text(QAccessible::Value), "120 Hz");
    EXPECT_EQ(edges->child(1)->text(QAccessible::Value), "2800 Hz");
    Recorder delegate; // which switches the effect on, for a drag or a screen reader alike
    vocal->setDelegate(&delegate);
    edges->child(0)->valueInterface()->setCurrentValue(200.0);
    EXPECT_NEAR(settings.vocalReductionEffectSettings()->lowFrequency(), 200.0, 1e-3);
    EXPECT_EQ(delegate.began, 1);
    EXPECT_EQ(delegate.ended, 1);

    QAccessibleInterface* panSlider = QAccessible::queryAccessibleInterface(pan);
    EXPECT_EQ(panSlider->text(QAccessible::Name), "Pan");
    EXPECT_EQ(panSlider->text(QAccessible::Value), "Centre");
    panSlider->valueInterface()->setCurrentValue(0.25);
    EXPECT_EQ(settings.panAmount(), 0.25);
    EXPECT_EQ(panSlider->text(QAccessible::Value), "50% left");

    // Reached with Tab, the keys move it too.
    QTest::keyClick(pan, Qt::Key_Right);
    EXPECT_DOUBLE_EQ(settings.panAmount(), 0.3);
    QTest::keyClick(pan, Qt::Key_Home);
    EXPECT_EQ(settings.panAmount(), 0.0);
    // The focus shows as a blue rim on the knob, only while the slider has it.
    const auto beside = [&] {
        const QRectF knob = pan->knobRect();
        return test::pixelAt(test::grabImage(*pan), knob.left() + 1.5, knob.center().y());
    };
    const QColor unfocused = beside();
    window.activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&window));
    pan->setFocus(Qt::TabFocusReason);
    ASSERT_TRUE(pan->hasFocus());
    const QColor focused = beside();
    EXPECT_GT(focused.blue(), focused.red() + 80) << focused.name().toStdString();
    EXPECT_LT(unfocused.blue(), unfocused.red() + 80) << unfocused.name().toStdString();

    // Qt hands a screen reader the value only as a number: the words are each part's
    // description as well, however the value was set.
    settings.setPanAmount(0.9);
    bands[2] = -7.25;
    settings.equalizerSettings()->setBands(bands);
    settings.vocalReductionEffectSettings()->setLowFrequency(300.0);
    ASSERT_TRUE(QTest::qWaitFor(
        [&] { return eq->valueForBand(2) == -7.25 && vocal->lowFrequency() == 300.0; }, 5000))
        << "the glides end";
    const std::pair<QAccessibleInterface*, const char*> spoken[] = {{panSlider, "80% right"},
                                                                    {band, "-7.3 dB"},
                                                                    {equalizer->child(0), "0 dB"},
                                                                    {edges->child(0), "300 Hz"},
                                                                    {edges->child(1), "2800 Hz"}};
    for (const auto& [part, heard] : spoken) {
        EXPECT_EQ(part->text(QAccessible::Value), heard);
        EXPECT_EQ(part->text(QAccessible::Description), heard);
    }
    // A gain beyond the editor's range, from a practice a script wrote, lies inside the range
    // a screen reader is told.
    for (const double gain : {-30.0, 22.0, -7.0}) {
        band->valueInterface()->setCurrentValue(gain);
        const double value = band->valueInterface()->currentValue().toDouble();
        EXPECT_EQ(value, gain);
        EXPECT_LE(band->valueInterface()->minimumValue().toDouble(), value);
        EXPECT_GE(band->valueInterface()->maximumValue().toDouble(), value);
        EXPECT_LE(band->valueInterface()->minimumValue().toDouble(), -20.0);
        EXPECT_GE(band->valueInterface()->maximumValue().toDouble(), 20.0);
    }
}
