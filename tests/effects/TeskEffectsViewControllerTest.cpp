// The effects panel as a whole: the preset menus following the settings, the effects switched
// on by every kind of edit, the switches, and the live spectrum reaching the three editors.
#include "effects/TeskEffectsViewController.h"

#include "audio/TeskEqualizerSettings.h"
#include "audio/TeskVocalReductionEffectSettings.h"
#include "effects/TeskEQSettingsView.h"
#include "effects/TeskPanSlider.h"
#include "effects/TeskPanningSpectrumEffectView.h"
#include "effects/TeskVocalRemovalSettingsView.h"
#include "observation/KeyValueObserving.h"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QTest>
#include <gtest/gtest.h>

using namespace tesk;

namespace {

void send(QWidget& view, QEvent::Type type, const QPointF& at) {
    const Qt::MouseButtons held =
        type == QEvent::MouseButtonRelease ? Qt::NoButton : Qt::LeftButton;
    QMouseEvent event(type, at, view.mapToGlobal(at), Qt::LeftButton, held, Qt::NoModifier);
    QCoreApplication::sendEvent(&view, &event);
}

/// A panel on a fresh document's settings, laid out at the window's size.
struct Panel {
    TeskEffectsSettings settings;
    TeskEffectsViewController controller;
    Panel() {
        controller.resize(1100, 170);
        controller.setRepresentedObject(&settings);
        controller.show();
        QCoreApplication::processEvents();
    }
    int equalizerItem() const { return controller.equalizerPresetsPopUp()->currentIndex(); }
    int vocalItem() const { return controller.vocalReductionPresetsPopUp()->currentIndex(); }
    QList<double> bands() const { return settings.equalizerSettings()->bands(); }
    /// Drags band `band` of the equalizer editor to `gain`.
    void dragBand(int band, double gain) {
        TeskEQSettingsView& view = *controller.eqSettingsView();
        const EQBandGeometry places = view.geometry();
        const double x = places.pointForBandIndex(band);
        const double y = view.height() - 10 - (gain + 20) / 40 * (view.height() - 20);
        send(view, QEvent::MouseButtonPress, {x, places.pointForValue(0)});
        send(view, QEvent::MouseMove, {x, y});
        send(view, QEvent::MouseButtonRelease, {x, y});
    }
};

} // namespace

TEST(TeskEffectsViewController, MenusListManualASeparatorAndThePresets) {
    Panel panel;
    const struct {
        QComboBox* menu;
        QStringList titles;
    } menus[] = {
        {panel.controller.equalizerPresetsPopUp(),
         {"Manual", "", "Flat", "Isolate Bass", "Isolate Mids"}},
        {panel.controller.vocalReductionPresetsPopUp(),
         {"Manual", "", "Male Vocals", "Female Vocals"}},
    };
    for (const auto& m : menus) {
        ASSERT_EQ(m.menu->count(), m.titles.size());
        for (int i = 0; i < m.menu->count(); ++i)
            EXPECT_EQ(m.menu->itemText(i), m.titles[i]);
        EXPECT_EQ(m.menu->itemData(1, Qt::AccessibleDescriptionRole).toString(), "separator");
    }
    EXPECT_EQ(panel.equalizerItem(), 2) << "a new song's equalizer is flat";
    EXPECT_EQ(panel.vocalItem(), 2) << "and its vocal band the male one";
}

