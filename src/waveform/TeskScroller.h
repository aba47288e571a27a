#pragma once

#include "controls/SBindingView.h"
#include "waveform/MarkerItem.h"

#include <QList>
#include <QTimer>
#include <array>
#include <optional>

namespace tesk {

/// The horizontal scroller under the waveform. Besides scrolling it shows where the song's
/// markers lie: a small picture per marker, by kind, along the knob slot at the marker's share
/// of the song. It draws its own pictures, the active set while its window is active and the
/// inactive twins otherwise, and talks to the rest of Tesk only through its bindings:
/// "chorusMarkers", "verseMarkers", "genericMarkers", "bridgeMarkers" (QList<quint32>),
/// "minValue", "maxValue" (frames the slot spans), "dragging" (written YES when a press
/// begins and NO however it ends), "value" (0 … 1, the knob's position) and "knobProportion".
///
/// The knob is dragged. A press in the slot beside it asks for a page that way, and again
/// while the button is held, whenever the knob has not yet reached the pointer; with Shift, or
/// with the middle button, the press brings the knob's middle under the pointer instead and
/// drags it.
///
/// Main thread only.
class TeskScroller : public SBindingView {
    Q_OBJECT

public:
    /// The slot's rounded ends: markers never spill out of them.
    static constexpr qreal kSlotRadius = 5.0;
    static constexpr qreal kMinimumKnobWidth = 20.0;

    explicit TeskScroller(QWidget* parent = nullptr);
    ~TeskScroller() override;

    QStringList exposedBindings() const override;
    void observableObjectChangedKeyPath(QObject* object, const QString& keyPath,
                                        const QString& binding) override;

    QList<quint32> markersForType(std::uint32_t kind) const;
    void setMarkers(const QList<quint32>& markers, std::uint32_t kind);
    double minValue() const { return mMinValue; }
    void setMinValue(double value);
    double maxValue() const { return mMaxValue; }
    void setMaxValue(double value);
    double value() const { return mValue; }
    void setValue(double value);
    double knobProportion() const { return mKnobProportion; }
    void setKnobProportion(double proportion);
    bool isPressed() const { return mPressed; }

    /// The knob's slot, and the knob in it.
    QRectF knobSlotRect() const;
    QRectF knobRect() const;
    /// The x of a marker at frame `value`: across the slot inset by a point each side;
    /// nothing when the slot spans no frames (minValue equal to maxValue).
    std::optional<qreal> markerPositionForValue(double value) const;

    QSize sizeHint() const override;

    /// How long a press beside the knob waits before it pages again, then how often it does.
    static constexpr int kFirstPageRepeatMilliseconds = 300;
    static constexpr int kPageRepeatMilliseconds = 100;
    /// Other waits than those; tests shorten them.
    void setPageRepeatMilliseconds(int first, int then) {
        mFirstPageRepeatMs = first;
        mPageRepeatMs = then;
    }

signals:
    /// A page towards the pointer is asked for: -1 to the left, 1 to the right.
    void pageRequested(int direction);

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    bool event(QEvent* event) override;
    void changeEvent(QEvent* event) override;
    void abandonMouseGesture() override { endPress(); }

private:
    /// Qt hands a screen reader the value only as a number: the words go in the description,
    /// and a change is told once the words change, not at every step of a scroll.
    void refreshSpokenValue();
    void drawMarkersOfType(QPainter& painter, std::uint32_t kind);
    void moveKnobTo(qreal knobLeft);
    /// The side of the knob the pointer is on: -1 left of it, 1 right of it, 0 on it.
    int sideOfKnob(qreal x) const;
    void pageAgain();
    void endPress();
    bool drawsActive() const;

    std::array<QList<quint32>, kMarkerKindCount> mMarkers;
    double mMinValue = 0.0;
    double mMaxValue = 0.0;
    double mValue = 0.0;
    double mKnobProportion = 1.0;
    bool mPressed = false;
    Qt::MouseButton mPressButton = Qt::NoButton; // the button whose release ends the press
    qreal mGrabOffset = 0.0;
    /// While a press beside the knob pages: which way, and where the pointer is.
    int mPagingDirection = 0;
    qreal mPagingPointerX = 0.0;
    QTimer mPageRepeat;
    int mFirstPageRepeatMs = kFirstPageRepeatMilliseconds;
    int mPageRepeatMs = kPageRepeatMilliseconds;
};

} // namespace tesk
