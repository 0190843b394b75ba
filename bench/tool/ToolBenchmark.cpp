// The region statistics tool's Run against the statistics computed directly from the
// region's runs, in one run of the program. The target: Run, with every record disabled and
// no sinks connected, costs at most 1.1x ccRegionPixelStatistics over the same run-length
// mask made beforehand (the yardstick does not make the mask; Run does, every time).
//
// Two cases:
//  - realistic: a 2048 x 2048 8-bit image of random pixels whose tree holds a space
//    "Fixture" (root = 1.3 * rotation(20 degrees) * p + (150, -80)); the region a
//    LuxRectangleAffine in "Fixture", centre (800, 700), sides 1100 x 900, rotation 30
//    degrees, skew 0.1 (about 1.6 million pixels, part of it clipped);
//  - small: a 64 x 64 image, the same space, a rectangle of sides 30 x 24 at (30, 20)
//    (about 1200 pixels), where the fixed costs of a run show.
// Beside them: the mask made and measured by hand (RegionMaskInImage, then the statistics)
// to show how Run's extra cost splits between making the mask and the tool's own work.
//
// Before anything is timed, the tool's area and mean are compared with the yardstick's; a
// difference ends the program with a message.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <numbers>
#include <random>

#include "RatioReporter.h"
#include "TessalyCore.h"
#include "com/image/CLuxImage8Grey.h"
#include "com/shape/RegionInImage.h"
#include "platform/Bstr.h"
#include "platform/ClassTable.h"
#include "platform/ComPtr.h"
#include "xnl/std/rlebuf/ccRegionPixelStatistics.h"

