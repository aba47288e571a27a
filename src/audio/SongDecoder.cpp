#include "audio/SongDecoder.h"

#include "audio/EngineConstants.h"
#include "audio/FfmpegSetup.h"
#include "audio/SongCache.h"
#include "audio/SongFileError.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

namespace tesk {
namespace {

constexpr int kEngineRate = engine::kSampleRate;
/// Frames are written to the cache in batches of at least this many: small enough that the
/// first ones are readable a few milliseconds after opening, large enough to keep system calls
/// rare.
constexpr qint64 kWriteBatchFrames = 4096;
constexpr qint64 kNoLimit = std::numeric_limits<qint64>::max();

/// Sample rates that recordings use, from old game and telephone sound to DSD1024 (which
/// FFmpeg decodes at an eighth of its bit rate, 6,144,000 Hz at most). A rate far outside (a
/// damaged header: 1 Hz, a gigahertz) would make every packet tens of thousands of times
/// larger at the engine's rate, or the resampler's filter gigabytes long.
bool isPlausibleRate(int rate) {
    return rate >= 1'000 && rate <= 6'144'000;
}

QString ffmpegMessage(int code) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof text);
    return QString::fromUtf8(text);
}

qint64 toEngineFrames(qint64 sourceFrames, int sourceRate, AVRounding rounding) {
    if (sourceRate == kEngineRate)
        return sourceFrames;
    return av_rescale_rnd(sourceFrames, kEngineRate, sourceRate, rounding);
}

std::int16_t toInt16(float sample) {
    // A decoder's NaN becomes silence rather than a full-scale click.
    const float scaled = sample == sample ? sample * 32768.0f : 0.0f;
    const float clipped = std::min(std::max(scaled, -32768.0f), 32767.0f);
    return static_cast<std::int16_t>(clipped + (clipped >= 0.0f ? 0.5f : -0.5f));
}

// Every decoded sample passes through the conversion below, so it is done four at a time where
// the processor can: a scalar loop took an eighth of the decoder's time on a long MP3. Each lane
// does exactly what toInt16 does.
#if defined(__SSE2__)
__m128i toInt16Lanes(__m128 samples) {
    __m128 scaled = _mm_mul_ps(samples, _mm_set1_ps(32768.0f));
    scaled = _mm_and_ps(scaled, _mm_cmpord_ps(scaled, scaled)); // NaN to 0
    const __m128 clipped =
        _mm_min_ps(_mm_max_ps(scaled, _mm_set1_ps(-32768.0f)), _mm_set1_ps(32767.0f));
    const __m128 half = _mm_or_ps(_mm_set1_ps(0.5f), _mm_and_ps(clipped, _mm_set1_ps(-0.0f)));
    return _mm_cvttps_epi32(_mm_add_ps(clipped, half)); // rounded half away from zero
}
#endif

/// Converts `count` samples with toInt16.
void toInt16(const float* samples, std::size_t count, std::int16_t* out) {
    std::size_t i = 0;
#if defined(__SSE2__)
    for (; i + 8 <= count; i += 8) {
        const __m128i low = toInt16Lanes(_mm_loadu_ps(samples + i));
        const __m128i high = toInt16Lanes(_mm_loadu_ps(samples + i + 4));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), _mm_packs_epi32(low, high));
    }
#endif
    for (; i < count; ++i)
        out[i] = toInt16(samples[i]);
}

/// Converts `frameCount` frames of two channels (one channel twice for mono) with toInt16,
/// interleaved.
void interleaveToInt16(const float* left, const float* right, std::size_t frameCount,
                       std::int16_t* out) {
    std::size_t i = 0;
#if defined(__SSE2__)
    for (; i + 4 <= frameCount; i += 4) {
        const __m128i l = toInt16Lanes(_mm_loadu_ps(left + i));
        const __m128i r = toInt16Lanes(_mm_loadu_ps(right + i));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 2 * i),
                         _mm_packs_epi32(_mm_unpacklo_epi32(l, r), _mm_unpackhi_epi32(l, r)));
    }
#endif
    for (; i < frameCount; ++i) {
        out[2 * i] = toInt16(left[i]);
        out[2 * i + 1] = toInt16(right[i]);
    }
}

