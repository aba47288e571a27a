#include "controls/CalloutWindow.h"
#include "controls/GlowText.h"
#include "controls/HUDPitchControlView.h"
#include "controls/HUDSpeedControlView.h"
#include "controls/HUDSwitchControlView.h"
#include "controls/HUDTimeDisplayView.h"
#include "controls/SThreePartImage.h"
#include "support/Assertions.h"
#include "widgets/NamedImage.h"

#include <QPainter>

#include "support/ViewTesting.h"

#include <QAccessible>
#include <QAccessibleValueInterface>
#include <QApplication>
#include <QSignalSpy>
#include <QTest>
#include <QWheelEvent>
#include <gtest/gtest.h>

using namespace tesk;

namespace {
/// A model with the properties the controls bind to.
class Transport : public QObject {
    Q_OBJECT
    Q_PROPERTY(double playbackSpeed MEMBER playbackSpeed NOTIFY changed)
    Q_PROPERTY(double pitchAdjustment MEMBER pitchAdjustment NOTIFY changed)
public:
    double playbackSpeed = 1.0;
    double pitchAdjustment = 0.0;
signals:
    void changed();
};

QPoint at(const QPointF& point) {
    return point.toPoint();
}

/// Whether something is drawn at (x, y) of `picture`: its colour differs from the background
/// at the top left corner, where nothing is.
bool drawnAt(const QImage& picture, double x, double y) {
    return !test::coloursClose(test::pixelAt(picture, x, y), picture.pixelColor(0, 0), 24);
}

/// The controls are light on the transport panel's dark background; so in these tests too.
void onDarkPanel(QWidget& view) {
    QPalette palette = view.palette();
    palette.setColor(QPalette::Window, QColor(18, 22, 28));
    view.setPalette(palette);
    view.setAutoFillBackground(true);
    view.resize(view.sizeHint());
    view.show();
}

/// Turns the wheel by `notches`, in as many events of `perEvent` notches (a touchpad sends
/// fractions of one).
void turnWheel(QWidget& view, const QPointF& at, double notches, Qt::KeyboardModifiers modifiers,
               double perEvent = 0.0) {
    const double step = perEvent > 0.0 ? std::copysign(perEvent, notches) : notches;
    for (double turned = 0.0; std::abs(turned) < std::abs(notches) - 1e-9; turned += step) {
        QWheelEvent wheel(at, view.mapToGlobal(at), QPoint(), QPoint(0, int(step * 120)),
                          Qt::NoButton, modifiers, Qt::NoScrollPhase, false);
        QCoreApplication::sendEvent(&view, &wheel);
    }
}
} // namespace

