#include "audio/ExportTemporaryFile.h"
#include "audio/TeskAudioFileWriter.h"
#include "audio/TeskExtendedAudioFile.h"
#include "audio/TeskExtendedAudioFilePlayer.h"

#include "diagnostics/NSXReturnThrowError.h"
#include "support/AudioFiles.h"
#include "support/Errors.h"
#include "support/MemorySong.h"
#include "support/Signals.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QThread>
#include <algorithm>
#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <thread>

using namespace tesk;
using tesk::test::MemorySong;

namespace {

using Outcome = TeskOutputAudioUnit::ExportOutcome;

/// Collects export progress, checking that each report arrives on the main thread.
class ProgressDelegate : public TeskExtendedAudioFilePlayerDelegate {
public:
    void audioFilePlayerUpdatedExportWithProgress(TeskExtendedAudioFilePlayer* player,
                                                  double progress) override {
        EXPECT_EQ(QThread::currentThread(), QCoreApplication::instance()->thread());
        reports.push_back(progress);
        if (cancelAtFirstReport)
            player->cancelWriteToFile();
    }
    std::vector<double> reports;
    bool cancelAtFirstReport = false;
};

struct ExportResult {
    Outcome outcome = Outcome::Ignored;
    std::optional<TeskError> error;
};

/// Exports `range` on a worker thread while the main thread delivers progress, as the window
/// does.
ExportResult exportOnWorker(TeskExtendedAudioFilePlayer& player, LoopRange range,
                            const QString& path) {
    ExportResult result;
    QEventLoop loop;
    std::thread worker([&] {
        try {
            result.outcome = player.writeSamplesInRange(range, path);
        } catch (const NSXError& raised) {
            result.error = raised.error();
        }
        // Queued behind the export's own reports; the main thread sleeps until then.
        QMetaObject::invokeMethod(&loop, &QEventLoop::quit, Qt::QueuedConnection);
    });
    loop.exec();
    worker.join();
    QCoreApplication::processEvents(); // the last queued reports
    return result;
}

/// A finished export, read back.
struct Exported {
    std::unique_ptr<TeskExtendedAudioFile> file; // none when the export or the reading failed
    std::vector<float> left;
};

/// Exports `range` to `name` in `folder` and reads the file back.
Exported exportAndRead(TeskExtendedAudioFilePlayer& player, LoopRange range,
                       const QTemporaryDir& folder, const QString& name) {
    const QString path = folder.filePath(name);
    Exported exported;
    const ExportResult result = exportOnWorker(player, range, path);
    EXPECT_EQ(result.outcome, Outcome::Written) << name.toStdString();
    if (result.outcome == Outcome::Written && (exported.file = test::openDecoded(path)))
        exported.left = test::readChannels(*exported.file)[0];
    return exported;
}

/// A 2 kHz burst (sigma 20 ms) centred on `centre`, in silence, on the side only (right = -left).
std::shared_ptr<MemorySong> burstAt(qint64 frames, qint64 centre) {
    std::vector<float> samples(static_cast<std::size_t>(frames), 0.0f);
    test::addToneBurst(samples, double(centre), 882.0);
    auto side = test::Stereo::side(samples);
    return std::make_shared<MemorySong>(std::move(side.left), std::move(side.right));
}

/// At most one progress report per 22050 frames of work (rendering two halves is more work than
/// the file's length), not much less often, each above the one before and the last nearly 1.
/// Two halves render on two threads: where the second runs far ahead of the first (a busy
/// machine gives one thread more time), its progress comes in jumps between the reports of the
/// first, which alone still report every 22050 frames and a slice of their own: not much less
/// than half as often.
void expectRisingProgress(const std::vector<double>& reports, std::uint32_t frames,
                          bool twoHalves = false) {
    ASSERT_GE(reports.size(), std::size_t(frames / 22050 * (twoHalves ? 35 : 80) / 100));
    EXPECT_LE(reports.size(), std::size_t(frames / 22050 * 13 / 10));
    for (std::size_t i = 1; i < reports.size(); ++i)
        EXPECT_GT(reports[i], reports[i - 1]);
    EXPECT_LE(reports.back(), 1.0);
    EXPECT_GT(reports.back(), 0.85);
}

constexpr std::uint32_t kSlice = TeskOutputAudioUnit::kExportSliceFrames;

struct Setting {
    float speed;
    double semitones;
};

std::ostream& operator<<(std::ostream& stream, const Setting& setting) {
    return stream << "speed " << setting.speed << " semitones " << setting.semitones;
}

void apply(TeskExtendedAudioFilePlayer& player, const Setting& setting) {
    player.setPlaybackSpeed(setting.speed);
    player.setPlaybackPitchInSemitones(setting.semitones);
}

} // namespace

