#pragma once

#include "diagnostics/TeskError.h"
#include "document/RecoveryCopies.h"
#include "document/TeskDocument.h"

#include <QList>
#include <QObject>
#include <QPointF>
#include <QStringList>
#include <QUrl>
#include <memory>
#include <vector>

class QMimeData;

namespace tesk {

/// What the document controller needs of the windows; the window layer implements it.
/// Main thread.
class TeskDocumentWindowLayer {
public:
    virtual ~TeskDocumentWindowLayer() = default;
    /// Makes the window for a new document and adds it to the document's window controllers.
    virtual void makeWindowControllers(TeskDocument* document) = 0;
    /// Closes the document's windows without asking anything; the document is going away.
    virtual void closeWindows(TeskDocument* document) = 0;
    /// Lets the user pick files to open; empty when cancelled.
    virtual QStringList runOpenPanel() = 0;
    /// Shows the user an error.
    virtual void presentError(const TeskError& error) = 0;
};

/// Keeps the open documents and decides which windows exist: at most one empty window, which
/// the next song opened replaces; "New" never makes a second empty window; closing the last
/// song window brings up an empty one; closing the empty window leaves none. Opening a song or
/// document that is already open brings its window forward instead of opening it twice.
///
/// Main thread.
class TeskDocumentController : public QObject {
    Q_OBJECT

public:
    /// How an open request from outside ended, once per file.
    enum class OpenReply { Success = 0, Failure = 2 };

    /// Keeps copies of unsaved practice in `recoveryFolder`.
    explicit TeskDocumentController(TeskDocumentWindowLayer* windowLayer,
                                    const QString& recoveryFolder = RecoveryCopies::defaultFolder(),
                                    QObject* parent = nullptr);
    ~TeskDocumentController() override;

    /// In the order they were opened.
    QList<TeskDocument*> documents() const;
    /// The first document without a song or a file of its own: an empty window.
    TeskDocument* firstUntitledDocument() const;
    /// Whether some document is unchanged and has no file of its own.
    bool hasUntitledDocument() const;

    /// Shows the empty window there is, or opens one.
    void newDocument();
    TeskDocument* openUntitledDocumentAndDisplay();
    /// The open dialog: opens what the user picks; if that added a document, the empty window
    /// goes.
    void openDocument();
    /// An item of Open Recent: opened as `loadTeskDocumentWithURL` does, and when it can no
    /// longer be opened (changed since, or its song gone), the user is told why.
    bool openRecentDocument(const QUrl& url);
    /// The document for `url` (a document file or a song), opening it unless it is open
    /// already; with `display` its window comes forward. Null, with `error` set when there is
    /// something to tell, when it can't be opened.
    TeskDocument* openDocumentWithContentsOfURL(const QUrl& url, bool display, TeskError* error);
    /// The open document whose file, or song, is `url`.
    TeskDocument* documentForURL(const QUrl& url) const;
    /// The same for a file that may not be there yet, other than `except`: a document's song
    /// counts where it was last seen while it is missing, since a file written there would
    /// become that document's song.
    TeskDocument* documentForPath(const QString& path, const TeskDocument* except = nullptr) const;
    /// Closes the document's windows and lets it go.
    void closeDocument(TeskDocument* document);
    /// Lets the document go; if that leaves no document, and none was an unchanged untitled
    /// one, an empty window opens, unless Tesk is quitting.
    void removeDocument(TeskDocument* document);
    /// Set while Tesk closes every window to quit, and cleared if the user stops it.
    void setQuitting(bool quitting) { mQuitting = quitting; }

    // Opening songs from outside: the command line, a second instance, drops.
    static QStringList supportedAudioFileTypes();
    /// Whether the local file `url` is of a type Tesk opens exactly; `type` gets the type found.
    static bool canOpenFile(const QUrl& url, QString* type = nullptr);
    /// Opens the file at `path` if Tesk opens its type (otherwise false, without an error).
    bool openFileNamed(const QString& path, TeskError* error);
    /// Opens `url`; once it is open, the empty window goes.
    bool loadTeskDocumentWithURL(const QUrl& url, TeskError* error);
    /// Opens each file in turn, shows the errors, and answers for each file.
    QList<OpenReply> openFiles(const QStringList& paths);
    /// A file dropped on a window, or handed over by another Tesk.
    void handleDraggedFile(const QUrl& url);
    /// A drop from a music library or a file manager: each URI of the list is a track, and each
    /// track Tesk can open is opened as its own document.
    void newDocumentFromiTunes(const QMimeData& data);

    /// Remembers `url` at the head of the recent documents (at most ten, kept across runs).
    /// Opening a document or a song notes it.
    void noteNewRecentDocumentURL(const QUrl& url);
    /// Most recent first; files that are gone are left out.
    QList<QUrl> recentDocumentURLs() const;
    void clearRecentDocuments();

    /// The copies of every open document's unsaved practice, and those an earlier Tesk left.
    RecoveryCopies& recoveryCopies() { return mRecovery; }
    /// Opens a copy an earlier Tesk left as the document it was, with its changes unsaved, and
    /// shows it: untitled when its file has changed since or is open already. Null, with
    /// `error` set, when the copy cannot be read.
    TeskDocument* reopenRecoveryCopy(const RecoveryCopies::LeftBehind& copy, TeskError* error);

    /// Where the next document window is cascaded from.
    QPointF nextDocumentWindowPoint() const { return mNextDocumentWindowPoint; }
    void setNextDocumentWindowPoint(const QPointF& point) { mNextDocumentWindowPoint = point; }

signals:
    /// One track of a drop can be opened; handleDraggedFile opens it.
    void TeskFileDraggedNotification(const QUrl& url);

private:
    /// Adds and watches the document; one reopened from `copy` keeps that copy.
    TeskDocument* addDocument(std::unique_ptr<TeskDocument> document,
                              const RecoveryCopies::LeftBehind* copy = nullptr);
    void showWindows(TeskDocument* document);
    /// Opens a file the user chose, and shows why when it cannot be opened.
    TeskDocument* openChosenFile(const QUrl& url);

    TeskDocumentWindowLayer* mWindowLayer;
    std::vector<std::unique_ptr<TeskDocument>> mDocuments;
    RecoveryCopies mRecovery; // after the documents: it goes first and keeps their copies
    QPointF mNextDocumentWindowPoint;
    bool mQuitting = false;
};

} // namespace tesk
