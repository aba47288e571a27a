#include "document/TeskDocument.h"

#include "audio/ProcessingChain.h"
#include "audio/TeskAudioFileWriter.h"
#include "audio/TeskEqualizerSettings.h"
#include "audio/TeskVocalReductionEffectSettings.h"
#include "document/TeskDocumentFile.h"
#include "document/TeskDocumentWindow.h"
#include "support/AudioFiles.h"
#include "support/Signals.h"
#include "support/SongFiles.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <functional>
#include <future>
#include <sys/stat.h>

using namespace tesk;
using namespace tesk::test;

namespace {

constexpr int kRate = 44100;

class RecordingDelegate : public TeskDocumentPlaybackDelegate,
                          public TeskDocumentMetadataDelegate,
                          public TeskDocumentFileExportDelegate {
public:
    void documentDidBeginPlayingAudio(TeskDocument*) override { ++began; }
    void documentDidStopPlayingAudio(TeskDocument*) override { ++stopped; }
    void documentDidImportMetadata(TeskDocument*) override { ++metadata; }
    void updateFileExportWithProgress(double value) override { progress.push_back(value); }
    void fileDidFinishExporting(const QString& path) override { finished = path; }
    void fileExportDidFail(const QString& path, const TeskError& error) override {
        failed = path;
        failure = error;
    }

    int began = 0;
    int stopped = 0;
    int metadata = 0;
    std::vector<double> progress;
    QString finished;
    QString failed;
    TeskError failure;
};

class FakeWindow : public TeskDocumentWindow {
public:
    void showWindow() override {}
    void synchronizeWindowTitleWithDocumentName() override { ++titleSyncs; }
    QRectF windowFrame() const override { return frame; }

    int titleSyncs = 0;
    QRectF frame{120.5, 80.42949296, 900, 640};
};

class DocumentTest : public testing::Test {
protected:
    // Every new document starts at the last volume used in any document, this process's
    // earlier tests' included.
    void SetUp() override { QSettings().remove(TeskDocument::PlaybackVolumeSettingKey); }

    QString path(const QString& name) const { return mDir.filePath(name); }
    QUrl url(const QString& name) const { return QUrl::fromLocalFile(path(name)); }

    /// A stereo sine song of `seconds`, with a title tag when one is given.
    QString writeSong(const QString& name, double seconds, const QString& title = {}) {
        return writeTone(path(name), seconds, 440.0,
                         title.isEmpty() ? QStringList()
                                         : QStringList{"-metadata", "title=" + title});
    }

    /// A document for the song `file`, as opening the song makes it.
    std::unique_ptr<TeskDocument> openSong(const QString& file) {
        auto document = std::make_unique<TeskDocument>();
        TeskError error;
        EXPECT_TRUE(document->readFromURL(QUrl::fromLocalFile(file), "audio/x-wav", &error))
            << error.description().toStdString();
        return document;
    }

    std::unique_ptr<TeskDocument> load(const QString& name, TeskError* error = nullptr) {
        auto document = std::make_unique<TeskDocument>();
        TeskError ignored;
        if (!document->readFromURL(url(name), TeskDocumentType, error ? error : &ignored))
            return nullptr;
        return document;
    }

    /// A saved document holding only the keys of `object`, the song reference included.
    void writeDocument(const QString& name, QJsonObject object, const QString& song) {
        object.insert("audioFileAlias",
                      QString::fromLatin1(TeskFileReference::fromPath(song)->toBytes().toBase64()));
        EXPECT_TRUE(writeFile(path(name), QJsonDocument(object).toJson()));
    }

