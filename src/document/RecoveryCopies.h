#pragma once

#include "diagnostics/TeskError.h"

#include <QDateTime>
#include <QHash>
#include <QList>
#include <QObject>
#include <QString>
#include <QUrl>
#include <memory>

class QLockFile;
class QTimer;

namespace tesk {

class TeskDocument;

/// Keeps a copy of each open document's unsaved practice in a folder of its own, so that the
/// markers and settings made since the last save outlive a crash, a killed Tesk or a session
/// that ended under it. A copy is written a moment after a change and taken away once the
/// document is saved or closed: the folder holds copies only when Tesk ended with practice
/// unsaved, and the next start offers them back.
///
/// A copy is a practice document ("<id>.tesk") with a note beside it ("<id>.json") of the
/// document's own file, if it had one, that file as it was, and the practice's name. While a
/// Tesk keeps a copy it holds a lock beside it ("<id>.lock"), so that another Tesk of the same
/// user (in another session) never takes a copy still kept for its offer.
///
/// Main thread.
class RecoveryCopies : public QObject {
    Q_OBJECT
public:
    /// How long after the first unsaved change its copy is written: changes in a row (a loop
    /// dragged, a speed slid) make one copy.
    static constexpr int kWriteDelayMs = 2000;

    /// A copy left by a Tesk that ended without saving.
    struct LeftBehind {
        QString copyPath;
        QUrl fileURL; ///< the document's own file; empty when it had none
        QString name; ///< the practice's name
        QDateTime written;
        /// Whether the document's file has changed since the copy was written (saved later,
        /// from another copy or another Tesk): then the copy is not that file's any more.
        bool fileChangedSince = false;
    };

    /// Copies go in `folder`, made when the first is written.
    explicit RecoveryCopies(const QString& folder, QObject* parent = nullptr);
    ~RecoveryCopies() override;

    /// "Recovery" in Tesk's data folder.
    static QString defaultFolder();
    const QString& folder() const { return mFolder; }

    /// Keeps copies of `document` from now on, until `forget`.
    void watch(TeskDocument* document);
    /// The document closes: its copy goes, whatever it held.
    void forget(TeskDocument* document);
    /// Writes or takes away the copies that are due now, rather than when their time comes.
    void writeDueCopies();
    /// Whether every practice watched is kept: its last copy could be written (or it needs none).
    bool keepsEveryPractice() const;

    /// The copies in the folder that no running Tesk keeps: left by one that ended. Newest
    /// first.
    QList<LeftBehind> leftBehind() const;
    /// Reads a copy left behind as the document it was, with its changes unsaved: its own file
    /// again, or untitled when `untitled` (its file has changed since, or is open already).
    /// The copy stays until the document is watched and saved or closed.
    static std::unique_ptr<TeskDocument> reopen(const LeftBehind& copy, bool untitled,
                                                TeskError* error);
    /// Watches a document reopened from `copy`, keeping its copy where it is.
    void watchReopened(TeskDocument* document, const LeftBehind& copy);
    /// Takes a copy left behind away.
    static void discard(const LeftBehind& copy);

signals:
    /// A copy of `document` could not be written, for `reason`: its practice would be lost
    /// with Tesk. Told once for each document, until a copy of it is written again.
    void copyFailed(TeskDocument* document, const QString& reason);

private:
    struct Watched {
        QString id;
        QTimer* timer = nullptr;
        std::shared_ptr<QLockFile> lock; // held while this Tesk keeps the copy
        bool failing = false;            // its last copy could not be written
    };

    void watchAs(TeskDocument* document, const QString& id);
    void changed(TeskDocument* document);
    void writeOrRemove(TeskDocument* document);
    void remove(const Watched& watched) const;
    QString copyPath(const QString& id) const;
    QString notePath(const QString& id) const;
    QString lockPath(const QString& id) const;

    void failed(TeskDocument* document, const QString& reason);
    /// Whether the document's copies were failing before.
    bool setFailing(TeskDocument* document, bool failing);

    QString mFolder;
    QHash<TeskDocument*, Watched> mWatched;
};

} // namespace tesk
