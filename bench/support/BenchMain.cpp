// The main of every Tesk benchmark: runs the benchmarks as usual, then prints one BENCH line per
// declared target from the measured times.
#include "support/TeskBench.h"

#include <benchmark/benchmark.h>
#include <cstdio>
#include <map>
#include <vector>

namespace tesk::bench {
namespace {

struct Target {
    std::string name;
    std::string benchmarkName;
    std::string unit;
    double scale;
    double target;
};

std::vector<Target>& targets() {
    static std::vector<Target> all;
    return all;
}

struct RatioTarget {
    std::string name;
    std::string benchmarkName;
    std::string anchorBenchmarkName;
    double targetRatio;
};

std::vector<RatioTarget>& ratioTargets() {
    static std::vector<RatioTarget> all;
    return all;
}

struct CounterTarget {
    std::string name;
    std::string benchmarkName;
    std::string counterName;
    std::string unit;
    double target;
};

std::vector<CounterTarget>& counterTargets() {
    static std::vector<CounterTarget> all;
    return all;
}

/// The console report, plus a note of each run's real time per iteration in nanoseconds.
class RecordingReporter : public benchmark::ConsoleReporter {
public:
    // No colours: the BENCH lines that follow must start their line for whoever reads them.
    RecordingReporter()
        : ConsoleReporter(OO_Tabular) {}

    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            if (run.run_type != Run::RT_Iteration || run.error_occurred)
                continue;
            const double perIteration = run.GetAdjustedRealTime();
            const double toNanoseconds = 1e9 / benchmark::GetTimeUnitMultiplier(run.time_unit);
            mNanoseconds[run.benchmark_name()] = perIteration * toNanoseconds;
            for (const auto& [counterName, counter] : run.counters)
                mCounters[run.benchmark_name() + "/" + counterName] = counter.value;
        }
    }

    const std::map<std::string, double>& nanoseconds() const { return mNanoseconds; }
    const std::map<std::string, double>& counters() const { return mCounters; }

private:
    std::map<std::string, double> mNanoseconds;
    std::map<std::string, double> mCounters;
};

} // namespace

void declareTarget(std::string name, std::string benchmarkName, std::string unit, double scale,
                   double target) {
    targets().push_back(
        {std::move(name), std::move(benchmarkName), std::move(unit), scale, target});
}

void declareRatioTarget(std::string name, std::string benchmarkName,
                        std::string anchorBenchmarkName, double targetRatio) {
    ratioTargets().push_back(
        {std::move(name), std::move(benchmarkName), std::move(anchorBenchmarkName), targetRatio});
}

void declareCounterTarget(std::string name, std::string benchmarkName, std::string counterName,
                          std::string unit, double target) {
    counterTargets().push_back({std::move(name), std::move(benchmarkName), std::move(counterName),
                                std::move(unit), target});
}

} // namespace tesk::bench

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    tesk::bench::RecordingReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();

    for (const auto& target : tesk::bench::targets()) {
        const auto found = reporter.nanoseconds().find(target.benchmarkName);
        if (found == reporter.nanoseconds().end()) {
            std::printf("BENCH %s not-run %s target <= %g\n", target.name.c_str(),
                        target.unit.c_str(), target.target);
            continue;
        }
        std::printf("BENCH %s %.3f %s target <= %g\n", target.name.c_str(),
                    found->second * target.scale, target.unit.c_str(), target.target);
    }
    for (const auto& target : tesk::bench::ratioTargets()) {
        const auto measured = reporter.nanoseconds().find(target.benchmarkName);
        const auto anchor = reporter.nanoseconds().find(target.anchorBenchmarkName);
        if (measured == reporter.nanoseconds().end() || anchor == reporter.nanoseconds().end() ||
            anchor->second <= 0.0) {
            std::printf("BENCH %s not-run x target <= %g\n", target.name.c_str(),
                        target.targetRatio);
            continue;
        }
        std::printf("BENCH %s %.3f x target <= %g anchor %.3f ms\n", target.name.c_str(),
                    measured->second / anchor->second, target.targetRatio, anchor->second * 1e-6);
    }
    for (const auto& target : tesk::bench::counterTargets()) {
        const auto found =
            reporter.counters().find(target.benchmarkName + "/" + target.counterName);
        if (found == reporter.counters().end()) {
            std::printf("BENCH %s not-run %s target <= %g\n", target.name.c_str(),
                        target.unit.c_str(), target.target);
            continue;
        }
        std::printf("BENCH %s %.3f %s target <= %g\n", target.name.c_str(), found->second,
                    target.unit.c_str(), target.target);
    }
    return 0;
}