TEST(HUDSpeedControlView, MarksDragsEscapeAndTheWheelSetTheBoundSpeed) {
    Transport model;
    HUDSwitchControlView switchView;
    HUDSpeedControlView view;
    view.resize(view.sizeHint());
    view.show();
    ASSERT_TRUE(view.bind("playbackSpeed", &model, "playbackSpeed"));
    ASSERT_TRUE(view.bind("dirty", &switchView, "speedDirty"));
    EXPECT_FALSE(switchView.speedDirty());

    // A click on a mark acts on release.
    QTest::mouseClick(&view, Qt::LeftButton, {}, at(view.markRect(1).center()));
    EXPECT_EQ(model.playbackSpeed, 0.5);
    EXPECT_TRUE(switchView.speedDirty());

    // A drag snaps within four points of a mark unless Shift is held; Escape restores.
    const auto centres = view.markCentres();
    QTest::mousePress(&view, Qt::LeftButton, {}, at(view.knobRect().center()));
    QMouseEvent move(QEvent::MouseMove, QPointF(centres[3] + 3, view.knobRect().center().y()),
                     view.mapToGlobal(QPointF(centres[3] + 3, 0)), Qt::NoButton, Qt::LeftButton,
                     Qt::NoModifier);
    QCoreApplication::sendEvent(&view, &move);
    EXPECT_EQ(model.playbackSpeed, 1.0);
    QMouseEvent shifted(QEvent::MouseMove, QPointF(centres[3] + 3, view.knobRect().center().y()),
                        view.mapToGlobal(QPointF(centres[3] + 3, 0)), Qt::NoButton, Qt::LeftButton,
                        Qt::ShiftModifier);
    QCoreApplication::sendEvent(&view, &shifted);
    EXPECT_GT(model.playbackSpeed, 1.0);
    EXPECT_TRUE(view.callout()->isVisible());
    EXPECT_EQ(view.callout()->text(),
              QStringLiteral("%1%").arg(std::lround(model.playbackSpeed * 100)));
    QTest::keyClick(&view, Qt::Key_Escape);
    EXPECT_EQ(model.playbackSpeed, 0.5);

    // Past the end of the track the speed is the last mark's.
    QTest::mousePress(&view, Qt::LeftButton, {}, at(view.knobRect().center()));
    QTest::mouseRelease(&view, Qt::LeftButton, {},
                        QPoint(view.width() - 1, int(view.knobRect().center().y())));
    EXPECT_EQ(model.playbackSpeed, 1.5);

    QAccessibleInterface* reader = QAccessible::queryAccessibleInterface(&view);
    ASSERT_NE(reader, nullptr);
    EXPECT_EQ(reader->text(QAccessible::Name), "Speed");
    EXPECT_EQ(reader->text(QAccessible::Value), "150 %");
    EXPECT_EQ(view.toolTip(), "Speed 150%") << "the exact speed, which the marks only place";
    // A screen reader sets it within the marks.
    reader->valueInterface()->setCurrentValue(0.1);
    EXPECT_EQ(model.playbackSpeed, 0.25);
    reader->valueInterface()->setCurrentValue(1.5);

    // A speed above the marks from the model lights none and leaves the knob.
    const double knob = view.knobCentreX();
    model.playbackSpeed = 2.0;
    emit model.changed();
    EXPECT_EQ(view.knobCentreX(), knob);
    for (double alpha : view.markOpacities())
        EXPECT_EQ(alpha, 0.5);
}

TEST(HUDPitchControlView, TicksTheSlotAndTheWheelSetTheBoundPitch) {
    Transport model;
    HUDPitchControlView view;
    view.resize(view.sizeHint());
    view.show();
    ASSERT_TRUE(view.bind("pitchAdjustment", &model, "pitchAdjustment"));
    // Three points beside the +12 tick, outside the slot's grown rectangle.
    const QRectF tick = view.tickRect(3);
    QTest::mouseClick(&view, Qt::LeftButton, {},
                      QPoint(int(tick.right()) + 3, int(tick.bottom()) + 3));
    EXPECT_EQ(model.pitchAdjustment, 12.0);
    EXPECT_EQ(view.callout()->text(), "+12");
    // Dragging the knob past the right end gives exactly +24.
    QTest::mousePress(&view, Qt::LeftButton, {}, at(view.sliderKnobRect().center()));
    QTest::mouseRelease(&view, Qt::LeftButton, {}, QPoint(view.width() + 40, 5));
    EXPECT_EQ(model.pitchAdjustment, 24.0);
    EXPECT_FALSE(view.canIncreasePitch());
    view.step(TransportRules::PitchStep::DownOctave);
    EXPECT_EQ(model.pitchAdjustment, 12.0);
    EXPECT_TRUE(view.callout()->isVisible());
    // Stepped from the menu while the speed control shows, the hidden control shows no bubble.
    view.callout()->hide();
    view.hide();
    view.step(TransportRules::PitchStep::Up);
    EXPECT_EQ(model.pitchAdjustment, 12.5);
    EXPECT_FALSE(view.callout()->isVisible());
    view.step(TransportRules::PitchStep::Down);
    view.show();
    // Screen readers read the value as words and can set it.
    QAccessibleInterface* reader = QAccessible::queryAccessibleInterface(&view);
    ASSERT_NE(reader, nullptr);
    EXPECT_EQ(reader->text(QAccessible::Name), "Pitch");
    EXPECT_EQ(reader->text(QAccessible::Value), "plus 12 semitones");
    ASSERT_NE(reader->valueInterface(), nullptr);
    reader->valueInterface()->setCurrentValue(-2.0);
    EXPECT_EQ(model.pitchAdjustment, -2.0);
    EXPECT_EQ(reader->text(QAccessible::Value), "minus 2 semitones");
    EXPECT_EQ(view.toolTip(), "Pitch -2 semitones")
        << "the exact pitch, which the ticks only place";
    reader->valueInterface()->setCurrentValue(1.0);
    EXPECT_EQ(view.toolTip(), "Pitch +1 semitone");
    reader->valueInterface()->setCurrentValue(-2.0);

    // A dialog that takes the window mid-drag takes the release too: the drag's bubble goes.
    QTest::mousePress(&view, Qt::LeftButton, {}, at(view.sliderKnobRect().center()));
    ASSERT_TRUE(view.callout()->isVisible());
    QEvent deactivate(QEvent::WindowDeactivate);
    QCoreApplication::sendEvent(&view, &deactivate);
    EXPECT_TRUE(QTest::qWaitFor([&] { return !view.callout()->isVisible(); }, 3000));
    EXPECT_EQ(QWidget::keyboardGrabber(), nullptr) << "the keys given back";

    // Escape during a drag puts back the shift it began at, and gives the keys back.
    model.pitchAdjustment = 0.37;
    emit model.changed();
    QTest::mousePress(&view, Qt::LeftButton, {}, at(view.sliderKnobRect().center()));
    QTest::mouseMove(&view, QPoint(view.width() - 2, int(view.sliderKnobRect().center().y())));
    ASSERT_NE(model.pitchAdjustment, 0.37);
    ASSERT_EQ(QWidget::keyboardGrabber(), &view) << "Escape goes to the drag";
    QTest::keyClick(&view, Qt::Key_Escape);
    EXPECT_EQ(model.pitchAdjustment, 0.37);
    EXPECT_EQ(QWidget::keyboardGrabber(), nullptr);
    QTest::mouseRelease(&view, Qt::LeftButton, {}, QPoint(view.width() - 2, 5));
    EXPECT_EQ(model.pitchAdjustment, 0.37) << "the release after Escape changes nothing";
}

