#include "waveform/WaveformView.h"
#include "waveform/WaveformAccessibility.h"
#include "waveform/WaveformPalette.h"

#include "support/MemorySong.h"
#include "support/ViewTesting.h"
#include "widgets/TeskLook.h"

#include <QAccessible>
#include <QAccessibleValueInterface>
#include <QPaintEvent>
#include <QPainter>
#include <QPushButton>
#include <QStyleHints>
#include <QTest>
#include <QToolTip>
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <map>

using namespace tesk;

namespace {

/// The part of a document the waveform view is bound to.
class SongModel : public QObject {
    Q_OBJECT
    Q_PROPERTY(qint64 currentFrame READ currentFrame WRITE setCurrentFrame NOTIFY changed)
    Q_PROPERTY(tesk::LoopRange loopRange READ loopRange WRITE setLoopRange NOTIFY changed)
    Q_PROPERTY(double zoomLevel READ zoomLevel WRITE setZoomLevel NOTIFY changed)
    Q_PROPERTY(
        QList<quint32> genericMarkers READ genericMarkers WRITE setGenericMarkers NOTIFY changed)
    Q_PROPERTY(
        QList<quint32> chorusMarkers READ chorusMarkers WRITE setChorusMarkers NOTIFY changed)

public:
    qint64 currentFrame() const { return mCurrentFrame; }
    void setCurrentFrame(qint64 frame) { set(mCurrentFrame, frame); }
    LoopRange loopRange() const { return mLoopRange; }
    void setLoopRange(LoopRange range) { set(mLoopRange, range); }
    double zoomLevel() const { return mZoomLevel; }
    void setZoomLevel(double level) { set(mZoomLevel, level); }
    QList<quint32> genericMarkers() const { return mGeneric; }
    void setGenericMarkers(const QList<quint32>& markers) { set(mGeneric, markers); }
    QList<quint32> chorusMarkers() const { return mChorus; }
    void setChorusMarkers(const QList<quint32>& markers) { set(mChorus, markers); }
    int writes = 0;

signals:
    void changed();

private:
    template <typename T> void set(T& field, const T& value) {
        ++writes;
        field = value;
        emit changed();
    }
    qint64 mCurrentFrame = 0;
    LoopRange mLoopRange;
    double mZoomLevel = 1.0;
    QList<quint32> mGeneric, mChorus;
};

struct DelegateLog : WaveformViewDelegate {
    int loopBegun = 0, loopEnded = 0, scrubs = 0, scrubsEnded = 0;
    void waveformViewDidBeginEditingLoop(WaveformView*) override { ++loopBegun; }
    void waveformViewDidEndEditingLoop(WaveformView*) override { ++loopEnded; }
    void waveformViewDidBeginScrubbing(WaveformView*) override { ++scrubs; }
    void waveformViewDidEndScrubbing(WaveformView*) override { ++scrubsEnded; }
};

constexpr qint64 kSongFrames = 441000; // ten seconds
constexpr double kBandY = 120;         // a y inside the waveform strip

/// A ten-second sine in an 800 × 200 view at full zoom: 50 frames a point, points 0 … 800
/// visible, bound to a model.
class WaveformViewTest : public ::testing::Test {
protected:
    void SetUp() override {
        view.setDecodedSong(test::MemorySong::sine(kSongFrames, 440.0, 0.8),
                            QUrl("file:///song.wav"));
        ASSERT_TRUE(QTest::qWaitFor([&] { return !view.waveform()->isScanning(); }, 20000));
        view.resize(800, 200);
        view.show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(&view));
        for (const char* name :
             {"currentFrame", "loopRange", "zoomLevel", "genericMarkers", "chorusMarkers"})
            view.bind(name, &model, name);
        view.setDelegate(&delegate);
        view.setClock([this] { return now; });
        ASSERT_EQ(view.geometryValues().framesPerPoint(), 50.0);
    }

    void press(QPointF at) { QTest::mousePress(&view, Qt::LeftButton, {}, at.toPoint()); }
    void move(QPointF at) { QTest::mouseMove(&view, at.toPoint()); }
    void release(QPointF at) { QTest::mouseRelease(&view, Qt::LeftButton, {}, at.toPoint()); }

    /// Waits until the view has painted what is pending, and returns what it repainted.
    QRegion paintsAfter(const std::function<void()>& change) {
        view.repaint();
        test::PaintLog log;
        view.installEventFilter(&log);
        change();
        if (!QTest::qWaitFor([&] { return log.paints > 0; }, 2000))
            return {};
        QCoreApplication::processEvents();
        view.removeEventFilter(&log);
        return log.painted;
    }

    /// The view painted into an image at the run's ratio, where `clip` says, over `image`.
    QImage painted(QImage image, const QRegion& clip) {
        QPainter painter(&image);
        view.paintView(painter, clip, image.devicePixelRatio());
        return image;
    }
    QImage paintedWhole() {
        const qreal ratio = test::testPixelRatio();
        QImage image(int(std::ceil(view.width() * ratio)), int(std::ceil(view.height() * ratio)),
                     QImage::Format_ARGB32_Premultiplied);
        image.setDevicePixelRatio(ratio);
        image.fill(Qt::magenta);
        return painted(image, view.rect());
    }

    SongModel model;
    WaveformView view;
    DelegateLog delegate;
    qint64 now = 1000;
};

} // namespace

