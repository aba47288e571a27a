#include "app/SingleInstance.h"
#include "app/TerminationSignals.h"
#include "app/TeskAppController.h"
#include "app/TeskApplication.h"
#include "audio/ProcessingChainPool.h"
#include "document/SongTypes.h"
#include "document/TeskDocumentController.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QFileInfo>
#include <QUrl>
#include <cstdio>
#include <cstring>
#include <optional>

namespace {
void describeOptions(QCommandLineParser& parser) {
    parser.setApplicationDescription(QStringLiteral(
        "Tesk plays a song slower or faster without changing its pitch, or shifted in pitch "
        "without changing its speed, to hear and learn the notes."));
    parser.addHelpOption();
    parser.addVersionOption();
    parser.addPositionalArgument(QStringLiteral("FILE"),
                                 QStringLiteral("Songs (MP3, M4A, AIFF, WAV) or practice "
                                                "documents (.tesk) to open."),
                                 QStringLiteral("[FILE...]"));
}

bool givesOptions(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--") == 0)
            return false; // what follows are files, whatever their names
        if (argv[i][0] == '-' && argv[i][1] != '\0')
            return true;
    }
    return false;
}

/// The window system's own options ("-platform wayland", "-session" from a session manager),
/// which the application takes out of the arguments as it starts.
bool isWindowSystemOption(const QString& name) {
    static const QStringList names{"platform",
                                   "platformpluginpath",
                                   "platformtheme",
                                   "plugin",
                                   "qwindowgeometry",
                                   "geometry",
                                   "qwindowicon",
                                   "icon",
                                   "qwindowtitle",
                                   "title",
                                   "display",
                                   "name",
                                   "reverse",
                                   "session",
                                   "style",
                                   "stylesheet",
                                   "widgetcount",
                                   "qmljsdebugger",
                                   "nograb",
                                   "dograb",
                                   "testability",
                                   "sync",
                                   "visual",
                                   "fn",
                                   "font",
                                   "bg",
                                   "background",
                                   "fg",
                                   "foreground",
                                   "btn",
                                   "button",
                                   "im",
                                   "inputstyle",
                                   "cmap",
                                   "ncols"};
    return names.contains(name);
}

/// Options need no display: help and version are answered, and an option neither Tesk's nor
/// the window system's refused, before the window system starts (without a display, starting
/// it would abort). Returns the exit code, or nothing to go on and start.
std::optional<int> answerOptionsWithoutADisplay(int argc, char** argv) {
    QCoreApplication core(argc, argv);
    tesk::TeskApplication::configureIdentity();
    QCommandLineParser parser;
    // As the window system reads its own: "-platform" is one option, not eight letters.
    parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsLongOptions);
    describeOptions(parser);
    parser.parse(core.arguments());
    if (parser.isSet(QStringLiteral("help")))
        parser.showHelp(0);
    if (parser.isSet(QStringLiteral("version")))
        parser.showVersion();
    for (const QString& name : parser.unknownOptionNames()) {
        if (!isWindowSystemOption(name)) {
            std::fprintf(stderr, "tesk: Unknown option '%s'.\n", qPrintable(name));
            return 1;
        }
    }
    return std::nullopt;
}
/// Files that cannot be opened are said on the terminal they were named on: a window says
/// nothing of a file that is no song, as of a drop of one.
void reportFilesThatWillNotOpen(const QStringList& files) {
    for (const QString& path : files) {
        const QFileInfo file(path);
        QString problem;
        if (!file.exists()) {
            problem = QStringLiteral("there is no such file");
        } else if (!file.isFile() || !file.isReadable()) {
            problem = QStringLiteral("it cannot be read");
        } else if (file.size() == 0) {
            problem = QStringLiteral("it is empty");
        } else if (!tesk::TeskDocumentController::canOpenFile(
                       QUrl::fromLocalFile(file.absoluteFilePath()))) {
            const QString kind = tesk::unopenedSoundKind(path);
            problem = !kind.isEmpty()
                          ? QStringLiteral("it holds %1, which Tesk does not open").arg(kind)
                      : tesk::isNamedAsSong(path)
                          ? QStringLiteral("it is named as a song Tesk opens, but what it holds "
                                           "is not a song")
                          : QStringLiteral("it is not a song or a practice document that Tesk "
                                           "opens");
        }
        if (!problem.isEmpty())
            std::fprintf(stderr, "tesk: cannot open \"%s\": %s\n", qPrintable(path),
                         qPrintable(problem));
    }
}
} // namespace

int main(int argc, char** argv) {
    if (givesOptions(argc, argv)) {
        if (const std::optional<int> exitCode = answerOptionsWithoutADisplay(argc, argv))
            return *exitCode;
    }

    tesk::TeskApplication application(argc, argv);
    QCommandLineParser parser;
    describeOptions(parser);
    parser.process(application);
    const QStringList files = parser.positionalArguments();
    reportFilesThatWillNotOpen(files);

    tesk::SingleInstance instance;
    if (!instance.claim()) {
        // Tesk runs already: it opens the files and comes forward.
        if (instance.handOver(files))
            return 0;
        std::fprintf(stderr, "tesk: the running Tesk did not take the files\n");
        return 1;
    }

    tesk::TeskAppController::countLaunch();
    // The first song should not wait for its processing chain to be built.
    tesk::ProcessingChainPool::prepare();
    tesk::TeskAppController controller;
    tesk::TerminationSignals termination;
    QObject::connect(&termination, &tesk::TerminationSignals::terminationRequested, &controller,
                     &tesk::TeskAppController::endKeepingUnsavedPractice);
    // Told to end while the start's offer was up, Tesk ends before its main loop: a loop that
    // starts forgets an end asked of the loops before it.
    bool ended = false;
    QObject::connect(&controller, &tesk::TeskAppController::readyToEnd, &application, [&ended] {
        ended = true;
        QApplication::exit(0);
    });
    controller.acceptHandOvers(instance);
    controller.offerUnsavedPractice();
    if (ended)
        return 0;
    controller.openFiles(files);
    return application.exec();
}
