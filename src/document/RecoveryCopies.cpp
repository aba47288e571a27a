#include "document/RecoveryCopies.h"

#include "audio/TeskEffectsSettings.h"
#include "document/TeskDocument.h"
#include "document/TeskDocumentFile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLockFile>
#include <QSaveFile>
#include <QStandardPaths>
#include <QTimer>
#include <QUndoStack>
#include <QUuid>
#include <algorithm>

#include <utility>

namespace tesk {

namespace {

const QString kCopySuffix = QStringLiteral(".tesk");
const QString kNoteSuffix = QStringLiteral(".json");
const QString kLockSuffix = QStringLiteral(".lock");

QJsonArray stampToJson(const FileStamp& stamp) {
    return {double(stamp.seconds), double(stamp.nanoseconds), double(stamp.size),
            double(stamp.inode)};
}

std::optional<FileStamp> stampFromJson(const QJsonValue& value) {
    const QJsonArray fields = value.toArray();
    if (fields.size() != 4)
        return std::nullopt;
    return FileStamp{qint64(fields[0].toDouble()), qint64(fields[1].toDouble()),
                     qint64(fields[2].toDouble()), quint64(fields[3].toDouble())};
}

/// Whether the document holds practice that a crash would lose. A song just opened is an
/// unsaved document too, but with nothing of the musician's in it there is nothing to offer
/// back.
bool holdsUnsavedPractice(const TeskDocument& document) {
    if (!document.isDocumentEdited())
        return false;
    if (!document.fileURL().isEmpty())
        return true;
    for (int kind = 0; kind < 4; ++kind) {
        if (!document.markers(MarkerKind(kind)).isEmpty())
            return true;
    }
    return document.loopRange().length > 0 || document.playbackSpeed() != 1.0 ||
           document.pitchAdjustment() != 0.0 ||
           document.effectsSettings()->dictionaryRepresentation() !=
               TeskEffectsSettings().dictionaryRepresentation();
}

} // namespace

RecoveryCopies::RecoveryCopies(const QString& folder, QObject* parent)
    : QObject(parent)
    , mFolder(folder) {
    // A Tesk that ended leaves the locks of documents that had no copy: taken, they go.
    const QStringList locks =
        QDir(mFolder).entryList({QStringLiteral("*") + kLockSuffix}, QDir::Files);
    for (const QString& name : locks) {
        const QString id = QFileInfo(name).completeBaseName();
        if (QFile::exists(copyPath(id)))
            continue;
        QLockFile left(lockPath(id));
        left.setStaleLockTime(0);
        left.tryLock(0); // and unlocked, so removed, as it goes
    }
}

RecoveryCopies::~RecoveryCopies() = default;

QString RecoveryCopies::defaultFolder() {
    return QStandardPaths::writableLocation(QStandardPaths::AppDataLocation) +
           QStringLiteral("/Recovery");
}

void RecoveryCopies::watch(TeskDocument* document) {
    watchAs(document, QUuid::createUuid().toString(QUuid::WithoutBraces));
}

void RecoveryCopies::watchReopened(TeskDocument* document, const LeftBehind& copy) {
    watchAs(document, QFileInfo(copy.copyPath).completeBaseName());
}

void RecoveryCopies::watchAs(TeskDocument* document, const QString& id) {
    if (mWatched.contains(document))
        return;
    auto* timer = new QTimer(this);
    timer->setSingleShot(true);
    timer->setInterval(kWriteDelayMs);
    connect(timer, &QTimer::timeout, this, [this, document] { writeOrRemove(document); });
    // Locked before any copy is written; a Tesk that ends leaves a lock whose process has gone,
    // which the next one sees as left.
    auto lock = std::make_shared<QLockFile>(lockPath(id));
    lock->setStaleLockTime(0);
    if (!QDir().mkpath(mFolder) || !lock->tryLock(0))
        qWarning("Tesk cannot lock the copy of unsaved practice %s", qPrintable(lockPath(id)));
    mWatched.insert(document, {id, timer, lock});
    // Marker and loop edits move the undo stack; speed, pitch and effects, and saving, change
    // whether the document is edited.
    connect(document, &TeskDocument::documentEditedChanged, timer,
            [this, document] { changed(document); });
    connect(document->undoManager(), &QUndoStack::indexChanged, timer,
            [this, document] { changed(document); });
    // Gone without being closed (Tesk tearing down): its copy stays for the next start.
    connect(document, &QObject::destroyed, this, [this, document] {
        if (const auto found = mWatched.find(document); found != mWatched.end()) {
            delete found->timer;
            mWatched.erase(found);
        }
    });
    changed(document);
}

void RecoveryCopies::changed(TeskDocument* document) {
    const auto found = mWatched.find(document);
    if (found == mWatched.end())
        return;
    // Saved, the copy goes at once: a crash just after must not offer back what was saved.
    if (!document->isDocumentEdited()) {
        found->timer->stop();
        remove(*found);
        return;
    }
    // Timed from the first change, so that a long drag is kept while it goes on.
    if (!found->timer->isActive())
        found->timer->start();
}

void RecoveryCopies::forget(TeskDocument* document) {
    const auto found = mWatched.find(document);
    if (found == mWatched.end())
        return;
    remove(*found);
    found->lock->unlock();
    disconnect(document, nullptr, this, nullptr);
    delete found->timer;
    mWatched.erase(found);
}

void RecoveryCopies::remove(const Watched& watched) const {
    QFile::remove(copyPath(watched.id));
    QFile::remove(notePath(watched.id));
}

void RecoveryCopies::writeDueCopies() {
    for (auto it = mWatched.begin(); it != mWatched.end(); ++it) {
        if (it->timer->isActive()) {
            it->timer->stop();
            writeOrRemove(it.key());
        }
    }
}

bool RecoveryCopies::keepsEveryPractice() const {
    return std::none_of(mWatched.begin(), mWatched.end(),
                        [](const Watched& watched) { return watched.failing; });
}

void RecoveryCopies::writeOrRemove(TeskDocument* document) {
    const Watched& watched = mWatched.value(document);
    if (!holdsUnsavedPractice(*document)) {
        remove(watched);
        setFailing(document, false); // saved: nothing to lose until the next change
        return;
    }
    if (!QDir().mkpath(mFolder)) {
        qWarning("Tesk cannot make the folder for copies of unsaved practice, %s",
                 qPrintable(mFolder));
        failed(document, tr("The folder cannot be made."));
        return;
    }
    // The note first: a copy is only listed once it is whole, and then always with its note.
    QSaveFile note(notePath(watched.id));
    QJsonObject fields{{QStringLiteral("file"), document->fileURL().toString()},
                       {QStringLiteral("name"), document->practiceName()}};
    // The file as this copy's changes start from, unless someone else has written it since.
    const std::optional<FileStamp> saved = document->savedFileStamp();
    if (saved && !document->fileChangedElsewhere())
        fields.insert(QStringLiteral("fileStamp"), stampToJson(*saved));
    TeskError error;
    // Unbuffered, so that a full disk shows in the write: commit() would flush it quietly and
    // put an empty note in place.
    const QByteArray noteText = QJsonDocument(fields).toJson();
    if (!note.open(QIODevice::WriteOnly | QIODevice::Unbuffered) ||
        note.write(noteText) != noteText.size() || !note.commit() ||
        !document->writeToURL(QUrl::fromLocalFile(copyPath(watched.id)), TeskDocumentType,
                              &error)) {
        qWarning("Tesk cannot keep a copy of the unsaved practice of %s in %s",
                 qPrintable(document->displayName()), qPrintable(mFolder));
        // A note without its copy would never be offered, nor removed once this Tesk has gone.
        if (!QFileInfo::exists(copyPath(watched.id)))
            QFile::remove(notePath(watched.id));
        failed(document,
               note.error() != QFileDevice::NoError ? note.errorString() : error.description());
        return;
    }
    setFailing(document, false);
}

void RecoveryCopies::failed(TeskDocument* document, const QString& reason) {
    if (!setFailing(document, true))
        emit copyFailed(document, reason); // once: every change would say it again
}

bool RecoveryCopies::setFailing(TeskDocument* document, bool failing) {
    const auto found = mWatched.find(document);
    return found != mWatched.end() && std::exchange(found->failing, failing);
}

QList<RecoveryCopies::LeftBehind> RecoveryCopies::leftBehind() const {
    QStringList kept;
    for (const Watched& watched : mWatched)
        kept.append(watched.id);
    QList<LeftBehind> copies;
    const QFileInfoList files =
        QDir(mFolder).entryInfoList({QStringLiteral("*") + kCopySuffix}, QDir::Files, QDir::Time);
    for (const QFileInfo& file : files) {
        const QString id = file.completeBaseName();
        if (kept.contains(id))
            continue;
        // Kept by a Tesk still running, in another session of the same user.
        QLockFile owner(lockPath(id));
        owner.setStaleLockTime(0);
        if (!owner.tryLock(0))
            continue;
        QFile note(notePath(id));
        const QJsonObject fields = note.open(QIODevice::ReadOnly)
                                       ? QJsonDocument::fromJson(note.readAll()).object()
                                       : QJsonObject();
        const QUrl fileURL(fields.value(QStringLiteral("file")).toString());
        const QString name = fields.value(QStringLiteral("name")).toString();
        LeftBehind copy{file.absoluteFilePath(), fileURL.isLocalFile() ? fileURL : QUrl(),
                        name.isEmpty() ? id : name, file.lastModified(), false};
        if (!copy.fileURL.isEmpty()) {
            const std::optional<FileStamp> then =
                stampFromJson(fields.value(QStringLiteral("fileStamp")));
            copy.fileChangedSince = !then || fileStampOf(copy.fileURL) != then;
        }
        copies.append(copy);
    }
    return copies;
}

std::unique_ptr<TeskDocument> RecoveryCopies::reopen(const LeftBehind& copy, bool untitled,
                                                     TeskError* error) {
    auto document = std::make_unique<TeskDocument>();
    if (!document->readFromURL(QUrl::fromLocalFile(copy.copyPath), TeskDocumentType, error))
        return nullptr;
    document->becomeRecoveredFrom(untitled ? QUrl() : copy.fileURL);
    return document;
}

void RecoveryCopies::discard(const LeftBehind& copy) {
    const QFileInfo file(copy.copyPath);
    const QString stem = file.absolutePath() + QLatin1Char('/') + file.completeBaseName();
    for (const QString& suffix : {kCopySuffix, kNoteSuffix, kLockSuffix})
        QFile::remove(stem + suffix);
}

QString RecoveryCopies::copyPath(const QString& id) const {
    return mFolder + QLatin1Char('/') + id + kCopySuffix;
}

QString RecoveryCopies::notePath(const QString& id) const {
    return mFolder + QLatin1Char('/') + id + kNoteSuffix;
}

QString RecoveryCopies::lockPath(const QString& id) const {
    return mFolder + QLatin1Char('/') + id + kLockSuffix;
}

} // namespace tesk
