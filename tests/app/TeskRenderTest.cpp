// tesk-render run as the program it is: its arguments, exit codes, files and messages.
#include "app/RenderDocument.h"
#include "app/RenderOptions.h"
#include "audio/SongMetadataReader.h"
#include "audio/TeskEffectsSettings.h"
#include "audio/TeskEqualizerSettings.h"
#include "audio/TeskExtendedAudioFile.h"
#include "audio/TeskVocalReductionEffectSettings.h"
#include "document/TeskDocumentFile.h"
#include "document/TeskFileReference.h"
#include "support/AudioFiles.h"
#include "support/Signals.h"
#include "support/SongFiles.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <thread>
#include <tuple>

using namespace tesk;
using namespace tesk::test;

namespace {

constexpr int kTimeoutMilliseconds = 60000;

struct RenderRun {
    int exitCode = -1;
    QString out;
    QString err;
};

RenderRun runRender(const QStringList& arguments, QProcess* process = nullptr) {
    QProcess local;
    QProcess& child = process ? *process : local;
    child.start(QStringLiteral(TESK_RENDER_PATH), arguments);
    EXPECT_TRUE(child.waitForFinished(kTimeoutMilliseconds)) << arguments.join(' ').toStdString();
    EXPECT_EQ(child.exitStatus(), QProcess::NormalExit);
    return {child.exitCode(), QString::fromUtf8(child.readAllStandardOutput()),
            QString::fromUtf8(child.readAllStandardError())};
}

/// Runs tesk-render and expects it to end with `exitCode` and a single line on standard error
/// that starts with its name and names the file `named` (when given).
void expectFailure(const QStringList& arguments, int exitCode, const QString& named = {}) {
    SCOPED_TRACE(arguments.join(' ').toStdString());
    const RenderRun run = runRender(arguments);
    EXPECT_EQ(run.exitCode, exitCode);
    EXPECT_TRUE(run.err.startsWith("tesk-render: ")) << run.err.toStdString();
    EXPECT_EQ(run.err.count('\n'), 1) << run.err.toStdString();
    EXPECT_TRUE(run.err.contains(QFileInfo(named).fileName())) << run.err.toStdString();
}

/// Runs tesk-render quietly with `arguments` and `output`, and reads back what it wrote there.
std::unique_ptr<TeskExtendedAudioFile> render(const QStringList& arguments, const QString& output) {
    const RenderRun run = runRender(QStringList{"-q"} + arguments + QStringList{output});
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_FALSE(run.err.contains(QRegularExpression("\\d%"))) << run.err.toStdString();
    return openDecoded(output);
}

std::optional<TeskDocumentContents> readDocument(const QString& path) {
    QString problem;
    auto document = readDocumentContents(readFile(path), &problem);
    EXPECT_TRUE(document) << path.toStdString() << ": " << problem.toStdString();
    return document;
}

/// A document for the song at `songPath` with `contents`, written as Tesk writes it.
QString writeDocument(const QString& path, const QString& songPath, TeskDocumentContents contents) {
    const auto song = TeskFileReference::fromPath(songPath, path);
    EXPECT_TRUE(song) << songPath.toStdString();
    if (song)
        contents.audioFileAlias = song->toBytes();
    EXPECT_TRUE(writeFile(path, writeDocumentContents(contents)));
    return path;
}

QStringList filesIn(const QString& folder) {
    return QDir(folder).entryList(QDir::Files | QDir::Hidden | QDir::NoDotAndDotDot, QDir::Name);
}

/// Waits until the running `process` has written `text` to standard error.
bool waitForError(QProcess& process, const QString& text, QString& seen) {
    QElapsedTimer clock;
    clock.start();
    process.waitForStarted();
    while (!seen.contains(text) && clock.elapsed() < kTimeoutMilliseconds &&
           process.state() == QProcess::Running) {
        process.waitForReadyRead(100);
        seen += QString::fromUtf8(process.readAllStandardError());
    }
    return seen.contains(text);
}

} // namespace

