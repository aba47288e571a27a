#include "waveform/TeskScroller.h"

#include "support/ViewTesting.h"

#include <QAccessible>
#include <QAccessibleValueInterface>
#include <QTest>
#include <gtest/gtest.h>

#include <algorithm>

using namespace tesk;

namespace {

/// What the window binds the scroller to: the waveform view's values.
class ScrollModel : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool scrollerDragging READ scrollerDragging WRITE setScrollerDragging NOTIFY changed)
    Q_PROPERTY(double scrollPosition READ scrollPosition WRITE setScrollPosition NOTIFY changed)
    Q_PROPERTY(double frameCount READ frameCount NOTIFY changed)
    Q_PROPERTY(double visibleProportion READ visibleProportion NOTIFY changed)
    Q_PROPERTY(QList<quint32> chorusMarkers READ chorusMarkers NOTIFY changed)

public:
    bool scrollerDragging() const { return mDragging; }
    void setScrollerDragging(bool dragging) {
        mDragging = dragging;
        draggingWrites.append(dragging);
        emit changed();
    }
    double scrollPosition() const { return mPosition; }
    void setScrollPosition(double position) {
        mPosition = position;
        emit changed();
    }
    double frameCount() const { return 441000; }
    double visibleProportion() const { return 0.25; }
    QList<quint32> chorusMarkers() const { return {0, 220500, 441000}; }
    QList<bool> draggingWrites;

signals:
    void changed();

private:
    bool mDragging = false;
    double mPosition = 0.0;
};

class TeskScrollerTest : public ::testing::Test {
protected:
    void SetUp() override {
        scroller.resize(404, 15); // a slot of 400 points from x 2
        scroller.show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(&scroller));
        scroller.bind("maxValue", &model, "frameCount");
        scroller.bind("knobProportion", &model, "visibleProportion");
        scroller.bind("value", &model, "scrollPosition");
        scroller.bind("dragging", &model, "scrollerDragging");
        scroller.bind("chorusMarkers", &model, "chorusMarkers");
    }
    ScrollModel model;
    TeskScroller scroller;
};

} // namespace

TEST(TeskScroller, RepaintsInAWindowThatComesToTheFrontOrGoesBehind) {
    QWidget window;
    auto* scroller = new TeskScroller(&window);
    scroller->setGeometry(0, 0, 404, 15);
    EXPECT_TRUE(test::repaintsOnActivation(*scroller));
}

TEST_F(TeskScrollerTest, APlayHeadStepRepaintsOnlyWhereTheKnobWasAndIs) {
    // The knob is 100 points wide with 300 to travel: a step of a ten-thousandth leaves it on
    // its point. Each step tells the scroller every value again, as following playback does.
    const struct {
        double from, to;
        bool knobMoves;
    } steps[] = {{0.5, 0.5001, false}, {0.5, 0.51, true}, {0.2, 0.9, true}, {0.9, 0.2, true}};
    test::PaintLog log;
    scroller.installEventFilter(&log);
    for (const auto& step : steps) {
        SCOPED_TRACE(step.to);
        model.setScrollPosition(step.from);
        QCoreApplication::processEvents();
        const QRectF before = scroller.knobRect();
        log.painted = QRegion();
        model.setScrollPosition(step.to);
        QCoreApplication::processEvents();
        if (!step.knobMoves) {
            EXPECT_TRUE(log.painted.isEmpty());
            continue;
        }
        qint64 area = 0;
        for (const QRect& rect : log.painted)
            area += qint64(rect.width()) * rect.height();
        for (const QRectF& knob : {before, scroller.knobRect()})
            EXPECT_TRUE(log.painted.contains(knob.adjusted(0, -2, 0, 2).toAlignedRect()));
        EXPECT_LE(area, 2 * (before.width() + 2) * scroller.height());
    }
}