/// The size of an ID3v2 tag at the start of `header` (10 bytes), or 0.
qint64 id3v2TagSize(const unsigned char* header) {
    if (header[0] != 'I' || header[1] != 'D' || header[2] != '3' || header[3] == 0xff ||
        header[4] == 0xff)
        return 0;
    qint64 size = 0;
    for (int i = 6; i < 10; ++i) {
        if (header[i] & 0x80)
            return 0;
        size = (size << 7) | header[i];
    }
    const bool hasFooter = header[5] & 0x10;
    return 10 + size + (hasFooter ? 10 : 0);
}

/// The size a RIFF (WAV) or IFF (AIFF) file gives for itself in its first 12 bytes, or -1.
qint64 declaredFileSize(const unsigned char* header) {
    const auto is = [header](int offset, const char* tag) {
        return std::memcmp(header + offset, tag, 4) == 0;
    };
    std::uint32_t size = 0;
    if (is(0, "RIFF") && is(8, "WAVE"))
        size = std::uint32_t(header[4]) | std::uint32_t(header[5]) << 8 |
               std::uint32_t(header[6]) << 16 | std::uint32_t(header[7]) << 24;
    else if (is(0, "FORM") && (is(8, "AIFF") || is(8, "AIFC")))
        size = std::uint32_t(header[4]) << 24 | std::uint32_t(header[5]) << 16 |
               std::uint32_t(header[6]) << 8 | std::uint32_t(header[7]);
    // Writers that can't seek back to the header leave 0 or all ones.
    if (size == 0 || size == 0xffffffff)
        return -1;
    return qint64(size) + 8;
}

/// The mixing matrix from `channels` source channels to stereo, row by output channel.
std::vector<double> stereoMatrix(const AVChannelLayout& layout) {
    const int channels = layout.nb_channels;
    std::vector<double> matrix(std::size_t(2 * channels), 0.0);
    if (channels == 1) {
        // Mono is doubled at full level, not panned to the centre at -3 dB: the song should
        // sound as loud as it does anywhere else.
        matrix[0] = matrix[1] = 1.0;
        return matrix;
    }
    if (channels == 2) {
        matrix[0] = matrix[3] = 1.0;
        return matrix;
    }
    const AVChannelLayout stereo = AV_CHANNEL_LAYOUT_STEREO;
    // The usual downmix, but keeping the LFE channel: in a practice player a bass part that
    // only lives there would otherwise vanish. A maximum of 1 scales the matrix so no sum of
    // full-scale channels can clip. The builder scales all 64 × 64 entries whatever the
    // stride, so it gets a full-size matrix to write into.
    constexpr int kMaxChannels = 64;
    std::vector<double> full(kMaxChannels * kMaxChannels, 0.0);
    if (channels <= kMaxChannels &&
        swr_build_matrix2(&layout, &stereo, M_SQRT1_2, M_SQRT1_2, M_SQRT1_2, 1.0, 1.0, full.data(),
                          kMaxChannels, AV_MATRIX_ENCODING_NONE, nullptr) == 0) {
        for (int output = 0; output < 2; ++output) {
            for (int input = 0; input < channels; ++input)
                matrix[std::size_t(output * channels + input)] =
                    full[std::size_t(output * kMaxChannels + input)];
        }
        return matrix;
    }
    // Channels without known positions: alternate them between the sides, equally loud.
    std::fill(matrix.begin(), matrix.end(), 0.0);
    const double gain = 1.0 / ((channels + 1) / 2);
    for (int channel = 0; channel < channels; ++channel)
        matrix[std::size_t((channel % 2) * channels + channel)] = gain;
    return matrix;
}

} // namespace

std::unique_ptr<SongDecoder> SongDecoder::open(const QString& path,
                                               std::optional<TeskError>* error) {
    std::unique_ptr<SongDecoder> decoder(new SongDecoder);
    std::optional<TeskError> failure;
    if (!decoder->openFile(path, &failure)) {
        if (error)
            *error = std::move(failure);
        return nullptr;
    }
    return decoder;
}

SongDecoder::~SongDecoder() {
    swr_free(&mSegment.converter);
    av_frame_free(&mFrame);
    av_packet_free(&mPacket);
    avcodec_free_context(&mCodec);
    avformat_close_input(&mFormat);
    // The format context doesn't own an I/O context it was given.
    avio_closep(&mIO);
}

int SongDecoder::interrupted(void* opaque) {
    const auto* decoder = static_cast<const SongDecoder*>(opaque);
    return decoder->mStop && decoder->mStop->load(std::memory_order_relaxed) ? 1 : 0;
}

