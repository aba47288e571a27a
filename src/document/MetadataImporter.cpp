#include "document/MetadataImporter.h"

#include "audio/SongMetadataReader.h"

#include <QBuffer>
#include <QImageReader>
#include <QPainter>
#include <QThreadPool>
#include <algorithm>
#include <mutex>

namespace tesk {

struct MetadataImporter::Result {
    QString title;
    QString artist;
    QString album;
    QImage albumArt;
    SongMetadata metadata;
};

// The worker outlives neither the process nor this state, but may outlive the importer: it
// reaches the importer only through here, and only while the importer says it is alive.
struct MetadataImporter::SharedState {
    std::mutex mutex;
    MetadataImporter* importer = nullptr;
};

MetadataImporter::MetadataImporter(const QUrl& fileURL, MetadataImporterDelegate* delegate,
                                   QObject* parent)
    : QObject(parent)
    , mFileURL(fileURL)
    , mDelegate(delegate)
    , mShared(std::make_shared<SharedState>()) {
    mShared->importer = this;
    beginMetadataImport();
}

MetadataImporter::~MetadataImporter() {
    // Once this returns the worker can no longer queue a result for us; one it queued
    // already is discarded with the object's pending events.
    std::lock_guard lock(mShared->mutex);
    mShared->importer = nullptr;
}

QImage MetadataImporter::albumArtworkFromCover(const QByteArray& encoded) {
    if (encoded.isEmpty())
        return {};
    // A scan of a few thousand pixels a side would take more memory than Qt lets one picture
    // have, and be refused: it is decoded already shrunk, still well above the artwork's size.
    QBuffer buffer;
    buffer.setData(encoded);
    QImageReader reader(&buffer);
    constexpr int kLargestDecodedSide = 2048;
    if (const QSize full = reader.size();
        full.isValid() && std::max(full.width(), full.height()) > kLargestDecodedSide)
        reader.setScaledSize(
            full.scaled(kLargestDecodedSide, kLargestDecodedSide, Qt::KeepAspectRatio));
    const QImage cover = reader.read();
    if (cover.isNull())
        return {};

    // Aspect-fill: the largest centred part of the cover with the artwork's proportions, so a
    // wide cover loses its sides and a tall one its top and bottom, never looking stretched.
    const QSize size = albumArtworkSize();
    const QSizeF cropped = QSizeF(size).scaled(QSizeF(cover.size()), Qt::KeepAspectRatio);
    const QRectF source((cover.width() - cropped.width()) / 2.0,
                        (cover.height() - cropped.height()) / 2.0, cropped.width(),
                        cropped.height());

    QImage artwork(size, QImage::Format_ARGB32_Premultiplied);
    artwork.fill(Qt::transparent);
    QPainter painter(&artwork);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
    painter.drawImage(QRectF(QPointF(0, 0), QSizeF(size)), cover, source);
    painter.end();
    return artwork;
}

void MetadataImporter::beginMetadataImport() {
    const QString path = mFileURL.toLocalFile();
    QThreadPool::globalInstance()->start([shared = mShared, path] {
        Result result;
        if (const std::optional<SongMetadata> metadata = readSongMetadata(path)) {
            result.title = metadata->title;
            result.artist = metadata->artist;
            result.album = metadata->album;
            result.albumArt = albumArtworkFromCover(metadata->coverImage);
            result.metadata = *metadata;
        }
        // Holding the lock keeps the importer alive while the result is queued to it.
        std::lock_guard lock(shared->mutex);
        if (MetadataImporter* importer = shared->importer) {
            QMetaObject::invokeMethod(
                importer,
                [importer, result = std::move(result)]() mutable {
                    importer->finishImporting(std::move(result));
                },
                Qt::QueuedConnection);
        }
    });
}

void MetadataImporter::finishImporting(Result result) {
    mTitle = std::move(result.title);
    mArtist = std::move(result.artist);
    mAlbum = std::move(result.album);
    mAlbumArt = std::move(result.albumArt);
    mSongMetadata = std::move(result.metadata);
    mFinished = true;
    if (mDelegate)
        mDelegate->metadataImporterDidFinishImporting(this);
}

} // namespace tesk
