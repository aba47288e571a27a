#include "diagnostics/RealtimeThread.h"

namespace tesk {
namespace {
thread_local RealtimeRole currentRole = RealtimeRole::None;
}

void markRealtimeThread(RealtimeRole role) noexcept {
    currentRole = role;
}

RealtimeRole realtimeRole() noexcept {
    return currentRole;
}

} // namespace tesk
