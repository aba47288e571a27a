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

/// The console report, plus a note of each run's real time per iteration in nanoseconds.
class RecordingReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            if (run.run_type != Run::RT_Iteration || run.error_occurred)
                continue;
            const double perIteration = run.GetAdjustedRealTime();
            const double toNanoseconds = 1e9 / benchmark::GetTimeUnitMultiplier(run.time_unit);
            mNanoseconds[run.benchmark_name()] = perIteration * toNanoseconds;
        }
    }

    const std::map<std::string, double>& nanoseconds() const { return mNanoseconds; }

private:
    std::map<std::string, double> mNanoseconds;
};

} // namespace

void declareTarget(std::string name, std::string benchmarkName, std::string unit, double scale,
                   double target) {
    targets().push_back(
        {std::move(name), std::move(benchmarkName), std::move(unit), scale, target});
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
    return 0;
}
