#include "audio/TeskSoundDevice.h"

#include "audio/dsp/VectorUnit.h"

#include <QCoreApplication>
#include <SDL.h>
#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>

namespace tesk {
namespace {

/// SDL's audio subsystem, started once for the process and left running: starting and
/// quitting it per song would reload the driver each time.
bool startSdlAudio(QString* error) {
    static std::once_flag once;
    static bool started = false;
    static QString failure;
    std::call_once(once, [] {
        // SDL would turn SIGTERM and SIGINT into events that nobody reads: Tesk handles them.
        SDL_SetHint(SDL_HINT_NO_SIGNAL_HANDLERS, "1");
        SDL_SetHint(SDL_HINT_APP_NAME, "Tesk");
        SDL_SetHint(SDL_HINT_AUDIO_DEVICE_APP_NAME, "Tesk");
        SDL_SetHint(SDL_HINT_AUDIO_DEVICE_STREAM_ROLE, "music");
        SDL_SetHint(SDL_HINT_AUDIO_DEVICE_STREAM_NAME, "Tesk playback");
        started = SDL_InitSubSystem(SDL_INIT_AUDIO) == 0;
        if (!started)
            failure = QString::fromUtf8(SDL_GetError());
    });
    if (!started && error)
        *error = failure;
    return started;
}

/// Interleaves planar frames rendered in pieces of at most kMaxBufferFrames.
void renderInterleaved(AudioRenderer& renderer, float* left, float* right, float* interleaved,
                       std::uint32_t frameCount) {
    while (frameCount > 0) {
        const std::uint32_t frames = std::min(frameCount, TeskSoundDevice::kMaxBufferFrames);
        renderer.renderAudio(left, right, frames);
        for (std::uint32_t i = 0; i < frames; ++i) {
            interleaved[2 * i] = left[i];
            interleaved[2 * i + 1] = right[i];
        }
        interleaved += 2 * frames;
        frameCount -= frames;
    }
}

class SdlSoundDevice final : public TeskSoundDevice {
public:
    SdlSoundDevice(AudioRenderer& renderer)
        : mRenderer(renderer) {}

    ~SdlSoundDevice() override {
        if (mDevice != 0)
            SDL_CloseAudioDevice(mDevice); // waits for a running callback to finish
    }

    bool open(std::uint32_t bufferFrames, QString* error) {
        SDL_AudioSpec desired{};
        desired.freq = kSampleRate;
        desired.format = AUDIO_F32SYS;
        desired.channels = 2;
        desired.samples = static_cast<Uint16>(std::clamp(bufferFrames, 64u, kMaxBufferFrames));
        desired.callback = &SdlSoundDevice::callback;
        desired.userdata = this;
        SDL_AudioSpec obtained{};
        // No changes allowed: SDL converts to whatever the hardware wants.
        mDevice = SDL_OpenAudioDevice(nullptr, 0, &desired, &obtained, 0);
        if (mDevice == 0) {
            if (error)
                *error = QString::fromUtf8(SDL_GetError());
            return false;
        }
        mBufferFrames = obtained.samples;
        return true;
    }

    void start() override {
        SDL_PauseAudioDevice(mDevice, 0);
        mRunning = true;
    }

    void stop() override {
        // Pausing takes SDL's device lock, so no callback runs once it returns.
        SDL_PauseAudioDevice(mDevice, 1);
        mRunning = false;
    }

    bool isRunning() const override { return mRunning; }
    bool hasSoundOutput() const override { return true; }
    std::uint32_t bufferFrames() const override { return mBufferFrames; }
    bool isLost() const override { return SDL_GetAudioDeviceStatus(mDevice) == SDL_AUDIO_STOPPED; }
    std::uint64_t framesRendered() const override {
        return mFramesRendered.load(std::memory_order_relaxed);
    }

private:
    static void callback(void* userdata, Uint8* stream, int length) {
        // SDL starts its thread from ours; see clearVectorUpperState.
        clearVectorUpperState();
        auto* device = static_cast<SdlSoundDevice*>(userdata);
        const auto frames = static_cast<std::uint32_t>(length) / (2 * sizeof(float));
        renderInterleaved(device->mRenderer, device->mLeft.data(), device->mRight.data(),
                          reinterpret_cast<float*>(stream), frames);
        device->mFramesRendered.fetch_add(frames, std::memory_order_relaxed);
    }

