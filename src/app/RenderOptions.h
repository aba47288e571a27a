#pragma once

#include "audio/TimePitchStage.h"

#include <QList>
#include <QString>
#include <QStringList>
#include <optional>

namespace tesk {

/// How `tesk-render` ends; scripts rely on these numbers.
enum RenderExitCode {
    kRenderDone = 0,
    kRenderBadUsage = 1,
    kRenderInputUnreadable = 2,
    kRenderOutputUnwritable = 3,
    kRenderInterrupted = 130,
};

/// A part of the song in seconds, start before end.
struct SecondsRange {
    double start = 0.0;
    double end = 0.0;
};

/// A frequency band in Hz, low below high.
struct FrequencyBand {
    double low = 0.0;
    double high = 0.0;
};

/// What `tesk-render` was asked to do, checked against the limits the engine accepts. An
/// effect that is set here was named on the command line and is switched on.
/// Plain value; any thread.
struct RenderOptions {
    QString inputPath;
    /// Empty: play INPUT through the sound device instead of exporting it.
    QString outputPath;
    /// Never zero; negative plays backwards.
    float speed = 1.0f;
    double pitchSemitones = 0.0;
    /// Linear gain.
    float level = 1.0f;
    std::optional<SecondsRange> range;
    /// Ten gains in dB, lowest band first.
    std::optional<QList<double>> equalizerBands;
    std::optional<FrequencyBand> vocalBand;
    /// Switched on by --pan or --out-of-phase; the amount stays at the centre when only the
    /// latter is given.
    bool panAdjust = false;
    double panAmount = 0.5;
    bool outOfPhase = false;
    TimePitchQuality quality = TimePitchQuality::Standard;
    bool info = false;
    bool quiet = false;
};

/// The command line read: options to run with, the help to print, or why it is bad usage.
struct RenderCommandLine {
    enum class Action { Run, ShowHelp, BadUsage };
    Action action = Action::BadUsage;
    RenderOptions options;
    /// The help text for ShowHelp; a one-line reason, without the program's name, for BadUsage.
    QString text;
};

/// Reads `arguments` (the program's name first, as QCoreApplication::arguments gives them).
/// Any thread; needs no QCoreApplication.
RenderCommandLine parseRenderCommandLine(const QStringList& arguments);

} // namespace tesk
