#include "waveform/Waveform.h"
#include "waveform/PeakColumns.h"

#include "support/AudioFiles.h"
#include "support/MemorySong.h"
#include "support/Signals.h"

#include <QCoreApplication>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

namespace {

using namespace tesk;
using test::MemorySong;

/// Notes what the waveform says, and flags a message off the main thread or out of order.
struct Recorder : WaveformDelegate {
    int scansBegun = 0;
    qint64 lengthAtBegin = -1;
    qint64 lengthLearned = -1;
    std::vector<FrameRange> ranges;
    bool misplaced = false;

    void waveformDidBeginScanningFile(Waveform* waveform) override {
        misplaced |= QThread::currentThread() != qApp->thread() || !ranges.empty();
        ++scansBegun;
        lengthAtBegin = waveform->totalFrameCount();
    }
    void waveformDidLearnFrameCount(Waveform* waveform) override {
        misplaced |= QThread::currentThread() != qApp->thread() || scansBegun != 1;
        lengthLearned = waveform->totalFrameCount();
    }
    void waveformHasAvailableFrames(Waveform* waveform, FrameRange frames) override {
        const qint64 end = ranges.empty() ? 0 : ranges.back().location + ranges.back().length;
        misplaced |= QThread::currentThread() != qApp->thread() || scansBegun != 1 ||
                     frames.location != end ||
                     waveform->availableFrameCount() != end + frames.length;
        ranges.push_back(frames);
    }
};

bool waitForScanEnd(const Waveform& waveform) {
    return QTest::qWaitFor([&] { return !waveform.isScanning(); }, 20000);
}

TEST(Waveform, SummarisesInFileOrderOnTheMainThreadAsTheSongDecodes) {
    // Every frame's magnitude is its own index, so each bin's peak is its last frame.
    const qint64 frames = 2 * 88200 + 5013;
    const auto song = MemorySong::counting(frames);
    song->decodeOnlyUpTo(100000);
    Recorder recorder;
    Waveform waveform(song, QUrl(), &recorder);
    EXPECT_EQ(recorder.scansBegun, 0) << "told before the main thread's event loop ran";
    ASSERT_TRUE(QTest::qWaitFor([&] { return recorder.ranges.size() == 1; }));
    QTest::qWait(50);
    EXPECT_EQ(recorder.ranges.size(), 1u) << "a block of frames not decoded yet";
    song->finishDecoding();
    ASSERT_TRUE(waitForScanEnd(waveform));

    EXPECT_FALSE(recorder.misplaced);
    EXPECT_EQ(recorder.lengthAtBegin, frames);
    EXPECT_EQ(recorder.ranges,
              (std::vector<FrameRange>{{0, 88200}, {88200, 88200}, {176400, 5013}}));
    const auto& blocks = waveform.waveformBlocks();
    ASSERT_EQ(blocks.size(), 3u);
    EXPECT_EQ(blocks[1].pointBuffer()->front(), (WaveformPoint{88225.0f, 88249.0f}));
    // 100 bins and one of 13 frames, centred on them.
    EXPECT_EQ(blocks[2].pointBuffer()->size(), 101u);
    EXPECT_EQ(blocks[2].pointBuffer()->back(), (WaveformPoint{181406.0f, float(frames - 1)}));
}

TEST(Waveform, ALengthGuessedBeforeDecodingEndsIsCorrectedOnceItHas) {
    const qint64 frames = 100000;
    for (const qint64 guess : {frames + 30000, frames - 30000, frames}) {
        SCOPED_TRACE(guess);
        const auto song = MemorySong::counting(frames);
        song->decodeOnlyUpTo(1000);
        song->guessLength(guess);
        Recorder recorder;
        Waveform waveform(song, QUrl(), &recorder);
        ASSERT_TRUE(QTest::qWaitFor([&] { return recorder.scansBegun == 1; }));
        EXPECT_EQ(recorder.lengthAtBegin, guess);
        song->finishDecoding();
        ASSERT_TRUE(waitForScanEnd(waveform));
        QCoreApplication::processEvents();
        EXPECT_EQ(waveform.totalFrameCount(), frames);
        EXPECT_EQ(recorder.lengthLearned, guess == frames ? -1 : frames) << "told only of a change";
        EXPECT_FALSE(recorder.misplaced);
    }
}

TEST(Waveform, DrawsFromBaseLineToBaseLineAtAboutOneVertexPerPoint) {
    const qint64 frames = 10 * 88200 + 777;
    Waveform waveform(MemorySong::sine(frames, 440.0, 0.5), QUrl(), nullptr);
    ASSERT_TRUE(waitForScanEnd(waveform));
    // Zoom 0 shows 50 × (maximum + 1) frames a point, rounded; zoom 1 one bin of 50.
    EXPECT_EQ(waveform.sampleFromPoint(10.5f, 9.3, 0.0), 5407);
    EXPECT_EQ(waveform.pointFromSample(5150, 9.3, 0.0), 10.0f);
    EXPECT_EQ(waveform.sampleFromPoint(10.5f, 9.3, 1.0), 525);
    EXPECT_EQ(waveform.blockIndexForPoint(1764.0f, 9.3, 1.0), 1);
    EXPECT_EQ(waveform.blockIndexForPoint(-1.0f, 9.3, 1.0), Waveform::NSNotFound);

    // The whole song across a 400-point view at zoom 0, as the view sets its maximum zoom.
    const double maximumZoom = double(frames) / (400.0 * 50.0) - 1.0;
    const auto whole = waveform.createPathForRect({0, 0, 400, 100}, maximumZoom, 0.0);
    ASSERT_TRUE(whole);
    const int last = whole->elementCount() - 1;
    EXPECT_EQ(QPointF(whole->elementAt(0)), QPointF(0.0, 0.0));
    EXPECT_EQ(QPointF(whole->elementAt(last)),
              QPointF(waveform.pointFromSample(frames - 1, maximumZoom, 0.0), 0.0));
    EXPECT_NEAR(last, 400, 20) << "one vertex a point";
    for (int i = 1; i < last; ++i)
        ASSERT_NEAR(whole->elementAt(i).y, 0.5, 0.01) << i;

    // At zoom 1 every bin is a vertex; past the song nothing; a rect from the last block to
    // past the song is drawn to the song's end.
    const auto close = waveform.createPathForRect({3600, 0, 20, 100}, maximumZoom, 1.0);
    ASSERT_TRUE(close);
    EXPECT_EQ(close->elementCount(), 1764 + 2);
    const float end = float(frames) / 50.0f;
    EXPECT_FALSE(waveform.createPathForRect({end + 1, 0, 100, 100}, maximumZoom, 1.0));
    const auto tail = waveform.createPathForRect({end - 5, 0, 100, 100}, maximumZoom, 1.0);
    ASSERT_TRUE(tail);
    EXPECT_EQ(tail->elementCount(), 16 + 2);
    // Drawn again at the first zoom after the others, the whole song is the same outline.
    EXPECT_EQ(waveform.createPathForRect({0, 0, 400, 100}, maximumZoom, 0.0), whole);
    EXPECT_EQ(QPointF(tail->elementAt(17)),
              QPointF(waveform.pointFromSample(frames - 1, maximumZoom, 1.0), 0.0));
}

TEST(Waveform, EmptyUnreadableAndCutOffSongsBeginTheScanAndDrawOnlyWhatDecoded) {
    QTemporaryDir folder;
    const QString wav = folder.filePath("song.wav");
    const QString garbage = folder.filePath("garbage.mp3");
    ASSERT_TRUE(test::writeWav(wav, {test::sine(1000, 0.2, 100000), test::sine(1000, 0.2, 100000)},
                               44100, test::WavSampleFormat::Int16));
    // Cut off in the middle: the header still claims 100000 frames.
    ASSERT_TRUE(QFile(wav).resize(44 + 4 * 60000));
    ASSERT_TRUE(test::writeFile(garbage, QByteArray(5000, 'x')));

    Recorder silent, unreadable, cutOff;
    Waveform fromEmpty(std::make_shared<MemorySong>(std::vector<float>{}, std::vector<float>{}),
                       QUrl(), &silent);
    Waveform fromGarbage(QUrl::fromLocalFile(garbage), &unreadable);
    Waveform fromCutOff(QUrl::fromLocalFile(wav), &cutOff);
    for (const Waveform* waveform : {&fromEmpty, &fromGarbage, &fromCutOff})
        ASSERT_TRUE(waitForScanEnd(*waveform));
    for (const Recorder* recorder : {&silent, &unreadable}) {
        EXPECT_EQ(recorder->scansBegun, 1);
        EXPECT_EQ(recorder->lengthAtBegin, 0);
        EXPECT_TRUE(recorder->ranges.empty());
    }
    EXPECT_FALSE(fromGarbage.createPathForRect({0, 0, 100, 100}, 0.0, 1.0));

    EXPECT_FALSE(cutOff.misplaced);
    EXPECT_EQ(cutOff.ranges, (std::vector<FrameRange>{{0, 60000}}));
    EXPECT_FALSE(fromCutOff.createPathForRect({1200, 0, 100, 100}, 0.0, 1.0));
    const auto drawn = fromCutOff.createPathForRect({1000, 0, 1000, 100}, 0.0, 1.0);
    ASSERT_TRUE(drawn);
    EXPECT_EQ(QPointF(drawn->elementAt(drawn->elementCount() - 1)),
              QPointF(fromCutOff.pointFromSample(59999, 0.0, 1.0), 0.0));
    EXPECT_NEAR(drawn->elementAt(1).y, 0.2, 0.001);
}

TEST(Waveform, StoppingEndsTheScanAtOnceAndNothingMoreArrives) {
    // Stopped while waiting for decoding: the decoder never catches up.
    const auto song = MemorySong::sine(5 * 88200, 440.0, 0.5);
    song->decodeOnlyUpTo(100000);
    Recorder waiting;
    Waveform waveform(song, QUrl(), &waiting);
    ASSERT_TRUE(QTest::qWaitFor([&] { return waiting.ranges.size() == 1; }));
    waveform.stop();
    EXPECT_FALSE(waveform.isScanning());
    song->finishDecoding();
    QTest::qWait(50);
    EXPECT_EQ(waiting.ranges.size(), 1u);

    // Stopped while the worker waits on a hand-over that the main thread has not run: the
    // queued message is dropped rather than delivered or waited for.
    Recorder handingOver;
    Waveform blocked(MemorySong::sine(88200, 440.0, 0.5), QUrl(), &handingOver);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    blocked.stop();
    QTest::qWait(20);
    EXPECT_EQ(handingOver.scansBegun, 0);
}

} // namespace

