// The ratio report of the persistence benchmark: each ratio by wall time, as every
// benchmark program prints it, and beside it by CPU time (user and system, so page faults
// count), which stays meaningful when other work shares the cores and wall time does
// not. A benchmark that was skipped with an error gets its reason instead of a ratio.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "RatioReporter.h"

namespace tessaly::bench {

class PersistReporter : public RatioReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override;
    // "slow / fast = N.NNx wall, N.NNx cpu" or why either could not be measured.
    void PrintRatios(const char* slow, const char* fast) const;

private:
    struct Times {
        double wall = 0;
        double cpu = 0;
    };
    std::map<std::string, Times> times_;
    std::map<std::string, std::string> errors_;
};

}  // namespace tessaly::bench
