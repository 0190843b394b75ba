// The console table as usual, then the ratios a benchmark program was written to
// measure: each a named benchmark's time per call divided by its peer's.
#pragma once

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

namespace tessaly::bench {

class RatioReporter : public benchmark::ConsoleReporter {
public:
    RatioReporter();
    void ReportRuns(const std::vector<Run>& runs) override;
    // Prints "slow / fast = N.Nx"; nothing when either did not run.
    void PrintRatio(const char* slow, const char* fast) const;
    // A benchmark's time per call in its time unit (nanoseconds unless it sets another); 0
    // when it did not run.
    double TimePerCall(const char* name) const;

private:
    std::map<std::string, double> times_;
};

// Initialises Google Benchmark, runs the benchmarks with a RatioReporter and returns it;
// nullptr after unrecognised arguments.
RatioReporter* RunBenchmarks(int argc, char** argv);

}  // namespace tessaly::bench
