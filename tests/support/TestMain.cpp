// The main of every Tesk test executable: a Qt application on the offscreen platform with the
// silent sound device (unless the environment names others), drawn at the device pixel ratio
// --scale-factor=F asks for, and an assertion handler that throws, so tests can watch Tesk's
// assertions fail.
#include "support/Assertions.h"

#include <QApplication>
#include <QFile>
#include <QScreen>
#include <QSettings>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <optional>

namespace {

constexpr char kSettingsVariable[] = "TESK_TEST_SETTINGS";

[[noreturn]] void throwAssertionFailure(const tesk::AssertionFailure& failure) {
    throw tesk::test::AssertionFailed(failure);
}

void setDefault(const char* name, const char* value) {
    if (qgetenv(name).isEmpty())
        qputenv(name, value);
}

/// Takes --scale-factor=F out of the arguments, for QT_SCALE_FACTOR; empty without one.
QByteArray takeScaleFactor(int& argc, char** argv) {
    static constexpr char kOption[] = "--scale-factor=";
    QByteArray factor;
    int kept = 0;
    for (int i = 0; i < argc; ++i) {
        if (std::strncmp(argv[i], kOption, sizeof kOption - 1) == 0)
            factor = argv[i] + sizeof kOption - 1;
        else
            argv[kept++] = argv[i];
    }
    argc = kept;
    argv[argc] = nullptr;
    return factor;
}

} // namespace

int main(int argc, char** argv) {
    setDefault("QT_QPA_PLATFORM", "offscreen");
    setDefault("SDL_AUDIODRIVER", "dummy");
    const QByteArray scaleFactor = takeScaleFactor(argc, argv);
    if (!scaleFactor.isEmpty())
        qputenv("QT_SCALE_FACTOR", scaleFactor);
    QApplication application(argc, argv);
    // Tests of pictures at a ratio that silently ran at another would prove nothing.
    if (!scaleFactor.isEmpty()) {
        const qreal ratio = QGuiApplication::primaryScreen()->devicePixelRatio();
        if (std::abs(ratio - scaleFactor.toDouble()) > 1e-9) {
            std::fprintf(stderr, "views draw at ratio %g, not the %s asked for\n", ratio,
                         scaleFactor.constData());
            return 1;
        }
    }
    QCoreApplication::setOrganizationName(QStringLiteral("TeskTests"));
    QCoreApplication::setApplicationName(QStringLiteral("TeskTests"));
    // Settings that tests write (the last volume used...) stay out of the user's own. A death
    // test's child runs this main again and dies without cleaning up, so it uses its parent's
    // folder, which the parent removes.
    std::optional<QTemporaryDir> ownSettings;
    QByteArray settingsPath = qgetenv(kSettingsVariable);
    if (settingsPath.isEmpty()) {
        settingsPath = QFile::encodeName(ownSettings.emplace().path());
        qputenv(kSettingsVariable, settingsPath);
    }
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope,
                       QFile::decodeName(settingsPath));
    // And so do the copies of unsaved practice that documents keep.
    qputenv("XDG_DATA_HOME", settingsPath);
    testing::InitGoogleTest(&argc, argv);
    tesk::setAssertionHandler(&throwAssertionFailure);
    return RUN_ALL_TESTS();
}
