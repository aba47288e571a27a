#include "audio/ProcessingChainPool.h"

#include "audio/dsp/VectorUnit.h"

#include <future>
#include <map>

namespace tesk {
namespace {

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
        return std::make_unique<ProcessingChain>(kSampleRate, quality);
    });
}

std::unique_ptr<ProcessingChain> ProcessingChainPool::take(TimePitchQuality quality) {
    auto& spare = spares()[quality];
    return spare.valid() ? spare.get() : std::make_unique<ProcessingChain>(kSampleRate, quality);
}

} // namespace tesk
