#include "support/AudioFiles.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>

namespace tesk::test {

std::unique_ptr<TeskExtendedAudioFile> openDecoded(const QString& path) {
    std::optional<TeskError> error;
    auto file = TeskExtendedAudioFile::openForPlayback(path, &error);
    EXPECT_TRUE(file) << path.toStdString() << ": "
                      << (error ? error->description().toStdString() : "");
    if (file)
        file->waitUntilDecoded();
    return file;
}

Channels readChannels(const DecodedFrames& song, qint64 start, qint64 count) {
    const qint64 wanted = std::max<qint64>(0, std::min(count, song.decodedFrameCount() - start));
    Channels channels(2, std::vector<float>(std::size_t(wanted)));
    const qint64 read = song.readFrames(start, wanted, channels[0].data(), channels[1].data());
    EXPECT_EQ(read, wanted) << "from frame " << start;
    for (std::vector<float>& channel : channels)
        channel.resize(std::size_t(read));
    return channels;
}

FileSizeLimit::FileSizeLimit(rlim_t bytes) {
    EXPECT_EQ(getrlimit(RLIMIT_FSIZE, &mPrevious), 0);
    mPreviousHandler = std::signal(SIGXFSZ, SIG_IGN);
    rlimit limited = mPrevious;
    limited.rlim_cur = bytes;
    EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &limited), 0);
}

FileSizeLimit::~FileSizeLimit() {
    setrlimit(RLIMIT_FSIZE, &mPrevious);
    std::signal(SIGXFSZ, mPreviousHandler);
}

} // namespace tesk::test
