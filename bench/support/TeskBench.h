#pragma once

#include <string>

namespace tesk::bench {

/// Declares a target that the benchmark executable checks after its run, printing
/// "BENCH <name> <value> <unit> target <= <target>". The value is the real time per iteration
/// of the benchmark named `benchmarkName` (its full name, arguments included), in nanoseconds,
/// multiplied by `scale` to give `unit`.
/// Call before the benchmarks run, for example from a static initializer.
void declareTarget(std::string name, std::string benchmarkName, std::string unit, double scale,
                   double target);

} // namespace tesk::bench