TEST(PeakColumns, EachColumnIsAsHighAsThePeaksReachAcrossIt) {
    // Peaks from (0, 0) on, a column each 1 / ratio points: the heights expected column by
    // column, left to right.
    struct Case {
        const char* name;
        std::vector<QPointF> peaks;
        qreal ratio;
        std::vector<qreal> heights;
    };
    const Case cases[] = {
        {"a spike inside one column",
         {{0, 0}, {1.2, 0}, {1.3, 0.8}, {1.4, 0}, {3, 0}},
         1,
         {0, 0.8, 0}},
        {"a spike straight up inside one column",
         {{0, 0}, {1.5, 0}, {1.5, 0.9}, {3, 0}},
         1,
         {0, 0.9, 0.6}},
        {"a spike on a column's edge reaches both",
         {{0, 0}, {2, 0.5}, {2, 0}, {3, 0}},
         1,
         {0.25, 0.5, 0.5}},
        {"a ramp, highest at each column's right edge", {{0, 0}, {4, 1}}, 1, {0.25, 0.5, 0.75, 1}},
        {"the same ramp at ratio 2", {{0, 0}, {2, 1}}, 2, {0.25, 0.5, 0.75, 1}},
        {"a spike between two pixels at ratio 1.25",
         {{0, 0}, {0.7, 0}, {0.75, 0.6}, {0.85, 0}, {1.6, 0}},
         1.25,
         {0.6, 0.3}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        QPainterPath peaks(c.peaks.front());
        for (std::size_t i = 1; i < c.peaks.size(); ++i)
            peaks.lineTo(c.peaks[i]);
        const QPainterPath outline = peakColumns(peaks, c.ratio);
        // The outline's height at each column's middle, from its corners.
        std::vector<qreal> heights;
        for (std::size_t column = 0; column < c.heights.size(); ++column) {
            const qreal middle = (qreal(column) + 0.5) / c.ratio;
            qreal height = -1;
            for (int i = 0; i + 1 < outline.elementCount(); ++i) {
                const QPointF a = outline.elementAt(i), b = outline.elementAt(i + 1);
                if (a.y() == b.y() && a.x() < middle && middle < b.x())
                    height = a.y();
            }
            heights.push_back(height);
        }
        for (std::size_t i = 0; i < heights.size(); ++i)
            EXPECT_NEAR(heights[i], c.heights[i], 1e-9) << "column " << i;
        // From the base line and back to it, at the last column's right edge.
        EXPECT_EQ(QPointF(outline.elementAt(0)), QPointF(0, 0));
        EXPECT_EQ(QPointF(outline.elementAt(outline.elementCount() - 2)),
                  QPointF(qreal(c.heights.size()) / c.ratio, 0));
    }
}
