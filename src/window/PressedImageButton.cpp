#include "window/PressedImageButton.h"

#include <QPainter>

namespace tesk {

void PressedImageButton::setImages(const QIcon& normal, const QIcon& pressed) {
    mPressed = pressed;
    setIcon(normal);
    update();
}

void PressedImageButton::paintEvent(QPaintEvent*) {
    // The round picture alone: the style's square panel, shown on hover or press, would frame it.
    QPainter painter(this);
    const QIcon shown = isDown() && !mPressed.isNull() ? mPressed : icon();
    QRect place(QPoint(), iconSize());
    place.moveCenter(rect().center());
    shown.paint(&painter, place, Qt::AlignCenter, isEnabled() ? QIcon::Normal : QIcon::Disabled);
}

} // namespace tesk
