#include "audio/TeskAudioFileReader.h"

#include "support/MemorySong.h"
#include "support/Signals.h"

#include <atomic>
#include <chrono>
#include <cmath>
#include <gtest/gtest.h>
#include <thread>

using namespace tesk;
using tesk::test::MemorySong;

namespace {

/// Pulls from a running reader the way the renderer does, waiting between empty pulls.
struct Puller {
    explicit Puller(TeskAudioFileReader& reader)
        : reader(reader) {}

    TeskAudioFileReader& reader;
    std::vector<float> left;
    std::vector<float> right;
    std::vector<SourceRun> runs;

    std::uint32_t pull(std::uint32_t frames,
                       std::chrono::milliseconds timeout = std::chrono::milliseconds(2000)) {
        const auto deadline = std::chrono::steady_clock::now() + timeout;
        std::vector<float> l(frames), r(frames);
        std::uint32_t total = 0;
        while (total < frames && std::chrono::steady_clock::now() < deadline &&
               !reader.endOfStream()) {
            AudioBufferList list;
            list.bufferCount = 2;
            list.buffers[0] = {1, frames, l.data()};
            list.buffers[1] = {1, frames, r.data()};
            std::uint32_t written = 0;
            SourceRuns copyRuns;
            reader.copyInto(list, frames - total, written, &copyRuns, total);
            for (std::uint32_t i = 0; i < copyRuns.count; ++i) {
                SourceRun run = copyRuns.runs[i];
                run.outputOffset += std::uint32_t(left.size());
                runs.push_back(run);
            }
            total += written;
            if (written == 0)
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        left.insert(left.end(), l.begin(), l.begin() + total);
        right.insert(right.end(), r.begin(), r.begin() + total);
        return total;
    }
};

} // namespace

TEST(TeskAudioFileReader, ReadsForwardsAndBackwardsWithTheirSources) {
    auto song = MemorySong::counting(20000);
    TeskAudioFileReader reader(3, 4096);
    reader.setAudioFile(song);
    reader.setCurrentFrame(1000);
    reader.start();
    Puller puller{reader};
    ASSERT_EQ(puller.pull(3000), 3000u);
    for (std::size_t i = 0; i < 3000; ++i) {
        ASSERT_EQ(puller.left[i], float(1000 + i)) << i;
        ASSERT_EQ(puller.right[i], -float(1000 + i)) << i;
    }
    ASSERT_FALSE(puller.runs.empty());
    EXPECT_EQ(puller.runs[0].sourceFrame, 1000);
    EXPECT_EQ(puller.runs[0].direction, 1);
    EXPECT_EQ(reader.currentFrame(), 4000);
    reader.stop();

    // Backwards from a boundary: the frame below it comes first, down to the song's start.
    reader.setReverse(true);
    reader.setCurrentFrame(600);
    reader.start();
    Puller backwards{reader};
    EXPECT_EQ(backwards.pull(1000), 600u);
    EXPECT_TRUE(reader.endOfStream());
    for (std::size_t i = 0; i < 600; ++i)
        ASSERT_EQ(backwards.left[i], float(599 - i)) << i;
    EXPECT_EQ(backwards.runs[0].sourceFrame, 599);
    EXPECT_EQ(backwards.runs[0].direction, -1);
}

TEST(TeskAudioFileReader, EndsAtTheEndAndASeekStartsAgain) {
    auto song = MemorySong::counting(5000);
    TeskAudioFileReader reader(3, 4096);
    reader.setAudioFile(song);
    reader.setCurrentFrame(4000);
    reader.start();
    Puller puller{reader};
    EXPECT_EQ(puller.pull(2000), 1000u);
    EXPECT_TRUE(reader.endOfStream());
    EXPECT_EQ(puller.left.back(), 4999.0f);

    reader.setCurrentFrame(10); // while running
    EXPECT_FALSE(reader.endOfStream());
    Puller again{reader};
    ASSERT_EQ(again.pull(100), 100u);
    EXPECT_EQ(again.left.front(), 10.0f);
    EXPECT_EQ(again.left.back(), 109.0f);
}

TEST(TeskAudioFileReader, APositionFromBeforeASeekIsNeverReportedAfterIt) {
    // Seeks alternate between two far-apart loops while the renderer copies as fast as it
    // can: once a seek has returned, the position is inside the new loop, whatever the renderer
    // was storing at that moment and however long this thread is kept from running.
    auto song = MemorySong::counting(1'200'000);
    TeskAudioFileReader reader(4, 1024);
    reader.setAudioFile(song);
    reader.setLooping(true);
    reader.start();
    std::atomic<bool> stop{false};
    std::thread renderer([&] {
        std::vector<float> l(64), r(64);
        AudioBufferList list;
        list.bufferCount = 2;
        list.buffers[0] = {1, 64, l.data()};
        list.buffers[1] = {1, 64, r.data()};
        while (!stop.load()) {
            std::uint32_t written = 0;
            reader.copyInto(list, 64, written, nullptr);
        }
    });
    int stale = 0;
    for (int i = 0; i < 4000; ++i) {
        const LoopRange loop{i % 2 == 0 ? 1000u : 1'000'000u, 100'000u};
        reader.setLoopRange(loop);
        reader.setCurrentFrame(loop.location + i % 100);
        const auto until = std::chrono::steady_clock::now() + std::chrono::microseconds(50);
        while (std::chrono::steady_clock::now() < until) {
            const std::int64_t position = reader.currentFrame();
            stale += position < loop.location || position > loop.location + loop.length;
        }
    }
    stop = true;
    renderer.join();
    EXPECT_EQ(stale, 0);
}

TEST(TeskAudioFileReader, LoopsWrapFrameExactlyWithAShortCrossfadeBeforeTheSeam) {
    auto song = MemorySong::counting(50000);
    TeskAudioFileReader reader(3, 4096);
    reader.setAudioFile(song);
    reader.setLoopRange({10000, 3000});
    reader.setLooping(true);
    reader.setCurrentFrame(12000);
    reader.start();
    Puller puller{reader};
    ASSERT_EQ(puller.pull(8000), 8000u);
    EXPECT_FALSE(reader.endOfStream());

    // 1000 frames to the seam, then whole loops of exactly 3000 frames from the loop's start.
    const std::size_t fade = TeskAudioFileReader::kLoopCrossfadeFrames;
    for (std::size_t i = 0; i < 1000 - fade; ++i)
        ASSERT_EQ(puller.left[i], float(12000 + i)) << i;
    for (std::size_t i = 1000; i < 8000; ++i) {
        const std::size_t inLoop = (i - 1000) % 3000;
        if (inLoop >= 3000 - fade)
            continue; // the crossfade before the next seam
        ASSERT_EQ(puller.left[i], float(10000 + inLoop)) << i;
    }
    // Inside the crossfade the values move from the end of the loop towards what precedes its
    // start, so the seam joins neighbouring frames.
    EXPECT_NEAR(puller.left[999], 9999.0f, 3000.0f / float(fade));
    EXPECT_GT(puller.left[1000 - fade], 10000.0f);

    // The runs tell where each stretch came from.
    ASSERT_GE(puller.runs.size(), 3u);
    EXPECT_EQ(puller.runs[1].outputOffset, 1000u);
    EXPECT_EQ(puller.runs[1].sourceFrame, 10000);
}

TEST(TeskAudioFileReader, LoopSeamsOfADiscontinuousSignalDoNotClick) {
    // A sine whose phase jumps at the seam: without the crossfade the wrap would jump by up to
    // twice its amplitude.
    auto song = MemorySong::sine(30000, 440.0, 0.5);
    TeskAudioFileReader reader(3, 4096);
    reader.setAudioFile(song);
    reader.setLoopRange({5000, 5037});
    reader.setLooping(true);
    reader.setCurrentFrame(9000);
    reader.start();
    Puller puller{reader};
    ASSERT_EQ(puller.pull(4000), 4000u);
    const double sineStep = 2.0 * M_PI * 440.0 / 44100.0 * 0.5; // largest step of the sine
    EXPECT_LT(test::largestStep(puller.left), 2.0 * sineStep);
}

TEST(TeskAudioFileReader, WaitsForFramesThatAreStillDecoding) {
    auto song = MemorySong::counting(20000);
    song->decodeOnlyUpTo(1000);
    TeskAudioFileReader reader(3, 4096);
    reader.setAudioFile(song);
    reader.start();
    Puller puller{reader};
    EXPECT_EQ(puller.pull(3000, std::chrono::milliseconds(100)), 1000u);
    EXPECT_FALSE(reader.endOfStream());
    song->finishDecoding();
    ASSERT_EQ(puller.pull(2000), 2000u);
    EXPECT_EQ(puller.left[2999], 2999.0f);
}
