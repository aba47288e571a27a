// Opens a song and plays it headless into the silent device for a while, then prints the
// process's peak resident memory: what Tesk's engine costs in memory for that song.
// Usage: tesk_memory_probe SONG SECONDS
#include "audio/TeskExtendedAudioFile.h"
#include "audio/TeskExtendedAudioFilePlayer.h"

#include <QCoreApplication>
#include <QFile>
#include <QTimer>
#include <cstdio>

namespace {

/// This process's own peak resident memory. Not getrusage's ru_maxrss: across exec it keeps the
/// peak of the process that forked us (the benchmark, with all it has done before), which is
/// not ours to count.
long peakResidentKilobytes() {
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly | QIODevice::Text))
        return -1;
    // Read whole: a /proc file reports no size, so QFile::atEnd() holds from the start.
    for (const QByteArray& line : status.readAll().split('\n')) {
        if (line.startsWith("VmHWM:"))
            return line.mid(6).trimmed().split(' ').first().toLong();
    }
    return -1;
}

} // namespace

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

    std::printf("peak_rss_kb %ld\ndecoded_frames %lld\n", peakResidentKilobytes(),
                static_cast<long long>(song->decodedFrameCount()));
    return 0;
}
