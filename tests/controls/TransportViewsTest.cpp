#include "controls/HUDPitchControlView.h"
#include "controls/HUDSpeedControlView.h"
#include "controls/HUDSwitchControlView.h"
#include "controls/HUDTimeDisplayView.h"

#include "support/ViewTesting.h"

#include <QAccessible>
#include <QAccessibleValueInterface>
#include <QSignalSpy>
#include <QTest>
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
    // Screen readers read the value as words and can set it.
    QAccessibleInterface* reader = QAccessible::queryAccessibleInterface(&view);
    ASSERT_NE(reader, nullptr);
    EXPECT_EQ(reader->text(QAccessible::Name), "Pitch");
    EXPECT_EQ(reader->text(QAccessible::Value), "plus 12 semitones");
    ASSERT_NE(reader->valueInterface(), nullptr);
    reader->valueInterface()->setCurrentValue(-2.0);
    EXPECT_EQ(model.pitchAdjustment, -2.0);
    EXPECT_EQ(reader->text(QAccessible::Value), "minus 2 semitones");
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
    HUDTimeDisplayView view;
    view.setCurrentFrame(2646000);
    EXPECT_EQ(view.currentTimeString(), "01:00.000");
    EXPECT_EQ(view.accessibleDescription(), "01:00.000");
}

#include "TransportViewsTest.moc"