    QTemporaryDir mDir;
};

TEST_F(DocumentTest, NewDocumentsStartAtTheDefaultsAndTheLastVolumeAndWithoutASongDoNothing) {
    {
        TeskDocument first;
        EXPECT_EQ(first.playbackVolume(), 1.0);
        EXPECT_EQ(first.zoomLevel(), 0.9);
        EXPECT_EQ(first.playbackSpeed(), 1.0);
        EXPECT_EQ(first.pitchAdjustment(), 0.0);
        EXPECT_EQ(first.loopRange(), LoopRange{});
        for (int kind = 0; kind < 4; ++kind)
            EXPECT_TRUE(first.markers(MarkerKind(kind)).isEmpty());
        EXPECT_FALSE(first.effectsVisible());
        EXPECT_TRUE(first.documentWindowFrame().isNull());
        ASSERT_NE(first.effectsSettings(), nullptr);
        EXPECT_EQ(first.effectsSettings()->dictionaryRepresentation(),
                  TeskEffectsSettings().dictionaryRepresentation());
        EXPECT_EQ(first.displayName(), "Tesk");

        // Without a song nothing plays, markers are refused, and there is no practice to keep.
        RecordingDelegate delegate;
        first.setPlaybackDelegate(&delegate);
        first.setPlaybackSpeed(0.5);
        first.setPitchAdjustment(3.0);
        first.effectsSettings()->setEqualizerEnabled(true);
        first.startFilePlaying();
        first.dropGenericMarker();
        first.offsetCurrentFrame(1000);
        EXPECT_FALSE(first.isFilePlaying());
        EXPECT_EQ(first.currentFrame(), 0);
        EXPECT_TRUE(first.genericMarkers().isEmpty());
        EXPECT_EQ(delegate.began, 0);
        EXPECT_FALSE(first.performLoopExportToFile({{"destinationFile", path("out.aif")}}));
        EXPECT_FALSE(first.isDocumentEdited());
        first.setPlaybackVolume(0.35);
    }
    TeskDocument next;
    EXPECT_EQ(next.playbackVolume(), 0.35);
}

TEST_F(DocumentTest, EverySettingReachesThePlayer) {
    auto document = openSong(writeSong("song.wav", 1.0));
    TeskExtendedAudioFilePlayer* player = document->player();
    ASSERT_NE(player, nullptr);

    document->setPlaybackVolume(0.25);
    document->setPlaybackSpeed(-0.75);
    document->setPitchAdjustment(-5.0);
    EXPECT_FLOAT_EQ(player->outputAudioUnit()->playbackLevel(), 0.25f);
    EXPECT_FLOAT_EQ(player->playbackSpeed(), 0.75f);
    EXPECT_DOUBLE_EQ(player->playbackPitchInSemitones(), -5.0);

    TeskEffectsSettings* effects = document->effectsSettings();
    effects->setVocalReductionEnabled(true);
    effects->setPanningEnabled(true);
    effects->setPanAmount(0.8);
    effects->setOutOfPhase(true);
    effects->setEqualizerEnabled(true);
    TeskEqualizerSettings equalizer;
    equalizer.setBands({0, 0, 0, -12, 0, 0, 0, 0, 0, 0});
    effects->setEqualizerSettings(&equalizer);
    // An edit inside the vocal band object reaches the player too.
    effects->vocalReductionEffectSettings()->setLowFrequency(300.0);
    EXPECT_TRUE(player->vocalRemoval());
    EXPECT_EQ(player->vocalReductionEffectSettings()->lowFrequency(), 300.0);
    EXPECT_TRUE(player->panAdjust());
    EXPECT_EQ(player->panAmount(), 0.8);
    EXPECT_TRUE(player->outOfPhase());
    EXPECT_TRUE(player->equalizerEnabled());
    EXPECT_EQ(player->equalizerSettings()->gainOfBand(3), -12.0);

    // Installing another settings object pushes all of its values at once.
    document->setEffectsSettings(std::make_unique<TeskEffectsSettings>());
    EXPECT_FALSE(player->vocalRemoval());
    EXPECT_FALSE(player->panAdjust());
    EXPECT_FALSE(player->outOfPhase());
    EXPECT_FALSE(player->equalizerEnabled());
    EXPECT_EQ(player->equalizerSettings()->gainOfBand(3), 0.0);
    document->effectsSettings()->setPanningEnabled(true);
    EXPECT_TRUE(player->panAdjust());
}

TEST_F(DocumentTest, MarkersToggleAndUndoAsWholeArraysLikeTheLoop) {
    auto document = openSong(writeSong("song.wav", 2.0));
    QUndoStack* undo = document->undoManager();
    EXPECT_EQ(undo->count(), 0);

    document->setCurrentFrame(1000);
    document->dropGenericMarker();
    document->setCurrentFrame(5000);
    document->dropGenericMarker();
    document->dropChorusMarker();
    EXPECT_EQ(document->genericMarkers(), (QList<quint32>{1000, 5000}));
    EXPECT_EQ(document->chorusMarkers(), (QList<quint32>{5000}));
    // The second drop at one frame takes the marker away again.
    document->setCurrentFrame(1000);
    document->dropGenericMarker();
    EXPECT_EQ(document->genericMarkers(), (QList<quint32>{5000}));

    undo->undo();
    EXPECT_EQ(document->genericMarkers(), (QList<quint32>{1000, 5000}));
    undo->undo();
    EXPECT_TRUE(document->chorusMarkers().isEmpty());
    undo->redo();
    EXPECT_EQ(document->chorusMarkers(), (QList<quint32>{5000}));

    // Plain settings never reach the undo stack; the loop does.
    const int steps = undo->count();
    document->setPlaybackSpeed(0.5);
    document->setPitchAdjustment(2.0);
    document->setPlaybackVolume(0.5);
    document->setZoomLevel(0.2);
    EXPECT_EQ(undo->count(), steps);
    document->setLoopRange({100, 200});
    document->setLoopRange({300, 400});
    undo->undo();
    EXPECT_EQ(document->loopRange(), (LoopRange{100, 200}));
    undo->undo();
    EXPECT_EQ(document->loopRange(), LoopRange{});

    // A loop edited in one gesture is one step back to the loop before it; a gesture that
    // ends where it began leaves none.
    const struct {
        std::vector<LoopRange> set;
        int steps;
    } gestures[] = {{{{10, 20}, {10, 50}, {5, 60}}, 1}, {{{7, 7}, {}}, 0}, {{}, 0}};
    for (const auto& gesture : gestures) {
        const int index = undo->index();
        document->beginLoopEdit();
        for (const LoopRange range : gesture.set)
            document->setLoopRange(range);
        document->endLoopEdit();
        EXPECT_EQ(undo->index(), index + gesture.steps);
        EXPECT_EQ(document->loopRange(), gesture.set.empty() ? LoopRange{} : gesture.set.back());
        if (gesture.steps > 0) {
            undo->undo();
            EXPECT_EQ(document->loopRange(), LoopRange{});
        }
    }
    // Undo in the middle of a drag (its key pressed while the mouse is held): the drag's step
    // goes back to the loop the undo left, which the saved document has.
    document->setLoopRange({10, 20});
    document->updateChangeCount(TeskDocument::ChangeType::Cleared);
    document->setLoopRange({30, 40});
    document->beginLoopEdit();
    document->setLoopRange({35, 40});
    undo->undo();
    document->setLoopRange({50, 60});
    document->endLoopEdit();
    EXPECT_TRUE(document->isDocumentEdited());
    undo->undo();
    EXPECT_EQ(document->loopRange(), (LoopRange{10, 20}));
    EXPECT_FALSE(document->isDocumentEdited());

    // The Edit menu names each step by what it did.
    const struct {
        const char* step;
        std::function<void()> change;
    } named[] = {
        {"Add Chorus Marker", [&] { document->dropChorusMarker(); }},
        {"Remove Chorus Marker", [&] { document->dropChorusMarker(); }},
        {"Move Bridge Marker",
         [&] { document->setBridgeMarkers({10}), document->setBridgeMarkers({20}); }},
        {"Add Generic Marker", [&] { document->dropGenericMarker(); }},
        {"Clear Loop", [&] { document->setLoopRange({}); }},
        {"Set Loop",
         [&] {
             document->setLoopRange({1, 2});
         }},
        {"Change Loop",
         [&] {
             document->setLoopRange({3, 2});
         }},
    };
    document->setCurrentFrame(7000);
    for (const auto& step : named) {
        step.change();
        EXPECT_EQ(undo->undoText(), step.step);
    }
    // An empty loop is no loop wherever it lies: moving it leaves no step that does nothing.
    const int stepsBefore = undo->count();
    document->setLoopRange({40, 0});
    document->setLoopRange({});
    document->beginLoopEdit();
    document->setLoopRange({90, 0});
    document->endLoopEdit();
    EXPECT_EQ(undo->count(), stepsBefore + 1) << "only clearing the loop";
}

TEST_F(DocumentTest, ChangesToThePracticeAreEditsAndViewSettingsAreNot) {
    // Speed, pitch and effects are not undone, but closing must not lose them.
    const struct {
        const char* name;
        std::function<void(TeskDocument&)> change;
        bool edits;
    } changes[] = {
        {"speed", [](TeskDocument& d) { d.setPlaybackSpeed(0.5); }, true},
        {"pitch", [](TeskDocument& d) { d.setPitchAdjustment(-2.0); }, true},
        {"equalizer", [](TeskDocument& d) { d.effectsSettings()->setEqualizerEnabled(true); },
         true},
        {"vocal band",
         [](TeskDocument& d) {
             d.effectsSettings()->vocalReductionEffectSettings()->setHighFrequency(5000.0);
         },
         true},
        {"pan", [](TeskDocument& d) { d.effectsSettings()->setPanAmount(0.3); }, true},
        {"equal effects",
         [](TeskDocument& d) {
             d.setEffectsSettings(d.effectsSettings()->copy());
             d.effectsSettings()->setPanningEnabled(d.effectsSettings()->isPanningEnabled());
         },
         false},
        {"same speed", [](TeskDocument& d) { d.setPlaybackSpeed(d.playbackSpeed()); }, false},
        {"volume", [](TeskDocument& d) { d.setPlaybackVolume(0.3); }, false},
        {"zoom", [](TeskDocument& d) { d.setZoomLevel(0.3); }, false},
        {"effects shown", [](TeskDocument& d) { d.setEffectsVisible(true); }, false},
    };
    auto document = openSong(writeSong("song.wav", 0.5));
    TeskError error;
    ASSERT_TRUE(document->saveToURL(url("practice.tesk"), &error));
    for (const auto& c : changes) {
        SCOPED_TRACE(c.name);
        auto saved = load("practice.tesk");
        ASSERT_TRUE(saved);
        EXPECT_FALSE(saved->isDocumentEdited());
        c.change(*saved);
        EXPECT_EQ(saved->isDocumentEdited(), c.edits);
    }
}

TEST_F(DocumentTest, TheLoopRangeSteersLoopingPlayback) {
    auto document = openSong(writeSong("song.wav", 6.0));
    RecordingDelegate delegate;
    document->setPlaybackDelegate(&delegate);
    TeskExtendedAudioFilePlayer* player = document->player();

    // Starting exactly at the loop's end stays there.
    document->setLoopRange({kRate, kRate});
    document->setCurrentFrame(2 * kRate);
    document->startFileLooping();
    EXPECT_EQ(delegate.began, 1);
    EXPECT_TRUE(player->isLooping());
    EXPECT_EQ(player->loopRange(), (LoopRange{kRate, kRate}));
    EXPECT_GE(document->currentFrame(), 2 * kRate - 4410);
    document->stopFilePlaying();
    EXPECT_EQ(delegate.stopped, 1);

    // From outside the loop, looping starts at the loop's start.
    document->setCurrentFrame(4 * kRate);
    document->startFileLooping();
    EXPECT_LT(std::abs(document->currentFrame() - kRate), 4410);

    // A new loop that starts after the position leaves it alone...
    document->setLoopRange({3 * kRate, kRate});
    EXPECT_EQ(player->loopRange(), (LoopRange{3 * kRate, kRate}));
    EXPECT_LT(document->currentFrame(), 2 * kRate);
    // ...one that ends before it sends it to the loop's start.
    document->setCurrentFrame(5 * kRate);
    document->setLoopRange({kRate / 2, kRate / 2});
    EXPECT_LT(std::abs(document->currentFrame() - kRate / 2), 4410);
    // A loop of no length ends looping, not playback.
    document->setLoopRange({0, 0});
    EXPECT_FALSE(player->isLooping());
    EXPECT_TRUE(player->isFilePlaying());
    document->stopFilePlaying();
}

TEST_F(DocumentTest, TheEndOfTheSongStopsPlaybackThereAndTellsTheDelegate) {
    // Played forwards from the start, or backwards from a quarter second in: the position is
    // left at the end reached, not the last block short of it.
    auto document = openSong(writeSong("song.wav", 0.5));
    const qint64 frames = document->player()->totalFrames();
    for (const double speed : {1.0, -1.0}) {
        SCOPED_TRACE(speed);
        RecordingDelegate delegate;
        document->setPlaybackDelegate(&delegate);
        document->setPlaybackSpeed(speed);
        document->setCurrentFrame(speed > 0 ? 0 : kRate / 4);
        document->startFilePlaying();
        EXPECT_TRUE(QTest::qWaitFor([&] { return delegate.stopped == 1; }, 5000));
        EXPECT_FALSE(document->isFilePlaying());
        EXPECT_EQ(document->currentFrame(), speed > 0 ? frames : 0);
    }
    document->offsetCurrentFrame(kRate / 4);
    EXPECT_EQ(document->currentFrame(), kRate / 4);
}

TEST_F(DocumentTest, SavingAndLoadingKeepsEveryField) {
    const QString song = writeSong("song.wav", 1.0);
    auto document = openSong(song);
    FakeWindow window;
    document->addWindowController(&window);
    document->setPlaybackVolume(0.6);
    document->setZoomLevel(0.3);
    document->setLoopRange({4410, 22050});
    document->setPlaybackSpeed(-0.5);
    document->setPitchAdjustment(7.0);
    document->setGenericMarkers({30, 10, 20});
    document->setChorusMarkers({1});
    document->setVerseMarkers({4294967295u});
    document->setBridgeMarkers({7, 8});
    document->effectsSettings()->setPanningEnabled(true);
    document->effectsSettings()->setPanAmount(0.2);
    document->effectsSettings()->vocalReductionEffectSettings()->setHighFrequency(4000.0);
    document->setEffectsVisible(true);
    document->setDocumentWindowFrame({1, 2, 3, 4});
    TeskError error;
    ASSERT_TRUE(document->saveToURL(url("practice.tesk"), &error))
        << error.description().toStdString();
    EXPECT_FALSE(document->isDocumentEdited());
    EXPECT_EQ(document->displayName(), "practice");

    auto loaded = load("practice.tesk", &error);
    ASSERT_TRUE(loaded) << error.description().toStdString();
    EXPECT_EQ(loaded->audioFileURL(), QUrl::fromLocalFile(QFileInfo(song).canonicalFilePath()));
    // Each value set above is one of its own, none a new document's.
    for (const char* key :
         {"playbackVolume", "zoomLevel", "loopRange", "playbackSpeed", "pitchAdjustment",
          "genericMarkers", "chorusMarkers", "verseMarkers", "bridgeMarkers", "effectsVisible"})
        EXPECT_EQ(loaded->property(key), document->property(key)) << key;
    EXPECT_EQ(loaded->effectsSettings()->dictionaryRepresentation(),
              document->effectsSettings()->dictionaryRepresentation());
    // The window's own frame is saved, not the one the document was opened with.
    EXPECT_EQ(loaded->documentWindowFrame(), window.frame);
    // Loading is not an edit and cannot be undone.
    EXPECT_EQ(loaded->undoManager()->count(), 0);
    EXPECT_FALSE(loaded->isDocumentEdited());
}

TEST_F(DocumentTest, MissingKeysFollowTheirRules) {
    const QString song = writeSong("song.wav", 0.5);
    // Missing volume and zoom read as zero, not as a new document's defaults.
    writeDocument("bare.tesk", {}, song);
    auto bare = load("bare.tesk");
    ASSERT_TRUE(bare);
    EXPECT_EQ(bare->playbackVolume(), 0.0);
    EXPECT_EQ(bare->zoomLevel(), 0.0);
    EXPECT_EQ(bare->playbackSpeed(), 1.0);
    EXPECT_EQ(bare->pitchAdjustment(), 0.0);
    EXPECT_EQ(bare->loopRange(), LoopRange{});
    EXPECT_FALSE(bare->effectsVisible());
    EXPECT_EQ(bare->effectsSettings()->dictionaryRepresentation(),
              TeskEffectsSettings().dictionaryRepresentation());

    // A zero speed is ignored (a negative one is kept, as saving and loading shows).
    writeDocument("zero.tesk", {{"playbackSpeed", 0.0}}, song);
    EXPECT_EQ(load("zero.tesk")->playbackSpeed(), 1.0);

    // Huge numbers read as the nearest the engine plays.
    writeDocument("huge.tesk",
                  {{"playbackSpeed", 1e300},
                   {"playbackVolume", 1e300},
                   {"pitchAdjustment", -1e300},
                   {"zoomLevel", -1e300}},
                  song);
    auto huge = load("huge.tesk");
    ASSERT_TRUE(huge);
    EXPECT_EQ(huge->playbackVolume(), ProcessingChain::kMaximumLevel);
    EXPECT_EQ(huge->player()->outputAudioUnit()->playbackLevel(), ProcessingChain::kMaximumLevel);
    // ... and plays them: the position moves.
    huge->startFilePlaying();
    EXPECT_TRUE(QTest::qWaitFor([&] { return huge->currentFrame() > 0; }, 5000));
    huge->stopFilePlaying();
}

TEST(TeskDocumentFile, AValueOfTheWrongTypeOrAFrameOutOfRangeReadsAsMissing) {
    // One entry that is no frame number takes its whole marker array; a frame reads leniently.
    const auto read = readDocumentContents(R"({"playbackSpeed": -0.25, "playbackVolume": "loud",
        "zoomLevel": 0.5, "genericMarkers": [1, 2.5, 3], "chorusMarkers": [9, 8],
        "loopRange.location": 1e300, "loopRange.length": 500, "effectsVisible": "yes",
        "documentWindowFrame": "{{10, 20}, {300"})");
    ASSERT_TRUE(read);
    TeskDocumentContents expected;
    expected.playbackSpeed = -0.25;
    expected.zoomLevel = 0.5;
    expected.chorusMarkers = QList<quint32>{9, 8};
    expected.loopLength = 500;
    expected.documentWindowFrame = QRectF(10, 20, 300, 0);
    EXPECT_EQ(*read, expected);
}

