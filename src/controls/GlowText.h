#pragma once

#include "widgets/Glow.h"

#include <QFont>
#include <QPixmap>
#include <QString>

namespace tesk {

/// The transport panel's light-blue text with its soft glow (a blurred copy under the sharp
/// text), rendered once per text, font and pixel ratio and kept: painting a frame only copies the
/// picture. Main thread.
class GlowText {
public:
    /// The picture of `text`; its device-independent size is the text's box plus the glow's
    /// margin on every side.
    static const QPixmap& picture(const QString& text, const QFont& font, qreal ratio);
    /// Room the glow takes around the text, in logical pixels.
    static constexpr int kMargin = Glow::kMargin;
};

} // namespace tesk
