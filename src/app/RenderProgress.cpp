#include "app/RenderProgress.h"

#include <algorithm>
#include <cmath>
#include <sys/ioctl.h>
#include <unistd.h>

namespace tesk {
namespace {

constexpr int kBarWidth = 30;

/// "m:ss.s", for positions in the song.
QString formatPosition(double seconds) {
    seconds = std::max(0.0, seconds);
    const auto tenths = qint64(std::floor(seconds * 10.0));
    return QStringLiteral("%1:%2.%3")
        .arg(tenths / 600)
        .arg((tenths / 10) % 60, 2, 10, QLatin1Char('0'))
        .arg(tenths % 10);
}

} // namespace

RenderProgress::Style RenderProgress::styleFor(std::FILE* stream, bool quiet) {
    if (quiet)
        return Style::Silent;
    return ::isatty(::fileno(stream)) ? Style::Bar : Style::Lines;
}

RenderProgress::RenderProgress(Style style, std::FILE* stream)
    : mStyle(style)
    , mStream(stream) {
    mClock.start();
}

RenderProgress::~RenderProgress() {
    endLine();
}

QString RenderProgress::formatDuration(double seconds) {
    const auto whole = qint64(std::llround(std::max(0.0, seconds)));
    if (whole >= 3600)
        return QStringLiteral("%1:%2:%3")
            .arg(whole / 3600)
            .arg((whole / 60) % 60, 2, 10, QLatin1Char('0'))
            .arg(whole % 60, 2, 10, QLatin1Char('0'));
    return QStringLiteral("%1:%2").arg(whole / 60).arg(whole % 60, 2, 10, QLatin1Char('0'));
}

QString RenderProgress::barText(double fraction, double elapsedSeconds) {
    fraction = std::clamp(fraction, 0.0, 1.0);
    const int filled = int(std::floor(fraction * kBarWidth));
    const QString bar =
        QString(filled, QLatin1Char('#')) + QString(kBarWidth - filled, QLatin1Char('-'));
    // Until something is done there is nothing to extrapolate the rest from.
    const QString remaining = fraction > 0.0
                                  ? formatDuration(elapsedSeconds * (1.0 - fraction) / fraction)
                                  : QStringLiteral("-:--");
    return QStringLiteral("[%1] %2%  %3 elapsed  %4 left")
        .arg(bar)
        .arg(int(std::floor(fraction * 100.0)), 3)
        .arg(formatDuration(elapsedSeconds), remaining);
}

void RenderProgress::showExport(double fraction) {
    mFraction = std::clamp(fraction, mFraction, 1.0);
    const double elapsed = double(mClock.elapsed()) / 1000.0;
    if (mStyle == Style::Bar) {
        draw(barText(mFraction, elapsed));
    } else if (mStyle == Style::Lines) {
        const int tenth = int(std::floor(mFraction * 10.0));
        if (tenth > mLastTenth && tenth > 0) {
            mLastTenth = tenth;
            const QString remaining =
                tenth < 10 ? QStringLiteral(", %1 left")
                                 .arg(formatDuration(elapsed * (1.0 - mFraction) / mFraction))
                           : QString();
            writeLine(QStringLiteral("%1% done, %2 elapsed%3")
                          .arg(tenth * 10)
                          .arg(formatDuration(elapsed), remaining));
        }
    }
}

void RenderProgress::showPlayback(double positionSeconds, double firstSeconds, double lastSeconds,
                                  float speed, double pitchSemitones) {
    const double span = lastSeconds - firstSeconds;
    const double fraction =
        span != 0.0 ? std::clamp((positionSeconds - firstSeconds) / span, 0.0, 1.0) : 1.0;
    const double end = std::max(firstSeconds, lastSeconds);
    const QString text = QStringLiteral("%1 / %2  speed %3  pitch %4")
                             .arg(formatPosition(positionSeconds), formatPosition(end))
                             .arg(double(speed), 0, 'g', 4)
                             .arg(pitchSemitones, 0, 'g', 4);
    if (mStyle == Style::Bar) {
        draw(text);
    } else if (mStyle == Style::Lines) {
        const int tenth = int(std::floor(fraction * 10.0));
        if (tenth > mLastTenth) {
            mLastTenth = tenth;
            writeLine(text);
        }
    }
}

void RenderProgress::tick() {
    if (mStyle == Style::Bar)
        draw(barText(mFraction, double(mClock.elapsed()) / 1000.0));
}

void RenderProgress::finishExport() {
    showExport(1.0);
    endLine();
}

void RenderProgress::endLine() {
    if (!mLineOpen)
        return;
    std::fputs("\n", mStream);
    std::fflush(mStream);
    mLineOpen = false;
    mDrawn.clear();
}

void RenderProgress::draw(const QString& text) {
    if (text == mDrawn)
        return;
    mDrawn = text;
    // Cut to a narrow terminal's width: a line that wrapped is not drawn over by the next, and
    // each redraw would add one.
    QString shown = text;
    winsize size = {};
    if (::ioctl(::fileno(mStream), TIOCGWINSZ, &size) == 0 && size.ws_col > 1 &&
        shown.size() >= size.ws_col)
        shown.truncate(size.ws_col - 1);
    // Back to the start of the line and clear what a longer earlier text left behind.
    std::fputs(("\r" + shown + "\x1b[K").toLocal8Bit().constData(), mStream);
    std::fflush(mStream);
    mLineOpen = true;
}

void RenderProgress::writeLine(const QString& text) {
    std::fputs((text + '\n').toLocal8Bit().constData(), mStream);
    std::fflush(mStream);
}

} // namespace tesk
