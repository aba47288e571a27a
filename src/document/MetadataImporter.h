#pragma once

#include "audio/SongMetadata.h"

#include <QImage>
#include <QObject>
#include <QSize>
#include <QString>
#include <QUrl>
#include <memory>

namespace tesk {

class MetadataImporter;

/// Hears when an importer has its results. Main thread.
class MetadataImporterDelegate {
public:
    virtual ~MetadataImporterDelegate() = default;
    /// The importer's title, artist, album and artwork are final; the delegate may delete the
    /// importer from here.
    virtual void metadataImporterDidFinishImporting(MetadataImporter* /*importer*/) {}
};

/// Reads a song's title, artist, album and cover picture on a worker thread and hands them to
/// the main thread, where the delegate hears of them from the event loop (so never before the
/// code that made the importer returns to it). Whatever the file holds, the import finishes:
/// a file without tags, without a cover or that can't be read gives empty values.
///
/// The delegate isn't owned. Clearing it (`setDelegate(nullptr)`) or destroying the importer
/// drops a result still on its way; neither waits for the worker.
///
/// Main thread only: making, reading, changing the delegate and destroying.
class MetadataImporter : public QObject {
    Q_OBJECT

public:
    /// Starts importing the local file `fileURL` at once.
    MetadataImporter(const QUrl& fileURL, MetadataImporterDelegate* delegate,
                     QObject* parent = nullptr);
    ~MetadataImporter() override;

    MetadataImporter(const MetadataImporter&) = delete;
    MetadataImporter& operator=(const MetadataImporter&) = delete;

    /// Every album artwork is drawn at this size, whatever the cover's own.
    static QSize albumArtworkSize() { return {512, 512}; }

    /// The cover picture `encoded` (JPEG, PNG...) scaled to fill `albumArtworkSize`: the
    /// shorter side fits and the longer one is cropped evenly on both ends. Null when `encoded`
    /// isn't a picture Qt can decode.
    /// Any thread.
    static QImage albumArtworkFromCover(const QByteArray& encoded);

    QUrl fileURL() const { return mFileURL; }
    MetadataImporterDelegate* delegate() const { return mDelegate; }
    void setDelegate(MetadataImporterDelegate* delegate) { mDelegate = delegate; }

    /// Whether the results below are final; until then they are empty.
    bool isFinished() const { return mFinished; }
    /// Empty when the file has none.
    QString title() const { return mTitle; }
    QString artist() const { return mArtist; }
    QString album() const { return mAlbum; }
    /// The cover as `albumArtworkFromCover` draws it; null when the file has none.
    QImage albumArt() const { return mAlbumArt; }
    /// The tags and the cover picture as the file stores them, for writing into exports.
    const SongMetadata& songMetadata() const { return mSongMetadata; }

private:
    struct Result;
    struct SharedState;

    void beginMetadataImport();
    void finishImporting(Result result);

    QUrl mFileURL;
    MetadataImporterDelegate* mDelegate = nullptr;
    bool mFinished = false;
    QString mTitle;
    QString mArtist;
    QString mAlbum;
    QImage mAlbumArt;
    SongMetadata mSongMetadata;
    std::shared_ptr<SharedState> mShared;
};

} // namespace tesk
