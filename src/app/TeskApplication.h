#pragma once

#include <QApplication>
#include <memory>

class QMainWindow;

namespace tesk {

/// The running Tesk: names the application for its settings and opens the first window.
/// Main thread only.
class TeskApplication : public QApplication {
    Q_OBJECT
public:
    TeskApplication(int& argc, char** argv);
    ~TeskApplication() override;

    /// The window shown at start: empty for now, titled "Tesk".
    QMainWindow* mainWindow() const { return mMainWindow.get(); }

    /// Sets the organization and application names under which settings are kept.
    static void configureIdentity();

private:
    std::unique_ptr<QMainWindow> mMainWindow;
};

/// A new, empty Tesk window.
std::unique_ptr<QMainWindow> createEmptyWindow();

} // namespace tesk
