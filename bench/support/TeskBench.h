#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace tesk::bench {

/// Declares a target that the benchmark executable checks after its run, printing
/// "BENCH <name> <value> <unit> target <= <target>". The value is the real time per iteration
/// of the benchmark named `benchmarkName` (its full name, arguments included), in nanoseconds,
/// multiplied by `scale` to give `unit`.
/// Call before the benchmarks run, for example from a static initializer.
void declareTarget(std::string name, std::string benchmarkName, std::string unit, double scale,
                   double target);

/// Declares a target on the ratio of two benchmarks' real times per iteration, printing
/// "BENCH <name> <ratio> x target <= <targetRatio> anchor <anchor time> ms": `benchmarkName` is
/// measured against `anchorBenchmarkName`, typically an established tool doing the same work
/// on the same machine in the same run.
/// Call before the benchmarks run, for example from a static initializer.
void declareRatioTarget(std::string name, std::string benchmarkName,
                        std::string anchorBenchmarkName, double targetRatio);

/// Declares a target on a counter the benchmark sets (`state.counters[counterName]`), for
/// figures that are not times (underruns, memory), printing
/// "BENCH <name> <counter value> <unit> target <= <target>".
/// Call before the benchmarks run, for example from a static initializer.
void declareCounterTarget(std::string name, std::string benchmarkName, std::string counterName,
                          std::string unit, double target);

/// The seconds that `work` took, or -1 when it returned false (it failed).
double secondsTaken(const std::function<bool()>& work);

/// Runs each of `contenders` once per round, in order, for `rounds` rounds, and gives the median
/// of the seconds each returned; nothing once one returns a negative time (it failed). This
/// machine's speed drifts from minute to minute: taking turns lets the drift fall on every
/// contender alike, where one measured after the other would meet it at a different speed.
std::optional<std::vector<double>>
medianSecondsInTurns(int rounds, const std::vector<std::function<double()>>& contenders);

} // namespace tesk::bench