bool SongDecoder::openFile(const QString& path, std::optional<TeskError>* error) {
    setUpFfmpeg();
    mPath = path;
    const auto fail = [&](SongFileErrorCode code, const QString& detail = {}) {
        *error = songFileError(code, path, detail);
        return false;
    };

    const QFileInfo file(path);
    if (!file.exists())
        return fail(SongFileErrorCode::NotFound);
    // A device or a pipe is no song either: it has no size to tell it by, and reading one may
    // never end.
    if (!file.isFile() || !file.isReadable())
        return fail(SongFileErrorCode::NotReadable);
    if (file.size() == 0)
        return fail(SongFileErrorCode::Empty);

    // "file:" keeps FFmpeg from reading a colon in the path as the name of a protocol.
    const QByteArray url = "file:" + QFile::encodeName(path);
    const AVIOInterruptCB interrupt{&SongDecoder::interrupted, this};
    int status = avio_open2(&mIO, url.constData(), AVIO_FLAG_READ, &interrupt, nullptr);
    if (status < 0)
        return fail(SongFileErrorCode::NotReadable, ffmpegMessage(status));

    // The format is recognised from the content alone: FFmpeg also scores the file's
    // extension, which would make it try a text file called "x.mp3" as MP3. An ID3 tag is
    // skipped first, since a large cover picture can push the sound past the probe's reach.
    // The probe reads through an I/O context of its own: FFmpeg's probe assumes it read from
    // the start of the file and would leave a context that had seeked in a muddle.
    unsigned char header[12] = {};
    const bool hasHeader = avio_read(mIO, header, sizeof header) == sizeof header;
    const qint64 tagSize = hasHeader ? id3v2TagSize(header) : 0;
    // FFmpeg reads a WAV or AIFF cut short (an interrupted copy) without a word; the size its
    // header gives says so.
    if (hasHeader && declaredFileSize(header) > file.size())
        mMissingBytes = declaredFileSize(header) - file.size();
    if (avio_seek(mIO, 0, SEEK_SET) < 0)
        return fail(SongFileErrorCode::NotReadable);
    const AVInputFormat* inputFormat = nullptr;
    AVIOContext* probe = nullptr;
    status = avio_open2(&probe, url.constData(), AVIO_FLAG_READ, &interrupt, nullptr);
    if (status >= 0 && tagSize > 0 && avio_seek(probe, tagSize, SEEK_SET) < 0)
        status = AVERROR_INVALIDDATA;
    // After a seek the probe can't hand its data back to the context and reports an error,
    // but it has recognised the format by then: the format is what counts.
    if (status >= 0)
        status = av_probe_input_buffer2(probe, &inputFormat, "", nullptr, 0, 0);
    avio_closep(&probe);
    if (!inputFormat)
        return fail(SongFileErrorCode::NotAudio, ffmpegMessage(status));

    mFormat = avformat_alloc_context();
    if (!mFormat)
        return fail(SongFileErrorCode::NotReadable, ffmpegMessage(AVERROR(ENOMEM)));
    mFormat->pb = mIO;
    mFormat->flags |= AVFMT_FLAG_CUSTOM_IO;
    mFormat->interrupt_callback = interrupt;
    status = avformat_open_input(&mFormat, url.constData(), inputFormat, nullptr);
    // Recognised, yet it won't open: a song of a known kind, broken or cut short.
    if (status < 0)
        return fail(SongFileErrorCode::Unopenable, ffmpegMessage(status));
    // Missing details of some stream are no reason to refuse a file whose sound is usable.
    avformat_find_stream_info(mFormat, nullptr);

    const AVCodec* codec = nullptr;
    mStreamIndex = av_find_best_stream(mFormat, AVMEDIA_TYPE_AUDIO, -1, -1, &codec, 0);
    if (mStreamIndex == AVERROR_STREAM_NOT_FOUND)
        return fail(SongFileErrorCode::NoAudioStream);
    if (mStreamIndex < 0 || !codec)
        return fail(SongFileErrorCode::UnsupportedCodec, ffmpegMessage(mStreamIndex));
    for (unsigned i = 0; i < mFormat->nb_streams; ++i) {
        if (int(i) != mStreamIndex)
            mFormat->streams[i]->discard = AVDISCARD_ALL;
    }
    const AVStream* stream = mFormat->streams[mStreamIndex];

    mCodec = avcodec_alloc_context3(codec);
    if (!mCodec || avcodec_parameters_to_context(mCodec, stream->codecpar) < 0)
        return fail(SongFileErrorCode::UnsupportedCodec);
    // With the packets' time base the decoder can place and trim the encoder's delay and
    // padding, which the demuxer passes on as skip-samples side data.
    mCodec->pkt_timebase = stream->time_base;
    status = avcodec_open2(mCodec, codec, nullptr);
    if (status < 0)
        return fail(SongFileErrorCode::UnsupportedCodec, ffmpegMessage(status));
    const int sourceRate = mCodec->sample_rate;
    if (sourceRate <= 0 || mCodec->ch_layout.nb_channels <= 0)
        return fail(SongFileErrorCode::NotAudio);
    if (!isPlausibleRate(sourceRate))
        return fail(SongFileErrorCode::Unopenable,
                    QStringLiteral("a sample rate of %1 Hz").arg(sourceRate));

    mInfo.sourceSampleRate = sourceRate;
    mInfo.sourceChannels = mCodec->ch_layout.nb_channels;
    mInfo.codecName = QString::fromUtf8(avcodec_get_name(stream->codecpar->codec_id));
    qint64 sourceFrames = -1;
    if (stream->duration != AV_NOPTS_VALUE && stream->duration > 0)
        sourceFrames = av_rescale_q(stream->duration, stream->time_base, {1, sourceRate});
    else if (mFormat->duration != AV_NOPTS_VALUE && mFormat->duration > 0)
        sourceFrames = av_rescale(mFormat->duration, sourceRate, AV_TIME_BASE);
    // A duration the container states (an MP4 edit list, a WAV data size, an MP3 frame
    // count) marks where the sound ends and the encoder's padding begins; one guessed from
    // the bit rate marks nothing.
    if (sourceFrames > 0 && mFormat->duration_estimation_method == AVFMT_DURATION_FROM_STREAM)
        mDeclaredFrames = sourceFrames;
    if (sourceFrames > 0) {
        mInfo.frameCount = toEngineFrames(sourceFrames, sourceRate, AV_ROUND_NEAR_INF);
        mInfo.durationSeconds = double(sourceFrames) / sourceRate;
    }

    mPacket = av_packet_alloc();
    mFrame = av_frame_alloc();
    if (!mPacket || !mFrame)
        return fail(SongFileErrorCode::NotReadable, ffmpegMessage(AVERROR(ENOMEM)));
    // The first sound is decoded now: a file whose sound track turns out empty or unreadable
    // fails to open instead of playing silence.
    status = receiveFrame();
    if (status == AVERROR_EOF) {
        if (mDamagedPackets > 0 || mReadError < 0)
            return fail(SongFileErrorCode::Damaged, ffmpegMessage(mReadError));
        return fail(SongFileErrorCode::NoSound);
    }
    mFrameReady = true;
    return true;
}