TEST(HUDSwitchControlView, TheClickRuleAndTheDotsLitByTheDirtyFlags) {
    HUDSwitchControlView view;
    view.resize(view.sizeHint());
    view.show();
    QSignalSpy activated(&view, &HUDSwitchControlView::activated);
    const QRectF box = view.switchRect();
    const struct {
        double y;
        int state;
    } clicks[] = {{box.center().y() + 6, 1},
                  {box.center().y(), 0},
                  {box.center().y() + 1.5, 0},
                  {box.top() + 3, 0}};
    for (const auto& click : clicks) {
        QTest::mouseClick(&view, Qt::LeftButton, {}, QPointF(box.center().x(), click.y).toPoint());
        EXPECT_EQ(view.switchState(), click.state) << click.y;
    }
    EXPECT_EQ(activated.count(), 4); // also when nothing changed

    // Screen readers hear which control shows and can switch it.
    QAccessibleInterface* reader = QAccessible::queryAccessibleInterface(&view);
    ASSERT_NE(reader, nullptr);
    EXPECT_EQ(reader->text(QAccessible::Value), "Speed");
    ASSERT_NE(reader->valueInterface(), nullptr);
    EXPECT_TRUE(view.toolTip().startsWith("Showing the speed: click below for the pitch."));
    reader->valueInterface()->setCurrentValue(1);
    EXPECT_EQ(view.switchState(), 1);
    EXPECT_EQ(activated.count(), 5);
    EXPECT_TRUE(view.toolTip().startsWith("Showing the pitch: click above for the speed."));

    // The speed dot lights whatever the state shows: compare its middle before and after.
    view.setSwitchState(1);
    const QImage off = test::grabImage(view);
    view.setSpeedDirty(true);
    const QImage on = test::grabImage(view);
    const QPointF middle = view.dotRect(0).center();
    EXPECT_FALSE(test::coloursClose(test::pixelAt(off, middle.x(), middle.y()),
                                    test::pixelAt(on, middle.x(), middle.y()), 40));
    EXPECT_GT(test::pixelAt(on, middle.x(), middle.y()).red(), 200);
}

