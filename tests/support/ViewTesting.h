#pragma once

// Helpers for tests of views: read the pixels of a grab() where the geometry puts things, at the
// device pixel ratio the test runs with (QT_SCALE_FACTOR, see tesk_add_test's SCALE_FACTORS).

#include <QColor>
#include <QCoreApplication>
#include <QEvent>
#include <QGuiApplication>
#include <QImage>
#include <QPaintEvent>
#include <QPalette>
#include <QRegion>
#include <QScreen>
#include <QTest>
#include <QWidget>
#include <cmath>
#include <cstdlib>
#include <ostream>

namespace tesk::test {

/// The device pixel ratio views are drawn at in this run.
inline qreal testPixelRatio() {
    return QGuiApplication::primaryScreen()->devicePixelRatio();
}

/// The device pixel that holds the logical coordinate `logical`.
inline int devicePixel(qreal logical, qreal ratio) {
    return int(std::floor(logical * ratio + 1e-9));
}

/// What the user sees of `widget`, at the run's ratio.
inline QImage grabImage(QWidget& widget) {
    return widget.grab().toImage();
}

/// The colour of the device pixel under the logical point (x, y) of `image`.
inline QColor pixelAt(const QImage& image, qreal x, qreal y) {
    const qreal ratio = image.devicePixelRatio();
    return image.pixelColor(devicePixel(x, ratio), devicePixel(y, ratio));
}

/// Colours equal within `tolerance` on each channel (alpha included).
inline bool coloursClose(const QColor& a, const QColor& b, int tolerance = 2) {
    return std::abs(a.red() - b.red()) <= tolerance &&
           std::abs(a.green() - b.green()) <= tolerance &&
           std::abs(a.blue() - b.blue()) <= tolerance &&
           std::abs(a.alpha() - b.alpha()) <= tolerance;
}

/// Gathers what the paint events of the widgets it is installed on repaint.
struct PaintLog : QObject {
    QRegion painted;
    int paints = 0;
    bool eventFilter(QObject*, QEvent* event) override {
        if (event->type() == QEvent::Paint) {
            painted += static_cast<QPaintEvent*>(event)->region();
            ++paints;
        }
        return false;
    }
};

/// Waits until `widget` has gone a tenth of a second without painting (five seconds at most): on
/// a loaded machine the paints of a window just shown or activated can come late, inside the
/// step a test means to measure.
inline void waitUntilPaintsSettle(QWidget& widget) {
    for (int tries = 0; tries < 50; ++tries) {
        PaintLog log;
        widget.installEventFilter(&log);
        QTest::qWait(100);
        widget.removeEventFilter(&log);
        if (log.paints == 0)
            return;
    }
}

/// Whether all of `widget` repaints when its window goes behind another and comes to the front
/// again: views that draw themselves paler in a window behind others.
inline bool repaintsOnActivation(QWidget& widget) {
    // As on desktops whose palette is the same in both states, where Qt repaints nothing itself.
    QWidget* window = widget.window();
    QPalette palette = window->palette();
    for (int role = 0; role < QPalette::NColorRoles; ++role) {
        const auto colourRole = QPalette::ColorRole(role);
        palette.setBrush(QPalette::Inactive, colourRole,
                         palette.brush(QPalette::Active, colourRole));
    }
    window->setPalette(palette);
    window->show();
    if (!QTest::qWaitForWindowExposed(window))
        return false;
    QCoreApplication::processEvents(); // the first paint
    PaintLog log;
    widget.installEventFilter(&log);
    bool repainted = true;
    // Sent as the application sends them to the window, which hands them to its children.
    for (const QEvent::Type change : {QEvent::WindowDeactivate, QEvent::WindowActivate}) {
        log.painted = QRegion();
        QEvent event(change);
        QCoreApplication::sendEvent(window, &event);
        repainted =
            repainted &&
            QTest::qWaitFor([&] { return (QRegion(widget.rect()) - log.painted).isEmpty(); }, 1000);
    }
    widget.removeEventFilter(&log);
    return repainted;
}

} // namespace tesk::test

/// Colours print as #aarrggbb in failure messages.
inline void PrintTo(const QColor& colour, std::ostream* out) {
    *out << colour.name(QColor::HexArgb).toStdString();
}