int SongDecoder::receiveFrame() {
    for (;;) {
        int status = avcodec_receive_frame(mCodec, mFrame);
        if (status == 0) {
            if (mFrame->nb_samples > 0)
                return 0;
            av_frame_unref(mFrame);
            continue;
        }
        if (status == AVERROR_EOF)
            return AVERROR_EOF;
        if (status != AVERROR(EAGAIN)) {
            ++mDamagedPackets;
            continue;
        }
        if (interrupted(this))
            return AVERROR_EXIT;
        if (mDraining)
            return AVERROR_EOF;
        status = av_read_frame(mFormat, mPacket);
        if (status == AVERROR_EXIT)
            return AVERROR_EXIT;
        if (status < 0) {
            // Like FFmpeg's own tools, any read error ends the input; what decoded stays.
            if (status != AVERROR_EOF)
                mReadError = status;
            mDraining = true;
            avcodec_send_packet(mCodec, nullptr);
            continue;
        }
        if (mPacket->stream_index == mStreamIndex) {
            status = avcodec_send_packet(mCodec, mPacket);
            if (status < 0 && status != AVERROR(EAGAIN))
                ++mDamagedPackets;
        }
        av_packet_unref(mPacket);
    }
}

SongDecodingOutcome SongDecoder::decodeInto(SongCache& cache, const std::atomic<bool>& stop) {
    mCache = &cache;
    mStop = &stop;
    SongDecodingOutcome outcome;
    int status = mFrameReady ? 0 : receiveFrame();
    mFrameReady = false;
    while (status == 0) {
        if (!startSegment(*mFrame)) {
            outcome.finished = true;
            outcome.error = songFileError(SongFileErrorCode::Damaged, mPath,
                                          QStringLiteral("unusable sample format"));
            return outcome;
        }
        const qint64 wanted = mFrame->nb_samples;
        mSegment.sourceFrames += wanted;
        convert(*mFrame, int(wanted));
        av_frame_unref(mFrame);
        if (mSegment.sourceLimit != kNoLimit) {
            // Padding never exceeds a couple of codec frames; a file with much more sound than
            // its header declares (a wrong sample count in a FLAC header, say) keeps it all.
            const qint64 tolerance = 2 * std::max(mCodec->frame_size, 2048);
            if (mSegment.sourceFrames > mSegment.sourceLimit + tolerance)
                mSegment.sourceLimit = kNoLimit;
        }
        if (!flush(kWriteBatchFrames)) {
            outcome.finished = true;
            outcome.error =
                songFileError(SongFileErrorCode::CacheUnavailable, mPath, mWriteFailure);
            return outcome;
        }
        status = receiveFrame();
    }
    if (status == AVERROR_EXIT)
        return outcome;

    finishSegment();
    outcome.finished = true;
    if (!flush(0, true)) {
        outcome.error = songFileError(SongFileErrorCode::CacheUnavailable, mPath, mWriteFailure);
        return outcome;
    }
    const qint64 earlyEnd = mSegment.sampleRate / 10 + 2 * qint64(mCodec->frame_size);
    const bool endsEarly =
        mFirstSegment && mDeclaredFrames > 0 && mSegment.sourceFrames + earlyEnd < mDeclaredFrames;
    if (mReadError < 0)
        outcome.error = songFileError(SongFileErrorCode::Damaged, mPath, ffmpegMessage(mReadError));
    else if (endsEarly)
        outcome.error = songFileError(
            SongFileErrorCode::Damaged, mPath,
            QStringLiteral("%1 of %2 frames").arg(mSegment.sourceFrames).arg(mDeclaredFrames));
    else if (mMissingBytes > 0)
        outcome.error = songFileError(SongFileErrorCode::Damaged, mPath,
                                      QStringLiteral("%1 bytes missing").arg(mMissingBytes));
    else if (mDamagedPackets > 0)
        outcome.error = songFileError(SongFileErrorCode::Damaged, mPath,
                                      QStringLiteral("%1 damaged packets").arg(mDamagedPackets));
    return outcome;
}