TEST(HUDTimeDisplayView, GlyphsStartAtTheFirstInsetAndAdvanceByTheirWidths) {
    const auto positions = HUDTimeDisplayView::glyphPositions("01:23.456");
    ASSERT_EQ(positions.size(), 9u);
    EXPECT_EQ(positions[0], -4.0);
    EXPECT_EQ(positions[2], -4.0 + 42);           // two digits
    EXPECT_EQ(positions[3], -4.0 + 42 + 10);      // after the colon
    EXPECT_EQ(positions[6], -4.0 + 84 + 10 + 11); // after the point
    // The "sec" caption stays under the seconds when the minutes take a third digit.
    EXPECT_EQ(HUDTimeDisplayView::secondsCaptionX("01:23.456"), 57.0);
    EXPECT_EQ(HUDTimeDisplayView::secondsCaptionX("100:05.000"), 57.0 + 21);
    // The first digit's glow fades out inside the view, not cut at its left edge.
    HUDTimeDisplayView shown;
    onDarkPanel(shown);
    shown.setCurrentFrame(8 * 44100 * 60 + 8 * 44100);
    const QImage image = test::grabImage(shown);
    const QColor panel(18, 22, 28);
    // The glow fades over its last points: at the edge it is a small part of its full strength
    // (cut, it stood at a third of the digit's own brightness there).
    int edgeGlow = 0;
    for (int y = 0; y < image.height(); ++y)
        edgeGlow = std::max(edgeGlow, image.pixelColor(0, y).green() - panel.green());
    EXPECT_LT(edgeGlow, 20);
    HUDTimeDisplayView view;
    view.setCurrentFrame(2646000);
    EXPECT_EQ(view.currentTimeString(), "01:00.000");
    // Said to the second: while playing it changes 15 times a second.
    EXPECT_EQ(view.accessibleDescription(), "01:00");
}

TEST(HUDSpeedControlView, TheKnobSitsWhereTheSpeedPutsItAndTheTrackShowsOnHover) {
    HUDSpeedControlView view;
    onDarkPanel(view);
    const auto centres = view.markCentres();
    const struct {
        double speed;
        double knobX;
    } cases[] = {{0.25, std::floor(centres[0])},
                 {0.6, std::floor(centres[1] + (centres[2] - centres[1]) * 0.4)},
                 {1.0, std::floor(centres[3])},
                 {1.5, std::floor(centres[4])}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.speed);
        view.setPlaybackSpeed(c.speed);
        EXPECT_EQ(view.knobCentreX(), c.knobX);
        const QImage picture = test::grabImage(view);
        const double y = view.knobRect().center().y();
        EXPECT_TRUE(drawnAt(picture, c.knobX, y));
        // Without the pointer over it the track is hidden: dark beside the dot.
        const double away = c.knobX < centres[2] ? centres[4] - 6 : centres[0] + 6;
        EXPECT_FALSE(drawnAt(picture, away, y));
    }
    // The pointer over the track shows it, the whole way between the end marks.
    const QPointF knob = view.knobRect().center();
    QTest::mouseMove(&view, at(knob));
    QMouseEvent hover(QEvent::MouseMove, knob, view.mapToGlobal(knob), Qt::NoButton, Qt::NoButton,
                      Qt::NoModifier);
    QCoreApplication::sendEvent(&view, &hover);
    ASSERT_TRUE(view.showsTrack());
    const QImage hovered = test::grabImage(view);
    const QRectF track = view.trackRect();
    for (double x : {track.left() + 6, track.center().x(), track.right() - 6})
        EXPECT_TRUE(drawnAt(hovered, x, track.center().y())) << x;
}

