#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>
#include <functional>

namespace tesk {

/// A short glide that reports its progress only at marks 1/20 apart (0, 0.05 ... 1.0): the
/// editors move their knobs or band edges to a preset's values through it. It runs for 0.2 s on
/// an ease-out curve, ticking at 30 frames a second from the main thread's event loop; each tick
/// reports the last mark that the eased progress has reached, and the last tick reports 1.0, so
/// the display always ends on the final values. Nothing blocks. Main thread.
class ProgressMarkAnimation : public QObject {
    Q_OBJECT
public:
    static constexpr double kDuration = 0.2;         // seconds
    static constexpr double kMarkSpacing = 1.0 / 20; // progress between marks
    static constexpr int kFramesPerSecond = 30;

    /// `reachedMark` is called with each mark's progress, from 0 to 1.
    explicit ProgressMarkAnimation(std::function<void(double progress)> reachedMark,
                                   QObject* parent = nullptr);

    /// Starts from mark 0 (reported at once), or starts again when running.
    void start();
    /// Stops where it is; no more marks are reported.
    void stop();
    /// When running, reports 1.0 at once and stops: a gesture that takes over in the middle of
    /// a glide starts from the final values, which the model already holds.
    void finish();
    bool isAnimating() const { return mTimer.isActive(); }
    /// How many ticks reported a mark since the last start (for the frame count benchmark).
    int framesShown() const { return mFramesShown; }

    /// Reports the mark reached `seconds` after the start, as a tick would: for tests, which
    /// step the glide without waiting. Ends the animation at or after kDuration.
    void advanceTo(double seconds);

    /// The last mark reached by an ease-out glide after `seconds`.
    static double markAt(double seconds);

private:
    std::function<void(double)> mReachedMark;
    QTimer mTimer;
    QElapsedTimer mClock;
    double mLastMark = -1.0;
    int mFramesShown = 0;
};

} // namespace tesk
