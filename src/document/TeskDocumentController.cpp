#include "document/TeskDocumentController.h"

#include "audio/SongFileError.h"
#include "document/SongTypes.h"
#include "document/TeskDocumentFile.h"
#include "document/TeskDocumentWindow.h"

#include <QFileInfo>
#include <QMimeData>
#include <QPointer>
#include <QSettings>

namespace tesk {
namespace {
constexpr qint64 kFileReadCorruptFileError = 259; // the file-error number for "not its format"

const QString kRecentDocumentsKey = QStringLiteral("TeskRecentDocuments");
constexpr qsizetype kMaximumRecentDocuments = 10;

QString canonicalPath(const QUrl& url) {
    return url.isLocalFile() ? QFileInfo(url.toLocalFile()).canonicalFilePath() : QString();
}

/// Why the file at `path`, which Tesk took for neither a song nor a practice, was not opened.
TeskError whyNotOpened(const QString& path) {
    const QFileInfo file(path);
    if (!file.exists())
        return songFileError(SongFileErrorCode::NotFound, path);
    if (!file.isFile() || !file.isReadable())
        return songFileError(SongFileErrorCode::NotReadable, path);
    if (file.size() == 0)
        return songFileError(SongFileErrorCode::Empty, path);
    // Sound of another kind is named, and a file named as a song but holding something else
    // is told apart from one that does not claim to be a song.
    QString description;
    if (const QString kind = unopenedSoundKind(path); !kind.isEmpty())
        description = TeskDocumentController::tr("“%1” holds %2, which Tesk does not open.")
                          .arg(file.fileName(), kind);
    else if (isNamedAsSong(path))
        description = TeskDocumentController::tr("“%1” is named as a song Tesk opens, but what "
                                                 "it holds is not a song or a practice document.")
                          .arg(file.fileName());
    else
        description =
            TeskDocumentController::tr("“%1” is not a song or a practice document that Tesk opens.")
                .arg(file.fileName());
    return TeskError(
        NSCocoaErrorDomain, kFileReadCorruptFileError,
        {{LocalizedDescriptionKey, description},
         {LocalizedRecoverySuggestionKey,
          TeskDocumentController::tr("Tesk opens songs in MP3, AAC (M4A), WAV and AIFF files, and "
                                     "its own practice documents.")},
         {QStringLiteral("NSFilePath"), path}});
}

} // namespace

TeskDocumentController::TeskDocumentController(TeskDocumentWindowLayer* windowLayer,
                                               const QString& recoveryFolder, QObject* parent)
    : QObject(parent)
    , mWindowLayer(windowLayer)
    , mRecovery(recoveryFolder) {
    connect(this, &TeskDocumentController::TeskFileDraggedNotification, this,
            &TeskDocumentController::handleDraggedFile);
}

TeskDocumentController::~TeskDocumentController() = default;

QList<TeskDocument*> TeskDocumentController::documents() const {
    QList<TeskDocument*> list;
    for (const auto& document : mDocuments)
        list.append(document.get());
    return list;
}

TeskDocument* TeskDocumentController::firstUntitledDocument() const {
    for (const auto& document : mDocuments) {
        if (document->isBlank())
            return document.get();
    }
    return nullptr;
}

bool TeskDocumentController::hasUntitledDocument() const {
    for (const auto& document : mDocuments) {
        if (!document->isDocumentEdited() && document->fileURL().isEmpty())
            return true;
    }
    return false;
}

void TeskDocumentController::newDocument() {
    if (TeskDocument* untitled = firstUntitledDocument())
        showWindows(untitled);
    else
        openUntitledDocumentAndDisplay();
}

TeskDocument* TeskDocumentController::openUntitledDocumentAndDisplay() {
    TeskDocument* document = addDocument(std::make_unique<TeskDocument>());
    showWindows(document);
    return document;
}

void TeskDocumentController::openDocument() {
    const std::size_t count = mDocuments.size();
    // The open panel runs the event loop: a song handed over meanwhile may close the empty
    // window's document before the panel returns.
    const QPointer<TeskDocument> untitled = firstUntitledDocument();
    for (const QString& path : mWindowLayer->runOpenPanel())
        openChosenFile(QUrl::fromLocalFile(path));
    if (mDocuments.size() > count && untitled)
        closeDocument(untitled);
}

bool TeskDocumentController::openRecentDocument(const QUrl& url) {
    TeskDocument* untitled = firstUntitledDocument();
    TeskDocument* opened = openChosenFile(url);
    if (opened && untitled && untitled != opened)
        closeDocument(untitled);
    return opened != nullptr;
}

TeskDocument* TeskDocumentController::openChosenFile(const QUrl& url) {
    TeskError error;
    if (TeskDocument* opened = openDocumentWithContentsOfURL(url, true, &error))
        return opened;
    // Chosen by the user, a file that is no song is worth a word, as a drop is not.
    if (error.domain().isEmpty())
        error = whyNotOpened(url.toLocalFile());
    mWindowLayer->presentError(error);
    return nullptr;
}

TeskDocument* TeskDocumentController::openDocumentWithContentsOfURL(const QUrl& url, bool display,
                                                                    TeskError* error) {
    if (TeskDocument* open = documentForURL(url)) {
        if (display)
            showWindows(open);
        return open;
    }
    auto document = std::make_unique<TeskDocument>();
    if (!document->readFromURL(url, contentTypeOfFile(url.toLocalFile()), error))
        return nullptr;
    TeskDocument* added = addDocument(std::move(document));
    // A song is listed itself, since its untitled document has no file.
    noteNewRecentDocumentURL(added->fileURL().isEmpty() ? added->audioFileURL() : url);
    if (display)
        showWindows(added);
    return added;
}

TeskDocument* TeskDocumentController::documentForURL(const QUrl& url) const {
    // A song is open when a practice of it is: opening the song again brings that window
    // forward, rather than a second, blank practice that could later be saved over the first.
    return canonicalPath(url).isEmpty() ? nullptr : documentForPath(url.toLocalFile());
}

TeskDocument* TeskDocumentController::documentForPath(const QString& path,
                                                      const TeskDocument* except) const {
    const QString canonical = QFileInfo(path).canonicalFilePath();
    for (const auto& document : mDocuments) {
        if (document.get() == except)
            continue;
        const QUrl own = document->fileURL();
        if ((!canonical.isEmpty() && !own.isEmpty() && canonicalPath(own) == canonical) ||
            document->isSongAt(path))
            return document.get();
    }
    return nullptr;
}

void TeskDocumentController::closeDocument(TeskDocument* document) {
    document->documentWindowWillClose();
    mWindowLayer->closeWindows(document);
    removeDocument(document);
}

void TeskDocumentController::removeDocument(TeskDocument* document) {
    const bool hadUntitled = hasUntitledDocument();
    const auto found =
        std::find_if(mDocuments.begin(), mDocuments.end(),
                     [document](const auto& each) { return each.get() == document; });
    if (found == mDocuments.end())
        return;
    mRecovery.forget(document);
    // Whoever is closing it may still be on the stack; it goes once they are done.
    found->release()->deleteLater();
    mDocuments.erase(found);
    if (!hadUntitled && mDocuments.empty() && !mQuitting)
        openUntitledDocumentAndDisplay();
}

void TeskDocumentController::noteNewRecentDocumentURL(const QUrl& url) {
    const QString path = canonicalPath(url);
    if (path.isEmpty())
        return;
    QSettings settings;
    QStringList paths = settings.value(kRecentDocumentsKey).toStringList();
    paths.removeAll(path);
    paths.prepend(path);
    settings.setValue(kRecentDocumentsKey, paths.mid(0, kMaximumRecentDocuments));
}

QList<QUrl> TeskDocumentController::recentDocumentURLs() const {
    QList<QUrl> urls;
    for (const QString& path : QSettings().value(kRecentDocumentsKey).toStringList()) {
        if (QFileInfo(path).isFile())
            urls.append(QUrl::fromLocalFile(path));
    }
    return urls;
}

void TeskDocumentController::clearRecentDocuments() {
    QSettings().remove(kRecentDocumentsKey);
}

QStringList TeskDocumentController::supportedAudioFileTypes() {
    return tesk::supportedAudioFileTypes();
}

bool TeskDocumentController::canOpenFile(const QUrl& url, QString* type) {
    return tesk::canOpenFile(url, type);
}

bool TeskDocumentController::openFileNamed(const QString& path, TeskError* error) {
    const QUrl url = QUrl::fromLocalFile(QFileInfo(path).absoluteFilePath());
    if (!canOpenFile(url))
        return false;
    return loadTeskDocumentWithURL(url, error);
}

bool TeskDocumentController::loadTeskDocumentWithURL(const QUrl& url, TeskError* error) {
    TeskDocument* untitled = firstUntitledDocument();
    TeskDocument* opened = openDocumentWithContentsOfURL(url, true, error);
    if (opened && untitled && untitled != opened)
        closeDocument(untitled);
    return opened != nullptr;
}

QList<TeskDocumentController::OpenReply>
TeskDocumentController::openFiles(const QStringList& paths) {
    QList<OpenReply> replies;
    for (const QString& path : paths) {
        TeskError error;
        const bool opened = openFileNamed(path, &error);
        if (!opened && !error.domain().isEmpty())
            mWindowLayer->presentError(error);
        replies.append(opened ? OpenReply::Success : OpenReply::Failure);
    }
    return replies;
}

void TeskDocumentController::handleDraggedFile(const QUrl& url) {
    if (!url.isLocalFile())
        return;
    TeskError error;
    if (!openFileNamed(url.toLocalFile(), &error) && !error.domain().isEmpty())
        mWindowLayer->presentError(error);
}

void TeskDocumentController::newDocumentFromiTunes(const QMimeData& data) {
    if (!data.hasUrls())
        return;
    for (const QUrl& url : data.urls()) {
        if (canOpenFile(url))
            emit TeskFileDraggedNotification(url);
    }
}

TeskDocument* TeskDocumentController::addDocument(std::unique_ptr<TeskDocument> document,
                                                  const RecoveryCopies::LeftBehind* copy) {
    TeskDocument* added = document.get();
    mDocuments.push_back(std::move(document));
    if (copy)
        mRecovery.watchReopened(added, *copy);
    else
        mRecovery.watch(added);
    mWindowLayer->makeWindowControllers(added);
    return added;
}

TeskDocument* TeskDocumentController::reopenRecoveryCopy(const RecoveryCopies::LeftBehind& copy,
                                                         TeskError* error) {
    // A file saved since the copy, or open already, keeps what it holds: the copy's changes
    // come back untitled beside it, and saving them asks where.
    const bool untitled =
        !copy.fileURL.isEmpty() && (copy.fileChangedSince || documentForURL(copy.fileURL));
    std::unique_ptr<TeskDocument> document = RecoveryCopies::reopen(copy, untitled, error);
    if (!document)
        return nullptr;
    TeskDocument* added = addDocument(std::move(document), &copy);
    showWindows(added);
    return added;
}

void TeskDocumentController::showWindows(TeskDocument* document) {
    for (TeskDocumentWindow* window : document->windowControllers())
        window->showWindow();
}

} // namespace tesk
