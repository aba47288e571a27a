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
        av_log_set_level(AV_LOG_ERROR);
        av_max_alloc(kLargestFfmpegAllocation);
    });
}

} // namespace tesk
