#pragma once

// Sound files for tests: those of SoundFileTools.h, songs read back with Tesk's own decoder, and
// a file-size limit that makes writes fail as on a full disk.

#include "audio/TeskExtendedAudioFile.h"
#include "support/SoundFileTools.h"

#include <sys/resource.h>

#include <limits>
#include <memory>

namespace tesk::test {

/// Opens `path` with Tesk's own decoder and waits until it is decoded; null, and a failure of
/// the test that names the error, if it doesn't open.
std::unique_ptr<TeskExtendedAudioFile> openDecoded(const QString& path);

/// Up to `count` of the decoded frames of `song` from `start`: all of those there are when
/// `count` reaches past them. Fails the test if `readFrames` gives fewer.
Channels readChannels(const DecodedFrames& song, qint64 start = 0,
                      qint64 count = std::numeric_limits<qint64>::max());

/// While it lives, no file this process writes may grow past `bytes`: a write beyond fails as
/// on a full disk (SIGXFSZ is ignored, so it doesn't end the process).
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes);
    ~FileSizeLimit();
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    rlimit mPrevious{};
    void (*mPreviousHandler)(int) = nullptr;
};

} // namespace tesk::test
