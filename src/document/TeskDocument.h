#pragma once

#include "audio/MarkerKind.h"
#include "audio/TeskAudioFileReader.h"
#include "audio/TeskEffectsSettings.h"
#include "audio/TeskExtendedAudioFilePlayer.h"
#include "diagnostics/TeskError.h"
#include "document/MetadataImporter.h"
#include "document/TeskDocumentFile.h"
#include "document/TeskFileReference.h"
#include "observation/KeyValueObserving.h"

#include <QElapsedTimer>
#include <QImage>
#include <QList>
#include <QObject>
#include <QRectF>
#include <QUndoStack>
#include <QUrl>
#include <QVariantMap>
#include <atomic>
#include <memory>
#include <optional>
#include <thread>

namespace tesk {

class TeskDocument;
class TeskExtendedAudioFile;
class TeskDocumentWindow;

/// Told when the document starts and stops its song. Main thread.
class TeskDocumentPlaybackDelegate {
public:
    virtual ~TeskDocumentPlaybackDelegate() = default;
    virtual void documentDidBeginPlayingAudio(TeskDocument*) {}
    virtual void documentDidStopPlayingAudio(TeskDocument*) {}
};

/// Told when the song's title, artist, album and artwork have arrived. Main thread.
class TeskDocumentMetadataDelegate {
public:
    virtual ~TeskDocumentMetadataDelegate() = default;
    virtual void documentDidImportMetadata(TeskDocument*) {}
};

/// Told how an export goes. Main thread.
class TeskDocumentFileExportDelegate {
public:
    virtual ~TeskDocumentFileExportDelegate() = default;
    /// 0 to 1.
    virtual void updateFileExportWithProgress(double /*progress*/) {}
    /// The export ended, written whole or cancelled (a cancelled export leaves no file).
    virtual void fileDidFinishExporting(const QString& /*path*/) {}
    /// The file could not be written; nothing is left at `path`.
    virtual void fileExportDidFail(const QString& /*path*/, const TeskError&) {}
};

/// One song's practice settings and the player that plays it. Every setting is an observable
/// property; the document observes its own and hands each change to the player, so whatever
/// sets a property (a view bound to it, a loaded file) changes what is heard. The document is
/// the only object that starts, stops and moves the player.
///
/// Markers and the loop range are undoable as whole values; volume, speed, pitch and zoom are
/// not. A document without a song (an empty window) keeps its settings but has no player: the
/// transport does nothing and the marker actions are refused.
///
/// Main thread; the export runs on a thread of its own and reports back on the main thread.
/// What tells one version of a file from another: when it was modified, its size, its inode.
struct FileStamp {
    qint64 seconds = 0;
    qint64 nanoseconds = 0;
    qint64 size = 0;
    quint64 inode = 0;
    bool operator==(const FileStamp&) const = default;
};

/// The file at `url` as it is now; none when there is no such file.
std::optional<FileStamp> fileStampOf(const QUrl& url);

class TeskDocument : public QObject,
                     private KeyValueObserver,
                     private TeskExtendedAudioFilePlayerDelegate,
                     private MetadataImporterDelegate {
    Q_OBJECT
    Q_PROPERTY(double playbackVolume READ playbackVolume WRITE setPlaybackVolume NOTIFY
                   playbackVolumeChanged)
    Q_PROPERTY(double zoomLevel READ zoomLevel WRITE setZoomLevel NOTIFY zoomLevelChanged)
    Q_PROPERTY(tesk::LoopRange loopRange READ loopRange WRITE setLoopRange NOTIFY loopRangeChanged)
    Q_PROPERTY(
        double playbackSpeed READ playbackSpeed WRITE setPlaybackSpeed NOTIFY playbackSpeedChanged)
    Q_PROPERTY(double pitchAdjustment READ pitchAdjustment WRITE setPitchAdjustment NOTIFY
                   pitchAdjustmentChanged)
    Q_PROPERTY(QList<quint32> genericMarkers READ genericMarkers WRITE setGenericMarkers NOTIFY
                   genericMarkersChanged)
    Q_PROPERTY(QList<quint32> chorusMarkers READ chorusMarkers WRITE setChorusMarkers NOTIFY
                   chorusMarkersChanged)
    Q_PROPERTY(QList<quint32> verseMarkers READ verseMarkers WRITE setVerseMarkers NOTIFY
                   verseMarkersChanged)
    Q_PROPERTY(QList<quint32> bridgeMarkers READ bridgeMarkers WRITE setBridgeMarkers NOTIFY
                   bridgeMarkersChanged)
    Q_PROPERTY(tesk::TeskEffectsSettings* effectsSettings READ effectsSettings NOTIFY
                   effectsSettingsChanged)
    Q_PROPERTY(QRectF documentWindowFrame READ documentWindowFrame WRITE setDocumentWindowFrame
                   NOTIFY documentWindowFrameChanged)
    Q_PROPERTY(bool effectsVisible READ effectsVisible WRITE setEffectsVisible NOTIFY
                   effectsVisibleChanged)
    Q_PROPERTY(QUrl audioFileURL READ audioFileURL NOTIFY audioFileChanged)
    Q_PROPERTY(QString songTitle READ songTitle NOTIFY songMetadataChanged)
    Q_PROPERTY(QString songArtist READ songArtist NOTIFY songMetadataChanged)
    Q_PROPERTY(QString songAlbum READ songAlbum NOTIFY songMetadataChanged)
    Q_PROPERTY(QImage songAlbumArt READ songAlbumArt NOTIFY songMetadataChanged)
    Q_PROPERTY(qint64 currentFrame READ currentFrame WRITE setCurrentFrame)

public:
    /// The user setting that holds the last volume set in any document.
    static inline const QString PlaybackVolumeSettingKey = QStringLiteral("TeskPlaybackVolume");

    /// A document without a song, at the defaults: the last volume used, zoom 0.9, speed 1,
    /// no pitch shift, no loop, no markers, the effects' own defaults.
    explicit TeskDocument(QObject* parent = nullptr);
    ~TeskDocument() override;

    TeskDocument(const TeskDocument&) = delete;
    TeskDocument& operator=(const TeskDocument&) = delete;

    // Plain settings, not undoable. None is clamped: the controls keep them in range.
    double playbackVolume() const { return mPlaybackVolume; }
    /// Also becomes the starting volume of the next new document.
    void setPlaybackVolume(double volume);
    double zoomLevel() const { return mZoomLevel; }
    void setZoomLevel(double zoomLevel);
    double playbackSpeed() const { return mPlaybackSpeed; }
    /// Negative plays backwards; zero is refused by the player.
    void setPlaybackSpeed(double speed);
    double pitchAdjustment() const { return mPitchAdjustment; }
    /// Semitones.
    void setPitchAdjustment(double semitones);
    QRectF documentWindowFrame() const { return mDocumentWindowFrame; }
    void setDocumentWindowFrame(const QRectF& frame);
    bool effectsVisible() const { return mEffectsVisible; }
    void setEffectsVisible(bool visible);

    // Undoable as whole values.
    LoopRange loopRange() const { return mLoopRange; }
    /// While the song loops, the player follows: a loop of length 0 ends looping (playback goes
    /// on), and a position past the new loop's end jumps to its start.
    void setLoopRange(LoopRange range);
    /// Between these two, every loop set makes one undo step back to the loop before the
    /// first, made at the end, and none when the loop ends as it began: a loop drawn or
    /// dragged in one gesture, or a click that changed nothing.
    void beginLoopEdit();
    void endLoopEdit();
    const QList<quint32>& genericMarkers() const { return mGenericMarkers; }
    void setGenericMarkers(const QList<quint32>& markers);
    const QList<quint32>& chorusMarkers() const { return mChorusMarkers; }
    void setChorusMarkers(const QList<quint32>& markers);
    const QList<quint32>& verseMarkers() const { return mVerseMarkers; }
    void setVerseMarkers(const QList<quint32>& markers);
    const QList<quint32>& bridgeMarkers() const { return mBridgeMarkers; }
    void setBridgeMarkers(const QList<quint32>& markers);
    const QList<quint32>& markers(MarkerKind kind) const;
    void setMarkers(MarkerKind kind, const QList<quint32>& markers);

    TeskEffectsSettings* effectsSettings() const { return mEffectsSettings.get(); }
    /// Installs `settings` and pushes every value of it into the player.
    void setEffectsSettings(std::unique_ptr<TeskEffectsSettings> settings);

    // The song.
    std::optional<TeskFileReference> audioFileAlias() const { return mAudioFileAlias; }
    /// Makes the player and the metadata importer for the song `alias` finds, unless it finds
    /// the song already installed; an export of the old song is cancelled. A song that can't be
    /// found or decoded leaves the document without a player; `songError` says why.
    /// `opened`, when given, is the song's file opened already.
    void setAudioFileAlias(std::optional<TeskFileReference> alias,
                           std::shared_ptr<TeskExtendedAudioFile> opened = nullptr);
    /// The song at `path` opened for playing, or null with the reason in `error`.
    static std::shared_ptr<TeskExtendedAudioFile> openSongFile(const QString& path,
                                                               std::optional<TeskError>* error);
    /// Where the song is now; empty without a song or when it can't be found. A song that has
    /// gone is searched for at most once a second.
    QUrl audioFileURL() const;
    /// Whether the file at `path` is the song, or would be found as the song were it written
    /// there while the song is missing.
    bool isSongAt(const QString& path) const;
    /// Installs the song at `url` and marks the document changed; clears the undo stack.
    void setAudioFileURL(const QUrl& url);
    /// As `setAudioFileURL` for a song the user found in its new place, but only if it plays:
    /// otherwise the document keeps the song it had, unchanged, and the reason is returned.
    std::optional<TeskError> locateAudioFile(const QUrl& url);
    /// Why the song cannot be played: it could not be opened, or it has gone since it was (a
    /// disk taken away). Nothing when it is found, or when there is none.
    std::optional<TeskError> songError() const;
    /// Neither a song nor a practice: what the empty window shows. A practice whose song is
    /// missing, or that names none, is not blank: its markers are the musician's work.
    bool isBlank() const;
    /// Why the song playing ends early or has gaps (its file damaged or cut short): it plays what
    /// could be read. Nothing while it is still being read, or when it was read whole.
    std::optional<TeskError> songDamage() const;
    /// The player, while there is a song.
    TeskExtendedAudioFilePlayer* player() const { return mPlaybackController.get(); }

    // What the metadata importer found; empty until it has finished.
    QString songTitle() const;
    QString songArtist() const;
    QString songAlbum() const;
    QImage songAlbumArt() const;

    // Forwarded to the player; nothing, false or 0 without a song.
    bool isFilePlaying() const;
    bool isLooping() const;
    qint64 currentFrame() const;
    /// Ignored while an export runs.
    void setCurrentFrame(qint64 frame);
    std::vector<float> frequencyTable() const;
    std::vector<float> frequencyResponseForChannel(unsigned channel) const;

    // Transport.
    void startFilePlaying() { startFilePlayingWithLoop(false); }
    void startFileLooping() { startFilePlayingWithLoop(true); }
    /// Looping from outside the loop starts at the loop's start.
    void startFilePlayingWithLoop(bool loop);
    void stopFilePlaying();
    /// Moves the position by `frames`; the player keeps it inside the song.
    void offsetCurrentFrame(qint32 frames);

    // Markers: each drop puts a marker of its kind at the current frame, or takes away the one
    // there. Refused (nothing happens) without a song.
    void dropGenericMarker() { dropMarker(MarkerKind::Generic); }
    void dropChorusMarker() { dropMarker(MarkerKind::Chorus); }
    void dropVerseMarker() { dropMarker(MarkerKind::Verse); }
    void dropBridgeMarker() { dropMarker(MarkerKind::Bridge); }
    void dropMarker(MarkerKind kind);
    /// Whether the marker actions can be used: only with a song.
    bool canDropMarkers() const { return !audioFileURL().isEmpty(); }

    // Export.
    /// Starts writing the processed song, or its loop, into a file on a thread of its own and
    /// returns at once. `options` holds "destinationFile" (a path, whose extension picks AIFF
    /// or M4A) and "exportingWithLoop" (a boolean). Progress and the end reach the export
    /// delegate on the main thread. Playback stops first. The file takes the destination's place
    /// only once it is whole: a cancelled or failed export leaves what was there. Returns false,
    /// and does nothing, when there is no song or an export is running.
    bool performLoopExportToFile(const QVariantMap& options);
    /// Ends a running export after its current slice; its file is removed.
    void cancelFileExportOperation();
    bool isExporting() const { return mExportThread.joinable(); }
    /// Waits until a running export has ended and reported. For tests and tools.
    void waitForExport();

    // Delegates, not owned.
    void setPlaybackDelegate(TeskDocumentPlaybackDelegate* delegate) {
        mPlaybackDelegate = delegate;
    }
    TeskDocumentPlaybackDelegate* playbackDelegate() const { return mPlaybackDelegate; }
    void setMetadataDelegate(TeskDocumentMetadataDelegate* delegate) {
        mMetadataDelegate = delegate;
    }
    TeskDocumentMetadataDelegate* metadataDelegate() const { return mMetadataDelegate; }
    void setFileExportDelegate(TeskDocumentFileExportDelegate* delegate) {
        mFileExportDelegate = delegate;
    }
    TeskDocumentFileExportDelegate* fileExportDelegate() const { return mFileExportDelegate; }

    // The document's own file.
    /// Empty while the document is untitled (new, or made from a song file).
    QUrl fileURL() const { return mFileURL; }
    void setFileURL(const QUrl& url);
    /// Reads `url`: a document file when `typeName` is TeskDocumentType, else a song, which
    /// gives an untitled document for it. A song of a type Tesk does not open gives false
    /// without an error; one that fails to load gives the "Bad Audio File" error.
    bool readFromURL(const QUrl& url, const QString& typeName, TeskError* error);
    /// Writes the settings to `url` whole or not at all: a failed save leaves the file that was
    /// there. Only TeskDocumentType is written (any other gives false without an error).
    bool writeToURL(const QUrl& url, const QString& typeName, TeskError* error) const;
    /// Writes to `url` and makes it the document's file.
    bool saveToURL(const QUrl& url, TeskError* error);
    /// The document was read from a copy kept against a crash: it is `url`'s again (untitled
    /// when empty), as that file is now, with its changes unsaved.
    void becomeRecoveredFrom(const QUrl& url);
    /// Whether the document's file has been changed by someone else (another Tesk, a copy
    /// synced from elsewhere) since it was read or saved here: a save would write over it.
    bool fileChangedElsewhere() const;
    /// The name windows show: the song's title or file name for an untitled document, the
    /// document file's name for a saved one, "Tesk" without a song.
    QString displayName() const;
    /// The name the musician knows the practice by, for questions about it: as `displayName`,
    /// but a practice whose song has gone keeps its own name (its file's, or its song's).
    QString practiceName() const;
    /// The document file as it was when last read or saved here; none for an untitled one.
    std::optional<FileStamp> savedFileStamp() const { return mFileStamp; }

    /// Unsaved changes: an undoable change since the last save, a change of speed, pitch or
    /// effects, or a new song.
    bool isDocumentEdited() const;
    enum class ChangeType { Done, Cleared };
    void updateChangeCount(ChangeType change);
    QUndoStack* undoManager() { return &mUndoStack; }

    // Windows.
    /// The windows that show this document, not owned; the first one's frame is saved.
    void addWindowController(TeskDocumentWindow* window);
    void removeWindowController(TeskDocumentWindow* window);
    const QList<TeskDocumentWindow*>& windowControllers() const { return mWindowControllers; }
    /// The window is closing: no late message from the player or the importer reaches the
    /// document any more.
    void documentWindowWillClose();

signals:
    void playbackVolumeChanged();
    void zoomLevelChanged();
    void loopRangeChanged();
    void playbackSpeedChanged();
    void pitchAdjustmentChanged();
    void genericMarkersChanged();
    void chorusMarkersChanged();
    void verseMarkersChanged();
    void bridgeMarkersChanged();
    void effectsSettingsChanged();
    void documentWindowFrameChanged();
    void effectsVisibleChanged();
    void audioFileChanged();
    void songMetadataChanged();
    void documentEditedChanged();

private:
    class SetValueCommand;

    void observeValueForKeyPath(const QString& keyPath, QObject* object,
                                const void* context) override;
    void audioFilePlayerDidReachEndOfFile(TeskExtendedAudioFilePlayer* player) override;
    void audioFilePlayerUpdatedExportWithProgress(TeskExtendedAudioFilePlayer* player,
                                                  double progress) override;
    void metadataImporterDidFinishImporting(MetadataImporter* importer) override;

    static TeskError songNotFoundError(const QString& name);
    void storeLoopRange(LoopRange range);
    /// A loop step of the undo stack, undone or redone.
    void applyLoopStep(LoopRange range);
    void storeMarkers(MarkerKind kind, const QList<quint32>& markers);
    /// Settles a finished export on the main thread.
    void exportDidEnd(const QString& path, std::optional<TeskError> failure);
    bool readDocumentFromURL(const QUrl& url, TeskError* error);
    void observeEffectsSettings(bool observe);
    /// Counts a change of the practice's speed, pitch or effects as one to save.
    void notePracticeChanged();
    /// Points the song's reference at `path`, where the song has just been found, if it has
    /// moved there.
    void followSongTo(const QString& path) const;

    /// Follows the song when it is found where it has moved, so that once it is gone its last
    /// place names it and is what a save keeps (see `audioFileURL`).
    mutable std::optional<TeskFileReference> mAudioFileAlias;
    /// Where the song was last found, and when a search for it last failed: whether there is a
    /// song is asked on every key, and a search for one that has gone reads whole folders.
    mutable QString mFoundSongPath;
    mutable QElapsedTimer mFailedSongSearch;
    /// A reference to the song this build could not read (damaged, or written by a newer
    /// Tesk): written back as it was, until another song is set.
    std::optional<QByteArray> mUnreadableAudioFileAlias;
    double mPlaybackVolume = 1.0;
    double mZoomLevel = 0.9;
    LoopRange mLoopRange;
    double mPlaybackSpeed = 1.0;
    double mPitchAdjustment = 0.0;
    QList<quint32> mGenericMarkers;
    QList<quint32> mChorusMarkers;
    QList<quint32> mVerseMarkers;
    QList<quint32> mBridgeMarkers;
    std::unique_ptr<TeskEffectsSettings> mEffectsSettings;
    QVariantMap mLastEffects; // the effects' values as last seen, to tell a real change
    std::unique_ptr<TeskExtendedAudioFilePlayer> mPlaybackController;
    std::unique_ptr<MetadataImporter> mMetadataImporter;
    QRectF mDocumentWindowFrame;
    bool mEffectsVisible = false;
    TeskDocumentFileExportDelegate* mFileExportDelegate = nullptr;
    TeskDocumentPlaybackDelegate* mPlaybackDelegate = nullptr;
    TeskDocumentMetadataDelegate* mMetadataDelegate = nullptr;

    std::optional<TeskError> mSongError;
    QUrl mFileURL;
    /// The file as it was last read or saved here.
    std::optional<FileStamp> mFileStamp;
    QUndoStack mUndoStack;
    /// Undo registration is off while a file is read.
    bool mUndoRegistrationEnabled = true;
    std::optional<LoopRange> mLoopBeforeEdit; // while a loop edit goes on
    int mChangeCount = 0;
    QList<TeskDocumentWindow*> mWindowControllers;
    std::thread mExportThread;
};

} // namespace tesk
