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

/// A reader of `song` started at `frame` (looping over `loop` if it has a length), pulled from
/// the way the renderer does, waiting between empty pulls.
struct Puller {
    Puller(std::shared_ptr<const DecodedFrames> song, std::int64_t frame, LoopRange loop = {},
           bool reverse = false) {
        reader.setAudioFile(std::move(song));
        reader.setLoopRange(loop);
        reader.setLooping(loop.length > 0);
        reader.setReverse(reverse);
        reader.setCurrentFrame(frame);
        reader.start();
    }

    TeskAudioFileReader reader{3, 4096};
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
            std::uint32_t written = 0;
            SourceRuns copyRuns;
            reader.copyInto(AudioBufferList::stereo(l.data(), r.data(), frames), frames - total,
                            written, &copyRuns, total);
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

/// Expects `count` frames of `samples` from `from` to count on from `first` by `step`.
void expectCounting(const std::vector<float>& samples, std::size_t from, std::size_t count,
                    float first, float step = 1.0f) {
    for (std::size_t i = 0; i < count; ++i)
        ASSERT_EQ(samples[from + i], first + step * float(i)) << "frame " << from + i;
}

/// A renderer that copies from `reader`, 64 frames at a time, as fast as it can until it is
/// destroyed.
class FlatOutRenderer {
public:
    explicit FlatOutRenderer(TeskAudioFileReader& reader)
        : mThread([this, &reader] {
            std::vector<float> left(64), right(64);
            while (!mStop.load()) {
                std::uint32_t written = 0;
                reader.copyInto(AudioBufferList::stereo(left.data(), right.data(), 64), 64,
                                written);
            }
        }) {}
    ~FlatOutRenderer() {
        mStop = true;
        mThread.join();
    }

private:
    std::atomic<bool> mStop{false};
    std::thread mThread;
};

} // namespace

TEST(TeskAudioFileReader, ReadsForwardsAndBackwardsWithTheirSourcesToTheSongsEnds) {
    Puller puller(MemorySong::counting(5000), 1000);
    ASSERT_EQ(puller.pull(3000), 3000u);
    expectCounting(puller.left, 0, 3000, 1000.0f);
    expectCounting(puller.right, 0, 3000, -1000.0f, -1.0f);
    ASSERT_FALSE(puller.runs.empty());
    EXPECT_EQ(puller.runs[0].sourceFrame, 1000);
    EXPECT_EQ(puller.runs[0].direction, 1);
    EXPECT_EQ(puller.reader.currentFrame(), 4000);
    // Forwards, only what is left of the song comes.
    EXPECT_EQ(puller.pull(2000), 1000u);
    EXPECT_TRUE(puller.reader.endOfStream());
    EXPECT_EQ(puller.left.back(), 4999.0f);
    puller.reader.stop();

    // Backwards from a boundary: the frame below it comes first, down to the song's start.
    puller.reader.setReverse(true);
    puller.reader.setCurrentFrame(600);
    puller.reader.start();
    puller.left.clear(); // counted afresh from the seek
    puller.runs.clear();
    EXPECT_EQ(puller.pull(1000), 600u);
    EXPECT_TRUE(puller.reader.endOfStream());
    expectCounting(puller.left, 0, 600, 599.0f, -1.0f);
    EXPECT_EQ(puller.runs[0].sourceFrame, 599);
    EXPECT_EQ(puller.runs[0].direction, -1);
}