TEST(TeskRenderCommandLine, BadUsageIsOneLineSaidBeforeAnythingIsRead) {
    const QStringList cases[] = {
        {},
        {"in.wav", "out.m4a", "extra"},
        {"--bogus", "in.wav"},
        {"--speed", "0", "in.wav", "out.m4a"},
        {"--speed", "5", "in.wav", "out.m4a"},
        {"--pitch", "25", "in.wav", "out.m4a"},
        {"--volume", "-1", "in.wav", "out.m4a"},
        {"--range", "5-3", "in.wav", "out.m4a"},
        {"--range", "abc", "in.wav", "out.m4a"},
        {"--eq", "1,2,3", "in.wav", "out.m4a"},
        {"--eq", "loud", "in.wav", "out.m4a"},
        {"--eq", "0,0,0,0,0,0,0,0,0,30", "in.wav", "out.m4a"},
        {"--eq", "0,0,0,0,0,0,0,0,0,-40.5", "in.wav", "out.m4a"},
        {"--vocal-reduction", "3000-200", "in.wav", "out.m4a"},
        {"--pan", "1.5", "in.wav", "out.m4a"},
        {"--quality", "best", "in.wav", "out.m4a"},
        {"--info", "in.wav", "out.m4a"},
        {"--info", "--speed", "2", "in.wav"},
        {"--info", "--out-of-phase", "in.wav"},
        // A document names its song and keeps no range or quality; --loop and --marker only
        // mean something with a document.
        {"--document", "d.tesk", "in.wav"},
        {"--document", "d.tesk", "--save-document", "e.tesk", "in.wav"},
        {"--loop", "in.wav", "out.m4a"},
        {"--marker", "C@1", "in.wav", "out.m4a"},
        {"in.wav", "--save-document", "d.json"},
        {"in.wav", "--save-document", "d.tesk", "out.m4a"},
        {"in.wav", "--save-document", "d.tesk", "--range", "1-2"},
        {"in.wav", "--save-document", "d.tesk", "--loop", "2-1"},
        {"in.wav", "--save-document", "d.tesk", "--marker", "intro@1"},
        {"in.wav", "--save-document", "d.tesk", "--marker", "C@-1"},
        // The extension must be exactly one of the two the export writes.
        {"in.wav", "out.wav"},
        {"in.wav", "out.aiff"},
        {"in.wav", "out.AIF"},
        {"in.wav", "out"},
    };
    for (const QStringList& arguments : cases) {
        SCOPED_TRACE(arguments.join(' ').toStdString());
        const RenderCommandLine line =
            parseRenderCommandLine(QStringList{"tesk-render"} + arguments);
        EXPECT_EQ(line.action, RenderCommandLine::Action::BadUsage);
        EXPECT_FALSE(line.text.isEmpty());
        EXPECT_FALSE(line.text.contains('\n')) << line.text.toStdString();
        if (arguments.size() == 2 && arguments[1].startsWith("out")) {
            EXPECT_TRUE(line.text.contains(".aif") && line.text.contains(".m4a"));
        }
    }

    // An option short of its value, or one that takes none given one, is named, not the
    // arguments it threw out.
    QTemporaryDir songs;
    const QString song = songs.filePath("song.wav");
    ASSERT_TRUE(writeFile(song, "RIFF"));
    EXPECT_EQ(parseRenderCommandLine({"tesk-render", "--speed", song}).text,
              QString("no INPUT given (--speed took %1 as its value)").arg(song));
    EXPECT_TRUE(parseRenderCommandLine({"tesk-render", song, "--loop", "1-2"})
                    .text.startsWith("--loop takes the loop range of a --document"));

    // A song whose name begins with a dash is named whole, with the way to give it.
    EXPECT_EQ(parseRenderCommandLine({"tesk-render", "-leading dash.wav", "out.m4a"}).text,
              "Unknown option '-leading dash.wav' (a file whose name begins with '-' goes after "
              "'--')");
    EXPECT_NE(parseRenderCommandLine({"tesk-render", "--", "-leading dash.wav", "out.m4a"}).action,
              RenderCommandLine::Action::BadUsage);

    // A practice's name in capitals is still one, as Tesk opens it.
    EXPECT_NE(parseRenderCommandLine({"tesk-render", "in.wav", "--save-document", "D.TESK"}).action,
              RenderCommandLine::Action::BadUsage);

    // As the program: exit code 1, one line that names it, and no file written.
    QTemporaryDir folder;
    const QString input = writeTone(folder.filePath("in.wav"), 0.2);
    expectFailure({"--bogus", input}, 1);
    expectFailure({input, folder.filePath("out.wav")}, 1);
    EXPECT_EQ(filesIn(folder.path()), QStringList{"in.wav"});
    const RenderRun help = runRender({"--help"});
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_TRUE(help.out.startsWith("Usage: tesk-render")) << help.out.toStdString();
    for (const QString& line : help.out.split('\n'))
        EXPECT_LT(line.size(), 80) << "wider than a terminal: " << line.toStdString();
    const RenderRun version = runRender({"--version"});
    EXPECT_EQ(version.exitCode, 0);
    EXPECT_TRUE(
        QRegularExpression("^tesk-render \\d+\\.\\d+\\.\\d+\n$").match(version.out).hasMatch())
        << version.out.toStdString();
}

