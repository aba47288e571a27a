#pragma once

#include "audio/EngineConstants.h"
#include <QString>
#include <cstdint>
#include <memory>

namespace tesk {

/// What a sound device pulls for the next frames to play.
class AudioRenderer {
public:
    virtual ~AudioRenderer() = default;
    /// Fills `frameCount` frames (at most TeskSoundDevice::kMaxBufferFrames) of both channels.
    /// Device callback: never allocates, locks, waits, logs or throws.
    virtual void renderAudio(float* left, float* right, std::uint32_t frameCount) noexcept = 0;
};

/// Where the sound goes: the system's default device through SDL, or, when none opens, a
/// silent device that pulls at real-time pace so that playback still moves on.
/// Main thread, unless said otherwise.
class TeskSoundDevice {
public:
    static constexpr std::uint32_t kMaxBufferFrames = 1024;
    static constexpr std::uint32_t kDefaultBufferFrames = 512;
    static constexpr int kSampleRate = engine::kSampleRate;

    virtual ~TeskSoundDevice() = default;

    /// Starts pulling the renderer. Does nothing when already running.
    virtual void start() = 0;
    /// Stops pulling; when it returns, the renderer is not being called and will not be again
    /// until the next start.
    virtual void stop() = 0;
    virtual bool isRunning() const = 0;
    /// False for the silent device: nothing is heard.
    virtual bool hasSoundOutput() const = 0;
    /// Frames the device asks for at a time.
    virtual std::uint32_t bufferFrames() const = 0;
    /// True once the device went away while open (unplugged). Any thread.
    virtual bool isLost() const = 0;
    /// Frames pulled so far. Any thread.
    virtual std::uint64_t framesRendered() const = 0;
};

/// The system's default output device through SDL (float32 stereo at 44100 Hz, SDL converting
/// when the hardware differs), or null with the reason in `error`. SDL_AUDIODRIVER is honoured.
std::unique_ptr<TeskSoundDevice> openSdlSoundDevice(AudioRenderer& renderer,
                                                    std::uint32_t bufferFrames, QString* error);

/// A device that hears nothing and pulls `bufferFrames` at a time at real-time pace.
std::unique_ptr<TeskSoundDevice> openSilentSoundDevice(AudioRenderer& renderer,
                                                       std::uint32_t bufferFrames);

/// The default device, or the silent one when it cannot be opened; `whyNoSound` then says
/// why, for the user.
std::unique_ptr<TeskSoundDevice> openDefaultSoundDevice(AudioRenderer& renderer,
                                                        QString* whyNoSound = nullptr);

} // namespace tesk
