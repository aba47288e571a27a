#include "waveform/WaveformAccessibility.h"

#include "controls/TransportRules.h"
#include "waveform/TeskScroller.h"
#include "waveform/WaveformView.h"

#include <QAccessibleValueInterface>
#include <QAccessibleWidget>
#include <QCoreApplication>
#include <QStringList>
#include <algorithm>
#include <cmath>
#include <iterator>

namespace tesk {

namespace {

QString timeText(qint64 frame) {
    const qint64 seconds = frame / WaveformGeometry::kFramesPerSecond;
    return QString::asprintf("%02lld:%02lld", seconds / 60, seconds % 60);
}

/// The play position, in seconds, as the value (a reader may speak the bare number, and a
/// count of frames means nothing to a listener); the loop in the description.
class AccessibleWaveformView : public QAccessibleWidget, public QAccessibleValueInterface {
public:
    explicit AccessibleWaveformView(WaveformView* view)
        : QAccessibleWidget(view, QAccessible::Slider,
                            QCoreApplication::translate("WaveformView", "Waveform")) {}

    WaveformView* view() const { return static_cast<WaveformView*>(widget()); }

    void* interface_cast(QAccessible::InterfaceType type) override {
        return type == QAccessible::ValueInterface ? static_cast<QAccessibleValueInterface*>(this)
                                                   : QAccessibleWidget::interface_cast(type);
    }
    QString text(QAccessible::Text t) const override {
        if (t == QAccessible::Value)
            return timeText(view()->currentFrame());
        return QAccessibleWidget::text(t);
    }
    QVariant currentValue() const override { return playPositionSeconds(view()->currentFrame()); }
    void setCurrentValue(const QVariant& value) override {
        view()->setCurrentFrame(std::llround(value.toDouble() * WaveformGeometry::kFramesPerSecond),
                                true);
    }
    QVariant maximumValue() const override { return playPositionSeconds(view()->frameCount()); }
    QVariant minimumValue() const override { return 0.0; }
    QVariant minimumStepSize() const override { return 1.0; }
};

/// The scroll position, 0 to 1.
class AccessibleScroller : public QAccessibleWidget, public QAccessibleValueInterface {
public:
    explicit AccessibleScroller(TeskScroller* scroller)
        : QAccessibleWidget(scroller, QAccessible::ScrollBar,
                            QCoreApplication::translate("TeskScroller", "Song position")) {}

    TeskScroller* scroller() const { return static_cast<TeskScroller*>(widget()); }
    /// Following the play head can take the view past the song's ends, where the knob stops.
    double position() const { return std::clamp(scroller()->value(), 0.0, 1.0); }

    void* interface_cast(QAccessible::InterfaceType type) override {
        return type == QAccessible::ValueInterface ? static_cast<QAccessibleValueInterface*>(this)
                                                   : QAccessibleWidget::interface_cast(type);
    }
    QString text(QAccessible::Text t) const override {
        if (t == QAccessible::Value)
            return scroller()->accessibleDescription();
        return QAccessibleWidget::text(t);
    }
    QVariant currentValue() const override { return position(); }
    void setCurrentValue(const QVariant& value) override {
        scroller()->setValue(value.toDouble());
        scroller()->updateObservableObjectForBindingName("value", scroller()->value());
    }
    QVariant maximumValue() const override { return 1.0; }
    QVariant minimumValue() const override { return 0.0; }
    QVariant minimumStepSize() const override { return 0.01; }
};

QAccessibleInterface* waveformAccessibleFactory(const QString& className, QObject* object) {
    if (className == QLatin1String("tesk::WaveformView"))
        return new AccessibleWaveformView(static_cast<WaveformView*>(object));
    if (className == QLatin1String("tesk::TeskScroller"))
        return new AccessibleScroller(static_cast<TeskScroller*>(object));
    return nullptr;
}

} // namespace

double playPositionSeconds(qint64 frame) {
    return double(frame) / WaveformGeometry::kFramesPerSecond;
}

QString spokenPlayPosition(qint64 frame, LoopRange loop, const QList<int>& markerKindsHere) {
    static const char* const kMarkerWords[] = {
        QT_TRANSLATE_NOOP("WaveformView", "at a marker"),
        QT_TRANSLATE_NOOP("WaveformView", "at a chorus marker"),
        QT_TRANSLATE_NOOP("WaveformView", "at a verse marker"),
        QT_TRANSLATE_NOOP("WaveformView", "at a bridge marker")};
    QStringList words{timeText(frame)};
    for (const int kind : markerKindsHere) {
        if (kind >= 0 && kind < int(std::size(kMarkerWords)))
            words.append(QCoreApplication::translate("WaveformView", kMarkerWords[kind]));
    }
    if (loop.length > 0) {
        words.append(
            QCoreApplication::translate("WaveformView", "loop from %1 to %2")
                .arg(timeText(loop.location), timeText(qint64(loop.location) + loop.length)));
    }
    return words.join(QStringLiteral(", "));
}

QString markerToolTip(std::uint32_t kind, qint64 frame) {
    static const char* const kNames[] = {QT_TRANSLATE_NOOP("WaveformView", "Marker at %1"),
                                         QT_TRANSLATE_NOOP("WaveformView", "Chorus marker at %1"),
                                         QT_TRANSLATE_NOOP("WaveformView", "Verse marker at %1"),
                                         QT_TRANSLATE_NOOP("WaveformView", "Bridge marker at %1")};
    // As the time display shows the play head there: a click on the marker puts it there.
    const QString time = TransportRules::timeString(TransportRules::millisecondsForFrame(frame));
    return QCoreApplication::translate("WaveformView",
                                       kNames[std::min<std::size_t>(kind, std::size(kNames) - 1)])
               .arg(time) +
           QLatin1Char('\n') +
           QCoreApplication::translate(
               "WaveformView", "Click to go here; drag to move it, or off the strip to remove it.");
}

QString loopButtonToolTip(bool loopPlaying) {
    return loopPlaying ? QCoreApplication::translate("WaveformView", "Stop the Loop (L)")
                       : QCoreApplication::translate("WaveformView", "Play the Loop (L)");
}

void installWaveformAccessibility() {
    static const bool installed = (QAccessible::installFactory(waveformAccessibleFactory), true);
    (void)installed;
}

} // namespace tesk
