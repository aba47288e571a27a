#include "audio/dsp/BufferQueue.h"

#include "support/Assertions.h"

#include <numeric>
#include <vector>

namespace {

using tesk::BufferQueue;

std::vector<float> ramp(float first, std::size_t count) {
    std::vector<float> values(count);
    std::iota(values.begin(), values.end(), first);
    return values;
}

std::vector<float> readAll(const BufferQueue<float>& queue) {
    std::vector<float> values(queue.used());
    queue.read(values.data(), values.size());
    return values;
}

TEST(BufferQueue, KeepsOrderAcrossTheEndOfItsStorage) {
    BufferQueue<float> queue(8);
    queue.append(ramp(1, 5).data(), 5);
    queue.advance(5);
    // The next six samples run past the end of the storage and continue at its start.
    queue.append(ramp(6, 6).data(), 6);
    EXPECT_EQ(queue.used(), 6u);
    EXPECT_EQ(readAll(queue), ramp(6, 6));
    // Reading does not consume; advancing does.
    EXPECT_EQ(readAll(queue), ramp(6, 6));
    // A read further in starts there, and may wrap as well.
    std::vector<float> inside(3);
    queue.read(inside.data(), 3, 1);
    EXPECT_EQ(inside, ramp(7, 3));
    queue.advance(4);
    EXPECT_EQ(readAll(queue), ramp(10, 2));
    // Filling to capacity exactly is allowed, and the read position wraps too.
    queue.append(ramp(12, 6).data(), 6);
    EXPECT_EQ(queue.used(), 8u);
    EXPECT_EQ(readAll(queue), ramp(10, 8));
    queue.advance(8);
    EXPECT_EQ(queue.used(), 0u);
}

TEST(BufferQueue, ReportsMisuseBeforeTouchingItsState) {
    BufferQueue<float> queue(4096);
    const std::vector<float> samples(4097, 1.0f);
    EXPECT_TESK_ASSERTION(queue.append(samples.data(), 4097), "length <= mLength");
    queue.append(samples.data(), 4000);
    EXPECT_TESK_ASSERTION(queue.append(samples.data(), 97), "0");
    EXPECT_EQ(queue.used(), 4000u);

    std::vector<float> destination(4097);
    EXPECT_TESK_ASSERTION(queue.read(nullptr, 1), "dest");
    EXPECT_TESK_ASSERTION(queue.read(destination.data(), 4097), "length <= mLength");
    EXPECT_TESK_ASSERTION(queue.read(destination.data(), 4001), "skip + length <= mUsed");
    EXPECT_TESK_ASSERTION(queue.read(destination.data(), 2, 3999), "skip + length <= mUsed");
    EXPECT_TESK_ASSERTION(queue.advance(4097), "length <= mLength");
    EXPECT_TESK_ASSERTION(queue.advance(4001), "length <= mUsed");
    EXPECT_EQ(queue.used(), 4000u);

    try {
        queue.advance(4001);
        ADD_FAILURE() << "advancing past the held samples did not fail";
    } catch (const tesk::test::AssertionFailed& caught) {
        EXPECT_EQ(caught.failure.function, "advance");
        EXPECT_EQ(caught.failure.file, "BufferQueue.h");
        EXPECT_GT(caught.failure.line, 0);
    }
}

} // namespace
