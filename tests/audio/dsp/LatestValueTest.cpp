#include "audio/dsp/LatestValue.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <thread>
#include <vector>

namespace tesk {
namespace {

TEST(LatestValue, ReaderGetsTheNewestPublishedValueAndKeepsItUntilTheNextRead) {
    LatestValue<std::vector<int>> value(std::vector<int>(4, 0));
    EXPECT_EQ(value.read(), nullptr);

    value.write({1, 1, 1, 1});
    value.write({2, 2, 2, 2});
    value.write({3, 3, 3, 3});
    const std::vector<int>* newest = value.read();
    ASSERT_NE(newest, nullptr);
    EXPECT_EQ(*newest, std::vector<int>(4, 3));

    // The writer keeps going; the value in the reader's hands must not change under it.
    for (int i = 4; i < 10; ++i)
        value.write(std::vector<int>(4, i));
    EXPECT_EQ(*newest, std::vector<int>(4, 3));
    EXPECT_EQ(*value.read(), std::vector<int>(4, 9));

    // Filling the write slot in place is not visible until it is published.
    value.writeSlot().assign(4, 10);
    EXPECT_EQ(*value.read(), std::vector<int>(4, 9));
    value.publish();
    EXPECT_EQ(*value.read(), std::vector<int>(4, 10));
}

TEST(LatestValue, ConcurrentReaderNeverSeesATornOrOlderValue) {
    using Values = std::array<std::uint64_t, 256>;
    LatestValue<Values> value(Values{});
    constexpr std::uint64_t kPublications = 100000;
    std::atomic<bool> readerStarted{false};
    std::atomic<bool> writerDone{false};

    std::thread writer([&] {
        while (!readerStarted.load())
            std::this_thread::yield();
        for (std::uint64_t counter = 1; counter <= kPublications; ++counter) {
            Values& slot = value.writeSlot();
            for (std::uint64_t& element : slot)
                element = counter;
            value.publish();
        }
        writerDone.store(true);
    });

    std::uint64_t torn = 0;
    std::uint64_t backwards = 0;
    std::uint64_t last = 0;
    bool finalRead = false;
    readerStarted.store(true);
    while (!finalRead) {
        // One more read after the writer has finished, which must see its last value.
        finalRead = writerDone.load();
        const Values* current = value.read();
        if (!current)
            continue;
        const std::uint64_t first = (*current)[0];
        for (std::uint64_t element : *current)
            torn += element != first ? 1 : 0;
        backwards += first < last ? 1 : 0;
        last = first;
    }
    writer.join();

    EXPECT_EQ(torn, 0u);
    EXPECT_EQ(backwards, 0u);
    EXPECT_EQ(last, kPublications);
}

} // namespace
} // namespace tesk
