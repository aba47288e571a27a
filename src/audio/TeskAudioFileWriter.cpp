#include "audio/TeskAudioFileWriter.h"

#include "audio/FfmpegSetup.h"

#include "audio/dsp/VectorUnit.h"
#include "diagnostics/TeskAssert.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/audio_fifo.h>
#include <libavutil/channel_layout.h>
#include <libavutil/dict.h>
#include <libavutil/error.h>
}

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <utility>

namespace tesk {
namespace {

QString tr(const char* text) {
    return QCoreApplication::translate("TeskAudioFileWriter", text);
}

/// A full disk deserves its own words: it is the one failure the user can fix on the spot.
AudioExportErrorCode codeFor(int status, AudioExportErrorCode otherwise) {
    if (status == AVERROR(ENOSPC) || status == AVERROR(EDQUOT))
        return AudioExportErrorCode::DiskFull;
    return otherwise;
}

/// Rounds to the nearest 16-bit step and clips. No dither: exact rounding keeps an export
/// repeatable bit for bit, and the error it leaves is 96 dB down, below anything a practice
/// recording holds.
std::int16_t toInt16(float sample) {
    const float scaled = sample * 32768.0f;
    if (scaled >= 32767.0f)
        return 32767;
    if (scaled <= -32768.0f)
        return -32768;
    if (std::isnan(scaled))
        return 0;
    return static_cast<std::int16_t>(std::lrintf(scaled));
}

/// The picture's codec, judged by its bytes rather than by a MIME type a tag may have got
/// wrong. Only JPEG and PNG: the MP4 cover atom takes nothing else that songs carry.
AVCodecID coverCodec(const QByteArray& image) {
    if (image.startsWith("\xFF\xD8\xFF"))
        return AV_CODEC_ID_MJPEG;
    if (image.startsWith("\x89PNG\r\n\x1A\n"))
        return AV_CODEC_ID_PNG;
    return AV_CODEC_ID_NONE;
}

struct PictureSize {
    int width = 0;
    int height = 0;
};

/// The picture's size, found by decoding it: muxers want the dimensions of every picture
/// stream, and a picture that doesn't decode is better left out than attached.
std::optional<PictureSize> decodedSize(AVCodecID codecId, const QByteArray& image) {
    const AVCodec* codec = avcodec_find_decoder(codecId);
    AVCodecContext* decoder = codec ? avcodec_alloc_context3(codec) : nullptr;
    AVPacket* packet = av_packet_alloc();
    AVFrame* frame = av_frame_alloc();
    std::optional<PictureSize> size;
    if (decoder && packet && frame && avcodec_open2(decoder, codec, nullptr) >= 0 &&
        av_new_packet(packet, int(image.size())) >= 0) {
        std::memcpy(packet->data, image.constData(), std::size_t(image.size()));
        if (avcodec_send_packet(decoder, packet) >= 0) {
            int status = avcodec_receive_frame(decoder, frame);
            if (status == AVERROR(EAGAIN) && avcodec_send_packet(decoder, nullptr) >= 0)
                status = avcodec_receive_frame(decoder, frame);
            if (status >= 0 && frame->width > 0 && frame->height > 0)
                size = PictureSize{frame->width, frame->height};
        }
    }
    av_frame_free(&frame);
    av_packet_free(&packet);
    avcodec_free_context(&decoder);
    return size;
}

} // namespace

TeskError audioExportError(AudioExportErrorCode code, const QString& path, const QString& detail) {
    QString description;
    QString suggestion;
    switch (code) {
    case AudioExportErrorCode::CannotCreate:
        description = tr("The file “%1” couldn’t be created.");
        suggestion = tr("Check that the folder still exists and that you have permission to "
                        "write in it.");
        break;
    case AudioExportErrorCode::CannotWrite:
        description = tr("The file “%1” couldn’t be written.");
        suggestion = tr("Check that the disk is still connected, then export again.");
        break;
    case AudioExportErrorCode::DiskFull:
        description = tr("The file “%1” couldn’t be written because the disk is full.");
        suggestion = tr("Free some space on the disk, or export to another disk.");
        break;
    case AudioExportErrorCode::EncodingFailed:
        description = tr("The sound couldn’t be encoded into the file “%1”.");
        suggestion = tr("Export again, or export to the other format.");
        break;
    case AudioExportErrorCode::NothingWritten:
        description = tr("Nothing was exported to the file “%1” because there is no sound to "
                         "write.");
        suggestion = tr("Choose a longer part of the song and export again.");
        break;
    case AudioExportErrorCode::Cancelled:
        description = tr("The export to the file “%1” was cancelled.");
        break;
    }
    QVariantMap userInfo{
        {LocalizedDescriptionKey, description.arg(QFileInfo(path).fileName())},
        {AudioExportPathKey, path},
    };
    if (!suggestion.isEmpty())
        userInfo.insert(LocalizedRecoverySuggestionKey, suggestion);
    if (!detail.isEmpty())
        userInfo.insert(AudioExportDetailKey, detail);
    return TeskError(AudioExportErrorDomain, static_cast<qint64>(code), userInfo);
}

std::optional<ExportFormat> TeskAudioFileWriter::formatForExtension(const QString& extension) {
    if (extension == QLatin1String("aif"))
        return ExportFormat::Aiff;
    if (extension == QLatin1String("m4a"))
        return ExportFormat::M4a;
    return std::nullopt;
}

TeskAudioFileWriter::TeskAudioFileWriter(const QString& path, ExportFormat format)
    : mPath(path)
    , mFormat(format) {}

std::unique_ptr<TeskAudioFileWriter> TeskAudioFileWriter::create(const QString& path,
                                                                 ExportFormat format,
                                                                 const SongMetadata& metadata,
                                                                 std::optional<TeskError>* error) {
    setUpFfmpeg();
    std::unique_ptr<TeskAudioFileWriter> writer(new TeskAudioFileWriter(path, format));
    if (std::optional<TeskError> failure = writer->open(metadata)) {
        if (error)
            *error = std::move(failure);
        return nullptr; // the destructor deletes what was created
    }
    writer->mThread = std::thread([writer = writer.get()] { writer->run(); });
    return writer;
}

TeskAudioFileWriter::~TeskAudioFileWriter() {
    cancel();
    av_audio_fifo_free(mFifo);
    av_packet_free(&mPacket);
    av_frame_free(&mFrame);
    avcodec_free_context(&mEncoder);
    avformat_free_context(mOutput);
}

std::optional<TeskError> TeskAudioFileWriter::open(const SongMetadata& metadata) {
    using enum AudioExportErrorCode;
    const bool aiff = mFormat == ExportFormat::Aiff;
    // "file:" keeps FFmpeg from reading a colon in the path as the name of a protocol.
    const QByteArray url = "file:" + QFile::encodeName(mPath);

    // "ipod" rather than "mp4": the same MPEG-4 file, but branded "M4A " as music libraries
    // expect of an .m4a, with the iTunes-style tags and cover.
    int status =
        avformat_alloc_output_context2(&mOutput, nullptr, aiff ? "aiff" : "ipod", url.constData());
    if (status < 0)
        return failure(EncodingFailed, status);
    const AVCodec* codec =
        aiff ? avcodec_find_encoder(AV_CODEC_ID_PCM_S16BE) : avcodec_find_encoder_by_name("aac");
    if (!codec)
        return failure(EncodingFailed, AVERROR_ENCODER_NOT_FOUND);
    mEncoder = avcodec_alloc_context3(codec);
    mFrame = av_frame_alloc();
    mPacket = av_packet_alloc();
    if (!mEncoder || !mFrame || !mPacket)
        return failure(EncodingFailed, AVERROR(ENOMEM));
    mEncoder->sample_rate = kSampleRate;
    mEncoder->sample_fmt = aiff ? AV_SAMPLE_FMT_S16 : AV_SAMPLE_FMT_FLTP;
    av_channel_layout_default(&mEncoder->ch_layout, kChannelCount);
    mEncoder->time_base = AVRational{1, kSampleRate};
    if (mOutput->oformat->flags & AVFMT_GLOBALHEADER)
        mEncoder->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    if ((status = avcodec_open2(mEncoder, codec, nullptr)) < 0)
        return failure(EncodingFailed, status);

    mAudioStream = avformat_new_stream(mOutput, nullptr);
    if (!mAudioStream)
        return failure(EncodingFailed, AVERROR(ENOMEM));
    if ((status = avcodec_parameters_from_context(mAudioStream->codecpar, mEncoder)) < 0)
        return failure(EncodingFailed, status);
    mAudioStream->time_base = mEncoder->time_base;

    const std::pair<const char*, const QString*> tags[] = {
        {"title", &metadata.title}, {"artist", &metadata.artist}, {"album", &metadata.album}};
    for (const auto& [key, value] : tags) {
        if (!value->isEmpty())
            av_dict_set(&mOutput->metadata, key, value->toUtf8().constData(), 0);
    }
    AVStream* coverStream = nullptr;
    const AVCodecID coverCodecId = coverCodec(metadata.coverImage);
    if (const std::optional<PictureSize> coverSize =
            coverCodecId == AV_CODEC_ID_NONE ? std::nullopt
                                             : decodedSize(coverCodecId, metadata.coverImage)) {
        coverStream = avformat_new_stream(mOutput, nullptr);
        if (!coverStream)
            return failure(EncodingFailed, AVERROR(ENOMEM));
        coverStream->codecpar->codec_type = AVMEDIA_TYPE_VIDEO;
        coverStream->codecpar->codec_id = coverCodecId;
        coverStream->codecpar->width = coverSize->width;
        coverStream->codecpar->height = coverSize->height;
        coverStream->disposition = AV_DISPOSITION_ATTACHED_PIC;
        coverStream->time_base = AVRational{1, 90000};
    }

    // Every buffer the export needs, made now so that write() never allocates.
    mSlices.resize(kSliceCount);
    for (Slice& slice : mSlices) {
        slice.left.resize(kSliceFrames);
        slice.right.resize(kSliceFrames);
    }
    mFrame->format = mEncoder->sample_fmt;
    mFrame->sample_rate = kSampleRate;
    mFrame->nb_samples = aiff ? int(kSliceFrames) : mEncoder->frame_size;
    if ((status = av_channel_layout_copy(&mFrame->ch_layout, &mEncoder->ch_layout)) < 0 ||
        (status = av_frame_get_buffer(mFrame, 0)) < 0)
        return failure(EncodingFailed, status);
    if (!aiff) {
        // AAC takes exactly frame_size samples a frame (1024); the FIFO regroups the slices.
        mFifo = av_audio_fifo_alloc(mEncoder->sample_fmt, kChannelCount,
                                    int(kSliceFrames) + mEncoder->frame_size);
        if (!mFifo)
            return failure(EncodingFailed, AVERROR(ENOMEM));
    }

    if ((status = avio_open(&mOutput->pb, url.constData(), AVIO_FLAG_WRITE)) < 0)
        return failure(codeFor(status, CannotCreate), status);
    mFileCreated = true;

    AVDictionary* options = nullptr;
    if (aiff) {
        // Without it the AIFF muxer keeps only the title (a NAME chunk): no artist, album or
        // cover.
        av_dict_set(&options, "write_id3v2", "1", 0);
    } else {
        // The edit list records the encoder's delay and the song's exact end, but in the
        // movie's time scale: the default (1000) would round the end to a millisecond.
        av_dict_set(&options, "movie_timescale", "44100", 0);
    }
    status = avformat_write_header(mOutput, &options);
    av_dict_free(&options);
    if (status < 0)
        return failure(codeFor(status, CannotWrite), status);

    if (coverStream) {
        if ((status = av_new_packet(mPacket, int(metadata.coverImage.size()))) < 0)
            return failure(EncodingFailed, status);
        std::memcpy(mPacket->data, metadata.coverImage.constData(),
                    std::size_t(metadata.coverImage.size()));
        mPacket->stream_index = coverStream->index;
        mPacket->flags |= AV_PKT_FLAG_KEY;
        mPacket->pts = mPacket->dts = 0;
        status = av_write_frame(mOutput, mPacket);
        av_packet_unref(mPacket);
        if (status < 0)
            return failure(codeFor(status, CannotWrite), status);
    }
    return std::nullopt;
}

bool TeskAudioFileWriter::write(const float* left, const float* right, std::uint32_t frameCount,
                                std::optional<TeskError>* error) {
    TESK_PARAMETER_ASSERT(frameCount == 0 || (left && right));
    std::uint32_t done = 0;
    std::unique_lock lock(mMutex);
    TESK_PARAMETER_ASSERT(!mFinishing);
    for (;;) {
        if (mFailure || mCancelled) {
            if (error)
                *error = mFailure ? *mFailure : failure(AudioExportErrorCode::Cancelled);
            return false;
        }
        if (done == frameCount)
            break;
        if (mFilledCount == kSliceCount) {
            mSliceFreed.wait(lock);
            continue;
        }
        Slice& slice = mSlices[(mFirstFilled + mFilledCount) % kSliceCount];
        const std::uint32_t frames = std::min(kSliceFrames, frameCount - done);
        lock.unlock();
        std::copy_n(left + done, frames, slice.left.data());
        std::copy_n(right + done, frames, slice.right.data());
        slice.frames = frames;
        done += frames;
        lock.lock();
        ++mFilledCount;
        mSliceFilled.notify_one();
    }
    lock.unlock();
    mFramesWritten.fetch_add(frameCount, std::memory_order_relaxed);
    return true;
}

bool TeskAudioFileWriter::finish(std::optional<TeskError>* error) {
    {
        const std::lock_guard lock(mMutex);
        mFinishing = true;
    }
    mSliceFilled.notify_one();
    const std::lock_guard lifecycle(mLifecycleMutex);
    if (!mEnded)
        end();
    if (mComplete)
        return true;
    if (error) {
        const std::lock_guard lock(mMutex);
        *error = mFailure ? *mFailure : failure(AudioExportErrorCode::Cancelled);
    }
    return false;
}

void TeskAudioFileWriter::cancel() {
    {
        const std::lock_guard lock(mMutex);
        mCancelled = true;
    }
    mSliceFilled.notify_all();
    mSliceFreed.notify_all();
    // Waits for a finish() running on the export thread, which ends quickly once the flag is
    // seen (or has just completed the file, which is then kept).
    const std::lock_guard lifecycle(mLifecycleMutex);
    if (!mEnded)
        end();
}

void TeskAudioFileWriter::end() {
    if (mThread.joinable())
        mThread.join();
    mEnded = true;
    {
        const std::lock_guard lock(mMutex);
        mComplete = mTrailerWritten && !mFailure && !mCancelled;
    }
    if (mOutput && mOutput->pb)
        avio_closep(&mOutput->pb);
    if (mComplete || !mFileCreated)
        return;
    // Only a regular file is ours to delete: an export aimed at a device (/dev/null) leaves
    // it in place.
    const std::filesystem::path path(QFile::encodeName(mPath).toStdString());
    std::error_code ignored;
    if (std::filesystem::is_regular_file(path, ignored))
        std::filesystem::remove(path, ignored);
}

void TeskAudioFileWriter::run() {
    clearVectorUpperState();
    std::unique_lock lock(mMutex);
    for (;;) {
        mSliceFilled.wait(lock, [this] { return mFilledCount > 0 || mFinishing || mCancelled; });
        if (mCancelled)
            return;
        if (mFilledCount == 0) {
            lock.unlock();
            std::optional<TeskError> outcome = complete();
            lock.lock();
            mFailure = std::move(outcome);
            return;
        }
        const Slice& slice = mSlices[mFirstFilled];
        lock.unlock();
        std::optional<TeskError> outcome = encodeSlice(slice);
        lock.lock();
        mFirstFilled = (mFirstFilled + 1) % kSliceCount;
        --mFilledCount;
        if (outcome) {
            // Nothing more will be taken from the queue: a write() waiting for room must
            // wake to report the failure.
            mFailure = std::move(outcome);
            mSliceFreed.notify_all();
            return;
        }
        mSliceFreed.notify_one();
    }
}

std::optional<TeskError> TeskAudioFileWriter::encodeSlice(const Slice& slice) {
    if (mFormat == ExportFormat::M4a) {
        // The FIFO only reads the planes; its signature just lacks the const.
        void* planes[] = {const_cast<float*>(slice.left.data()),
                          const_cast<float*>(slice.right.data())};
        const int status = av_audio_fifo_write(mFifo, planes, int(slice.frames));
        if (status < 0)
            return failure(AudioExportErrorCode::EncodingFailed, status);
        while (av_audio_fifo_size(mFifo) >= mEncoder->frame_size) {
            if (std::optional<TeskError> failed = encodeFromFifo(mEncoder->frame_size))
                return failed;
        }
        return std::nullopt;
    }
    if (const int status = av_frame_make_writable(mFrame); status < 0)
        return failure(AudioExportErrorCode::EncodingFailed, status);
    auto* samples = reinterpret_cast<std::int16_t*>(mFrame->data[0]);
    for (std::uint32_t i = 0; i < slice.frames; ++i) {
        samples[2 * i] = toInt16(slice.left[i]);
        samples[2 * i + 1] = toInt16(slice.right[i]);
    }
    mFrame->nb_samples = int(slice.frames);
    mFrame->pts = mNextPts;
    mNextPts += slice.frames;
    return sendToEncoder(mFrame);
}

std::optional<TeskError> TeskAudioFileWriter::encodeFromFifo(int frameCount) {
    int status = av_frame_make_writable(mFrame);
    if (status >= 0)
        status = av_audio_fifo_read(mFifo, reinterpret_cast<void**>(mFrame->data), frameCount);
    if (status < 0)
        return failure(AudioExportErrorCode::EncodingFailed, status);
    mFrame->nb_samples = frameCount;
    mFrame->pts = mNextPts;
    mNextPts += frameCount;
    return sendToEncoder(mFrame);
}

std::optional<TeskError> TeskAudioFileWriter::sendToEncoder(const AVFrame* frame) {
    int status = avcodec_send_frame(mEncoder, frame);
    if (status < 0)
        return failure(AudioExportErrorCode::EncodingFailed, status);
    for (;;) {
        status = avcodec_receive_packet(mEncoder, mPacket);
        if (status == AVERROR(EAGAIN) || status == AVERROR_EOF)
            return std::nullopt;
        if (status < 0)
            return failure(AudioExportErrorCode::EncodingFailed, status);
        mPacket->stream_index = mAudioStream->index;
        av_packet_rescale_ts(mPacket, mEncoder->time_base, mAudioStream->time_base);
        status = av_write_frame(mOutput, mPacket);
        av_packet_unref(mPacket);
        if (status < 0)
            return failure(codeFor(status, AudioExportErrorCode::CannotWrite), status);
    }
}

std::optional<TeskError> TeskAudioFileWriter::complete() {
    // The last AAC frame may be short; the encoder pads it and the edit list cuts the padding.
    if (mFifo && av_audio_fifo_size(mFifo) > 0) {
        if (std::optional<TeskError> failed = encodeFromFifo(av_audio_fifo_size(mFifo)))
            return failed;
    }
    // An MP4 can't hold a sound track without samples (FFmpeg's muxer leaves it out), and a
    // file without sound would only fail later, when opened as a song.
    if (mNextPts == 0)
        return failure(AudioExportErrorCode::NothingWritten);
    if (std::optional<TeskError> failed = sendToEncoder(nullptr))
        return failed;
    int status = av_write_trailer(mOutput);
    if (status >= 0) {
        // Closing drops buffered bytes' write errors, so they are collected first.
        avio_flush(mOutput->pb);
        status = mOutput->pb->error;
    }
    if (status >= 0)
        status = avio_closep(&mOutput->pb);
    if (status < 0)
        return failure(codeFor(status, AudioExportErrorCode::CannotWrite), status);
    mTrailerWritten = true;
    return std::nullopt;
}

TeskError TeskAudioFileWriter::failure(AudioExportErrorCode code, int status) const {
    QString detail;
    if (status < 0) {
        char message[AV_ERROR_MAX_STRING_SIZE] = {};
        av_strerror(status, message, sizeof message);
        detail = QString::fromLocal8Bit(message);
    }
    return audioExportError(code, mPath, detail);
}

} // namespace tesk
