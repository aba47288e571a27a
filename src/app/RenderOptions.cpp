#include "app/RenderOptions.h"
#include "audio/EngineConstants.h"

#include "audio/TeskEqualizerSettings.h"
#include "audio/TeskVocalReductionEffectSettings.h"
#include "document/TeskDocumentFile.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QFileInfo>
#include <algorithm>
#include <cmath>

namespace tesk {
namespace {

// Written by hand rather than taken from QCommandLineParser::helpText, which prints the full
// path the program was started with and has no room for the notes at the end.
const char* const kHelp =
    R"(Usage: tesk-render [OPTIONS] INPUT [OUTPUT.aif|OUTPUT.m4a]
       tesk-render [OPTIONS] --document FILE.tesk [--loop] [OUTPUT]
       tesk-render [OPTIONS] INPUT --save-document FILE.tesk
                   [--loop A-B] [--marker KIND@S]...

Plays INPUT through Tesk's processing chain: into OUTPUT (AIFF or AAC in M4A,
as its ending .aif or .m4a says) when it is given, else through the sound
device with a status line until the end or Ctrl-C.

  --speed F              speed factor, default 1; negative plays backwards
                         (0.05 to 4 either way)
  --pitch S              pitch shift in semitones, -24 to 24, default 0
  --volume G             linear level, 0 to 4, default 1
  --range A-B            only this part of the song, in seconds (for example
                         12.5-31); an end past the song stops at its end
  --eq NAME|G0,...,G9    flat, isolate-bass, isolate-mids, or ten gains in dB
                         (-40 to 20), lowest band first
  --vocal-reduction NAME|LOW-HIGH
                         male, female, or a band in Hz (20 to 20000)
  --pan P                pan amount 0 to 1, 0.5 is the centre
  --out-of-phase         subtract instead of add in the pan mix (switches the
                         pan mix on, at the centre unless --pan says otherwise)
  --quality NAME         standard (the default) or light (less processor time)
  --info                 print what Tesk reads from INPUT and exit: frames (at
                         44100 Hz), duration, the file's own sample rate,
                         channels and codec, then its title, artist, album
                         and cover picture
  -q, --quiet            no progress display
  -h, --help             this text
  -v, --version          the version of tesk-render

Practice documents (the .tesk files Tesk saves):
  --document FILE.tesk   play or export the document's song with its volume,
                         speed, pitch and effects, instead of an INPUT; an
                         option above given as well overrides the document's
  --loop                 with --document: only the document's loop range
                         (--range wins)
  --save-document FILE.tesk
                         write a document for INPUT with the settings given,
                         instead of playing it; a setting not given takes a
                         new document's default
  --loop A-B             with --save-document: the loop range, in seconds
  --marker KIND@S        with --save-document: a marker S seconds into the
                         song; KIND is generic, chorus, verse or bridge (or
                         M, C, V, B); repeat for more

Every effect named is switched on. INPUT may be any file FFmpeg decodes. An
existing OUTPUT or FILE.tesk is only replaced once the new file is complete.
Without a sound device, playback goes on silently (with a warning) so that the
status line still runs.

Exit codes: 0 done, 1 bad usage, 2 INPUT or the document unreadable (or its
song not found), 3 OUTPUT, FILE.tesk or standard output cannot be written,
130 interrupted (Ctrl-C, SIGTERM or SIGHUP; a second Ctrl-C stops at once).
)";

constexpr double kMinimumPitch = -24.0;
constexpr double kMaximumPitch = 24.0;
constexpr double kMaximumLevel = engine::kMaximumLinearLevel;
// The editor shows -20 to 20 dB; deeper cuts help to isolate an instrument, larger boosts only
// clip.
constexpr double kMinimumBandGain = engine::kMinimumBandGainDb;
constexpr double kMaximumBandGain = 20.0;
constexpr double kMinimumFrequency = 20.0;
constexpr double kMaximumFrequency = 20000.0;

std::optional<double> parseNumber(const QString& text) {
    bool ok = false;
    const double value = text.trimmed().toDouble(&ok);
    if (!ok || !std::isfinite(value))
        return std::nullopt;
    return value;
}

