#include "app/TeskApplication.h"

#include "app/ApplicationIdentity.h"

#include <QIcon>

namespace tesk {

TeskApplication::TeskApplication(int& argc, char** argv)
    : QApplication(argc, argv) {
    configureIdentity();
    setWindowIcon(QIcon::fromTheme(ApplicationIdentity::id,
                                   QIcon(QStringLiteral(":/images/org.teskapp.Tesk.svg"))));
    // Closing the last window leaves the empty one, or quits from the menu.
    setQuitOnLastWindowClosed(true);
}

void TeskApplication::configureIdentity() {
    QCoreApplication::setOrganizationName(QStringLiteral("Tesk"));
    QCoreApplication::setApplicationName(QStringLiteral("Tesk"));
    QCoreApplication::setApplicationVersion(QStringLiteral(TESK_VERSION));
    QGuiApplication::setApplicationDisplayName(QStringLiteral("Tesk"));
    QGuiApplication::setDesktopFileName(ApplicationIdentity::id);
}

} // namespace tesk
