#include "document/TeskDocumentController.h"

#include "document/TeskDocumentFile.h"
#include "document/TeskDocumentWindow.h"
#include "support/AudioFiles.h"
#include "support/SongFiles.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>
#include <QUndoStack>
#include <algorithm>
#include <functional>
#include <gtest/gtest.h>
#include <map>

using namespace tesk;
using namespace tesk::test;

namespace {

/// Windows as the window layer would keep them, without drawing any.
class FakeWindowLayer : public TeskDocumentWindowLayer {
public:
    class Window : public TeskDocumentWindow {
    public:
        void showWindow() override { ++shown; }
        void synchronizeWindowTitleWithDocumentName() override {}
        QRectF windowFrame() const override { return {}; }
        int shown = 0;
    };

    void makeWindowControllers(TeskDocument* document) override {
        auto window = std::make_unique<Window>();
        document->addWindowController(window.get());
        windows[document] = std::move(window);
    }
    void closeWindows(TeskDocument* document) override { windows.erase(document); }
    QStringList runOpenPanel() override { return chosen; }
    void presentError(const TeskError& error) override { errors.append(error); }

    int shownCount(TeskDocument* document) const {
        const auto found = windows.find(document);
        return found == windows.end() ? 0 : found->second->shown;
    }

    std::map<TeskDocument*, std::unique_ptr<Window>> windows;
    QStringList chosen;
    QList<TeskError> errors;
};

class DocumentControllerTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(mDir.isValid());
        mController.clearRecentDocuments();
    }
    void TearDown() override {
        // Documents let go are deleted from the event loop.
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }

    QString path(const QString& name) const { return mDir.filePath(name); }
    QUrl url(const QString& name) const { return QUrl::fromLocalFile(path(name)); }

    /// Half a second of tone, encoded by FFmpeg with `arguments` unless it is a plain WAV.
    QString writeSong(const QString& name, const QStringList& arguments = {}) {
        return writeTone(path(name), 0.5, 440.0, arguments);
    }
    QString writeText(const QString& name, const QByteArray& text) {
        EXPECT_TRUE(writeFile(path(name), text));
        return path(name);
    }

    QTemporaryDir mDir;
    // Where the calls that may fail say why; the tests judge them by what they return.
    TeskError mError;
    FakeWindowLayer mWindows;
    TeskDocumentController mController{&mWindows};
};

TEST_F(DocumentControllerTest, OpensExactlyTheSupportedTypesByContent) {
    const auto song = [&](const char* name, const QStringList& arguments = {}) {
        return QUrl::fromLocalFile(writeSong(QString::fromUtf8(name), arguments));
    };
    const auto text = [&](const char* name, const char* contents) {
        return QUrl::fromLocalFile(writeText(QString::fromUtf8(name), contents));
    };
    const struct {
        QUrl url;
        bool opens;
        QString type; // empty: not checked
    } cases[] = {
        {song("song.mp3"), true, "audio/mpeg"},
        {song("song.m4a"), true, "audio/mp4"},
        // Most encoders give MPEG-4 a generic brand, which reads as video: the name says sound.
        {song("isom.m4a", {"-f", "mp4"}), true, "audio/mp4"},
        {song("mp42.m4a", {"-f", "mp4", "-brand", "mp42"}), true, "audio/mp4"},
        {song("film.mp4", {"-f", "mp4"}), false, "video/mp4"},
        {song("song.aiff"), true, "audio/x-aiff"},
        {song("song.aifc", splitArguments("-c:a pcm_s16be -f aiff -write_id3v2 0")), true,
         "audio/x-aiff"},
        {song("song.wav"), true, "audio/x-wav"},
        // Named wrongly: the content decides.
        {song("really-an-mp3.wav", {"-f", "mp3"}), true, "audio/mpeg"},
        // A compressed AIFF is AIFC, a type of its own that Tesk opens too.
        {song("compressed.aif", splitArguments("-c:a pcm_alaw -f aiff")), true, "audio/x-aifc"},
        {text("practice.tesk", "{}"), true, TeskDocumentType},
        // Saved under a name typed in capitals, as the save dialog allows.
        {text("Practice.TESK", "{}"), true, TeskDocumentType},
        // An audiobook is MPEG-4 audio by descent only, and Ogg is no song type of Tesk's.
        {song("book.m4b", {"-f", "ipod", "-brand", "M4B "}), false, "audio/x-m4b"},
        {song("song.ogg"), false, {}},
        {text("notes.mp3", "practice notes\n"), false, {}},
        {url("absent.mp3"), false, {}},
        {QUrl("https://x/a.mp3"), false, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.url.toString().toStdString());
        QString type;
        EXPECT_EQ(TeskDocumentController::canOpenFile(c.url, &type), c.opens) << type.toStdString();
        if (!c.type.isEmpty()) {
            EXPECT_EQ(type, c.type);
        }
    }
}

