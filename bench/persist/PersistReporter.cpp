#include "PersistReporter.h"

#include <cstdio>

namespace tessaly::bench {

void PersistReporter::ReportRuns(const std::vector<Run>& runs) {
    RatioReporter::ReportRuns(runs);
    for (const Run& run : runs) {
        if (run.run_type != Run::RT_Iteration) continue;
        if (run.error_occurred)
            errors_[run.benchmark_name()] = run.error_message;
        else
            times_[run.benchmark_name()] = {run.GetAdjustedRealTime(), run.GetAdjustedCPUTime()};
    }
}

void PersistReporter::PrintRatios(const char* slow, const char* fast) const {
    for (const char* name : {slow, fast}) {
        const auto error = errors_.find(name);
        if (error != errors_.end()) {
            std::printf("%-30s / %-30s : not measured, %s: %s\n", slow, fast, name, error->second.c_str());
            return;
        }
    }
    const auto s = times_.find(slow);
    const auto f = times_.find(fast);
    if (s == times_.end() || f == times_.end() || f->second.wall <= 0 || f->second.cpu <= 0) return;  // filtered out
    std::printf("%-30s / %-30s = %6.2fx wall, %6.2fx cpu\n", slow, fast, s->second.wall / f->second.wall,
                s->second.cpu / f->second.cpu);
}

}  // namespace tessaly::bench