TEST(TeskExport, WritesWholeSlicesInTheFormatItsExtensionNames) {
    // Which extensions name a format is the writer's rule; an export to any other is ignored.
    QTemporaryDir folder;
    TeskExtendedAudioFilePlayer player(MemorySong::sine(44100, 440.0, 0.5), true);
    EXPECT_EQ(exportOnWorker(player, {0, 44100}, folder.filePath("a.wav")).outcome,
              Outcome::Ignored);
    EXPECT_FALSE(QFile::exists(folder.filePath("a.wav")));

    for (const char* name : {"song.aif", "song.m4a"}) {
        SCOPED_TRACE(name);
        const Exported back = exportAndRead(player, {0, 44100}, folder, name);
        ASSERT_TRUE(back.file);
        EXPECT_EQ(back.file->info().codecName, QString(name).endsWith("aif") ? "pcm_s16be" : "aac");
        // Whole slices: the length rounded up to the next one.
        EXPECT_EQ(back.file->frameCount(), qint64((44100 + kSlice - 1) / kSlice * kSlice));
        EXPECT_NEAR(test::toneAmplitude(std::span(back.left).subspan(4410, 22050), 440.0), 0.5,
                    0.03);
    }
}

TEST(ExportTemporaryFile, ALinkOrANameAsLongAsAFolderTakesIsWrittenAsNamed) {
    // 80 CJK characters and ".aif": 244 bytes, of the 255 a name may have.
    const QString longName = QString(80, QChar(0x97F3)) + ".aif";
    const struct {
        const char* name;
        QString destination;
        QStringList links; // made in turn, each to the next, the last to the file
        QString target;    // the file the export ends up in
    } cases[] = {
        {"a long name", longName, {}, longName},
        {"a link", "link.aif", {"link.aif"}, "take.aif"},
        {"links to a file not made yet", "first.aif", {"first.aif", "second.aif"}, "new.aif"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        QTemporaryDir folder;
        if (c.target == "take.aif") {
            ASSERT_TRUE(test::writeFile(folder.filePath(c.target), "the old take"));
        }
        for (qsizetype i = 0; i < c.links.size(); ++i) {
            const QString next = i + 1 < c.links.size() ? c.links[i + 1] : c.target;
            ASSERT_TRUE(QFile::link(folder.filePath(next), folder.filePath(c.links[i])));
        }
        QString error;
        auto temporary = ExportTemporaryFile::create(folder.filePath(c.destination), &error);
        ASSERT_TRUE(temporary) << error.toStdString();
        ASSERT_TRUE(test::writeFile(temporary->path(), "the new take"));
        ASSERT_TRUE(temporary->commit(&error)) << error.toStdString();
        // Through the links: the file they name holds the export, and the links stay.
        EXPECT_EQ(test::readFile(folder.filePath(c.target)), "the new take");
        for (const QString& link : c.links)
            EXPECT_TRUE(QFileInfo(folder.filePath(link)).isSymLink()) << link.toStdString();
    }
}

TEST(ExportTemporaryFile, OnesLeftByAKilledExportGoAtTheNextAndOnesBeingWrittenStay) {
    QTemporaryDir folder;
    const QString destination = folder.filePath("take.m4a");
    QString error;
    const auto beingWritten = ExportTemporaryFile::create(destination, &error);
    ASSERT_TRUE(beingWritten) << error.toStdString();
    // A killed export's file is one nobody holds: its lock went with the process.
    const struct {
        const char* name;
        bool kept;
    } files[] = {
        {".take.tmp-0a1b2c.m4a", false}, {".take.tmp-zz9999.m4a", false},
        {".take.tmp-0A1B2C.m4a", true},  {".take.tmp-0a1b2.m4a", true},
        {".take.tmp-0a1b2c.aif", true},  {".tak.tmp-0a1b2c.m4a", true},
        {"take.tmp-0a1b2c.m4a", true},   {".take.tmp-0a1b2c.m4a~", true},
    };
    for (const auto& file : files)
        ASSERT_TRUE(test::writeFile(folder.filePath(file.name), "part of a take"));
    const auto next = ExportTemporaryFile::create(destination, &error);
    ASSERT_TRUE(next) << error.toStdString();
    for (const auto& file : files)
        EXPECT_EQ(QFile::exists(folder.filePath(file.name)), file.kept) << file.name;
    EXPECT_TRUE(QFile::exists(beingWritten->path()));
    EXPECT_TRUE(QFile::exists(next->path()));
}

TEST(TeskExport, EachExportThroughOnePlayerKeepsItsChannelsApartAndComesOutTheSame) {
    // 440 Hz on the left and 660 Hz on the right, exported twice through one player, as a
    // window does, with an export at other settings in between: both come out the same to the
    // sample, the channels apart, the length set by the speed and the tone by the pitch.
    const auto left = test::sine(440.0, 0.5, 44100 * 3);
    const auto right = test::sine(660.0, 0.5, 44100 * 3);
    for (const Setting& setting : {Setting{1.0f, 0.0}, {0.5f, 0.0}, {1.0f, 12.0}, {0.75f, -5.0}}) {
        SCOPED_TRACE(testing::Message() << setting);
        TeskExtendedAudioFilePlayer player(std::make_shared<MemorySong>(left, right), true);
        apply(player, setting);
        const double shift = std::pow(2.0, setting.semitones / 12.0);
        QTemporaryDir folder;
        std::vector<std::vector<float>> firstTake;
        for (int round = 0; round < 2; ++round) {
            SCOPED_TRACE(round);
            if (round == 1) {
                apply(player, {2.0f, -7.0});
                exportAndRead(player, {0, 60000}, folder, "other.aif");
                apply(player, setting);
            }
            const Exported back = exportAndRead(player, {22050, 44100}, folder, "take.aif");
            ASSERT_TRUE(back.file);
            // The range's length over the speed, in whole slices.
            EXPECT_GE(back.file->frameCount(), qint64(44100 / setting.speed));
            EXPECT_LT(back.file->frameCount(), qint64(44100 / setting.speed) + kSlice);
            const auto channels = test::readChannels(*back.file);
            if (round == 0)
                firstTake = channels;
            EXPECT_EQ(channels, firstTake);
            const auto middle = [](const std::vector<float>& channel) {
                return std::span(channel).subspan(channel.size() / 4, channel.size() / 2);
            };
            EXPECT_NEAR(test::toneAmplitude(middle(channels[0]), 440.0 * shift), 0.5, 0.05);
            EXPECT_LT(test::toneAmplitude(middle(channels[0]), 660.0 * shift), 0.02);
            EXPECT_NEAR(test::toneAmplitude(middle(channels[1]), 660.0 * shift), 0.5, 0.05);
            EXPECT_LT(test::toneAmplitude(middle(channels[1]), 440.0 * shift), 0.02);
        }
    }
}

TEST(TeskExport, StartsOnTheRangesFirstFrameWithoutTheStretchersDelay) {
    // A burst at source frame 30000 of a range starting at 10000 lands at output frame
    // 20000 / rate, within 1 ms, with or without the vocal reduction (which keeps side-only
    // sound).
    for (const float speed : {1.0f, 0.5f, 2.0f}) {
        for (const bool vocals : {false, true}) {
            SCOPED_TRACE(testing::Message() << "speed " << speed << " vocals " << vocals);
            auto song = burstAt(44100 * 3, 30000);
            QTemporaryDir folder;
            TeskExtendedAudioFilePlayer player(song, true);
            player.setPlaybackSpeed(speed);
            player.setVocalRemoval(vocals);
            const Exported back = exportAndRead(player, {10000, 60000}, folder, "burst.aif");
            ASSERT_TRUE(back.file);
            EXPECT_NEAR(test::energyCentre(back.left), 20000.0 / speed, 44.1);
        }
    }
}

TEST(TeskExport, ProgressRisesOnTheMainThreadAndCancelStopsAfterTheSlice) {
    // 10 s goes through the reader on one chain; 20 s renders its halves on two at once, whose
    // whole export's progress the test of their join checks.
    for (const int seconds : {10, 20}) {
        SCOPED_TRACE(seconds);
        QTemporaryDir folder;
        const std::uint32_t frames = 44100u * std::uint32_t(seconds);
        TeskExtendedAudioFilePlayer player(MemorySong::sine(frames, 440.0, 0.5), true);
        ProgressDelegate delegate;
        player.setDelegate(&delegate);
        if (seconds == 10) {
            ASSERT_EQ(exportOnWorker(player, {0, frames}, folder.filePath("whole.m4a")).outcome,
                      Outcome::Written);
            expectRisingProgress(delegate.reports, frames);
            delegate.reports.clear();
        }

        delegate.cancelAtFirstReport = true;
        const QString cancelled = folder.filePath("cancelled.aif");
        EXPECT_EQ(exportOnWorker(player, {0, frames}, cancelled).outcome, Outcome::Cancelled);
        EXPECT_LE(delegate.reports.size(), 2u); // one more may have been on its way
        const auto back = test::openDecoded(cancelled);
        ASSERT_TRUE(back); // what was written stays, for the caller to keep or delete
        EXPECT_LT(back->frameCount(), qint64(frames) / 2);
    }
}

TEST(TeskExport, TheWholeSongWaitsForDecodingToKnowItsLength) {
    QTemporaryDir folder;
    auto song = MemorySong::sine(3 * 44100, 440.0, 0.5);
    song->guessLength(44100);
    song->decodeOnlyUpTo(22050);
    TeskExtendedAudioFilePlayer player(song, true);
    const QString path = folder.filePath("whole.aif");
    Outcome outcome = Outcome::Ignored;
    std::thread worker([&] { outcome = player.writeWholeSong(path); });
    // Decoding goes on while the export waits, and finds three seconds where one was guessed.
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    song->finishDecoding();
    worker.join();
    ASSERT_EQ(outcome, Outcome::Written);
    const auto back = test::openDecoded(path);
    ASSERT_TRUE(back);
    EXPECT_GE(back->frameCount(), 3 * 44100);
}

TEST(TeskExport, TwoHalvesRenderedAtOnceJoinWithoutASeam) {
    // A steady tone through the whole chain: across the join of the halves its level and its
    // smoothness are those of the rest of the file, in whatever phase the two halves' own
    // stretchers leave it (at these settings, a join that did not line the halves up cancelled
    // the tone in the crossfade).
    for (const Setting& c : {Setting{1.0f, -2.0}, {0.75f, -2.0}}) {
        SCOPED_TRACE(testing::Message() << c);
        QTemporaryDir folder;
        // The shortest range that renders in two halves.
        const std::uint32_t frames = 44100 * 20;
        TeskExtendedAudioFilePlayer player(MemorySong::sine(frames, 330.0, 0.5), true);
        ProgressDelegate progress;
        player.setDelegate(&progress);
        apply(player, c);
        player.setEqualizerEnabled(true);
        player.setVocalRemoval(true);
        const Exported back = exportAndRead(player, {0, frames}, folder, "joined.aif");
        ASSERT_TRUE(back.file);
        if (c.speed == 1.0f) // as much work as the file's length
            expectRisingProgress(progress.reports, frames, true);
        const auto& left = back.left;
        const auto join = std::size_t(double(frames / 2) / double(c.speed));
        const auto crossfade = std::span(left).subspan(join - 2048, 4096);
        EXPECT_NEAR(test::rmsDb(crossfade), test::rmsDb(std::span(left).subspan(join / 2, 4096)),
                    0.3);
        // A seam would show as a jump between neighbouring samples.
        const auto around = std::span(left).subspan(join - 8820, 17640);
        EXPECT_LT(test::largestStep(around),
                  test::largestStep(std::span(left).subspan(join / 2, 17640)) * 1.2);
    }
}

TEST(TeskExport, ABeatKeepsItsTimeAcrossTheJoinOfTheHalves) {
    // Clicks every half second over a bass note: where the halves' stretchers leave the bass in
    // other phases, the join once moved the second half on by most of a bass period, and every
    // click after it came 18 ms early. The move is now at most half of one (9 ms at 55 Hz).
    constexpr std::uint32_t kFrames = 44100 * 20;
    std::vector<float> left(kFrames), right(kFrames);
    for (std::size_t i = 0; i < kFrames; ++i) {
        const double t = double(i) / 44100.0;
        const auto tone = [t](double hertz, double level, double bend = 0.0) {
            return level * std::sin(2.0 * M_PI * hertz * t + bend);
        };
        const double bass = tone(55.0, 0.3);
        const double click = i % 22050 < 88 ? 0.6 : 0.0;
        left[i] = float(bass + click + tone(220.0, 0.15, 3.0 * std::sin(2.0 * M_PI * 0.3 * t)) +
                        tone(330.0, 0.1) + tone(415.0, 0.1));
        right[i] = float(bass + click + tone(277.0, 0.12) +
                         tone(330.0, 0.1, 2.0 * std::sin(2.0 * M_PI * 0.2 * t)));
    }
    for (const float speed : {0.75f, 0.9f}) {
        SCOPED_TRACE(speed);
        QTemporaryDir folder;
        TeskExtendedAudioFilePlayer player(std::make_shared<MemorySong>(left, right), true);
        player.setPlaybackSpeed(speed);
        const Exported back = exportAndRead(player, {0, kFrames}, folder, "beat.aif");
        ASSERT_TRUE(back.file);
        std::vector<double> clicks; // where each click's rise is steepest
        for (std::size_t i = 1; i < back.left.size(); ++i) {
            if (back.left[i] - back.left[i - 1] < 0.25f ||
                (!clicks.empty() && double(i) - clicks.back() < 4410.0))
                continue;
            std::size_t steepest = i;
            for (std::size_t j = i; j < std::min(back.left.size(), i + 32); ++j)
                if (back.left[j] - back.left[j - 1] > back.left[steepest] - back.left[steepest - 1])
                    steepest = j;
            clicks.push_back(double(steepest));
        }
        // Every click on the beat of the first, a click smeared by the crossfade aside.
        const double beat = 22050.0 / double(speed);
        const double join = 0.5 * kFrames / double(speed);
        EXPECT_GE(std::count_if(clicks.begin(), clicks.end(), [&](double at) { return at > join; }),
                  12);
        for (const double at : clicks) {
            const double beats = (at - clicks.front()) / beat;
            EXPECT_NEAR(beats, std::round(beats), 0.0095 * 44100 / beat) << at / 44100 << " s";
        }
    }
}

TEST(TeskExport, FailuresRaiseOnTheExportThreadAndSayWhy) {
    TeskExtendedAudioFilePlayer unwritable(MemorySong::sine(44100, 440.0, 0.5), true);
    ExportResult result = exportOnWorker(unwritable, {0, 44100}, "/nonexistent-folder/song.aif");
    ASSERT_TRUE(result.error.has_value());
    EXPECT_FALSE(result.error->localizedDescription().isEmpty());

    // A file may grow to 1 MB: the 20-second M4A fits, the second half's raw frames do not.
    QTemporaryDir folder;
    const std::uint32_t frames = 44100 * 20;
    TeskExtendedAudioFilePlayer player(MemorySong::sine(frames, 440.0, 0.5), true);
    {
        const test::FileSizeLimit limit(1 << 20);
        result = exportOnWorker(player, {0, frames}, folder.filePath("full.m4a"));
    }
    ASSERT_TRUE(test::isError(result.error, AudioExportErrorDomain,
                              AudioExportErrorCode::CannotWrite, "full.m4a"));
    EXPECT_EQ(result.error->userInfo().value(AudioExportDetailKey).toString(),
              QString::fromLocal8Bit(std::strerror(EFBIG)))
        << "the system's own reason";
}

TEST(TeskExport, ARangeInTheMiddleOfTheSongKeepsItsLevelAtBothEnds) {
    // A tone that goes on before and past the range: forwards and backwards through the reader,
    // and a range long enough for two halves rendered at once. The range's last frames keep
    // their level, nothing after them gets in, and its first frames come at their level too
    // (two octaves down at double speed, 13 % short in the first 10 ms).
    // The tone is on the side, which the vocal reduction keeps; with it, a low centred tone it
    // passes by as well, which its last block carried on past the range.
    const struct {
        Setting setting;
        LoopRange range;
        qint64 songFrames;
        double firstAtLeast; // of the steady peak, in the first 10 ms
        bool vocals = false;
    } cases[] = {{{2.0f, -24.0}, {44100, 88200}, 4 * 44100, 0.85},
                 {{-2.0f, -24.0}, {44100, 88200}, 4 * 44100, 0.85},
                 {{2.0f, -24.0}, {44100, 20 * 44100}, 22 * 44100, 0.85},
                 {{1.5f, -3.0}, {44100, 88200}, 4 * 44100, 0.95},
                 {{-1.5f, -3.0}, {44100, 88200}, 4 * 44100, 0.95},
                 {{1.5f, -3.0}, {44100, 20 * 44100}, 22 * 44100, 0.95},
                 {{1.5f, 0.0}, {44100, 88200}, 4 * 44100, 0.85, true}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.setting << " range " << c.range.location << "+"
                                        << c.range.length << (c.vocals ? " vocals" : ""));
        QTemporaryDir folder;
        auto tone = test::Stereo::side(test::sine(440.0, 0.5, std::size_t(c.songFrames)));
        if (c.vocals) {
            const auto low = test::sine(100.0, 0.2, std::size_t(c.songFrames));
            for (std::size_t i = 0; i < low.size(); ++i) {
                tone.left[i] += low[i];
                tone.right[i] += low[i];
            }
        }
        TeskExtendedAudioFilePlayer player(std::make_shared<MemorySong>(tone.left, tone.right),
                                           true);
        apply(player, c.setting);
        player.setVocalRemoval(c.vocals);
        const Exported back = exportAndRead(player, c.range, folder, "part.aif");
        ASSERT_TRUE(back.file);
        const auto frames =
            std::size_t(std::llround(double(c.range.length) / std::fabs(c.setting.speed)));
        ASSERT_GE(back.left.size(), frames);
        const auto part = [&](std::size_t from, std::size_t count) {
            return std::span(back.left).subspan(from, count);
        };
        const double steadyDb = test::rmsDb(part(frames / 2, 4410));
        EXPECT_GE(test::rmsDb(part(frames - 4410, 4410)), steadyDb - 0.25);
        // What fills the last slice after the range is silence, not the song going on.
        EXPECT_EQ(test::rms(std::span(back.left).subspan(frames)), 0.0);
        const auto peak = [&](std::size_t from) {
            const auto samples = part(from, 441);
            return std::abs(*std::ranges::max_element(
                samples, [](float a, float b) { return std::abs(a) < std::abs(b); }));
        };
        const float steadyPeak = peak(frames / 2);
        EXPECT_GT(peak(0), c.firstAtLeast * steadyPeak);
        EXPECT_GT(peak(441), c.firstAtLeast * steadyPeak);
    }
}
