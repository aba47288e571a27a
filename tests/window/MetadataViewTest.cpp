// The song's metadata view: its cover with a reflection fading into the background, and what
// a screen reader hears of its tags.
#include "window/TeskMetadataView.h"

#include "support/ViewTesting.h"

#include <QImage>
#include <gtest/gtest.h>

using namespace tesk;

TEST(TeskMetadataView, TheCoversReflectionFadesIntoTheBackground) {
    // An opaque red cover, its reflection under it: reddish at the top, the background at the
    // foot of the view, never black.
    TeskMetadataView view;
    view.resize(view.sizeHint());
    QImage cover(64, 64, QImage::Format_RGB32);
    cover.fill(Qt::red);
    view.setAlbumArt(cover);
    const QImage seen = test::grabImage(view);
    const qreal x = 14 + TeskMetadataView::kArtworkSide / 2.0;
    const qreal underArt = 10 + TeskMetadataView::kArtworkSide + 3;
    const QColor background = test::pixelAt(seen, view.width() - 2, view.height() - 2);
    const QColor top = test::pixelAt(seen, x, underArt);
    EXPECT_GT(top.red(), top.green() + 20) << "red shows through at the top";
    EXPECT_TRUE(test::coloursClose(test::pixelAt(seen, x, view.height() - 1), background, 16))
        << test::pixelAt(seen, x, view.height() - 1).name().toStdString();
}

TEST(TeskMetadataView, ScreenReadersHearOnlyTheTagsTheSongHas) {
    const struct {
        QString title, artist, album, heard;
    } songs[] = {
        {"Blue in Green", "Bill Evans", "Kind of Blue", "Blue in Green, Bill Evans, Kind of Blue"},
        {"Take", "", "", "Take"},
        {"", "Trio", "Live", "Trio, Live"},
        {"", "", "", ""}};
    for (const auto& song : songs) {
        TeskMetadataView view;
        view.setTitle(song.title);
        view.setArtist(song.artist);
        view.setAlbum(song.album);
        EXPECT_EQ(view.accessibleDescription(), song.heard);
    }
}
