// Counts the heap allocations of the whole program (operator new is replaced in
// AllocationCounter.cpp), so that a benchmark can report allocations per call.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdint>

namespace tessaly::bench {

uint64_t AllocationCount() noexcept;

// Sets the "allocs/call" counter from the count taken before the timed loop.
void ReportAllocationsPerCall(benchmark::State& state, uint64_t before);

}  // namespace tessaly::bench