TEST_F(DocumentControllerTest, KeepsAtMostOneEmptyWindow) {
    TeskDocument* empty = mController.openUntitledDocumentAndDisplay();
    EXPECT_EQ(mController.firstUntitledDocument(), empty);

    // "New" shows the empty window instead of making a second one.
    mController.newDocument();
    EXPECT_EQ(mController.documents().size(), 1);
    EXPECT_EQ(mWindows.shownCount(empty), 2);

    // A song replaces the empty window.
    ASSERT_TRUE(mController.openFileNamed(writeSong("song.aiff"), &mError));
    ASSERT_EQ(mController.documents().size(), 1);
    TeskDocument* song = mController.documents().first();
    EXPECT_NE(song, empty);
    EXPECT_EQ(mWindows.windows.size(), 1u);
    EXPECT_EQ(mController.firstUntitledDocument(), nullptr);

    // "New" beside a song makes an empty window; opening the song again only shows it.
    mController.newDocument();
    EXPECT_EQ(mController.documents().size(), 2);
    mController.closeDocument(mController.firstUntitledDocument());
    ASSERT_TRUE(mController.openFileNamed(path("song.aiff"), &mError));
    EXPECT_EQ(mController.documents(), QList<TeskDocument*>{song});
    EXPECT_EQ(mWindows.shownCount(song), 2);

    // Closing the last song window brings up an empty one; closing that leaves none.
    mController.closeDocument(song);
    ASSERT_EQ(mController.documents().size(), 1);
    TeskDocument* fresh = mController.documents().first();
    EXPECT_EQ(mController.firstUntitledDocument(), fresh);
    EXPECT_EQ(mWindows.shownCount(fresh), 1);
    mController.closeDocument(fresh);
    EXPECT_TRUE(mController.documents().isEmpty());
    EXPECT_TRUE(mWindows.windows.empty());
}

TEST_F(DocumentControllerTest, OpensFilesFromOutsideAndAnswersForEach) {
    mController.openUntitledDocumentAndDisplay();
    const QString good = writeSong("good.wav");
    const QString unsupported = writeSong("song.ogg");
    // WAV by its header, but no sound in it.
    const QString broken = writeText(
        "broken.wav",
        QByteArray("RIFF\x24\x00\x00\x00WAVEfmt \x10\x00\x00\x00\x01\x00\x02\x00\x44\xac\x00\x00"
                   "\x10\xb1\x02\x00\x04\x00\x10\x00",
                   36));
    const QList<TeskDocumentController::OpenReply> replies =
        mController.openFiles({good, unsupported, broken});
    using Reply = TeskDocumentController::OpenReply;
    EXPECT_EQ(replies, (QList<Reply>{Reply::Success, Reply::Failure, Reply::Failure}));
    // Only the file that should have opened is reported; the unsupported one is refused quietly.
    ASSERT_EQ(mWindows.errors.size(), 1);
    EXPECT_EQ(mWindows.errors.first().domain(), "ZORBTeskErrorDomain");
    EXPECT_EQ(mWindows.errors.first().code(), 0);
    EXPECT_EQ(mWindows.errors.first().localizedDescription(), "Bad Audio File");
    EXPECT_EQ(mWindows.errors.first().localizedRecoverySuggestion(),
              "There was an error while loading the audio file.");
    ASSERT_EQ(mController.documents().size(), 1);
    EXPECT_EQ(mController.documents().first()->displayName(), "good");
}