bool SongDecoder::startSegment(const AVFrame& frame) {
    const AVChannelLayout& layout =
        frame.ch_layout.nb_channels > 0 ? frame.ch_layout : mCodec->ch_layout;
    const std::uint64_t mask = layout.order == AV_CHANNEL_ORDER_NATIVE ? layout.u.mask : 0;
    if (frame.format == mSegment.format && frame.sample_rate == mSegment.sampleRate &&
        layout.nb_channels == mSegment.channels && mask == mSegment.channelMask)
        return true;

    // The source format changed mid-song (rare: a radio recording, a joined file). The
    // frames so far are completed at their own rate and the rest continues after them.
    if (mSegment.format >= 0) {
        finishSegment();
        mFirstSegment = false;
    }
    if (!isPlausibleRate(frame.sample_rate) || layout.nb_channels <= 0 || frame.format < 0)
        return false;
    mSegment = Segment{};
    mSegment.format = frame.format;
    mSegment.sampleRate = frame.sample_rate;
    mSegment.channels = layout.nb_channels;
    mSegment.channelMask = mask;
    mSegment.firstEngineFrame = pendingEnd();
    mSegment.sourceLimit = mFirstSegment && mDeclaredFrames > 0 ? mDeclaredFrames : kNoLimit;
    const auto format = AVSampleFormat(frame.format);
    mSegment.direct = frame.sample_rate == kEngineRate && layout.nb_channels <= 2 &&
                      (format == AV_SAMPLE_FMT_FLT || format == AV_SAMPLE_FMT_FLTP);
    if (mSegment.direct)
        return true;

    AVChannelLayout input{};
    if (layout.order == AV_CHANNEL_ORDER_UNSPEC)
        av_channel_layout_default(&input, layout.nb_channels);
    else if (av_channel_layout_copy(&input, &layout) < 0)
        return false;
    const std::vector<double> matrix = stereoMatrix(input);
    AVChannelLayout stereo = AV_CHANNEL_LAYOUT_STEREO;
    int status = swr_alloc_set_opts2(&mSegment.converter, &stereo, AV_SAMPLE_FMT_FLT, kEngineRate,
                                     &input, format, frame.sample_rate, 0, nullptr);
    av_channel_layout_uninit(&input);
    if (status >= 0)
        status = swr_set_matrix(mSegment.converter, matrix.data(), layout.nb_channels);
    if (status >= 0)
        status = swr_init(mSegment.converter);
    return status >= 0;
}

