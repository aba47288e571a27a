#include "audio/FfmpegLogging.h"

extern "C" {
#include <libavutil/log.h>
}

#include <mutex>

namespace tesk {

void quietFfmpegLogging() {
    static std::once_flag once;
    std::call_once(once, [] { av_log_set_level(AV_LOG_ERROR); });
}

} // namespace tesk
