// Acquisition through a FIFO of the simulated grabber at 0 ms per frame, 640 x 480 Grey8,
// manual trigger, in one run of the program:
//  - Acquire: StartAcquire then CompleteAcquire(-1), one frame at a time, on one core
//    (taskset -c 1 for the figure); target at least 5,000 frames per second. The image
//    handed out shares the buffer the grabber filled: no pixel is copied after the fill.
//  - FillFrame, the physical limit: a fresh 640 x 480 buffer allocated and written with
//    the same kind of pattern, as the grabber does for each frame; Acquire / FillFrame is
//    what the FIFO, its queue, the worker thread hand-over and the image object add.
//  - the latency from a frame's completion (the time stamp CompleteAcquireEx returns,
//    taken by the grabber when the frame is complete) to the Complete event's arrival at a
//    sink, over 2,000 frames: median and 99th percentile; target median under 100 µs.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <thread>
#include <unordered_map>
#include <vector>

#include "RatioReporter.h"
#include "TessalyCore.h"
#include "com/acq/FrameSourceListener.h"
#include "platform/Bstr.h"
#include "platform/ClassTable.h"
#include "platform/ComPtr.h"
#include "platform/EventSink.h"
#include "xnl/std/pelbuf/ccPelBuffer.h"

namespace {

using tessaly::Bstr;
using tessaly::ComPtr;

void Check(HRESULT hr, const char* what) {
    if (FAILED(hr)) {
        std::fprintf(stderr, "%s failed: 0x%08X\n", what, static_cast<unsigned>(hr));
        std::exit(1);
    }
}

ComPtr<ILuxAcqFifo> MakeFifo() {
    ComPtr<ILuxSimulatedFrameGrabber> grabber;
    Check(tessaly::CreateObject(CLSID_LuxSimulatedFrameGrabber, IID_ILuxSimulatedFrameGrabber, grabber.OutVoid()),
          "LuxSimulatedFrameGrabber");
    Check(grabber->put_FrameTimeMs(0.0), "FrameTimeMs");
    ComPtr<ILuxAcqFifo> fifo;
    Check(grabber->CreateAcqFifo(Bstr("Simulated 640x480 Grey8").get(), luxImagePixelFormatGrey8, 0, VARIANT_TRUE,
                                 fifo.Out()),
          "CreateAcqFifo");
    return fifo;
}

void Acquire(benchmark::State& state) {
    ComPtr<ILuxAcqFifo> fifo = MakeFifo();
    for (auto _ : state) {
        LONG ticket = 0, done = 0, trigger = 0;
        ComPtr<ILuxImage> image;
        Check(fifo->StartAcquire(&ticket), "StartAcquire");
        Check(fifo->CompleteAcquire(-1, &done, &trigger, image.Out()), "CompleteAcquire");
        benchmark::DoNotOptimize(image.get());
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(Acquire)->UseRealTime();

void FillFrame(benchmark::State& state) {
    uint8_t phase = 0;
    for (auto _ : state) {
        ccPelBuffer<uint8_t> frame(640, 480);
        for (int32_t y = 0; y < 480; ++y) {
            uint8_t* row = frame.RowPointer(y);
            for (int32_t x = 0; x < 640; ++x) row[x] = static_cast<uint8_t>(x + y + phase);
        }
        ++phase;
        benchmark::DoNotOptimize(frame.RowPointer(0));
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(FillFrame)->UseRealTime();

// Complete events' arrival times by ticket, and the completion stamps of the same tickets.
void ReportLatency() {
    ComPtr<ILuxAcqFifo> fifo = MakeFifo();
    std::mutex mutex;
    std::unordered_map<LONG, double> arrivals;
    IDispatch* sink = tessaly::MakeEventSink(
        1,
        [&](std::span<const VARIANT> args) {
            const double now = tessaly::acq::AcquisitionClockMs();
            const std::lock_guard lock(mutex);
            arrivals[args[0].lVal] = now;
        },
        DIID_ILuxAcqCompleteEvent);
    DWORD cookie = 0;
    Check(tessaly::Advise(fifo.get(), DIID_ILuxAcqCompleteEvent, sink, &cookie), "Advise");
    constexpr int kFrames = 2000;
    std::vector<double> latencies;
    latencies.reserve(kFrames);
    for (int i = 0; i < kFrames; ++i) {
        LONG ticket = 0, done = 0, trigger = 0;
        double stamp = 0;
        ComPtr<ILuxImage> image;
        Check(fifo->StartAcquire(&ticket), "StartAcquire");
        Check(fifo->CompleteAcquireEx(ticket, &done, &trigger, &stamp, image.Out()), "CompleteAcquireEx");
        // The event may still be on its way when the image is collected.
        for (;;) {
            {
                const std::lock_guard lock(mutex);
                if (auto found = arrivals.find(done); found != arrivals.end()) {
                    latencies.push_back((found->second - stamp) * 1000.0);
                    break;
                }
            }
            std::this_thread::yield();
        }
    }
    tessaly::Unadvise(fifo.get(), DIID_ILuxAcqCompleteEvent, cookie);
    sink->Release();
    std::sort(latencies.begin(), latencies.end());
    std::printf(
        "completion to Complete event over %d frames: median %.1f us, 99th percentile %.1f us (target: median under "
        "100 us)\n",
        kFrames, latencies[latencies.size() / 2], latencies[latencies.size() * 99 / 100]);
}

}  // namespace

int main(int argc, char** argv) {
    auto* reporter = tessaly::bench::RunBenchmarks(argc, argv);
    if (!reporter) return 1;
    reporter->PrintRatio("Acquire/real_time", "FillFrame/real_time");
    if (const double ns = reporter->TimePerCall("Acquire/real_time"); ns > 0)
        std::printf("Acquire: %.0f frames per second, %.2fx the target of 5000\n", 1e9 / ns, 1e9 / ns / 5000.0);
    ReportLatency();
    return 0;
}
