#include "widgets/KLTexturedSlider.h"

#include "support/ViewTesting.h"

#include <QAccessible>
#include <QAccessibleValueInterface>
#include <QSignalSpy>
#include <QTest>
#include <QWheelEvent>
#include <gtest/gtest.h>

using namespace tesk;
using namespace tesk::test;

namespace {
struct Shown {
    explicit Shown(int indicator, int width = 160) {
        slider.setIndicatorIndex(indicator);
        slider.resize(width, 22);
        slider.show();
    }
    KLTexturedSlider slider;
};

void click(QWidget& widget, QPointF at) {
    QTest::mousePress(&widget, Qt::LeftButton, {}, at.toPoint());
    QTest::mouseRelease(&widget, Qt::LeftButton, {}, at.toPoint());
}
} // namespace

TEST(KLTexturedSlider, ValuesAndPlacesMapBothWaysInsideTheEndPictures) {
    struct Case {
        int indicator;
        double minValue, maxValue;
    };
    for (const Case c : {Case{KLTexturedSlider::NoIndicator, 0.0, 1.0},
                         Case{KLTexturedSlider::VolumeIndicator, 0.0, 1.0},
                         Case{KLTexturedSlider::ZoomIndicator, -2.0, 6.0}}) {
        SCOPED_TRACE(c.indicator);
        Shown shown(c.indicator);
        KLTexturedSlider& slider = shown.slider;
        slider.setRange(c.minValue, c.maxValue);
        const bool ends = c.indicator != KLTexturedSlider::NoIndicator;
        EXPECT_EQ(slider.minimumEndRect().isEmpty(), !ends);
        // The knob never runs over an end picture.
        const qreal half = KLTexturedSlider::kKnobDiameter / 2.0;
        if (ends) {
            EXPECT_GT(slider.knobTravelStart() - half, slider.minimumEndRect().right());
            EXPECT_LT(slider.knobTravelEnd() + half, slider.maximumEndRect().left());
        }
        EXPECT_DOUBLE_EQ(slider.xForValue(c.minValue), slider.knobTravelStart());
        EXPECT_DOUBLE_EQ(slider.xForValue(c.maxValue), slider.knobTravelEnd());
        for (double fraction : {0.0, 0.1, 0.5, 0.93, 1.0}) {
            const double value = c.minValue + fraction * (c.maxValue - c.minValue);
            EXPECT_NEAR(slider.valueForX(slider.xForValue(value)), value, 1e-9) << fraction;
        }
        EXPECT_DOUBLE_EQ(slider.valueForX(-50.0), c.minValue);
        EXPECT_DOUBLE_EQ(slider.valueForX(5000.0), c.maxValue);
        slider.setValue(c.maxValue + 10.0);
        EXPECT_DOUBLE_EQ(slider.value(), c.maxValue);
    }
}

