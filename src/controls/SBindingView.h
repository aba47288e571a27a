#pragma once

#include "controls/SBindingsManager.h"

#include <QWidget>

namespace tesk {

/// The base of every custom view bound to a document: the waveform, the transport controls and
/// the effect editors. The window binds a view's names to key paths of the document; the view
/// shows each value as it changes and writes what the user sets back by binding name, never
/// knowing the document itself.
///
/// A subclass (a) lists its binding names in `exposedBindings`, adding to its base class's, and
/// (b) overrides `observableObjectChangedKeyPath`, which is also called once inside `bind`.
/// A write-back comes round again through that callback: subclasses tolerate seeing their own
/// value.
///
/// Main thread only.
class SBindingView : public QWidget, public SBindingsView {
    Q_OBJECT

public:
    explicit SBindingView(QWidget* parent = nullptr);
    /// Ends every live binding; the bound objects must still be alive or already gone, never
    /// half-destroyed.
    ~SBindingView() override;

    /// Binds `binding` to `keyPath` of `object` and shows the current value at once. A name the
    /// view does not expose is refused with a warning, and false.
    bool bind(const QString& binding, QObject* object, const QString& keyPath,
              const QVariantMap& options = {});
    /// Ends the binding of `binding`; false with a warning for a name the view does not expose.
    bool unbind(const QString& binding);
    /// Writes a value the user set back to the bound object; nothing when `binding` is unbound.
    void updateObservableObjectForBindingName(const QString& binding, const QVariant& value);

    QStringList exposedBindings() const override { return {}; }
    /// Must be overridden: the base reports "abstract impl!" and stops.
    void observableObjectChangedKeyPath(QObject* object, const QString& keyPath,
                                        const QString& binding) override;

    SBindingsManager& bindingsManager() { return *mBindingsManager; }
    const SBindingsManager& bindingsManager() const { return *mBindingsManager; }
    /// Ends a mouse gesture under way where it is, as when the window goes behind: Tesk ending
    /// keeps what a drag has got to.
    void endMouseGesture() { abandonMouseGesture(); }

protected:
    /// A dialog that opens in the middle of a mouse gesture (a shortcut pressed while dragging)
    /// takes the button's release with it, and a hidden view hears no release either: the view
    /// ends a gesture under way where it is, and gives the keys back. Called when the window
    /// goes behind and when the view is hidden, whether a gesture is under way or not.
    virtual void abandonMouseGesture() {}
    bool event(QEvent* event) override;

private:
    std::unique_ptr<SBindingsManager> mBindingsManager;
};

} // namespace tesk