void SongDecoder::finishSegment() {
    if (mSegment.format < 0)
        return;
    if (mSegment.converter) {
        // What the resampler still holds of the song's end.
        constexpr int kDrainFrames = 4096;
        mFloat.resize(2 * kDrainFrames);
        for (;;) {
            auto* output = reinterpret_cast<std::uint8_t*>(mFloat.data());
            const int produced = swr_convert(mSegment.converter, &output, kDrainFrames, nullptr, 0);
            if (produced <= 0)
                break;
            appendFloat(mFloat.data(), produced);
        }
        swr_free(&mSegment.converter);
    }
    // The resampler's output is longer or shorter than the exact length by a few frames:
    // the song ends at round(source frames × 44100 / source rate), cut or padded with silence.
    const qint64 sourceFrames = std::min(mSegment.sourceFrames, mSegment.sourceLimit);
    const qint64 end = mSegment.firstEngineFrame +
                       toEngineFrames(sourceFrames, mSegment.sampleRate, AV_ROUND_NEAR_INF);
    mPending.resize(std::size_t(2 * std::max<qint64>(0, end - mFlushedFrames)), 0);
    mSegment.sourceFrames = sourceFrames;
    mSegment.sourceLimit = sourceFrames;
}

void SongDecoder::convert(const AVFrame& frame, int frameCount) {
    if (mSegment.direct) {
        const std::size_t first = mPending.size();
        mPending.resize(first + 2 * std::size_t(frameCount));
        std::int16_t* out = mPending.data() + first;
        const int channels = mSegment.channels;
        const auto frames = std::size_t(frameCount);
        if (frame.format == AV_SAMPLE_FMT_FLTP) {
            const auto* left = reinterpret_cast<const float*>(frame.extended_data[0]);
            const auto* right = reinterpret_cast<const float*>(frame.extended_data[channels - 1]);
            interleaveToInt16(left, right, frames, out);
        } else {
            const auto* samples = reinterpret_cast<const float*>(frame.extended_data[0]);
            if (channels == 2)
                toInt16(samples, 2 * frames, out);
            else // mono, as both sides
                interleaveToInt16(samples, samples, frames, out);
        }
        return;
    }
    const int capacity = swr_get_out_samples(mSegment.converter, frameCount);
    if (capacity <= 0)
        return;
    mFloat.resize(2 * std::size_t(capacity));
    auto* output = reinterpret_cast<std::uint8_t*>(mFloat.data());
    const int produced =
        swr_convert(mSegment.converter, &output, capacity,
                    const_cast<const std::uint8_t**>(frame.extended_data), frameCount);
    if (produced > 0)
        appendFloat(mFloat.data(), produced);
}

void SongDecoder::appendFloat(const float* interleaved, qint64 frameCount) {
    const std::size_t first = mPending.size();
    mPending.resize(first + 2 * std::size_t(frameCount));
    toInt16(interleaved, 2 * std::size_t(frameCount), mPending.data() + first);
}

qint64 SongDecoder::finalFrameEnd() const {
    // Frames are final once no later decision (the padding cut, the exact rounding of the
    // length) can remove them. floor(source × ratio) never exceeds the final rounded length.
    const qint64 sourceFrames = std::min(mSegment.sourceFrames, mSegment.sourceLimit);
    const qint64 end = mSegment.firstEngineFrame +
                       toEngineFrames(sourceFrames, mSegment.sampleRate, AV_ROUND_DOWN);
    return std::min(end, pendingEnd());
}

bool SongDecoder::flush(qint64 minimumFrames, bool everything) {
    const qint64 count = (everything ? pendingEnd() : finalFrameEnd()) - mFlushedFrames;
    if (count <= 0 || count < minimumFrames)
        return true;
    if (!mCache->append(mPending.data(), count, &mWriteFailure))
        return false;
    mPending.erase(mPending.begin(), mPending.begin() + std::ptrdiff_t(2 * count));
    mFlushedFrames += count;
    return true;
}

} // namespace tesk
