#pragma once

namespace tesk {

/// Which kind of real-time thread the calling thread is: none, the thread that renders the
/// chain ahead of the device, or the device's callback thread. Neither may allocate, lock or
/// wait on a lock; tests watch for it.
enum class RealtimeRole { None, Rendering, Device };

/// Marks the calling thread. Cheap enough to call on every callback.
void markRealtimeThread(RealtimeRole role) noexcept;
RealtimeRole realtimeRole() noexcept;

} // namespace tesk
