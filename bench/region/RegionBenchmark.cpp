// Regions against their peers, in one run:
//  - a run-length mask of an affine rectangle (centre (3000, 3000), sides 4096 and 4096,
//    rotation 30 degrees, skew 0; its pixel bounds are 5596 x 5596) made two ways: the core
//    path (ccAffineRectangle::ScanConvert into a ccRLEBufferBuilder over the shape's pixel
//    bounds, then Finish) and the automation path (ILuxRegion::CreateRLE on a
//    LuxRectangleAffine, which makes a LuxRLEBuffer). The peers: cv::fillPoly into a dense
//    CV_8U mask of the same box, zeroed on every call, and AGG's scanline rasteriser with a
//    binary scanline, whose spans are walked and summed. ScanConvert into a sink that only
//    counts shows what the builder costs on top;
//  - the mean and the 256-bin histogram of a 6000 x 6000 8-bit image of random pixels
//    under that mask: ccRegionPixelStatistics over the runs against cv::mean plus
//    cv::calcHist with a dense mask of the same pixels, given the mask's box of the image
//    (the mask made beforehand and not timed);
//  - put X of a LuxRectangle through IDispatch::Invoke (DISPATCH_PROPERTYPUT, no sinks
//    connected), with the allocations per call, beside the same put through the vtable.
//
// Before anything is timed the rasterisers' pixels are compared with the inside rule
// applied exactly to every pixel centre, and the two statistics with each other; a
// fault ends the program with a message. OpenCV and AGG follow pixel conventions of their
// own, so the pixels they place differently along the outline are counted and printed
// (those at the corners apart); one farther than 1.5 px from the outline is a fault too.
// fillPoly also draws the polygon's outline: its mask is compared once more with ours
// plus that outline.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <numbers>
#include <opencv2/imgproc.hpp>
#include <optional>
#include <random>
#include <string>

#include "AllocationCounter.h"
#include "RatioReporter.h"
#include "RegionPeers.h"
#include "RegionPixels.h"
#include "TessalyCore.h"
#include "platform/ClassTable.h"
#include "platform/ComPtr.h"
#include "xnl/std/pelbuf/ccPelBuffer.h"
#include "xnl/std/rlebuf/ccRLEBufferBuilder.h"
#include "xnl/std/rlebuf/ccRegionPixelStatistics.h"
#include "xnl/std/shapes/ccAffineRectangle.h"

namespace {

using tessaly::ComPtr;
using tessaly::bench::AggPolygonSpans;
using tessaly::bench::AllocationCount;
using tessaly::bench::OpenCVPolygonFill;
using tessaly::bench::PixelDifference;
using tessaly::bench::PixelRows;
using tessaly::bench::Quad;
using tessaly::bench::PixelsOfMask;
using tessaly::bench::PixelsOfRuns;
using tessaly::bench::ReferencePixels;
using tessaly::bench::ReportAllocationsPerCall;

constexpr double kCenterX = 3000;
constexpr double kCenterY = 3000;
constexpr double kSide = 4096;
constexpr double kRotation = std::numbers::pi / 6;
constexpr int32_t kImageSide = 6000;
constexpr uint8_t kInside = 255;
constexpr uint8_t kOutside = 0;
// X of ILuxRectangle, as the type library numbers it.
constexpr DISPID kRectangleXDispid = 0x1019016;

[[noreturn]] void Fail(const std::string& message) {
    std::fprintf(stderr, "bench_region: %s\n", message.c_str());
    std::exit(1);
}

// The region, its corners in order around it and its pixel bounds.
struct Region {
    ccAffineRectanglePtrh shape{new ccAffineRectangle(cc2Vect(kCenterX, kCenterY), kSide, kSide, kRotation, 0.0)};
    Quad quad{shape->CornerOrigin(), shape->CornerX(), shape->CornerOpposite(), shape->CornerY()};
    ccPixelBox box = shape->PixelBounds();

