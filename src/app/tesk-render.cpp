// tesk-render: Tesk's engine without a window. Exports a song with the player's settings into
// AIFF or M4A, plays it through the sound device, or says what Tesk reads from it.
#include "app/RenderCommand.h"
#include "app/RenderOptions.h"

#include <QCoreApplication>
#include <cstdio>

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("tesk-render"));
    QCoreApplication::setApplicationVersion(QStringLiteral(TESK_VERSION));

    const tesk::RenderCommandLine commandLine =
        tesk::parseRenderCommandLine(QCoreApplication::arguments());
    switch (commandLine.action) {
    case tesk::RenderCommandLine::Action::ShowHelp:
        return tesk::printToStandardOutput(commandLine.text) ? tesk::kRenderDone
                                                             : tesk::kRenderOutputUnwritable;
    case tesk::RenderCommandLine::Action::BadUsage:
        std::fprintf(stderr, "tesk-render: %s (see tesk-render --help)\n",
                     commandLine.text.toLocal8Bit().constData());
        return tesk::kRenderBadUsage;
    case tesk::RenderCommandLine::Action::Run:
        break;
    }

    tesk::RenderCommand::installInterruptHandlers();
    tesk::RenderCommand command(commandLine.options);
    return command.exec();
}
