#include "effects/EffectsAccessibility.h"

#include "effects/TeskEQSettingsView.h"
#include "effects/TeskPanSlider.h"
#include "effects/TeskVocalRemovalSettingsView.h"

#include <QAccessibleValueInterface>
#include <QAccessibleWidget>
#include <QCoreApplication>
#include <QPointer>
#include <algorithm>
#include <cmath>
#include <vector>

namespace tesk {

namespace {

QString spoken(const char* text) {
    return QCoreApplication::translate("Effects", text);
}

/// One handle inside an editor: a slider of its own for the screen reader, with no widget.
/// Its editor's interface owns it (registered with the accessibility cache).
class AccessibleHandle : public QAccessibleInterface, public QAccessibleValueInterface {
public:
    AccessibleHandle(QAccessibleInterface* editor, int index)
        : mEditor(editor)
        , mIndex(index) {}

    bool isValid() const override { return mEditor->isValid(); }
    QObject* object() const override { return nullptr; }
    QWindow* window() const override { return mEditor->window(); }
    QAccessibleInterface* focusChild() const override { return nullptr; }
    QAccessibleInterface* childAt(int, int) const override { return nullptr; }
    QAccessibleInterface* parent() const override { return mEditor; }
    QAccessibleInterface* child(int) const override { return nullptr; }
    int childCount() const override { return 0; }
    int indexOfChild(const QAccessibleInterface*) const override { return -1; }
    void setText(QAccessible::Text, const QString&) override {}
    QAccessible::Role role() const override { return QAccessible::Slider; }
    /// The editor's state; focused only for the part its keys move.
    QAccessible::State state() const override {
        QAccessible::State state = mEditor->state();
        state.focused = state.focused && movedByKeys();
        return state;
    }
    /// Whether the editor's keys move this part.
    virtual bool movedByKeys() const = 0;
    void* interface_cast(QAccessible::InterfaceType type) override {
        return type == QAccessible::ValueInterface ? static_cast<QAccessibleValueInterface*>(this)
                                                   : nullptr;
    }

protected:
    QWidget* editorWidget() const { return static_cast<QWidget*>(mEditor->object()); }
    /// A view rectangle on the screen.
    QRect screenRect(const QRectF& viewRect) const {
        QWidget* editor = editorWidget();
        return QRect(editor->mapToGlobal(viewRect.topLeft().toPoint()), viewRect.size().toSize());
    }
    int index() const { return mIndex; }

private:
    QAccessibleInterface* mEditor;
    int mIndex;
};

class AccessibleBand : public AccessibleHandle {
public:
    using AccessibleHandle::AccessibleHandle;
    TeskEQSettingsView* view() const { return static_cast<TeskEQSettingsView*>(editorWidget()); }
    QString text(QAccessible::Text t) const override {
        if (t == QAccessible::Name)
            return TeskEQSettingsView::bandName(index());
        if (t == QAccessible::Value || t == QAccessible::Description)
            return spokenGain(view()->valueForBand(index()));
        return {};
    }
    QRect rect() const override { return screenRect(view()->geometry().hitRectForBand(index())); }
    bool movedByKeys() const override { return view()->keyBand() == index(); }
    QVariant currentValue() const override { return view()->valueForBand(index()); }
    void setCurrentValue(const QVariant& value) override {
        view()->setBandValueAsUser(index(), value.toDouble());
    }
    // The editor's range, widened to a gain beyond it (a practice written by a script) so that
    // the value always lies inside what a screen reader is told.
    QVariant maximumValue() const override {
        return std::max(EQBandGeometry::kDisplayRange, view()->valueForBand(index()));
    }
    QVariant minimumValue() const override {
        return std::min(-EQBandGeometry::kDisplayRange, view()->valueForBand(index()));
    }
    QVariant minimumStepSize() const override { return 1.0; } // as the arrow keys step
};

class AccessibleEdge : public AccessibleHandle {
public:
    using AccessibleHandle::AccessibleHandle;
    TeskVocalRemovalSettingsView* view() const {
        return static_cast<TeskVocalRemovalSettingsView*>(editorWidget());
    }
    bool low() const { return index() == 0; }
    QString text(QAccessible::Text t) const override {
        if (t == QAccessible::Name)
            return low() ? spoken("Vocal band low edge") : spoken("Vocal band high edge");
        if (t == QAccessible::Value || t == QAccessible::Description)
            return spokenFrequency(low() ? view()->lowFrequency() : view()->highFrequency());
        return {};
    }
    QRect rect() const override {
        return screenRect(low() ? view()->lowFrequencyHitRect() : view()->highFrequencyHitRect());
    }
    bool movedByKeys() const override { return view()->keysMoveLowEdge() == low(); }
    QVariant currentValue() const override {
        return low() ? view()->lowFrequency() : view()->highFrequency();
    }
    void setCurrentValue(const QVariant& value) override {
        // Through the same rules as a drag: the gap and the limits hold.
        view()->setEdgeFrequencyAsUser(low(), value.toDouble());
    }
    QVariant maximumValue() const override { return VocalBandGeometry::kHighestFrequency; }
    QVariant minimumValue() const override { return VocalBandGeometry::kLowestFrequency; }
    QVariant minimumStepSize() const override { return 1.0; }
};

/// An editor whose handles are its children.
template <typename Handle> class AccessibleEditor : public QAccessibleWidget {
public:
    AccessibleEditor(QWidget* editor, int handles)
        : QAccessibleWidget(editor, QAccessible::Grouping) {
        for (int i = 0; i < handles; ++i)
            mHandles.push_back(QAccessible::registerAccessibleInterface(new Handle(this, i)));
    }
    ~AccessibleEditor() override {
        for (QAccessible::Id id : mHandles)
            QAccessible::deleteAccessibleInterface(id);
    }
    int childCount() const override { return int(mHandles.size()); }
    QAccessibleInterface* child(int index) const override {
        return index >= 0 && index < childCount()
                   ? QAccessible::accessibleInterface(mHandles[std::size_t(index)])
                   : nullptr;
    }
    int indexOfChild(const QAccessibleInterface* child) const override {
        for (int i = 0; i < childCount(); ++i)
            if (this->child(i) == child)
                return i;
        return -1;
    }
    QAccessibleInterface* childAt(int x, int y) const override {
        for (int i = 0; i < childCount(); ++i)
            if (child(i)->rect().contains(x, y))
                return child(i);
        return nullptr;
    }
    /// The part the keys move, while the editor has the focus.
    QAccessibleInterface* focusChild() const override {
        for (int i = 0; i < childCount(); ++i)
            if (child(i)->state().focused)
                return child(i);
        return nullptr;
    }

private:
    std::vector<QAccessible::Id> mHandles;
};

class AccessiblePan : public QAccessibleWidget, public QAccessibleValueInterface {
public:
    explicit AccessiblePan(TeskPanSlider* slider)
        : QAccessibleWidget(slider, QAccessible::Slider) {}
    TeskPanSlider* slider() const { return static_cast<TeskPanSlider*>(widget()); }
    void* interface_cast(QAccessible::InterfaceType type) override {
        return type == QAccessible::ValueInterface ? static_cast<QAccessibleValueInterface*>(this)
                                                   : QAccessibleWidget::interface_cast(type);
    }
    QString text(QAccessible::Text t) const override {
        if (t == QAccessible::Value) {
            const double range = slider()->maxValue() - slider()->minValue();
            return spokenPan((slider()->value() - slider()->minValue()) / range);
        }
        return QAccessibleWidget::text(t);
    }
    QVariant currentValue() const override { return slider()->value(); }
    void setCurrentValue(const QVariant& value) override {
        slider()->setValueAsUser(
            std::clamp(value.toDouble(), slider()->minValue(), slider()->maxValue()));
    }
    QVariant maximumValue() const override { return slider()->maxValue(); }
    QVariant minimumValue() const override { return slider()->minValue(); }
    QVariant minimumStepSize() const override { return 0.01; }
};

QAccessibleInterface* effectsAccessibleFactory(const QString& className, QObject* object) {
    if (className == QLatin1String("tesk::TeskEQSettingsView"))
        return new AccessibleEditor<AccessibleBand>(static_cast<QWidget*>(object),
                                                    TeskEQSettingsView::kBandCount);
    if (className == QLatin1String("tesk::TeskVocalRemovalSettingsView"))
        return new AccessibleEditor<AccessibleEdge>(static_cast<QWidget*>(object), 2);
    if (className == QLatin1String("tesk::TeskPanSlider"))
        return new AccessiblePan(static_cast<TeskPanSlider*>(object));
    return nullptr;
}

} // namespace

void announceHandleValue(QWidget* editor, int handle, double value) {
    QAccessibleValueChangeEvent valueChange(editor, value);
    valueChange.setChild(handle);
    QAccessible::updateAccessibility(&valueChange);
    QAccessibleEvent wordsChange(editor, QAccessible::DescriptionChanged);
    wordsChange.setChild(handle);
    QAccessible::updateAccessibility(&wordsChange);
}

QString spokenGain(double decibels) {
    const double tenths = std::round(decibels * 10.0) / 10.0;
    const QString number =
        QString::number(std::fabs(tenths), 'f', tenths == std::trunc(tenths) ? 0 : 1);
    if (tenths == 0.0)
        return spoken("0 dB");
    return (tenths > 0 ? spoken("+%1 dB") : spoken("-%1 dB")).arg(number);
}

QString spokenFrequency(double hertz) {
    return spoken("%1 Hz").arg(std::lround(hertz));
}

QString spokenPan(double panFraction) {
    const long percent = std::lround(std::fabs(panFraction - 0.5) * 200.0);
    if (percent == 0)
        return spoken("Centre");
    return (panFraction < 0.5 ? spoken("%1% left") : spoken("%1% right")).arg(percent);
}

void installEffectsAccessibility() {
    static const bool installed = (QAccessible::installFactory(effectsAccessibleFactory), true);
    (void)installed;
}

} // namespace tesk
