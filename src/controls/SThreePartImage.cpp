#include "controls/SThreePartImage.h"

#include "diagnostics/TeskAssert.h"
#include "widgets/NamedImage.h"

#include <QPainter>

namespace tesk {

SThreePartImage::SThreePartImage(const QString& left, const QString& fill, const QString& right)
    : mImageParts{&NamedImage::named(left), &NamedImage::named(fill), &NamedImage::named(right)} {}

const SThreePartImage& SThreePartImage::speedTrack() {
    static const SThreePartImage track(QStringLiteral("DisplaySliderTrackLeft"),
                                       QStringLiteral("DisplaySliderTrackFill"),
                                       QStringLiteral("DisplaySliderTrackRight"));
    return track;
}

const SThreePartImage& SThreePartImage::pitchTrack() {
    static const SThreePartImage track(QStringLiteral("PitchSliderTrackLeft"),
                                       QStringLiteral("PitchSliderTrackFill"),
                                       QStringLiteral("PitchSliderTrackRight"));
    return track;
}

const NamedImage& SThreePartImage::imageForPart(int part) const {
    TESK_PARAMETER_ASSERT(part >= 0 && part < kPartCount);
    return *mImageParts[std::size_t(part)];
}

double SThreePartImage::height() const {
    return mImageParts[1]->height();
}

void SThreePartImage::draw(QPainter& painter, const QRectF& target) const {
    painter.save();
    drawThreePartImage(painter, target, *mImageParts[0], *mImageParts[1], *mImageParts[2]);
    painter.restore();
}

} // namespace tesk
