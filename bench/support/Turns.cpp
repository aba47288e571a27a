#include "support/TeskBench.h"

#include <algorithm>
#include <chrono>

namespace tesk::bench {

double secondsTaken(const std::function<bool()>& work) {
    const auto start = std::chrono::steady_clock::now();
    const bool done = work();
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    return done ? elapsed.count() : -1.0;
}

std::optional<std::vector<double>>
medianSecondsInTurns(int rounds, const std::vector<std::function<double()>>& contenders) {
    std::vector<std::vector<double>> seconds(contenders.size());
    for (int round = 0; round < rounds; ++round) {
        for (std::size_t i = 0; i < contenders.size(); ++i) {
            seconds[i].push_back(contenders[i]());
            if (seconds[i].back() < 0.0)
                return std::nullopt;
        }
    }
    std::vector<double> medians;
    for (std::vector<double>& times : seconds) {
        std::sort(times.begin(), times.end());
        medians.push_back(times[times.size() / 2]);
    }
    return medians;
}

} // namespace tesk::bench