TEST_F(TeskScrollerTest, MarkersSitAtTheirShareOfTheSlot) {
    struct Case {
        double min, max, value;
        std::optional<qreal> x;
    };
    const Case cases[] = {
        {0, 441000, 0, 3.0},           // the slot's left edge + 1
        {0, 441000, 441000, 401.0},    // the right edge − 1
        {0, 441000, 220500, 202.0},    // halfway across 398 points
        {100, 200, 150, 202.0},        // a slot that starts above 0
        {0, 441000, 1000, 3.0},        // floored
        {500, 500, 500, std::nullopt}, // no span: no position
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.min << " … " << c.max << " at " << c.value);
        scroller.setMinValue(c.min);
        scroller.setMaxValue(c.max);
        EXPECT_EQ(scroller.markerPositionForValue(c.value), c.x);
    }
    scroller.setMinValue(0);
    scroller.setMaxValue(441000);

    // The middle chorus marker is drawn orange at its place; the end ones are clipped to the
    // slot's rounded ends but still show.
    const QImage image = test::grabImage(scroller);
    const QColor middle = test::pixelAt(image, 202.5, 7.5);
    EXPECT_GT(middle.red(), middle.blue() + 60) << "the chorus marker's colour";
    const QColor plainSlot = test::pixelAt(image, 120.5, 7.5);
    EXPECT_LT(std::abs(plainSlot.red() - plainSlot.blue()), 40) << "no marker there";

    // Its line is whole device pixels at every ratio, under the middle of its dot: in a row
    // above the dot, each pixel is the line's colour or the slot's, none between, and the dot's
    // row is as wide on either side of the line.
    const qreal ratio = image.devicePixelRatio();
    const int lineWidth = std::max(1, int(std::round(ratio)));
    const auto run = [&](qreal y, const QColor& background) {
        std::vector<int> columns;
        const int row = test::devicePixel(y, ratio);
        for (int column = test::devicePixel(195, ratio); column < test::devicePixel(210, ratio);
             ++column) {
            const QColor colour = image.pixelColor(column, row);
            if (!test::coloursClose(colour, background, 3))
                columns.push_back(column);
        }
        return columns;
    };
    const qreal dotTop = std::floor(7.5 - 5.5) + 3.0; // the dot's top is 2.9 into the picture
    const std::vector<int> line = run(dotTop - 1.5, test::pixelAt(image, 120.5, dotTop - 1.5));
    ASSERT_EQ(int(line.size()), lineWidth);
    EXPECT_EQ(line.back() - line.front() + 1, lineWidth);
    for (const int column : line) {
        SCOPED_TRACE(column);
        EXPECT_TRUE(
            test::coloursClose(image.pixelColor(column, test::devicePixel(dotTop - 1.5, ratio)),
                               QColor(0xc5, 0x6c, 0x20), 3));
    }
    const std::vector<int> dot = run(7.5, plainSlot);
    ASSERT_FALSE(dot.empty());
    EXPECT_LE(std::abs((line.front() - dot.front()) - (dot.back() - line.back())), 1);
}

TEST_F(TeskScrollerTest, DraggingIsYesForExactlyTheLengthOfAPress) {
    // A dialog that opens mid-drag (a shortcut typed) takes the release with it: the window goes
    // behind.
    enum Ending { Release, Hide, Disable, WindowBehind };
    for (const Ending ending : {Release, Hide, Disable, WindowBehind}) {
        SCOPED_TRACE(int(ending));
        model.draggingWrites.clear();
        model.setScrollPosition(0.0);
        model.draggingWrites.clear();
        // The knob is a quarter of the slot: 2 … 102. Drag it by 150 points of its 300 of travel.
        QTest::mousePress(&scroller, Qt::LeftButton, {}, QPoint(50, 7));
        EXPECT_TRUE(model.scrollerDragging());
        QTest::mouseMove(&scroller, QPoint(200, 7));
        EXPECT_DOUBLE_EQ(model.scrollPosition(), 0.5);
        switch (ending) {
        case Release:
            QTest::mouseRelease(&scroller, Qt::LeftButton, {}, QPoint(200, 7));
            break;
        case Hide:
            scroller.hide();
            break;
        case Disable:
            scroller.setEnabled(false);
            break;
        case WindowBehind: {
            QEvent behind(QEvent::WindowDeactivate);
            QCoreApplication::sendEvent(&scroller, &behind);
            break;
        }
        }
        EXPECT_EQ(model.draggingWrites, (QList<bool>{true, false}));
        scroller.setEnabled(true);
        scroller.show();
        QTest::mouseRelease(&scroller, Qt::LeftButton, {}, QPoint(200, 7));
        EXPECT_EQ(model.draggingWrites, (QList<bool>{true, false})) << "NO once only";
    }
}