/// "A-B" with both numbers; negative numbers cannot be written, nor are they wanted.
std::optional<std::pair<double, double>> parsePair(const QString& text) {
    const QStringList parts = text.split(QLatin1Char('-'));
    if (parts.size() != 2)
        return std::nullopt;
    const auto first = parseNumber(parts[0]);
    const auto second = parseNumber(parts[1]);
    if (!first || !second)
        return std::nullopt;
    return std::pair{*first, *second};
}

/// "KIND@SECONDS", KIND a word or its letter in either case.
std::optional<RenderMarker> parseMarker(const QString& text) {
    const qsizetype at = text.indexOf(QLatin1Char('@'));
    if (at < 0)
        return std::nullopt;
    const QString kind = text.left(at).toLower();
    const auto seconds = parseNumber(text.mid(at + 1));
    if (!seconds || *seconds < 0.0)
        return std::nullopt;
    const std::pair<const char*, RenderMarker::Kind> kinds[] = {
        {"generic", RenderMarker::Kind::Generic}, {"m", RenderMarker::Kind::Generic},
        {"chorus", RenderMarker::Kind::Chorus},   {"c", RenderMarker::Kind::Chorus},
        {"verse", RenderMarker::Kind::Verse},     {"v", RenderMarker::Kind::Verse},
        {"bridge", RenderMarker::Kind::Bridge},   {"b", RenderMarker::Kind::Bridge},
    };
    for (const auto& [name, value] : kinds)
        if (kind == QLatin1String(name))
            return RenderMarker{value, *seconds};
    return std::nullopt;
}

/// Whether --save-document comes before any "--". It decides what --loop is: the loop range to
/// save (A-B) when saving a document, else a switch for --document.
bool isSavingDocument(const QStringList& arguments) {
    for (const QString& argument : arguments.mid(1)) {
        if (argument == QLatin1String("--"))
            return false;
        if (argument == QLatin1String("--save-document") ||
            argument.startsWith(QLatin1String("--save-document=")))
            return true;
    }
    return false;
}

/// The word that unknown single letters came from, when one word gave them all: after one dash
/// a word is read as short options run together, so "-take 2.wav" is named letter by letter,
/// less the letters that are options (`shortOptions`).
QString wordOfUnknownLetters(const QStringList& arguments, const QStringList& unknown,
                             const QString& shortOptions) {
    if (unknown.size() < 2 ||
        !std::ranges::all_of(unknown, [](const QString& name) { return name.size() == 1; }))
        return {};
    const QString letters = unknown.join(QString());
    for (const QString& argument : arguments.mid(1)) {
        if (argument == QLatin1String("--"))
            break;
        if (!argument.startsWith(QLatin1Char('-')) || argument.startsWith(QLatin1String("--")))
            continue;
        QString unknownInArgument;
        for (const QChar letter : argument.mid(1))
            if (!shortOptions.contains(letter))
                unknownInArgument += letter;
        if (unknownInArgument == letters)
            return argument;
    }
    return {};
}

bool hasOutputSuffix(const QString& path) {
    // Exactly these two, as the export itself understands them: "aiff" or "AIF" would
    // otherwise be silently skipped.
    const QString suffix = QFileInfo(path).suffix();
    return suffix == QLatin1String("aif") || suffix == QLatin1String("m4a");
}

RenderCommandLine badUsage(const QString& reason) {
    RenderCommandLine result;
    result.action = RenderCommandLine::Action::BadUsage;
    result.text = reason;
    return result;
}

} // namespace

