#include "controls/SBindingsManager.h"

#include <QObject>
#include <algorithm>

namespace tesk {

SBindingsManager::SBindingsManager(SBindingsView* view)
    : mView(view) {}

SBindingsManager::~SBindingsManager() {
    for (const auto& context : mObservingContexts) {
        if (context->object)
            removeObserver(context->object, this, context->keyPath, context.get());
    }
    mView = nullptr;
}

bool SBindingsManager::doBind(const QString& binding, QObject* object, const QString& keyPath,
                              const QVariantMap& /*options*/) {
    if (mView == nullptr || !mView->exposedBindings().contains(binding))
        return false;
    if (mObservableObjects.contains(binding))
        doUnbind(binding);
    mObservableObjects.insert(binding, object);
    mObservableKeyPaths.insert(binding, keyPath);
    mObservingContexts.push_back(
        std::make_unique<ObservingContext>(ObservingContext{object, keyPath, binding}));
    addObserver(object, this, keyPath, ObservingOption::Initial, mObservingContexts.back().get());
    return true;
}

bool SBindingsManager::doUnbind(const QString& binding) {
    if (mView == nullptr || !mView->exposedBindings().contains(binding))
        return false;
    mObservableObjects.remove(binding);
    mObservableKeyPaths.remove(binding);
    removeObservingContextForBinding(binding);
    return true;
}

void SBindingsManager::removeObservingContextForBinding(const QString& binding) {
    const auto found =
        std::find_if(mObservingContexts.begin(), mObservingContexts.end(),
                     [&](const auto& context) { return context->binding == binding; });
    if (found == mObservingContexts.end())
        return;
    if ((*found)->object)
        removeObserver((*found)->object, this, (*found)->keyPath, found->get());
    mObservingContexts.erase(found);
}

void SBindingsManager::updateObservableObjectForBindingName(const QString& binding,
                                                            const QVariant& value) {
    QObject* object = observableObject(binding);
    if (object != nullptr)
        setValueForKeyPath(object, mObservableKeyPaths.value(binding), value);
}

QObject* SBindingsManager::observableObject(const QString& binding) const {
    return mObservableObjects.value(binding).data();
}

QString SBindingsManager::observableKeyPath(const QString& binding) const {
    return mObservableKeyPaths.value(binding);
}

QStringList SBindingsManager::boundBindings() const {
    QStringList names;
    for (const auto& context : mObservingContexts)
        names.append(context->binding);
    return names;
}

void SBindingsManager::observeValueForKeyPath(const QString& keyPath, QObject* object,
                                              const void* context) {
    const auto found =
        std::find_if(mObservingContexts.begin(), mObservingContexts.end(),
                     [&](const auto& candidate) { return candidate.get() == context; });
    if (found == mObservingContexts.end() || mView == nullptr)
        return;
    // A copy: the view may unbind, and so free the context, from inside the callback.
    const QString binding = (*found)->binding;
    mView->observableObjectChangedKeyPath(object, keyPath, binding);
}

} // namespace tesk
