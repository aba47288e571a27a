// The real-time rule, checked on the real threads: while a song plays with every effect on
// and the main thread keeps changing everything, the device's callback and the thread that
// renders ahead of it never allocate, free or lock.
#include "audio/TeskExtendedAudioFilePlayer.h"

#include "support/MemorySong.h"
#include "support/RealtimeWatch.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <cstdlib>
#include <gtest/gtest.h>
#include <mutex>
#include <thread>

using namespace tesk;
using namespace tesk::test;

namespace {

/// Plays with every effect on and, for `milliseconds`, changes speed, loop, equalizer, band,
/// pan, volume and position; also the pitch when `changePitch`.
void playWhileChangingEverything(TeskExtendedAudioFilePlayer& player, int milliseconds,
                                 bool changePitch) {
    QElapsedTimer elapsed;
    elapsed.start();
    for (int step = 0; elapsed.elapsed() < milliseconds; ++step) {
        player.setPlaybackSpeed(step % 7 == 6 ? -0.8f : 0.5f + 0.1f * float(step % 10));
        if (changePitch)
            player.setPlaybackPitchInSemitones(double(step % 13) - 6.0);
        player.setLoopRange({std::uint32_t(44100 + 100 * step % 20000), 30000});
        player.setLooping(step % 3 != 0);
        TeskEqualizerSettings bands;
        bands.setBands({double(step % 12) - 6.0, 3, -3, 0, 6, -6, 2, -2, 1, -1});
        player.setEqualizerSettings(&bands);
        TeskVocalReductionEffectSettings band;
        band.setLowFrequency(100.0 + step % 50);
        band.setHighFrequency(3000.0 + step % 500);
        player.setVocalReductionEffectSettings(&band);
        player.setPanAmount(double(step % 10) / 10.0);
        player.setOutOfPhase(step % 4 == 0);
        player.setPlaybackVolume(-float(step % 12));
        if (step % 5 == 0)
            player.setCurrentFrame(44100 * (step % 8));
        QCoreApplication::processEvents();
        std::this_thread::sleep_for(std::chrono::milliseconds(15));
    }
}

} // namespace

TEST(RealtimeRule, TheWatchSeesAllocationsFreesAndLocksOnMarkedThreads) {
    // Without this, a watch that counted nothing would pass the test below.
    resetRealtimeViolations();
    std::thread([] {
        markRealtimeThread(RealtimeRole::Device);
        void* (*volatile allocate)(std::size_t) = &std::malloc;
        std::free(allocate(64));
        std::mutex mutex;
        std::lock_guard lock(mutex);
    }).join();
    const RealtimeViolations seen = realtimeViolations(RealtimeRole::Device);
    EXPECT_GE(seen.allocations, 1u);
    EXPECT_GE(seen.frees, 1u);
    EXPECT_GE(seen.locks, 1u);
    EXPECT_EQ(realtimeViolations(RealtimeRole::Rendering).allocations, 0u);
}

TEST(RealtimeRule, NoAllocationOrLockOnTheAudioThreadsWhilePlaying) {
    TeskExtendedAudioFilePlayer player(MemorySong::sine(44100 * 10, 330.0, 0.3), false);
    player.outputAudioUnit()->useSilentDevice();
    player.setEqualizerEnabled(true);
    player.setVocalRemoval(true);
    player.setPanAdjust(true);
    player.setPlaybackPitchInSemitones(-2.0);
    player.startFilePlaying();
    std::this_thread::sleep_for(std::chrono::milliseconds(300)); // start-up may allocate
    resetRealtimeViolations();

    playWhileChangingEverything(player, 2000, false);
    const RealtimeViolations device = realtimeViolations(RealtimeRole::Device);
    const RealtimeViolations rendering = realtimeViolations(RealtimeRole::Rendering);
    EXPECT_EQ(device.allocations, 0u);
    EXPECT_EQ(device.frees, 0u);
    EXPECT_EQ(device.locks, 0u);
    EXPECT_EQ(rendering.allocations, 0u);
    EXPECT_EQ(rendering.frees, 0u);
    EXPECT_EQ(rendering.locks, 0u);

    // Pitch changes may grow the stretcher library's resampler buffers: never on the device's
    // thread, and only a few times on the rendering thread.
    resetRealtimeViolations();
    playWhileChangingEverything(player, 2000, true);
    const RealtimeViolations deviceWithPitch = realtimeViolations(RealtimeRole::Device);
    const RealtimeViolations renderingWithPitch = realtimeViolations(RealtimeRole::Rendering);
    EXPECT_EQ(deviceWithPitch.allocations + deviceWithPitch.frees + deviceWithPitch.locks, 0u);
    EXPECT_EQ(renderingWithPitch.locks, 0u);
    std::printf("rendering-thread allocations with pitch changes: %llu (frees %llu)\n",
                static_cast<unsigned long long>(renderingWithPitch.allocations),
                static_cast<unsigned long long>(renderingWithPitch.frees));
    EXPECT_LT(renderingWithPitch.allocations, 200u);
    player.stopFilePlaying();
}