TEST(TeskRender, UnreadableInputExitsTwoAndUnwritableOutputThree) {
    QTemporaryDir folder;
    const QString input = writeTone(folder.filePath("in.wav"), 0.3);
    const QString text = folder.filePath("notes.txt");
    ASSERT_TRUE(writeFile(text, "not a song at all\n"));

    for (const QString& bad : {folder.filePath("missing.wav"), text})
        expectFailure({bad, folder.filePath("out.aif")}, 2, bad);

    // A folder that cannot exist (its parent is a file), and a folder in OUTPUT's place.
    const RenderRun notAFolder = runRender({input, input + "/out.m4a"});
    EXPECT_EQ(notAFolder.exitCode, 3);
    EXPECT_TRUE(notAFolder.err.startsWith("tesk-render: cannot write"))
        << notAFolder.err.toStdString();
    ASSERT_TRUE(QDir(folder.path()).mkdir("taken.aif"));
    EXPECT_EQ(runRender({input, folder.filePath("taken.aif")}).exitCode, 3);
    // The song itself, which would be read while it is replaced.
    QTemporaryDir other;
    const QString aiff = writeTone(other.filePath("in.aif"), 0.3);
    const QByteArray song = readFile(aiff);
    // Named as itself, or as a link to it, for an export or a practice document.
    ASSERT_TRUE(QFile::link(aiff, other.filePath("link.tesk")));
    for (const QStringList& arguments :
         {QStringList{aiff, aiff},
          QStringList{aiff, "--save-document", other.filePath("link.tesk")}})
        EXPECT_EQ(runRender(arguments).exitCode, 3) << arguments.join(' ').toStdString();
    EXPECT_EQ(readFile(aiff), song);
    EXPECT_EQ(filesIn(folder.path()), (QStringList{"in.wav", "notes.txt"}));

    // A song cut short mid-sample plays as far as it goes, said once and in Tesk's words only.
    const QString cut = other.filePath("cut.wav");
    ASSERT_TRUE(
        writeFile(cut, readFile(writeTone(other.filePath("whole.wav"), 0.3)).chopped(1001)));
    // Exported or played.
    for (const QStringList& arguments :
         {QStringList{"-q", cut, other.filePath("cut.aif")}, QStringList{"-q", cut}}) {
        SCOPED_TRACE(arguments.join(' ').toStdString());
        const RenderRun damaged = runRender(arguments);
        EXPECT_EQ(damaged.exitCode, 0);
        EXPECT_TRUE(damaged.err.startsWith("tesk-render: warning: ")) << damaged.err.toStdString();
        EXPECT_EQ(damaged.err.count('\n'), 1) << damaged.err.toStdString();
    }
}

TEST(TeskRender, ExportsAifAndM4aOfTheSongsLengthOverTheSpeedWithItsTags) {
    QTemporaryDir folder;
    // FLAC at 48 kHz: any file FFmpeg decodes, converted to the engine's rate.
    const QString input = folder.filePath("in.flac");
    const auto tone = sine(440.0, 0.5, 96000, 48000.0);
    ASSERT_TRUE(writeEncoded(input, {tone, tone}, 48000,
                             {"-metadata", "title=Practice Tune", "-metadata", "artist=Tesk"}));
    const qint64 sourceFrames = 88200;

    struct Case {
        QString name;
        QStringList options;
        double speed;
    };
    // A file already at OUTPUT is replaced, and who may read it stays as it was.
    ASSERT_TRUE(writeFile(folder.filePath("out.aif"), "an older take"));
    QFile::setPermissions(folder.filePath("out.aif"),
                          QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup);
    for (const Case& c : {Case{"out.aif", {}, 1.0}, Case{"out.m4a", {"--speed", "2"}, 2.0},
                          Case{"slow.aif", {"--speed", "-0.5", "--quality", "light"}, 0.5}}) {
        SCOPED_TRACE(c.name.toStdString());
        const QString output = folder.filePath(c.name);
        const auto file = render(c.options + QStringList{input}, output);
        ASSERT_TRUE(file);
        // Whole slices of 1024 frames, and whatever the AAC decoder trims or pads at the ends.
        EXPECT_NEAR(double(file->frameCount()), double(sourceFrames) / c.speed, 1100.0);
        const auto middle = readChannels(*file, file->frameCount() / 4, 8820)[0];
        EXPECT_NEAR(toneAmplitude(middle, 440.0), 0.5, 0.1);
        EXPECT_EQ(readSongMetadata(output), (SongMetadata{"Practice Tune", "Tesk", {}, {}, {}}));
    }
    using std::filesystem::perms;
    EXPECT_EQ(std::filesystem::status(folder.filePath("out.aif").toStdString()).permissions(),
              perms::owner_read | perms::owner_write | perms::group_read);
    EXPECT_EQ(filesIn(folder.path()),
              (QStringList{"in.flac", "in.flac.source.wav", "out.aif", "out.m4a", "slow.aif"}));
}

