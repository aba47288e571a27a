// What the transport panel costs while a song plays: the time display updated and painted (the
// window does it 15 times a second), and one step of a knob drag (the value, the repaint and the
// callout following the knob), at device pixel ratio 2.
// With TESK_TRANSPORT_PNG set to a folder, it also saves each control on the panel's colour at
// ratios 1 and 2, to look at.
#include "controls/HUDPitchControlView.h"
#include "controls/HUDSpeedControlView.h"
#include "controls/HUDSwitchControlView.h"
#include "controls/HUDTimeDisplayView.h"
#include "support/BenchApplication.h"
#include "support/TeskBench.h"
#include "widgets/TeskLook.h"

#include <QApplication>
#include <QDir>
#include <QImage>
#include <QMouseEvent>
#include <QPainter>
#include <benchmark/benchmark.h>

namespace {

using namespace tesk;

/// Paints `view` into an image at ratio 2, as the screen would.
void paintAtRatio2(QWidget& view, QImage& image) {
    QPainter painter(&image);
    view.render(&painter, QPoint(), QRegion(), QWidget::DrawChildren);
}

/// `view` on the panel's dark colour, at `ratio`, saved as NAME-xRATIO.png in `folder`.
void savePicture(QWidget& view, const QString& folder, const QString& name) {
    for (const qreal ratio : {1.0, 2.0}) {
        QImage image(view.size() * ratio, QImage::Format_ARGB32_Premultiplied);
        image.setDevicePixelRatio(ratio);
        image.fill(QColor(60, 60, 60));
        {
            QPainter painter(&image);
            painter.fillRect(view.rect(), look::hudPanel);
        }
        view.render(&image, QPoint(), QRegion(), QWidget::DrawChildren);
        image.save(QDir(folder).filePath(QStringLiteral("%1-x%2.png").arg(name).arg(ratio)));
    }
}

void savePictures() {
    const QString folder = qEnvironmentVariable("TESK_TRANSPORT_PNG");
    if (folder.isEmpty())
        return;
    HUDTimeDisplayView time;
    time.resize(time.sizeHint());
    time.setCurrentFrame(44100 * 83 + 20110);
    savePicture(time, folder, QStringLiteral("time"));
    HUDSwitchControlView switchView;
    switchView.resize(switchView.sizeHint());
    switchView.setPitchDirty(true);
    savePicture(switchView, folder, QStringLiteral("switch"));
    HUDSpeedControlView speed;
    speed.resize(speed.sizeHint());
    speed.setPlaybackSpeed(1.1);
    savePicture(speed, folder, QStringLiteral("speed"));
    speed.setPlaybackSpeed(0.75);
    speed.show();
    const QPointF knob = speed.knobRect().center();
    QMouseEvent hover(QEvent::MouseMove, knob, speed.mapToGlobal(knob), Qt::NoButton, Qt::NoButton,
                      Qt::NoModifier);
    QCoreApplication::sendEvent(&speed, &hover);
    savePicture(speed, folder, QStringLiteral("speed-hovered"));
    HUDPitchControlView pitch;
    pitch.resize(pitch.sizeHint());
    pitch.setPitchAdjustment(-2.5);
    savePicture(pitch, folder, QStringLiteral("pitch"));
    pitch.show();
    pitch.step(TransportRules::PitchStep::Up);
    savePicture(*pitch.callout(), folder, QStringLiteral("callout"));
}

void BM_TimeDisplayUpdate(benchmark::State& state) {
    bench::application<QApplication>();
    static const bool saved = (savePictures(), true);
    (void)saved;
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
    bench::application<QApplication>();
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
