// Exporting to files: what FFmpeg reads back from them (format, samples, exact length, tags,
// cover), and how failures, cancelling and empty exports end.
#include "audio/TeskAudioFileWriter.h"

#include "audio/SongMetadataReader.h"
#include "support/AudioFiles.h"
#include "support/Errors.h"
#include "support/Signals.h"
#include "support/SongFiles.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <iterator>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace tesk {
namespace {

using namespace std::chrono_literals;
using test::Channels;

/// Slice sizes that cross every boundary: single frames, just under, at and over a queue slot,
/// several slots at once, and less than an AAC frame.
const std::uint32_t kAwkwardSlices[] = {4096, 1, 4095, 4097, 10000, 333};

const SongMetadata kNoMetadata;

ExportFormat formatOf(const QString& path) {
    return TeskAudioFileWriter::formatForExtension(QFileInfo(path).suffix()).value();
}

/// A writer for `path`, in the format its extension names.
std::unique_ptr<TeskAudioFileWriter> createWriter(const QString& path,
                                                  const SongMetadata& metadata = kNoMetadata) {
    std::optional<TeskError> error;
    auto writer = TeskAudioFileWriter::create(path, formatOf(path), metadata, &error);
    EXPECT_TRUE(writer) << (error ? error->description().toStdString() : "");
    EXPECT_FALSE(error);
    return writer;
}

/// Writes `channels` in slices of the awkward sizes, then finishes.
bool writeAndFinish(TeskAudioFileWriter& writer, const Channels& channels) {
    std::optional<TeskError> error;
    const auto frames = std::uint32_t(channels[0].size());
    for (std::uint32_t done = 0, slice = 0; done < frames; ++slice) {
        const std::uint32_t count =
            std::min(kAwkwardSlices[slice % std::size(kAwkwardSlices)], frames - done);
        if (!writer.write(channels[0].data() + done, channels[1].data() + done, count, &error)) {
            ADD_FAILURE() << error->description().toStdString();
            return false;
        }
        done += count;
    }
    const bool finished = writer.finish(&error);
    EXPECT_TRUE(finished) << (error ? error->description().toStdString() : "");
    return finished;
}

std::int16_t roundedToSixteenBits(float sample) {
    return std::int16_t(std::clamp(std::nearbyint(double(sample) * 32768.0), -32768.0, 32767.0));
}

TEST(TeskAudioFileWriter, AcceptsExactlyTheTwoExportExtensions) {
    EXPECT_EQ(TeskAudioFileWriter::formatForExtension("aif"), ExportFormat::Aiff);
    EXPECT_EQ(TeskAudioFileWriter::formatForExtension("m4a"), ExportFormat::M4a);
    for (const char* other : {"aiff", "AIF", "M4A", "wav", "mp4", "", ".aif"})
        EXPECT_FALSE(TeskAudioFileWriter::formatForExtension(other)) << other;
}

TEST(TeskAudioFileWriter, EachFormatHoldsTheFramesWrittenAtTheirPlaceWithTagsAndCover) {
    // Silence, then 1 kHz on the left and a quieter 1.5 kHz on the right, so that a shifted
    // start, a wrong rate or swapped channels all show; the last second on the right is a ramp
    // from -1.5 to 1.5, through every level and past both limits.
    const std::size_t onset = 8000;
    const std::size_t rampStart = 2 * 44100;
    const std::size_t frames = 3 * 44100 + 777;
    Channels input(2, std::vector<float>(onset));
    const std::vector<float> left = test::sine(1000.0, 0.5, frames - onset);
    const std::vector<float> right = test::sine(1500.0, 0.25, rampStart - onset);
    input[0].insert(input[0].end(), left.begin(), left.end());
    input[1].insert(input[1].end(), right.begin(), right.end());
    for (std::size_t i = rampStart; i < frames; ++i)
        input[1].push_back(
            float(-1.5 + 3.0 * double(i - rampStart) / double(frames - 1 - rampStart)));

    struct Case {
        const char* name;
        const char* container;
        const char* codec;
        const char* cover; // none: bytes that are neither JPEG nor PNG, which are left out
        const char* mimeType;
    };
    QTemporaryDir folder;
    for (const Case& c : {Case{"export.aif", "aiff", "pcm_s16be", "cover.png", "image/png"},
                          Case{"export.m4a", "m4a", "aac", "cover.jpg", "image/jpeg"},
                          Case{"bad.aif", "aiff", "pcm_s16be", nullptr, "image/jpeg"},
                          Case{"bad.m4a", "m4a", "aac", nullptr, "image/jpeg"}}) {
        SCOPED_TRACE(c.name);
        const QString path = folder.filePath(c.name);
        const SongMetadata metadata = test::threeScriptTags(
            c.cover ? test::writePicture(folder.filePath(c.cover)) : "GIF89a, or anything else",
            c.mimeType);
        ASSERT_FALSE(metadata.coverImage.isEmpty());
        auto writer = createWriter(path, metadata);
        ASSERT_TRUE(writer);
        ASSERT_TRUE(writeAndFinish(*writer, input));
        EXPECT_EQ(writer->framesWritten(), std::int64_t(frames));
        EXPECT_EQ(readSongMetadata(path), c.cover ? metadata : test::threeScriptTags());

        EXPECT_TRUE(test::probeContainer(path, "format_name").split(',').contains(c.container));
        // ffprobe prints the fields in this order, whatever the order asked. The length is exact
        // to the frame: an MP4 edit list in milliseconds would round it.
        EXPECT_EQ(
            test::probeAudioStream(path, "codec_name,sample_rate,channels,time_base,duration_ts"),
            QString("%1\n44100\n2\n1/44100\n%2").arg(c.codec).arg(frames));
        const std::optional<Channels> file = test::decodeWithFfmpeg(path);
        ASSERT_TRUE(file);
        const std::size_t decoded = (*file)[0].size();
        if (formatOf(path) == ExportFormat::Aiff) {
            ASSERT_EQ(decoded, frames);
            int mismatches = 0;
            for (std::size_t side = 0; side < 2; ++side) {
                for (std::size_t i = 0; i < frames; ++i) {
                    const auto written = std::int16_t(std::lround((*file)[side][i] * 32768.0f));
                    if (written != roundedToSixteenBits(input[side][i]) && ++mismatches <= 5)
                        ADD_FAILURE() << "channel " << side << " frame " << i << ": " << written
                                      << " for " << input[side][i];
                }
            }
            EXPECT_EQ(mismatches, 0);
            EXPECT_EQ((*file)[1].back(), 32767.0f / 32768.0f);
        } else {
            EXPECT_EQ(test::readFile(path).mid(4, 8), QByteArray("ftypM4A "));
            // FFmpeg's decoding skips the encoder's delay at the start but still gives the
            // padding of the last AAC frame (under 1024 frames) at the end.
            EXPECT_GE(decoded, frames);
            EXPECT_LT(decoded, frames + 1024);
        }

        const std::vector<float>& outLeft = (*file)[0];
        const auto loud = std::find_if(outLeft.begin(), outLeft.end(),
                                       [](float sample) { return std::abs(sample) > 0.25f; });
        EXPECT_NEAR(double(loud - outLeft.begin()), double(onset), 6.0) << "the tone starts late";
        ASSERT_GE(decoded, std::size_t(22050 + 44100));
        const std::span<const float> secondLeft(outLeft.data() + 22050, 44100);
        const std::span<const float> secondRight((*file)[1].data() + 22050, 44100);
        EXPECT_NEAR(20.0 * std::log10(test::toneAmplitude(secondLeft, 1000.0) / 0.5), 0.0, 0.5);
        EXPECT_NEAR(20.0 * std::log10(test::toneAmplitude(secondRight, 1500.0) / 0.25), 0.0, 0.5);
        EXPECT_LT(test::toneAmplitude(secondLeft, 1500.0), 0.005);
        EXPECT_LT(test::toneAmplitude(secondRight, 1000.0), 0.005);
    }
}

TEST(TeskAudioFileWriter, FolderThatCannotHoldTheFileFailsAtCreation) {
    QTemporaryDir folder;
    const QString notAFolder = folder.filePath("plain file");
    ASSERT_TRUE(test::writeFile(notAFolder, {}));
    QStringList paths{folder.filePath("missing folder/song.aif"), notAFolder + "/song.m4a"};
    // Permissions don't stop the superuser, so a read-only folder only tells otherwise.
    if (geteuid() != 0) {
        const QString readOnly = folder.filePath("read-only");
        ASSERT_TRUE(QDir(folder.path()).mkdir("read-only"));
        ASSERT_EQ(chmod(QFile::encodeName(readOnly).constData(), 0555), 0);
        paths.append(readOnly + "/song.aif");
    }
    for (const QString& path : paths) {
        SCOPED_TRACE(path.toStdString());
        std::optional<TeskError> error;
        EXPECT_FALSE(TeskAudioFileWriter::create(path, formatOf(path), kNoMetadata, &error));
        ASSERT_TRUE(test::isError(error, AudioExportErrorDomain, AudioExportErrorCode::CannotCreate,
                                  "song."));
        EXPECT_EQ(error->userInfo().value(AudioExportPathKey).toString(), path);
    }
}

/// Writes one-slice writes of a tone until write() fails or `maximumSlices` went in.
int writeUntilFailure(TeskAudioFileWriter& writer, int maximumSlices,
                      std::optional<TeskError>* error) {
    const std::vector<float> left = test::sine(440.0, 0.5, TeskAudioFileWriter::kSliceFrames);
    const std::vector<float> right = test::noise(0.5, TeskAudioFileWriter::kSliceFrames);
    for (int slice = 0; slice < maximumSlices; ++slice) {
        if (!writer.write(left.data(), right.data(), TeskAudioFileWriter::kSliceFrames, error))
            return slice;
    }
    return maximumSlices;
}

TEST(TeskAudioFileWriter, FailureIsReportedByEveryLaterCallAndLeavesNoFile) {
    // A file-size limit makes the disk refuse the file part-way, as a failing disk would; an
    // export of no frames fails at finish().
    QTemporaryDir folder;
    const test::FileSizeLimit limit(256 * 1024);
    for (const char* name : {"limited.aif", "limited.m4a", "empty.aif", "empty.m4a"}) {
        SCOPED_TRACE(name);
        const QString path = folder.filePath(name);
        const bool empty = path.contains("empty");
        auto writer = createWriter(path);
        ASSERT_TRUE(writer);
        std::optional<TeskError> error;
        const float silence[1] = {0.0f};
        if (empty) {
            EXPECT_TRUE(writer->write(silence, silence, 0, &error))
                << "writing nothing is no failure";
            EXPECT_FALSE(writer->finish(&error));
        } else {
            // A minute of sound is far more than 256 KiB in either format.
            EXPECT_LT(writeUntilFailure(*writer, 650, &error), 650);
        }
        EXPECT_TRUE(test::isError(error, AudioExportErrorDomain,
                                  empty ? AudioExportErrorCode::NothingWritten
                                        : AudioExportErrorCode::CannotWrite,
                                  name));

        std::optional<TeskError> again;
        if (!empty) { // write() may not follow finish()
            EXPECT_FALSE(writer->write(silence, silence, 1, &again));
            EXPECT_EQ(again, error);
        }
        std::optional<TeskError> atFinish;
        EXPECT_FALSE(writer->finish(&atFinish));
        EXPECT_EQ(atFinish, error);
        EXPECT_FALSE(QFileInfo::exists(path)) << "a broken file is not left behind";
    }
}

TEST(TeskAudioFileWriter, FullDiskIsReportedAsSuchAndADeviceIsNotDeleted) {
    const QString full = "/dev/full";
    if (!QFileInfo(full).isWritable())
        GTEST_SKIP() << "no /dev/full here";
    std::optional<TeskError> error;
    auto writer = TeskAudioFileWriter::create(full, ExportFormat::Aiff, kNoMetadata, &error);
    // The header may already reach the device at creation; if not, the sound soon does.
    if (writer) {
        EXPECT_LT(writeUntilFailure(*writer, 650, &error), 650);
        if (!error)
            writer->finish(&error);
        writer.reset();
    }
    EXPECT_TRUE(
        test::isError(error, AudioExportErrorDomain, AudioExportErrorCode::DiskFull, "full"));
    struct stat status {};
    ASSERT_EQ(stat("/dev/full", &status), 0);
    EXPECT_TRUE(S_ISCHR(status.st_mode));
}

TEST(TeskAudioFileWriter, CancelStopsABlockedWriteAndDeletesThePartialFile) {
    QTemporaryDir folder;
    const QString path = folder.filePath("cancelled.m4a");
    auto writer = createWriter(path);
    ASSERT_TRUE(writer);

    // The export thread writes far faster than AAC encodes, so it soon waits on a full queue.
    std::atomic<int> slicesWritten{-1};
    std::optional<TeskError> writeError;
    std::thread exportThread(
        [&] { slicesWritten = writeUntilFailure(*writer, 6000, &writeError); });
    for (int wait = 0; wait < 5000 && writer->framesWritten() < 20 * 4096; ++wait)
        std::this_thread::sleep_for(1ms);
    EXPECT_TRUE(QFileInfo::exists(path));
    writer->cancel();
    exportThread.join();

    EXPECT_LT(slicesWritten.load(), 6000);
    EXPECT_TRUE(test::isError(writeError, AudioExportErrorDomain, AudioExportErrorCode::Cancelled));
    EXPECT_FALSE(QFileInfo::exists(path));
    std::optional<TeskError> finishError;
    EXPECT_FALSE(writer->finish(&finishError));
    EXPECT_EQ(finishError, writeError);

    // Dropping an unfinished writer cancels too; cancelling a finished one keeps its file.
    const auto threeSlices = [&](const QString& name) {
        auto started = createWriter(folder.filePath(name));
        if (started)
            writeUntilFailure(*started, 3, &writeError);
        return started;
    };
    ASSERT_TRUE(threeSlices("dropped.aif"));
    EXPECT_FALSE(QFileInfo::exists(folder.filePath("dropped.aif")));
    const QString kept = folder.filePath("kept.aif");
    writer = threeSlices("kept.aif");
    ASSERT_TRUE(writer && writer->finish(nullptr));
    writer->cancel();
    writer.reset();
    const std::optional<Channels> file = test::decodeWithFfmpeg(kept);
    ASSERT_TRUE(file);
    EXPECT_EQ((*file)[0].size(), 3u * TeskAudioFileWriter::kSliceFrames);
}

} // namespace
} // namespace tesk
