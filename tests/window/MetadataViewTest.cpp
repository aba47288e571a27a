// The song's metadata view: its cover with a reflection fading into the background, what a
// screen reader hears of its tags, and the tags cut short shown whole in a tool tip.
#include "window/TeskMetadataView.h"

#include "support/ViewTesting.h"

#include <QHelpEvent>
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

namespace {
/// The tool tip `view` shows when the pointer rests on it.
QString toolTipShown(TeskMetadataView& view) {
    QHelpEvent rest(QEvent::ToolTip, QPoint(150, 20), view.mapToGlobal(QPoint(150, 20)));
    QCoreApplication::sendEvent(&view, &rest);
    return view.toolTip();
}
} // namespace

TEST(TeskMetadataView, TagsCutShortCanBeReadWholeByPointingAtThem) {
    const QString longer = QString("A Love Supreme, Part IV: Psalm (live in Antibes) ").repeated(2);
    const struct {
        QString title, album;
        int width;
        QString tip;
    } cases[] = {{"Naima", "Giant Steps", 360, ""},
                 {longer, "Giant Steps", 360, longer + "\nGiant Steps"},
                 {"Naima", longer, 360, "Naima\n" + longer},
                 // Made wide enough, nothing is cut; narrowed, the same tags are.
                 {longer, "", 2000, ""},
                 {"Naima", "", 130, "Naima"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.width);
        TeskMetadataView view;
        view.resize(c.width, 110);
        view.setTitle(c.title);
        view.setAlbum(c.album);
        EXPECT_EQ(toolTipShown(view), c.tip);
    }
    // The width changing after the tags came, both ways.
    TeskMetadataView view;
    view.resize(2000, 110);
    view.setTitle(longer);
    EXPECT_EQ(toolTipShown(view), "");
    view.resize(360, 110);
    EXPECT_EQ(toolTipShown(view), longer);
    view.resize(2000, 110);
    EXPECT_EQ(toolTipShown(view), "");
}
