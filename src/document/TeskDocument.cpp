#include "document/TeskDocument.h"

#include "audio/EngineConstants.h"
#include "audio/ExportTemporaryFile.h"
#include "audio/ProcessingChainPool.h"
#include "audio/TeskAudioFileWriter.h"
#include "audio/TeskExtendedAudioFile.h"
#include "audio/dsp/VectorUnit.h"
#include "diagnostics/NSXReturnThrowError.h"
#include "document/SongTypes.h"
#include "document/TeskDocumentFile.h"
#include "document/TeskDocumentWindow.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QSettings>
#include <QTimer>
#include <QUndoCommand>
#include <chrono>
#include <functional>
#include <limits>
#include <map>
#include <sys/stat.h>

namespace tesk {
namespace {

/// What the Edit menu calls a change of one kind's markers: "Undo Add Chorus Marker".
QString markerStepName(MarkerKind kind, qsizetype before, qsizetype after) {
    static const char* const kAdded[kMarkerKindCount] = {
        QT_TRANSLATE_NOOP("TeskDocument", "Add Generic Marker"),
        QT_TRANSLATE_NOOP("TeskDocument", "Add Chorus Marker"),
        QT_TRANSLATE_NOOP("TeskDocument", "Add Verse Marker"),
        QT_TRANSLATE_NOOP("TeskDocument", "Add Bridge Marker")};
    static const char* const kRemoved[kMarkerKindCount] = {
        QT_TRANSLATE_NOOP("TeskDocument", "Remove Generic Marker"),
        QT_TRANSLATE_NOOP("TeskDocument", "Remove Chorus Marker"),
        QT_TRANSLATE_NOOP("TeskDocument", "Remove Verse Marker"),
        QT_TRANSLATE_NOOP("TeskDocument", "Remove Bridge Marker")};
    static const char* const kMoved[kMarkerKindCount] = {
        QT_TRANSLATE_NOOP("TeskDocument", "Move Generic Marker"),
        QT_TRANSLATE_NOOP("TeskDocument", "Move Chorus Marker"),
        QT_TRANSLATE_NOOP("TeskDocument", "Move Verse Marker"),
        QT_TRANSLATE_NOOP("TeskDocument", "Move Bridge Marker")};
    const char* const* names = after > before ? kAdded : after < before ? kRemoved : kMoved;
    return QCoreApplication::translate("TeskDocument", names[std::uint32_t(kind)]);
}

/// Whether two loops are one to the musician: an empty loop is no loop, wherever it lies.
bool sameLoop(LoopRange one, LoopRange other) {
    return one == other || (one.length == 0 && other.length == 0);
}

/// And of the loop: drawn where there was none, cleared, or moved and resized.
QString loopStepName(LoopRange before, LoopRange after) {
    if (after.length == 0)
        return QCoreApplication::translate("TeskDocument", "Clear Loop");
    if (before.length == 0)
        return QCoreApplication::translate("TeskDocument", "Set Loop");
    return QCoreApplication::translate("TeskDocument", "Change Loop");
}

/// Exports `range` (the whole song when none) through `player` into a file that takes
/// `path`'s place only once it is whole, so that an export that fails, is cancelled or is cut
/// short by Tesk closing leaves whatever was at `path` as it was. Export thread.
std::optional<TeskError> exportRange(TeskExtendedAudioFilePlayer& player,
                                     std::optional<LoopRange> part, const QString& path) {
    if (part) {
        // A loop drawn on a longer song (the song was replaced since) may reach past the end of
        // this one: only what the song has goes out, and a loop wholly past it is no export.
        const DecodedFrames& song = *player.audioFile();
        const qint64 end = qint64(part->location) + part->length;
        while (!song.isDecodingFinished() && song.decodedFrameCount() < end &&
               !player.isWriteToFileCancelled())
            song.waitForDecodedFrames(end, std::chrono::milliseconds(50));
        const qint64 songEnd = song.isDecodingFinished() ? song.frameCount() : end;
        if (part->location >= songEnd) {
            return audioExportError(
                AudioExportErrorCode::NothingWritten, path,
                QStringLiteral("The loop starts at %1 s, after the end of the song at %2 s.")
                    .arg(double(part->location) / engine::kSampleRateHz, 0, 'f', 3)
                    .arg(double(songEnd) / engine::kSampleRateHz, 0, 'f', 3));
        }
        part->length = std::uint32_t(std::min(end, songEnd) - part->location);
    }
    QString reason;
    const auto temporary = ExportTemporaryFile::create(path, &reason);
    if (!temporary)
        return audioExportError(AudioExportErrorCode::CannotCreate, path, reason);
    try {
        const auto outcome = part ? player.writeSamplesInRange(*part, temporary->path())
                                  : player.writeWholeSong(temporary->path());
        if (outcome != TeskOutputAudioUnit::ExportOutcome::Written)
            return std::nullopt;
        // Decoding stopped for want of room on the disk: what it left is not the song's end,
        // and an export that reaches it would pass for the whole song or loop.
        const auto* file = dynamic_cast<const TeskExtendedAudioFile*>(player.audioFile().get());
        const std::optional<TeskError> noRoom = file ? file->noRoomError() : std::nullopt;
        if (noRoom && (!part || qint64(part->location) + part->length >= file->frameCount()))
            return noRoom;
        if (!temporary->commit(&reason))
            return audioExportError(AudioExportErrorCode::CannotWrite, path, reason);
        return std::nullopt;
    } catch (const NSXError& exception) {
        return temporary->toldOfDestination(exception.error());
    } catch (const std::exception& exception) {
        // No thread or no memory for the export: the song and the documents stay.
        return audioExportError(AudioExportErrorCode::CannotWrite, path,
                                QString::fromLocal8Bit(exception.what()));
    }
}

// Observation contexts: only their addresses matter.
const char kPlaybackVolumeContext[] = "teskDocument.playbackVolume";
const char kPitchAdjustmentContext[] = "teskDocument.pitchAdjustment";
const char kPlaybackSpeedContext[] = "teskDocument.playbackSpeed";
const char kVocalReductionContext[] = "teskDocument.vocalReduction";
const char kPanningContext[] = "teskDocument.panning";
const char kEqualizerContext[] = "teskDocument.equalizer";

struct EffectsObservation {
    const char* key;
    const void* context;
};
// The player copies the vocal band rather than sharing it, so the band itself is observed too.
const EffectsObservation kEffectsObservations[] = {
    {"vocalReductionEnabled", kVocalReductionContext},
    {"vocalReductionEffectSettings", kVocalReductionContext},
    {"panningEnabled", kPanningContext},
    {"panAmount", kPanningContext},
    {"outOfPhase", kPanningContext},
    {"equalizerEnabled", kEqualizerContext},
    {"equalizerSettings", kEqualizerContext},
};

const QString ZORBTeskErrorDomain = QStringLiteral("ZORBTeskErrorDomain");
// File errors carry the usual file-error numbers, so the window can tell them apart.
/// How long after a song opens the spare chain for the next one is built.
constexpr std::chrono::milliseconds kSpareChainDelay{3000};

constexpr qint64 kFileReadUnknownError = 256;
constexpr qint64 kFileNoSuchFileError = 4;
constexpr qint64 kFileReadNoSuchFileError = 260;
constexpr qint64 kFileReadCorruptFileError = 259;
constexpr qint64 kFileWriteUnknownError = 512;

TeskError fileError(qint64 code, const QString& description, const QString& path,
                    const QString& suggestion = {}) {
    QVariantMap userInfo{{LocalizedDescriptionKey, description},
                         {QStringLiteral("NSFilePath"), path}};
    if (!suggestion.isEmpty())
        userInfo.insert(LocalizedRecoverySuggestionKey, suggestion);
    return TeskError(NSCocoaErrorDomain, code, userInfo);
}

TeskError badAudioFileError(const std::optional<TeskError>& cause) {
    QVariantMap userInfo{
        {LocalizedDescriptionKey, QCoreApplication::translate("TeskDocument", "Bad Audio File")},
        {LocalizedRecoverySuggestionKey,
         QCoreApplication::translate("TeskDocument",
                                     "There was an error while loading the audio file.")}};
    if (cause)
        userInfo.insert(UnderlyingErrorKey, QVariant::fromValue(*cause));
    return TeskError(ZORBTeskErrorDomain, 0, userInfo);
}

QString quotedName(const QString& path) {
    return QStringLiteral("\u201c%1\u201d").arg(QFileInfo(path).fileName());
}

} // namespace

/// One undoable change: applying either value is the same store call, so undo and redo also
/// reach the player.
class TeskDocument::SetValueCommand : public QUndoCommand {
public:
    SetValueCommand(const QString& text, std::function<void()> redo, std::function<void()> undo)
        : QUndoCommand(text)
        , mRedo(std::move(redo))
        , mUndo(std::move(undo)) {}
    void redo() override { mRedo(); }
    void undo() override { mUndo(); }

private:
    std::function<void()> mRedo;
    std::function<void()> mUndo;
};

/// The file at `url` as a writer leaves it: when it was modified (to the nanosecond), its size
/// and its inode, which a writer that saves by renaming a new file into place changes even
/// within one tick of a coarse clock. None when there is no file.
std::optional<FileStamp> fileStampOf(const QUrl& url) {
    struct stat info = {};
    if (::stat(QFile::encodeName(url.toLocalFile()).constData(), &info) != 0)
        return std::nullopt;
    return FileStamp{qint64(info.st_mtim.tv_sec), qint64(info.st_mtim.tv_nsec),
                     qint64(info.st_size), quint64(info.st_ino)};
}

/// Whether the two paths name one file: by its device and inode, so that on a disk that
/// ignores case "Song.m4a" is "song.M4A", and through any links.
bool isSameFile(const QString& one, const QString& other) {
    struct stat first = {};
    struct stat second = {};
    return ::stat(QFile::encodeName(one).constData(), &first) == 0 &&
           ::stat(QFile::encodeName(other).constData(), &second) == 0 &&
           first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

TeskDocument::TeskDocument(QObject* parent)
    : QObject(parent) {
    bool ok = false;
    const double lastVolume = QSettings().value(PlaybackVolumeSettingKey, 1.0).toDouble(&ok);
    mPlaybackVolume = ok ? lastVolume : 1.0;
    setEffectsSettings(std::make_unique<TeskEffectsSettings>());
    addObserver(this, this, QStringLiteral("playbackVolume"), ObservingOption::Initial,
                kPlaybackVolumeContext);
    addObserver(this, this, QStringLiteral("pitchAdjustment"), ObservingOption::Initial,
                kPitchAdjustmentContext);
    addObserver(this, this, QStringLiteral("playbackSpeed"), ObservingOption::Initial,
                kPlaybackSpeedContext);
    connect(&mUndoStack, &QUndoStack::cleanChanged, this, &TeskDocument::documentEditedChanged);
}

TeskDocument::~TeskDocument() {
    if (mExportThread.joinable()) {
        mPlaybackController->cancelWriteToFile();
        mExportThread.join();
    }
    if (mMetadataImporter)
        mMetadataImporter->setDelegate(nullptr);
    if (mPlaybackController) {
        mPlaybackController->setDelegate(nullptr);
        mPlaybackController->stopFilePlaying();
    }
    removeObserver(this, this, QStringLiteral("playbackVolume"), kPlaybackVolumeContext);
    removeObserver(this, this, QStringLiteral("pitchAdjustment"), kPitchAdjustmentContext);
    removeObserver(this, this, QStringLiteral("playbackSpeed"), kPlaybackSpeedContext);
    observeEffectsSettings(false);
}

void TeskDocument::setPlaybackVolume(double volume) {
    mPlaybackVolume = volume;
    emit playbackVolumeChanged();
}

void TeskDocument::setZoomLevel(double zoomLevel) {
    mZoomLevel = zoomLevel;
    emit zoomLevelChanged();
}

void TeskDocument::setPlaybackSpeed(double speed) {
    if (speed != mPlaybackSpeed)
        notePracticeChanged();
    mPlaybackSpeed = speed;
    emit playbackSpeedChanged();
}

void TeskDocument::setPitchAdjustment(double semitones) {
    if (semitones != mPitchAdjustment)
        notePracticeChanged();
    mPitchAdjustment = semitones;
    emit pitchAdjustmentChanged();
}

void TeskDocument::notePracticeChanged() {
    // Speed, pitch and effects are not undone one by one, but they are what the musician set up
    // to practise with: a change is one to save, so that closing asks rather than loses it.
    // Reading a document, or an empty window, changes nothing to keep.
    if (mUndoRegistrationEnabled && (mAudioFileAlias || !mFileURL.isEmpty()))
        updateChangeCount(ChangeType::Done);
}

void TeskDocument::setDocumentWindowFrame(const QRectF& frame) {
    mDocumentWindowFrame = frame;
    emit documentWindowFrameChanged();
}

void TeskDocument::setEffectsVisible(bool visible) {
    mEffectsVisible = visible;
    emit effectsVisibleChanged();
}

void TeskDocument::setLoopRange(LoopRange range) {
    const LoopRange previous = mLoopRange;
    // An unchanged value would only leave an undo step that does nothing.
    if (!mUndoRegistrationEnabled || mLoopBeforeEdit || sameLoop(range, previous)) {
        storeLoopRange(range);
        return;
    }
    mUndoStack.push(new SetValueCommand(
        loopStepName(previous, range), [this, range] { applyLoopStep(range); },
        [this, previous] { applyLoopStep(previous); }));
}

void TeskDocument::beginLoopEdit() {
    if (!mLoopBeforeEdit)
        mLoopBeforeEdit = mLoopRange;
}

void TeskDocument::endLoopEdit() {
    if (!mLoopBeforeEdit)
        return;
    const LoopRange before = *mLoopBeforeEdit;
    const LoopRange after = mLoopRange;
    mLoopBeforeEdit.reset();
    if (sameLoop(after, before) || !mUndoRegistrationEnabled)
        return;
    mUndoStack.push(new SetValueCommand(
        loopStepName(before, after), [this, after] { applyLoopStep(after); },
        [this, before] { applyLoopStep(before); }));
}

void TeskDocument::applyLoopStep(LoopRange range) {
    // Undone or redone in the middle of a loop drag: the drag's step starts from here. From
    // the loop at the press, undoing it would bring back a loop the history has gone past,
    // with the document counting itself as saved.
    if (mLoopBeforeEdit)
        mLoopBeforeEdit = range;
    storeLoopRange(range);
}

void TeskDocument::storeLoopRange(LoopRange range) {
    mLoopRange = range;
    emit loopRangeChanged();
    TeskExtendedAudioFilePlayer* player = mPlaybackController.get();
    if (!player || !player->isLooping() || !player->isFilePlaying())
        return;
    player->setLoopRange(range);
    if (range.length == 0) {
        player->setLooping(false);
        return;
    }
    // Only a position past the new end moves; one before the new start plays on into the loop.
    const std::uint32_t end = range.location + range.length;
    if (player->currentFrame() > qint64(end))
        player->setCurrentFrame(range.location);
}

const QList<quint32>& TeskDocument::markers(MarkerKind kind) const {
    switch (kind) {
    case MarkerKind::Generic:
        return mGenericMarkers;
    case MarkerKind::Chorus:
        return mChorusMarkers;
    case MarkerKind::Verse:
        return mVerseMarkers;
    case MarkerKind::Bridge:
        break;
    }
    return mBridgeMarkers;
}

void TeskDocument::setGenericMarkers(const QList<quint32>& markers) {
    setMarkers(MarkerKind::Generic, markers);
}
void TeskDocument::setChorusMarkers(const QList<quint32>& markers) {
    setMarkers(MarkerKind::Chorus, markers);
}
void TeskDocument::setVerseMarkers(const QList<quint32>& markers) {
    setMarkers(MarkerKind::Verse, markers);
}
void TeskDocument::setBridgeMarkers(const QList<quint32>& markers) {
    setMarkers(MarkerKind::Bridge, markers);
}

void TeskDocument::setMarkers(MarkerKind kind, const QList<quint32>& markers) {
    const QList<quint32> previous = this->markers(kind);
    if (!mUndoRegistrationEnabled || markers == previous) {
        storeMarkers(kind, markers);
        return;
    }
    mUndoStack.push(new SetValueCommand(
        markerStepName(kind, previous.size(), markers.size()),
        [this, kind, markers] { storeMarkers(kind, markers); },
        [this, kind, previous] { storeMarkers(kind, previous); }));
}

void TeskDocument::storeMarkers(MarkerKind kind, const QList<quint32>& markers) {
    switch (kind) {
    case MarkerKind::Generic:
        mGenericMarkers = markers;
        emit genericMarkersChanged();
        break;
    case MarkerKind::Chorus:
        mChorusMarkers = markers;
        emit chorusMarkersChanged();
        break;
    case MarkerKind::Verse:
        mVerseMarkers = markers;
        emit verseMarkersChanged();
        break;
    case MarkerKind::Bridge:
        mBridgeMarkers = markers;
        emit bridgeMarkersChanged();
        break;
    }
}

void TeskDocument::dropMarker(MarkerKind kind) {
    if (!canDropMarkers())
        return;
    const auto frame = static_cast<quint32>(currentFrame());
    QList<quint32> changed = markers(kind);
    if (changed.contains(frame))
        changed.removeAll(frame);
    else
        changed.append(frame);
    setMarkers(kind, changed);
}

void TeskDocument::setEffectsSettings(std::unique_ptr<TeskEffectsSettings> settings) {
    observeEffectsSettings(false);
    mEffectsSettings = std::move(settings);
    observeEffectsSettings(true);
    emit effectsSettingsChanged();
}

void TeskDocument::observeEffectsSettings(bool observe) {
    if (!mEffectsSettings)
        return;
    for (const EffectsObservation& observation : kEffectsObservations) {
        const QString key = QString::fromLatin1(observation.key);
        if (observe)
            addObserver(mEffectsSettings.get(), this, key, ObservingOption::Initial,
                        observation.context);
        else
            removeObserver(mEffectsSettings.get(), this, key, observation.context);
    }
}

void TeskDocument::observeValueForKeyPath(const QString&, QObject*, const void* context) {
    TeskExtendedAudioFilePlayer* player = mPlaybackController.get();
    if (context == kPlaybackVolumeContext) {
        if (player)
            player->setPlaybackLevel(float(mPlaybackVolume));
        QSettings().setValue(PlaybackVolumeSettingKey, mPlaybackVolume);
        return;
    }
    if (context == kVocalReductionContext || context == kPanningContext ||
        context == kEqualizerContext) {
        // Each key of a new settings object reports at once: only values that differ count.
        QVariantMap effects =
            mEffectsSettings ? mEffectsSettings->dictionaryRepresentation() : QVariantMap();
        if (effects != mLastEffects) {
            mLastEffects = std::move(effects);
            notePracticeChanged();
        }
    }
    if (!player)
        return;
    if (context == kPitchAdjustmentContext) {
        player->setPlaybackPitchInSemitones(mPitchAdjustment);
    } else if (context == kPlaybackSpeedContext) {
        player->setPlaybackSpeed(float(mPlaybackSpeed));
    } else if (context == kVocalReductionContext && mEffectsSettings) {
        player->setVocalReductionEffectSettings(mEffectsSettings->vocalReductionEffectSettings());
        player->setVocalRemoval(mEffectsSettings->isVocalReductionEnabled());
    } else if (context == kPanningContext && mEffectsSettings) {
        player->setPanAdjust(mEffectsSettings->isPanningEnabled());
        player->setPanAmount(mEffectsSettings->panAmount());
        player->setOutOfPhase(mEffectsSettings->isOutOfPhase());
    } else if (context == kEqualizerContext && mEffectsSettings) {
        player->setEqualizerEnabled(mEffectsSettings->isEqualizerEnabled());
        player->setEqualizerSettings(mEffectsSettings->equalizerSettings());
    }
}

std::shared_ptr<TeskExtendedAudioFile> TeskDocument::openSongFile(const QString& path,
                                                                  std::optional<TeskError>* error) {
    try {
        return TeskExtendedAudioFile::openForPlayback(path, error);
    } catch (const NSXError& exception) {
        *error = exception.error();
        return nullptr;
    }
}

void TeskDocument::setAudioFileAlias(std::optional<TeskFileReference> alias,
                                     std::shared_ptr<TeskExtendedAudioFile> opened) {
    // The same song again changes nothing, unless it could not be opened before (it was
    // missing and is back).
    if (alias && mAudioFileAlias && mPlaybackController && alias->isEqual(*mAudioFileAlias))
        return;
    if (!alias && !mAudioFileAlias)
        return;
    mAudioFileAlias = std::move(alias);
    mFailedSongSearch.invalidate();
    mUnreadableAudioFileAlias.reset();
    mSongError.reset();

    if (mExportThread.joinable()) {
        cancelFileExportOperation();
        waitForExport();
    }
    if (mPlaybackController) {
        if (isFilePlaying())
            stopFilePlaying(); // told, so that a window stops showing it play
        mPlaybackController->setDelegate(nullptr);
        mPlaybackController->stopFilePlaying();
        mPlaybackController.reset();
    }
    if (mMetadataImporter) {
        mMetadataImporter->setDelegate(nullptr);
        mMetadataImporter.reset();
    }

    const QString path =
        mAudioFileAlias ? mAudioFileAlias->resolvedPath(mFileURL.toLocalFile()) : QString();
    mFoundSongPath = path;
    if (!path.isEmpty())
        followSongTo(path);
    if (mAudioFileAlias && path.isEmpty()) {
        const QString name = mAudioFileAlias->fileName();
        mSongError = songNotFoundError(name);
    } else if (!path.isEmpty()) {
        std::optional<TeskError> openError;
        if (!opened)
            opened = openSongFile(path, &openError);
        if (opened)
            mPlaybackController = std::make_unique<TeskExtendedAudioFilePlayer>(opened, true);
        if (mPlaybackController) {
            mPlaybackController->setPlaybackLevel(float(mPlaybackVolume));
            mPlaybackController->setPlaybackSpeed(float(mPlaybackSpeed));
            mPlaybackController->setPlaybackPitchInSemitones(mPitchAdjustment);
            // A song located again later must sound with the effects already set.
            for (const void* context : {kVocalReductionContext, kPanningContext, kEqualizerContext})
                observeValueForKeyPath({}, mEffectsSettings.get(), context);
            // The next song opened should not wait for its chain either; but building one
            // takes the processor as long as decoding a minute of song, so it waits until this
            // song has opened and been drawn.
            QTimer::singleShot(kSpareChainDelay, this, [] { ProcessingChainPool::prepare(); });
        } else {
            mSongError = openError;
        }
        MetadataImporterDelegate* delegate = this;
        mMetadataImporter = std::make_unique<MetadataImporter>(QUrl::fromLocalFile(path), delegate);
    }
    emit audioFileChanged();
    emit songMetadataChanged();
}

TeskError TeskDocument::songNotFoundError(const QString& name) {
    return fileError(kFileNoSuchFileError,
                     tr("The song %1 could not be found.").arg(quotedName(name)), name);
}

std::optional<TeskError> TeskDocument::songError() const {
    if (mSongError || !mAudioFileAlias || !audioFileURL().isEmpty())
        return mSongError;
    return songNotFoundError(mAudioFileAlias->fileName());
}

bool TeskDocument::isBlank() const {
    return !mAudioFileAlias && mFileURL.isEmpty() && !songError();
}

std::optional<TeskError> TeskDocument::songDamage() const {
    const auto* song =
        mPlaybackController
            ? dynamic_cast<const TeskExtendedAudioFile*>(mPlaybackController->audioFile().get())
            : nullptr;
    return song ? song->decodingError() : std::nullopt;
}

QUrl TeskDocument::audioFileURL() const {
    if (!mAudioFileAlias)
        return {};
    // A song still where it was found costs one look.
    if (mFoundSongPath.isEmpty() || !QFileInfo(mFoundSongPath).isFile()) {
        constexpr qint64 kSongSearchIntervalMs = 1000;
        const bool searchedLately =
            mFailedSongSearch.isValid() && !mFailedSongSearch.hasExpired(kSongSearchIntervalMs);
        mFoundSongPath =
            searchedLately ? QString() : mAudioFileAlias->resolvedPath(mFileURL.toLocalFile());
        if (mFoundSongPath.isEmpty() && !searchedLately)
            mFailedSongSearch.start();
        else if (!mFoundSongPath.isEmpty())
            followSongTo(mFoundSongPath);
    }
    return mFoundSongPath.isEmpty() ? QUrl() : QUrl::fromLocalFile(mFoundSongPath);
}

bool TeskDocument::isSongAt(const QString& path) const {
    const QString song = audioFileURL().toLocalFile();
    if (!song.isEmpty())
        return isSameFile(path, song);
    // A missing song is found again wherever Tesk would look for it by name; a file written
    // through a link lands where the link leads.
    return mAudioFileAlias && mAudioFileAlias->wouldFindAt(ExportTemporaryFile::finalPath(path),
                                                           mFileURL.toLocalFile());
}

void TeskDocument::followSongTo(const QString& path) const {
    // A song renamed, then deleted, is missed by its last name; one renamed, then replaced,
    // is found in its last place.
    if (path == mAudioFileAlias->absolutePath())
        return;
    if (auto moved = TeskFileReference::fromPath(path, mFileURL.toLocalFile()))
        mAudioFileAlias = std::move(moved);
}

void TeskDocument::setAudioFileURL(const QUrl& url) {
    setAudioFileAlias(TeskFileReference::fromPath(url.toLocalFile(), mFileURL.toLocalFile()));
    updateChangeCount(ChangeType::Done);
    mUndoStack.clear();
}

std::optional<TeskError> TeskDocument::locateAudioFile(const QUrl& url) {
    std::optional<TeskFileReference> found =
        TeskFileReference::fromPath(url.toLocalFile(), mFileURL.toLocalFile());
    if (!found) { // gone again since it was chosen
        const QString name = QFileInfo(url.toLocalFile()).fileName();
        return songNotFoundError(name);
    }
    // Opened first: a file that does not play leaves the song there was, playing on if it was.
    std::optional<TeskError> openError;
    std::shared_ptr<TeskExtendedAudioFile> opened = openSongFile(url.toLocalFile(), &openError);
    if (!opened)
        return openError;
    setAudioFileAlias(std::move(found), std::move(opened));
    updateChangeCount(ChangeType::Done);
    mUndoStack.clear();
    return std::nullopt;
}

QString TeskDocument::songTitle() const {
    return mMetadataImporter ? mMetadataImporter->title() : QString();
}
QString TeskDocument::songArtist() const {
    return mMetadataImporter ? mMetadataImporter->artist() : QString();
}
QString TeskDocument::songAlbum() const {
    return mMetadataImporter ? mMetadataImporter->album() : QString();
}
QImage TeskDocument::songAlbumArt() const {
    return mMetadataImporter ? mMetadataImporter->albumArt() : QImage();
}

bool TeskDocument::isFilePlaying() const {
    return mPlaybackController && mPlaybackController->isFilePlaying();
}
bool TeskDocument::isLooping() const {
    return mPlaybackController && mPlaybackController->isLooping();
}
qint64 TeskDocument::currentFrame() const {
    return mPlaybackController ? mPlaybackController->currentFrame() : 0;
}
void TeskDocument::setCurrentFrame(qint64 frame) {
    // The export reads the song through the player's reader; moving it would cut the file.
    if (mPlaybackController && !isExporting())
        mPlaybackController->setCurrentFrame(frame);
    // What the views bound to the position show is where the player put it: inside the song.
    announceChange(this, "currentFrame");
}
std::vector<float> TeskDocument::frequencyTable() const {
    return mPlaybackController ? mPlaybackController->frequencyTable() : std::vector<float>();
}
std::vector<float> TeskDocument::frequencyResponseForChannel(unsigned channel) const {
    return mPlaybackController ? mPlaybackController->frequencyResponseForChannel(channel)
                               : std::vector<float>();
}

void TeskDocument::startFilePlayingWithLoop(bool loop) {
    TeskExtendedAudioFilePlayer* player = mPlaybackController.get();
    if (!player || isExporting())
        return;
    player->setDelegate(this);
    player->setLooping(loop);
    player->setLoopRange(mLoopRange);
    if (loop) {
        const qint64 frame = player->currentFrame();
        const std::uint32_t start = mLoopRange.location;
        const std::uint32_t end = mLoopRange.location + mLoopRange.length;
        // Exactly at the end stays: the loop wraps from there at once.
        if (frame < qint64(start) || frame > qint64(end))
            player->setCurrentFrame(start);
    }
    player->startFilePlaying();
    if (mPlaybackDelegate)
        mPlaybackDelegate->documentDidBeginPlayingAudio(this);
}

void TeskDocument::stopFilePlaying() {
    if (!mPlaybackController)
        return;
    mPlaybackController->setDelegate(nullptr);
    mPlaybackController->stopFilePlaying();
    if (mPlaybackDelegate)
        mPlaybackDelegate->documentDidStopPlayingAudio(this);
}

void TeskDocument::offsetCurrentFrame(qint32 frames) {
    setCurrentFrame(currentFrame() + qint64(frames));
}

void TeskDocument::audioFilePlayerDidReachEndOfFile(TeskExtendedAudioFilePlayer*) {
    // Later, from the event loop: the player is still inside its own end-of-song check. The
    // position it stopped at lags the end by the last block; it is put at the end itself, so
    // that Play knows the song was played out and starts it again.
    QMetaObject::invokeMethod(
        this,
        [this] {
            stopFilePlaying();
            if (mPlaybackController)
                setCurrentFrame(mPlaybackSpeed < 0.0 ? 0 : mPlaybackController->totalFrames());
        },
        Qt::QueuedConnection);
}

void TeskDocument::audioFilePlayerUpdatedExportWithProgress(TeskExtendedAudioFilePlayer*,
                                                            double progress) {
    if (mFileExportDelegate)
        mFileExportDelegate->updateFileExportWithProgress(progress);
}

void TeskDocument::metadataImporterDidFinishImporting(MetadataImporter* importer) {
    if (importer != mMetadataImporter.get())
        return;
    // A running export reads the player's tags on its own thread: they change once it is done.
    if (mPlaybackController && !isExporting())
        mPlaybackController->setSongMetadata(importer->songMetadata());
    emit songMetadataChanged();
    for (TeskDocumentWindow* window : mWindowControllers)
        window->synchronizeWindowTitleWithDocumentName();
    if (mMetadataDelegate)
        mMetadataDelegate->documentDidImportMetadata(this);
}

bool TeskDocument::performLoopExportToFile(const QVariantMap& options) {
    TeskExtendedAudioFilePlayer* player = mPlaybackController.get();
    if (!player || isExporting())
        return false;
    const QString path = options.value(QStringLiteral("destinationFile")).toString();
    const bool withLoop = options.value(QStringLiteral("exportingWithLoop")).toBool();
    if (path.isEmpty())
        return false;
    // Without a loop there is nothing to limit the export to: the whole song goes out.
    const std::optional<LoopRange> range =
        withLoop && mLoopRange.length > 0 ? std::optional(mLoopRange) : std::nullopt;
    if (player->isFilePlaying())
        stopFilePlaying();
    // An export holds its range alone: a loop played before must not wrap it. Playback sets
    // looping again when it starts.
    player->setLooping(false);
    player->setDelegate(this);
    player->clearCancelWriteToFile();
    mExportThread = std::thread([this, player, range, path] {
        clearVectorUpperState();
        const std::optional<TeskError> failure = exportRange(*player, range, path);
        QMetaObject::invokeMethod(
            this, [this, path, failure] { exportDidEnd(path, failure); }, Qt::QueuedConnection);
    });
    return true;
}

void TeskDocument::cancelFileExportOperation() {
    if (mPlaybackController)
        mPlaybackController->cancelWriteToFile();
}

void TeskDocument::waitForExport() {
    if (!mExportThread.joinable())
        return;
    mExportThread.join();
    // The thread's last act was to queue its report; deliver it now.
    QCoreApplication::sendPostedEvents(this, QEvent::MetaCall);
}

void TeskDocument::exportDidEnd(const QString& path, std::optional<TeskError> failure) {
    if (mExportThread.joinable())
        mExportThread.join();
    if (mPlaybackController)
        mPlaybackController->setDelegate(nullptr);
    if (mPlaybackController && mMetadataImporter && mMetadataImporter->isFinished())
        mPlaybackController->setSongMetadata(mMetadataImporter->songMetadata());
    if (!mFileExportDelegate)
        return;
    if (failure)
        mFileExportDelegate->fileExportDidFail(path, *failure);
    else
        mFileExportDelegate->fileDidFinishExporting(path);
}

void TeskDocument::setFileURL(const QUrl& url) {
    mFileURL = url;
    // The song may be found beside the document's new place.
    mFailedSongSearch.invalidate();
}

void TeskDocument::becomeRecoveredFrom(const QUrl& url) {
    setFileURL(url);
    mFileStamp = url.isEmpty() ? std::nullopt : fileStampOf(url);
    updateChangeCount(ChangeType::Done);
}

bool TeskDocument::readFromURL(const QUrl& url, const QString& typeName, TeskError* error) {
    if (typeName == TeskDocumentType)
        return readDocumentFromURL(url, error);

    if (!canOpenFile(url))
        return false;
    setAudioFileURL(url);
    if (!mPlaybackController) {
        if (error)
            *error = badAudioFileError(mSongError);
        return false;
    }
    // Untitled: saving asks where, so the song itself is never written over.
    setFileURL({});
    return true;
}

bool TeskDocument::readDocumentFromURL(const QUrl& url, TeskError* error) {
    const QString path = url.toLocalFile();
    DocumentFileError problem;
    const std::optional<TeskDocumentContents> contents = readDocumentFile(path, &problem);
    if (!contents) {
        if (error) {
            static const std::map<DocumentFileError::Kind, qint64> codes{
                {DocumentFileError::Kind::NotFound, kFileReadNoSuchFileError},
                {DocumentFileError::Kind::NotReadable, kFileReadUnknownError},
                {DocumentFileError::Kind::Damaged, kFileReadCorruptFileError}};
            *error = fileError(
                codes.at(problem.kind),
                tr("The document %1 could not be opened. %2").arg(quotedName(path), problem.reason),
                path);
        }
        return false;
    }

    // The song is found relative to this file, so it has to be known first.
    setFileURL(url);
    mFileStamp = fileStampOf(url);
    mUndoRegistrationEnabled = false;
    // The song first: the settings that follow reach its player through observation.
    if (contents->audioFileAlias) {
        std::optional<TeskFileReference> alias =
            TeskFileReference::fromBytes(*contents->audioFileAlias);
        setAudioFileAlias(alias);
        if (!alias) {
            mUnreadableAudioFileAlias = contents->audioFileAlias;
            mSongError = fileError(kFileReadCorruptFileError,
                                   tr("The document’s reference to its song is damaged."), path);
        }
    } else {
        // Its markers and loop belong to a song; the window offers to locate one.
        mSongError = fileError(kFileReadCorruptFileError, tr("The document names no song."), path);
    }
    const std::optional<QList<quint32>>* const markerArrays[] = {
        &contents->genericMarkers, &contents->chorusMarkers, &contents->verseMarkers,
        &contents->bridgeMarkers};
    for (int kind = 0; kind < 4; ++kind) {
        if (*markerArrays[kind])
            setMarkers(MarkerKind(kind), **markerArrays[kind]);
    }
    setLoopRange({contents->loopLocation.value_or(0), contents->loopLength.value_or(0)});
    // Deliberately zero when missing, unlike a new document's defaults.
    setZoomLevel(contents->zoomLevel.value_or(0.0));
    setPlaybackVolume(contents->playbackVolume.value_or(0.0));
    setPitchAdjustment(contents->pitchAdjustment.value_or(0.0));
    if (contents->playbackSpeed && std::abs(*contents->playbackSpeed) > 0.0)
        setPlaybackSpeed(*contents->playbackSpeed);
    if (contents->effectsSettings)
        setEffectsSettings(std::make_unique<TeskEffectsSettings>(*contents->effectsSettings));
    if (contents->documentWindowFrame)
        setDocumentWindowFrame(*contents->documentWindowFrame);
    if (contents->effectsVisible)
        setEffectsVisible(*contents->effectsVisible);
    mUndoRegistrationEnabled = true;
    return true;
}

bool TeskDocument::writeToURL(const QUrl& url, const QString& typeName, TeskError* error) const {
    if (typeName != TeskDocumentType)
        return false;
    const QString path = url.toLocalFile();

    TeskDocumentContents contents;
    if (mAudioFileAlias) {
        // Made afresh for where the document goes, so the song is found beside it later.
        const QString songPath = mAudioFileAlias->resolvedPath(mFileURL.toLocalFile());
        const std::optional<TeskFileReference> fresh =
            songPath.isEmpty() ? std::nullopt : TeskFileReference::fromPath(songPath, path);
        contents.audioFileAlias = (fresh ? *fresh : *mAudioFileAlias).toBytes();
    } else {
        contents.audioFileAlias = mUnreadableAudioFileAlias;
    }
    contents.genericMarkers = mGenericMarkers;
    contents.chorusMarkers = mChorusMarkers;
    contents.verseMarkers = mVerseMarkers;
    contents.bridgeMarkers = mBridgeMarkers;
    contents.effectsSettings = mEffectsSettings->dictionaryRepresentation();
    contents.zoomLevel = mZoomLevel;
    contents.playbackVolume = mPlaybackVolume;
    contents.loopLocation = mLoopRange.location;
    contents.loopLength = mLoopRange.length;
    contents.playbackSpeed = mPlaybackSpeed;
    contents.pitchAdjustment = mPitchAdjustment;
    // Where the window is now, moved or not.
    contents.documentWindowFrame = mWindowControllers.isEmpty()
                                       ? mDocumentWindowFrame
                                       : mWindowControllers.first()->windowFrame();
    contents.effectsVisible = mEffectsVisible;

    QString reason;
    if (writeDocumentFile(path, contents, &reason))
        return true;
    if (error) {
        // The system's reason ("Read-only file system", "No space left on device") as a
        // sentence of its own, and what to do about it.
        const QString why = reason.isEmpty()        ? QString()
                            : reason.endsWith(u'.') ? reason + u' '
                                                    : reason + QStringLiteral(". ");
        *error = fileError(kFileWriteUnknownError,
                           tr("The document %1 could not be saved.").arg(quotedName(path)), path,
                           why + tr("Save it in another folder or on another disk, or check "
                                    "that you have permission to write in this one."));
    }
    return false;
}

bool TeskDocument::saveToURL(const QUrl& url, TeskError* error) {
    if (!writeToURL(url, TeskDocumentType, error))
        return false;
    setFileURL(url);
    mFileStamp = fileStampOf(url);
    updateChangeCount(ChangeType::Cleared);
    return true;
}

bool TeskDocument::fileChangedElsewhere() const {
    if (mFileURL.isEmpty() || !mFileStamp)
        return false;
    const auto now = fileStampOf(mFileURL);
    return now && *now != *mFileStamp; // a file deleted since is simply written again
}

QString TeskDocument::displayName() const {
    const QUrl song = audioFileURL();
    if (mFileURL.isEmpty()) {
        if (const QString title = songTitle(); !title.isEmpty())
            return title;
        if (const QString name = QFileInfo(song.toLocalFile()).completeBaseName(); !name.isEmpty())
            return name;
    }
    if (song.isEmpty())
        return QStringLiteral("Tesk");
    return QFileInfo(mFileURL.toLocalFile()).completeBaseName();
}

QString TeskDocument::practiceName() const {
    if (!mFileURL.isEmpty())
        return QFileInfo(mFileURL.toLocalFile()).completeBaseName();
    if (audioFileURL().isEmpty() && mAudioFileAlias)
        return QFileInfo(mAudioFileAlias->fileName()).completeBaseName();
    return displayName();
}

bool TeskDocument::isDocumentEdited() const {
    return mChangeCount != 0 || !mUndoStack.isClean();
}

void TeskDocument::updateChangeCount(ChangeType change) {
    if (change == ChangeType::Done) {
        ++mChangeCount;
    } else {
        mChangeCount = 0;
        mUndoStack.setClean();
    }
    emit documentEditedChanged();
}

void TeskDocument::addWindowController(TeskDocumentWindow* window) {
    if (!mWindowControllers.contains(window))
        mWindowControllers.append(window);
}

void TeskDocument::removeWindowController(TeskDocumentWindow* window) {
    mWindowControllers.removeAll(window);
}

void TeskDocument::documentWindowWillClose() {
    if (mMetadataImporter)
        mMetadataImporter->setDelegate(nullptr);
    if (mPlaybackController)
        mPlaybackController->setDelegate(nullptr);
}

} // namespace tesk
