#include "AllocationCounter.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<uint64_t> allocations{0};

void* Allocate(size_t size) {
    allocations.fetch_add(1, std::memory_order_relaxed);
    if (void* p = std::malloc(size ? size : 1)) return p;
    throw std::bad_alloc();
}

void* AllocateNoThrow(size_t size) noexcept {
    allocations.fetch_add(1, std::memory_order_relaxed);
    return std::malloc(size ? size : 1);
}

}  // namespace

void* operator new(size_t size) { return Allocate(size); }
void* operator new[](size_t size) { return Allocate(size); }
void* operator new(size_t size, const std::nothrow_t&) noexcept { return AllocateNoThrow(size); }
void* operator new[](size_t size, const std::nothrow_t&) noexcept { return AllocateNoThrow(size); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, size_t) noexcept { std::free(p); }
void operator delete[](void* p, size_t) noexcept { std::free(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { std::free(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { std::free(p); }

namespace tessaly::bench {

uint64_t AllocationCount() noexcept { return allocations.load(std::memory_order_relaxed); }

void ReportAllocationsPerCall(benchmark::State& state, uint64_t before) {
    const uint64_t during = AllocationCount() - before;
    state.counters["allocs/call"] = benchmark::Counter(static_cast<double>(during) / state.iterations());
}

}  // namespace tessaly::bench
