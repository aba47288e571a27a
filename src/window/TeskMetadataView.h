#pragma once

#include <QImage>
#include <QWidget>

namespace tesk {

/// The song's artwork at a fixed size with a reflection under it ("NoAlbumArt" when the song
/// has none), and its title, artist and album beside it. Main thread.
class TeskMetadataView : public QWidget {
    Q_OBJECT
public:
    static constexpr int kArtworkSide = 72;

    explicit TeskMetadataView(QWidget* parent = nullptr);

    void setAlbumArt(const QImage& art);
    void setTitle(const QString& title);
    void setArtist(const QString& artist);
    void setAlbum(const QString& album);
    QString title() const { return mTitle; }
    QString artist() const { return mArtist; }
    QString album() const { return mAlbum; }
    bool hasAlbumArt() const { return !mArt.isNull(); }

    QSize sizeHint() const override { return {360, 110}; }
    QSize minimumSizeHint() const override { return {220, 110}; }

protected:
    void paintEvent(QPaintEvent* event) override;
    bool event(QEvent* event) override;

private:
    void changed();
    QStringList knownTags() const;
    /// `text` as it fits beside the artwork in `font`.
    QString elided(const QString& text, const QFont& font) const;

    QImage mArt;
    QString mTitle;
    QString mArtist;
    QString mAlbum;
};

} // namespace tesk