TEST_F(TeskScrollerTest, APressBesideTheKnobPagesTowardsThePointerUntilTheKnobGetsThere) {
    // The view the scroller shows: a page moves it a quarter of the way (75 of 300 points of
    // travel), as a view half the knob's width would.
    // Waits shortened ten times, for the test's sake: the order of things is what counts.
    constexpr int kFirstRepeat = TeskScroller::kFirstPageRepeatMilliseconds / 10;
    constexpr int kRepeat = TeskScroller::kPageRepeatMilliseconds / 10;
    scroller.setPageRepeatMilliseconds(kFirstRepeat, kRepeat);
    QList<int> pages;
    QObject::connect(&scroller, &TeskScroller::pageRequested, &model, [&](int direction) {
        pages.append(direction);
        model.setScrollPosition(std::clamp(model.scrollPosition() + 0.25 * direction, 0.0, 1.0));
    });
    struct Case {
        double start;
        int x;
        QList<int> pages;
        double end;
    };
    // The knob is 100 points wide. From the start it covers 2 … 102, so a press at 352 pages
    // four times (the knob then covers 302 … 402); one at 140 pages once (77 … 177).
    for (const Case& press : {Case{0.0, 352, {1, 1, 1, 1}, 1.0}, Case{0.0, 140, {1}, 0.25},
                              Case{1.0, 20, {-1, -1, -1, -1}, 0.0}, Case{0.5, 110, {-1}, 0.25}}) {
        SCOPED_TRACE(press.x);
        model.setScrollPosition(press.start);
        pages.clear();
        model.draggingWrites.clear();
        QTest::mousePress(&scroller, Qt::LeftButton, {}, QPoint(press.x, 7));
        EXPECT_EQ(pages, QList<int>{press.pages.front()}) << "the first page at once";
        EXPECT_TRUE(QTest::qWaitFor([&] { return pages.size() >= press.pages.size(); }, 3000));
        // Held on, it pages no further once the knob is under the pointer.
        QTest::qWait(kFirstRepeat);
        QTest::mouseRelease(&scroller, Qt::LeftButton, {}, QPoint(press.x, 7));
        EXPECT_EQ(pages, press.pages);
        EXPECT_DOUBLE_EQ(model.scrollPosition(), press.end);
        EXPECT_EQ(model.draggingWrites, (QList<bool>{true, false}));
    }

    // Held on after the knob has got there, and moved on along the slot: it pages on.
    model.setScrollPosition(0.0);
    pages.clear();
    QTest::mousePress(&scroller, Qt::LeftButton, {}, QPoint(140, 7));
    QTest::qWait(kFirstRepeat + 2 * kRepeat);
    EXPECT_EQ(pages, QList<int>{1});
    QTest::mouseMove(&scroller, QPoint(352, 7));
    EXPECT_TRUE(QTest::qWaitFor([&] { return pages.size() == 4; }, 3000));
    // Another button let go meanwhile ends nothing; the one that pressed ends the press, even
    // with the other still held.
    QTest::mousePress(&scroller, Qt::RightButton, {}, QPoint(352, 7));
    QTest::mouseRelease(&scroller, Qt::RightButton, {}, QPoint(352, 7));
    EXPECT_TRUE(model.scrollerDragging());
    QTest::mousePress(&scroller, Qt::RightButton, {}, QPoint(352, 7));
    QTest::mouseRelease(&scroller, Qt::LeftButton, {}, QPoint(352, 7));
    EXPECT_FALSE(model.scrollerDragging());
    QTest::mouseRelease(&scroller, Qt::RightButton, {}, QPoint(352, 7));
    EXPECT_DOUBLE_EQ(model.scrollPosition(), 1.0);

    // Let go before it repeats: one page only.
    model.setScrollPosition(0.0);
    pages.clear();
    QTest::mousePress(&scroller, Qt::LeftButton, {}, QPoint(352, 7));
    QTest::mouseRelease(&scroller, Qt::LeftButton, {}, QPoint(352, 7));
    QTest::qWait(kFirstRepeat * 2);
    EXPECT_EQ(pages, QList<int>{1});

    // With Shift, or the middle button, the knob's middle jumps under the pointer and drags.
    for (const auto& [button, modifiers] : {std::pair{Qt::LeftButton, Qt::ShiftModifier},
                                            std::pair{Qt::MiddleButton, Qt::NoModifier}}) {
        model.setScrollPosition(0.0);
        pages.clear();
        QTest::mousePress(&scroller, button, modifiers, QPoint(202, 7));
        EXPECT_DOUBLE_EQ(model.scrollPosition(), 0.5);
        QTest::mouseMove(&scroller, QPoint(127, 7));
        EXPECT_DOUBLE_EQ(model.scrollPosition(), 0.25);
        QTest::mouseRelease(&scroller, button, modifiers, QPoint(127, 7));
        EXPECT_TRUE(pages.isEmpty());
        EXPECT_FALSE(model.scrollerDragging());
    }
}

TEST_F(TeskScrollerTest, WheelMovesTheValueAgainstTheSlot) {
    model.setScrollPosition(0.5);
    QWheelEvent wheel(QPointF(100, 7), scroller.mapToGlobal(QPointF(100, 7)), QPoint(0, 30),
                      QPoint(0, 240), Qt::NoButton, {}, Qt::NoScrollPhase, false);
    QCoreApplication::sendEvent(&scroller, &wheel);
    EXPECT_DOUBLE_EQ(model.scrollPosition(), 0.4) << "30 points of 300 of travel, negated";

    QAccessibleInterface* accessible = QAccessible::queryAccessibleInterface(&scroller);
    ASSERT_NE(accessible, nullptr);
    ASSERT_NE(accessible->valueInterface(), nullptr);
    EXPECT_EQ(accessible->text(QAccessible::Value), "40 %");
    // The words are the description too, which is all of them a screen reader gets from Qt.
    for (const auto& [position, heard] : {std::pair{1.3, "100 %"}, std::pair{-0.5, "0 %"}}) {
        model.setScrollPosition(position); // the view followed the play head past an end
        EXPECT_EQ(accessible->text(QAccessible::Value), heard);
        EXPECT_EQ(accessible->text(QAccessible::Description), heard);
    }
    accessible->valueInterface()->setCurrentValue(0.75);
    EXPECT_DOUBLE_EQ(model.scrollPosition(), 0.75) << "a value set by the reader is sent";
}

#include "TeskScrollerTest.moc"