TEST(TeskRender, AppliesPitchVolumeAndEffectsNamedOnTheCommandLine) {
    QTemporaryDir folder;
    const QString input = writeTone(folder.filePath("in.wav"), 1.0, 1000.0);
    const auto middleOf = [&](const QStringList& options) {
        const auto file = render(options + QStringList{input}, folder.filePath("out.aif"));
        return file ? readChannels(*file, 11025, 22050)[0] : std::vector<float>{};
    };

    const auto octaveUp = middleOf({"--pitch", "12", "--volume", "0.5"});
    EXPECT_NEAR(toneAmplitude(octaveUp, 2000.0), 0.25, 0.05);
    EXPECT_LT(toneAmplitude(octaveUp, 1000.0), 0.02);
    // Identical channels are all centre: the vocal reduction takes a tone inside its band away
    // (the remover works at twice the frequencies set) and leaves one outside it, here cut by
    // 20 dB in the bass preset's band around 1 kHz (how a list of gains is read shows in the
    // saved document below).
    EXPECT_LT(rms(middleOf({"--vocal-reduction", "200-2000"})), 0.02);
    EXPECT_NEAR(
        toneAmplitude(middleOf({"--vocal-reduction", "2000-4000", "--eq", "isolate-bass"}), 1000.0),
        0.05, 0.02);
    // Out of phase at the centre subtracts the channels from each other: silence on the left.
    EXPECT_LT(rms(middleOf({"--out-of-phase"})), 1e-3);
}

TEST(TeskRender, RangeExportsThatPartInEitherDirection) {
    QTemporaryDir folder;
    const QString input = writeTones(folder.filePath("in.wav"), {440.0, 660.0, 880.0});
    for (const QString speed : {"1", "-1"}) {
        const auto file =
            render({"--speed", speed, "--range", "1.25-1.75", input}, folder.filePath("part.aif"));
        ASSERT_TRUE(file);
        EXPECT_NEAR(double(file->frameCount()), 22050.0, 1024.0) << speed.toStdString();
        const auto part = readChannels(*file, 2048, 17640)[0];
        EXPECT_NEAR(toneAmplitude(part, 660.0), 0.5, 0.05) << speed.toStdString();
        EXPECT_LT(toneAmplitude(part, 440.0) + toneAmplitude(part, 880.0), 0.02);
    }
    // An end past the song stops at its end; a start past it, or a range too short to hold a
    // frame, is bad usage.
    const auto file = render({"--range", "2.5-60", input}, folder.filePath("tail.m4a"));
    ASSERT_TRUE(file);
    EXPECT_NEAR(double(file->frameCount()), 22050.0, 1100.0);
    for (const auto& [range, said] : {std::pair{"4-5", "--range starts after the end of the song"},
                                      {"1-1.00001", "--range is shorter than one frame"}}) {
        const RenderRun run = runRender({"--range", range, input, folder.filePath("none.aif")});
        EXPECT_EQ(run.exitCode, 1);
        EXPECT_TRUE(run.err.contains(said)) << run.err.toStdString();
    }
    EXPECT_EQ(filesIn(folder.path()), (QStringList{"in.wav", "part.aif", "tail.m4a"}));
}