TEST(TeskDocumentFile, SettingsPastWhatTeskPlaysReadAsTheNearestItDoes) {
    const struct {
        const char* json;
        double zoom, volume, speed, pitch;
    } cases[] = {
        {R"({"zoomLevel": 7, "playbackVolume": 50, "playbackSpeed": 1000, "pitchAdjustment": 99})",
         1.0, 4.0, 4.0, 24.0},
        {R"({"zoomLevel": -3, "playbackVolume": -1, "playbackSpeed": -0.001,
             "pitchAdjustment": -99})",
         -1.0, 0.0, -0.05, -24.0},
        // A loop fitted into the view saves a zoom a little below 0; a speed of 0 is not applied.
        {R"({"zoomLevel": -0.05, "playbackVolume": 0.5, "playbackSpeed": 0, "pitchAdjustment": 3.5})",
         -0.05, 0.5, 0.0, 3.5},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.json);
        const auto read = readDocumentContents(c.json);
        ASSERT_TRUE(read);
        EXPECT_EQ(read->zoomLevel, c.zoom);
        EXPECT_EQ(read->playbackVolume, c.volume);
        EXPECT_EQ(read->playbackSpeed, c.speed);
        EXPECT_EQ(read->pitchAdjustment, c.pitch);
    }
}

TEST(TeskDocumentFile, AnythingFarTooLargeOrAPipeIsRefusedWithoutReadingItAll) {
    // A sparse file of 17 MB, and a device that never ends and tells no size.
    QTemporaryDir dir;
    QFile sparse(dir.filePath("huge.tesk"));
    ASSERT_TRUE(sparse.open(QIODevice::WriteOnly) && sparse.resize(17 << 20));
    sparse.close();
    for (const QString& path : {sparse.fileName(), QStringLiteral("/dev/zero")}) {
        SCOPED_TRACE(path.toStdString());
        DocumentFileError error;
        EXPECT_FALSE(readDocumentFile(path, &error));
        EXPECT_EQ(error.kind, DocumentFileError::Kind::Damaged);
    }
    // A pipe is refused at once, without waiting for anything to write into it.
    const QByteArray pipe = QFile::encodeName(dir.filePath("pipe.tesk"));
    ASSERT_EQ(mkfifo(pipe.constData(), 0600), 0);
    DocumentFileError error;
    auto reading = std::async(std::launch::async, [&] { return readDocumentFile(pipe, &error); });
    const bool answered = reading.wait_for(std::chrono::seconds(5)) == std::future_status::ready;
    EXPECT_TRUE(answered) << "waited for a writer";
    if (!answered) // let it go: open the pipe for writing and close it
        QFile(pipe).open(QIODevice::WriteOnly);
    EXPECT_FALSE(reading.get());
    EXPECT_EQ(error.kind, DocumentFileError::Kind::NotReadable);
}