TEST(KLTexturedSlider, OnlyTheUsersChangesAreSentAndTheEndsStepTowardsThemselves) {
    Shown shown(KLTexturedSlider::ZoomIndicator);
    KLTexturedSlider& slider = shown.slider;
    slider.setStep(0.05);
    QSignalSpy changes(&slider, &KLTexturedSlider::valueChanged);
    QSignalSpy ins(&slider, &KLTexturedSlider::steppedTowardsMaximum);
    QSignalSpy outs(&slider, &KLTexturedSlider::steppedTowardsMinimum);

    slider.setValue(0.5);
    EXPECT_EQ(changes.count(), 0);

    struct Gesture {
        const char* what;
        std::function<void()> act;
        double expected;
    };
    const Gesture gestures[] = {
        {"press on the groove",
         [&] {
             click(slider, {slider.xForValue(0.25), 11.0});
         },
         0.25},
        {"the zoom-in end", [&] { click(slider, slider.maximumEndRect().center()); }, 0.30},
        {"the zoom-out end", [&] { click(slider, slider.minimumEndRect().center()); }, 0.25},
        {"a drag past the end",
         [&] {
             QTest::mousePress(&slider, Qt::LeftButton, {}, QPoint(int(slider.xForValue(0.6)), 11));
             QTest::mouseMove(&slider, QPoint(slider.width() + 40, 11));
             QTest::mouseRelease(&slider, Qt::LeftButton, {}, QPoint(slider.width() + 40, 11));
         },
         1.0},
        {"the zoom-in end at the top", [&] { click(slider, slider.maximumEndRect().center()); },
         1.0},
    };
    // Mouse positions are whole pixels: a press lands within one pixel's worth of value.
    const double onePixel = 1.0 / (slider.knobTravelEnd() - slider.knobTravelStart());
    for (const Gesture& gesture : gestures) {
        SCOPED_TRACE(gesture.what);
        gesture.act();
        EXPECT_NEAR(slider.value(), gesture.expected, onePixel);
        ASSERT_FALSE(changes.isEmpty());
        EXPECT_NEAR(changes.last().first().toDouble(), slider.value(), 1e-9);
    }
    EXPECT_EQ(ins.count(), 2);
    EXPECT_EQ(outs.count(), 1);
    const qsizetype sent = changes.count();
    click(slider, slider.maximumEndRect().center()); // already at the top: nothing to send
    EXPECT_EQ(changes.count(), sent);

    // The wheel steps it, a notch at a time, in the eighths of one a touchpad sends too.
    for (int i = 0; i < 8; ++i) {
        const QPointF at = slider.rect().center();
        QWheelEvent wheel(at, slider.mapToGlobal(at), QPoint(), QPoint(0, -15), Qt::NoButton,
                          Qt::NoModifier, Qt::NoScrollPhase, false);
        QCoreApplication::sendEvent(&slider, &wheel);
    }
    EXPECT_NEAR(slider.value(), 0.95, 1e-9);
    EXPECT_EQ(outs.count(), 2);

    // Reached with Tab, the keys step it as its ends do; with Ctrl they are not its.
    const struct {
        Qt::Key key;
        Qt::KeyboardModifiers modifiers;
        double expected;
        int stepsIn, stepsOut;
    } keys[] = {
        {Qt::Key_Left, Qt::NoModifier, 0.90, 3, 3},
        {Qt::Key_Up, Qt::NoModifier, 0.95, 4, 3},
        {Qt::Key_Home, Qt::NoModifier, 0.0, 4, 3},
        {Qt::Key_End, Qt::NoModifier, 1.0, 4, 3},
        {Qt::Key_Down, Qt::NoModifier, 0.95, 4, 4},
        {Qt::Key_Right, Qt::ControlModifier, 0.95, 4, 4}, // the window's
    };
    for (const auto& k : keys) {
        QTest::keyClick(&slider, k.key, k.modifiers);
        EXPECT_NEAR(slider.value(), k.expected, 1e-9) << k.key;
        EXPECT_EQ(ins.count(), k.stepsIn) << k.key;
        EXPECT_EQ(outs.count(), k.stepsOut) << k.key;
    }
}

TEST(KLTexturedSlider, ADragWhoseReleaseNeverComesEndsWhereItIs) {
    // A dialog that opens mid-drag takes the release with it (the window goes behind); a hidden
    // slider hears none either. The end pressed next steps, and a move with it held drags nothing.
    Shown shown(KLTexturedSlider::ZoomIndicator);
    KLTexturedSlider& slider = shown.slider;
    slider.setStep(0.05);
    const double onePixel = 1.0 / (slider.knobTravelEnd() - slider.knobTravelStart());
    for (const QEvent::Type ending : {QEvent::WindowDeactivate, QEvent::Hide}) {
        SCOPED_TRACE(ending);
        slider.setValue(0.5);
        QTest::mousePress(&slider, Qt::LeftButton, {}, QPoint(int(slider.xForValue(0.4)), 11));
        if (ending == QEvent::Hide) {
            slider.hide();
            slider.show();
        } else {
            QEvent behind(ending);
            QCoreApplication::sendEvent(&slider, &behind);
        }
        QTest::mousePress(&slider, Qt::LeftButton, {}, slider.minimumEndRect().center().toPoint());
        QTest::mouseMove(&slider, QPoint(int(slider.xForValue(0.8)), 11));
        QTest::mouseRelease(&slider, Qt::LeftButton, {}, QPoint(int(slider.xForValue(0.8)), 11));
        EXPECT_NEAR(slider.value(), 0.35, onePixel);
    }
}