TEST(TeskAudioFileReader, TheMusicBeforeTheStartIsHandedApartAndNeverPlayed) {
    // Frame i of the song says i: the music before a start is what plays up to it, nearest
    // last, in the direction of play and whatever the loop; then play begins at the start.
    const struct {
        const char* what;
        std::int64_t position;
        bool reverse;
        LoopRange loop;
        std::uint32_t asked;
        float first; // the first frame handed, in playing order
        std::uint32_t count;
        float played; // the first frame played
    } cases[] = {
        {"forwards", 10000, false, {}, 2048, 7952, 2048, 10000},
        {"the nearest only", 10000, false, {}, 1000, 9000, 1000, 10000},
        {"near the start", 300, false, {}, 2048, 0, 300, 300},
        {"at the start", 0, false, {}, 2048, 0, 0, 0},
        {"backwards", 10000, true, {}, 2048, 12047, 2048, 9999},
        {"backwards near the end", 19000, true, {}, 2048, 19999, 1000, 18999},
        {"into a loop", 9000, false, {5000, 2000}, 2048, 2952, 2048, 5000},
        {"backwards into a loop", 1000, true, {5000, 2000}, 2048, 9047, 2048, 6999},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        auto song = MemorySong::counting(20000);
        Puller puller(song, c.position, c.loop, c.reverse);
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(2);
        while (!puller.reader.hasFramesReady() && std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        std::vector<float> left(c.asked, -1.0f), right(c.asked, -1.0f);
        const auto buffers = AudioBufferList::stereo(left.data(), right.data(), c.asked);
        ASSERT_EQ(puller.reader.copyPreroll(buffers, c.asked), c.count);
        const float step = c.reverse ? -1.0f : 1.0f;
        expectCounting(left, 0, c.count, c.first, step);
        expectCounting(right, 0, c.count, -c.first, -step);
        ASSERT_EQ(puller.pull(100), 100u);
        EXPECT_EQ(puller.left[0], c.played);
        EXPECT_EQ(puller.runs[0].sourceFrame, std::int64_t(c.played));
        EXPECT_EQ(puller.reader.copyPreroll(buffers, c.asked), 0u) << "once playing began";
    }

    // Until the frame at the start is decoded, the music before it is no frame to play.
    auto song = MemorySong::counting(20000);
    song->decodeOnlyUpTo(10000);
    Puller puller(song, 10000);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(puller.reader.hasFramesReady());
    song->finishDecoding();
    ASSERT_EQ(puller.pull(1), 1u);
    EXPECT_EQ(puller.left[0], 10000.0f);
}

TEST(TeskAudioFileReader, AFullRingSleepsLongWhilePlayingAndShortWhileDrainedFast) {
    using std::chrono::microseconds;
    const microseconds longest(17000);
    const struct {
        microseconds slept;
        std::uint64_t freeBlocks;
        microseconds next;
    } cases[] = {
        {microseconds(1000), 1, microseconds(2000)},  // playing: grows
        {microseconds(16000), 2, longest},            // to a quarter of the ring's playing time
        {longest, 6, longest},                        // a quarter free: as it should be
        {longest, 7, microseconds(8500)},             // more: drawn on faster than playing
        {microseconds(1500), 24, microseconds(1000)}, // an export: down to a millisecond
        {microseconds(1000), 24, microseconds(1000)},
    };
    for (const auto& c : cases)
        EXPECT_EQ(TeskAudioFileReader::nextFullRingSleep(c.slept, c.freeBlocks, 24, longest),
                  c.next)
            << c.slept.count() << " " << c.freeBlocks;
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
    const FlatOutRenderer renderer(reader);
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
    EXPECT_EQ(stale, 0);
}

TEST(TeskAudioFileReader, SeeksMadeWhileTheRendererCopiesLoseNothingOfTheirStream) {
    // The renderer copies as fast as it can while seeks alternate between the song's last
    // frames and its start. A seek to the end plays on to the end, whatever part of its first
    // frames the renderer meets during a copy it began before the seek; the end reached just
    // as the next seek comes says nothing of the stream that seek starts.
    const std::int64_t frames = 1'200'000;
    TeskAudioFileReader reader(4, 1024);
    reader.setAudioFile(MemorySong::counting(frames));
    reader.start();
    const FlatOutRenderer renderer(reader);
    int stalled = 0;
    int staleEnds = 0;
    for (int i = 0; i < 1000 && stalled == 0; ++i) {
        reader.setCurrentFrame(frames - 256 - i % 64);
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        while (reader.currentFrame() < frames - 64 && std::chrono::steady_clock::now() < deadline) {
        }
        stalled += reader.currentFrame() < frames - 64;
        reader.setCurrentFrame(0);
        // Read in this order, an end reached in its own right comes with a position at the
        // end: the renderer got there before it said so. (Should this thread be held up, the
        // renderer may well play the whole song meanwhile.)
        const auto until = std::chrono::steady_clock::now() + std::chrono::microseconds(50);
        while (std::chrono::steady_clock::now() < until)
            staleEnds += reader.endOfStream() && reader.currentFrame() < frames / 2;
    }
    EXPECT_EQ(stalled, 0);
    EXPECT_EQ(staleEnds, 0);
}

TEST(TeskAudioFileReader, LoopsWrapFrameExactlyWithAShortCrossfadeBeforeTheSeam) {
    Puller puller(MemorySong::counting(50000), 12000, {10000, 3000});
    ASSERT_EQ(puller.pull(8000), 8000u);
    EXPECT_FALSE(puller.reader.endOfStream());

    // 1000 frames to the seam, then whole loops of exactly 3000 frames from the loop's start,
    // each up to the crossfade before the next seam.
    const std::size_t fade = TeskAudioFileReader::kLoopCrossfadeFrames;
    expectCounting(puller.left, 0, 1000 - fade, 12000.0f);
    for (std::size_t start = 1000; start < 8000; start += 3000)
        expectCounting(puller.left, start, std::min(3000 - fade, 8000 - start), 10000.0f);
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
    // twice its amplitude. A loop at the song's start (or, backwards, at its end) has nothing
    // beyond its seam to cross into.
    const struct {
        const char* name;
        std::int64_t from;
        LoopRange loop;
        bool reverse;
    } cases[] = {{"inside the song", 9000, {5000, 5037}, false},
                 {"backwards, inside the song", 9000, {5000, 5037}, true},
                 {"at the song's start", 0, {0, 9037}, false},
                 {"backwards, at the song's end", 30000, {20000, 10000}, true},
                 {"reaching past the song's end", 26000, {25010, 9000}, false}};
    const double sineStep = 2.0 * M_PI * 440.0 / 44100.0 * 0.5; // largest step of the sine
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Puller puller(MemorySong::sine(30000, 440.0, 0.5), c.from, c.loop, c.reverse);
        ASSERT_EQ(puller.pull(20000), 20000u);
        EXPECT_LT(test::largestStep(puller.left), 2.0 * sineStep);
    }
}