TEST_F(WaveformViewTest, NavigationCommandsMoveThePlayPositionThroughTheBinding) {
    model.setGenericMarkers({44100, 88200});
    model.setChorusMarkers({176400});
    enum Command { Previous, Next, NextHighLevel, End, Rewind, FastForward };
    struct Case {
        const char* name;
        bool playing;
        qint64 from;
        Command command;
        Qt::KeyboardModifiers modifiers;
        qint64 to;
        LoopRange loop;
    };
    const Case cases[] = {
        {"previous, playing, 22050 after a marker", true, 88200 + 22050, Previous, {}, 44100, {}},
        {"previous, playing, 22051 after a marker", true, 88200 + 22051, Previous, {}, 88200, {}},
        {"previous, paused, 22050 after a marker", false, 88200 + 22050, Previous, {}, 88200, {}},
        {"previous before every marker", false, 1000, Previous, {}, 0, {}},
        {"next", false, 88200, Next, {}, 176400, {}},
        {"next after the last marker: the end", false, 176400, Next, {}, kSongFrames, {}},
        {"next high-level skips generic markers", false, 0, NextHighLevel, {}, 176400, {}},
        {"shift with end extends the loop to the end",
         false,
         100000,
         End,
         Qt::ShiftModifier,
         kSongFrames,
         {100000, std::uint32_t(kSongFrames - 100000)}},
        {"rewind by one second", false, 100000, Rewind, {}, 55900, {}},
        {"fast forward by one second", false, 100000, FastForward, {}, 144100, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        model.setLoopRange({});
        view.setPlaying(c.playing);
        model.setCurrentFrame(c.from);
        ASSERT_EQ(view.currentFrame(), c.from);
        switch (c.command) {
        case Previous:
            view.jumpToPreviousMarker(c.modifiers);
            break;
        case Next:
            view.jumpToNextMarker(c.modifiers);
            break;
        case NextHighLevel:
            view.jumpToNextHighLevelMarker(c.modifiers);
            break;
        case End:
            view.jumpToEnd(c.modifiers);
            break;
        case Rewind:
            view.rewind(c.modifiers);
            break;
        case FastForward:
            view.fastForward(c.modifiers);
            break;
        }
        EXPECT_EQ(model.currentFrame(), c.to);
        EXPECT_EQ(model.loopRange(), c.loop);
    }
}

TEST_F(WaveformViewTest, ZoomToFitLoopShowsTheLoopTwentyPointsFromEachEdge) {
    model.setLoopRange({100000, 88200});
    view.zoomToFitLoop();
    EXPECT_EQ(model.zoomLevel(), view.zoomLevel()) << "the zoom goes to the document";
    EXPECT_LT(view.zoomLevel(), 1.0);
    const WaveformGeometry& g = view.geometryValues();
    const qreal left = std::floor(g.pointFromSample(100000)) - view.shift();
    const qreal right = std::floor(g.pointFromSample(188200)) - view.shift();
    EXPECT_NEAR(left, 20, 1.5);
    // Within the rounding of frames per point to a whole number.
    EXPECT_NEAR(right, 800 - 20, 4);
}

TEST_F(WaveformViewTest, LoopBetweenMarkersSelectAllAndClear) {
    model.setGenericMarkers({100000, 300000});
    model.setChorusMarkers({200000});
    struct Case {
        qint64 frame;
        LoopRange range;
    };
    const Case cases[] = {{50000, {0, 100000}},
                          {100000, {100000, 100000}},
                          {250000, {200000, 100000}},
                          {400000, {300000, 141000}}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.frame);
        EXPECT_EQ(view.markerBoundedLoopRangeForSample(c.frame), c.range);
    }
    model.setGenericMarkers({});
    model.setChorusMarkers({300000});
    EXPECT_EQ(view.markerBoundedLoopRangeForSample(100000), (LoopRange{0, 300000}))
        << "no marker before the frame: from the start";
    EXPECT_EQ(view.markerBoundedLoopRangeForSample(300000), (LoopRange{300000, 141000}));
    model.setChorusMarkers({});
    EXPECT_EQ(view.markerBoundedLoopRangeForSample(100000), (LoopRange{})) << "no marker at all";
    view.selectAll();
    EXPECT_EQ(model.loopRange(), (LoopRange{0, std::uint32_t(kSongFrames)}));
    view.clearSelection();
    EXPECT_EQ(model.loopRange(), (LoopRange{}));
}

