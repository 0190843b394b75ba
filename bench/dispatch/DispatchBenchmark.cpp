// Late-bound calls against their physical limit, the direct virtual call they stand for:
// a property get and put through the vtable, through IDispatch::Invoke by DISPID, and
// through GetIDsOfNames + Invoke as a client that looks the name up on every call does.
// Heap allocations are counted while the calls run (operator new is replaced below), and
// the ratios to the direct calls are printed after the table.
#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <new>
#include <string>

#include <unistd.h>

#include "BenchGadget.h"

namespace {

std::atomic<uint64_t> allocations{0};

void* Allocate(size_t size) {
    allocations.fetch_add(1, std::memory_order_relaxed);
    if (void* p = std::malloc(size ? size : 1)) return p;
    throw std::bad_alloc();
}

}  // namespace

void* operator new(size_t size) { return Allocate(size); }
void* operator new[](size_t size) { return Allocate(size); }
void* operator new(size_t size, const std::nothrow_t&) noexcept {
    allocations.fetch_add(1, std::memory_order_relaxed);
    return std::malloc(size ? size : 1);
}
void* operator new[](size_t size, const std::nothrow_t&) noexcept {
    allocations.fetch_add(1, std::memory_order_relaxed);
    return std::malloc(size ? size : 1);
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, size_t) noexcept { std::free(p); }
void operator delete[](void* p, size_t) noexcept { std::free(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { std::free(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { std::free(p); }

namespace {

constexpr DISPID kSize = 0x1003001;

// One gadget for the whole run.
ITestGadget* Subject() {
    static ITestGadget* gadget = tessaly::bench::NewBenchGadget();
    benchmark::DoNotOptimize(gadget);
    return gadget;
}

void CountAllocations(benchmark::State& state, uint64_t before) {
    const uint64_t during = allocations.load(std::memory_order_relaxed) - before;
    state.counters["allocs/call"] = benchmark::Counter(static_cast<double>(during) / state.iterations());
}

void DirectGet(benchmark::State& state) {
    ITestGadget* gadget = Subject();
    LONG value = 0;
    const uint64_t before = allocations.load();
    for (auto _ : state) {
        gadget->get_Size(&value);
        benchmark::DoNotOptimize(value);
    }
    CountAllocations(state, before);
}
BENCHMARK(DirectGet);

void DirectPut(benchmark::State& state) {
    ITestGadget* gadget = Subject();
    LONG value = 0;
    const uint64_t before = allocations.load();
    for (auto _ : state) {
        gadget->put_Size(++value);
        benchmark::ClobberMemory();
    }
    CountAllocations(state, before);
}
BENCHMARK(DirectPut);

void InvokeGet(benchmark::State& state) {
    IDispatch* dispatch = Subject();
    DISPPARAMS none{nullptr, nullptr, 0, 0};
    VARIANT result{};
    dispatch->Invoke(kSize, GUID_NULL, 0, DISPATCH_PROPERTYGET, &none, &result, nullptr, nullptr);  // builds the tables
    const uint64_t before = allocations.load();
    for (auto _ : state) {
        const HRESULT hr = dispatch->Invoke(kSize, GUID_NULL, 0, DISPATCH_METHOD | DISPATCH_PROPERTYGET, &none,
                                            &result, nullptr, nullptr);
        benchmark::DoNotOptimize(hr);
        benchmark::DoNotOptimize(result.lVal);
    }
    CountAllocations(state, before);
}
BENCHMARK(InvokeGet);

void InvokePut(benchmark::State& state) {
    IDispatch* dispatch = Subject();
    VARIANT value{};
    value.vt = VT_I4;
    DISPID named = DISPID_PROPERTYPUT;
    DISPPARAMS params{&value, &named, 1, 1};
    const uint64_t before = allocations.load();
    for (auto _ : state) {
        ++value.lVal;
        const HRESULT hr = dispatch->Invoke(kSize, GUID_NULL, 0, DISPATCH_PROPERTYPUT, &params, nullptr, nullptr, nullptr);
        benchmark::DoNotOptimize(hr);
    }
    CountAllocations(state, before);
}
BENCHMARK(InvokePut);

void NamesAndInvokeGet(benchmark::State& state) {
    IDispatch* dispatch = Subject();
    DISPPARAMS none{nullptr, nullptr, 0, 0};
    VARIANT result{};
    char name[] = "size";
    LPOLESTR names[] = {name};
    const uint64_t before = allocations.load();
    for (auto _ : state) {
        DISPID dispid = DISPID_UNKNOWN;
        dispatch->GetIDsOfNames(GUID_NULL, names, 1, 0, &dispid);
        const HRESULT hr =
            dispatch->Invoke(dispid, GUID_NULL, 0, DISPATCH_METHOD | DISPATCH_PROPERTYGET, &none, &result, nullptr, nullptr);
        benchmark::DoNotOptimize(hr);
        benchmark::DoNotOptimize(result.lVal);
    }
    CountAllocations(state, before);
}
BENCHMARK(NamesAndInvokeGet);

void NamesAndInvokePut(benchmark::State& state) {
    IDispatch* dispatch = Subject();
    VARIANT value{};
    value.vt = VT_I4;
    DISPID named = DISPID_PROPERTYPUT;
    DISPPARAMS params{&value, &named, 1, 1};
    char name[] = "Size";
    LPOLESTR names[] = {name};
    const uint64_t before = allocations.load();
    for (auto _ : state) {
        DISPID dispid = DISPID_UNKNOWN;
        dispatch->GetIDsOfNames(GUID_NULL, names, 1, 0, &dispid);
        ++value.lVal;
        const HRESULT hr = dispatch->Invoke(dispid, GUID_NULL, 0, DISPATCH_PROPERTYPUT, &params, nullptr, nullptr, nullptr);
        benchmark::DoNotOptimize(hr);
    }
    CountAllocations(state, before);
}
BENCHMARK(NamesAndInvokePut);

// Prints the table as usual and keeps each benchmark's time per call for the ratios.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    RatioReporter() : ConsoleReporter(isatty(fileno(stdout)) ? OO_Defaults : OO_Tabular) {}
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs)
            if (run.run_type == Run::RT_Iteration) times[run.benchmark_name()] = run.GetAdjustedRealTime();
    }
    std::map<std::string, double> times;
};

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();

    auto ratio = [&](const char* slow, const char* fast) {
        const auto s = reporter.times.find(slow);
        const auto f = reporter.times.find(fast);
        if (s == reporter.times.end() || f == reporter.times.end() || f->second <= 0) return;
        std::printf("%-18s / %-10s = %6.1fx\n", slow, fast, s->second / f->second);
    };
    std::printf("\nCost relative to the direct virtual call:\n");
    ratio("InvokeGet", "DirectGet");
    ratio("InvokePut", "DirectPut");
    ratio("NamesAndInvokeGet", "DirectGet");
    ratio("NamesAndInvokePut", "DirectPut");
    Subject()->Release();
    return 0;
}
