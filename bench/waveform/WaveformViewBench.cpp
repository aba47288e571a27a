// How fast the waveform view paints a ten-minute song in a 1600 × 200 view, against the frame
// budget at 60 Hz (16.7 ms): a full repaint, a scroll of 10 points while following playback,
// a move of the play position, a step of a loop edge's drag, and a zoom step of the window's
// 0.05.
//
// With TESK_WAVEFORM_VIEW_PNG set to a folder, it also saves the view at ratios 1, 1.25 and 2
// there.
#include "support/BenchApplication.h"
#include "support/SoundFileTools.h"
#include "support/TeskBench.h"
#include "waveform/TeskScroller.h"
#include "waveform/WaveformView.h"

#include <QApplication>
#include <QDir>
#include <QImage>
#include <QPainter>
#include <QTest>
#include <benchmark/benchmark.h>

#include <cmath>
#include <memory>

namespace {

using namespace tesk;

constexpr int kWidth = 1600;
constexpr int kHeight = 200;

/// One view of the ten-minute song, scanned to its end, with a loop and markers.
WaveformView& songView() {
    // Never destroyed either, like the application it needs.
    static WaveformView* view = [] {
        bench::application<QApplication>();
        auto* made = new WaveformView();
        made->resize(kWidth, kHeight);
        made->show(); // the size takes effect when shown
        made->setFileURL(QUrl::fromLocalFile(test::generatedSongFile(600)));
        (void)QTest::qWaitFor([&] { return made->waveform() && !made->waveform()->isScanning(); },
                              600000);
        made->setLoopRange({44100 * 62, 44100 * 9});
        made->setMarkers({44100 * 30, 44100 * 95}, 0);
        made->setMarkers({44100 * 60}, 1);
        made->setMarkers({44100 * 75}, 2);
        made->setMarkers({44100 * 90}, 3);
        return made;
    }();
    return *view;
}

QImage imageFor(qreal ratio) {
    QImage image(int(std::ceil(kWidth * ratio)), int(std::ceil(kHeight * ratio)),
                 QImage::Format_ARGB32_Premultiplied);
    image.setDevicePixelRatio(ratio);
    return image;
}

void paint(WaveformView& view, QImage& image, const QRegion& clip) {
    QPainter painter(&image);
    view.paintView(painter, clip, image.devicePixelRatio());
}

void savePictures() {
    const QString folder = qEnvironmentVariable("TESK_WAVEFORM_VIEW_PNG");
    if (folder.isEmpty())
        return;
    WaveformView& view = songView();
    for (const double zoom : {0.0, 0.9}) {
        view.setZoomLevel(zoom);
        view.setStartFrame(44100 * 70);
        view.setCurrentFrame(44100 * 66);
        for (const qreal ratio : {1.0, 1.25, 2.0}) {
            QImage image = imageFor(ratio);
            view.redrawWaveform();
            paint(view, image, view.rect());
            image.save(QDir(folder).filePath(
                QString("waveform-view-zoom%1-x%2.png").arg(zoom).arg(ratio)));
        }
    }
    TeskScroller scroller;
    scroller.resize(kWidth, 15);
    scroller.setMaxValue(double(view.frameCount()));
    scroller.setKnobProportion(0.1);
    scroller.setValue(0.3);
    for (std::uint32_t kind = 0; kind < kMarkerKindCount; ++kind)
        scroller.setMarkers(view.markersForType(kind) + QList<quint32>{quint32(kind * 5000000)},
                            kind);
    for (const qreal ratio : {1.0, 2.0}) {
        QImage image(int(kWidth * ratio), int(15 * ratio), QImage::Format_ARGB32_Premultiplied);
        image.setDevicePixelRatio(ratio);
        image.fill(Qt::white);
        scroller.render(&image);
        image.save(QDir(folder).filePath(QString("scroller-x%1.png").arg(ratio)));
    }
}

void BM_FullRepaint(benchmark::State& state, double zoom, qreal ratio) {
    static const bool saved = (savePictures(), true);
    (void)saved;
    WaveformView& view = songView();
    view.setZoomLevel(zoom);
    view.setStartFrame(44100 * 200);
    QImage image = imageFor(ratio);
    for (auto _ : state) {
        view.redrawWaveform();
        paint(view, image, view.rect());
    }
}
BENCHMARK_CAPTURE(BM_FullRepaint, zoom0_ratio1, 0.0, 1.0)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_FullRepaint, zoom0_ratio2, 0.0, 2.0)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_FullRepaint, zoom09_ratio1, 0.9, 1.0)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_FullRepaint, zoom09_ratio2, 0.9, 2.0)->Unit(benchmark::kMillisecond);

/// Playback moves the play position 10 points past the centre at each repaint, so the view
/// scrolls by 10 points; the counter is the waveform columns drawn per repaint, in points.
void BM_ScrollWhileFollowing(benchmark::State& state, qreal ratio) {
    WaveformView& view = songView();
    view.setZoomLevel(0.9);
    view.setLoopRange({});
    view.setPlaying(true);
    view.setCurrentFrame(44100 * 100);
    QImage image = imageFor(ratio);
    paint(view, image, view.rect());
    const qint64 step = view.geometryValues().sampleFromPoint(10.0);
    const qint64 stripHeight = qint64(std::ceil(kHeight * ratio)); // ruler and waveform
    qint64 drawn = 0;
    qint64 repaints = 0;
    for (auto _ : state) {
        if (view.currentFrame() + step > 44100 * 500) {
            // Back to the start: a jump, which redraws everything, is not a scroll.
            state.PauseTiming();
            view.setCurrentFrame(44100 * 100);
            paint(view, image, view.rect());
            state.ResumeTiming();
        }
        const qint64 before = view.waveformPixelsDrawn();
        view.setCurrentFrame(view.currentFrame() + step);
        paint(view, image, view.rect());
        drawn += view.waveformPixelsDrawn() - before;
        ++repaints;
    }
    view.setPlaying(false);
    state.counters["columns"] = double(drawn) / double(stripHeight) / ratio / double(repaints);
}
BENCHMARK_CAPTURE(BM_ScrollWhileFollowing, ratio1, 1.0)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_ScrollWhileFollowing, ratio2, 2.0)->Unit(benchmark::kMillisecond);