TEST(HUDSpeedControlView, EscapeOrALostWindowEndsADragWithoutTakingTheKeyboardFocus) {
    // Escape puts the speed back; a dialog that takes the window mid-drag (and with it the
    // button's release) keeps the speed dragged to.
    const struct {
        const char* name;
        QEvent::Type ending;
        double speedAfter;
    } endings[] = {{"Escape", QEvent::KeyPress, 1.0},
                   {"window deactivated", QEvent::WindowDeactivate, 0.5}};
    for (const auto& ending : endings) {
        SCOPED_TRACE(ending.name);
        Transport model;
        QWidget window;
        auto* focused = new QWidget(&window);
        focused->setFocusPolicy(Qt::StrongFocus);
        auto* view = new HUDSpeedControlView(&window);
        view->setGeometry(QRect(QPoint(0, 20), view->sizeHint()));
        window.resize(200, 100);
        window.show();
        QApplication::setActiveWindow(&window);
        focused->setFocus();
        view->bind("playbackSpeed", &model, "playbackSpeed");
        const auto centres = view->markCentres();
        const double y = view->knobRect().center().y();
        QTest::mousePress(view, Qt::LeftButton, {}, at(view->knobRect().center()));
        QMouseEvent move(QEvent::MouseMove, QPointF(centres[1], y),
                         view->mapToGlobal(QPointF(centres[1], 0)), Qt::NoButton, Qt::LeftButton,
                         Qt::NoModifier);
        QCoreApplication::sendEvent(view, &move);
        EXPECT_EQ(model.playbackSpeed, 0.5);
        ASSERT_EQ(QWidget::keyboardGrabber(), view) << "Escape goes to the drag";
        EXPECT_TRUE(focused->hasFocus());
        if (ending.ending == QEvent::KeyPress) {
            QTest::keyClick(QWidget::keyboardGrabber(), Qt::Key_Escape);
        } else {
            QEvent deactivate(ending.ending);
            QCoreApplication::sendEvent(view, &deactivate);
        }
        EXPECT_EQ(model.playbackSpeed, ending.speedAfter);
        EXPECT_EQ(QWidget::keyboardGrabber(), nullptr);
        EXPECT_TRUE(focused->hasFocus()) << "the focus never moved";
        // The pointer passing over the track afterwards moves nothing.
        QMouseEvent hover(QEvent::MouseMove, QPointF(centres[3], y),
                          view->mapToGlobal(QPointF(centres[3], 0)), Qt::NoButton, Qt::NoButton,
                          Qt::NoModifier);
        QCoreApplication::sendEvent(view, &hover);
        EXPECT_EQ(model.playbackSpeed, ending.speedAfter);
    }
}

TEST(HUDSpeedControlView, TheWheelMovesTheKnobFivePointsANotchAndNeverPastTheEnds) {
    Transport model;
    HUDSpeedControlView view;
    view.resize(view.sizeHint());
    view.show();
    view.bind("playbackSpeed", &model, "playbackSpeed");
    const auto centres = view.markCentres();
    const auto pointsPastOne = [&](double points) {
        return 1.0 +
               0.5 * (std::floor(centres[3]) + points - centres[3]) / (centres[4] - centres[3]);
    };
    // From "1x" a notch leaves the mark and the notch back reaches it, in whole notches or in
    // the eighths of one a touchpad sends.
    for (const double perEvent : {1.0, 0.125}) {
        SCOPED_TRACE(perEvent);
        turnWheel(view, view.knobRect().center(), 1, Qt::NoModifier, perEvent);
        EXPECT_NEAR(model.playbackSpeed, pointsPastOne(5), 1e-9);
        turnWheel(view, view.knobRect().center(), -1, Qt::NoModifier, perEvent);
        EXPECT_EQ(model.playbackSpeed, 1.0);
    }
    // Two notches right with Shift: 10 points along the line to "1.5", without the snap.
    turnWheel(view, view.knobRect().center(), 2, Qt::ShiftModifier);
    EXPECT_NEAR(model.playbackSpeed, pointsPastOne(10), 1e-9);
    // Far past the end the knob comes back to the last mark.
    turnWheel(view, view.knobRect().center(), 200, Qt::NoModifier);
    EXPECT_EQ(model.playbackSpeed, 1.5);
    EXPECT_EQ(view.knobCentreX(), std::floor(centres[4]));
    // Outside the track the wheel does nothing.
    turnWheel(view, view.markRect(0).center(), -50, Qt::NoModifier);
    EXPECT_EQ(model.playbackSpeed, 1.5);
}

TEST(HUDPitchControlView, TheTracksEndsMeetItsMiddleWithoutASeam) {
    HUDPitchControlView view;
    onDarkPanel(view);
    view.setPitchAdjustment(6.0); // the knob clear of both ends and of every tick
    const QImage picture = test::grabImage(view);
    const QRectF slot = view.sliderSlotRect();
    const double y = slot.center().y();
    const QColor middle = test::pixelAt(picture, slot.center().x() - 20, y);
    const double capWidth = NamedImage::named("PitchSliderTrackLeft").size().width();
    for (const double join : {slot.left() + capWidth, slot.right() - capWidth}) {
        for (int i = 0; i < 5; ++i)
            ASSERT_FALSE(view.tickRect(i).adjusted(-1, 0, 1, 0).contains(QPointF(join, y)));
        for (const double x : {join - 0.5, join + 0.5})
            EXPECT_TRUE(test::coloursClose(test::pixelAt(picture, x, y), middle, 6))
                << x << ": " << test::pixelAt(picture, x, y).name().toStdString() << " against "
                << middle.name().toStdString();
    }
}

