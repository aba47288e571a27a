#include "widgets/NamedImage.h"

#include "diagnostics/TeskAssert.h"

#include <QFile>
#include <QPaintDevice>
#include <QPainter>
#include <QSvgRenderer>
#include <cmath>
#include <map>

namespace tesk {
namespace {

QString resourcePath(const QString& name) {
    return QStringLiteral(":/images/%1.svg").arg(name);
}

} // namespace

const NamedImage& NamedImage::named(const QString& name) {
    // Kept for the life of the program: views hold references to them.
    static auto* images = new std::map<QString, std::unique_ptr<NamedImage>>;
    auto found = images->find(name);
    if (found == images->end())
        found = images->emplace(name, std::unique_ptr<NamedImage>(new NamedImage(name))).first;
    return *found->second;
}

bool NamedImage::exists(const QString& name) {
    return QFile::exists(resourcePath(name));
}

NamedImage::NamedImage(const QString& name)
    : mName(name)
    , mRenderer(std::make_unique<QSvgRenderer>(resourcePath(name))) {
    if (!mRenderer->isValid())
        handleAssertionFailure(__func__, __FILE__, __LINE__,
                               "no picture named " + name.toStdString());
    mSize = mRenderer->defaultSize();
}

NamedImage::~NamedImage() = default;

const QPixmap& NamedImage::pixmap(qreal devicePixelRatio) const {
    return pixmap(mSize, devicePixelRatio);
}

const QPixmap& NamedImage::pixmap(const QSizeF& size, qreal devicePixelRatio) const {
    const QString key =
        QStringLiteral("%1x%2@%3").arg(size.width()).arg(size.height()).arg(devicePixelRatio);
    auto found = mRendered.find(key);
    if (found != mRendered.end())
        return *found;
    // Sizes that come and go (a window being resized) must not pile up.
    if (mRendered.size() >= kMostRenderedSizes)
        mRendered.clear();
    const QSize pixels(std::max(1, int(std::ceil(size.width() * devicePixelRatio - 1e-6))),
                       std::max(1, int(std::ceil(size.height() * devicePixelRatio - 1e-6))));
    QPixmap rendered(pixels);
    rendered.fill(Qt::transparent);
    {
        QPainter painter(&rendered);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setRenderHint(QPainter::SmoothPixmapTransform);
        // The picture fills exactly size × ratio device pixels, even where that is not whole.
        mRenderer->render(&painter, QRectF(0, 0, size.width() * devicePixelRatio,
                                           size.height() * devicePixelRatio));
    }
    rendered.setDevicePixelRatio(devicePixelRatio);
    return *mRendered.insert(key, rendered);
}

void NamedImage::draw(QPainter& painter, const QPointF& topLeft) const {
    painter.drawPixmap(topLeft, pixmap(devicePixelRatioOf(painter)));
}

void NamedImage::draw(QPainter& painter, const QRectF& target) const {
    const QPixmap& picture = pixmap(target.size(), devicePixelRatioOf(painter));
    painter.drawPixmap(target.topLeft(), picture);
}

qreal devicePixelRatioOf(const QPainter& painter) {
    const QPaintDevice* device = painter.device();
    const qreal deviceRatio = device != nullptr ? device->devicePixelRatioF() : 1.0;
    // A painter that scales (an icon drawn larger) needs that many more pixels.
    const qreal scale = std::abs(painter.worldTransform().m11());
    return deviceRatio * (scale > 0 ? scale : 1.0);
}

void drawThreePartImage(QPainter& painter, const QRectF& area, const NamedImage& left,
                        const NamedImage& fill, const NamedImage& right) {
    // Every part on whole device pixels: placed between them, the ends and the fill were each
    // rounded their own way, and met a row or a column apart.
    const qreal ratio = devicePixelRatioOf(painter);
    const auto snap = [ratio](qreal length) { return std::round(length * ratio) / ratio; };
    const QRectF target(QPointF(snap(area.left()), snap(area.top())),
                        QPointF(snap(area.right()), snap(area.bottom())));
    qreal leftWidth = snap(left.width());
    qreal rightWidth = snap(right.width());
    if (leftWidth + rightWidth > target.width()) {
        leftWidth = snap(target.width() / 2);
        rightWidth = target.width() - leftWidth;
    }
    const qreal fillWidth = target.width() - leftWidth - rightWidth;
    left.draw(painter, QRectF(target.left(), target.top(), leftWidth, target.height()));
    if (fillWidth > 0) {
        // A fill is the same in every column: render it once at its own width and stretch it
        // sideways, rather than render a new picture for every width. That width is made whole
        // device pixels, so that no partly covered column is stretched into a band of its own.
        const qreal pictureWidth = std::ceil(fill.width() * ratio - 1e-6) / ratio;
        const QPixmap& picture = fill.pixmap(QSizeF(pictureWidth, target.height()), ratio);
        painter.drawPixmap(
            QRectF(target.left() + leftWidth, target.top(), fillWidth, target.height()), picture,
            QRectF(QPointF(0, 0), QSizeF(picture.size())));
    }
    right.draw(painter,
               QRectF(target.right() - rightWidth, target.top(), rightWidth, target.height()));
}

} // namespace tesk