    int32_t Width() const { return box.x1 - box.x0; }
    int32_t Height() const { return box.y1 - box.y0; }
    // Pixels the outline passes through, about: what a difference of conventions can move.
    int64_t OutlinePixels() const {
        double pixels = 0;
        for (size_t k = 0; k < 4; ++k) {
            const cc2Vect side = quad[(k + 1) % 4] - quad[k];
            pixels += std::fabs(side.X()) + std::fabs(side.Y());
        }
        return static_cast<int64_t>(pixels);
    }
};

const Region& TheRegion() {
    static const Region region;
    return region;
}

// The core path: the shape's spans into a builder over its pixel bounds.
ccRLEBuffer CoreMask(const Region& region) {
    const ccPixelBox box = region.shape->PixelBounds();
    ccRLEBufferBuilder builder(box.x0, box.y0, box.x1 - box.x0, box.y1 - box.y0, kInside, kOutside);
    region.shape->ScanConvert(builder);
    return builder.Finish();
}

// A sink that keeps nothing: what scan conversion alone costs.
class CountingSink final : public ccSpanSink {
public:
    void blitH(int32_t x, int32_t y, int32_t width) override { sum_ += uint64_t(x) + uint64_t(y) + uint64_t(width); }
    uint64_t Sum() const { return sum_; }

private:
    uint64_t sum_ = 0;
};

// The automation path's subject, or nothing when the class is not in the class table.
ComPtr<ILuxRegion> NewAffineRectangleObject() {
    ComPtr<ILuxRectangleAffine> rectangle;
    if (FAILED(tessaly::CreateObject("Tessaly.LuxRectangleAffine", ILuxRectangleAffine::iid, rectangle.OutVoid())))
        return {};
    if (FAILED(rectangle->SetCenterLengthsRotationSkew(kCenterX, kCenterY, kSide, kSide, kRotation, 0.0)))
        Fail("LuxRectangleAffine refused SetCenterLengthsRotationSkew");
    ComPtr<ILuxRegion> region;
    if (FAILED(rectangle->QueryInterface(ILuxRegion::iid, region.OutVoid()))) Fail("LuxRectangleAffine is no ILuxRegion");
    return region;
}

// ---------------------------------------------------------------------------------------
// The pixel check

struct Checked {
    ccRLEBuffer mask;  // the core path's
    int64_t count = 0;
};

void Report(const char* who, const PixelDifference& difference, const Region& region) {
    std::printf("  %-34s %s\n", who, difference.Describe(region.OutlinePixels()).c_str());
}

// Any pixel that differs from the rule farther from the outline than a pixel's diagonal is
// no difference of conventions but a fault.
void RequireNearOutline(const char* who, const PixelDifference& difference) {
    if (difference.rowsOutside || difference.farthest > 1.5)
        Fail(std::string(who) + " puts pixels in the wrong place (farthest " + std::to_string(difference.farthest) +
             " px from the outline)");
}

Checked CheckPixels() {
    const Region& region = TheRegion();
    const ccPixelBox& box = region.box;
    // The reference looks two pixels beyond the bounds, so that pixels missing from the
    // bounds themselves show.
    const PixelRows reference = ReferencePixels(region.quad, {box.x0 - 2, box.y0 - 2, box.x1 + 2, box.y1 + 2});
    std::printf("Pixels of %s: %lld inside, bounds %d x %d at (%d, %d)\n", region.shape->Description().c_str(),
                static_cast<long long>(reference.Count()), region.Width(), region.Height(), box.x0, box.y0);

    Checked checked;
    checked.mask = CoreMask(region);
    checked.count = reference.Count();
    if (checked.mask.Width() != region.Width() || checked.mask.Height() != region.Height())
        Fail("the core path's mask is not the size of the pixel bounds");
    const PixelDifference core =
        Compare(reference, PixelsOfRuns(checked.mask, box.x0, box.y0, kInside), region.quad);
    Report("ScanConvert + ccRLEBufferBuilder:", core, region);
    if (!core.Exact()) Fail("the core path's mask breaks the inside rule");

    if (ComPtr<ILuxRegion> object = NewAffineRectangleObject()) {
        ComPtr<ILuxRLEBuffer> rle;
        if (FAILED(object->CreateRLE(kInside, kOutside, rle.Out()))) Fail("CreateRLE failed");
        ComPtr<ILuxRLEData> data;
        if (FAILED(rle->QueryInterface(ILuxRLEData::iid, data.OutVoid()))) Fail("a LuxRLEBuffer without ILuxRLEData");
        LuxRLEData runs{};
        if (FAILED(data->get_RLEData(&runs))) Fail("get_RLEData failed");
        const PixelDifference automation =
            Compare(reference,
                    PixelsOfRuns(reinterpret_cast<const ccRLERun*>(runs.pRuns), runs.NumRuns, runs.X,
                                                 runs.Y, runs.Width, runs.Height, kInside),
                    region.quad);
        Report("CreateRLE (LuxRectangleAffine):", automation, region);
        if (!automation.Exact()) Fail("the automation path's mask breaks the inside rule");
    } else {
        std::printf("  %-34s not in the class table: not measured\n", "CreateRLE (LuxRectangleAffine):");
    }

    OpenCVPolygonFill fill(region.quad, box);
    fill.Fill();
    const PixelDifference opencv = Compare(reference, PixelsOfMask(fill.Mask(), box.x0, box.y0), region.quad);
    Report("cv::fillPoly:", opencv, region);
    RequireNearOutline("cv::fillPoly", opencv);
    // fillPoly fills the inside and also draws the outline; what it fills inside is
    // compared by adding that outline to the rule's pixels.
    cv::Mat explained = fill.Outline();
    tessaly::bench::Paint(reference, explained, box.x0, box.y0);
    const int unexplained = cv::countNonZero(explained != fill.Mask());
    std::printf("  %-34s %s\n", "",
                unexplained == 0
                    ? "= the rule's pixels + the outline fillPoly draws (8-connected, corners rounded to centres)"
                    : ("the rule's pixels + fillPoly's outline differ from its mask in " +
                       std::to_string(unexplained) + " pixels")
                          .c_str());

    AggPolygonSpans agg(region.quad);
    PixelRows aggPixels(box.y0 - 2, region.Height() + 4);
    bool aggInside = true;
    agg.Sweep([&](int y, int x, int length) { aggInside &= aggPixels.Add(y, x, x + length); });
    const PixelDifference aggDifference = Compare(reference, aggPixels, region.quad);
    Report("AGG rasterizer_scanline_aa:", aggDifference, region);
    if (!aggInside) Fail("AGG put pixels two rows beyond the bounds");
    RequireNearOutline("AGG", aggDifference);
    return checked;
}

const Checked& CheckedPixels() {
    static const Checked checked = CheckPixels();
    return checked;
}

// ---------------------------------------------------------------------------------------
// Making the mask

void CreateRLECore(benchmark::State& state) {
    const Region& region = TheRegion();
    const uint64_t before = AllocationCount();
    for (auto _ : state) {
        ccRLEBuffer mask = CoreMask(region);
        benchmark::DoNotOptimize(mask);
    }
    ReportAllocationsPerCall(state, before);
}
BENCHMARK(CreateRLECore)->Unit(benchmark::kMicrosecond);

void ScanConvertOnly(benchmark::State& state) {
    const Region& region = TheRegion();
    for (auto _ : state) {
        CountingSink sink;
        region.shape->ScanConvert(sink);
        benchmark::DoNotOptimize(sink.Sum());
    }
}
BENCHMARK(ScanConvertOnly)->Unit(benchmark::kMicrosecond);

void CreateRLEAutomation(benchmark::State& state) {
    ComPtr<ILuxRegion> object = NewAffineRectangleObject();
    if (!object) {
        state.SkipWithError("LuxRectangleAffine is not in the class table");
        return;
    }
    const uint64_t before = AllocationCount();
    for (auto _ : state) {
        ILuxRLEBuffer* rle = nullptr;
        if (FAILED(object->CreateRLE(kInside, kOutside, &rle))) {
            state.SkipWithError("CreateRLE failed");
            return;
        }
        rle->Release();
    }
    ReportAllocationsPerCall(state, before);
}
BENCHMARK(CreateRLEAutomation)->Unit(benchmark::kMicrosecond);

void CreateRLEFillPolyOpenCV(benchmark::State& state) {
    const Region& region = TheRegion();
    OpenCVPolygonFill fill(region.quad, region.box);
    for (auto _ : state) {
        fill.Fill();
        benchmark::DoNotOptimize(fill.Mask().data);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(CreateRLEFillPolyOpenCV)->Unit(benchmark::kMicrosecond);

void CreateRLEAggSpans(benchmark::State& state) {
    const Region& region = TheRegion();
    AggPolygonSpans agg(region.quad);
    for (auto _ : state) {
        uint64_t sum = 0;
        agg.Sweep([&sum](int y, int x, int length) { sum += uint64_t(x) + uint64_t(y) + uint64_t(length); });
        benchmark::DoNotOptimize(sum);
    }
}
BENCHMARK(CreateRLEAggSpans)->Unit(benchmark::kMicrosecond);

// ---------------------------------------------------------------------------------------
// Statistics under the mask

struct StatisticsSubject {
    ccPelBuffer<uint8_t> image{kImageSide, kImageSide};
    cv::Mat imageMat;   // the same pixels
    cv::Mat window;     // the mask's box of them
    cv::Mat denseMask;  // the mask's pixels, 255 inside

    StatisticsSubject() {
        std::mt19937_64 random(7);
        for (int32_t y = 0; y < kImageSide; ++y) {
            uint8_t* const row = image.RowPointer(y);
            for (int32_t x = 0; x < kImageSide; x += 8) {
                const uint64_t bits = random();
                for (int32_t k = 0; k < 8 && x + k < kImageSide; ++k) row[x + k] = static_cast<uint8_t>(bits >> (8 * k));
            }
        }
        imageMat = cv::Mat(kImageSide, kImageSide, CV_8UC1, image.RowPointer(0), static_cast<size_t>(image.Pitch()));
        const Region& region = TheRegion();
        const ccRLEBuffer& mask = CheckedPixels().mask;
        window = imageMat(cv::Rect(region.box.x0, region.box.y0, region.Width(), region.Height()));
        denseMask = cv::Mat::zeros(mask.Height(), mask.Width(), CV_8UC1);
        for (int32_t y = 0; y < mask.Height(); ++y) {
            uint8_t* x = denseMask.ptr<uint8_t>(y);
            for (const ccRLERun& run : mask.Row(y)) {
                if (run.value == kInside) std::fill_n(x, run.length, uint8_t{255});
                x += run.length;
            }
        }
    }
};

const StatisticsSubject& Statistics() {
    static const StatisticsSubject subject;
    return subject;
}

struct OpenCVStatistics {
    double mean = 0;
    cv::Mat histogram;
};

OpenCVStatistics OpenCVMeanAndHistogram(const StatisticsSubject& subject) {
    OpenCVStatistics result;
    result.mean = cv::mean(subject.window, subject.denseMask)[0];
    const int channels[] = {0};
    const int bins[] = {256};
    const float range[] = {0, 256};
    const float* ranges[] = {range};
    cv::calcHist(&subject.window, 1, channels, subject.denseMask, result.histogram, 1, bins, ranges);
    return result;
}

void CheckStatistics() {
    const StatisticsSubject& subject = Statistics();
    const Region& region = TheRegion();
    const ccRegionPixelStatistics ours(subject.image, CheckedPixels().mask, region.box.x0, region.box.y0, kInside);
    const OpenCVStatistics theirs = OpenCVMeanAndHistogram(subject);
    if (static_cast<int64_t>(ours.Count()) != CheckedPixels().count || ours.OutsideImage() != 0)
        Fail("the statistics counted " + std::to_string(ours.Count()) + " pixels, not " +
             std::to_string(CheckedPixels().count));
    if (std::fabs(ours.Mean() - theirs.mean) > 1e-9 * theirs.mean)
        Fail("the means differ: " + std::to_string(ours.Mean()) + " and cv::mean's " + std::to_string(theirs.mean));
    for (int v = 0; v < 256; ++v)
        if (static_cast<double>(ours.Histogram()[static_cast<size_t>(v)]) != theirs.histogram.at<float>(v))
            Fail("the histograms differ at " + std::to_string(v));
    std::printf("Statistics: %llu pixels, mean %.6f, histogram of 256 bins the same as OpenCV's\n",
                static_cast<unsigned long long>(ours.Count()), ours.Mean());
}

void RegionStatistics(benchmark::State& state) {
    const StatisticsSubject& subject = Statistics();
    const Region& region = TheRegion();
    const ccRLEBuffer& mask = CheckedPixels().mask;
    for (auto _ : state) {
        const ccRegionPixelStatistics statistics(subject.image, mask, region.box.x0, region.box.y0, kInside);
        benchmark::DoNotOptimize(statistics.Mean());
        benchmark::DoNotOptimize(statistics.Histogram().data());
    }
}
BENCHMARK(RegionStatistics)->Unit(benchmark::kMillisecond);

void RegionStatisticsOpenCV(benchmark::State& state) {
    const StatisticsSubject& subject = Statistics();
    for (auto _ : state) {
        const OpenCVStatistics statistics = OpenCVMeanAndHistogram(subject);
        benchmark::DoNotOptimize(statistics.mean);
        benchmark::DoNotOptimize(statistics.histogram.data);
    }
}
BENCHMARK(RegionStatisticsOpenCV)->Unit(benchmark::kMillisecond);

// ---------------------------------------------------------------------------------------
// A setter through Invoke

ComPtr<ILuxRectangle> NewRectangleObject() {
    ComPtr<ILuxRectangle> rectangle;
    if (FAILED(tessaly::CreateObject("Tessaly.LuxRectangle", ILuxRectangle::iid, rectangle.OutVoid()))) return {};
    return rectangle;
}

void PutXInvoke(benchmark::State& state) {
    ComPtr<ILuxRectangle> rectangle = NewRectangleObject();
    if (!rectangle) {
        state.SkipWithError("LuxRectangle is not in the class table");
        return;
    }
    IDispatch* dispatch = rectangle.get();
    VARIANT value{};
    value.vt = VT_R8;
    DISPID named = DISPID_PROPERTYPUT;
    DISPPARAMS params{&value, &named, 1, 1};
    // Every call changes the value, so that none is skipped as a put of what is there.
    double x = 0;
    const uint64_t before = AllocationCount();
    for (auto _ : state) {
        x = x == 1.5 ? 2.5 : 1.5;
        value.dblVal = x;
        const HRESULT hr =
            dispatch->Invoke(kRectangleXDispid, GUID_NULL, 0, DISPATCH_PROPERTYPUT, &params, nullptr, nullptr, nullptr);
        if (FAILED(hr)) [[unlikely]] {
            state.SkipWithError("Invoke of put X failed");
            return;
        }
    }
    // The total first: setting a counter inserts into the counters' map, which allocates.
    const auto allocations = static_cast<double>(AllocationCount() - before);
    ReportAllocationsPerCall(state, before);
    state.counters["allocs"] = allocations;
    double stored = 0;
    if (FAILED(rectangle->get_X(&stored)) || stored != x) state.SkipWithError("X is not the value put last");
}
BENCHMARK(PutXInvoke);

void PutXVtable(benchmark::State& state) {
    ComPtr<ILuxRectangle> rectangle = NewRectangleObject();
    if (!rectangle) {
        state.SkipWithError("LuxRectangle is not in the class table");
        return;
    }
    double x = 0;
    const uint64_t before = AllocationCount();
    for (auto _ : state) {
        x = x == 1.5 ? 2.5 : 1.5;
        benchmark::DoNotOptimize(rectangle->put_X(x));
    }
    ReportAllocationsPerCall(state, before);
    double stored = 0;
    if (FAILED(rectangle->get_X(&stored)) || stored != x) state.SkipWithError("X is not the value put last");
}
BENCHMARK(PutXVtable);

}  // namespace

int main(int argc, char** argv) {
    CheckedPixels();
    CheckStatistics();
    std::printf("\n");
    const tessaly::bench::RatioReporter* reporter = tessaly::bench::RunBenchmarks(argc, argv);
    if (!reporter) return 1;
    std::printf("\nRatios, peer / ours (targets: >= 10 against cv::fillPoly, >= 2 against AGG, >= 2 for the "
                "statistics):\n");
    reporter->PrintRatio("CreateRLEFillPolyOpenCV", "CreateRLECore");
    reporter->PrintRatio("CreateRLEFillPolyOpenCV", "CreateRLEAutomation");
    reporter->PrintRatio("CreateRLEAggSpans", "CreateRLECore");
    reporter->PrintRatio("CreateRLEAggSpans", "CreateRLEAutomation");
    reporter->PrintRatio("RegionStatisticsOpenCV", "RegionStatistics");
    std::printf("Cost of the builder and of the automation layer (ours / ours):\n");
    reporter->PrintRatio("CreateRLECore", "ScanConvertOnly");
    reporter->PrintRatio("CreateRLEAutomation", "CreateRLECore");
    reporter->PrintRatio("PutXInvoke", "PutXVtable");
    return 0;
}