TEST(TeskRender, InfoPrintsWhatTeskReadsFromTheFile) {
    QTemporaryDir folder;
    const QString input = folder.filePath("mono.wav");
    ASSERT_TRUE(writeWav(input, {sine(440.0, 0.5, 72000, 48000.0)}, 48000, WavSampleFormat::Int16));
    const RenderRun run = runRender({"--info", input});
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_TRUE(run.err.isEmpty()) << run.err.toStdString();
    // 1.5 s at 44100 Hz; untagged, every line is there all the same, for a script to read.
    EXPECT_EQ(run.out, "frames: 66150\nduration: 1.500 s\nsample rate: 48000 Hz\nchannels: 1\n"
                       "codec: pcm_s16le\ntitle: (none)\nartist: (none)\nalbum: (none)\n"
                       "cover: (none)\n");

    // An MP3 with ID3 tags and a PNG cover, copied in as it is.
    const QString cover = folder.filePath("cover.png");
    const QString tagged = folder.filePath("tagged.mp3");
    ASSERT_TRUE(runFfmpeg({"-f", "lavfi", "-i", "color=c=red:s=32x32", "-frames:v", "1", cover}));
    ASSERT_TRUE(runFfmpeg(QStringList{"-i", input, "-i", cover} +
                          splitArguments("-map 0 -map 1 -c:a libmp3lame -c:v copy -id3v2_version 3 "
                                         "-disposition:v attached_pic") +
                          QStringList{"-metadata", "title=Étude in Blue", "-metadata",
                                      "artist=The Practisers", tagged}));
    const RenderRun mp3 = runRender({"--info", tagged});
    ASSERT_EQ(mp3.exitCode, 0) << mp3.err.toStdString();
    EXPECT_TRUE(
        mp3.out.endsWith(QString("codec: mp3\ntitle: Étude in Blue\nartist: The Practisers\n"
                                 "album: (none)\ncover: image/png, %1 bytes\n")
                             .arg(QFileInfo(cover).size())))
        << mp3.out.toStdString();

    // Printed to a full disk, it says it could not be, and fails.
    for (const QStringList& arguments : {QStringList{"--info", input}, QStringList{"--help"}}) {
        SCOPED_TRACE(arguments.join(' ').toStdString());
        QProcess process;
        process.setStandardOutputFile(QStringLiteral("/dev/full"));
        const RenderRun full = runRender(arguments, &process);
        EXPECT_EQ(full.exitCode, 3);
        EXPECT_TRUE(full.err.contains("cannot write to standard output: No space left on device"))
            << full.err.toStdString();
    }
}

