#include "RatioReporter.h"

#include <unistd.h>

#include <cstdio>

namespace tessaly::bench {

// A terminal gets colours; a log file the plain table.
RatioReporter::RatioReporter() : ConsoleReporter(isatty(fileno(stdout)) ? OO_Defaults : OO_Tabular) {}

void RatioReporter::ReportRuns(const std::vector<Run>& runs) {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs)
        if (run.run_type == Run::RT_Iteration) times_[run.benchmark_name()] = run.GetAdjustedRealTime();
}

void RatioReporter::PrintRatio(const char* slow, const char* fast) const {
    const auto s = times_.find(slow);
    const auto f = times_.find(fast);
    if (s == times_.end() || f == times_.end() || f->second <= 0) return;
    std::printf("%-28s / %-24s = %6.2fx\n", slow, fast, s->second / f->second);
}

double RatioReporter::TimePerCall(const char* name) const {
    const auto found = times_.find(name);
    return found == times_.end() ? 0.0 : found->second;
}

RatioReporter* RunBenchmarks(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return nullptr;
    static RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return &reporter;
}

}  // namespace tessaly::bench
