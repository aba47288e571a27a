#pragma once

#include <QHash>
#include <QPixmap>
#include <QSizeF>
#include <QString>
#include <memory>

class QPainter;
class QRectF;
class QPointF;
class QSvgRenderer;

namespace tesk {

/// One of Tesk's named pictures ("GenericMarkerN", "LoopPlayP"...): an SVG compiled into the
/// resources as ":/images/<name>.svg". Its size is the SVG's own, in logical pixels; it is drawn
/// from pixmaps rendered at the exact device pixel ratio of what is painted on, so it stays
/// sharp at 1x, 1.25x and 2x. Each picture is loaded once, each ratio rendered once, and both
/// are kept for the life of the program.
///
/// Main thread only (the cache is not shared between threads).
class NamedImage {
public:
    /// The picture of that name. A name with no resource is a programming error.
    static const NamedImage& named(const QString& name);
    /// Whether a resource of that name exists, for tests of the image set.
    static bool exists(const QString& name);

    ~NamedImage();
    NamedImage(const NamedImage&) = delete;
    NamedImage& operator=(const NamedImage&) = delete;

    const QString& name() const { return mName; }
    /// Logical size.
    QSizeF size() const { return mSize; }
    qreal width() const { return mSize.width(); }
    qreal height() const { return mSize.height(); }

    /// The picture at its own size, rendered for `devicePixelRatio` (which the pixmap carries).
    const QPixmap& pixmap(qreal devicePixelRatio) const;
    /// The picture stretched to `size`, rendered for `devicePixelRatio`; kept too (a few dozen
    /// sizes at most), so use it for sizes that repeat, not for animations.
    const QPixmap& pixmap(const QSizeF& size, qreal devicePixelRatio) const;

    /// Draws the picture at its own size with its top left at `topLeft`.
    void draw(QPainter& painter, const QPointF& topLeft) const;
    /// Draws the picture stretched into `target`.
    void draw(QPainter& painter, const QRectF& target) const;

private:
    explicit NamedImage(const QString& name);

    static constexpr qsizetype kMostRenderedSizes = 32;

    QString mName;
    QSizeF mSize;
    std::unique_ptr<QSvgRenderer> mRenderer;
    mutable QHash<QString, QPixmap> mRendered; // by size and ratio
};

/// The device pixel ratio that painting with `painter` lands on.
qreal devicePixelRatioOf(const QPainter& painter);

/// Draws a horizontally stretchable picture made of three: `left` and `right` at their own
/// widths at the two ends, `fill` stretched between them, all at `target`'s height. When the
/// target is narrower than both ends, the ends share it half and half. The target's edges and
/// the parts' widths are rounded to whole device pixels, so the parts meet without a step.
void drawThreePartImage(QPainter& painter, const QRectF& target, const NamedImage& left,
                        const NamedImage& fill, const NamedImage& right);

} // namespace tesk