TEST_F(WaveformViewTest, MarkerGesturesHoldBeforeMovingAndDeleteWhenDraggedOff) {
    // A marker at point 400; its flag covers 393 … 407 in the marker strip (y 18 … 34).
    const QPointF flag(400, 24);
    struct Step {
        qint64 afterMs;
        QPointF to;
    };
    struct Case {
        const char* name;
        std::vector<Step> moves;
        qint64 releaseAfterMs;
        QList<quint32> markers;
        qint64 currentFrame;
        qreal opacityBeforeRelease;
    };
    const Case cases[] = {
        {"a click moves the play position", {}, 100, {20000}, 20000, 1.0},
        {"a move before the hold moves nothing", {{100, {450, 24}}}, 150, {20000}, 20000, 1.0},
        {"held, then dragged", {{250, {450, 24}}}, 300, {22500}, 0, 1.0},
        {"dragged off the strip", {{250, {450, 150}}}, 300, {}, 0, 0.4},
        {"dragged off and back", {{250, {450, 150}}, {260, {460, 26}}}, 300, {23000}, 0, 1.0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        model.setGenericMarkers({20000});
        model.setCurrentFrame(0);
        const qint64 start = now;
        press(flag);
        ASSERT_TRUE(view.markerItems(0).at(0).pressed);
        for (const Step& step : c.moves) {
            now = start + step.afterMs;
            move(step.to);
        }
        EXPECT_EQ(view.markerItems(0).at(0).opacity, c.opacityBeforeRelease);
        if (c.opacityBeforeRelease < 1.0) {
            EXPECT_EQ(view.cursor().shape(), Qt::BitmapCursor) << "the disappearing-item cursor";
        }
        now = start + c.releaseAfterMs;
        release(c.moves.empty() ? flag : c.moves.back().to);
        // As vectors: comparing two empty QLists hands memcmp a null pointer in this Qt.
        const QList<quint32> markers = model.genericMarkers();
        EXPECT_EQ(std::vector<quint32>(markers.begin(), markers.end()),
                  std::vector<quint32>(c.markers.begin(), c.markers.end()));
        EXPECT_EQ(model.currentFrame(), c.currentFrame);
        for (const MarkerItem& item : view.markerItems(0))
            EXPECT_FALSE(item.pressed);
    }

    // Let go on another of its kind, it becomes that one: two at one frame would show as one,
    // and go together at the next drag or key.
    model.setGenericMarkers({20000, 22500});
    press(flag);
    now += 250;
    move({450, 24});
    now += 50;
    release({450, 24});
    EXPECT_EQ(model.genericMarkers(), QList<quint32>{22500});

    // Held, dragged and brought back to its own column, a marker keeps its frame (not the
    // column's first, 20000) and nothing is written.
    model.setGenericMarkers({20030});
    const int writesBefore = model.writes;
    press(flag);
    now += 250;
    move({450, 24});
    move(flag);
    release(flag);
    EXPECT_EQ(model.genericMarkers(), QList<quint32>{20030});
    EXPECT_EQ(model.writes, writesBefore);
    EXPECT_FALSE(view.markerItems(0).at(0).dragX.has_value());

    // A flag taken by its edge moves by as much as the pointer, not to its middle.
    model.setGenericMarkers({20000});
    press({394, 24});
    now += 250;
    move({395, 24});
    release({395, 24});
    EXPECT_EQ(model.genericMarkers(), QList<quint32>{20050});

    // Escape during a drag puts the marker back and sends nothing.
    model.setGenericMarkers({20000});
    const int writes = model.writes;
    press(flag);
    now += 300;
    move({500, 24});
    QTest::keyClick(&view, Qt::Key_Escape);
    release({500, 24});
    EXPECT_EQ(model.writes, writes);
    EXPECT_FALSE(view.markerItems(0).at(0).dragX.has_value());

    // Dragged past the right edge, the view scrolls and the marker lands further on.
    press(flag);
    now += 300;
    move({830, 24});
    move({830, 24});
    EXPECT_GT(view.startFrame(), view.visibleMinimum()) << "scrolled while dragging";
    const qreal landed = view.geometryValues().visibleStartPoint() + 830;
    release({830, 24});
    ASSERT_EQ(model.genericMarkers().size(), 1);
    EXPECT_NEAR(model.genericMarkers().at(0), landed * 50, 50);
    EXPECT_GT(model.genericMarkers().at(0), 800 * 50);

    // At the song's end it lands at the end, not past it, where it could not be seen or taken
    // again; nor a frame short when the end falls between two points.
    for (const qint64 frames : {kSongFrames, kSongFrames + 1}) {
        SCOPED_TRACE(frames);
        if (frames != kSongFrames) {
            view.setDecodedSong(test::MemorySong::sine(frames, 440.0, 0.8),
                                QUrl("file:///longer.wav"));
            ASSERT_TRUE(QTest::qWaitFor([&] { return !view.waveform()->isScanning(); }, 20000));
        }
        view.setStartFrame(frames);
        model.setGenericMarkers({quint32(frames - 5000)});
        const QPointF nearEnd(
            double(frames - 5000) / 50.0 - view.geometryValues().visibleStartPoint(), 24);
        press(nearEnd);
        now += 300;
        move({830, 24});
        EXPECT_LE(view.markerItems(0).at(0).dragX.value_or(0) -
                      view.geometryValues().visibleStartPoint(),
                  800.0)
            << "drawn inside the view";
        release({900, 24});
        EXPECT_EQ(model.genericMarkers(), QList<quint32>{quint32(frames)});
    }
}

TEST_F(WaveformViewTest, LoopGesturesDrawMoveAndResizeTheLoop) {
    struct Case {
        const char* name;
        LoopRange before;
        double from, to;
        LoopRange after;
        bool buttonRight;
    };
    // The loop {10000, 10000} lies over points 200 … 400. Only a new loop places the button;
    // moving or resizing keeps the side the last new loop chose.
    const Case cases[] = {
        {"new, left to right", {}, 100, 300, {5000, 10000}, true},
        {"new, right to left", {}, 300, 100, {5000, 10000}, false},
        {"moved by its middle", {10000, 10000}, 300, 350, {12500, 10000}, false},
        {"right edge", {10000, 10000}, 400, 450, {10000, 12500}, false},
        {"right edge past the left", {10000, 10000}, 401, 150, {7450, 2550}, false},
        {"left edge", {10000, 10000}, 200, 250, {12500, 7500}, false},
        {"left edge past the right", {10000, 10000}, 199, 500, {20000, 5050}, false},
        {"new, over an existing loop", {10000, 10000}, 600, 700, {30000, 5000}, true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        model.setLoopRange(c.before);
        const DelegateLog before = delegate;
        press({c.from, kBandY});
        EXPECT_TRUE(view.isLoopDragging());
        move({(c.from + c.to) / 2, kBandY});
        move({c.to, kBandY});
        EXPECT_EQ(view.loopRange(), c.after) << "follows the drag";
        release({c.to, kBandY});
        EXPECT_FALSE(view.isLoopDragging());
        EXPECT_EQ(model.loopRange(), c.after) << "sent on release";
        EXPECT_EQ(view.loopButtonRightAligned(), c.buttonRight);
        EXPECT_EQ(delegate.loopBegun, before.loopBegun + 1);
        EXPECT_EQ(delegate.loopEnded, before.loopEnded + 1);
    }

    // A click on a shaking hand, moving less than the drag distance, leaves the loop as it was,
    // on either edge, in the middle or beside it. Once past that distance the drag counts from
    // the press, also when it comes back close to it.
    const int shake = QGuiApplication::styleHints()->startDragDistance() - 1;
    for (const LoopRange before : {LoopRange{}, LoopRange{10000, 10000}}) {
        for (const double x : {200.0, 300.0, 400.0, 600.0}) {
            SCOPED_TRACE(testing::Message() << before.length << " at " << x);
            model.setLoopRange(before);
            press({x, kBandY});
            move({x + shake, kBandY});
            release({x - shake, kBandY});
            EXPECT_EQ(model.loopRange(), before);
        }
    }
    model.setLoopRange({});
    press({100, kBandY});
    move({300, kBandY});
    move({103, kBandY});
    release({103, kBandY});
    EXPECT_EQ(model.loopRange(), (LoopRange{5000, 150}));

    // Escape in the middle of a move puts the loop back, sends nothing and ends the edit.
    model.setLoopRange({10000, 10000});
    const DelegateLog beforeEscape = delegate;
    press({300, kBandY});
    move({350, kBandY});
    QTest::keyClick(&view, Qt::Key_Escape);
    EXPECT_EQ(view.loopRange(), (LoopRange{10000, 10000}));
    EXPECT_FALSE(view.isLoopDragging());
    release({350, kBandY});
    EXPECT_EQ(model.loopRange(), (LoopRange{10000, 10000}));
    EXPECT_EQ(delegate.loopEnded, beforeEscape.loopEnded + 1);
    // The document's loop changed under the drag (an undo): Escape shows that one.
    press({300, kBandY});
    move({350, kBandY});
    model.setLoopRange({2000, 3000});
    move({360, kBandY});
    QTest::keyClick(&view, Qt::Key_Escape);
    release({360, kBandY});
    EXPECT_EQ(view.loopRange(), (LoopRange{2000, 3000}));
    EXPECT_EQ(model.loopRange(), (LoopRange{2000, 3000}));

    // A pointer resting past the right edge keeps scrolling and stretching the new loop.
    model.setLoopRange({});
    press({700, kBandY});
    move({830, kBandY});
    const qint64 firstStart = view.startFrame();
    EXPECT_TRUE(QTest::qWaitFor([&] { return view.startFrame() > firstStart + 2000; }, 5000));
    release({830, kBandY});
    EXPECT_EQ(model.loopRange().location, 35000u);
    EXPECT_GT(qint64(model.loopRange().location) + model.loopRange().length,
              view.geometryValues().sampleFromPoint(view.geometryValues().visibleStartPoint()))
        << "the loop reaches into the newly shown part";
}

TEST_F(WaveformViewTest, ALoopOrPlayPositionChangeRepaintsWhatChangedAndNoMore) {
    // Each step repaints only the region its paint event names, over the picture before it;
    // the result must be the picture after it, pixel for pixel. `untouched` is a point of the
    // waveform band the step must leave alone. A scroll (to the start frame `x`) repaints
    // everything; a play position (the frame `x`) only where the line was and is.
    enum Action { Press, Move, Release, Bind, Scroll, Position };
    struct Step {
        Action action;
        qreal x;
        qreal untouched;
        LoopRange loop = {};
    };
    struct Case {
        const char* name;
        LoopRange before;
        qint64 currentFrame;
        std::vector<Step> steps;
    };
    // The loop {10000, 10000} lies over points 200 … 400. A press with no loop changes nothing
    // to paint: drawing a new loop starts with a move.
    const Case cases[] = {
        {"right edge dragged",
         {10000, 10000},
         0,
         {{Press, 400, 300}, {Move, 410, 300}, {Move, 380, 300}, {Release, 380, 300}}},
        {"moved by its middle",
         {10000, 10000},
         0,
         {{Press, 300, 300}, {Move, 340, 320}, {Release, 340, 320}}},
        {"drawn anew, its button changing sides",
         {},
         0,
         {{Move, 300, 500}, {Move, 60, 500}, {Release, 60, 300}}},
        {"set and cleared through the binding, around the play position",
         {},
         15000,
         {{Bind, 0, 500, {10000, 10000}}, {Bind, 0, 500, {10000, 2000}}, {Bind, 0, 500, {}}}},
        {"the play position moved after a scroll by 10 points",
         {},
         15000,
         {{Scroll, 20500, -1}, {Position, 16000, 500}}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        model.setLoopRange(c.before);
        model.setCurrentFrame(c.currentFrame);
        if (c.steps.front().action == Move)
            press({100, kBandY});
        for (const Step& step : c.steps) {
            SCOPED_TRACE(testing::Message() << "step " << &step - c.steps.data());
            const QImage before = paintedWhole();
            const QRegion repainted = paintsAfter([&] {
                switch (step.action) {
                case Press:
                    return press({step.x, kBandY});
                case Move:
                    return move({step.x, kBandY});
                case Release:
                    return release({step.x, kBandY});
                case Bind:
                    return model.setLoopRange(step.loop);
                case Scroll:
                    return view.setStartFrame(qint64(step.x));
                case Position:
                    return model.setCurrentFrame(qint64(step.x));
                }
            });
            ASSERT_FALSE(repainted.isEmpty());
            EXPECT_FALSE(repainted.contains(QPoint(int(step.untouched), int(kBandY))))
                << repainted.boundingRect().x() << " … " << repainted.boundingRect().right();
            const QImage shown = painted(before, repainted);
            const QImage expected = paintedWhole();
            int wrong = 0;
            QPoint first;
            for (int y = 0; y < expected.height(); ++y)
                for (int x = 0; x < expected.width(); ++x)
                    if (!test::coloursClose(shown.pixelColor(x, y), expected.pixelColor(x, y)) &&
                        wrong++ == 0)
                        first = {x, y};
            EXPECT_EQ(wrong, 0) << "stale or stray device pixels, the first at " << first.x()
                                << ", " << first.y();
        }
    }
}

TEST_F(WaveformViewTest, RulerScrubsWhilePausedAndTheLoopButtonClicks) {
    struct Case {
        bool playing;
        bool scrubbing;
        int scrubsAnnounced;
    };
    for (const Case c : {Case{false, true, 1}, Case{true, false, 0}}) {
        SCOPED_TRACE(c.playing ? "playing" : "paused");
        const int scrubs = delegate.scrubs;
        const int scrubsEnded = delegate.scrubsEnded;
        view.setPlaying(c.playing);
        model.setCurrentFrame(10000);
        // The press moves the play head from point 200: its old place is painted over.
        const QRegion painted = paintsAfter([&] { press({300, 9}); });
        EXPECT_TRUE(painted.contains(QPoint(200, int(kBandY))));
        EXPECT_EQ(model.currentFrame(), 15000);
        EXPECT_EQ(view.isScrubbing(), c.scrubbing);
        EXPECT_EQ(delegate.scrubs, scrubs + c.scrubsAnnounced);
        move({320, 9});
        EXPECT_EQ(model.currentFrame(), 16000);
        release({320, 9});
        EXPECT_FALSE(view.isScrubbing());
        // Only a scrub that began ends: its end stops the playback it started.
        EXPECT_EQ(delegate.scrubsEnded, scrubsEnded + c.scrubsAnnounced);
    }
    // Held right of the middle while the song plays, the play head stays under the pointer and
    // the view stays where it is, however the pointer wavers.
    const qint64 startFrame = view.startFrame();
    press({600, 9});
    for (int wobble = 0; wobble <= 40; ++wobble)
        move({600.0 + wobble % 2, 9});
    EXPECT_EQ(model.currentFrame(), 30000);
    EXPECT_EQ(view.startFrame(), startFrame);
    release({600, 9});
    // So does a loop drawn while the play head runs on past the middle, and out of sight.
    press({100, kBandY});
    for (const qint64 heard : {30000, 35000, 60000})
        view.setCurrentFrame(heard);
    move({300, kBandY});
    release({300, kBandY});
    EXPECT_EQ(view.startFrame(), startFrame);
    EXPECT_EQ(model.loopRange(), (LoopRange{5000, 10000}));
    model.setLoopRange({});
    view.setPlaying(false);

    // The button of a loop over points 400 … 500, right-aligned: 8 points inside its corner.
    model.setLoopRange({20000, 5000});
    const QRectF button = view.loopButtonHitRect();
    const QRectF band = view.waveformRect();
    EXPECT_EQ(button.right(), 500 - 8);
    EXPECT_EQ(button.bottom(), band.bottom() - 1 - 8);
    int clicks = 0;
    QObject::connect(&view, &WaveformView::loopButtonClicked, [&] { ++clicks; });
    press(button.center());
    release(button.center());
    EXPECT_EQ(clicks, 1);
    press(button.center());
    move({100, 100});
    release({100, 100});
    EXPECT_EQ(clicks, 1) << "released outside the button";
    EXPECT_EQ(model.loopRange(), (LoopRange{20000, 5000})) << "the button is not the loop";
    // It shows what a click does: pause only while the loop itself plays.
    const auto centre = [&] {
        return test::pixelAt(test::grabImage(view), button.center().x(), button.center().y());
    };
    const QColor play = centre();
    view.setPlaying(true);
    EXPECT_EQ(centre(), play) << "playing, not looping";
    view.setLooping(true);
    EXPECT_NE(centre(), play) << "looping";
    view.setPlaying(false);
    view.setLooping(false);
    model.setLoopRange({});
    EXPECT_TRUE(view.loopButtonHitRect().isEmpty()) << "no loop, no button";

    // Dragged past the right edge, the play head waits at it while the view scrolls on, and is
    // in sight when let go.
    press({700, 9});
    move({830, 9});
    const qint64 unscrolled = view.startFrame();
    ASSERT_TRUE(QTest::qWaitFor([&] { return view.startFrame() > unscrolled + 2000; }, 5000));
    release({830, 9});
    const auto geometry = view.geometryValues();
    const double headX =
        geometry.pointFromSample(model.currentFrame()) - geometry.visibleStartPoint();
    EXPECT_GE(headX, view.width() - 1.0);
    EXPECT_LE(headX, view.width());
}

TEST_F(WaveformViewTest, APlayHeadClickedRightOfTheMiddleEasesBackInASecondAtAnyScreenRate) {
    // Clicked at point 600 of 800, 200 points right of the middle: 200 points a second back,
    // whether the play head moves every 50 ms or at a screen's 60 times a second.
    view.setPlaying(true);
    for (const qint64 intervalMs : {50, 16}) {
        SCOPED_TRACE(intervalMs);
        model.setCurrentFrame(20000);
        view.setStartFrame(20000);
        press({600, 9});
        release({600, 9});
        ASSERT_EQ(model.currentFrame(), 30000);
        qint64 elapsedMs = 0;
        while (view.startFrame() != model.currentFrame() && elapsedMs < 5000) {
            now += intervalMs;
            elapsedMs += intervalMs;
            model.setCurrentFrame(model.currentFrame() + intervalMs * 44);
        }
        EXPECT_NEAR(elapsedMs, 1000, 2 * intervalMs);
    }
    view.setPlaying(false);
}

TEST_F(WaveformViewTest, PixelsShowCursorLoopMarkerAndTicksWhereTheGeometrySays) {
    const WaveformPalette& palette = WaveformPalette::shared();
    model.setChorusMarkers({20000});   // point 400
    model.setLoopRange({25000, 5000}); // points 500 … 600
    model.setCurrentFrame(15000);      // point 300
    QImage image = test::grabImage(view);
    EXPECT_EQ(test::pixelAt(image, view.cursorX(), 100), palette.cursorlineColor);
    EXPECT_NE(test::pixelAt(image, view.cursorX() + 3, 100), palette.cursorlineColor);
    const QColor inLoop = test::pixelAt(image, 550, view.waveformRect().top() + 4);
    const QColor outside = test::pixelAt(image, 450, view.waveformRect().top() + 4);
    EXPECT_GT(inLoop.blue(), inLoop.red() + 60) << "the loop band is blue";
    EXPECT_GT(outside.red(), 200) << "outside it the background is light";
    const QColor flag = test::pixelAt(image, 395.5, 22); // beside its letter
    EXPECT_GT(flag.red(), flag.blue() + 60) << "the chorus flag is orange";

    // A major tick (every ten steps of 4410 frames) at 1 s, a minor one at 1.1 s.
    view.setStartFrame(44100); // the left edge near point 482, in whole device pixels
    image = test::grabImage(view);
    const qreal major = 882 - view.shift() + 0.5, minor = 970 - view.shift() + 0.5;
    EXPECT_EQ(test::pixelAt(image, major, 8), palette.timeIndicatorLineColor);
    EXPECT_EQ(test::pixelAt(image, major, 17), palette.timeIndicatorLineColor);
    EXPECT_EQ(test::pixelAt(image, minor, 15), palette.timeIndicatorLineColor);
    EXPECT_NE(test::pixelAt(image, minor, 8), palette.timeIndicatorLineColor);

    // At the song's very end, scrolled there, the play head shows in the last column, wherever
    // the left edge's rounding to whole device pixels puts the rest (four widths give it every
    // quarter of a point).
    model.setCurrentFrame(441000);
    const int width = view.width();
    for (int wider = 0; wider < 4; ++wider) {
        SCOPED_TRACE(wider);
        view.resize(width + wider, view.height());
        view.setStartFrame(441000);
        ASSERT_LT(view.cursorX(), view.width());
        EXPECT_EQ(test::pixelAt(test::grabImage(view), view.cursorX(), 100),
                  palette.cursorlineColor);
    }
    view.resize(width, view.height());
    // Scrolled back to the start, it is out of sight: no play head at the right edge.
    view.setStartFrame(0);
    EXPECT_NE(test::pixelAt(test::grabImage(view), view.width() - 0.5, 100),
              palette.cursorlineColor);
}

TEST_F(WaveformViewTest, ALoopEdgesGripIsSharpAtAnyRatio) {
    // Across the middle of the left edge's knob (points 496 … 505), clear of its outline: two
    // lines of whole device pixels in the grip's colour, and the knob's own colour beside them.
    model.setLoopRange({25000, 5000}); // edges at points 500 and 600
    const QColor grip(0x35, 0x62, 0x9a);
    const qreal row = view.waveformRect().center().y() + 0.5;
    for (const qreal ratio : {1.0, 1.25, 1.5, 1.75, 2.0}) {
        SCOPED_TRACE(ratio);
        QImage image(int(std::ceil(view.width() * ratio)), int(std::ceil(view.height() * ratio)),
                     QImage::Format_ARGB32_Premultiplied);
        image.setDevicePixelRatio(ratio);
        image = painted(image, view.rect());
        std::map<QRgb, int> counts;
        std::vector<int> lineColumns;
        const int y = test::devicePixel(row, ratio);
        for (int x = test::devicePixel(498, ratio); x < test::devicePixel(503, ratio); ++x) {
            const QColor colour = image.pixelColor(x, y);
            if (test::coloursClose(colour, grip, 3))
                lineColumns.push_back(x);
            else
                ++counts[colour.rgba()];
        }
        const int width = std::max(1, int(std::round(ratio)));
        ASSERT_EQ(int(lineColumns.size()), 2 * width);
        EXPECT_EQ(lineColumns[std::size_t(width) - 1] - lineColumns.front() + 1, width);
        EXPECT_EQ(lineColumns.back() - lineColumns[std::size_t(width)] + 1, width);
        EXPECT_EQ(counts.size(), 1u) << "a colour between the grip's and the knob's";
    }
}

TEST_F(WaveformViewTest, ALoopsEdgeNeverSplitsASecondsLineAtAnyRatio) {
    // At 1.5 and 1.75 a line one point wide is two device pixels, more than a point: the lines
    // of two neighbouring points share a pixel, and an edge at the point after a second's line
    // would cut that line in two colours. Edges on a second and a point or a point and a half
    // either side, at two zooms, each drawn at every ratio whatever this run's is.
    const qreal bandRow = view.waveformRect().top() + 4; // clear of the waveform and the knobs
    const auto draw = [&](qreal ratio) {
        QImage image(int(std::ceil(view.width() * ratio)), int(std::ceil(view.height() * ratio)),
                     QImage::Format_ARGB32_Premultiplied);
        image.setDevicePixelRatio(ratio);
        return painted(image, view.rect());
    };
    int linesInLoops = 0;
    for (const double zoom : {0.4, 0.8}) {
        model.setZoomLevel(zoom);
        view.setStartFrame(0);
        const double framesPerPoint = view.geometryValues().framesPerPoint();
        for (const qreal ratio : {1.0, 1.25, 1.5, 1.75, 2.0}) {
            model.setLoopRange({});
            const QImage plain = draw(ratio);
            const int row = int(bandRow * ratio);
            const QColor background = plain.pixelColor(int(5 * ratio), row); // between lines
            for (const double leftPoints : {-1.5, 0.0, 1.0})
                for (const double rightPoints : {-1.0, 0.0, 1.0}) {
                    SCOPED_TRACE(testing::Message()
                                 << "zoom " << zoom << ", ratio " << ratio << ", edges moved by "
                                 << leftPoints << " and " << rightPoints << " points");
                    const auto frame = [&](double seconds, double points) {
                        return quint32(std::lround(seconds * 44100 + points * framesPerPoint));
                    };
                    const quint32 start = frame(1, leftPoints);
                    model.setLoopRange({start, frame(3, rightPoints) - start});
                    const QImage looped = draw(ratio);
                    // Each line, as the columns that differ from the background without a loop.
                    for (int x = 0; x < plain.width(); ++x) {
                        if (plain.pixelColor(x, row) == background)
                            continue;
                        const QColor first = looped.pixelColor(x, row);
                        linesInLoops += first != plain.pixelColor(x, row);
                        for (; x < plain.width() && plain.pixelColor(x, row) != background; ++x)
                            EXPECT_EQ(looped.pixelColor(x, row), first)
                                << "a line split at device column " << x;
                    }
                }
        }
    }
    EXPECT_GT(linesInLoops, 0) << "no line lay inside a loop";
}

TEST_F(WaveformViewTest, AMarkersTipThePlayHeadAndTheRulersTickAtOneTimeShareAColumn) {
    const qreal ratio = test::testPixelRatio();
    // The middle, in device pixels, of what differs from the row's colour far to the left
    // between points `from` and `to` of row y, each pixel weighted by how much it differs.
    const auto middle = [&](const QImage& image, qreal y, qreal from, qreal to) {
        const int row = int(y * ratio);
        const QColor background = image.pixelColor(int(from * ratio) - 20, row);
        double sum = 0.0, weighted = 0.0;
        for (int column = int(from * ratio); column < int(to * ratio); ++column) {
            const QColor c = image.pixelColor(column, row);
            const double weight = std::abs(c.red() - background.red()) +
                                  std::abs(c.green() - background.green()) +
                                  std::abs(c.blue() - background.blue());
            sum += weight;
            weighted += weight * (column + 0.5);
        }
        return sum > 0.0 ? weighted / sum : -1.0;
    };
    model.setChorusMarkers({20000}); // point 400
    model.setCurrentFrame(0);
    const QRectF strip = view.markerStripRect();
    // Just under the flag's body, where only its point is drawn.
    const double tip = middle(test::grabImage(view), strip.top() + 13.5, 390, 411);
    model.setCurrentFrame(20000);
    const double head = middle(test::grabImage(view), 100, 390, 411);
    // Within less than half a device pixel: at 1.25 a point is not a whole number of them.
    EXPECT_NEAR(head, 400.5 * ratio, 0.45);
    EXPECT_NEAR(tip, head, 0.45);
    // A second's tick on the ruler, at 1 s (point 882), the view scrolled there.
    model.setCurrentFrame(0);
    view.setStartFrame(44100);
    const double tick = middle(test::grabImage(view), 12, 882 - view.shift() - 3,
                               882 - view.shift() + 4); // clear of its label
    EXPECT_NEAR(tick, (882.5 - view.shift()) * ratio, 0.45);
}

TEST_F(WaveformViewTest, CursorMovesWithoutRepaintingTheWaveformAndScrollingPaintsTheStrip) {
    const qreal ratio = test::testPixelRatio();
    const int stripHeight = int(std::ceil(view.height() * ratio)); // ruler and waveform
    view.setPlaying(true);

    const qint64 pixels = view.waveformPixelsDrawn();
    // A frame's worth of movement during playback: three points.
    const QRegion cursorPaints = paintsAfter([&] { view.setCurrentFrame(150); });
    ASSERT_FALSE(cursorPaints.isEmpty());
    EXPECT_LE(cursorPaints.boundingRect().width(), 3 + 11)
        << "the strips of the old and the new line only";
    EXPECT_EQ(view.waveformPixelsDrawn(), pixels) << "the waveform was redrawn";

    // Ten points of scrolling draw a strip ten points wide, in whole device pixels.
    view.setStartFrame(200000);
    view.repaint();
    const qint64 before = view.waveformPixelsDrawn();
    paintsAfter([&] { view.setStartFrame(200000 + 500); });
    const qint64 columns = (view.waveformPixelsDrawn() - before) / stripHeight;
    EXPECT_GE(columns, std::floor(10 * ratio));
    EXPECT_LE(columns, std::ceil(10 * ratio));
    // Scrolled in steps that end part-way through points and device pixels, the picture kept
    // and moved is the one drawn whole: no tick or line at a strip's edge is lost.
    for (qint64 start = 200500; start > 150000; start -= 437) { // backwards: strips on the left
        SCOPED_TRACE(start);
        if (start != view.startFrame()) // the first is where the scroll above left it
            paintsAfter([&] { view.setStartFrame(start); });
        const QImage scrolled = test::grabImage(view);
        view.redrawWaveform();
        ASSERT_EQ(scrolled, test::grabImage(view));
    }

    // A zoom step redraws everything.
    const qint64 beforeZoom = view.waveformPixelsDrawn();
    paintsAfter([&] { model.setZoomLevel(0.95); });
    EXPECT_EQ(view.waveformPixelsDrawn() - beforeZoom,
              qint64(std::ceil(800 * ratio)) * stripHeight);
}

TEST_F(WaveformViewTest, WheelScrollsTheViewScrubsOverTheRulerAndCarriesADrag) {
    auto wheel = [&](QPointF at, QPoint pixels) {
        QWheelEvent event(at, view.mapToGlobal(at), pixels, pixels * 8, Qt::NoButton, {},
                          Qt::NoScrollPhase, false);
        QCoreApplication::sendEvent(&view, &event);
    };
    struct Case {
        const char* name;
        QPointF at;
        QPoint pixels;
        qint64 startFrame, currentFrame;
    };
    const Case cases[] = {
        {"vertical over the waveform", {400, 120}, {0, 10}, 199500, 210000},
        {"horizontal wins a tie", {400, 120}, {-4, 4}, 200200, 210000},
        {"over the ruler it scrubs", {400, 9}, {0, 10}, 200000, 209500},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        model.setCurrentFrame(210000); // visible: points 3600 … 4400 show 180000 … 220000
        view.setStartFrame(200000);
        wheel(c.at, c.pixels);
        EXPECT_EQ(view.startFrame(), c.startFrame);
        EXPECT_EQ(model.currentFrame(), c.currentFrame);
    }
    // In the middle of a drag, over the ruler too, the wheel scrolls and what is dragged stays
    // under the pointer: the loop's end, or the play head.
    view.setStartFrame(200000);
    press({100, kBandY});
    move({300, kBandY});
    wheel({300, kBandY}, {0, 20});
    release({300, kBandY});
    EXPECT_EQ(model.loopRange(), (LoopRange{185000, 9000}));
    press({600, 9});
    wheel({600, 9}, {0, 20});
    EXPECT_EQ(view.startFrame(), 198000);
    EXPECT_EQ(model.currentFrame(), 208000);
    release({600, 9});
    // Less than one point moves nothing (the angle delta of a fine wheel: 4 ÷ 8 points).
    QWheelEvent fine(QPointF(400, 120), view.mapToGlobal(QPointF(400, 120)), QPoint(), QPoint(0, 4),
                     Qt::NoButton, {}, Qt::NoScrollPhase, false);
    view.setStartFrame(200000);
    QCoreApplication::sendEvent(&view, &fine);
    EXPECT_EQ(view.startFrame(), 200000);
}

TEST(WaveformViewScan, EachBlockIsDrawnAsItArrivesRedrawingOnlyItsColumns) {
    // Thirty seconds whose level steps every tenth of a second, so every column differs,
    // decoded three seconds at a time while the whole song shows.
    constexpr qint64 kFrames = 30 * 44100;
    std::vector<float> samples(kFrames);
    for (qint64 i = 0; i < kFrames; ++i)
        samples[i] = float(0.5 + 0.4 * ((i / 4410) % 9) / 8.0) * (i % 2 ? 1.0f : -1.0f);
    const auto song = std::make_shared<test::MemorySong>(samples, samples);
    song->decodeOnlyUpTo(0);
    WaveformView view;
    view.resize(800, 200);
    view.setZoomLevel(0.0);
    view.setDecodedSong(song, QUrl("file:///song.wav"));
    view.show();
    view.activateWindow(); // which repaints it all, and must not fall within a step
    ASSERT_TRUE(QTest::qWaitForWindowActive(&view));
    test::waitUntilPaintsSettle(view);
    QRegion widest;
    for (qint64 decoded = 3 * 44100; decoded <= kFrames; decoded += 3 * 44100) {
        test::PaintLog log;
        view.installEventFilter(&log);
        song->decodeOnlyUpTo(decoded);
        if (decoded == kFrames)
            song->finishDecoding();
        const qint64 wholeBlocks = decoded / 88200 * 88200; // scanned in blocks of 2 s
        ASSERT_TRUE(QTest::qWaitFor(
            [&] { return view.waveform()->availableFrameCount() >= wholeBlocks; }, 20000));
        QTest::qWait(20);
        view.removeEventFilter(&log);
        if (log.painted.boundingRect().width() > widest.boundingRect().width())
            widest = log.painted;
        // What is read is drawn (a dark blue-grey), the rest is background (light grey).
        const qreal readTo = 800.0 * double(wholeBlocks) / double(kFrames);
        const qreal peakY = view.waveformRect().center().y() - view.waveformRect().height() * 0.2;
        const QImage image = test::grabImage(view);
        EXPECT_LT(test::pixelAt(image, readTo - 20, peakY).red(), 150) << decoded;
        if (readTo < 780) {
            EXPECT_GT(test::pixelAt(image, readTo + 20, peakY).red(), 200) << decoded;
        }
    }
    ASSERT_TRUE(QTest::qWaitFor([&] { return !view.waveform()->isScanning(); }, 20000));
    QTest::qWait(20);
    // Three seconds are 80 of the 800 points: each step repaints about that much, not all.
    EXPECT_LT(widest.boundingRect().width(), 200);
    // And the picture built in pieces is the one drawn whole.
    const QImage inPieces = test::grabImage(view);
    view.redrawWaveform();
    EXPECT_EQ(inPieces, test::grabImage(view));
}

TEST(WaveformViewPeaks, EveryShortPeakIsDrawnToItsHeightAtEveryZoom) {
    // Clicks of 10 ms every half second: narrower than a point when zoomed out, they must
    // still reach their height in the upper and the lower half, wherever they fall between
    // pixels.
    constexpr qint64 kClickFrames = 441;
    constexpr qint64 kSpacing = 22050;
    std::vector<float> clicks(kSongFrames, 0.0f);
    for (qint64 start = 5000; start + kClickFrames < kSongFrames; start += kSpacing)
        for (qint64 i = 0; i < kClickFrames; ++i)
            clicks[std::size_t(start + i)] = float(0.8 * std::sin(2.0 * M_PI * 1000.0 * i / 44100));
    WaveformView view;
    view.resize(740, 200); // zoomed out, not quite 12 bins of peaks a point
    view.setDecodedSong(std::make_shared<test::MemorySong>(clicks, clicks),
                        QUrl("file:///clicks.wav"));
    ASSERT_TRUE(QTest::qWaitFor([&] { return !view.waveform()->isScanning(); }, 20000));
    view.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&view));
    const QRectF band = view.waveformRect();
    const qreal middle = band.top() + std::floor(band.height() * 0.5);
    const qreal reach = std::floor(band.height() * 0.5) * 0.7; // short of the 0.8 drawn
    for (const double zoom : {0.0, 0.2, 0.45, 0.7}) {
        view.setZoomLevel(zoom);
        const QImage image = test::grabImage(view);
        const WaveformGeometry geometry = view.geometryValues();
        const qreal step = 1.0 / image.devicePixelRatio();
        int seen = 0;
        for (qint64 start = 5000; start + kClickFrames < kSongFrames; start += kSpacing) {
            const qreal left = geometry.pointFromSample(start) - view.shift();
            const qreal right = geometry.pointFromSample(start + kClickFrames) - view.shift();
            if (left < 2 || right > view.width() - 2)
                continue;
            ++seen;
            for (const qreal y : {middle - reach, middle + reach}) {
                bool drawn = false;
                for (qreal x = std::floor(left) - 1; x <= right + 1 && !drawn; x += step)
                    drawn = test::pixelAt(image, x, y).red() < 150;
                EXPECT_TRUE(drawn) << "zoom " << zoom << ", the click at frame " << start
                                   << (y < middle ? " above" : " below") << " the midline";
            }
        }
        EXPECT_GE(seen, 3) << "zoom " << zoom;
    }
}

TEST(WaveformViewFocus, TabReachesTheViewAndRingsItRepaintingOnlyTheRing) {
    // A button, then the view. Tab rings the view; a click takes the ring away, and a click
    // does not bring it, nor does the window giving it the focus.
    QWidget window;
    auto* button = new QPushButton("Before", &window);
    button->setGeometry(0, 0, 100, 30);
    auto* view = new WaveformView(&window);
    view->setGeometry(0, 40, 800, 200);
    view->setDecodedSong(test::MemorySong::sine(kSongFrames, 440.0, 0.8), QUrl("file:///s.wav"));
    ASSERT_TRUE(QTest::qWaitFor([&] { return !view->waveform()->isScanning(); }, 20000));
    window.resize(800, 240);
    window.show();
    window.activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&window));
    QWidget other; // a window to go to and come back from
    other.resize(100, 100);
    const auto ringed = [&] {
        const QImage image = test::grabImage(*view);
        for (const QPointF at : {QPointF(0.5, kBandY), QPointF(400, 0.5), QPointF(799.5, kBandY),
                                 QPointF(400, 199.5)}) {
            if (test::pixelAt(image, at.x(), at.y()) != look::focusRing)
                return false;
        }
        return true;
    };
    // The ring's strips, whole device pixels 2 points wide, lie inside the view's 3 outer points.
    const QRegion ring = QRegion(view->rect()) - QRegion(view->rect().adjusted(3, 3, -3, -3));
    const auto paintsOf = [&](const std::function<void()>& change) {
        QCoreApplication::processEvents();
        test::PaintLog log;
        view->installEventFilter(&log);
        change();
        QTest::qWait(50);
        view->removeEventFilter(&log);
        return log.painted;
    };
    const auto click = [](QWidget* widget, QPoint at) {
        QTest::mouseClick(widget, Qt::LeftButton, {}, at);
    };
    const struct {
        const char* how;
        std::function<void()> step;
        bool focused, ring;
    } steps[] = {
        {"Tab from the button", [&] { QTest::keyClick(button, Qt::Key_Tab); }, true, true},
        {"a click in the view",
         [&] {
             click(view, {300, 150});
         },
         true, false},
        {"Tab away", [&] { QTest::keyClick(view, Qt::Key_Tab); }, false, false},
        {"Shift+Tab back", [&] { QTest::keyClick(button, Qt::Key_Backtab); }, true, true},
        {"another window and back",
         [&] {
             other.show();
             other.activateWindow();
             ASSERT_TRUE(QTest::qWaitForWindowActive(&other));
             window.activateWindow();
             ASSERT_TRUE(QTest::qWaitForWindowActive(&window));
         },
         true, true},
        {"a click on the button",
         [&] {
             click(button, {50, 15});
         },
         false, false},
        {"a click in the view again",
         [&] {
             click(view, {300, 150});
         },
         true, false},
    };
    bool wasRinged = false;
    for (const auto& step : steps) {
        SCOPED_TRACE(step.how);
        const QRegion painted = paintsOf(step.step);
        EXPECT_EQ(view->hasFocus(), step.focused);
        EXPECT_EQ(ringed(), step.ring);
        if (step.ring != wasRinged) { // the whole ring drawn or taken away, nothing inside it
            EXPECT_TRUE(ring.subtracted(painted).isEmpty());
            EXPECT_TRUE(painted.subtracted(ring).isEmpty());
        }
        wasRinged = step.ring;
    }
}

