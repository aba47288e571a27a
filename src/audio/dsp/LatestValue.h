#pragma once

#include <array>
#include <atomic>
#include <cstdint>

namespace tesk {

/// Hands the newest of a stream of values from one thread to another without locks: the
/// writer publishes whole values, the reader always gets the newest complete one and never a
/// half-written one. Three preallocated slots take turns (one being written, one being read,
/// one holding the newest published value), so nothing is allocated or freed after
/// construction and nobody ever waits: a writer that outpaces the reader simply overwrites
/// values the reader never saw.
///
/// Exactly one writer thread and one reader thread, which may be the same. The rendering thread or
/// the device callback may be either side: every operation is a few loads, stores and one atomic
/// exchange.
template <typename T> class LatestValue {
public:
    /// Every slot starts as a copy of `prototype`: give it the size the values will have (for
    /// example a vector of the right length) so that writing into a slot never allocates.
    /// Any thread; allocates as T's copies do.
    explicit LatestValue(const T& prototype = T{})
        : mSlots{Slot{prototype}, Slot{prototype}, Slot{prototype}} {}

    LatestValue(const LatestValue&) = delete;
    LatestValue& operator=(const LatestValue&) = delete;

    /// The slot the writer fills before `publish()`. It holds an older value (not necessarily
    /// the last one published), so overwrite it completely.
    /// Writer thread. Never allocates or blocks.
    T& writeSlot() { return mSlots[mWriteIndex].value; }

    /// Makes the write slot's contents the newest value and hands the writer another slot.
    /// Writer thread. Never allocates or blocks.
    void publish() {
        // Release makes the slot's contents visible with its index; acquire makes sure the
        // reader has finished with whatever slot comes back before the writer reuses it.
        const std::uint8_t previous =
            mMiddle.exchange(mWriteIndex | kFresh, std::memory_order_acq_rel);
        mWriteIndex = previous & kIndexMask;
    }

    /// Copies `value` into the write slot and publishes it. Allocates only if copying T into a
    /// slot does (not for equal-length vectors or fixed arrays).
    /// Writer thread.
    void write(const T& value) {
        writeSlot() = value;
        publish();
    }

    /// The newest published value, or null if nothing was published yet. The value stays valid
    /// and unchanged until the reader's next `read()`.
    /// Reader thread. Never allocates or blocks.
    const T* read() {
        if (mMiddle.load(std::memory_order_relaxed) & kFresh) {
            const std::uint8_t newest = mMiddle.exchange(mReadIndex, std::memory_order_acq_rel);
            mReadIndex = newest & kIndexMask;
            mHasValue = true;
        }
        return mHasValue ? &mSlots[mReadIndex].value : nullptr;
    }

private:
    static constexpr std::uint8_t kIndexMask = 0x3;
    static constexpr std::uint8_t kFresh = 0x4;

    // Slots on separate cache lines, so the two threads do not slow each other down.
    struct alignas(64) Slot {
        T value;
    };

    std::array<Slot, 3> mSlots;
    // The slot between the two sides, with kFresh set while it holds a value the reader has not
    // taken yet.
    alignas(64) std::atomic<std::uint8_t> mMiddle{1};
    alignas(64) std::uint8_t mWriteIndex = 0;
    alignas(64) std::uint8_t mReadIndex = 2;
    bool mHasValue = false;

    static_assert(std::atomic<std::uint8_t>::is_always_lock_free);
};

} // namespace tesk