TEST(TeskRender, SavesAPracticeDocumentWithTheSettingsLoopAndMarkersGiven) {
    QTemporaryDir folder;
    const QString input = writeTone(folder.filePath("in.wav"), 2.0);
    ASSERT_TRUE(QDir(folder.path()).mkdir("docs"));

    // INPUT relative to the working folder, the document in another one: the song must still
    // be found from the document.
    QProcess process;
    process.setWorkingDirectory(folder.path());
    const RenderRun run = runRender(
        splitArguments("in.wav --save-document docs/set.tesk --speed -0.5 --pitch 3 --volume 0.7 "
                       "--eq 0,0,0,0,0,-6,0,0,0,3 --vocal-reduction female --out-of-phase "
                       "--loop 0.5-1.2500001 --marker C@0.5 --marker generic@1 --marker c@0.25 "
                       "--marker B@1.5 --marker verse@2"),
        &process);
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_TRUE(run.err.isEmpty()) << run.err.toStdString();
    const QString documentPath = folder.filePath("docs/set.tesk");
    const auto document = readDocument(documentPath);
    ASSERT_TRUE(document && document->audioFileAlias);
    const auto song = TeskFileReference::fromBytes(*document->audioFileAlias);
    ASSERT_TRUE(song);
    EXPECT_EQ(song->resolvedPath(documentPath), QFileInfo(input).canonicalFilePath());
    EXPECT_EQ(song->relativePath(), "../in.wav");

    TeskEffectsSettings effects;
    effects.setEqualizerEnabled(true);
    TeskEqualizerSettings bands;
    bands.setBands({0, 0, 0, 0, 0, -6, 0, 0, 0, 3});
    effects.setEqualizerSettings(&bands);
    effects.setVocalReductionEnabled(true);
    effects.setVocalReductionEffectSettings(
        TeskVocalReductionEffectSettings::femaleVocalPreset().get());
    effects.setPanningEnabled(true);
    effects.setOutOfPhase(true);
    // Each kind of marker in the order given, the song's very end included; every key is
    // written, those of the window too.
    const TeskDocumentContents expected{.audioFileAlias = document->audioFileAlias,
                                        .genericMarkers = QList<quint32>{44100},
                                        .chorusMarkers = QList<quint32>{22050, 11025},
                                        .verseMarkers = QList<quint32>{88200},
                                        .bridgeMarkers = QList<quint32>{66150},
                                        .effectsSettings = effects.dictionaryRepresentation(),
                                        .zoomLevel = 0.9,
                                        .playbackVolume = 0.7,
                                        .loopLocation = 22050,
                                        .loopLength = 33075,
                                        .playbackSpeed = -0.5,
                                        .pitchAdjustment = 3.0,
                                        .documentWindowFrame = QRectF(),
                                        .effectsVisible = false};
    EXPECT_EQ(*document, expected);

    // Nothing given: a new document's settings, over an older file at the same place.
    const RenderRun plain = runRender({input, "--save-document", documentPath});
    ASSERT_EQ(plain.exitCode, 0) << plain.err.toStdString();
    const auto fresh = readDocument(documentPath);
    ASSERT_TRUE(fresh);
    EXPECT_EQ(fresh->playbackSpeed, 1.0);
    EXPECT_EQ(fresh->pitchAdjustment, 0.0);
    EXPECT_EQ(fresh->playbackVolume, 1.0);
    EXPECT_EQ(fresh->loopLocation, 0u);
    EXPECT_EQ(fresh->loopLength, 0u);
    EXPECT_EQ(fresh->chorusMarkers, QList<quint32>{});
    EXPECT_EQ(fresh->effectsSettings, TeskEffectsSettings().dictionaryRepresentation());

    // A marker or a loop past the song's end: no document, and the one already there stays as
    // it was.
    const QByteArray kept = readFile(documentPath);
    // Times too large for frames stay past the end, instead of wrapping round to the start.
    for (const QStringList& option :
         {QStringList{"--marker", "M@2.1"}, QStringList{"--marker", "M@1e15"},
          QStringList{"--loop", "3-4"}, QStringList{"--loop", "1e15-1e16"}}) {
        const RenderRun run =
            runRender(QStringList{input, "--save-document", documentPath} + option);
        EXPECT_EQ(run.exitCode, 1) << option.join(' ').toStdString();
        EXPECT_TRUE(run.err.contains("the song is 2.000 s long")) << run.err.toStdString();
    }
    EXPECT_EQ(readFile(documentPath), kept);
    EXPECT_EQ(filesIn(folder.filePath("docs")), QStringList{"set.tesk"});
}

TEST(TeskRender, RendersADocumentsLoopWithItsSettingsUnlessTheCommandLineSaysOtherwise) {
    QTemporaryDir folder;
    const QString input = writeTones(folder.filePath("in.wav"), {440.0, 660.0, 880.0});
    // Inside the 660 Hz second, on no round number of anything.
    TeskDocumentContents settings;
    settings.loopLocation = 45001;
    settings.loopLength = 39999;
    settings.playbackSpeed = 0.5;
    settings.pitchAdjustment = 12.0;
    settings.playbackVolume = 0.5;
    const QString document = writeDocument(folder.filePath("loop.tesk"), input, settings);

    const auto renderLoop = [&](const QStringList& options) {
        QFile::remove(folder.filePath("out.aif"));
        return render(QStringList{"--document", document} + options, folder.filePath("out.aif"));
    };
    const auto loop = renderLoop({"--loop"});
    ASSERT_TRUE(loop);
    EXPECT_NEAR(double(loop->frameCount()), 39999.0 / 0.5, 1024.0);
    const auto heard = readChannels(*loop, 4096, 35280)[0];
    EXPECT_NEAR(toneAmplitude(heard, 1320.0), 0.25, 0.04);
    EXPECT_LT(toneAmplitude(heard, 660.0) + toneAmplitude(heard, 880.0) +
                  toneAmplitude(heard, 1760.0),
              0.03);

    // --range wins over the loop.
    const auto ranged = renderLoop({"--loop", "--range", "2.25-2.75", "--speed", "1"});
    ASSERT_TRUE(ranged);
    EXPECT_NEAR(double(ranged->frameCount()), 22050.0, 1024.0);
    EXPECT_NEAR(toneAmplitude(readChannels(*ranged, 2048, 17640)[0], 1760.0), 0.25, 0.04);

    // A document with no loop range has none to limit a render to.
    const QString empty = writeDocument(folder.filePath("empty.tesk"), input, {});
    const RenderRun noLoop = runRender({"--document", empty, "--loop", folder.filePath("o.aif")});
    EXPECT_EQ(noLoop.exitCode, 1);
    EXPECT_TRUE(noLoop.err.contains("no loop range")) << noLoop.err.toStdString();
}

