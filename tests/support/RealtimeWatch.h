#pragma once

#include "diagnostics/RealtimeThread.h"

#include <cstdint>

namespace tesk::test {

/// What the real-time threads did that they must not: allocations (and frees) and mutex locks,
/// counted by replacing the C library's functions in the test executable that links
/// RealtimeWatch.cpp (not under the sanitizers, which replace them themselves).
struct RealtimeViolations {
    std::uint64_t allocations = 0;
    std::uint64_t frees = 0;
    std::uint64_t locks = 0;
};

RealtimeViolations realtimeViolations(RealtimeRole role);
void resetRealtimeViolations();

} // namespace tesk::test
