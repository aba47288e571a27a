// Opens a song and plays it headless into the silent device for a while, then prints the
// process's peak resident memory: what Tesk's engine costs in memory for that song.
// Usage: tesk_memory_probe SONG SECONDS
#include "audio/TeskExtendedAudioFile.h"
#include "audio/TeskExtendedAudioFilePlayer.h"

#include <QCoreApplication>
#include <QTimer>
#include <cstdio>
#include <sys/resource.h>

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    if (argc < 3) {
        std::fprintf(stderr, "usage: tesk_memory_probe SONG SECONDS\n");
        return 1;
    }
    std::optional<tesk::TeskError> error;
    std::shared_ptr<tesk::TeskExtendedAudioFile> song =
        tesk::TeskExtendedAudioFile::openForPlayback(QString::fromLocal8Bit(argv[1]), &error);
    if (!song) {
        std::fprintf(stderr, "%s\n", qPrintable(error ? error->description() : QString()));
        return 2;
    }
    tesk::TeskExtendedAudioFilePlayer player(song, false);
    player.outputAudioUnit()->useSilentDevice();
    player.setEqualizerEnabled(true);
    player.setVocalRemoval(true);
    player.setPlaybackSpeed(0.75f);
    player.startFilePlaying();
    QTimer::singleShot(std::atoi(argv[2]) * 1000, &application, &QCoreApplication::quit);
    application.exec();
    player.stopFilePlaying();

    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    std::printf("peak_rss_kb %ld\ndecoded_frames %lld\n", usage.ru_maxrss,
                static_cast<long long>(song->decodedFrameCount()));
    return 0;
}
