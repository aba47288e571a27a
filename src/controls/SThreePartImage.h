#pragma once

#include <QString>
#include <array>

class QPainter;
class QRectF;

namespace tesk {

class NamedImage;

/// A picture stretched sideways from three named parts (left cap, centre fill, right cap): the
/// speed control's track and the pitch control's slot. Its natural height is the fill's.
/// Main thread.
class SThreePartImage {
public:
    static constexpr int kPartCount = 3;

    SThreePartImage(const QString& left, const QString& fill, const QString& right);

    /// "DisplaySliderTrackLeft", "…Fill", "…Right": shown while the pointer is over the speed
    /// control's track.
    static const SThreePartImage& speedTrack();
    /// "PitchSliderTrackLeft", "…Fill", "…Right": the pitch control's slot.
    static const SThreePartImage& pitchTrack();

    /// Part 0 (left), 1 (fill) or 2 (right); any other part is a programming error.
    const NamedImage& imageForPart(int part) const;
    double height() const;
    /// The caps at their own widths at the ends of `target`, the fill stretched between.
    void draw(QPainter& painter, const QRectF& target) const;

private:
    std::array<const NamedImage*, kPartCount> mImageParts;
};

} // namespace tesk