TEST(TeskRenderDocument, FillsInWhatTheCommandLineLeavesOpenWithTheRulesOfADocument) {
    // Saved by Tesk with a vocal band, and no speed or volume.
    TeskEffectsSettings effects;
    effects.setVocalReductionEnabled(true);
    effects.vocalReductionEffectSettings()->setLowFrequency(300.0);
    TeskDocumentContents contents;
    contents.effectsSettings = effects.dictionaryRepresentation();
    const auto apply = [&](const QString& options) {
        RenderCommandLine line = parseRenderCommandLine(
            splitArguments("tesk-render --document set.tesk " + options + " out.aif"));
        QString error;
        EXPECT_TRUE(applyDocumentSettings(contents, line.options, &error)) << error.toStdString();
        return line.options;
    };

    // As Tesk opens it: no speed plays at 1, no volume is silence; without --loop, the whole song.
    const RenderOptions saved = apply("-q");
    EXPECT_EQ(saved.speed, 1.0);
    EXPECT_EQ(saved.level, 0.0);
    EXPECT_EQ(saved.vocalBand.value().low, 300.0);
    EXPECT_FALSE(saved.frameRange);

    // What the command line names wins over the document's.
    contents.playbackSpeed = 0.5;
    contents.pitchAdjustment = 12.0;
    contents.playbackVolume = 0.5;
    const RenderOptions named =
        apply("--speed -1 --pitch 0 --volume 1 --vocal-reduction 2000-4000");
    EXPECT_EQ(named.speed, -1.0);
    EXPECT_EQ(named.pitchSemitones, 0.0);
    EXPECT_EQ(named.level, 1.0);
    EXPECT_EQ(named.vocalBand.value().low, 2000.0);
}

TEST(TeskRender, DocumentWhoseSongIsGoneOrWhoseFileIsDamagedExitsTwo) {
    QTemporaryDir folder;
    const QString input = writeTone(folder.filePath("practice-song.wav"), 0.5);
    const QString document = folder.filePath("set.tesk");
    ASSERT_EQ(runRender({input, "--save-document", document}).exitCode, 0);
    const QString damaged = folder.filePath("damaged.tesk");
    ASSERT_TRUE(writeFile(damaged, readFile(document).left(40)));
    ASSERT_TRUE(QFile::remove(input));

    for (const QString& bad : {document, damaged, folder.filePath("missing.tesk")})
        expectFailure({"--document", bad, folder.filePath("out.aif")}, 2, bad);
    // The song missing is named as well as the document.
    EXPECT_TRUE(runRender({"--document", document}).err.contains("practice-song.wav"));
    EXPECT_EQ(filesIn(folder.path()), (QStringList{"damaged.tesk", "set.tesk"}));
}

TEST(TeskRender, InterruptedExportKeepsTheOriginalAndLeavesNoPartialFile) {
    // Ctrl-C once: stopped at the next slice, and said so; twice at once: not waited on. A
    // closed terminal (SIGHUP) stops it as Ctrl-C does, unless it was started with nohup.
    for (const auto& [signal, interrupts, ignored] : {std::tuple{SIGINT, 1, false},
                                                      {SIGINT, 2, false},
                                                      {SIGHUP, 1, false},
                                                      {SIGHUP, 1, true}}) {
        SCOPED_TRACE(testing::Message()
                     << strsignal(signal) << " x" << interrupts << (ignored ? " ignored" : ""));
        QTemporaryDir folder;
        const QString input = writeTone(folder.filePath("long.wav"), 20.0);
        const QString output = folder.filePath("out.m4a");
        const QByteArray original("the take to keep");
        ASSERT_TRUE(writeFile(output, original));

        QProcess process;
        if (ignored)
            process.setChildProcessModifier([] { ::signal(SIGHUP, SIG_IGN); });
        process.start(QStringLiteral(TESK_RENDER_PATH), {input, output});
        QString err;
        // Standard error is a pipe here: plain progress lines, the first at 10 %.
        ASSERT_TRUE(waitForError(process, "10% done", err)) << err.toStdString();
        for (int i = 0; i < interrupts; ++i) {
            // Apart, or the system delivers the two as one.
            if (i > 0)
                std::this_thread::sleep_for(std::chrono::milliseconds(5));
            ::kill(pid_t(process.processId()), signal);
        }
        ASSERT_TRUE(process.waitForFinished(kTimeoutMilliseconds));
        err += QString::fromUtf8(process.readAllStandardError());
        if (ignored) {
            EXPECT_EQ(process.exitCode(), 0) << err.toStdString();
            EXPECT_NE(readFile(output), original);
            continue;
        }
        // The second may come after the first has already stopped the export.
        if (interrupts == 2 && process.exitStatus() == QProcess::CrashExit) {
            EXPECT_EQ(process.exitCode(), signal) << "ended by the signal";
        } else {
            EXPECT_EQ(process.exitStatus(), QProcess::NormalExit);
            EXPECT_EQ(process.exitCode(), 130);
            EXPECT_TRUE(err.contains("tesk-render: interrupted")) << err.toStdString();
        }
        EXPECT_EQ(readFile(output), original);
        EXPECT_EQ(filesIn(folder.path()), (QStringList{"long.wav", "out.m4a"}));
    }
}