TEST_F(WaveformViewTest, ScreenReadersReadThePlayPositionAndTheLoop) {
    QAccessibleInterface* accessible = QAccessible::queryAccessibleInterface(&view);
    ASSERT_NE(accessible, nullptr);
    ASSERT_NE(accessible->valueInterface(), nullptr);
    model.setCurrentFrame(44100 * 61);
    model.setLoopRange({44100 * 60, 44100 * 15});
    EXPECT_EQ(accessible->text(QAccessible::Name), "Waveform");
    EXPECT_EQ(accessible->text(QAccessible::Value), "01:01");
    // The words are the description too, which is all of them a screen reader gets from Qt.
    EXPECT_EQ(accessible->text(QAccessible::Description), "01:01, loop from 01:00 to 01:15");
    model.setCurrentFrame(44100 * 62 - 1);
    model.setLoopRange({});
    EXPECT_EQ(accessible->text(QAccessible::Description), "01:01");
    // The value is in seconds: a reader may speak the bare number.
    QAccessibleValueInterface* value = accessible->valueInterface();
    EXPECT_EQ(value->currentValue().toDouble(), (44100 * 62 - 1) / 44100.0);
    EXPECT_EQ(value->maximumValue().toDouble(), kSongFrames / 44100.0);
    EXPECT_EQ(value->minimumStepSize().toDouble(), 1.0);
    value->setCurrentValue(2.0);
    EXPECT_EQ(model.currentFrame(), 88200) << "a value set by the reader goes to the document";

    // A marker dropped or taken away at the play head changes the words (and so is told, as
    // every change of a description is); one elsewhere does not.
    const struct {
        const char* name;
        QList<quint32> chorus, generic;
        const char* words;
    } steps[] = {
        {"chorus here", {88200}, {}, "00:02, at a chorus marker"},
        {"a generic one too", {88200}, {88200, 500}, "00:02, at a marker, at a chorus marker"},
        {"the chorus taken away", {}, {88200, 500}, "00:02, at a marker"},
        {"the generic one moved away", {}, {88201}, "00:02"},
        {"one elsewhere", {100}, {88201}, "00:02"},
    };
    model.setLoopRange({88000, 4410});
    for (const auto& step : steps) {
        SCOPED_TRACE(step.name);
        model.setChorusMarkers(step.chorus);
        model.setGenericMarkers(step.generic);
        EXPECT_EQ(accessible->text(QAccessible::Description),
                  QString(step.words) + ", loop from 00:01 to 00:02");
    }
}