TEST_F(DocumentControllerTest, TheOpenDialogReplacesTheEmptyWindowAndFindsSavedDocuments) {
    TeskDocument* empty = mController.openUntitledDocumentAndDisplay();
    TeskDocument* song = mController.openDocumentWithContentsOfURL(
        QUrl::fromLocalFile(writeSong("song.wav")), true, &mError);
    ASSERT_TRUE(song);
    song->setGenericMarkers({100});
    ASSERT_TRUE(song->saveToURL(url("practice.tesk"), &mError));
    mController.closeDocument(song);
    EXPECT_EQ(mController.documents(), QList<TeskDocument*>{empty});

    mWindows.chosen = {path("practice.tesk")};
    mController.openDocument();
    ASSERT_EQ(mController.documents().size(), 1);
    TeskDocument* practice = mController.documents().first();
    EXPECT_NE(practice, empty);
    EXPECT_EQ(practice->genericMarkers(), QList<quint32>{100});
    EXPECT_EQ(practice->displayName(), "practice");
    EXPECT_EQ(mController.documentForURL(url("practice.tesk")), practice);
    // Its song, opened again any way, brings the practice forward rather than a blank one.
    const int shown = mWindows.shownCount(practice);
    EXPECT_EQ(mController.openDocumentWithContentsOfURL(url("song.wav"), true, &mError), practice);
    EXPECT_TRUE(mController.openFileNamed(path("song.wav"), &mError));
    EXPECT_TRUE(mController.openRecentDocument(url("song.wav")));
    EXPECT_EQ(mController.documents(), QList<TeskDocument*>{practice});
    EXPECT_EQ(mWindows.shownCount(practice), shown + 3);

    // Cancelled: nothing changes.
    mWindows.chosen.clear();
    mController.openDocument();
    EXPECT_EQ(mController.documents(), QList<TeskDocument*>{practice});
    // A file picked in the dialog that Tesk does not open is refused, and the window says why.
    ASSERT_TRUE(writeFile(path("notes.mp3"), "practise the bridge\n"));
    ASSERT_TRUE(writeFile(path("notes.txt"), "practise the bridge\n"));
    ASSERT_TRUE(writeFile(path("empty.mp3"), ""));
    ASSERT_TRUE(QDir().mkpath(path("folder.mp3")));
    writeSong("song.flac");
    writeSong("lossless.wav", {"-f", "flac"});
    writeSong("song.aac");
    writeText("list.m3u", "#EXTM3U\nsong.mp3\n");
    const struct {
        const char* name;
        const char* said;
    } refused[] = {
        {"notes.mp3", "“notes.mp3” is named as a song Tesk opens, but what it holds is not a "
                      "song or a practice document."},
        {"notes.txt", "“notes.txt” is not a song or a practice document that Tesk opens."},
        // Sound of a kind Tesk does not open is named, whatever the file is named.
        {"song.flac", "“song.flac” holds FLAC audio, which Tesk does not open."},
        {"lossless.wav", "“lossless.wav” holds FLAC audio, which Tesk does not open."},
        {"song.aac", "“song.aac” holds AAC audio outside an M4A file, which Tesk does not open."},
        // A playlist is typed as sound, but holds none.
        {"list.m3u", "“list.m3u” is not a song or a practice document that Tesk opens."},
        {"empty.mp3", "The file “empty.mp3” couldn’t be opened because it is empty."},
        {"gone.mp3", "The file “gone.mp3” couldn’t be opened because there is no such file."},
        {"folder.mp3", "The file “folder.mp3” couldn’t be opened because it can’t be read."}};
    for (const auto& file : refused) {
        SCOPED_TRACE(file.name);
        mWindows.errors.clear();
        mWindows.chosen = {path(file.name)};
        mController.openDocument();
        EXPECT_EQ(mController.documents(), QList<TeskDocument*>{practice});
        ASSERT_EQ(mWindows.errors.size(), 1);
        EXPECT_EQ(mWindows.errors.first().localizedDescription(), QString(file.said));
    }
    // And what it opens instead: not FLAC, which the engine decodes but the window refuses.
    mWindows.errors.clear();
    mWindows.chosen = {path("notes.mp3")};
    mController.openDocument();
    ASSERT_EQ(mWindows.errors.size(), 1);
    EXPECT_TRUE(mWindows.errors.first().localizedRecoverySuggestion().contains("MP3, AAC (M4A)"));
    EXPECT_FALSE(mWindows.errors.first().localizedRecoverySuggestion().contains("FLAC"));
    // Both were noted as recent, the latest first; a file that is gone is not offered.
    const QUrl songURL = QUrl::fromLocalFile(QFileInfo(path("song.wav")).canonicalFilePath());
    const QUrl practiceURL =
        QUrl::fromLocalFile(QFileInfo(path("practice.tesk")).canonicalFilePath());
    EXPECT_EQ(mController.recentDocumentURLs().mid(0, 2), (QList<QUrl>{practiceURL, songURL}));
    ASSERT_TRUE(QFile::remove(path("song.wav")));
    EXPECT_FALSE(mController.recentDocumentURLs().contains(songURL));
    // One offered but no longer a song or a practice (written over since) says so when chosen
    // (with no practice of it open, which would come forward instead).
    mController.closeDocument(practice);
    ASSERT_TRUE(writeFile(path("song.wav"), "practise the bridge\n"));
    EXPECT_FALSE(mController.openRecentDocument(songURL));
    ASSERT_EQ(mWindows.errors.size(), 2);
    EXPECT_TRUE(mWindows.errors.last().localizedDescription().contains("song.wav"));
}

