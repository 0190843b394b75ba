// Late-bound calls against their physical limit, the direct virtual call they stand for:
// a property get and put through the vtable, through IDispatch::Invoke by DISPID, and
// through GetIDsOfNames + Invoke as a client that looks the name up on every call does.
// Heap allocations are counted while the calls run (bench/common counts them), and
// the ratios to the direct calls are printed after the table.
#include <benchmark/benchmark.h>

#include <cstdio>

#include "AllocationCounter.h"
#include "BenchGadget.h"
#include "RatioReporter.h"

namespace {

using tessaly::bench::AllocationCount;
using tessaly::bench::ReportAllocationsPerCall;

constexpr DISPID kSize = 0x1003001;

// One gadget for the whole run.
ITestGadget* Subject() {
    static ITestGadget* gadget = tessaly::bench::NewBenchGadget();
    benchmark::DoNotOptimize(gadget);
    return gadget;
}

void DirectGet(benchmark::State& state) {
    ITestGadget* gadget = Subject();
    LONG value = 0;
    const uint64_t before = AllocationCount();
    for (auto _ : state) {
        gadget->get_Size(&value);
        benchmark::DoNotOptimize(value);
    }
    ReportAllocationsPerCall(state, before);
}
BENCHMARK(DirectGet);

void DirectPut(benchmark::State& state) {
    ITestGadget* gadget = Subject();
    LONG value = 0;
    const uint64_t before = AllocationCount();
    for (auto _ : state) {
        gadget->put_Size(++value);
        benchmark::ClobberMemory();
    }
    ReportAllocationsPerCall(state, before);
}
BENCHMARK(DirectPut);

void InvokeGet(benchmark::State& state) {
    IDispatch* dispatch = Subject();
    DISPPARAMS none{nullptr, nullptr, 0, 0};
    VARIANT result{};
    dispatch->Invoke(kSize, GUID_NULL, 0, DISPATCH_PROPERTYGET, &none, &result, nullptr, nullptr);  // builds the tables
    const uint64_t before = AllocationCount();
    for (auto _ : state) {
        const HRESULT hr = dispatch->Invoke(kSize, GUID_NULL, 0, DISPATCH_METHOD | DISPATCH_PROPERTYGET, &none,
                                            &result, nullptr, nullptr);
        benchmark::DoNotOptimize(hr);
        benchmark::DoNotOptimize(result.lVal);
    }
    ReportAllocationsPerCall(state, before);
}
BENCHMARK(InvokeGet);

void InvokePut(benchmark::State& state) {
    IDispatch* dispatch = Subject();
    VARIANT value{};
    value.vt = VT_I4;
    DISPID named = DISPID_PROPERTYPUT;
    DISPPARAMS params{&value, &named, 1, 1};
    const uint64_t before = AllocationCount();
    for (auto _ : state) {
        ++value.lVal;
        const HRESULT hr = dispatch->Invoke(kSize, GUID_NULL, 0, DISPATCH_PROPERTYPUT, &params, nullptr, nullptr, nullptr);
        benchmark::DoNotOptimize(hr);
    }
    ReportAllocationsPerCall(state, before);
}
BENCHMARK(InvokePut);

void NamesAndInvokeGet(benchmark::State& state) {
    IDispatch* dispatch = Subject();
    DISPPARAMS none{nullptr, nullptr, 0, 0};
    VARIANT result{};
    char name[] = "size";
    LPOLESTR names[] = {name};
    const uint64_t before = AllocationCount();
    for (auto _ : state) {
        DISPID dispid = DISPID_UNKNOWN;
        dispatch->GetIDsOfNames(GUID_NULL, names, 1, 0, &dispid);
        const HRESULT hr =
            dispatch->Invoke(dispid, GUID_NULL, 0, DISPATCH_METHOD | DISPATCH_PROPERTYGET, &none, &result, nullptr, nullptr);
        benchmark::DoNotOptimize(hr);
        benchmark::DoNotOptimize(result.lVal);
    }
    ReportAllocationsPerCall(state, before);
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
    const uint64_t before = AllocationCount();
    for (auto _ : state) {
        DISPID dispid = DISPID_UNKNOWN;
        dispatch->GetIDsOfNames(GUID_NULL, names, 1, 0, &dispid);
        ++value.lVal;
        const HRESULT hr = dispatch->Invoke(dispid, GUID_NULL, 0, DISPATCH_PROPERTYPUT, &params, nullptr, nullptr, nullptr);
        benchmark::DoNotOptimize(hr);
    }
    ReportAllocationsPerCall(state, before);
}
BENCHMARK(NamesAndInvokePut);

}  // namespace

int main(int argc, char** argv) {
    const tessaly::bench::RatioReporter* reporter = tessaly::bench::RunBenchmarks(argc, argv);
    if (!reporter) return 1;
    std::printf("\nCost relative to the direct virtual call:\n");
    reporter->PrintRatio("InvokeGet", "DirectGet");
    reporter->PrintRatio("InvokePut", "DirectPut");
    reporter->PrintRatio("NamesAndInvokeGet", "DirectGet");
    reporter->PrintRatio("NamesAndInvokePut", "DirectPut");
    Subject()->Release();
    return 0;
}