TEST(TeskRender, FailedExportKeepsTheOriginal) {
    // A disk that fills up: no file the renderer writes may grow past 64 KiB, and the write
    // fails rather than the signal ending the process. The song's sound is kept on the disk
    // as it is decoded (4 bytes a frame), so a full disk stops either the export, as it is
    // written (a short song at half speed), or the decoding, which would cut the song short.
    const struct {
        double songSeconds;
        QString speed;
        int exitCode;
        QString said;
    } cases[] = {{0.3, "0.5", 3, "cannot write %1"},
                 {3.0, "1", 2, "The file “in.wav” couldn’t be decoded because there is no room"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.songSeconds);
        QTemporaryDir folder;
        const QString input = writeTone(folder.filePath("in.wav"), c.songSeconds);
        const QString output = folder.filePath("out.aif");
        const QByteArray original(200000, 'x');
        ASSERT_TRUE(writeFile(output, original));
        QProcess process;
        process.setChildProcessModifier([] {
            ::signal(SIGXFSZ, SIG_IGN);
            const rlimit limit{64 * 1024, 64 * 1024};
            ::setrlimit(RLIMIT_FSIZE, &limit);
        });
        const RenderRun run = runRender({"-q", "--speed", c.speed, input, output}, &process);
        EXPECT_EQ(run.exitCode, c.exitCode);
        EXPECT_TRUE(run.err.startsWith("tesk-render: " + c.said.arg(output)))
            << run.err.toStdString();
        EXPECT_EQ(run.err.count('\n'), 1) << run.err.toStdString();
        EXPECT_FALSE(run.err.contains(".tmp-")) << run.err.toStdString();
        EXPECT_EQ(readFile(output), original);
        EXPECT_EQ(filesIn(folder.path()), (QStringList{"in.wav", "out.aif"}));
    }
}

TEST(TeskRender, PlaysARangeToItsEndAndStopsOnSigterm) {
    QTemporaryDir folder;
    const QString input = writeTone(folder.filePath("in.wav"), 12.0);

    // Half a second of song at twice the speed ends on its own, at the range's end.
    const RenderRun range = runRender({"--range", "10-10.5", "--speed", "2", input});
    EXPECT_EQ(range.exitCode, 0) << range.err.toStdString();
    EXPECT_TRUE(range.err.contains("0:10.5 / 0:10.5  speed 2  pitch 0")) << range.err.toStdString();
    // Without a sound device, it says so once and plays on silently, to the same end.
    QProcess deviceless;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("SDL_AUDIODRIVER", "none-such");
    deviceless.setProcessEnvironment(environment);
    const RenderRun silent = runRender({"--range", "10-10.5", "--speed", "2", input}, &deviceless);
    EXPECT_EQ(silent.exitCode, 0) << silent.err.toStdString();
    EXPECT_TRUE(silent.err.startsWith("tesk-render: warning: No sound output could be opened ("))
        << silent.err.toStdString();
    EXPECT_TRUE(silent.err.contains(". Playing on silently.\n")) << silent.err.toStdString();
    EXPECT_TRUE(silent.err.contains("0:10.5 / 0:10.5")) << silent.err.toStdString();

    QProcess process;
    process.start(QStringLiteral(TESK_RENDER_PATH), {"--pitch", "-2", input});
    QString err;
    ASSERT_TRUE(waitForError(process, "speed 1  pitch -2", err)) << err.toStdString();
    ::kill(pid_t(process.processId()), SIGTERM);
    ASSERT_TRUE(process.waitForFinished(5000));
    EXPECT_EQ(process.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(process.exitCode(), 130);
}
