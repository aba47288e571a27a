#include "controls/HUDSwitchControlView.h"

#include "controls/TransportAccessibility.h"
#include "widgets/DevicePixels.h"
#include "widgets/NamedImage.h"
#include "widgets/TeskLook.h"

#include <QAccessible>
#include <QMouseEvent>
#include <QPainter>

namespace tesk {

HUDSwitchControlView::HUDSwitchControlView(QWidget* parent)
    : QWidget(parent) {
    setFocusPolicy(Qt::NoFocus);
    installTransportAccessibility();
    setAccessibleName(tr("Speed or pitch"));
    setAccessibleDescription(tr("Speed"));
    refreshToolTip();
}

void HUDSwitchControlView::refreshToolTip() {
    // What the two halves do, and what a lit dot means, which the switch itself cannot say.
    setToolTip((mControlSwitchState == 0 ? tr("Showing the speed: click below for the pitch.")
                                         : tr("Showing the pitch: click above for the speed.")) +
               QLatin1Char('\n') + tr("A lit dot marks a setting changed from normal."));
}

void HUDSwitchControlView::setSwitchState(int state) {
    if (state != 0 && state != 1)
        return; // any other state changes nothing
    if (mControlSwitchState == state)
        return;
    mControlSwitchState = state;
    setAccessibleDescription(state == 0 ? tr("Speed") : tr("Pitch"));
    refreshToolTip();
    QAccessibleValueChangeEvent event(this, state);
    QAccessible::updateAccessibility(&event);
    emit switchStateChanged();
    update();
}

void HUDSwitchControlView::setSpeedDirty(bool dirty) {
    if (mSpeedDirty == dirty)
        return;
    mSpeedDirty = dirty;
    emit speedDirtyChanged();
    update();
}

void HUDSwitchControlView::setPitchDirty(bool dirty) {
    if (mPitchDirty == dirty)
        return;
    mPitchDirty = dirty;
    emit pitchDirtyChanged();
    update();
}

QRectF HUDSwitchControlView::switchRect() const {
    const QSizeF size = NamedImage::named(QStringLiteral("SwitchState1")).size();
    return QRectF(2, (height() - size.height()) / 2, size.width(), size.height());
}

int HUDSwitchControlView::stateForPoint(const QPointF& point) const {
    return point.y() > switchRect().center().y() + 2.0 ? 1 : 0;
}

QRectF HUDSwitchControlView::dotRect(int title) const {
    const QRectF box = switchRect();
    const double y = title == 0 ? box.top() + 6 : box.bottom() - 14;
    return QRectF(box.right() + 6, y, 8, 8);
}

void HUDSwitchControlView::mousePressEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton || !switchRect().contains(event->position()))
        return;
    setSwitchState(stateForPoint(event->position()));
    emit activated(); // also when the state did not change
}

void HUDSwitchControlView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    alignToDevicePixels(painter);
    painter.setRenderHint(QPainter::Antialiasing);
    NamedImage::named(mControlSwitchState == 0 ? QStringLiteral("SwitchState1")
                                               : QStringLiteral("SwitchState2"))
        .draw(painter, switchRect());
    QFont titleFont = font();
    titleFont.setBold(true);
    titleFont.setPixelSize(9);
    painter.setFont(titleFont);
    const QStringList titles{tr("SPEED"), tr("PITCH")};
    const bool dirty[] = {mSpeedDirty, mPitchDirty};
    for (int title = 0; title < 2; ++title) {
        const QRectF dot = dotRect(title);
        NamedImage::named(dirty[title] ? QStringLiteral("OnIndicator")
                                       : QStringLiteral("OffIndicator"))
            .draw(painter, dot);
        const bool active = title == mControlSwitchState;
        QColor colour = look::hudLightBlue;
        colour.setAlphaF(active ? 0.8 : 0.4);
        const QPointF baseline(dot.right() + 4, dot.bottom());
        painter.setPen(QColor(0, 0, 0, 120));
        painter.drawText(baseline + QPointF(0, active ? 1 : -1), titles[title]);
        painter.setPen(colour);
        painter.drawText(baseline, titles[title]);
    }
}

} // namespace tesk
