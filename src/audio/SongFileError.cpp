#include "audio/SongFileError.h"

#include <QCoreApplication>
#include <QFileInfo>

namespace tesk {
namespace {

QString tr(const char* text) {
    return QCoreApplication::translate("SongFileError", text);
}

struct Wording {
    QString description;
    QString suggestion;
};

Wording wordingFor(SongFileErrorCode code) {
    switch (code) {
    case SongFileErrorCode::NotFound:
        return {tr("The file “%1” couldn’t be opened because there is no such file."),
                tr("Check that the file hasn’t been moved, renamed or deleted.")};
    case SongFileErrorCode::NotReadable:
        return {tr("The file “%1” couldn’t be opened because it can’t be read."),
                tr("Check that you have permission to read the file and that it is a file, "
                   "not a folder.")};
    case SongFileErrorCode::Empty:
        return {tr("The file “%1” couldn’t be opened because it is empty."),
                tr("The file holds no data at all; it may not have been copied completely.")};
    case SongFileErrorCode::NotAudio:
        return {tr("The file “%1” couldn’t be opened because it isn’t a sound file Tesk can "
                   "read."),
                tr("Tesk opens sound files such as MP3, AAC (M4A), WAV and AIFF.")};
    case SongFileErrorCode::NoAudioStream:
        return {tr("The file “%1” couldn’t be opened because it contains no sound."),
                tr("The file holds no sound track; it may be a picture, video or text file.")};
    case SongFileErrorCode::NoSound:
        return {tr("The file “%1” couldn’t be opened because its sound track is empty."),
                tr("The sound track of the file holds no sound at all.")};
    case SongFileErrorCode::UnsupportedCodec:
        return {tr("The file “%1” couldn’t be opened because its sound is in a format Tesk "
                   "can’t decode."),
                tr("Convert the file to a common format such as MP3, AAC or WAV.")};
    case SongFileErrorCode::Damaged:
        return {tr("The file “%1” is damaged or incomplete."),
                tr("Tesk plays the part of the song that could be read.")};
    case SongFileErrorCode::Unopenable:
        return {tr("The file “%1” couldn’t be opened because it is damaged or incomplete."),
                tr("Its sound can’t be found in it. If it was downloaded or copied, do that "
                   "again.")};
    case SongFileErrorCode::CacheUnavailable:
        return {tr("The file “%1” couldn’t be decoded because there is no room for its sound "
                   "on the disk."),
                tr("Free some space on the disk that holds your cache folder.")};
    }
    return {tr("The file “%1” couldn’t be opened."), {}};
}

} // namespace

TeskError songFileError(SongFileErrorCode code, const QString& path, const QString& detail) {
    const Wording wording = wordingFor(code);
    QVariantMap userInfo{
        {LocalizedDescriptionKey, wording.description.arg(QFileInfo(path).fileName())},
        {LocalizedRecoverySuggestionKey, wording.suggestion},
        {SongFilePathKey, path},
    };
    if (!detail.isEmpty())
        userInfo.insert(SongFileDetailKey, detail);
    return TeskError(SongFileErrorDomain, static_cast<qint64>(code), userInfo);
}

} // namespace tesk
