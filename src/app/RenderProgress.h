#pragma once

#include <QElapsedTimer>
#include <QString>
#include <cstdio>

namespace tesk {

/// What `tesk-render` shows while it works, on standard error: a bar redrawn in place on a
/// terminal, a plain line every tenth of the way when the output goes to a file or a pipe (so
/// logs stay readable), nothing when quiet.
/// Main thread.
class RenderProgress {
public:
    enum class Style { Bar, Lines, Silent };

    /// Bar when `stream` is a terminal, else Lines; Silent when `quiet`.
    static Style styleFor(std::FILE* stream, bool quiet);

    RenderProgress(Style style, std::FILE* stream);
    ~RenderProgress();

    RenderProgress(const RenderProgress&) = delete;
    RenderProgress& operator=(const RenderProgress&) = delete;

    /// Export: `fraction` of the file written, 0 to 1. Elapsed time counts from construction.
    void showExport(double fraction);
    /// Playback: the frame heard, in seconds, within [first, last] of what is played (last
    /// before first when playing backwards).
    void showPlayback(double positionSeconds, double firstSeconds, double lastSeconds, float speed,
                      double pitchSemitones);
    /// Redraws the bar so its clock moves on while the fraction does not. Export only.
    void tick();
    /// The export reached its end: the bar at 100 %, ended with a new line.
    void finishExport();
    /// Ends a bar or status line in progress, so a message that follows starts on a line of its
    /// own.
    void endLine();

    /// "m:ss" (hours added when needed), for elapsed and remaining times.
    static QString formatDuration(double seconds);
    /// The bar's text: a 30-character bar, the percentage, elapsed and remaining time.
    static QString barText(double fraction, double elapsedSeconds);

private:
    void draw(const QString& text);
    void writeLine(const QString& text);

    Style mStyle;
    std::FILE* mStream;
    QElapsedTimer mClock;
    double mFraction = 0.0;
    /// The last tenth written as a line; -1 before the first.
    int mLastTenth = -1;
    QString mDrawn;
    bool mLineOpen = false;
};

} // namespace tesk
