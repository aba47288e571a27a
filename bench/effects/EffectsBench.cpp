// What the effects panel costs while a song plays: one refresh of the three editors with fresh
// spectra (the window's display timer does it 15 times a second), painted at device pixel ratio
// 2 in a 1600 × 170 panel; and the glide to a chosen preset, counted frame by frame against the
// 30 frames a second it should show.
#include "audio/TeskEffectsSettings.h"
#include "effects/LiveSpectrum.h"
#include "effects/TeskEQSettingsView.h"
#include "effects/TeskEffectsViewController.h"
#include "effects/TeskPanningSpectrumEffectView.h"
#include "effects/TeskVocalRemovalSettingsView.h"
#include "support/BenchApplication.h"
#include "support/TeskBench.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QImage>
#include <QPainter>
#include <QTimer>
#include <benchmark/benchmark.h>

#include <cmath>
#include <ctime>

namespace {

using namespace tesk;

double processCpuMilliseconds() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return double(now.tv_sec) * 1e3 + double(now.tv_nsec) / 1e6;
}

/// A playing panel: every effect on, a live spectrum.
struct PlayingPanel {
    TeskEffectsSettings settings;
    TeskEffectsViewController panel;
    test::LiveSpectrum spectra[4] = {test::liveSpectrum(1), test::liveSpectrum(2),
                                     test::liveSpectrum(3), test::liveSpectrum(4)};
    PlayingPanel() {
        settings.setEqualizerEnabled(true);
        settings.setVocalReductionEnabled(true);
        settings.setPanningEnabled(true);
        settings.setPanAmount(0.7);
        panel.setRepresentedObject(&settings);
        panel.resize(1600, 170);
        panel.setFrequencyTable(spectra[0].frequencyTable);
    }
};

void BM_RefreshThreeEditors(benchmark::State& state) {
    bench::application<QApplication>();
    PlayingPanel playing;
    playing.panel.show(); // lays the panel out
    QCoreApplication::processEvents();
    TeskSpectrumEffectView* editors[] = {playing.panel.eqSettingsView(),
                                         playing.panel.vocalRemovalSettingsView(),
                                         playing.panel.panSpectrumView()};
    std::vector<QImage> images;
    for (TeskSpectrumEffectView* editor : editors) {
        images.emplace_back(editor->size() * 2, QImage::Format_ARGB32_Premultiplied);
        images.back().setDevicePixelRatio(2.0);
    }
    std::size_t frame = 0;
    const double cpuBefore = processCpuMilliseconds();
    for (auto _ : state) {
        // What the timer hands over: two fresh vectors, then a repaint of each editor.
        const test::LiveSpectrum& fresh = playing.spectra[frame++ % 4];
        playing.panel.setFrequencyResponse(fresh.left, 0);
        playing.panel.setFrequencyResponse(fresh.right, 1);
        for (std::size_t i = 0; i < 3; ++i) {
            QPainter painter(&images[i]);
            editors[i]->render(&painter, QPoint(), QRegion(), QWidget::DrawChildren);
        }
        benchmark::DoNotOptimize(images[0].constBits());
    }
    // The painter hands parts of large fills to helper threads: count their time too.
    state.counters["process_cpu_ms"] =
        (processCpuMilliseconds() - cpuBefore) /
        double(std::max<benchmark::IterationCount>(1, state.iterations()));
}
BENCHMARK(BM_RefreshThreeEditors)->Unit(benchmark::kMillisecond)->UseRealTime();

/// A preset chosen on a showing panel, with the event loop running as in the application:
/// counts the frames the equalizer editor paints during its glide.
void BM_PresetGlideFrames(benchmark::State& state) {
    bench::application<QApplication>();
    PlayingPanel playing;
    playing.panel.show();
    QCoreApplication::processEvents();
    TeskEQSettingsView* editor = playing.panel.eqSettingsView();

    struct PaintCounter : QObject {
        int paints = 0;
        bool eventFilter(QObject*, QEvent* event) override {
            paints += event->type() == QEvent::Paint;
            return false;
        }
    } counter;
    editor->installEventFilter(&counter);

    const int expected =
        1 +
        int(std::round(ProgressMarkAnimation::kDuration * ProgressMarkAnimation::kFramesPerSecond));
    int presetItem = 3;
    double dropped = 0;
    double painted = 0;
    int glides = 0;
    for (auto _ : state) {
        counter.paints = 0;
        playing.panel.equalizerPresetChanged(presetItem);
        presetItem = presetItem == 3 ? 4 : 3; // Isolate Bass and Isolate Mids by turns
        QEventLoop loop;
        QTimer poll;
        QObject::connect(&poll, &QTimer::timeout, [&] {
            if (!editor->presetAnimation().isAnimating())
                loop.quit();
        });
        poll.start(5);
        loop.exec();
        QCoreApplication::processEvents(); // the last frame's paint
        const int shown = editor->presetAnimation().framesShown();
        dropped += std::max(0, expected - shown);
        painted += counter.paints;
        ++glides;
    }
    state.counters["dropped_frames"] = dropped / std::max(1, glides);
    state.counters["painted_frames"] = painted / std::max(1, glides);
}
BENCHMARK(BM_PresetGlideFrames)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(30);

const bool targets = [] {
    bench::declareTarget("effects_refresh_three_editors_1600x170_ratio2",
                         "BM_RefreshThreeEditors/real_time", "ms", 1e-6, 2.0);
    bench::declareCounterTarget("effects_refresh_three_editors_process_cpu",
                                "BM_RefreshThreeEditors/real_time", "process_cpu_ms", "ms", 2.0);
    bench::declareCounterTarget("effects_preset_glide_dropped_frames",
                                "BM_PresetGlideFrames/iterations:30/real_time", "dropped_frames",
                                "frames", 0.0);
    return true;
}();

} // namespace
