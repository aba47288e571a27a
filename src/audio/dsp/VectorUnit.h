#pragma once

namespace tesk {

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
/// Whether the processor has AVX, and so the instruction below; settled at load time, so that a
/// device callback reads a plain value.
inline const bool kProcessorHasAvx = [] {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx") != 0;
}();
#endif

/// Puts the processor's vector unit of the calling thread in its clean state. Call it first
/// thing on every thread Tesk starts for audio work, and from a device callback.
///
/// Why: a new thread starts with a copy of its creator's registers. When the creator is the
/// main thread, it often comes straight from Qt's 256-bit painting code with the upper halves of
/// the vector registers still in use. On many x86 processors every switch between the time
/// stretcher's 128-bit code and the maths library's newer encoding then costs a state
/// transition, which made the rendering thread of a window's song take two thirds more
/// processor time than the same song played without a window. Other code a thread runs between
/// two slices can leave them in use again (an export thread's file writing did, costing a
/// quarter more time), so the processing chain clears them at the start of every slice too.
///
/// Any thread, the device callback included: one instruction, nothing else.
inline void clearVectorUpperState() noexcept {
#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
    if (kProcessorHasAvx)
        __asm__ volatile("vzeroupper");
#endif
}

} // namespace tesk
