#include "audio/FfmpegSetup.h"

extern "C" {
#include <libavutil/log.h>
#include <libavutil/mem.h>
}

#include <mutex>

namespace tesk {

void setUpFfmpeg() {
    static std::once_flag once;
    std::call_once(once, [] {
        // Tesk says itself what is wrong with a file (the window's notice, tesk-render's
        // warning); FFmpeg's lines would only repeat it in its own terms.
        av_log_set_level(AV_LOG_FATAL);
        av_max_alloc(kLargestFfmpegAllocation);
    });
}

} // namespace tesk