TEST_F(DocumentTest, TheSongIsFoundAfterAMoveAndAMissingSongIsNoError) {
    const QString song = writeSong("song.wav", 0.5);
    TeskDocument document;
    document.setAudioFileURL(QUrl::fromLocalFile(song));
    TeskError error;
    ASSERT_TRUE(document.saveToURL(url("practice.tesk"), &error));

    ASSERT_TRUE(QDir(mDir.path()).mkpath("elsewhere"));
    const QString moved = path("elsewhere/renamed.wav");
    ASSERT_TRUE(QFile::rename(song, moved));
    auto found = load("practice.tesk");
    ASSERT_TRUE(found);
    EXPECT_EQ(found->audioFileURL().toLocalFile(), QFileInfo(moved).canonicalFilePath());
    EXPECT_NE(found->player(), nullptr);

    // Gone for good: the document still opens, without a song to play.
    ASSERT_TRUE(QFile::remove(moved));
    auto lost = load("practice.tesk", &error);
    ASSERT_TRUE(lost);
    EXPECT_EQ(lost->player(), nullptr);
    EXPECT_TRUE(lost->audioFileURL().isEmpty());
    ASSERT_TRUE(lost->songError());
    EXPECT_TRUE(lost->songError()->localizedDescription().contains("song.wav"));

    // Located again where it was: now it plays, with the settings made while it was lost.
    writeSong("song.wav", 0.5);
    lost->setPlaybackSpeed(0.5);
    lost->effectsSettings()->setPanningEnabled(true);
    lost->setAudioFileURL(QUrl::fromLocalFile(song));
    ASSERT_NE(lost->player(), nullptr);
    EXPECT_FLOAT_EQ(lost->player()->playbackSpeed(), 0.5f);
    EXPECT_TRUE(lost->player()->panAdjust());
    EXPECT_FALSE(lost->songError());
    EXPECT_TRUE(lost->isDocumentEdited());
}

