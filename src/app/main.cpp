#include "app/SingleInstance.h"
#include "app/TeskAppController.h"
#include "app/TeskApplication.h"
#include "audio/ProcessingChainPool.h"

#include <QCommandLineParser>
#include <cstdio>
#include <cstring>

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

/// Help and version need no display, so they are answered before the window system starts.
bool asksOnlyForInformation(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        for (const char* option : {"-h", "--help", "--help-all", "-v", "--version"})
            if (std::strcmp(argv[i], option) == 0)
                return true;
    }
    return false;
}
} // namespace

int main(int argc, char** argv) {
    if (asksOnlyForInformation(argc, argv)) {
        QCoreApplication core(argc, argv);
        tesk::TeskApplication::configureIdentity();
        QCommandLineParser parser;
        describeOptions(parser);
        parser.process(core); // prints and exits 0
        return 0;
    }

    tesk::TeskApplication application(argc, argv);
    QCommandLineParser parser;
    describeOptions(parser);
    parser.process(application);
    const QStringList files = parser.positionalArguments();

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
    controller.acceptHandOvers(instance);
    controller.openFiles(files);
    return application.exec();
}