    AudioRenderer& mRenderer;
    SDL_AudioDeviceID mDevice = 0;
    std::uint32_t mBufferFrames = kDefaultBufferFrames;
    bool mRunning = false;
    std::atomic<std::uint64_t> mFramesRendered{0};
    std::array<float, kMaxBufferFrames> mLeft{};
    std::array<float, kMaxBufferFrames> mRight{};
};

class SilentSoundDevice final : public TeskSoundDevice {
public:
    SilentSoundDevice(AudioRenderer& renderer, std::uint32_t bufferFrames)
        : mRenderer(renderer)
        , mBufferFrames(std::clamp(bufferFrames, 1u, kMaxBufferFrames)) {}

    ~SilentSoundDevice() override { stop(); }

    void start() override {
        if (mThread.joinable())
            return;
        mStopping = false;
        mThread = std::thread([this] { run(); });
    }

    void stop() override {
        if (!mThread.joinable())
            return;
        mStopping = true;
        mThread.join();
    }

    bool isRunning() const override { return mThread.joinable(); }
    bool hasSoundOutput() const override { return false; }
    std::uint32_t bufferFrames() const override { return mBufferFrames; }
    bool isLost() const override { return false; }
    std::uint64_t framesRendered() const override {
        return mFramesRendered.load(std::memory_order_relaxed);
    }

private:
    void run() {
        clearVectorUpperState();
        using Clock = std::chrono::steady_clock;
        const auto period = std::chrono::duration_cast<Clock::duration>(
            std::chrono::duration<double>(double(mBufferFrames) / kSampleRate));
        auto deadline = Clock::now();
        while (!mStopping.load(std::memory_order_relaxed)) {
            mRenderer.renderAudio(mLeft.data(), mRight.data(), mBufferFrames);
            mFramesRendered.fetch_add(mBufferFrames, std::memory_order_relaxed);
            deadline += period;
            std::this_thread::sleep_until(deadline);
        }
    }

    AudioRenderer& mRenderer;
    const std::uint32_t mBufferFrames;
    std::thread mThread;
    std::atomic<bool> mStopping{false};
    std::atomic<std::uint64_t> mFramesRendered{0};
    std::array<float, kMaxBufferFrames> mLeft{};
    std::array<float, kMaxBufferFrames> mRight{};
};

} // namespace

std::unique_ptr<TeskSoundDevice> openSdlSoundDevice(AudioRenderer& renderer,
                                                    std::uint32_t bufferFrames, QString* error) {
    if (!startSdlAudio(error))
        return nullptr;
    auto device = std::make_unique<SdlSoundDevice>(renderer);
    if (!device->open(bufferFrames, error))
        return nullptr;
    return device;
}

std::unique_ptr<TeskSoundDevice> openSilentSoundDevice(AudioRenderer& renderer,
                                                       std::uint32_t bufferFrames) {
    return std::make_unique<SilentSoundDevice>(renderer, bufferFrames);
}

std::unique_ptr<TeskSoundDevice> openDefaultSoundDevice(AudioRenderer& renderer,
                                                        QString* whyNoSound) {
    QString error;
    if (auto device = openSdlSoundDevice(renderer, TeskSoundDevice::kDefaultBufferFrames, &error))
        return device;
    if (whyNoSound) {
        *whyNoSound =
            QCoreApplication::translate("TeskSoundDevice", "No sound output could be opened (%1).")
                .arg(error);
    }
    return openSilentSoundDevice(renderer, TeskSoundDevice::kDefaultBufferFrames);
}

} // namespace tesk
