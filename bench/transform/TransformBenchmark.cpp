// The linear transform against its peers, in one run:
//  - mapping 10^6 points (interleaved x, y doubles) through cc2XformLinear::MapPoints,
//    against OpenCV's cv::transform with a 2x3 matrix and Eigen's Affine2d applied to a
//    2 x N matrix, all three on the same input, written to a buffer of the same layout;
//  - MapPoint through IDispatch::Invoke by DISPID (two doubles in, two by reference out):
//    allocations per call are reported, and must be 0;
//  - one Compose of two linear transforms through ILuxTransform2DLinear (the new object
//    made and released), the yardstick of the coordinate space tree's GetTransform.
#include <benchmark/benchmark.h>

#include <Eigen/Geometry>
#include <cmath>
#include <cstdio>
#include <opencv2/core.hpp>
#include <random>
#include <vector>

#include "AllocationCounter.h"
#include "RatioReporter.h"
#include "TessalyCore.h"
#include "com/transform/CLuxTransform2DLinear.h"
#include "platform/ComPtr.h"
#include "xnl/std/math/cc2XformLinear.h"

namespace {

using tessaly::ComPtr;
using tessaly::bench::AllocationCount;
using tessaly::bench::ReportAllocationsPerCall;
using tessaly::transform::CLuxTransform2DLinear;

constexpr size_t kPoints = 1000000;
// MapPoint, as the type library numbers it on both transform interfaces.
constexpr DISPID kMapPointDispid = 0x100F040;
const cc2XformLinear kValue = cc2XformLinear::FromScalingsRotations(1.25, 0.8, 0.3, 0.35, 12.5, -7.25);

const std::vector<double>& Input() {
    static const std::vector<double> points = [] {
        std::vector<double> values(2 * kPoints);
        std::mt19937_64 random(42);
        std::uniform_real_distribution<double> coordinate(-1000.0, 1000.0);
        for (double& value : values) value = coordinate(random);
        return values;
    }();
    return points;
}

// Every peer must have mapped the points as the transform does (to rounding).
void CheckOutput(benchmark::State& state, const std::vector<double>& output) {
    const std::vector<double>& input = Input();
    for (size_t i = 0; i < kPoints; i += 9973) {
        double x = 0;
        double y = 0;
        kValue.MapPoint(input[2 * i], input[2 * i + 1], x, y);
        if (std::fabs(output[2 * i] - x) > 1e-9 || std::fabs(output[2 * i + 1] - y) > 1e-9) {
            state.SkipWithError("the points were mapped wrongly");
            return;
        }
    }
}

void SetPointsProcessed(benchmark::State& state) {
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kPoints));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kPoints * 4 * sizeof(double)));
}

void MapPointsXformLinear(benchmark::State& state) {
    const std::vector<double>& input = Input();
    std::vector<double> output(input.size());
    for (auto _ : state) {
        kValue.MapPoints(input.data(), output.data(), kPoints);
        benchmark::DoNotOptimize(output.data());
        benchmark::ClobberMemory();
    }
    CheckOutput(state, output);
    SetPointsProcessed(state);
}
BENCHMARK(MapPointsXformLinear)->Unit(benchmark::kMillisecond);

void MapPointsOpenCV(benchmark::State& state) {
    const std::vector<double>& input = Input();
    std::vector<double> output(input.size());
    const cv::Mat source(static_cast<int>(kPoints), 1, CV_64FC2, const_cast<double*>(input.data()));
    cv::Mat target(static_cast<int>(kPoints), 1, CV_64FC2, output.data());
    const cv::Matx23d matrix(kValue.M00(), kValue.M01(), kValue.TranslationX(), kValue.M10(), kValue.M11(),
                             kValue.TranslationY());
    for (auto _ : state) {
        cv::transform(source, target, matrix);
        benchmark::DoNotOptimize(output.data());
        benchmark::ClobberMemory();
    }
    if (target.data != reinterpret_cast<uchar*>(output.data())) state.SkipWithError("cv::transform reallocated");
    CheckOutput(state, output);
    SetPointsProcessed(state);
}
BENCHMARK(MapPointsOpenCV)->Unit(benchmark::kMillisecond);