TEST_F(DocumentControllerTest, ADocumentWhoseSongIsMissingIsNotAnEmptyWindow) {
    const QString song = writeSong("song.wav");
    {
        TeskDocument document;
        document.setAudioFileURL(QUrl::fromLocalFile(song));
        ASSERT_TRUE(document.saveToURL(url("practice.tesk"), &mError));
    }
    ASSERT_TRUE(QFile::remove(song));
    TeskDocument* lost =
        mController.openDocumentWithContentsOfURL(url("practice.tesk"), true, &mError);
    ASSERT_TRUE(lost);
    EXPECT_EQ(lost->player(), nullptr);
    EXPECT_EQ(mController.firstUntitledDocument(), nullptr);
    // Opening another song leaves it be.
    ASSERT_TRUE(mController.openFileNamed(writeSong("other.wav"), &mError));
    EXPECT_EQ(mController.documents().size(), 2);

    // Nor is one that names no song, even untitled (as its copy reopens after a crash).
    ASSERT_TRUE(writeFile(path("songless.tesk"), R"({"genericMarkers": [44100]})"));
    TeskDocument* songless =
        mController.openDocumentWithContentsOfURL(url("songless.tesk"), true, &mError);
    ASSERT_TRUE(songless);
    songless->setFileURL({});
    EXPECT_EQ(mController.firstUntitledDocument(), nullptr);
}

/// The copies of unsaved practice in `folder`.
int copiesIn(const QString& folder) {
    return int(QDir(folder).entryList({QStringLiteral("*.tesk")}, QDir::Files).size());
}

TEST_F(DocumentControllerTest, UnsavedPracticeIsCopiedUntilItIsClosed) {
    RecoveryCopies& recovery = mController.recoveryCopies();
    ASSERT_TRUE(QDir(recovery.folder()).removeRecursively());
    const QUrl song = QUrl::fromLocalFile(writeSong("song.wav"));
    const struct {
        const char* name;
        std::function<void(TeskDocument&)> change;
        bool copied;
    } changes[] = {
        {"only opened", [](TeskDocument&) {}, false},
        {"a marker", [](TeskDocument& d) { d.dropChorusMarker(); }, true},
        {"a loop",
         [](TeskDocument& d) {
             d.setLoopRange({100, 2000});
         },
         true},
        {"the speed", [](TeskDocument& d) { d.setPlaybackSpeed(0.75); }, true},
        {"the pitch", [](TeskDocument& d) { d.setPitchAdjustment(-1.0); }, true},
        {"an effect", [](TeskDocument& d) { d.effectsSettings()->setOutOfPhase(true); }, true},
        {"volume and zoom",
         [](TeskDocument& d) {
             d.setPlaybackVolume(0.2);
             d.setZoomLevel(0.1);
         },
         false},
        {"a marker taken back",
         [](TeskDocument& d) {
             d.dropGenericMarker();
             d.undoManager()->undo();
         },
         false},
    };
    for (const auto& c : changes) {
        SCOPED_TRACE(c.name);
        TeskDocument* document = mController.openDocumentWithContentsOfURL(song, false, &mError);
        ASSERT_NE(document, nullptr);
        document->setCurrentFrame(4410);
        c.change(*document);
        recovery.writeDueCopies();
        EXPECT_EQ(copiesIn(recovery.folder()), c.copied ? 1 : 0);
        EXPECT_TRUE(recovery.leftBehind().isEmpty()) << "an open document's copy is its own";
        mController.closeDocument(document);
        EXPECT_EQ(copiesIn(recovery.folder()), 0);
    }

    // A disk too full for a copy keeps no part of one: nothing left over would ever be offered
    // or removed.
    TeskDocument* document = mController.openDocumentWithContentsOfURL(song, false, &mError);
    ASSERT_NE(document, nullptr);
    document->dropChorusMarker();
    {
        const FileSizeLimit full(16);
        recovery.writeDueCopies();
    }
    EXPECT_EQ(QDir(recovery.folder()).entryList({"*.json", "*.tesk"}, QDir::Files | QDir::Hidden),
              QStringList{});
    mController.closeDocument(document);
}

