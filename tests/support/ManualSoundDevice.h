#pragma once

#include "audio/TeskSoundDevice.h"

#include <atomic>
#include <vector>

namespace tesk::test {

/// A sound device that pulls only when the test says so, keeping everything it was given.
class ManualSoundDevice : public TeskSoundDevice {
public:
    explicit ManualSoundDevice(AudioRenderer& renderer)
        : mRenderer(renderer) {}

    void start() override { mRunning = true; }
    void stop() override { mRunning = false; }
    bool isRunning() const override { return mRunning; }
    bool hasSoundOutput() const override { return true; }
    std::uint32_t bufferFrames() const override { return kDefaultBufferFrames; }
    bool isLost() const override { return false; }
    std::uint64_t framesRendered() const override { return left.size(); }

    /// One device period of `frames`, appended to `left` and `right`.
    void pull(std::uint32_t frames = kDefaultBufferFrames) {
        const std::size_t start = left.size();
        left.resize(start + frames);
        right.resize(start + frames);
        mRenderer.renderAudio(left.data() + start, right.data() + start, frames);
    }

    std::vector<float> left;
    std::vector<float> right;

private:
    AudioRenderer& mRenderer;
    std::atomic<bool> mRunning{false}; // a test may pull from another thread
};

} // namespace tesk::test
