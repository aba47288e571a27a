// Sets a scene in Tesk's real window and photographs the whole screen, for scripts/screenshot:
//   playing  FILE OUT.png   the song playing (Space pressed), shot a few seconds in
//   export   FILE OUT.png   exporting the song to an M4A file, shot while its progress shows
// The export's file dialog is answered with a temporary file; everything else is Tesk's own.
// Run it on an X server (a virtual one will do): the progress dialog is a window of its own.
#include "app/TeskAppController.h"
#include "app/TeskApplication.h"
#include "audio/ProcessingChainPool.h"
#include "document/TeskDocumentController.h"
#include "window/TeskWindowLayer.h"
#include "window/WindowCommands.h"

#include <QKeyEvent>
#include <QProgressDialog>
#include <QScreen>
#include <QTemporaryDir>
#include <QTimer>
#include <cstdio>
#include <cstdlib>

namespace {

bool shootScreen(const QString& path) {
    QScreen* screen = QGuiApplication::primaryScreen();
    return screen && screen->grabWindow(0).save(path);
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        std::fprintf(stderr, "usage: tesk_window_scenes playing|export FILE OUT.png\n");
        return 1;
    }
    const QString scene = QString::fromLocal8Bit(argv[1]);
    const QString file = QString::fromLocal8Bit(argv[2]);
    const QString out = QString::fromLocal8Bit(argv[3]);

    tesk::TeskApplication application(argc, argv);
    tesk::ProcessingChainPool::prepare();
    tesk::TeskAppController controller;
    QTemporaryDir exports;
    controller.windowLayer()->services().askExportFile =
        [&exports](QWidget*, const QString&, const QString& name,
                   std::function<void(const QString&, int)> chosen) {
            chosen(exports.filePath(name + QStringLiteral(".m4a")), 0);
        };
    controller.openFiles({file});
    const QList<tesk::TeskDocument*> documents = controller.documentController()->documents();
    tesk::TeskDocumentWindowController* window =
        documents.isEmpty() ? nullptr : controller.windowLayer()->windowFor(documents.first());
    if (!window) {
        std::fprintf(stderr, "tesk_window_scenes: %s did not open\n", argv[2]);
        return 1;
    }

    // Give up rather than hang when a scene never comes about.
    QTimer::singleShot(60000, [] {
        std::fprintf(stderr, "tesk_window_scenes: the scene did not come about\n");
        std::_Exit(1);
    });
    const auto finish = [&out] {
        const bool saved = shootScreen(out);
        std::fflush(stdout);
        // The picture is taken; closing would ask about the changed document.
        std::_Exit(saved ? 0 : 1);
    };

    if (scene == QStringLiteral("playing")) {
        QTimer::singleShot(1500, [window] {
            QKeyEvent space(QEvent::KeyPress, Qt::Key_Space, Qt::NoModifier, QStringLiteral(" "));
            QCoreApplication::sendEvent(window, &space);
        });
        QTimer::singleShot(5000, finish);
    } else if (scene == QStringLiteral("export")) {
        QTimer::singleShot(1500, [window] { window->perform(tesk::WindowCommand::ExportSong); });
        auto* watch = new QTimer(&application);
        QObject::connect(watch, &QTimer::timeout, [window, finish] {
            const QProgressDialog* progress = window->exportProgressDialog();
            if (progress && progress->isVisible() &&
                progress->value() - progress->minimum() >=
                    (progress->maximum() - progress->minimum()) / 5)
                finish();
        });
        watch->start(20);
    } else {
        std::fprintf(stderr, "tesk_window_scenes: no scene %s\n", argv[1]);
        return 1;
    }
    return application.exec();
}