TEST_F(DocumentTest, ASongMovedDeletedPutBackOrLocatedWhileOpenIsFollowed) {
    // Where the song is is asked on every key, and remembered; these changes must still show.
    const QString song = writeSong("song.wav", 0.5);
    auto document = openSong(song);
    const QString moved = path("moved.wav");
    ASSERT_TRUE(QFile::rename(song, moved));
    EXPECT_EQ(document->audioFileURL().toLocalFile(), QFileInfo(moved).canonicalFilePath());
    ASSERT_TRUE(QFile::remove(moved));
    EXPECT_FALSE(document->canDropMarkers());
    // Gone from where it was last seen: missed by that name, and saved as it was there.
    ASSERT_TRUE(document->songError());
    EXPECT_TRUE(document->songError()->localizedDescription().contains("moved.wav"));
    TeskError error;
    ASSERT_TRUE(document->saveToURL(url("practice.tesk"), &error));
    const auto saved = readDocumentContents(readFile(path("practice.tesk")));
    ASSERT_TRUE(saved && saved->audioFileAlias);
    const auto reference = TeskFileReference::fromBytes(*saved->audioFileAlias);
    ASSERT_TRUE(reference);
    EXPECT_EQ(reference->fileName().toStdString(), "moved.wav");
    // Put back there, a new file: found again.
    writeSong("moved.wav", 2.0);
    ASSERT_TRUE(QTest::qWaitFor([&] { return document->canDropMarkers(); }, 5000));

    // Gone again while the song plays on from memory, and the user locates another file: one
    // that does not play leaves the song playing, one that does stops it.
    RecordingDelegate delegate;
    document->setPlaybackDelegate(&delegate);
    document->startFilePlaying();
    ASSERT_TRUE(document->isFilePlaying());
    ASSERT_TRUE(QFile::remove(moved));
    ASSERT_TRUE(writeFile(path("noise.wav"), QByteArray(4096, '\x5a')));
    EXPECT_TRUE(document->locateAudioFile(url("noise.wav")).has_value());
    EXPECT_TRUE(document->isFilePlaying());
    EXPECT_EQ(delegate.stopped, 0);
    writeSong("found.wav", 1.0);
    EXPECT_FALSE(document->locateAudioFile(url("found.wav")).has_value());
    EXPECT_FALSE(document->isFilePlaying());
    EXPECT_EQ(delegate.stopped, 1); // so that the window stops showing it play
}

