#include "controls/SBindingView.h"

#include "diagnostics/TeskAssert.h"

#include <QDebug>
#include <QEvent>

namespace tesk {

SBindingView::SBindingView(QWidget* parent)
    : QWidget(parent)
    , mBindingsManager(std::make_unique<SBindingsManager>(this)) {}

SBindingView::~SBindingView() {
    // The manager ends the observations; it must not call back into a view being destroyed.
    mBindingsManager->setView(nullptr);
    mBindingsManager.reset();
}

bool SBindingView::bind(const QString& binding, QObject* object, const QString& keyPath,
                        const QVariantMap& options) {
    if (mBindingsManager->doBind(binding, object, keyPath, options))
        return true;
    qWarning().noquote() << metaObject()->className() << "has no binding named" << binding;
    return false;
}

bool SBindingView::unbind(const QString& binding) {
    if (mBindingsManager->doUnbind(binding))
        return true;
    qWarning().noquote() << metaObject()->className() << "has no binding named" << binding;
    return false;
}

void SBindingView::updateObservableObjectForBindingName(const QString& binding,
                                                        const QVariant& value) {
    mBindingsManager->updateObservableObjectForBindingName(binding, value);
}

bool SBindingView::event(QEvent* event) {
    if (event->type() == QEvent::WindowDeactivate || event->type() == QEvent::Hide)
        abandonMouseGesture();
    return QWidget::event(event);
}

void SBindingView::observableObjectChangedKeyPath(QObject*, const QString&, const QString&) {
    handleAssertionFailure("observableObjectChangedKeyPath", "SBindingView", 43, "abstract impl!");
}

} // namespace tesk
