// Runs Tesk's real window in this process and plays a song in it, as a musician would: opens
// SONG, slows it to half speed, raises it three semitones, shows the effects panel with every
// effect on, and presses Space. With --resize, the window is resized and the panel toggled all
// the while. After SECONDS it prints what the whole process cost:
//   peak_rss_kb, cpu_seconds (user and system), wall_seconds, the same two from five seconds
//   in (playing_cpu_seconds, playing_wall_seconds), underruns, played_frames.
// Usage: tesk_window_probe SONG SECONDS [--resize]
#include "app/TeskAppController.h"
#include "app/TeskApplication.h"
#include "audio/ProcessingChainPool.h"
#include "audio/TeskExtendedAudioFilePlayer.h"
#include "audio/TeskOutputAudioUnit.h"
#include "document/TeskDocumentController.h"
#include "waveform/Waveform.h"
#include "waveform/WaveformView.h"
#include "window/TeskWindowLayer.h"

#include <QElapsedTimer>
#include <QFile>
#include <QKeyEvent>
#include <QTimer>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/resource.h>

namespace {

/// This process's own peak resident memory (see the engine's memory probe for why not
/// getrusage's).
long peakResidentKilobytes() {
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly | QIODevice::Text))
        return -1;
    for (const QByteArray& line : status.readAll().split('\n')) {
        if (line.startsWith("VmHWM:"))
            return line.mid(6).trimmed().split(' ').first().toLong();
    }
    return -1;
}

double cpuSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& t) { return double(t.tv_sec) + t.tv_usec / 1e6; };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

/// Prints the moment `view` paints a song's complete waveform, and ends the process then.
class DrawnWatch : public QObject {
public:
    DrawnWatch(tesk::WaveformView* view, const QElapsedTimer& clock)
        : mView(view)
        , mClock(clock) {
        view->installEventFilter(this);
        // The last block may have been painted before the scan reported its end; a complete
        // waveform that nothing paints any more is painted once more, as any later change would.
        connect(&mPoll, &QTimer::timeout, this, [this] {
            if (complete() && !mRepainted) {
                mRepainted = true;
                mView->update();
            }
        });
        mPoll.start(1);
    }

protected:
    bool eventFilter(QObject* object, QEvent* event) override {
        if (object == mView && event->type() == QEvent::Paint && complete()) {
            mView->removeEventFilter(this);
            // Reported once this paint is done.
            QTimer::singleShot(0, [this] {
                std::printf("drawn_seconds %.3f\n", mClock.elapsed() / 1000.0);
                std::printf("waveform_frames %lld\n",
                            (long long)mView->waveform()->availableFrameCount());
                std::fflush(stdout);
                std::_Exit(0);
            });
        }
        return false;
    }

private:
    bool complete() const {
        const tesk::Waveform* waveform = mView->waveform();
        return waveform && !waveform->isScanning() && waveform->availableFrameCount() > 0;
    }

    tesk::WaveformView* mView;
    const QElapsedTimer& mClock;
    QTimer mPoll;
    bool mRepainted = false;
};

} // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: tesk_window_probe SONG SECONDS [--resize]\n");
        return 1;
    }
    const QString song = QString::fromLocal8Bit(argv[1]);
    const int seconds = std::atoi(argv[2]);
    const bool resize = argc > 3 && std::strcmp(argv[3], "--resize") == 0;
    const bool untilDrawn = argc > 3 && std::strcmp(argv[3], "--until-drawn") == 0;

    QElapsedTimer wall;
    wall.start();
    const double cpuAtStart = cpuSeconds();
    tesk::TeskApplication application(argc, argv);
    tesk::ProcessingChainPool::prepare();
    tesk::TeskAppController controller;
    controller.openFiles({song});
    const QList<tesk::TeskDocument*> documents = controller.documentController()->documents();
    if (documents.isEmpty() || !documents.first()->player()) {
        std::fprintf(stderr, "tesk_window_probe: the song did not open\n");
        return 1;
    }
    tesk::TeskDocument* document = documents.first();
    QWidget* window = controller.windowLayer()->windowFor(document);
    if (untilDrawn) {
        auto* view = window ? window->findChild<tesk::WaveformView*>() : nullptr;
        if (!view) {
            std::fprintf(stderr, "tesk_window_probe: the window has no waveform view\n");
            return 1;
        }
        DrawnWatch watch(view, wall);
        QTimer::singleShot(seconds * 1000, [] {
            std::fprintf(stderr, "tesk_window_probe: the waveform was not drawn in time\n");
            std::_Exit(1);
        });
        return application.exec();
    }
    document->setPlaybackSpeed(0.5);
    document->setPitchAdjustment(3.0);
    tesk::TeskEffectsSettings* effects = document->effectsSettings();
    effects->setEqualizerEnabled(true);
    effects->setVocalReductionEnabled(true);
    effects->setPanningEnabled(true);
    effects->setPanAmount(0.4);
    document->setEffectsVisible(true);
    QKeyEvent space(QEvent::KeyPress, Qt::Key_Space, Qt::NoModifier, QStringLiteral(" "));
    QCoreApplication::sendEvent(window, &space);

    // Opening (decoding, scanning the waveform) is done after a few seconds; what playing costs
    // is counted from then on.
    constexpr int kSettleSeconds = 5;
    double cpuAtSettled = 0.0;
    qint64 wallAtSettled = 0;
    QTimer::singleShot(kSettleSeconds * 1000, [&] {
        cpuAtSettled = cpuSeconds();
        wallAtSettled = wall.elapsed();
    });

    QTimer worker;
    int step = 0;
    if (resize) {
        // A restless user: the window grows and shrinks, and the panel comes and goes.
        QObject::connect(&worker, &QTimer::timeout, [&] {
            ++step;
            window->resize(900 + (step % 20) * 40, window->height());
            if (step % 25 == 0)
                document->setEffectsVisible(!document->effectsVisible());
        });
        worker.start(50);
    }
    // Reported from inside the event loop: quitting would close the window and ask about the
    // changed document.
    QTimer::singleShot(seconds * 1000, [&] {
        const tesk::TeskExtendedAudioFilePlayer* player = document->player();
        std::printf("peak_rss_kb %ld\n", peakResidentKilobytes());
        std::printf("cpu_seconds %.3f\n", cpuSeconds() - cpuAtStart);
        std::printf("wall_seconds %.3f\n", wall.elapsed() / 1000.0);
        std::printf("playing_cpu_seconds %.3f\n", cpuSeconds() - cpuAtSettled);
        std::printf("playing_wall_seconds %.3f\n", (wall.elapsed() - wallAtSettled) / 1000.0);
        std::printf("underruns %llu\n",
                    (unsigned long long)(player ? player->outputAudioUnit()->underrunCount() : 0));
        std::printf("played_frames %lld\n", (long long)document->currentFrame());
        std::printf("playing %d\n", document->isFilePlaying() ? 1 : 0);
        std::fflush(stdout);
        // The figures are out; tearing the window down is not what is measured.
        std::_Exit(0);
    });
    return application.exec();
}
