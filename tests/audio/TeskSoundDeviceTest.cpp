#include "audio/TeskSoundDevice.h"

#include "support/AudioFiles.h"
#include "support/Environment.h"
#include "support/Signals.h"

#include <QFile>
#include <QTemporaryDir>
#include <atomic>
#include <chrono>
#include <cmath>
#include <gtest/gtest.h>
#include <thread>

using namespace tesk;

namespace {

/// Plays a 1 kHz sine of amplitude 0.5 on the left and silence on the right.
class SineRenderer : public AudioRenderer {
public:
    void renderAudio(float* left, float* right, std::uint32_t frameCount) noexcept override {
        for (std::uint32_t i = 0; i < frameCount; ++i, ++mFrame) {
            left[i] = float(0.5 * std::sin(2.0 * M_PI * 1000.0 * double(mFrame) / 44100.0));
            right[i] = 0.0f;
        }
        mCalls.fetch_add(1);
    }
    std::atomic<int> mCalls{0};

private:
    std::uint64_t mFrame = 0;
};

} // namespace

// Each suite that names SDL a driver runs in a process of its own: SDL's audio starts once, with
// whatever driver it is given first.

TEST(SdlSoundDevice, PlaysWhatTheRendererGivesInterleaved) {
    // SDL's disk driver writes what would be heard to a file, faster than real time.
    QTemporaryDir folder;
    const QString path = folder.filePath("heard.raw");
    const test::ScopedEnvironment driver("SDL_AUDIODRIVER", "disk");
    const test::ScopedEnvironment file("SDL_DISKAUDIOFILE", QFile::encodeName(path));
    const test::ScopedEnvironment delay("SDL_DISKAUDIODELAY", "0");

    SineRenderer renderer;
    QString error;
    auto device = openSdlSoundDevice(renderer, 512, &error);
    ASSERT_TRUE(device) << error.toStdString();
    EXPECT_TRUE(device->hasSoundOutput());
    EXPECT_LE(device->bufferFrames(), TeskSoundDevice::kMaxBufferFrames);
    device->start();
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (device->framesRendered() < 44100 && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    device->stop();
    const int callsAfterStop = renderer.mCalls.load();
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(renderer.mCalls.load(), callsAfterStop); // stopped means no more pulls
    device.reset();

    const QByteArray bytes = test::readFile(path);
    ASSERT_GE(bytes.size(), qsizetype(44100 * 2 * sizeof(float)));
    const auto* samples = reinterpret_cast<const float*>(bytes.constData());
    std::vector<float> left(22050);
    std::vector<float> right(22050);
    for (std::size_t i = 0; i < left.size(); ++i) {
        left[i] = samples[2 * (i + 4410)];
        right[i] = samples[2 * (i + 4410) + 1];
    }
    EXPECT_NEAR(test::toneAmplitude(left, 1000.0), 0.5, 0.01);
    EXPECT_LT(test::rms(right), 1e-6);
}

TEST(SilentSoundDevice, PullsAtRealTimePace) {
    SineRenderer renderer;
    auto device = openSilentSoundDevice(renderer, 441);
    EXPECT_FALSE(device->hasSoundOutput());
    const auto started = std::chrono::steady_clock::now();
    device->start();
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    device->stop();
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    const double played = double(device->framesRendered()) / 44100.0;
    // Real-time pace: neither racing ahead nor falling far behind.
    EXPECT_LE(played, seconds + 0.02);
    EXPECT_GE(played, seconds - 0.1);
}

TEST(DefaultSoundDevice, FallsBackToTheSilentDeviceWhenNoneOpens) {
    const test::ScopedEnvironment driver("SDL_AUDIODRIVER", "no-such-driver");
    SineRenderer renderer;
    QString why;
    auto device = openDefaultSoundDevice(renderer, &why);
    ASSERT_TRUE(device);
    EXPECT_FALSE(device->hasSoundOutput());
    EXPECT_FALSE(why.isEmpty());
}
