#include "support/GeneratedSong.h"

#include <QProcess>
#include <QTemporaryDir>
#include <map>

namespace tesk::bench {

QString generatedSongFile(int seconds) {
    static QTemporaryDir folder;
    static std::map<int, QString> made;
    if (const auto found = made.find(seconds); found != made.end())
        return found->second;
    const QString path = folder.filePath(QStringLiteral("song-%1s.mp3").arg(seconds));
    const QString duration = QString::number(seconds);
    const int status = QProcess::execute(
        QStringLiteral("ffmpeg"),
        {"-nostdin",
         "-y",
         "-v",
         "error",
         "-f",
         "lavfi",
         "-i",
         "sine=frequency=220:sample_rate=44100:duration=" + duration,
         "-f",
         "lavfi",
         "-i",
         "sine=frequency=330:sample_rate=44100:duration=" + duration,
         "-f",
         "lavfi",
         "-i",
         "anoisesrc=color=pink:amplitude=0.1:sample_rate=44100:duration=" + duration,
         "-filter_complex",
         "[0][2]amix=inputs=2[l];[1][2]amix=inputs=2[r];[l][r]amerge=inputs=2",
         "-c:a",
         "libmp3lame",
         "-b:a",
         "192k",
         path});
    made[seconds] = status == 0 ? path : QString();
    return made[seconds];
}

} // namespace tesk::bench