TEST(HUDPitchControlView, EachTickIsOneCrispLineAtEveryRatio) {
    HUDPitchControlView view;
    onDarkPanel(view);
    view.setPitchAdjustment(6.0);
    const QImage picture = test::grabImage(view);
    const qreal ratio = picture.devicePixelRatio();
    const int row = test::devicePixel(view.sliderSlotRect().center().y(), ratio);
    const int lineWidth = std::max(1, int(std::lround(ratio)));
    // The ticks on the track's plain middle (the outer two stand on its ends' rims), drawn as
    // they are: across each, the columns the line lights are all as bright as its brightest,
    // none half lit beside it.
    for (int i = 1; i < HUDPitchControlView::kTickCount - 1; ++i) {
        SCOPED_TRACE(i);
        const QRectF tick = view.tickRect(i);
        const int first = test::devicePixel(tick.left() - 1, ratio);
        const int last = test::devicePixel(tick.right() + 1, ratio);
        const int track = picture.pixelColor(first, row).lightness();
        int brightest = track;
        for (int x = first; x <= last; ++x)
            brightest = std::max(brightest, picture.pixelColor(x, row).lightness());
        int lit = 0;
        for (int x = first; x <= last; ++x) {
            const int lightness = picture.pixelColor(x, row).lightness();
            if (lightness > track + 8) {
                ++lit;
                EXPECT_GE(lightness, brightest - 8) << "column " << x << " half lit";
            }
        }
        EXPECT_EQ(lit, lineWidth);
    }
}

TEST(HUDPitchControlView, TheKnobSitsUnderTheValuesPlaceAndTheWheelStepsIt) {
    Transport model;
    HUDPitchControlView view;
    onDarkPanel(view);
    view.bind("pitchAdjustment", &model, "pitchAdjustment");
    for (double semitones : {-24.0, -12.5, 0.0, 7.0, 24.0}) {
        SCOPED_TRACE(semitones);
        view.setPitchAdjustment(semitones);
        const QRectF slot = view.sliderSlotRect();
        const double x = TransportRules::pitchX(semitones, slot.x(), slot.width());
        const QRectF knob = view.sliderKnobRect();
        EXPECT_LE(std::abs(knob.center().x() - x), 1.0);
        EXPECT_EQ(knob.bottom(), view.height() - 8.0);
        const QImage picture = test::grabImage(view);
        EXPECT_TRUE(drawnAt(picture, x, knob.center().y() + 2));
        const double away = semitones < 0 ? slot.right() - 10 : slot.left() + 10;
        EXPECT_FALSE(drawnAt(picture, away, knob.center().y() + 2));
    }
    const struct {
        double from;
        int notches;
        Qt::KeyboardModifiers modifiers;
        double to;
    } wheels[] = {{0, 3, Qt::NoModifier, 3},       // a semitone a notch
                  {3, -1, Qt::NoModifier, 2},      // and back towards 0
                  {-3, 1, Qt::NoModifier, -2},     // from either side
                  {2.5, 1, Qt::NoModifier, 4},     // 3.5, to a whole semitone
                  {0, 3, Qt::ShiftModifier, 0.12}, // fine, not rounded
                  {23, 10, Qt::NoModifier, 24},    // clamped
                  {-23.5, -2, Qt::ShiftModifier, -23.58}};
    for (const auto& w : wheels) {
        SCOPED_TRACE(w.from);
        view.setPitchAdjustment(w.from);
        turnWheel(view, view.rect().center(), w.notches, w.modifiers);
        EXPECT_NEAR(model.pitchAdjustment, w.to, 1e-9);
        EXPECT_FALSE(view.callout()->isVisible()) << "no callout for the wheel";
    }
}

TEST(CalloutWindow, EveryValueFitsTheBubbleAndShortOnesKeepTheirSize) {
    const qreal width = NamedImage::named("PitchArrow").size().width();
    for (const char* text : {"-23.17", "+12.25", "150%", "-0.5", "+3", "0"}) {
        const QFont font = CalloutWindow::labelFont(QFont(), text, width);
        const qreal needed = QFontMetricsF(font).horizontalAdvance(text);
        EXPECT_LE(needed, width - 10.0) << text;
        // Only what would not fit is made smaller.
        if (QFontMetricsF(CalloutWindow::labelFont(QFont(), "0", width)).horizontalAdvance(text) <=
            width - 10.0) {
            EXPECT_EQ(QFontInfo(font).pixelSize(), 12) << text;
        }
    }
}

