#pragma once

namespace tesk {

/// Keeps FFmpeg's own chatter (encoder statistics, probe warnings) off standard error: Tesk
/// reports what goes wrong through its error values. Only errors still reach the log.
/// Any thread; takes effect once, for the process.
void quietFfmpegLogging();

} // namespace tesk
