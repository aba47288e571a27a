#include "audio/SongMetadataReader.h"

#include "audio/FfmpegSetup.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/dict.h>
}

#include <QFile>
#include <QStringDecoder>

#include <initializer_list>
#include <memory>

namespace tesk {
namespace {

struct InputCloser {
    void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
};

/// Text in Windows' own 8-bit encoding (Windows-1252): Latin-1, except for the typographic
/// marks it puts at 0x80 to 0x9F (’ “ ” – … €), where Latin-1 has invisible control codes.
QString fromWindows1252(const char* bytes) {
    static constexpr char16_t kHigh[32] = {
        0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
        0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
        0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};
    QString text = QString::fromLatin1(bytes);
    for (QChar& character : text) {
        if (character.unicode() >= 0x80 && character.unicode() <= 0x9F)
            character = QChar(kHigh[character.unicode() - 0x80]);
    }
    return text;
}

/// Tag text. FFmpeg hands over UTF-8, except where a WAV or AIFF file holds its text as it was
/// written: older Windows software wrote its 8-bit encoding there, which is not valid UTF-8.
QString tagText(const char* bytes) {
    // Stateless: a title ending in "é" (one byte that could begin a longer UTF-8 sequence) is an
    // error, not a sequence waiting for more.
    QStringDecoder utf8(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    const QString text = utf8.decode(QByteArrayView(bytes));
    return utf8.hasError() ? fromWindows1252(bytes) : text;
}

/// The first value of `key` (case-insensitive, as FFmpeg normalises tag names only partly)
/// among `dictionaries`, in order, that is more than blanks. It is shown on one line: line breaks
/// and runs of blanks read as one space.
QString firstTag(std::initializer_list<const AVDictionary*> dictionaries, const char* key) {
    for (const AVDictionary* dictionary : dictionaries) {
        const AVDictionaryEntry* entry = av_dict_get(dictionary, key, nullptr, 0);
        if (!entry || !entry->value)
            continue;
        if (const QString text = tagText(entry->value).simplified(); !text.isEmpty())
            return text;
    }
    return {};
}

QString mimeTypeFor(AVCodecID codec) {
    switch (codec) {
    case AV_CODEC_ID_MJPEG:
        return QStringLiteral("image/jpeg");
    case AV_CODEC_ID_PNG:
        return QStringLiteral("image/png");
    case AV_CODEC_ID_BMP:
        return QStringLiteral("image/bmp");
    case AV_CODEC_ID_GIF:
        return QStringLiteral("image/gif");
    case AV_CODEC_ID_TIFF:
        return QStringLiteral("image/tiff");
    case AV_CODEC_ID_WEBP:
        return QStringLiteral("image/webp");
    default:
        return {};
    }
}

/// The song's cover among its attached pictures: the one an ID3 tag marks as the front cover
/// when there are several (booklet scans, artist photos), else the first.
const AVStream* coverStream(const AVFormatContext& context) {
    const AVStream* first = nullptr;
    for (unsigned i = 0; i < context.nb_streams; ++i) {
        const AVStream* stream = context.streams[i];
        if (!(stream->disposition & AV_DISPOSITION_ATTACHED_PIC) || stream->attached_pic.size <= 0)
            continue;
        const AVDictionaryEntry* kind = av_dict_get(stream->metadata, "comment", nullptr, 0);
        if (kind && qstrcmp(kind->value, "Cover (front)") == 0)
            return stream;
        if (!first)
            first = stream;
    }
    return first;
}

} // namespace

std::optional<SongMetadata> readSongMetadata(const QString& path) {
    setUpFfmpeg();
    // "file:" keeps FFmpeg from reading a colon in the path as the name of a protocol.
    const QByteArray url = "file:" + QFile::encodeName(path);
    AVFormatContext* opened = nullptr;
    if (avformat_open_input(&opened, url.constData(), nullptr, nullptr) < 0)
        return std::nullopt;
    const std::unique_ptr<AVFormatContext, InputCloser> context(opened);

    // Stream information isn't probed: the tags and pictures are in the header, and probing
    // would decode part of the song. So the sound stream is the first one that says it is
    // audio (av_find_best_stream would want its rate and channels, which only probing gives
    // for an MP3).
    const AVStream* sound = nullptr;
    for (unsigned i = 0; i < context->nb_streams && !sound; ++i) {
        if (context->streams[i]->codecpar->codec_type == AVMEDIA_TYPE_AUDIO)
            sound = context->streams[i];
    }
    if (!sound)
        return std::nullopt;
    // Ogg keeps its comments on the stream, most other containers on the file.
    const AVDictionary* containerTags = context->metadata;
    const AVDictionary* streamTags = sound->metadata;

    SongMetadata metadata;
    metadata.title = firstTag({containerTags, streamTags}, "title");
    metadata.artist = firstTag({containerTags, streamTags}, "artist");
    metadata.album = firstTag({containerTags, streamTags}, "album");
    if (const AVStream* cover = coverStream(*context)) {
        metadata.coverImage = QByteArray(reinterpret_cast<const char*>(cover->attached_pic.data),
                                         cover->attached_pic.size);
        metadata.coverMimeType = mimeTypeFor(cover->codecpar->codec_id);
    }
    return metadata;
}

} // namespace tesk
