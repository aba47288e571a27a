#pragma once

#include <QtGlobal>

namespace tesk {

class Waveform;

/// A stretch of frames: where it starts and how many.
struct FrameRange {
    qint64 location = 0;
    qint64 length = 0;
    friend bool operator==(const FrameRange&, const FrameRange&) = default;
};

/// Told how a waveform's scan goes. Every message has an empty default; the delegate is not
/// owned, and whoever owns the waveform clears it before the delegate goes away.
/// Always on the main thread.
class WaveformDelegate {
public:
    virtual ~WaveformDelegate() = default;
    /// The song's length (`totalFrameCount`) is now known; no block has arrived yet.
    virtual void waveformDidBeginScanningFile(Waveform*) {}
    /// `frames` have been summarised: the newest block, just after the previous one.
    virtual void waveformHasAvailableFrames(Waveform*, FrameRange /*frames*/) {}
    /// Decoding has ended with another length than the one the scan began with (a guess from
    /// the file's header): `totalFrameCount` is now exact.
    virtual void waveformDidLearnFrameCount(Waveform*) {}
    /// Decoding has ended and every frame it gave has been summarised.
    virtual void waveformDidFinishScanning(Waveform*) {}
};

} // namespace tesk
