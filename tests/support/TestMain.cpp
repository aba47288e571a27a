// The main of every Tesk test executable: a Qt application on the offscreen platform, and an
// assertion handler that throws, so tests can watch Tesk's assertions fail.
#include "support/Assertions.h"

#include <QApplication>
#include <QSettings>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace {

[[noreturn]] void throwAssertionFailure(const tesk::AssertionFailure& failure) {
    throw tesk::test::AssertionFailed(failure);
}

} // namespace

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM",
            qgetenv("QT_QPA_PLATFORM").isEmpty() ? "offscreen" : qgetenv("QT_QPA_PLATFORM"));
    QApplication application(argc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral("TeskTests"));
    QCoreApplication::setApplicationName(QStringLiteral("TeskTests"));
    // Settings that tests write (the last volume used...) stay out of the user's own.
    QTemporaryDir settings;
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, settings.path());
    testing::InitGoogleTest(&argc, argv);
    tesk::setAssertionHandler(&throwAssertionFailure);
    return RUN_ALL_TESTS();
}
