#pragma once

#include <QCoreApplication>

namespace tesk::bench {

/// The Qt application of a benchmark process, made on first use: a QCoreApplication, or a
/// QApplication for benchmarks of views, which then draw offscreen. It is never destroyed:
/// tearing a QApplication down in the exit handlers crashes.
template <class Application = QCoreApplication> Application& application() {
    static int argc = 3;
    static char name[] = "tesk-bench";
    static char platform[] = "-platform";
    static char offscreen[] = "offscreen";
    static char* argv[] = {name, platform, offscreen, nullptr};
    static auto* const made = new Application(argc, argv);
    return *made;
}

} // namespace tesk::bench
