// Every view looks the same wherever it lies in a window: at 1.25 or 1.5 a view one point in
// starts part-way through a device pixel, and what it snaps to whole pixels must still land on
// them there.
#include "controls/HUDPitchControlView.h"
#include "controls/HUDSpeedControlView.h"
#include "controls/HUDSwitchControlView.h"
#include "controls/HUDTimeDisplayView.h"
#include "effects/TeskEQSettingsView.h"
#include "effects/TeskPanSlider.h"
#include "effects/TeskVocalRemovalSettingsView.h"
#include "waveform/TeskScroller.h"
#include "waveform/WaveformView.h"
#include "widgets/KLTexturedSlider.h"

#include "support/MemorySong.h"
#include "support/ViewTesting.h"

#include <QRegion>
#include <QTest>
#include <QUrl>
#include <cmath>
#include <functional>
#include <gtest/gtest.h>
#include <memory>

using namespace tesk;

namespace {

struct PlacedView {
    const char* name;
    std::function<QWidget*(QWidget& window)> make;
    QSize size;
};

/// The device pixels of `view` as the window shows it, from where its origin falls.
QImage shownInWindow(const QImage& window, const QWidget& view, const QImage& alone) {
    const qreal ratio = window.devicePixelRatio();
    const QPoint origin(int(std::lround(view.x() * ratio)), int(std::lround(view.y() * ratio)));
    return window.copy(QRect(origin, alone.size()));
}

/// How many pixels of the inside of `view` (a device pixel's border left out, where it meets
/// its neighbours) differ between `a` and `b` by more than a shade. Its child widgets are left
/// out: each keeps to the window's pixels from where it lies itself.
int differingPixels(const QWidget& view, const QImage& a, const QImage& b) {
    const qreal ratio = a.devicePixelRatio();
    QRegion own(1, 1, std::min(a.width(), b.width()) - 2, std::min(a.height(), b.height()) - 2);
    for (const QWidget* child : view.findChildren<QWidget*>(Qt::FindDirectChildrenOnly)) {
        const QRectF place(QPointF(child->pos()) * ratio, QSizeF(child->size()) * ratio);
        own -= place.toAlignedRect().adjusted(-1, -1, 1, 1);
    }
    int differing = 0;
    for (const QRect& rect : own)
        for (int y = rect.top(); y <= rect.bottom(); ++y)
            for (int x = rect.left(); x <= rect.right(); ++x)
                differing += !test::coloursClose(a.pixelColor(x, y), b.pixelColor(x, y), 8);
    return differing;
}

} // namespace

TEST(ViewPlacement, EveryViewLooksTheSameWhereverItLiesInTheWindow) {
    const std::shared_ptr<test::MemorySong> song = test::MemorySong::sine(441000, 220.0, 0.7);
    const PlacedView views[] = {
        {"waveform",
         [&](QWidget& window) {
             auto* view = new WaveformView(&window);
             view->setDecodedSong(song, QUrl("file:///song.wav"));
             EXPECT_TRUE(QTest::qWaitFor([&] { return !view->waveform()->isScanning(); }, 20000));
             view->setLoopRange({44100, 88200});
             view->setMarkers({22050, 150000}, 1);
             view->setCurrentFrame(66150);
             return view;
         },
         {600, 160}},
        {"pitch", [](QWidget& window) { return new HUDPitchControlView(&window); }, {190, 44}},
        {"speed", [](QWidget& window) { return new HUDSpeedControlView(&window); }, {180, 56}},
        {"switch", [](QWidget& window) { return new HUDSwitchControlView(&window); }, {90, 44}},
        {"time", [](QWidget& window) { return new HUDTimeDisplayView(&window); }, {200, 50}},
        {"scroller", [](QWidget& window) { return new TeskScroller(&window); }, {404, 15}},
        {"zoom", [](QWidget& window) { return new KLTexturedSlider(&window); }, {160, 22}},
        {"equalizer", [](QWidget& window) { return new TeskEQSettingsView(&window); }, {408, 140}},
        {"vocal band",
         [](QWidget& window) { return new TeskVocalRemovalSettingsView(&window); },
         {300, 100}},
        {"pan", [](QWidget& window) { return new TeskPanSlider(&window); }, {200, 20}},
    };
    for (const PlacedView& placed : views) {
        SCOPED_TRACE(placed.name);
        QWidget window;
        window.resize(placed.size + QSize(8, 8));
        QWidget* view = placed.make(window);
        view->setAutoFillBackground(true); // the same ground in the window and alone
        window.show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
        // Offsets that start a view at each quarter of a device pixel at 1.25.
        for (const int offset : {0, 1, 2, 3}) {
            SCOPED_TRACE(offset);
            view->setGeometry(QRect(QPoint(offset, offset), placed.size));
            const QImage alone = test::grabImage(*view);
            const QImage shown = shownInWindow(test::grabImage(window), *view, alone);
            EXPECT_EQ(differingPixels(*view, shown, alone), 0);
        }
    }
}