TEST(TeskEffectsViewController, PresetChoicesAndEditsKeepTheMenusInStep) {
    Panel panel;
    const auto flat = TeskEqualizerSettings::flatPreset()->bands();
    const auto bass = TeskEqualizerSettings::isolateBassPreset()->bands();

    // "Flat", then "Manual" before any edit: the flat values stay (remembered as manual).
    panel.controller.equalizerPresetChanged(2);
    panel.controller.equalizerPresetChanged(0);
    EXPECT_EQ(panel.bands(), flat);
    ASSERT_NE(panel.controller.manualEqualizerSettings(), nullptr);
    EXPECT_EQ(panel.controller.manualEqualizerSettings()->bands(), flat);

    // A drag after "Isolate Bass": "Manual" at once, with the dragged values kept for later.
    panel.controller.equalizerPresetChanged(3);
    EXPECT_EQ(panel.equalizerItem(), 3);
    EXPECT_EQ(panel.bands(), bass);
    panel.controller.eqSettingsView()->presetAnimation().advanceTo(1.0);
    panel.dragBand(0, 6.0);
    EXPECT_EQ(panel.equalizerItem(), 0);
    EXPECT_NEAR(panel.bands()[0], 6.0, 0.5);
    const QList<double> edited = panel.bands();
    panel.controller.equalizerPresetChanged(4);
    EXPECT_EQ(panel.equalizerItem(), 4);
    panel.controller.equalizerPresetChanged(0);
    EXPECT_EQ(panel.bands(), edited);
    EXPECT_EQ(panel.equalizerItem(), 0);

    // Values equal to a preset select it, whoever set them.
    panel.settings.equalizerSettings()->setBands(bass);
    EXPECT_EQ(panel.equalizerItem(), 3);

    // The vocal band: a preset, a drag of an edge, "Manual" bringing the drag back.
    panel.controller.vocalReductionPresetChanged(3);
    EXPECT_EQ(panel.vocalItem(), 3);
    TeskVocalRemovalSettingsView& vocal = *panel.controller.vocalRemovalSettingsView();
    vocal.bandAnimation().advanceTo(1.0);
    const QPointF low = vocal.lowFrequencyRect().center();
    send(vocal, QEvent::MouseButtonPress, low);
    send(vocal, QEvent::MouseMove, low - QPointF(20, 0));
    send(vocal, QEvent::MouseButtonRelease, low - QPointF(20, 0));
    EXPECT_EQ(panel.vocalItem(), 0);
    const double dragged = panel.settings.vocalReductionEffectSettings()->lowFrequency();
    EXPECT_LT(dragged, 350.0);
    panel.controller.vocalReductionPresetChanged(2);
    EXPECT_EQ(panel.settings.vocalReductionEffectSettings()->lowFrequency(), 120.0);
    panel.controller.vocalReductionPresetChanged(0);
    EXPECT_EQ(panel.settings.vocalReductionEffectSettings()->lowFrequency(), dragged);
}

TEST(TeskEffectsViewController, EveryKindOfEditSwitchesItsEffectOnFirst) {
    const struct {
        const char* what;
        std::function<void(Panel&)> edit;
        std::function<bool(const TeskEffectsSettings&)> on;
    } edits[] = {
        {"re-choosing the selected equalizer preset",
         [](Panel& p) { p.controller.equalizerPresetChanged(p.equalizerItem()); },
         [](const TeskEffectsSettings& s) { return s.isEqualizerEnabled(); }},
        {"choosing Manual", [](Panel& p) { p.controller.equalizerPresetChanged(0); },
         [](const TeskEffectsSettings& s) { return s.isEqualizerEnabled(); }},
        {"re-choosing the selected vocal preset",
         [](Panel& p) { p.controller.vocalReductionPresetChanged(2); },
         [](const TeskEffectsSettings& s) { return s.isVocalReductionEnabled(); }},
        {"a click between the equalizer's slots",
         [](Panel& p) {
             TeskEQSettingsView& view = *p.controller.eqSettingsView();
             send(view, QEvent::MouseButtonPress, {2, 40});
             send(view, QEvent::MouseButtonRelease, {2, 40});
         },
         [](const TeskEffectsSettings& s) { return s.isEqualizerEnabled(); }},
        {"a press on the vocal band's empty ground",
         [](Panel& p) {
             TeskVocalRemovalSettingsView& view = *p.controller.vocalRemovalSettingsView();
             send(view, QEvent::MouseButtonPress, {view.width() - 4.0, 40});
             send(view, QEvent::MouseButtonRelease, {view.width() - 4.0, 40});
         },
         [](const TeskEffectsSettings& s) { return s.isVocalReductionEnabled(); }},
        {"the L button",
         [](Panel& p) {
             QTest::mouseClick(p.controller.panSlider()->leftButton(), Qt::LeftButton);
         },
         [](const TeskEffectsSettings& s) { return s.isPanningEnabled() && s.panAmount() == 0.0; }},
    };
    for (const auto& e : edits) {
        SCOPED_TRACE(e.what);
        Panel panel;
        EXPECT_FALSE(e.on(panel.settings));
        e.edit(panel);
        EXPECT_TRUE(e.on(panel.settings));
    }

    // The equalizer is on before the drag's first value arrives.
    Panel panel;
    std::vector<bool> onAtEachChange;
    QObject::connect(panel.settings.equalizerSettings(), &TeskEqualizerSettings::bandsChanged,
                     [&] { onAtEachChange.push_back(panel.settings.isEqualizerEnabled()); });
    panel.dragBand(4, 5.0);
    ASSERT_FALSE(onAtEachChange.empty());
    EXPECT_EQ(onAtEachChange, std::vector<bool>(onAtEachChange.size(), true));
}