TEST_F(WaveformViewTest, TipsSayWhatAMarkerOrTheLoopButtonIsAndDoes) {
    const struct {
        std::uint32_t kind;
        qint64 frame;
        const char* said;
    } markers[] = {{0, 0, "Marker at 00:00.000"},
                   {1, 44100 * 65 + 15876, "Chorus marker at 01:05.360"},
                   {3, 44100 * 59 + 44056, "Bridge marker at 00:59.999"},
                   {2, 44100 * 3600, "Verse marker at 60:00.000"}};
    for (const auto& marker : markers) {
        SCOPED_TRACE(marker.said);
        EXPECT_EQ(markerToolTip(marker.kind, marker.frame),
                  QString(marker.said) +
                      "\nClick to go here; drag to move it, or off the strip to remove it.");
    }
    // Shown over the flag of a marker at point 400 and the button of a loop over 500 … 600,
    // and over nothing else.
    model.setChorusMarkers({20000});
    model.setLoopRange({25000, 5000});
    const auto tipAt = [&](const QPointF& where) {
        QHelpEvent help(QEvent::ToolTip, where.toPoint(), view.mapToGlobal(where.toPoint()));
        QCoreApplication::sendEvent(&view, &help);
        return QToolTip::isVisible() ? QToolTip::text() : QString();
    };
    EXPECT_EQ(tipAt({400, 24}), markerToolTip(1, 20000));
    EXPECT_EQ(tipAt(view.loopButtonHitRect().center()), "Play the Loop (L)");
    view.setPlaying(true);
    view.setLooping(true);
    EXPECT_EQ(tipAt(view.loopButtonHitRect().center()), "Stop the Loop (L)");
    for (const QPointF nothing : {QPointF(300, 24), QPointF(300, kBandY)}) {
        tipAt(nothing);
        EXPECT_TRUE(QTest::qWaitFor([] { return !QToolTip::isVisible(); }, 2000));
        tipAt(view.loopButtonHitRect().center());
    }
}

#include "WaveformViewTest.moc"