TEST_F(DocumentControllerTest, PracticeLeftUnsavedByATeskThatEndedIsReopenedAsItWas) {
    const QString folder = path("Recovery");
    const QUrl song = QUrl::fromLocalFile(writeSong("song.wav"));
    const QUrl practice = url("practice.tesk");
    {
        // A saved practice changed since, and a song with markers never saved; then Tesk ends
        // without closing either.
        FakeWindowLayer windows;
        TeskDocumentController ended(&windows, folder);
        TeskDocument* saved = ended.openDocumentWithContentsOfURL(song, false, &mError);
        ASSERT_TRUE(saved->saveToURL(practice, &mError));
        saved->setCurrentFrame(1000);
        saved->dropVerseMarker();
        saved->setPlaybackSpeed(0.5);
        TeskDocument* untitled = ended.openDocumentWithContentsOfURL(
            QUrl::fromLocalFile(writeSong("other.wav")), false, &mError);
        untitled->setLoopRange({441, 4410});
        ended.recoveryCopies().writeDueCopies();
    }
    ASSERT_EQ(copiesIn(folder), 2);

    FakeWindowLayer windows;
    TeskDocumentController next(&windows, folder);
    QList<RecoveryCopies::LeftBehind> copies = next.recoveryCopies().leftBehind();
    ASSERT_EQ(copies.size(), 2);
    std::sort(copies.begin(), copies.end(),
              [](const auto& a, const auto& b) { return a.name < b.name; });
    EXPECT_EQ(copies[0].name, "other");
    EXPECT_TRUE(copies[0].fileURL.isEmpty());
    EXPECT_EQ(copies[1].name, "practice");
    EXPECT_EQ(copies[1].fileURL, practice);

    TeskDocument* untitled = next.reopenRecoveryCopy(copies[0], &mError);
    TeskDocument* reopened = next.reopenRecoveryCopy(copies[1], &mError);
    ASSERT_NE(untitled, nullptr);
    ASSERT_NE(reopened, nullptr);
    EXPECT_EQ(untitled->loopRange(), (LoopRange{441, 4410}));
    EXPECT_TRUE(untitled->fileURL().isEmpty());
    EXPECT_EQ(untitled->displayName(), "other");
    EXPECT_EQ(reopened->verseMarkers(), QList<quint32>{1000});
    EXPECT_EQ(reopened->playbackSpeed(), 0.5);
    EXPECT_EQ(reopened->fileURL(), practice);
    EXPECT_EQ(reopened->audioFileURL().toLocalFile(),
              QFileInfo(song.toLocalFile()).canonicalFilePath());
    EXPECT_TRUE(reopened->isDocumentEdited());
    EXPECT_FALSE(reopened->fileChangedElsewhere());
    EXPECT_EQ(windows.shownCount(reopened), 1);
    // Their copies are theirs again: kept until saved or closed, and offered no more.
    EXPECT_TRUE(next.recoveryCopies().leftBehind().isEmpty());
    next.recoveryCopies().writeDueCopies();
    EXPECT_EQ(copiesIn(folder), 2);
    ASSERT_TRUE(reopened->saveToURL(practice, &mError));
    EXPECT_EQ(copiesIn(folder), 1) << "saved, its copy goes at once";
    next.closeDocument(untitled);
    EXPECT_EQ(copiesIn(folder), 0);
    next.closeDocument(reopened);
    EXPECT_EQ(QDir(folder).entryList({"*.tesk", "*.json"}, QDir::Files), QStringList())
        << "notes go with their copies";
}

