// GetTransform between the two leaves of a tree ten levels deep (two branches of ten spaces
// below the root, every link a LuxTransform2DLinear, the leaves named by full paths) against
// one Compose of two LuxTransform2DLinear through the interface, in one run. The tree
// multiplies the links' values along the path and makes one object for the result; its
// allocations per call are reported (target: the result object alone, nothing per level).
// Simple names, which are searched in the whole tree, are measured too for comparison.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <string>

#include "AllocationCounter.h"
#include "RatioReporter.h"
#include "TessalyCore.h"
#include "platform/Bstr.h"
#include "platform/ClassTable.h"
#include "platform/ComPtr.h"

namespace {

using tessaly::Bstr;
using tessaly::ComPtr;
using tessaly::bench::AllocationCount;
using tessaly::bench::ReportAllocationsPerCall;

constexpr int kDepth = 10;

ComPtr<ILuxTransform2DLinear> NewLinear(double angle, double tx, double ty) {
    ComPtr<ILuxTransform2DLinear> linear;
    if (FAILED(tessaly::CreateObject("Tessaly.LuxTransform2DLinear", ILuxTransform2DLinear::iid, linear.OutVoid())))
        std::abort();
    linear->SetMatrixElementsTranslation(std::cos(angle), -std::sin(angle), std::sin(angle), std::cos(angle), tx, ty);
    return linear;
}

struct Subject {
    ComPtr<ILuxCoordinateSpaceTree> tree;
    Bstr leafA;
    Bstr leafB;
    Bstr simpleA{"A10"};
    Bstr simpleB{"B10"};
    ComPtr<ILuxTransform2DLinear> left = NewLinear(0.3, 1, 2);
    ComPtr<ILuxTransform2DLinear> right = NewLinear(-0.2, 3, -1);

    Subject() {
        if (FAILED(tessaly::CreateObject("Tessaly.LuxCoordinateSpaceTree", ILuxCoordinateSpaceTree::iid,
                                         tree.OutVoid())))
            std::abort();
        for (const char* branch : {"A", "B"}) {
            std::string parent = "@";
            for (int level = 1; level <= kDepth; ++level) {
                const std::string name = branch + std::to_string(level);
                ComPtr<ILuxTransform2D> link;
                NewLinear(0.01 * level, level, -level)->QueryInterface(IID_ILuxTransform2D, link.OutVoid());
                if (FAILED(tree->AddSpace(Bstr(parent).get(), Bstr(name).get(), link.get(), VARIANT_FALSE,
                                          luxAddSpaceDuplicateIsError)))
                    std::abort();
                parent += "\\" + name;
            }
            (branch[0] == 'A' ? leafA : leafB) = Bstr(parent);
        }
    }
};

Subject& Tree() {
    static Subject* subject = new Subject;  // lives to the end of the process
    return *subject;
}

void GetTransformLeafToLeaf(benchmark::State& state) {
    Subject& subject = Tree();
    const uint64_t before = AllocationCount();
    for (auto _ : state) {
        ILuxTransform2D* result = nullptr;
        if (FAILED(subject.tree->GetTransform(subject.leafA.get(), subject.leafB.get(), &result))) std::abort();
        benchmark::DoNotOptimize(result);
        result->Release();
    }
    ReportAllocationsPerCall(state, before);
}
BENCHMARK(GetTransformLeafToLeaf);

void GetTransformLeafToLeafBySimpleNames(benchmark::State& state) {
    Subject& subject = Tree();
    const uint64_t before = AllocationCount();
    for (auto _ : state) {
        ILuxTransform2D* result = nullptr;
        if (FAILED(subject.tree->GetTransform(subject.simpleA.get(), subject.simpleB.get(), &result))) std::abort();
        benchmark::DoNotOptimize(result);
        result->Release();
    }
    ReportAllocationsPerCall(state, before);
}
BENCHMARK(GetTransformLeafToLeafBySimpleNames);

void ComposeTwoLinear(benchmark::State& state) {
    Subject& subject = Tree();
    const uint64_t before = AllocationCount();
    for (auto _ : state) {
        ILuxTransform2DLinear* result = nullptr;
        if (FAILED(subject.left->Compose(subject.right.get(), &result))) std::abort();
        benchmark::DoNotOptimize(result);
        result->Release();
    }
    ReportAllocationsPerCall(state, before);
}
BENCHMARK(ComposeTwoLinear);

}  // namespace

int main(int argc, char** argv) {
    const tessaly::bench::RatioReporter* reporter = tessaly::bench::RunBenchmarks(argc, argv);
    if (!reporter) return 1;
    std::printf("\nRatios (target: GetTransform between leaves of a 10-deep tree <= 20 x one Compose):\n");
    reporter->PrintRatio("GetTransformLeafToLeaf", "ComposeTwoLinear");
    reporter->PrintRatio("GetTransformLeafToLeafBySimpleNames", "ComposeTwoLinear");
    return 0;
}