TEST(CalloutWindow, IsShapedLikeItsBubbleSoNoCornerShowsWithoutACompositor) {
    QWidget owner;
    const CalloutWindow callout(&owner);
    const QRegion shape = callout.mask();
    const int right = callout.width() - 1;
    const int bottom = callout.height() - 1;
    const struct {
        QPoint at;
        bool inside;
    } places[] = {{{right / 2, bottom / 3}, true}, // under the label
                  {{right / 2, bottom - 2}, true}, // the arrow, near its tip
                  {{0, bottom / 3}, true},         // the outline
                  {{1, bottom}, false},            // beside the arrow
                  {{right - 1, bottom}, false}};
    for (const auto& place : places)
        EXPECT_EQ(shape.contains(place.at), place.inside) << place.at.x() << "," << place.at.y();
    // Exactly the points the picture paints at the screen's ratio: soft edges are not cut off,
    // and the round corners beyond them are not kept.
    const qreal ratio = test::testPixelRatio();
    const QImage picture = NamedImage::named("PitchArrow").pixmap(ratio).toImage();
    QRegion painted;
    for (int y = 0; y < picture.height(); ++y)
        for (int x = 0; x < picture.width(); ++x)
            if (picture.pixelColor(x, y).alpha() > 0)
                painted += QRect(int(x / ratio), int(y / ratio), 1, 1);
    EXPECT_TRUE(shape.xored(painted).isEmpty());
    if (ratio == 1.0) {
        EXPECT_FALSE(shape.contains(QPoint(0, 0))) << "a round corner";
    }
}

TEST(GlowText, TheGlowSpreadsPastTheSharpTextAndIsMadeOnce) {
    QFont font;
    font.setPixelSize(20);
    const qreal ratio = test::testPixelRatio();
    const QPixmap& first = GlowText::picture(QStringLiteral("1x"), font, ratio);
    EXPECT_EQ(&first, &GlowText::picture(QStringLiteral("1x"), font, ratio)) << "kept";
    EXPECT_EQ(first.devicePixelRatio(), ratio);
    // Left of the text's box (inside the glow's margin) there is faint light, never solid.
    const QImage picture = first.toImage();
    int glowing = 0;
    for (int y = 0; y < picture.height(); ++y) {
        const QColor edge = picture.pixelColor(int(1.5 * ratio), y);
        EXPECT_LT(edge.alpha(), 128) << y;
        glowing += edge.alpha() > 0 ? 1 : 0;
    }
    EXPECT_GT(glowing, 0);
}

TEST(SThreePartImage, CapsKeepTheirWidthsAndTheFillStretchesBetween) {
    const SThreePartImage& slot = SThreePartImage::pitchTrack();
    EXPECT_EQ(slot.imageForPart(0).name(), "PitchSliderTrackLeft");
    EXPECT_EQ(slot.imageForPart(2).name(), "PitchSliderTrackRight");
    EXPECT_THROW(slot.imageForPart(3), test::AssertionFailed);
    const qreal ratio = test::testPixelRatio();
    const double leftWidth = slot.imageForPart(0).width();
    for (const double width : {40.0, 160.0}) {
        SCOPED_TRACE(width);
        QImage picture(QSize(int(std::ceil((width + 20) * ratio)), int(std::ceil(20 * ratio))),
                       QImage::Format_ARGB32_Premultiplied);
        picture.setDevicePixelRatio(ratio);
        picture.fill(Qt::white);
        {
            QPainter painter(&picture);
            slot.draw(painter, QRectF(10, 4, width, slot.height()));
        }
        const double middleY = 4 + slot.height() / 2;
        // The fill's dark inside runs from the left cap to the right cap; nothing outside.
        for (const double x : {10 + leftWidth + 1, 10 + width / 2, 10 + width - leftWidth - 1})
            EXPECT_LT(test::pixelAt(picture, x, middleY).lightness(), 60) << x;
        EXPECT_EQ(test::pixelAt(picture, 5, middleY), QColor(Qt::white));
        EXPECT_EQ(test::pixelAt(picture, 10 + width + 5, middleY), QColor(Qt::white));
    }
}

#include "TransportViewsTest.moc"
