#pragma once

#include <cstddef>

namespace tesk {

/// The most FFmpeg may allocate in one block. A damaged file can claim a tag or a chunk of one
/// or two gigabytes in a few bytes, which FFmpeg would allocate and clear before finding the
/// file short. No part of a real song (a cover picture, an index) comes near this, and an
/// M4A export's index (64 bytes a packet of 1024 frames) reaches it only past 50 hours.
inline constexpr std::size_t kLargestFfmpegAllocation = 512 * 1024 * 1024;

/// Sets FFmpeg up for Tesk, once for the process: its own lines (encoder statistics, probe
/// warnings, the damage a decoder meets; all but a fatal error) stay off standard error, as
/// Tesk reports what goes wrong through its error values, and no allocation may exceed
/// `kLargestFfmpegAllocation`.
/// Any thread.
void setUpFfmpeg();

} // namespace tesk
