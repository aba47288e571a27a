#include "window/PressedImageButton.h"

#include <QStyleOptionToolButton>
#include <QStylePainter>

namespace tesk {

void PressedImageButton::setImages(const QIcon& normal, const QIcon& pressed) {
    mPressed = pressed;
    setIcon(normal);
    update();
}

void PressedImageButton::paintEvent(QPaintEvent*) {
    QStylePainter painter(this);
    QStyleOptionToolButton option;
    initStyleOption(&option);
    if (isDown() && !mPressed.isNull())
        option.icon = mPressed;
    painter.drawComplexControl(QStyle::CC_ToolButton, option);
}

} // namespace tesk
