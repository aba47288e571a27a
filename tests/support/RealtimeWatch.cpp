#include "support/RealtimeWatch.h"

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <dlfcn.h>
#include <pthread.h>

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* pointer, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* pointer);
}

namespace tesk::test {
namespace {

struct Counters {
    std::atomic<std::uint64_t> allocations{0};
    std::atomic<std::uint64_t> frees{0};
    std::atomic<std::uint64_t> locks{0};
};

Counters rendering;
Counters device;

Counters* countersForThisThread() {
    switch (realtimeRole()) {
    case RealtimeRole::Rendering:
        return &rendering;
    case RealtimeRole::Device:
        return &device;
    case RealtimeRole::None:
        break;
    }
    return nullptr;
}

void noteAllocation() {
    if (Counters* counters = countersForThisThread())
        counters->allocations.fetch_add(1, std::memory_order_relaxed);
}

using MutexLock = int (*)(pthread_mutex_t*);
MutexLock realMutexLock = nullptr;

} // namespace

RealtimeViolations realtimeViolations(RealtimeRole role) {
    const Counters& counters = role == RealtimeRole::Device ? device : rendering;
    return {counters.allocations.load(), counters.frees.load(), counters.locks.load()};
}

void resetRealtimeViolations() {
    for (Counters* counters : {&rendering, &device}) {
        counters->allocations = 0;
        counters->frees = 0;
        counters->locks = 0;
    }
}

} // namespace tesk::test

using tesk::test::noteAllocation;

extern "C" {

void* malloc(std::size_t size) {
    noteAllocation();
    return __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size) {
    noteAllocation();
    return __libc_calloc(count, size);
}

void* realloc(void* pointer, std::size_t size) {
    noteAllocation();
    return __libc_realloc(pointer, size);
}

void* memalign(std::size_t alignment, std::size_t size) {
    noteAllocation();
    return __libc_memalign(alignment, size);
}

void* aligned_alloc(std::size_t alignment, std::size_t size) {
    noteAllocation();
    return __libc_memalign(alignment, size);
}

int posix_memalign(void** result, std::size_t alignment, std::size_t size) {
    noteAllocation();
    void* pointer = __libc_memalign(alignment, size);
    if (pointer == nullptr)
        return ENOMEM;
    *result = pointer;
    return 0;
}

void free(void* pointer) {
    if (pointer != nullptr) {
        if (auto* counters = tesk::test::countersForThisThread())
            counters->frees.fetch_add(1, std::memory_order_relaxed);
    }
    __libc_free(pointer);
}

int pthread_mutex_lock(pthread_mutex_t* mutex) {
    if (auto* counters = tesk::test::countersForThisThread())
        counters->locks.fetch_add(1, std::memory_order_relaxed);
    if (tesk::test::realMutexLock == nullptr)
        tesk::test::realMutexLock =
            reinterpret_cast<tesk::test::MutexLock>(dlsym(RTLD_NEXT, "pthread_mutex_lock"));
    return tesk::test::realMutexLock(mutex);
}
}
