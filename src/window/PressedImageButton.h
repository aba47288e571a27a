#pragma once

#include <QIcon>
#include <QToolButton>

namespace tesk {

/// A round button of the bottom bar: one picture, and another while it is held down (pressed,
/// with the pointer still on it), which a tool button's icon modes cannot tell apart.
/// Main thread only.
class PressedImageButton : public QToolButton {
    Q_OBJECT
public:
    using QToolButton::QToolButton;

    /// Without a `pressed` picture the button shows `normal` while held too.
    void setImages(const QIcon& normal, const QIcon& pressed);

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QIcon mPressed;
};

} // namespace tesk