TEST(KLTexturedSlider, TheKnobSitsWhereItsValueSaysWithTheFilledGrooveLeftOfIt) {
    Shown shown(KLTexturedSlider::VolumeIndicator, 200);
    KLTexturedSlider& slider = shown.slider;
    for (double value : {0.2, 0.75}) {
        SCOPED_TRACE(value);
        slider.setValue(value);
        const QImage picture = grabImage(slider);
        const QPointF knob = slider.knobCentre();
        const QColor cap = pixelAt(picture, knob.x(), knob.y() - 3.0);
        EXPECT_GT(cap.lightness(), 200) << "knob";
        const QColor filled = pixelAt(picture, slider.knobTravelStart() - 4.0, knob.y());
        EXPECT_GT(filled.blue(), filled.red() + 40) << "blue left of the knob";
        const QColor empty = pixelAt(picture, slider.knobTravelEnd() + 4.0, knob.y());
        EXPECT_LT(std::abs(empty.blue() - empty.red()), 20) << "grey right of the knob";
        EXPECT_LT(empty.lightness(), 160);
    }
}

TEST(KLTexturedSlider, TheEndPicturesStandOutOnALightOrADarkDesktop) {
    for (const auto& [window, text] : {std::pair{QColor(239, 239, 239), QColor(Qt::black)},
                                       std::pair{QColor(42, 42, 46), QColor(238, 238, 238)}}) {
        SCOPED_TRACE(window.name().toStdString());
        Shown shown(KLTexturedSlider::VolumeIndicator);
        QPalette palette = shown.slider.palette();
        palette.setColor(QPalette::Window, window);
        palette.setColor(QPalette::WindowText, text);
        shown.slider.setPalette(palette);
        shown.slider.setAutoFillBackground(true);
        const QImage picture = grabImage(shown.slider);
        // The speaker's body, in the quiet end's picture.
        const QPointF body = shown.slider.minimumEndRect().topLeft() + QPointF(6.0, 8.0);
        const QColor speaker = pixelAt(picture, body.x(), body.y());
        EXPECT_GT(std::abs(speaker.lightness() - window.lightness()), 80)
            << speaker.name().toStdString();
    }
}

TEST(KLTexturedSlider, ScreenReadersReadAndSetTheValue) {
    Shown shown(KLTexturedSlider::VolumeIndicator);
    KLTexturedSlider& slider = shown.slider;
    slider.setAccessibleName("Volume");
    slider.setValue(0.4);
    QAccessibleInterface* accessible = QAccessible::queryAccessibleInterface(&slider);
    ASSERT_NE(accessible, nullptr);
    EXPECT_EQ(accessible->role(), QAccessible::Slider);
    EXPECT_EQ(accessible->text(QAccessible::Name), "Volume");
    QAccessibleValueInterface* value = accessible->valueInterface();
    ASSERT_NE(value, nullptr);
    EXPECT_DOUBLE_EQ(value->currentValue().toDouble(), 0.4);
    EXPECT_DOUBLE_EQ(value->maximumValue().toDouble(), 1.0);
    QSignalSpy changes(&slider, &KLTexturedSlider::valueChanged);
    value->setCurrentValue(0.8);
    EXPECT_DOUBLE_EQ(slider.value(), 0.8);
    ASSERT_EQ(changes.count(), 1);
    // Its increment is the slider's step, or a twentieth of the range on a slider without one.
    for (const double step : {0.25, 0.0}) {
        slider.setStep(step);
        EXPECT_DOUBLE_EQ(value->minimumStepSize().toDouble(), step > 0.0 ? step : 0.05);
    } // Qt hands a screen reader the value only as a number: the words, how far along the range
    // it is, are the description, for a range that changes too.
    EXPECT_EQ(accessible->text(QAccessible::Description), "80 %");
    slider.setRange(0.0, 2.0);
    EXPECT_EQ(accessible->text(QAccessible::Description), "40 %");
}