RenderCommandLine parseRenderCommandLine(const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsCompactedShortOptions);
    const QCommandLineOption speedOption(QStringLiteral("speed"), {}, QStringLiteral("F"));
    const QCommandLineOption pitchOption(QStringLiteral("pitch"), {}, QStringLiteral("S"));
    const QCommandLineOption volumeOption(QStringLiteral("volume"), {}, QStringLiteral("G"));
    const QCommandLineOption rangeOption(QStringLiteral("range"), {}, QStringLiteral("A-B"));
    const QCommandLineOption eqOption(QStringLiteral("eq"), {}, QStringLiteral("NAME"));
    const QCommandLineOption vocalOption(QStringLiteral("vocal-reduction"), {},
                                         QStringLiteral("NAME"));
    const QCommandLineOption panOption(QStringLiteral("pan"), {}, QStringLiteral("P"));
    const QCommandLineOption outOfPhaseOption(QStringLiteral("out-of-phase"));
    const QCommandLineOption qualityOption(QStringLiteral("quality"), {}, QStringLiteral("NAME"));
    const QCommandLineOption infoOption(QStringLiteral("info"));
    const QCommandLineOption quietOption(QStringList{QStringLiteral("q"), QStringLiteral("quiet")});
    const QCommandLineOption helpOption(QStringList{QStringLiteral("h"), QStringLiteral("help")});
    const QCommandLineOption versionOption(
        QStringList{QStringLiteral("v"), QStringLiteral("version")});
    const QCommandLineOption documentOption(QStringLiteral("document"), {}, QStringLiteral("FILE"));
    const QCommandLineOption saveDocumentOption(QStringLiteral("save-document"), {},
                                                QStringLiteral("FILE"));
    const bool saving = isSavingDocument(arguments);
    const QCommandLineOption loopOption =
        saving ? QCommandLineOption(QStringLiteral("loop"), {}, QStringLiteral("A-B"))
               : QCommandLineOption(QStringLiteral("loop"));
    const QCommandLineOption markerOption(QStringLiteral("marker"), {}, QStringLiteral("KIND@S"));
    const QList<QCommandLineOption> allOptions{
        speedOption,   pitchOption,      volumeOption,       rangeOption, eqOption,    vocalOption,
        panOption,     outOfPhaseOption, qualityOption,      infoOption,  quietOption, helpOption,
        versionOption, documentOption,   saveDocumentOption, loopOption,  markerOption};
    parser.addOptions(allOptions);

    if (!parser.parse(arguments)) {
        QString shortOptions;
        for (const QCommandLineOption& option : allOptions)
            for (const QString& name : option.names())
                if (name.size() == 1)
                    shortOptions += name;
        const QString word =
            wordOfUnknownLetters(arguments, parser.unknownOptionNames(), shortOptions);
        if (!word.isEmpty())
            return badUsage(QStringLiteral("Unknown option '%1' (a file whose name begins with "
                                           "'-' goes after '--')")
                                .arg(word));
        // Qt's sentences end in a full stop; ours go on with a pointer to --help.
        QString reason = parser.errorText();
        if (reason.endsWith(QLatin1Char('.')))
            reason.chop(1);
        return badUsage(reason);
    }
    if (parser.isSet(helpOption) || parser.isSet(versionOption)) {
        RenderCommandLine result;
        result.action = RenderCommandLine::Action::ShowHelp;
        result.text =
            parser.isSet(helpOption)
                ? QString::fromUtf8(kHelp)
                : QStringLiteral("tesk-render %1\n").arg(QCoreApplication::applicationVersion());
        return result;
    }

    RenderOptions options;
    const QStringList positional = parser.positionalArguments();
    options.info = parser.isSet(infoOption);
    // --info reads the file as it is: a setting given with it would be silently left out.
    if (options.info) {
        for (const QCommandLineOption& setting :
             {speedOption, pitchOption, volumeOption, rangeOption, eqOption, vocalOption, panOption,
              outOfPhaseOption, qualityOption}) {
            if (parser.isSet(setting))
                return badUsage(QStringLiteral("--info takes no --%1: it reads INPUT as it is")
                                    .arg(setting.names().constFirst()));
        }
    }
    options.quiet = parser.isSet(quietOption);
    if (parser.isSet(documentOption)) {
        if (saving)
            return badUsage(QStringLiteral("--document and --save-document go separately"));
        if (options.info)
            return badUsage(QStringLiteral("--info takes INPUT, not a --document"));
        options.documentPath = parser.value(documentOption);
        options.documentLoop = parser.isSet(loopOption);
        // The document names its song, so the only argument left is where to export it.
        if (positional.size() > 1 || (positional.size() == 1 && !hasOutputSuffix(positional[0])))
            return badUsage(QStringLiteral("with --document, the only argument is OUTPUT.aif or "
                                           "OUTPUT.m4a (the document names its song): %1")
                                .arg(positional.join(' ')));
        if (positional.size() == 1)
            options.outputPath = positional[0];
    } else {
        // Before the arguments: without a --document, "--loop 1-2" leaves "1-2" as one.
        if (!saving && parser.isSet(loopOption))
            return badUsage(QStringLiteral("--loop takes the loop range of a --document, or "
                                           "A-B with --save-document"));
        if (positional.isEmpty()) {
            // An option given without its value takes the next word, the song, for it.
            for (const QCommandLineOption& option : allOptions) {
                if (!option.valueName().isEmpty() && parser.isSet(option) &&
                    QFileInfo::exists(parser.value(option)))
                    return badUsage(QStringLiteral("no INPUT given (--%1 took %2 as its value)")
                                        .arg(option.names().constLast(), parser.value(option)));
            }
            return badUsage(QStringLiteral("no INPUT given"));
        }
        if (positional.size() > 2)
            return badUsage(
                QStringLiteral("too many arguments: %1").arg(positional.mid(2).join(' ')));
        options.inputPath = positional[0];
        if (positional.size() == 2) {
            if (options.info)
                return badUsage(QStringLiteral("--info takes INPUT only, not an OUTPUT"));
            if (saving)
                return badUsage(QStringLiteral("--save-document writes a document instead of "
                                               "an OUTPUT: %1")
                                    .arg(positional[1]));
            options.outputPath = positional[1];
            if (!hasOutputSuffix(options.outputPath))
                return badUsage(
                    QStringLiteral("OUTPUT must end in .aif or .m4a: %1").arg(options.outputPath));
        }
    }
    if (!saving && parser.isSet(markerOption))
        return badUsage(QStringLiteral("--marker goes with --save-document"));

    if (saving) {
        options.saveDocumentPath = parser.value(saveDocumentOption);
        if (QFileInfo(options.saveDocumentPath)
                .suffix()
                .compare(TeskDocumentExtension, Qt::CaseInsensitive) != 0)
            return badUsage(QStringLiteral("--save-document takes a file ending in .%1: %2")
                                .arg(TeskDocumentExtension, options.saveDocumentPath));
        if (options.info)
            return badUsage(QStringLiteral("--info and --save-document go separately"));
        // A document keeps neither; saying so beats leaving them out of the file unnoticed.
        if (parser.isSet(rangeOption))
            return badUsage(QStringLiteral("a document keeps no --range; its loop is --loop A-B"));
        if (parser.isSet(qualityOption))
            return badUsage(QStringLiteral("a document keeps no --quality"));
        if (parser.isSet(loopOption)) {
            const auto loop = parsePair(parser.value(loopOption));
            if (!loop || loop->first < 0.0 || loop->first >= loop->second)
                return badUsage(QStringLiteral("--loop takes START-END in seconds, START before "
                                               "END (for example 12.5-31): %1")
                                    .arg(parser.value(loopOption)));
            options.savedLoop = SecondsRange{loop->first, loop->second};
        }
        for (const QString& value : parser.values(markerOption)) {
            const auto marker = parseMarker(value);
            if (!marker)
                return badUsage(QStringLiteral("--marker takes KIND@SECONDS, KIND generic, "
                                               "chorus, verse or bridge (or M, C, V, B): %1")
                                    .arg(value));
            options.savedMarkers.append(*marker);
        }
    }

    if (parser.isSet(speedOption)) {
        const auto speed = parseNumber(parser.value(speedOption));
        if (!speed || std::fabs(*speed) < TimePitchStage::kMinimumRate ||
            std::fabs(*speed) > TimePitchStage::kMaximumRate)
            return badUsage(QStringLiteral("--speed takes a factor from 0.05 to 4, negative to "
                                           "play backwards: %1")
                                .arg(parser.value(speedOption)));
        options.speed = *speed;
        options.given.speed = true;
    }
    if (parser.isSet(pitchOption)) {
        const auto pitch = parseNumber(parser.value(pitchOption));
        if (!pitch || *pitch < kMinimumPitch || *pitch > kMaximumPitch)
            return badUsage(QStringLiteral("--pitch takes semitones from -24 to 24: %1")
                                .arg(parser.value(pitchOption)));
        options.pitchSemitones = *pitch;
        options.given.pitch = true;
    }
    if (parser.isSet(volumeOption)) {
        const auto level = parseNumber(parser.value(volumeOption));
        if (!level || *level < 0.0 || *level > kMaximumLevel)
            return badUsage(QStringLiteral("--volume takes a linear level from 0 to 4: %1")
                                .arg(parser.value(volumeOption)));
        options.level = *level;
        options.given.level = true;
    }
    if (parser.isSet(rangeOption)) {
        const auto range = parsePair(parser.value(rangeOption));
        if (!range || range->first < 0.0 || range->first >= range->second)
            return badUsage(QStringLiteral("--range takes START-END in seconds, START before "
                                           "END (for example 12.5-31): %1")
                                .arg(parser.value(rangeOption)));
        options.range = SecondsRange{range->first, range->second};
    }
    if (parser.isSet(eqOption)) {
        const QString value = parser.value(eqOption);
        if (value == QLatin1String("flat"))
            options.equalizerBands = TeskEqualizerSettings::flatPreset()->bands();
        else if (value == QLatin1String("isolate-bass"))
            options.equalizerBands = TeskEqualizerSettings::isolateBassPreset()->bands();
        else if (value == QLatin1String("isolate-mids"))
            options.equalizerBands = TeskEqualizerSettings::isolateMidsPreset()->bands();
        else {
            const QStringList parts = value.split(QLatin1Char(','));
            QList<double> bands;
            for (const QString& part : parts) {
                const auto gain = parseNumber(part);
                if (gain && *gain >= kMinimumBandGain && *gain <= kMaximumBandGain)
                    bands.append(*gain);
            }
            if (parts.size() != TeskEqualizerSettings::kBandCount || bands.size() != parts.size())
                return badUsage(QStringLiteral("--eq takes flat, isolate-bass, isolate-mids or "
                                               "ten comma-separated gains from -40 to 20 dB: %1")
                                    .arg(value));
            options.equalizerBands = bands;
        }
    }
    if (parser.isSet(vocalOption)) {
        const QString value = parser.value(vocalOption);
        std::unique_ptr<TeskVocalReductionEffectSettings> preset;
        if (value == QLatin1String("male"))
            preset = TeskVocalReductionEffectSettings::maleVocalPreset();
        else if (value == QLatin1String("female"))
            preset = TeskVocalReductionEffectSettings::femaleVocalPreset();
        if (preset) {
            options.vocalBand = FrequencyBand{preset->lowFrequency(), preset->highFrequency()};
        } else {
            const auto band = parsePair(value);
            if (!band || band->first < kMinimumFrequency || band->second > kMaximumFrequency ||
                band->first >= band->second)
                return badUsage(QStringLiteral("--vocal-reduction takes male, female or a band "
                                               "LOW-HIGH in Hz from 20 to 20000: %1")
                                    .arg(value));
            options.vocalBand = FrequencyBand{band->first, band->second};
        }
    }
    if (parser.isSet(panOption)) {
        const auto pan = parseNumber(parser.value(panOption));
        if (!pan || *pan < 0.0 || *pan > 1.0)
            return badUsage(QStringLiteral("--pan takes an amount from 0 to 1: %1")
                                .arg(parser.value(panOption)));
        options.panAdjust = true;
        options.panAmount = *pan;
        options.given.panAmount = true;
    }
    if (parser.isSet(outOfPhaseOption)) {
        options.panAdjust = true;
        options.outOfPhase = true;
    }
    if (parser.isSet(qualityOption)) {
        const QString value = parser.value(qualityOption);
        if (value == QLatin1String("standard"))
            options.quality = TimePitchQuality::Standard;
        else if (value == QLatin1String("light"))
            options.quality = TimePitchQuality::Light;
        else
            return badUsage(QStringLiteral("--quality takes standard or light: %1").arg(value));
    }

    RenderCommandLine result;
    result.action = RenderCommandLine::Action::Run;
    result.options = options;
    return result;
}

qint64 framesAtSeconds(double seconds) {
    return std::llround(std::min(seconds, 1e9) * engine::kSampleRateHz);
}

} // namespace tesk