void MapPointsEigen(benchmark::State& state) {
    const std::vector<double>& input = Input();
    std::vector<double> output(input.size());
    const Eigen::Map<const Eigen::Matrix2Xd> source(input.data(), 2, static_cast<Eigen::Index>(kPoints));
    Eigen::Map<Eigen::Matrix2Xd> target(output.data(), 2, static_cast<Eigen::Index>(kPoints));
    Eigen::Affine2d affine = Eigen::Affine2d::Identity();
    affine.linear() << kValue.M00(), kValue.M01(), kValue.M10(), kValue.M11();
    affine.translation() << kValue.TranslationX(), kValue.TranslationY();
    for (auto _ : state) {
        target.noalias() = affine * source;
        benchmark::DoNotOptimize(output.data());
        benchmark::ClobberMemory();
    }
    CheckOutput(state, output);
    SetPointsProcessed(state);
}
BENCHMARK(MapPointsEigen)->Unit(benchmark::kMillisecond);

void MapPointInvokeByDispid(benchmark::State& state) {
    auto object = CLuxTransform2DLinear::FromValue(kValue);
    IDispatch* dispatch = object->GetDispatch();
    double mappedX = 0;
    double mappedY = 0;
    VARIANT args[4];  // reversed: MappedY, MappedX, Y, X
    for (VARIANT& arg : args) VariantInit(&arg);
    args[0].vt = VT_BYREF | VT_R8;
    args[0].pdblVal = &mappedY;
    args[1].vt = VT_BYREF | VT_R8;
    args[1].pdblVal = &mappedX;
    args[2].vt = VT_R8;
    args[2].dblVal = 2.5;
    args[3].vt = VT_R8;
    args[3].dblVal = -1.5;
    DISPPARAMS params{args, nullptr, 4, 0};
    const uint64_t before = AllocationCount();
    for (auto _ : state) {
        const HRESULT hr = dispatch->Invoke(kMapPointDispid, GUID_NULL, 0, DISPATCH_METHOD, &params, nullptr, nullptr,
                                            nullptr);
        benchmark::DoNotOptimize(hr);
        benchmark::DoNotOptimize(mappedX);
    }
    ReportAllocationsPerCall(state, before);
    double expectedX = 0;
    double expectedY = 0;
    kValue.MapPoint(-1.5, 2.5, expectedX, expectedY);
    if (mappedX != expectedX || mappedY != expectedY) state.SkipWithError("Invoke mapped the point wrongly");
}
BENCHMARK(MapPointInvokeByDispid);

void MapPointDirect(benchmark::State& state) {
    auto object = CLuxTransform2DLinear::FromValue(kValue);
    ILuxTransform2D* transform = object.get();
    double mappedX = 0;
    double mappedY = 0;
    const uint64_t before = AllocationCount();
    for (auto _ : state) {
        const HRESULT hr = transform->MapPoint(-1.5, 2.5, &mappedX, &mappedY);
        benchmark::DoNotOptimize(hr);
        benchmark::DoNotOptimize(mappedX);
    }
    ReportAllocationsPerCall(state, before);
}
BENCHMARK(MapPointDirect);

void BM_ComposeLinear(benchmark::State& state) {
    auto left = CLuxTransform2DLinear::FromValue(kValue);
    auto right = CLuxTransform2DLinear::FromValue(kValue.Inverse());
    ILuxTransform2DLinear* leftInterface = left.get();
    ILuxTransform2DLinear* rightInterface = right.get();
    const uint64_t before = AllocationCount();
    for (auto _ : state) {
        ILuxTransform2DLinear* composed = nullptr;
        const HRESULT hr = leftInterface->Compose(rightInterface, &composed);
        benchmark::DoNotOptimize(hr);
        composed->Release();
    }
    ReportAllocationsPerCall(state, before);
}
BENCHMARK(BM_ComposeLinear);

void ComposeLinearValues(benchmark::State& state) {
    const cc2XformLinear right = kValue.Inverse();
    for (auto _ : state) {
        cc2XformLinear composed = kValue.Compose(right);
        benchmark::DoNotOptimize(composed);
    }
}
BENCHMARK(ComposeLinearValues);

}  // namespace

int main(int argc, char** argv) {
    const tessaly::bench::RatioReporter* reporter = tessaly::bench::RunBenchmarks(argc, argv);
    if (!reporter) return 1;
    std::printf("\nRatios (target: <= 1 against both peers):\n");
    reporter->PrintRatio("MapPointsXformLinear", "MapPointsOpenCV");
    reporter->PrintRatio("MapPointsXformLinear", "MapPointsEigen");
    reporter->PrintRatio("MapPointInvokeByDispid", "MapPointDirect");
    return 0;
}