namespace {

using tessaly::Bstr;
using tessaly::ComPtr;

void Check(HRESULT hr, const char* what) {
    if (FAILED(hr)) {
        std::fprintf(stderr, "%s failed: 0x%08X\n", what, static_cast<unsigned>(hr));
        std::exit(1);
    }
}

template <class I>
ComPtr<I> New(const char* progId) {
    ComPtr<I> object;
    Check(tessaly::CreateObject(progId, I::iid, object.OutVoid()), progId);
    return object;
}

template <class I>
ComPtr<I> As(IUnknown* object) {
    ComPtr<I> other;
    Check(object->QueryInterface(I::iid, other.OutVoid()), "QueryInterface");
    return other;
}

struct Case {
    ComPtr<ILuxImage8Grey> image;
    ComPtr<ILuxRectangleAffine> region;
    ComPtr<ILuxRegionStatisticsTool> tool;
    tessaly::shape::RegionMask mask;  // made beforehand, for the yardstick
    ccPelBuffer<uint8_t> pixels;
};

Case MakeCase(int32_t size, double cx, double cy, double sx, double sy) {
    Case c;
    c.image = New<ILuxImage8Grey>("Tessaly.LuxImage8Grey");
    auto image = As<ILuxImage>(c.image.get());
    Check(image->Allocate(size, size), "Allocate");
    c.pixels = tessaly::image::CLuxImage8Grey::ImplementationOf(c.image.get())->Pels();
    std::mt19937 random(size);
    for (int32_t y = 0; y < size; ++y) {
        uint8_t* row = c.pixels.RowPointer(y);
        for (int32_t x = 0; x < size; ++x) row[x] = static_cast<uint8_t>(random() >> 24);
    }
    ComPtr<ILuxCoordinateSpaceTree> tree;
    Check(image->get_CoordinateSpaceTree(tree.Out()), "get_CoordinateSpaceTree");
    auto linear = New<ILuxTransform2DLinear>("Tessaly.LuxTransform2DLinear");
    const double angle = 20 * std::numbers::pi / 180, scale = 1.3;
    Check(linear->SetMatrixElementsTranslation(scale * std::cos(angle), -scale * std::sin(angle),
                                               scale * std::sin(angle), scale * std::cos(angle), 150.0 * size / 2048,
                                               -80.0 * size / 2048),
          "SetMatrixElementsTranslation");
    Check(tree->AddSpace(Bstr("@").get(), Bstr("Fixture").get(), As<ILuxTransform2D>(linear.get()).get(), VARIANT_TRUE,
                         luxAddSpaceDuplicateIsError),
          "AddSpace");
    c.region = New<ILuxRectangleAffine>("Tessaly.LuxRectangleAffine");
    Check(c.region->SetCenterLengthsRotationSkew(cx, cy, sx, sy, 30 * std::numbers::pi / 180, 0.1),
          "SetCenterLengthsRotationSkew");
    Check(As<ILuxShape>(c.region.get())->put_SelectedSpaceName(Bstr("Fixture").get()), "put_SelectedSpaceName");

    c.tool = New<ILuxRegionStatisticsTool>("Tessaly.LuxRegionStatisticsTool");
    Check(c.tool->putref_InputImage(image.get()), "putref_InputImage");
    Check(c.tool->putref_Region(As<ILuxRegion>(c.region.get()).get()), "putref_Region");
    auto tool = As<ILuxTool>(c.tool.get());
    Check(tool->put_LastRunRecordEnableBase(luxToolLastRunRecordNone), "put_LastRunRecordEnableBase");
    Check(tool->put_LastRunRecordDiagEnableBase(luxToolLastRunRecordDiagNone), "put_LastRunRecordDiagEnableBase");
    Check(tool->put_CurrentRecordEnableBase(luxToolCurrentRecordNone), "put_CurrentRecordEnableBase");

    auto mask = tessaly::shape::RegionMaskInImage(As<ILuxShape>(c.region.get()).get(), image.get(), 255, 0);
    c.mask = tessaly::shape::RegionMask{mask->Core(), mask->X(), mask->Y()};

    // The tool measures what the yardstick measures.
    Check(tool->Run(), "Run");
    ComPtr<ILuxRunStatus> status;
    Check(tool->get_RunStatus(status.Out()), "get_RunStatus");
    LONG code = -1, area = -1;
    double mean = -1;
    Check(status->get_ErrorCode(&code), "get_ErrorCode");
    Check(code, "the tool's run");
    Check(c.tool->get_Area(&area), "get_Area");
    Check(c.tool->get_Mean(&mean), "get_Mean");
    const ccRegionPixelStatistics direct(c.pixels, c.mask.runs, c.mask.x, c.mask.y);
    if (static_cast<uint64_t>(area) != direct.Count() || mean != direct.Mean()) {
        std::fprintf(stderr, "the tool measured %d pixels of mean %.17g, the runs %llu of mean %.17g\n", area, mean,
                     static_cast<unsigned long long>(direct.Count()), direct.Mean());
        std::exit(1);
    }
    std::printf("%d x %d: %llu pixels under the region\n", size, size, static_cast<unsigned long long>(direct.Count()));
    return c;
}

Case& Large() {
    static Case c = MakeCase(2048, 800, 700, 1100, 900);
    return c;
}
Case& Small() {
    static Case c = MakeCase(64, 30, 20, 30, 24);
    return c;
}

void Statistics(benchmark::State& state, Case& c) {
    for (auto _ : state) {
        const ccRegionPixelStatistics stats(c.pixels, c.mask.runs, c.mask.x, c.mask.y);
        benchmark::DoNotOptimize(stats.Mean());
    }
}
void MaskAndStatistics(benchmark::State& state, Case& c) {
    auto image = As<ILuxImage>(c.image.get());
    auto region = As<ILuxShape>(c.region.get());
    for (auto _ : state) {
        auto mask = tessaly::shape::RegionMaskInImage(region.get(), image.get(), 255, 0);
        const ccRegionPixelStatistics stats(c.pixels, mask->Core(), mask->X(), mask->Y());
        benchmark::DoNotOptimize(stats.Mean());
    }
}
void ToolRun(benchmark::State& state, Case& c) {
    auto tool = As<ILuxTool>(c.tool.get());
    for (auto _ : state) benchmark::DoNotOptimize(tool->Run());
}

void Statistics2048(benchmark::State& state) { Statistics(state, Large()); }
void MaskAndStatistics2048(benchmark::State& state) { MaskAndStatistics(state, Large()); }
void ToolRun2048(benchmark::State& state) { ToolRun(state, Large()); }
void Statistics64(benchmark::State& state) { Statistics(state, Small()); }
void MaskAndStatistics64(benchmark::State& state) { MaskAndStatistics(state, Small()); }
void ToolRun64(benchmark::State& state) { ToolRun(state, Small()); }

BENCHMARK(Statistics2048)->Unit(benchmark::kMillisecond);
BENCHMARK(MaskAndStatistics2048)->Unit(benchmark::kMillisecond);
BENCHMARK(ToolRun2048)->Unit(benchmark::kMillisecond);
BENCHMARK(Statistics64)->Unit(benchmark::kMicrosecond);
BENCHMARK(MaskAndStatistics64)->Unit(benchmark::kMicrosecond);
BENCHMARK(ToolRun64)->Unit(benchmark::kMicrosecond);

}  // namespace

int main(int argc, char** argv) {
    Large();
    Small();
    const tessaly::bench::RatioReporter* reporter = tessaly::bench::RunBenchmarks(argc, argv);
    if (!reporter) return 1;
    std::printf("\nRun against the statistics from the runs (target: <= 1.1x on the realistic case):\n");
    reporter->PrintRatio("ToolRun2048", "Statistics2048");
    reporter->PrintRatio("ToolRun64", "Statistics64");
    std::printf("Where the extra cost goes (making the mask; the tool's own work):\n");
    reporter->PrintRatio("MaskAndStatistics2048", "Statistics2048");
    reporter->PrintRatio("ToolRun2048", "MaskAndStatistics2048");
    reporter->PrintRatio("MaskAndStatistics64", "Statistics64");
    reporter->PrintRatio("ToolRun64", "MaskAndStatistics64");
    return 0;
}
