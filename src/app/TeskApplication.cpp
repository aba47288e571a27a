#include "app/TeskApplication.h"

#include "audio/ProcessingChainPool.h"

#include <QMainWindow>

namespace tesk {

TeskApplication::TeskApplication(int& argc, char** argv)
    : QApplication(argc, argv) {
    configureIdentity();
    // The first song should not wait for its processing chain to be built.
    ProcessingChainPool::prepare();
    mMainWindow = createEmptyWindow();
}

TeskApplication::~TeskApplication() = default;

void TeskApplication::configureIdentity() {
    QCoreApplication::setOrganizationName(QStringLiteral("Tesk"));
    QCoreApplication::setApplicationName(QStringLiteral("Tesk"));
    QGuiApplication::setApplicationDisplayName(QStringLiteral("Tesk"));
}

std::unique_ptr<QMainWindow> createEmptyWindow() {
    auto window = std::make_unique<QMainWindow>();
    window->setWindowTitle(QStringLiteral("Tesk"));
    window->resize(900, 560);
    return window;
}

} // namespace tesk