TEST_F(DocumentTest, DamagedDocumentFilesGiveAnErrorNamingTheFile) {
    const struct {
        QString name;
        std::optional<QByteArray> bytes;
        const char* why; // in the error's words
    } damaged[] = {
        {"garbage.tesk", QByteArray("\x00\xff\x13 not json", 12), "damaged"},
        {"truncated.tesk", QByteArray("{\"zoomLevel\": 0.5, \"genericMar"), "damaged"},
        {"array.tesk", QByteArray("[1, 2, 3]"), "does not hold Tesk's settings"},
        {"empty.tesk", QByteArray(), "It is empty"},
        {"blank.tesk", QByteArray("\n \n"), "It is empty"},
        {"absent.tesk", std::nullopt, ""},
    };
    for (const auto& [name, bytes, why] : damaged) {
        SCOPED_TRACE(name.toStdString());
        ASSERT_TRUE(!bytes || writeFile(path(name), *bytes));
        TeskError error;
        EXPECT_FALSE(load(name, &error));
        EXPECT_TRUE(error.localizedDescription().contains(name));
        const QString words =
            error.localizedDescription() + ' ' + error.localizedRecoverySuggestion();
        EXPECT_TRUE(words.contains(QString::fromUtf8(why))) << words.toStdString();
    }

    // A song reference this build cannot read opens a document without its song, and saving
    // writes the reference back as it was.
    ASSERT_TRUE(writeFile(path("alias.tesk"),
                          R"({"audioFileAlias": "bm90IGEgcmVmZXJlbmNl", "zoomLevel": 0.5})"));
    TeskError error;
    auto document = load("alias.tesk", &error);
    ASSERT_TRUE(document);
    EXPECT_EQ(document->zoomLevel(), 0.5);
    EXPECT_EQ(document->player(), nullptr);
    EXPECT_TRUE(document->songError().has_value());
    document->setGenericMarkers({100});
    ASSERT_TRUE(document->saveToURL(url("alias.tesk"), &error));
    EXPECT_EQ(readDocumentContents(readFile(path("alias.tesk")))->audioFileAlias,
              QByteArray("not a reference"));
    // Text that is not even a reference's, or no text at all, is damaged alike.
    for (const char* json : {R"({"audioFileAlias": "not*base64!"})", R"({"audioFileAlias": 42})"}) {
        ASSERT_TRUE(writeFile(path("garbled.tesk"), json));
        auto garbled = load("garbled.tesk", &error);
        ASSERT_TRUE(garbled);
        ASSERT_TRUE(garbled->songError().has_value()) << json;
        EXPECT_TRUE(garbled->songError()->localizedDescription().contains("damaged")) << json;
    }
    // One that names no song at all says so, as where its song would be.
    ASSERT_TRUE(writeFile(path("songless.tesk"), R"({"genericMarkers": [44100]})"));
    auto songless = load("songless.tesk", &error);
    ASSERT_TRUE(songless);
    ASSERT_TRUE(songless->songError().has_value());
    EXPECT_TRUE(songless->songError()->localizedDescription().contains("no song"));
    // A file that does not play, located in its place, changes none of that.
    ASSERT_TRUE(writeFile(path("noise.wav"), QByteArray(4096, '\x5a')));
    EXPECT_TRUE(document->locateAudioFile(url("noise.wav")).has_value());
    EXPECT_TRUE(document->songError().has_value());
    ASSERT_TRUE(document->saveToURL(url("alias.tesk"), &error));
    EXPECT_EQ(readDocumentContents(readFile(path("alias.tesk")))->audioFileAlias,
              QByteArray("not a reference"));
}

