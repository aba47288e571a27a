#include "widgets/NamedImage.h"
#include "support/Assertions.h"

#include <QImage>
#include <QPainter>
#include <cmath>
#include <gtest/gtest.h>

using namespace tesk;

TEST(NamedImage, RendersSharpAtEveryPixelRatio) {
    const NamedImage& halves = NamedImage::named("TestHalves");
    EXPECT_EQ(&halves, &NamedImage::named("TestHalves")) << "loaded once and kept";
    EXPECT_EQ(halves.size(), QSizeF(10, 6));
    for (const qreal ratio : {1.0, 1.25, 2.0, 3.0}) {
        SCOPED_TRACE(ratio);
        const QPixmap& pixmap = halves.pixmap(ratio);
        EXPECT_EQ(pixmap.devicePixelRatio(), ratio);
        EXPECT_EQ(pixmap.size(), QSize(int(std::ceil(10 * ratio)), int(std::ceil(6 * ratio))));
        const QImage image = pixmap.toImage();
        // Whole device pixels on either side of the middle are pure: nothing blurred.
        const int middle = int(5 * ratio);
        EXPECT_EQ(image.pixelColor(middle - 1, 2), QColor(Qt::red));
        EXPECT_EQ(image.pixelColor(int(std::ceil(5 * ratio)), 2), QColor(Qt::blue));
    }
}

TEST(NamedImage, DrawsAtThePaintedDevicesRatioAndThreePartsFillTheirRect) {
    for (const qreal ratio : {1.0, 2.0}) {
        SCOPED_TRACE(ratio);
        QImage canvas(QSize(40, 6) * ratio, QImage::Format_ARGB32_Premultiplied);
        canvas.setDevicePixelRatio(ratio);
        canvas.fill(Qt::white);
        QPainter painter(&canvas);
        const NamedImage& end = NamedImage::named("TestEnd");
        drawThreePartImage(painter, QRectF(10, 0, 20, 6), end, NamedImage::named("TestHalves"),
                           end);
        painter.end();
        const auto at = [&](qreal x) { return canvas.pixelColor(int(x * ratio), int(3 * ratio)); };
        EXPECT_EQ(at(9), QColor(Qt::white));
        EXPECT_EQ(at(10), QColor(Qt::green)) << "left end";
        EXPECT_EQ(at(13.5), QColor(Qt::green));
        EXPECT_EQ(at(14.5), QColor(Qt::red)) << "fill stretched from its left half";
        EXPECT_EQ(at(25.5), QColor(Qt::blue)) << "to its right half";
        EXPECT_EQ(at(26.5), QColor(Qt::green)) << "right end";
        EXPECT_EQ(at(30), QColor(Qt::white));
    }
}

TEST(NamedImage, AFillOfOnePointStretchesEvenlyAtFractionalRatios) {
    // At 1.25 one point is 1.25 device pixels: rendered into two, the second only a quarter
    // covered, it would stretch into a bar of two shades.
    for (const qreal ratio : {1.0, 1.25, 1.5, 2.0}) {
        SCOPED_TRACE(ratio);
        QImage canvas(QSize(int(std::ceil(40 * ratio)), int(std::ceil(6 * ratio))),
                      QImage::Format_ARGB32_Premultiplied);
        canvas.setDevicePixelRatio(ratio);
        canvas.fill(Qt::white);
        QPainter painter(&canvas);
        const NamedImage& end = NamedImage::named("TestEnd");
        drawThreePartImage(painter, QRectF(0, 0, 40, 6), end, NamedImage::named("TestColumn"), end);
        painter.end();
        for (const qreal x : {6.0, 20.0, 33.0})
            EXPECT_EQ(canvas.pixelColor(int(x * ratio), int(3 * ratio)), QColor(Qt::magenta)) << x;
    }
}

TEST(NamedImage, ThePartsMeetRowForRowAndColumnForColumnWhereverTheyAreDrawn) {
    // Drawn half a device pixel off the grid, an end and the fill were each rounded their own
    // way: at 1.5 the ends sat a row below the middle, a step where they meet.
    for (const qreal ratio : {1.25, 1.5, 2.0}) {
        for (const QPointF& at :
             {QPointF(0, 0), QPointF(1.0 / 3, 1.0 / 3), QPointF(0.4, 0.7), QPointF(1.7, 1.1)}) {
            SCOPED_TRACE(testing::Message() << ratio << " at " << at.x() << ", " << at.y());
            QImage canvas(QSize(int(std::ceil(50 * ratio)), int(std::ceil(10 * ratio))),
                          QImage::Format_ARGB32_Premultiplied);
            canvas.setDevicePixelRatio(ratio);
            canvas.fill(Qt::white);
            QPainter painter(&canvas);
            const NamedImage& end = NamedImage::named("TestEnd");
            drawThreePartImage(painter, QRectF(at, QSizeF(40, 6)), end,
                               NamedImage::named("TestColumn"), end);
            painter.end();
            // The rows a column is painted in, solid or partly.
            const auto rows = [&](int column) {
                std::pair<int, int> span{-1, -1};
                for (int row = 0; row < canvas.height(); ++row) {
                    if (canvas.pixelColor(column, row) == QColor(Qt::white))
                        continue;
                    span.second = row;
                    if (span.first < 0)
                        span.first = row;
                }
                return span;
            };
            const int middle = int(20 * ratio);
            for (const qreal x : {2.0, 38.0})
                EXPECT_EQ(rows(int((at.x() + x) * ratio)), rows(middle)) << "end at " << x;
            // Nor a column of white, nor one of both, between an end and the fill.
            for (int column = int(std::ceil(at.x() * ratio)) + 1;
                 column < int((at.x() + 40) * ratio) - 1; ++column)
                EXPECT_EQ(rows(column), rows(middle)) << "column " << column;
        }
    }
}

TEST(NamedImage, AMissingPictureIsAProgrammingError) {
    EXPECT_FALSE(NamedImage::exists("NoSuchPicture"));
    EXPECT_TRUE(NamedImage::exists("TestEnd"));
    EXPECT_TESK_ASSERTION(NamedImage::named("NoSuchPicture"), "no picture named NoSuchPicture");
}