TEST_F(DocumentControllerTest, ACopyIsOfferedOnlyWhenNoTeskKeepsItAndNeverOverItsFile) {
    const QString folder = path("Recovery");
    const QUrl song = QUrl::fromLocalFile(writeSong("song.wav"));
    const QUrl practice = url("practice.tesk");
    {
        TeskDocument saved;
        saved.setAudioFileURL(song);
        ASSERT_TRUE(saved.saveToURL(practice, &mError));
    }
    // Two Tesks end in turn, each with changes to the practice unsaved.
    const auto endWithChange = [&](const std::function<void(TeskDocument&)>& change) {
        FakeWindowLayer windows;
        TeskDocumentController ended(&windows, folder);
        TeskDocument* document = ended.openDocumentWithContentsOfURL(practice, false, &mError);
        ASSERT_NE(document, nullptr);
        change(*document);
        ended.recoveryCopies().writeDueCopies();
        // While it runs, another Tesk (another session of the same user) is offered only the
        // copies of Tesks that ended, not this one's.
        FakeWindowLayer otherWindows;
        TeskDocumentController other(&otherWindows, folder);
        EXPECT_EQ(other.recoveryCopies().leftBehind().size(), copiesIn(folder) - 1);
    };
    endWithChange([](TeskDocument& d) { d.setChorusMarkers({100}); });
    QTest::qWait(20); // the copies' times tell them apart
    endWithChange([](TeskDocument& d) { d.setBridgeMarkers({200}); });

    FakeWindowLayer windows;
    TeskDocumentController next(&windows, folder);
    const QList<RecoveryCopies::LeftBehind> copies = next.recoveryCopies().leftBehind();
    ASSERT_EQ(copies.size(), 2);
    EXPECT_EQ(copies[0].name, "practice");
    EXPECT_GE(copies[0].written, copies[1].written) << "newest first";
    // The newest takes the file; the other, whose file is then open, comes back beside it.
    TeskDocument* newest = next.reopenRecoveryCopy(copies[0], &mError);
    TeskDocument* older = next.reopenRecoveryCopy(copies[1], &mError);
    ASSERT_TRUE(newest && older);
    EXPECT_EQ(newest->fileURL(), practice);
    EXPECT_EQ(newest->bridgeMarkers(), QList<quint32>{200});
    EXPECT_TRUE(older->fileURL().isEmpty());
    EXPECT_EQ(older->chorusMarkers(), QList<quint32>{100});

    next.closeDocument(newest);
    next.closeDocument(older);
    ASSERT_EQ(copiesIn(folder), 0);

    // A practice saved after its copy was written is not the copy's any more: the copy comes
    // back untitled. And a song gone while its copy is written keeps its name.
    endWithChange([&](TeskDocument& d) {
        d.setVerseMarkers({300});
        ASSERT_TRUE(QFile::remove(path("song.wav")));
    });
    {
        TeskDocument elsewhere;
        ASSERT_TRUE(elsewhere.readFromURL(practice, TeskDocumentType, &mError));
        elsewhere.setGenericMarkers({5});
        ASSERT_TRUE(elsewhere.saveToURL(practice, &mError));
    }
    FakeWindowLayer laterWindows;
    TeskDocumentController later(&laterWindows, folder);
    const QList<RecoveryCopies::LeftBehind> left = later.recoveryCopies().leftBehind();
    ASSERT_EQ(left.size(), 1);
    EXPECT_EQ(left[0].name, "practice");
    EXPECT_TRUE(left[0].fileChangedSince);
    TeskDocument* recovered = later.reopenRecoveryCopy(left[0], &mError);
    ASSERT_NE(recovered, nullptr);
    EXPECT_TRUE(recovered->fileURL().isEmpty());
    EXPECT_EQ(recovered->verseMarkers(), QList<quint32>{300});
    EXPECT_EQ(recovered->practiceName(), "song") << "not the bare \"Tesk\" of a song gone";
}

} // namespace
