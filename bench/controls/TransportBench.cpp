// What the transport panel costs while a song plays: the time display updated and painted (the
// window does it 15 times a second), and one step of a knob drag (the value, the repaint and the
// callout following the knob), at device pixel ratio 2.
#include "controls/HUDPitchControlView.h"
#include "controls/HUDTimeDisplayView.h"
#include "support/TeskBench.h"

#include <QApplication>
#include <QImage>
#include <QMouseEvent>
#include <QPainter>
#include <benchmark/benchmark.h>

namespace {

using namespace tesk;

QApplication& application() {
    static int argc = 3;
    static char name[] = "tesk-bench";
    static char platform[] = "-platform";
    static char offscreen[] = "offscreen";
    static char* argv[] = {name, platform, offscreen, nullptr};
    // Never destroyed: tearing a QApplication down in the exit handlers crashes.
    static QApplication* app = new QApplication(argc, argv);
    return *app;
}

/// Paints `view` into an image at ratio 2, as the screen would.
void paintAtRatio2(QWidget& view, QImage& image) {
    QPainter painter(&image);
    view.render(&painter, QPoint(), QRegion(), QWidget::DrawChildren);
}

void BM_TimeDisplayUpdate(benchmark::State& state) {
    application();
    HUDTimeDisplayView view;
    view.resize(view.sizeHint());
    QImage image(view.size() * 2, QImage::Format_ARGB32_Premultiplied);
    image.setDevicePixelRatio(2.0);
    qint64 frame = 0;
    for (auto _ : state) {
        frame += 44100 / 15; // a fifteenth of a second of song
        view.setCurrentFrame(frame);
        paintAtRatio2(view, image);
        benchmark::DoNotOptimize(image.constBits());
    }
}
BENCHMARK(BM_TimeDisplayUpdate)->Unit(benchmark::kMicrosecond);

void BM_PitchKnobDragStep(benchmark::State& state) {
    application();
    HUDPitchControlView view;
    view.resize(view.sizeHint());
    view.show();
    QImage image(view.size() * 2, QImage::Format_ARGB32_Premultiplied);
    image.setDevicePixelRatio(2.0);
    const QPointF knob = view.sliderKnobRect().center();
    QMouseEvent press(QEvent::MouseButtonPress, knob, view.mapToGlobal(knob), Qt::LeftButton,
                      Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(&view, &press);
    int step = 0;
    for (auto _ : state) {
        const QPointF point(10 + (step++ % 170), knob.y());
        QMouseEvent move(QEvent::MouseMove, point, view.mapToGlobal(point), Qt::NoButton,
                         Qt::LeftButton, Qt::NoModifier);
        QCoreApplication::sendEvent(&view, &move);
        paintAtRatio2(view, image);
        benchmark::DoNotOptimize(image.constBits());
    }
}
BENCHMARK(BM_PitchKnobDragStep)->Unit(benchmark::kMicrosecond);

const bool kTargets = [] {
    bench::declareTarget("transport_time_display_update", "BM_TimeDisplayUpdate", "ms", 1e-6, 0.2);
    bench::declareTarget("transport_knob_drag_step", "BM_PitchKnobDragStep", "ms", 1e-6, 1.0);
    return true;
}();

} // namespace
