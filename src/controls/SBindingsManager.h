#pragma once

#include "observation/KeyValueObserving.h"

#include <QHash>
#include <QPointer>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <memory>
#include <vector>

class QObject;

namespace tesk {

/// What a bindings manager needs of the view it serves: the names the view can be bound
/// under, and a callback for changes of the bound values.
class SBindingsView {
public:
    virtual ~SBindingsView() = default;
    /// Every binding name of the view's class, its base classes' names included.
    virtual QStringList exposedBindings() const = 0;
    /// The value bound under `binding` (`keyPath` of `object`) may have changed; read it with
    /// `valueForKeyPath`. Also called once inside `bind`, so the view shows the current value.
    virtual void observableObjectChangedKeyPath(QObject* object, const QString& keyPath,
                                                const QString& binding) = 0;
};

/// Keeps a view's bindings: binding name to an observed object and key path. A name is bound
/// to at most one object at a time; a binding lasts until it is unbound, replaced or the manager
/// goes. Options are accepted and ignored on purpose: no transformers, placeholders or
/// validation.
///
/// Main thread only, like the models it observes.
class SBindingsManager : private KeyValueObserver {
public:
    explicit SBindingsManager(SBindingsView* view);
    /// Ends every observation still live. The bound objects may already be gone.
    ~SBindingsManager() override;

    SBindingsManager(const SBindingsManager&) = delete;
    SBindingsManager& operator=(const SBindingsManager&) = delete;

    /// Binds `binding` to `keyPath` of `object`, replacing an earlier binding of the name, and
    /// tells the view the current value before returning. False, changing nothing, when the
    /// view does not expose the name.
    bool doBind(const QString& binding, QObject* object, const QString& keyPath,
                const QVariantMap& options = {});
    /// Ends the binding of `binding`. True for every exposed name, bound or not.
    bool doUnbind(const QString& binding);
    /// Writes `value` to the bound key path, which then notifies the view like any other
    /// change. Nothing when the name is not bound.
    void updateObservableObjectForBindingName(const QString& binding, const QVariant& value);

    /// The object bound under `binding`, or null.
    QObject* observableObject(const QString& binding) const;
    /// The key path bound under `binding`, or an empty string.
    QString observableKeyPath(const QString& binding) const;
    /// The names bound now, in the order they were bound.
    QStringList boundBindings() const;

    SBindingsView* view() const { return mView; }
    void setView(SBindingsView* view) { mView = view; }

private:
    /// Passed as the observation's context: its address identifies the binding.
    struct ObservingContext {
        QPointer<QObject> object;
        QString keyPath;
        QString binding;
    };

    void observeValueForKeyPath(const QString& keyPath, QObject* object,
                                const void* context) override;
    void removeObservingContextForBinding(const QString& binding);

    QHash<QString, QPointer<QObject>> mObservableObjects;
    QHash<QString, QString> mObservableKeyPaths;
    std::vector<std::unique_ptr<ObservingContext>> mObservingContexts;
    SBindingsView* mView = nullptr; // not owned: the view owns the manager
};

} // namespace tesk
