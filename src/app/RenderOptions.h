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

/// A part of the song in frames at 44100 Hz, [first, end), first before end.
struct FrameRange {
    qint64 first = 0;
    qint64 end = 0;
};

/// A marker for --save-document, at a time in seconds.
struct RenderMarker {
    /// The document's four kinds, in its order.
    enum class Kind { Generic = 0, Chorus = 1, Verse = 2, Bridge = 3 };
    Kind kind = Kind::Generic;
    double seconds = 0.0;
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
    /// With --document, empty until the document is read and its song found.
    QString inputPath;
    /// Empty: play INPUT through the sound device instead of exporting it.
    QString outputPath;
    /// --document: render the song of this practice document with its settings, except those
    /// the command line names (see `given`).
    QString documentPath;
    /// --loop with --document: only the document's loop range.
    bool documentLoop = false;
    /// --save-document: write a practice document for INPUT with these settings instead of
    /// rendering, with the loop range and markers below.
    QString saveDocumentPath;
    std::optional<SecondsRange> savedLoop;
    /// In the order given.
    QList<RenderMarker> savedMarkers;
    /// Never zero; negative plays backwards.
    double speed = 1.0;
    double pitchSemitones = 0.0;
    /// Linear gain.
    double level = 1.0;
    std::optional<SecondsRange> range;
    /// Exact frames, from a document's loop range; `range` wins over it.
    std::optional<FrameRange> frameRange;
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

    /// The settings named on the command line whose value alone cannot tell (the effects are
    /// named when their optional is set, --out-of-phase when `outOfPhase` is on). A document's
    /// values fill in only the others.
    struct Given {
        bool speed = false;
        bool pitch = false;
        bool level = false;
        bool panAmount = false;
    };
    Given given;
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

/// A time named on the command line (never negative) as engine frames, rounded. Times past
/// any song are held to a billion seconds, so that they stay past its end instead of wrapping.
qint64 framesAtSeconds(double seconds);

} // namespace tesk
