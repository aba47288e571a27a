#pragma once

#include <QApplication>

namespace tesk {

/// The running Tesk's Qt application: its names, version, icon and desktop identity.
/// Main thread only.
class TeskApplication : public QApplication {
    Q_OBJECT
public:
    TeskApplication(int& argc, char** argv);

    /// Sets the organization, application and desktop names under which settings are kept and
    /// the desktop finds Tesk's entry and icon, and the version.
    static void configureIdentity();
};

} // namespace tesk
