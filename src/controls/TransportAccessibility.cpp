#include "controls/TransportAccessibility.h"

#include "controls/HUDPitchControlView.h"
#include "controls/HUDSpeedControlView.h"
#include "controls/HUDSwitchControlView.h"
#include "controls/HUDTimeDisplayView.h"

#include <QAccessibleValueInterface>
#include <QAccessibleWidget>
#include <QCoreApplication>
#include <algorithm>
#include <cmath>

namespace tesk {

namespace {

QString spoken(const char* text) {
    return QCoreApplication::translate("Transport", text);
}

/// A control whose value a screen reader reads as text and sets as a number.
template <typename View>
class AccessibleControl : public QAccessibleWidget, public QAccessibleValueInterface {
public:
    AccessibleControl(View* view, const QString& name)
        : QAccessibleWidget(view, QAccessible::Slider, name) {}

    View* view() const { return static_cast<View*>(widget()); }
    void* interface_cast(QAccessible::InterfaceType type) override {
        return type == QAccessible::ValueInterface ? static_cast<QAccessibleValueInterface*>(this)
                                                   : QAccessibleWidget::interface_cast(type);
    }
};

class AccessibleSpeed : public AccessibleControl<HUDSpeedControlView> {
public:
    explicit AccessibleSpeed(HUDSpeedControlView* view)
        : AccessibleControl(view, spoken("Speed")) {}
    QString text(QAccessible::Text t) const override {
        if (t == QAccessible::Value)
            return TransportRules::spokenSpeed(view()->playbackSpeed());
        return QAccessibleWidget::text(t);
    }
    QVariant currentValue() const override { return view()->playbackSpeed(); }
    void setCurrentValue(const QVariant& value) override {
        view()->setPlaybackSpeed(std::clamp(value.toDouble(), view()->markSpeeds().front(),
                                            view()->markSpeeds().back()));
        view()->updateObservableObjectForBindingName("playbackSpeed", view()->playbackSpeed());
    }
    QVariant maximumValue() const override { return view()->markSpeeds().back(); }
    QVariant minimumValue() const override { return view()->markSpeeds().front(); }
    QVariant minimumStepSize() const override { return 0.01; }
};

class AccessiblePitch : public AccessibleControl<HUDPitchControlView> {
public:
    explicit AccessiblePitch(HUDPitchControlView* view)
        : AccessibleControl(view, spoken("Pitch")) {}
    QString text(QAccessible::Text t) const override {
        if (t != QAccessible::Value)
            return QAccessibleWidget::text(t);
        return TransportRules::spokenPitch(view()->pitchAdjustment());
    }
    QVariant currentValue() const override { return view()->pitchAdjustment(); }
    void setCurrentValue(const QVariant& value) override {
        const double semitones =
            std::clamp(value.toDouble(), -TransportRules::kPitchRange, TransportRules::kPitchRange);
        view()->setPitchAdjustment(semitones);
        view()->updateObservableObjectForBindingName("pitchAdjustment", semitones);
    }
    QVariant maximumValue() const override { return TransportRules::kPitchRange; }
    QVariant minimumValue() const override { return -TransportRules::kPitchRange; }
    QVariant minimumStepSize() const override { return 0.5; }
};

class AccessibleTime : public QAccessibleWidget {
public:
    explicit AccessibleTime(HUDTimeDisplayView* view)
        : QAccessibleWidget(view, QAccessible::StaticText, spoken("Time")) {}
    QString text(QAccessible::Text t) const override {
        if (t == QAccessible::Value)
            return static_cast<HUDTimeDisplayView*>(widget())->currentTimeString();
        return QAccessibleWidget::text(t);
    }
};

/// The switch: 0 shows the speed control, 1 the pitch control; setting it acts as a click.
class AccessibleSwitch : public AccessibleControl<HUDSwitchControlView> {
public:
    explicit AccessibleSwitch(HUDSwitchControlView* view)
        : AccessibleControl(view, spoken("Speed or pitch")) {}
    QString text(QAccessible::Text t) const override {
        if (t == QAccessible::Value)
            return view()->switchState() == 0 ? spoken("Speed") : spoken("Pitch");
        return QAccessibleWidget::text(t);
    }
    QVariant currentValue() const override { return view()->switchState(); }
    void setCurrentValue(const QVariant& value) override {
        view()->setSwitchState(value.toInt());
        emit view()->activated();
    }
    QVariant maximumValue() const override { return 1; }
    QVariant minimumValue() const override { return 0; }
    QVariant minimumStepSize() const override { return 1; }
};

QAccessibleInterface* transportAccessibleFactory(const QString& className, QObject* object) {
    if (className == QLatin1String("tesk::HUDSpeedControlView"))
        return new AccessibleSpeed(static_cast<HUDSpeedControlView*>(object));
    if (className == QLatin1String("tesk::HUDPitchControlView"))
        return new AccessiblePitch(static_cast<HUDPitchControlView*>(object));
    if (className == QLatin1String("tesk::HUDSwitchControlView"))
        return new AccessibleSwitch(static_cast<HUDSwitchControlView*>(object));
    if (className == QLatin1String("tesk::HUDTimeDisplayView"))
        return new AccessibleTime(static_cast<HUDTimeDisplayView*>(object));
    return nullptr;
}

} // namespace

void installTransportAccessibility() {
    static const bool installed = (QAccessible::installFactory(transportAccessibleFactory), true);
    (void)installed;
}

} // namespace tesk