TEST_F(DocumentTest, AFailedSaveLeavesThePreviousDocumentWholeAndAnotherWriterIsToldApart) {
    TeskDocument document;
    document.setGenericMarkers({1, 2, 3});
    TeskError error;
    ASSERT_TRUE(document.saveToURL(url("practice.tesk"), &error));
    EXPECT_FALSE(document.fileChangedElsewhere()) << "its own save is no one else's";
    const QByteArray saved = readFile(path("practice.tesk"));

    // The disk "fills up" part-way through the write.
    QList<quint32> many;
    for (quint32 i = 0; i < 2000; ++i)
        many.append(i * 1000);
    document.setGenericMarkers(many);
    const bool written = [&] {
        const FileSizeLimit limit(rlim_t(saved.size() + 64));
        return document.saveToURL(url("practice.tesk"), &error);
    }();

    EXPECT_FALSE(written);
    EXPECT_TRUE(error.localizedDescription().contains("practice.tesk"));
    EXPECT_TRUE(error.localizedRecoverySuggestion().startsWith("Not all of it could be written; "
                                                               "the disk may be full. Save it in "
                                                               "another folder"))
        << error.localizedRecoverySuggestion().toStdString();
    EXPECT_EQ(readFile(path("practice.tesk")), saved);
    EXPECT_TRUE(document.isDocumentEdited());
    EXPECT_EQ(QDir(mDir.path()).entryList(QDir::Files).size(), 1) << "no temporary file left";
    // Only Tesk's own type is written.
    EXPECT_FALSE(document.writeToURL(url("other.tesk"), "audio/x-wav", &error));
    EXPECT_FALSE(QFile::exists(path("other.tesk")));

    // Another writer saves by renaming a new file into place: same size, same time, and only
    // the inode tells.
    struct stat stamp = {};
    ASSERT_EQ(::stat(QFile::encodeName(path("practice.tesk")).constData(), &stamp), 0);
    ASSERT_TRUE(QFile::copy(path("practice.tesk"), path("new.tesk")));
    const timespec times[2] = {stamp.st_atim, stamp.st_mtim};
    ASSERT_EQ(::utimensat(AT_FDCWD, QFile::encodeName(path("new.tesk")).constData(), times, 0), 0);
    ASSERT_TRUE(QFile::remove(path("practice.tesk")));
    ASSERT_TRUE(QFile::rename(path("new.tesk"), path("practice.tesk")));
    EXPECT_TRUE(document.fileChangedElsewhere());
    // Gone altogether: saving only writes it again.
    ASSERT_TRUE(QFile::remove(path("practice.tesk")));
    EXPECT_FALSE(document.fileChangedElsewhere());
}

TEST_F(DocumentTest, ASongFileGivesAnUntitledDocumentNamedAfterTheSongUntilItsWindowCloses) {
    const QString song = writeSong("My Song.live.wav", 0.5, "Été");
    TeskDocument document;
    RecordingDelegate delegate;
    FakeWindow window;
    document.setMetadataDelegate(&delegate);
    document.addWindowController(&window);
    TeskError error;
    ASSERT_TRUE(document.readFromURL(QUrl::fromLocalFile(song), "audio/x-wav", &error));
    EXPECT_TRUE(document.fileURL().isEmpty());
    EXPECT_TRUE(document.isDocumentEdited());
    EXPECT_EQ(document.displayName(), "My Song.live");
    ASSERT_TRUE(QTest::qWaitFor([&] { return delegate.metadata == 1; }, 5000));
    EXPECT_EQ(document.songTitle(), "Été");
    EXPECT_EQ(document.displayName(), "Été");
    EXPECT_EQ(window.titleSyncs, 1);
    EXPECT_EQ(document.player()->songMetadata().title, "Été");

    // A closing window hears no late metadata: the title is taken in the same step that would
    // tell the delegate.
    document.setAudioFileURL(QUrl::fromLocalFile(writeSong("song.wav", 0.5, "Title")));
    document.documentWindowWillClose();
    ASSERT_TRUE(QTest::qWaitFor([&] { return document.songTitle() == "Title"; }, 5000));
    EXPECT_EQ(delegate.metadata, 1);
}

