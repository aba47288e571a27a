#pragma once

#include <QImage>
#include <QPixmap>

namespace tesk {

class NamedImage;

/// The soft glow of the transport panel's light text and digits: a blurred copy of a picture
/// laid under the sharp picture. Costly enough (a blur over every pixel) to be made once per
/// text or glyph and kept; painting a frame only copies the result. Main thread.
namespace Glow {

/// Room the glow takes around a picture, in logical pixels.
inline constexpr int kMargin = 3;

/// `sharp` (premultiplied ARGB, with `kMargin` of clear room on every side) with a blurred copy
/// of itself under it: three box blurs of `radius` logical pixels (close to a Gaussian), at
/// `intensity` (0 to 1) of the blurred copy's opacity.
QImage withGlow(const QImage& sharp, qreal radius = 2.0, qreal intensity = 0.55);

/// The named picture with its glow, at `ratio`, made once and kept: its logical size is the
/// picture's plus `kMargin` on every side, so draw it at the picture's place minus the margin.
const QPixmap& glowingPicture(const NamedImage& image, qreal ratio);

} // namespace Glow
} // namespace tesk
