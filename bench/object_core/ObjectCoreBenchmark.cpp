// The object base against its peers, in one run:
//  - taking and releasing an object's lock, uncontended, against std::recursive_mutex,
//    while the process has one thread and again after it has started a second;
//  - raising a change with no sink connected: no allocation and no copy of the value
//    (the value holds an object that counts the references taken on it);
//  - delivering Change to one C++ sink, lock included, against an IDispatch::Invoke by
//    DISPID of a property get and against a Boost.Signals2 emit to one slot with the same
//    three arguments.
#include <benchmark/benchmark.h>

#include <boost/signals2/signal.hpp>
#include <cstdio>
#include <mutex>
#include <thread>

#include "AllocationCounter.h"
#include "RatioReporter.h"
#include "platform/EventSink.h"
#include "support/TestPoint.h"

namespace {

using tessaly::ComPtr;
using tessaly::Variant;
using tessaly::bench::AllocationCount;
using tessaly::bench::ReportAllocationsPerCall;
using tessaly::test::TestPoint;

TestPoint* Subject() {
    static TestPoint* point = TestPoint::Create();
    return point;
}

// An object that counts the references taken on it: a copied VARIANT holding it shows.
class Counted : public tessaly::UnknownObject<Counted, IUnknown> {
public:
    uint64_t addRefs = 0;
    ULONG AddRef() override {
        ++addRefs;
        return UnknownObject::AddRef();
    }

private:
    friend class tessaly::UnknownObject<Counted, IUnknown>;
    ~Counted() override = default;
};

void ObjectLockTakeRelease(benchmark::State& state) {
    tessaly::core::ObjectLock& lock = Subject()->Lock();
    for (auto _ : state) {
        lock.Lock();
        benchmark::ClobberMemory();
        lock.Unlock();
    }
}
BENCHMARK(ObjectLockTakeRelease);

void RecursiveMutexLockUnlock(benchmark::State& state) {
    static std::recursive_mutex mutex;
    for (auto _ : state) {
        mutex.lock();
        benchmark::ClobberMemory();
        mutex.unlock();
    }
}
BENCHMARK(RecursiveMutexLockUnlock);

void RaiseChangeWithoutSinks(benchmark::State& state) {
    TestPoint* point = Subject();
    auto counted = ComPtr<Counted>::Attach(Counted::Create());
    const Variant value(static_cast<IUnknown*>(counted.get()));
    const uint64_t refsBefore = counted->addRefs;
    const uint64_t before = AllocationCount();
    for (auto _ : state) {
        const HRESULT hr = point->RaiseChange(testPoint_Marker, value.get(), testFA_Point_Marker);
        benchmark::DoNotOptimize(hr);
    }
    ReportAllocationsPerCall(state, before);
    state.counters["copies/call"] =
        benchmark::Counter(static_cast<double>(counted->addRefs - refsBefore) / state.iterations());
}
BENCHMARK(RaiseChangeWithoutSinks);

void DeliverChangeToOneSink(benchmark::State& state) {
    TestPoint* point = Subject();
    int64_t received = 0;
    auto sink = ComPtr<IDispatch>::Attach(tessaly::MakeEventSink(
        luxChange_Change, [&](std::span<const VARIANT> args) { received += args[0].lVal; }, DIID_ILuxChangeEvent));
    DWORD cookie = 0;
    tessaly::Advise(point->GetUnknown(), DIID_ILuxChangeEvent, sink.get(), &cookie);
    const Variant value(int32_t{7});
    const uint64_t before = AllocationCount();
    for (auto _ : state) {
        const HRESULT hr = point->RaiseChange(testPoint_X, value.get(), testFA_Point_Position);
        benchmark::DoNotOptimize(hr);
    }
    ReportAllocationsPerCall(state, before);
    tessaly::Unadvise(point->GetUnknown(), DIID_ILuxChangeEvent, cookie);
    benchmark::DoNotOptimize(received);
}
BENCHMARK(DeliverChangeToOneSink);

void InvokeGetByDispid(benchmark::State& state) {
    IDispatch* dispatch = Subject()->GetDispatch();
    DISPPARAMS none{nullptr, nullptr, 0, 0};
    VARIANT result{};
    for (auto _ : state) {
        const HRESULT hr = dispatch->Invoke(testPoint_X, GUID_NULL, 0, DISPATCH_PROPERTYGET, &none, &result, nullptr,
                                            nullptr);
        benchmark::DoNotOptimize(hr);
        benchmark::DoNotOptimize(result.dblVal);
    }
}
BENCHMARK(InvokeGetByDispid);

void Signals2EmitToOneSlot(benchmark::State& state) {
    boost::signals2::signal<void(int32_t, const VARIANT&, int32_t)> change;
    int64_t received = 0;
    change.connect([&](int32_t stateId, const VARIANT&, int32_t) { received += stateId; });
    const Variant value(int32_t{7});
    for (auto _ : state) change(testPoint_X, value.get(), testFA_Point_Position);
    benchmark::DoNotOptimize(received);
}
BENCHMARK(Signals2EmitToOneSlot);

// The same two locks once the process has started a second thread: from then on neither
// the object's lock nor the C library's mutex may take the single-thread shortcut.
// Registered last, as the shortcut never comes back for the benchmarks after these.
void StartSecondThread() {
    static const bool started = [] {
        std::thread([] {}).join();
        return true;
    }();
    benchmark::DoNotOptimize(started);
}

void ObjectLockTakeReleaseThreaded(benchmark::State& state) {
    StartSecondThread();
    ObjectLockTakeRelease(state);
}
BENCHMARK(ObjectLockTakeReleaseThreaded);

void RecursiveMutexLockUnlockThreaded(benchmark::State& state) {
    StartSecondThread();
    RecursiveMutexLockUnlock(state);
}
BENCHMARK(RecursiveMutexLockUnlockThreaded);

}  // namespace

int main(int argc, char** argv) {
    const tessaly::bench::RatioReporter* reporter = tessaly::bench::RunBenchmarks(argc, argv);
    if (!reporter) return 1;
    std::printf("\nRatios (targets: lock <= 1, Change <= 2 x Invoke and <= 0.5 x Signals2):\n");
    reporter->PrintRatio("ObjectLockTakeRelease", "RecursiveMutexLockUnlock");
    reporter->PrintRatio("ObjectLockTakeReleaseThreaded", "RecursiveMutexLockUnlockThreaded");
    reporter->PrintRatio("DeliverChangeToOneSink", "InvokeGetByDispid");
    reporter->PrintRatio("DeliverChangeToOneSink", "Signals2EmitToOneSlot");
    Subject()->Release();
    return 0;
}