TEST_F(DocumentTest, ExportsTheLoopInTheBackgroundAndReportsOnTheMainThread) {
    auto document = openSong(writeSong("song.wav", 2.0));
    RecordingDelegate delegate;
    document->setFileExportDelegate(&delegate);
    document->setLoopRange({kRate / 2, kRate / 2});
    const QString output = path("loop.aif");
    ASSERT_TRUE(document->performLoopExportToFile(
        {{"destinationFile", output}, {"exportingWithLoop", true}}));
    EXPECT_TRUE(document->isExporting());
    // The export reads through the player: the position stays put until it is done.
    const qint64 position = document->currentFrame();
    document->offsetCurrentFrame(kRate);
    EXPECT_EQ(document->currentFrame(), position);
    EXPECT_FALSE(document->performLoopExportToFile({{"destinationFile", path("second.aif")}}));
    ASSERT_TRUE(QTest::qWaitFor([&] { return !delegate.finished.isEmpty(); }, 20000));
    EXPECT_EQ(delegate.finished, output);
    // Exports are written in whole slices.
    const auto sliced = [](qint64 frames) {
        constexpr qint64 slice = TeskOutputAudioUnit::kExportSliceFrames;
        return (frames + slice - 1) / slice * slice;
    };
    EXPECT_EQ(probeAudioStream(output, "duration_ts").toLongLong(), sliced(kRate / 2));
    EXPECT_EQ(document->player()->delegate(), nullptr);

    // Without the loop: the whole song, with progress on the way.
    delegate.finished.clear();
    const QString song = path("song.aif");
    ASSERT_TRUE(document->performLoopExportToFile({{"destinationFile", song}}));
    ASSERT_TRUE(QTest::qWaitFor([&] { return !delegate.finished.isEmpty(); }, 20000));
    EXPECT_EQ(probeAudioStream(song, "duration_ts").toLongLong(), sliced(2 * kRate));
    ASSERT_FALSE(delegate.progress.empty());
    EXPECT_GT(delegate.progress.back(), 0.5);
    EXPECT_LE(delegate.progress.back(), 1.0);

    const QString unwritable = path("no/such/folder/song.m4a");
    ASSERT_TRUE(document->performLoopExportToFile({{"destinationFile", unwritable}}));
    document->waitForExport();
    EXPECT_EQ(delegate.failed, unwritable);
    EXPECT_FALSE(delegate.failure.domain().isEmpty());
    EXPECT_TRUE(delegate.failure.localizedDescription().contains("song.m4a"));

    // A loop drawn on a longer song that this one replaced: what reaches past the end is left
    // out, and a loop wholly past it exports nothing rather than a silent file.
    delegate.finished.clear();
    document->setLoopRange({3 * kRate / 2, kRate});
    const QString reaching = path("reaching.aif");
    ASSERT_TRUE(document->performLoopExportToFile(
        {{"destinationFile", reaching}, {"exportingWithLoop", true}}));
    document->waitForExport();
    EXPECT_EQ(delegate.finished, reaching);
    EXPECT_EQ(probeAudioStream(reaching, "duration_ts").toLongLong(), sliced(kRate / 2));
    document->setLoopRange({3 * kRate, kRate / 2});
    const QString past = path("past.aif");
    ASSERT_TRUE(document->performLoopExportToFile(
        {{"destinationFile", past}, {"exportingWithLoop", true}}));
    document->waitForExport();
    EXPECT_EQ(delegate.failed, past);
    EXPECT_EQ(delegate.failure.code(), qint64(AudioExportErrorCode::NothingWritten));
    EXPECT_FALSE(QFileInfo::exists(past));
}

TEST_F(DocumentTest, AnExportHoldsItsRangeWhateverLoopPlayedBefore) {
    auto document = openSong(writeTones(path("song.wav"), {440.0, 660.0, 880.0}));
    document->setLoopRange({kRate / 4, kRate / 2});
    document->startFileLooping();
    document->stopFilePlaying();

    // The whole song, and a loop moved past the one that played; `at` is a second of the file.
    const struct {
        const char* name;
        LoopRange loop;
        bool withLoop;
        double at, frequency;
    } cases[] = {{"the song", {kRate / 4, kRate / 2}, false, 2.25, 880.0},
                 {"a loop set after looping", {2 * kRate + 4410, kRate / 2}, true, 0.1, 880.0}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        document->setLoopRange(c.loop);
        const QString output = path("export.aif");
        ASSERT_TRUE(document->performLoopExportToFile(
            {{"destinationFile", output}, {"exportingWithLoop", c.withLoop}}));
        document->waitForExport();
        const auto file = openDecoded(output);
        ASSERT_TRUE(file);
        const auto heard = readChannels(*file, qint64(c.at * kRate), 4410)[0];
        EXPECT_NEAR(toneAmplitude(heard, c.frequency), 0.5, 0.05);
        EXPECT_LT(toneAmplitude(heard, 440.0), 0.05);
    }
}

TEST_F(DocumentTest, AnExportCutShortLeavesTheFileItWouldHaveReplaced) {
    const QString song = writeSong("song.wav", 30.0);
    const QByteArray original("the take to keep");
    // Cancelled, its document closed (as when Tesk quits) while it runs, or made of a song whose
    // decoding a full disk stopped (its sound is kept on the disk as it is decoded, 4 bytes a
    // frame): that would pass for the whole song.
    enum class Cut { Cancelled, Closed, SongCutShort };
    for (const Cut cut : {Cut::Cancelled, Cut::Closed, Cut::SongCutShort}) {
        SCOPED_TRACE(int(cut));
        std::unique_ptr<TeskDocument> document;
        if (cut == Cut::SongCutShort) {
            const FileSizeLimit limit(64 * 1024);
            document = openSong(song);
            ASSERT_TRUE(QTest::qWaitFor(
                [&] { return document->player()->audioFile()->isDecodingFinished(); }, 20000));
        } else {
            document = openSong(song);
        }
        RecordingDelegate delegate;
        document->setFileExportDelegate(&delegate);
        ASSERT_TRUE(writeFile(path("take.m4a"), original));
        ASSERT_TRUE(document->performLoopExportToFile({{"destinationFile", path("take.m4a")}}));
        if (cut == Cut::Closed) {
            document.reset();
        } else if (cut == Cut::Cancelled) {
            document->cancelFileExportOperation();
            document->waitForExport();
            EXPECT_EQ(delegate.finished, path("take.m4a"));
        } else {
            document->waitForExport();
            EXPECT_EQ(delegate.failed, path("take.m4a"));
            EXPECT_TRUE(delegate.failure.localizedDescription().contains("no room for its sound"))
                << delegate.failure.localizedDescription().toStdString();
        }
        EXPECT_EQ(readFile(path("take.m4a")), original);
        EXPECT_EQ(QDir(mDir.path()).entryList(QDir::Files | QDir::Hidden),
                  (QStringList{"song.wav", "take.m4a"}));
    }
}

} // namespace
