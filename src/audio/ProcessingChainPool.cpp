#include "audio/ProcessingChainPool.h"

#include "audio/dsp/VectorUnit.h"

#include <future>
#include <map>
#include <sys/resource.h>
#include <unistd.h>

namespace tesk {
namespace {

/// Below the threads that decode, scan and draw (a niceness of 0), yet well above idle, so a
/// busy machine still builds the spare before the user presses Play.
constexpr int kSpareBuildingNiceness = 10;

std::map<TimePitchQuality, std::future<std::unique_ptr<ProcessingChain>>>& spares() {
    static std::map<TimePitchQuality, std::future<std::unique_ptr<ProcessingChain>>> all;
    return all;
}

} // namespace

void ProcessingChainPool::prepare(TimePitchQuality quality) {
    auto& spare = spares()[quality];
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
    auto& spare = spares()[quality];
    return spare.valid() ? spare.get() : std::make_unique<ProcessingChain>(kSampleRate, quality);
}

} // namespace tesk