/// The play position moves one point, paused: only the two strips around the old and the new
/// line are painted. The counter is the waveform pixels drawn over the run (none expected).
void BM_CursorMove(benchmark::State& state, qreal ratio) {
    WaveformView& view = songView();
    view.setZoomLevel(0.9);
    view.setPlaying(false);
    view.setStartFrame(44100 * 100);
    view.setCurrentFrame(44100 * 100);
    QImage image = imageFor(ratio);
    paint(view, image, view.rect());
    const qint64 step = view.geometryValues().sampleFromPoint(1.0);
    const qint64 before = view.waveformPixelsDrawn();
    for (auto _ : state) {
        const qreal oldX = view.cursorX();
        // Stay on screen: a cursor that leaves the view scrolls it, which is another figure.
        qint64 next = view.currentFrame() + step;
        if (view.cursorX() > kWidth - 20)
            next = 44100 * 100 - 700 * step;
        view.setCurrentFrame(next);
        const qreal newX = view.cursorX();
        const QRect strip(int(std::floor(std::min(oldX, newX))) - 5, 0,
                          int(std::abs(newX - oldX)) + 11, kHeight);
        paint(view, image, strip);
    }
    state.counters["waveform_pixels"] = double(view.waveformPixelsDrawn() - before);
}
BENCHMARK_CAPTURE(BM_CursorMove, ratio1, 1.0)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_CursorMove, ratio2, 2.0)->Unit(benchmark::kMillisecond);

/// A loop's right edge dragged back and forth by 2 points, the loop filling the view: the view
/// repaints the strips the edge swept and the loop button, as its paint event would.
void BM_LoopEdgeDrag(benchmark::State& state, qreal ratio) {
    WaveformView& view = songView();
    // Zoomed to fit the loop, as for fine work on its edges.
    const LoopRange start{44100 * 62, 44100 * 9};
    view.setLoopRange(start);
    view.setZoomLevel(view.geometryValues().loopZoomLevel(start.length));
    view.setStartFrame(start.location + start.length / 2);
    QImage image = imageFor(ratio);
    paint(view, image, view.rect());
    const auto buttonRect = [&] { return view.loopButtonHitRect().toAlignedRect(); };
    const quint32 step = quint32(view.geometryValues().sampleFromPoint(2.0));
    bool out = true;
    for (auto _ : state) {
        const LoopRange before = view.loopRange();
        const QRect oldButton = buttonRect();
        view.setLoopRange({start.location, start.length + (out ? step : 0)});
        out = !out;
        paint(view, image,
              view.loopChangeRegion(before, view.loopRange()) + oldButton + buttonRect());
    }
    view.setLoopRange(start);
}
BENCHMARK_CAPTURE(BM_LoopEdgeDrag, ratio1, 1.0)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_LoopEdgeDrag, ratio2, 2.0)->Unit(benchmark::kMillisecond);

void BM_ZoomStep(benchmark::State& state, qreal ratio) {
    WaveformView& view = songView();
    view.setStartFrame(44100 * 200);
    QImage image = imageFor(ratio);
    bool in = true;
    for (auto _ : state) {
        view.setZoomLevel(in ? 0.55 : 0.5);
        in = !in;
        paint(view, image, view.rect());
    }
}
BENCHMARK_CAPTURE(BM_ZoomStep, ratio2, 2.0)->Unit(benchmark::kMillisecond);

const bool targets = [] {
    using tesk::bench::declareCounterTarget;
    using tesk::bench::declareTarget;
    declareTarget("waveform_view_full_repaint_zoom0_ratio2", "BM_FullRepaint/zoom0_ratio2", "ms",
                  1e-6, 4.0);
    declareTarget("waveform_view_full_repaint_zoom09_ratio2", "BM_FullRepaint/zoom09_ratio2", "ms",
                  1e-6, 4.0);
    declareTarget("waveform_view_full_repaint_zoom0_ratio1", "BM_FullRepaint/zoom0_ratio1", "ms",
                  1e-6, 4.0);
    declareTarget("waveform_view_scroll_following_ratio2", "BM_ScrollWhileFollowing/ratio2", "ms",
                  1e-6, 1.0);
    declareCounterTarget("waveform_view_scroll_columns", "BM_ScrollWhileFollowing/ratio2",
                         "columns", "points", 10.0);
    declareTarget("waveform_view_cursor_move_ratio2", "BM_CursorMove/ratio2", "ms", 1e-6, 0.2);
    declareCounterTarget("waveform_view_cursor_waveform_pixels", "BM_CursorMove/ratio2",
                         "waveform_pixels", "pixels", 0.0);
    declareTarget("waveform_view_zoom_step_ratio2", "BM_ZoomStep/ratio2", "ms", 1e-6, 8.0);
    return true;
}();

} // namespace
