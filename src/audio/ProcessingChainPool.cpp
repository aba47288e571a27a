#include "audio/ProcessingChainPool.h"

#include "audio/dsp/VectorUnit.h"

#include <future>
#include <map>
#include <mutex>
#include <sys/resource.h>
#include <unistd.h>

namespace tesk {
namespace {

/// Below the threads that decode, scan and draw (a niceness of 0), yet well above idle, so a
/// busy machine still builds the spare before the user presses Play.
constexpr int kSpareBuildingNiceness = 10;

using Spare = std::future<std::unique_ptr<ProcessingChain>>;

/// The spares, by quality; only with sparesMutex() held.
std::map<TimePitchQuality, Spare>& spares() {
    static std::map<TimePitchQuality, Spare> all;
    return all;
}

std::mutex& sparesMutex() {
    static std::mutex mutex;
    return mutex;
}

} // namespace

void ProcessingChainPool::prepare(TimePitchQuality quality) {
    const std::lock_guard lock(sparesMutex());
    Spare& spare = spares()[quality];
    if (spare.valid())
        return;
    spare = std::async(std::launch::async, [quality] {
        clearVectorUpperState();
        // A spare is built while a song opens: decoding it and drawing its window come first.
        setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), kSpareBuildingNiceness);
        return std::make_unique<ProcessingChain>(kSampleRate, quality);
    });
}

std::unique_ptr<ProcessingChain> ProcessingChainPool::take(TimePitchQuality quality) {
    Spare spare;
    {
        const std::lock_guard lock(sparesMutex());
        spare = std::move(spares()[quality]);
    }
    // Waited for outside the lock: a spare still being built holds up only its taker.
    return spare.valid() ? spare.get() : std::make_unique<ProcessingChain>(kSampleRate, quality);
}

} // namespace tesk
