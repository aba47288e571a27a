#pragma once

namespace tesk {

class WaveformView;

/// Told when the user starts and ends a gesture on the waveform view, and when the view has read
/// the whole song. Not owned; every message has an empty default. Main thread.
class WaveformViewDelegate {
public:
    virtual ~WaveformViewDelegate() = default;
    virtual void waveformViewDidBeginEditingLoop(WaveformView*) {}
    virtual void waveformViewDidEndEditingLoop(WaveformView*) {}
    virtual void waveformViewDidBeginScrubbing(WaveformView*) {}
    virtual void waveformViewDidEndScrubbing(WaveformView*) {}
    /// The whole song has been read and drawn: a song that ends early is known to.
    virtual void waveformViewDidReadWholeSong(WaveformView*) {}
};

} // namespace tesk