TEST(TeskEffectsViewController, SwitchesBindingsAndSpectraFollowTheSettings) {
    Panel panel;
    TeskEffectsViewController& c = panel.controller;
    const struct {
        QCheckBox* box;
        std::function<bool()> value;
        std::function<void(bool)> set;
    } switches[] = {
        {c.equalizerSwitch(), [&] { return panel.settings.isEqualizerEnabled(); },
         [&](bool on) { panel.settings.setEqualizerEnabled(on); }},
        {c.vocalReductionSwitch(), [&] { return panel.settings.isVocalReductionEnabled(); },
         [&](bool on) { panel.settings.setVocalReductionEnabled(on); }},
        {c.panningSwitch(), [&] { return panel.settings.isPanningEnabled(); },
         [&](bool on) { panel.settings.setPanningEnabled(on); }},
        {c.outOfPhaseSwitch(), [&] { return panel.settings.isOutOfPhase(); },
         [&](bool on) { panel.settings.setOutOfPhase(on); }},
    };
    for (const auto& s : switches) {
        SCOPED_TRACE(s.box->text().toStdString());
        EXPECT_FALSE(s.box->isChecked());
        s.box->click();
        EXPECT_TRUE(s.value());
        s.set(false);
        EXPECT_FALSE(s.box->isChecked());
    }
    // Out of phase, clicked last, switched on the pan mix it works in.
    EXPECT_TRUE(panel.settings.isPanningEnabled());
    panel.settings.setEqualizerEnabled(true);
    EXPECT_TRUE(c.eqSettingsView()->isEffectEnabled());
    panel.settings.setPanAmount(0.8);
    EXPECT_EQ(c.panSlider()->value(), 0.8);
    EXPECT_EQ(c.panSpectrumView()->panFraction(), 0.8);

    c.setFrequencyTable({0, 20, 200});
    c.setFrequencyResponse({1, 2, 3}, 0);
    c.setFrequencyResponse({3, 4, 5}, 1);
    for (TeskSpectrumEffectView* view : std::initializer_list<TeskSpectrumEffectView*>{
             c.eqSettingsView(), c.vocalRemovalSettingsView(), c.panSpectrumView()}) {
        EXPECT_EQ(view->frequencyTable(), (std::vector<float>{0, 20, 200}));
        EXPECT_EQ(view->spectrum(), (std::vector<float>{2, 3, 4}));
    }
    // A new spectrum repaints the editors whose effect is on (the equalizer and the pan), and
    // leaves the switched-off one (the vocal band) alone.
    struct PaintCount : QObject {
        int paints = 0;
        bool eventFilter(QObject*, QEvent* event) override {
            paints += event->type() == QEvent::Paint;
            return false;
        }
    } equalizerPaints, vocalPaints, panPaints;
    QCoreApplication::processEvents(); // what the switches asked for is painted
    c.eqSettingsView()->installEventFilter(&equalizerPaints);
    c.vocalRemovalSettingsView()->installEventFilter(&vocalPaints);
    c.panSpectrumView()->installEventFilter(&panPaints);
    c.refreshFrequencyDisplays();
    EXPECT_TRUE(QTest::qWaitFor([&] { return equalizerPaints.paints > 0; }, 2000));
    QCoreApplication::processEvents();
    EXPECT_GT(panPaints.paints, 0);
    EXPECT_EQ(vocalPaints.paints, 0);

    // Another document's settings replace these entirely, and nothing observes the old ones.
    TeskEffectsSettings other;
    other.setEqualizerSettings(TeskEqualizerSettings::isolateMidsPreset().get());
    c.setRepresentedObject(&other);
    EXPECT_EQ(observationCount(&panel.settings), 0);
    EXPECT_EQ(panel.equalizerItem(), 4);
    EXPECT_FALSE(c.eqSettingsView()->isEffectEnabled());
    c.setRepresentedObject(nullptr);
    EXPECT_EQ(observationCount(&other), 0);
    EXPECT_FALSE(c.isEnabled());
}

TEST(TeskEffectsViewController, TabGoesThroughEachEffectsSwitchPresetsAndEditorInTurn) {
    Panel panel;
    TeskEffectsViewController& c = panel.controller;
    c.activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&c));
    // The vocal band's editor twice: its low edge, then its high one.
    const QList<QWidget*> order{c.equalizerSwitch(),
                                c.equalizerPresetsPopUp(),
                                c.eqSettingsView(),
                                c.vocalReductionSwitch(),
                                c.vocalReductionPresetsPopUp(),
                                c.vocalRemovalSettingsView(),
                                c.vocalRemovalSettingsView(),
                                c.panningSwitch(),
                                c.outOfPhaseSwitch(),
                                c.panSlider()};
    order.first()->setFocus(Qt::TabFocusReason);
    QList<QWidget*> reached{QApplication::focusWidget()};
    for (qsizetype i = 1; i < order.size(); ++i) {
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
        reached.append(QApplication::focusWidget());
    }
    EXPECT_EQ(reached, order);
}
