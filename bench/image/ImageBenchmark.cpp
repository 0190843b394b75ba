// The grey images against their peers, in one run:
//  - Copy with copied pixels (8- and 16-bit, 1 MiB, 16 MiB and 256 MiB of pixels, widths
//    that are multiples of 32 and, for 8 bits, one that is not) against memcpy of the same
//    bytes into memory already touched (the physical limit) and against cv::Mat::clone of
//    a Mat of the same size and type (which, like Copy, makes and frees its memory). The
//    fixed cost of a copy (a new image object, copies of the coordinate space tree and of
//    the transform) is Copy with no pixels;
//  - Copy sharing pixels and opening pixel memory (the root's GetRawPixelMemory, the
//    image's Get8GreyPixelMemory) at 1 KiB and at 256 MiB: none of them may depend on
//    the size;
//  - get_Pixel through the vtable against a read of the same pixel from a plain array, and
//    through IDispatch::Invoke by DISPID against an Invoke of the Width property; the
//    allocations per call are reported and must be 0;
//  - PNG load and save of 1024 x 1024 grey images (8 and 16 bits) through ReadImageFile
//    and WriteImageFile against cv::imread and cv::imwrite of the same file. The library
//    writes with libpng's defaults (zlib level 6, Z_FILTERED, adaptive filters); OpenCV is
//    given level 6 and Z_FILTERED too. The bytes written are reported beside the times.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <string>
#include <tuple>
#include <vector>

#include "AllocationCounter.h"
#include "RatioReporter.h"
#include "TessalyCore.h"
#include "com/image/CLuxImage16Grey.h"
#include "com/image/CLuxImage8Grey.h"
#include "com/image/files/ImageFile.h"
#include "platform/ComPtr.h"

namespace {

using tessaly::ComPtr;
using tessaly::bench::AllocationCount;
using tessaly::bench::ReportAllocationsPerCall;
using tessaly::image::CLuxImage16Grey;
using tessaly::image::CLuxImage8Grey;

// Pixel (0x100700E) of ILuxImage8Grey and Width (0x1007006) of ILuxImage, as the type
// library numbers them.
constexpr DISPID kPixelDispid = 0x100700E;
constexpr DISPID kWidthDispid = 0x1007006;

struct Grey8 {
    using Class = CLuxImage8Grey;
    using Interface = ILuxImage8Grey;
    using Root = ILuxImage8Root;
    using Memory = ILuxImage8PixelMemory;
    using Pel = uint8_t;
    static constexpr int kCvType = CV_8UC1;
    static constexpr const char* kName = "8bit";
    static HRESULT OpenMemory(Class* image, Memory** memory) {
        return image->Get8GreyPixelMemory(luxImageDataModeReadWrite, 0, 0, 0, 0, memory);
    }
};

struct Grey16 {
    using Class = CLuxImage16Grey;
    using Interface = ILuxImage16Grey;
    using Root = ILuxImage16Root;
    using Memory = ILuxImage16PixelMemory;
    using Pel = uint16_t;
    static constexpr int kCvType = CV_16UC1;
    static constexpr const char* kName = "16bit";
    static HRESULT OpenMemory(Class* image, Memory** memory) {
        return image->Get16GreyPixelMemory(luxImageDataModeReadWrite, 0, 0, 0, 0, memory);
    }
};

// A value of every pixel that is not a plain ramp: a gradient with a little noise, which
// compresses like a real image rather than like a test pattern.
template <class Pel>
Pel PatternValue(int32_t x, int32_t y) {
    uint32_t noise = static_cast<uint32_t>(x) * 2654435761u ^ static_cast<uint32_t>(y) * 40503u;
    noise = (noise >> 13) & 7u;
    if constexpr (sizeof(Pel) == 1) return static_cast<Pel>(((x + y) / 8 + noise) & 0xFF);
    else return static_cast<Pel>(((x * 7 + y * 5) + noise * 16) & 0xFFFF);
}

// The images, Mats and memcpy targets of one size, made once and kept for the whole run
// (the largest take seconds to fill).
template <class G>
struct Subject {
    ComPtr<typename G::Class> image;
    cv::Mat mat;
    std::vector<typename G::Pel> target;  // memcpy's, touched once
    size_t bytes = 0;                     // width x height x pixel size
};

template <class G>
Subject<G>& SubjectOf(int32_t width, int32_t height) {
    static std::map<std::pair<int32_t, int32_t>, std::unique_ptr<Subject<G>>> made;
    std::unique_ptr<Subject<G>>& slot = made[{width, height}];
    if (slot) return *slot;
    slot = std::make_unique<Subject<G>>();
    Subject<G>& subject = *slot;
    subject.image = ComPtr<typename G::Class>::Attach(G::Class::Create());
    if (FAILED(subject.image->Allocate(width, height))) std::abort();
    const auto pels = subject.image->Pels();
    subject.mat.create(height, width, G::kCvType);
    for (int32_t y = 0; y < height; ++y) {
        typename G::Pel* row = pels.RowPointer(y);
        auto* matRow = subject.mat.template ptr<typename G::Pel>(y);
        for (int32_t x = 0; x < width; ++x) row[x] = matRow[x] = PatternValue<typename G::Pel>(x, y);
    }
    subject.bytes = size_t(width) * size_t(height) * sizeof(typename G::Pel);
    subject.target.assign(size_t(width) * size_t(height), typename G::Pel{1});
    return subject;
}

std::string ShapeName(const char* what, const char* bits, int32_t width, int32_t height) {
    return std::string(what) + "/" + bits + "/" + std::to_string(width) + "x" + std::to_string(height);
}

template <class G>
void CopyImage(benchmark::State& state, int32_t width, int32_t height, LuxImageCopyModeConstants mode) {
    Subject<G>& subject = SubjectOf<G>(width, height);
    typename G::Interface* image = subject.image.get();
    // The steady state of repeated copies: one copy first, untimed, faults in the pages
    // that the next copies reuse (the first copy of a large image pays for them).
    {
        typename G::Interface* first = nullptr;
        if (SUCCEEDED(image->Copy(mode, &first))) first->Release();
    }
    const uint64_t before = AllocationCount();
    for (auto _ : state) {
        typename G::Interface* copy = nullptr;
        const HRESULT hr = image->Copy(mode, &copy);
        if (FAILED(hr)) {
            state.SkipWithError("Copy failed");
            break;
        }
        benchmark::DoNotOptimize(copy);
        copy->Release();
    }
    ReportAllocationsPerCall(state, before);
    if (mode == luxImageCopyModeCopyPixels) state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(subject.bytes));
    // The copy holds the pixels of the original.
    if (mode == luxImageCopyModeCopyPixels) {
        typename G::Interface* copy = nullptr;
        image->Copy(mode, &copy);
        LONG value = -1;
        copy->get_Pixel(width - 1, height - 1, &value);
        if (value != PatternValue<typename G::Pel>(width - 1, height - 1)) state.SkipWithError("the copy differs");
        copy->Release();
    }
}

template <class G>
void Memcpy(benchmark::State& state, int32_t width, int32_t height) {
    Subject<G>& subject = SubjectOf<G>(width, height);
    const auto pels = subject.image->Pels();
    // Rows of a width that is not a multiple of 32 are padded: their pixel bytes are
    // copied as one block all the same, the bytes a copy must move at the least.
    const void* source = pels.RowPointer(0);
    void* target = subject.target.data();
    for (auto _ : state) {
        std::memcpy(target, source, subject.bytes);
        benchmark::DoNotOptimize(target);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(subject.bytes));
}

template <class G>
void CvClone(benchmark::State& state, int32_t width, int32_t height) {
    Subject<G>& subject = SubjectOf<G>(width, height);
    for (auto _ : state) {
        cv::Mat clone = subject.mat.clone();
        benchmark::DoNotOptimize(clone.data);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(subject.bytes));
}

template <class G>
void OpenRootMemory(benchmark::State& state, int32_t width, int32_t height) {
    Subject<G>& subject = SubjectOf<G>(width, height);
    ComPtr<typename G::Root> root;
    subject.image->GetRoot(root.Out());
    const uint64_t before = AllocationCount();
    for (auto _ : state) {
        typename G::Memory* memory = nullptr;
        const HRESULT hr = root->GetRawPixelMemory(luxImageDataModeReadWrite, 0, 0, 0, 0, &memory);
        if (FAILED(hr)) {
            state.SkipWithError("GetRawPixelMemory failed");
            break;
        }
        benchmark::DoNotOptimize(memory);
        memory->Release();
    }
    ReportAllocationsPerCall(state, before);
}

template <class G>
void OpenImageMemory(benchmark::State& state, int32_t width, int32_t height) {
    Subject<G>& subject = SubjectOf<G>(width, height);
    typename G::Class* image = subject.image.get();
    const uint64_t before = AllocationCount();
    for (auto _ : state) {
        typename G::Memory* memory = nullptr;
        const HRESULT hr = G::OpenMemory(image, &memory);
        if (FAILED(hr)) {
            state.SkipWithError("opening the pixel memory failed");
            break;
        }
        benchmark::DoNotOptimize(memory);
        memory->Release();
    }
    ReportAllocationsPerCall(state, before);
}

// Pixel reads walk the image the same way in every peer: one pixel to the right each
// call, wrapping at the end of a row and of the image.
constexpr int32_t kPixelSide = 1024;

struct PixelWalk {
    int32_t x = 0;
    int32_t y = 0;
    void Next() {
        if (++x == kPixelSide) {
            x = 0;
            if (++y == kPixelSide) y = 0;
        }
    }
};

void GetPixelVtable(benchmark::State& state) {
    Subject<Grey8>& subject = SubjectOf<Grey8>(kPixelSide, kPixelSide);
    ILuxImage8Grey* image = subject.image.get();
    PixelWalk walk;
    LONG value = 0;
    const uint64_t before = AllocationCount();
    for (auto _ : state) {
        const HRESULT hr = image->get_Pixel(walk.x, walk.y, &value);
        benchmark::DoNotOptimize(hr);
        benchmark::DoNotOptimize(value);
        walk.Next();
    }
    ReportAllocationsPerCall(state, before);
    image->get_Pixel(5, 7, &value);
    if (value != PatternValue<uint8_t>(5, 7)) state.SkipWithError("get_Pixel read the wrong value");
}
BENCHMARK(GetPixelVtable);

void GetPixelArray(benchmark::State& state) {
    std::vector<uint8_t> pixels(size_t(kPixelSide) * kPixelSide);
    for (int32_t y = 0; y < kPixelSide; ++y)
        for (int32_t x = 0; x < kPixelSide; ++x) pixels[size_t(y) * kPixelSide + x] = PatternValue<uint8_t>(x, y);
    const uint8_t* data = pixels.data();
    PixelWalk walk;
    LONG value = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(data);
        value = data[size_t(walk.y) * kPixelSide + size_t(walk.x)];
        benchmark::DoNotOptimize(value);
        walk.Next();
    }
}
BENCHMARK(GetPixelArray);

void GetPixelInvoke(benchmark::State& state) {
    Subject<Grey8>& subject = SubjectOf<Grey8>(kPixelSide, kPixelSide);
    IDispatch* dispatch = subject.image->GetDispatch();
    VARIANT args[2];  // reversed: Y, X
    VariantInit(&args[0]);
    VariantInit(&args[1]);
    args[0].vt = VT_I4;
    args[1].vt = VT_I4;
    DISPPARAMS params{args, nullptr, 2, 0};
    VARIANT result;
    VariantInit(&result);
    PixelWalk walk;
    const uint64_t before = AllocationCount();
    for (auto _ : state) {
        args[1].lVal = walk.x;
        args[0].lVal = walk.y;
        const HRESULT hr = dispatch->Invoke(kPixelDispid, GUID_NULL, 0, DISPATCH_PROPERTYGET, &params, &result,
                                            nullptr, nullptr);
        if (FAILED(hr)) [[unlikely]] {
            state.SkipWithError("Invoke of Pixel failed");
            break;
        }
        benchmark::DoNotOptimize(result.lVal);
        walk.Next();
    }
    ReportAllocationsPerCall(state, before);
    args[1].lVal = 5;
    args[0].lVal = 7;
    dispatch->Invoke(kPixelDispid, GUID_NULL, 0, DISPATCH_PROPERTYGET, &params, &result, nullptr, nullptr);
    if (result.vt != VT_I4 || result.lVal != PatternValue<uint8_t>(5, 7))
        state.SkipWithError("Invoke of Pixel read the wrong value");
}
BENCHMARK(GetPixelInvoke);

void GetWidthInvoke(benchmark::State& state) {
    Subject<Grey8>& subject = SubjectOf<Grey8>(kPixelSide, kPixelSide);
    IDispatch* dispatch = subject.image->GetDispatch();
    DISPPARAMS params{nullptr, nullptr, 0, 0};
    VARIANT result;
    VariantInit(&result);
    const uint64_t before = AllocationCount();
    for (auto _ : state) {
        const HRESULT hr = dispatch->Invoke(kWidthDispid, GUID_NULL, 0, DISPATCH_PROPERTYGET, &params, &result,
                                            nullptr, nullptr);
        if (FAILED(hr)) [[unlikely]] {
            state.SkipWithError("Invoke of Width failed");
            break;
        }
        benchmark::DoNotOptimize(result.lVal);
    }
    ReportAllocationsPerCall(state, before);
    if (result.vt != VT_I4 || result.lVal != kPixelSide) state.SkipWithError("Invoke of Width read the wrong value");
}
BENCHMARK(GetWidthInvoke);

// PNG files: written to and read from a folder of this process's own, one file per
// peer and pixel width; the loads read the file the library wrote.
std::filesystem::path PngFolder() {
    static const std::filesystem::path folder = [] {
        auto path = std::filesystem::temp_directory_path() / ("tessaly-bench-image-" + std::to_string(getpid()));
        std::filesystem::create_directories(path);
        return path;
    }();
    return folder;
}

constexpr int kPngLevel = 6;
const std::vector<int> kCvPngParams = {cv::IMWRITE_PNG_COMPRESSION, kPngLevel, cv::IMWRITE_PNG_STRATEGY,
                                       cv::IMWRITE_PNG_STRATEGY_FILTERED};

template <class G>
std::filesystem::path PngPath(const char* who) {
    return PngFolder() / (std::string(who) + "-" + G::kName + ".png");
}

template <class G>
void SavePngLibrary(benchmark::State& state) {
    Subject<G>& subject = SubjectOf<G>(1024, 1024);
    const tessaly::image::ImageFilePixels pixels(subject.image->Pels());
    const std::filesystem::path path = PngPath<G>("tessaly");
    for (auto _ : state) tessaly::image::WriteImageFile(path, pixels);
    state.counters["file_bytes"] = static_cast<double>(std::filesystem::file_size(path));
}

template <class G>
void SavePngOpenCV(benchmark::State& state) {
    Subject<G>& subject = SubjectOf<G>(1024, 1024);
    const std::string path = PngPath<G>("opencv").string();
    for (auto _ : state)
        if (!cv::imwrite(path, subject.mat, kCvPngParams)) {
            state.SkipWithError("cv::imwrite failed");
            break;
        }
    state.counters["file_bytes"] = static_cast<double>(std::filesystem::file_size(path));
}

// The file both loads read: the library's, written once.
template <class G>
std::filesystem::path PngToLoad() {
    static const std::filesystem::path path = [] {
        Subject<G>& subject = SubjectOf<G>(1024, 1024);
        auto written = PngPath<G>("load");
        tessaly::image::WriteImageFile(written, tessaly::image::ImageFilePixels(subject.image->Pels()));
        return written;
    }();
    return path;
}

template <class G>
void LoadPngLibrary(benchmark::State& state) {
    const std::filesystem::path path = PngToLoad<G>();
    int32_t width = 0;
    for (auto _ : state) {
        tessaly::image::ImageFilePixels pixels = tessaly::image::ReadImageFile(path);
        width = pixels.Width();
        benchmark::DoNotOptimize(width);
    }
    const tessaly::image::ImageFilePixels pixels = tessaly::image::ReadImageFile(path);
    const bool sixteen = sizeof(typename G::Pel) == 2;
    const LONG value = sixteen ? LONG{pixels.Grey16().Get(5, 7)} : LONG{pixels.Grey8().Get(5, 7)};
    if (width != 1024 || value != PatternValue<typename G::Pel>(5, 7)) state.SkipWithError("the load differs");
}

template <class G>
void LoadPngOpenCV(benchmark::State& state) {
    const std::string path = PngToLoad<G>().string();
    cv::Mat loaded;
    for (auto _ : state) {
        loaded = cv::imread(path, cv::IMREAD_UNCHANGED);
        benchmark::DoNotOptimize(loaded.data);
    }
    if (loaded.type() != G::kCvType || loaded.cols != 1024 ||
        loaded.at<typename G::Pel>(7, 5) != PatternValue<typename G::Pel>(5, 7))
        state.SkipWithError("cv::imread read something else");
}

// The names of the benchmarks whose ratios are printed at the end, in pairs.
std::vector<std::tuple<std::string, std::string, const char*>> ratios;

template <class G>
void RegisterCopies(int32_t width, int32_t height) {
    const std::string copy = ShapeName("Copy", G::kName, width, height);
    const std::string memcpyName = ShapeName("Memcpy", G::kName, width, height);
    const std::string clone = ShapeName("CvClone", G::kName, width, height);
    const auto unit = size_t(width) * size_t(height) >= (size_t{1} << 24) ? benchmark::kMillisecond
                                                                          : benchmark::kMicrosecond;
    // cv::Mat's memory this large comes fresh from the system on every call (glibc maps
    // blocks above 32 MiB and unmaps them when freed), and one call takes about a second
    // here: a fixed count of calls. The library keeps released large blocks for the next
    // image of their size, so its copies run as long as the benchmark needs; the first
    // copy pays the page faults as clone does each time.
    const bool fresh = size_t(width) * size_t(height) * sizeof(typename G::Pel) > (size_t{32} << 20);
    benchmark::RegisterBenchmark(copy.c_str(), [=](benchmark::State& state) {
        CopyImage<G>(state, width, height, luxImageCopyModeCopyPixels);
    })->Unit(unit);
    benchmark::RegisterBenchmark(memcpyName.c_str(), [=](benchmark::State& state) {
        Memcpy<G>(state, width, height);
    })->Unit(unit);
    auto* cloneRun = benchmark::RegisterBenchmark(clone.c_str(), [=](benchmark::State& state) {
        CvClone<G>(state, width, height);
    })->Unit(unit);
    if (fresh) cloneRun->Iterations(4);
    // The report names a benchmark of a fixed count of calls with that count.
    const std::string suffix = fresh ? "/iterations:4" : "";
    ratios.emplace_back(copy, memcpyName, "<= 1.1");
    ratios.emplace_back(copy, clone + suffix, "<= 1.0");
}

template <class G>
void RegisterFixedCosts(int32_t smallWidth, int32_t smallHeight, int32_t largeWidth, int32_t largeHeight) {
    const std::string noPixels = ShapeName("CopyNoPixels", G::kName, smallWidth, smallHeight);
    benchmark::RegisterBenchmark(noPixels.c_str(), [=](benchmark::State& state) {
        CopyImage<G>(state, smallWidth, smallHeight, luxImageCopyModeNoPixels);
    });
    std::string names[3][2];
    int i = 0;
    for (auto [width, height] : {std::pair{smallWidth, smallHeight}, std::pair{largeWidth, largeHeight}}) {
        names[0][i] = ShapeName("CopyShare", G::kName, width, height);
        names[1][i] = ShapeName("RootMemory", G::kName, width, height);
        names[2][i] = ShapeName("ImageMemory", G::kName, width, height);
        benchmark::RegisterBenchmark(names[0][i].c_str(), [=](benchmark::State& state) {
            CopyImage<G>(state, width, height, luxImageCopyModeSharePixels);
        });
        benchmark::RegisterBenchmark(names[1][i].c_str(), [=](benchmark::State& state) {
            OpenRootMemory<G>(state, width, height);
        });
        benchmark::RegisterBenchmark(names[2][i].c_str(), [=](benchmark::State& state) {
            OpenImageMemory<G>(state, width, height);
        });
        ++i;
    }
    for (auto& pair : names) ratios.emplace_back(pair[1], pair[0], "~= 1");
}

template <class G>
void RegisterPng() {
    const std::string bits = G::kName;
    const std::string names[4] = {"SavePngTessaly/" + bits, "SavePngOpenCV/" + bits, "LoadPngTessaly/" + bits,
                                  "LoadPngOpenCV/" + bits};
    benchmark::RegisterBenchmark(names[0].c_str(), SavePngLibrary<G>)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark(names[1].c_str(), SavePngOpenCV<G>)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark(names[2].c_str(), LoadPngLibrary<G>)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark(names[3].c_str(), LoadPngOpenCV<G>)->Unit(benchmark::kMillisecond);
    ratios.emplace_back(names[0], names[1], "<= 1.0");
    ratios.emplace_back(names[2], names[3], "<= 1.0");
}

}  // namespace

int main(int argc, char** argv) {
    // 1 MiB, 16 MiB and 256 MiB of pixels; for 8 bits also widths that are not multiples
    // of 32 (padded rows, copied row by row) at about 1 MiB and 16 MiB.
    RegisterCopies<Grey8>(1024, 1024);
    RegisterCopies<Grey8>(1000, 1049);
    RegisterCopies<Grey8>(4096, 4096);
    RegisterCopies<Grey8>(4000, 4195);
    RegisterCopies<Grey8>(16384, 16384);
    RegisterCopies<Grey16>(1024, 512);
    RegisterCopies<Grey16>(4096, 2048);
    RegisterCopies<Grey16>(16384, 8192);
    // 1 KiB against 256 MiB.
    RegisterFixedCosts<Grey8>(32, 32, 16384, 16384);
    RegisterFixedCosts<Grey16>(32, 16, 16384, 8192);
    RegisterPng<Grey8>();
    RegisterPng<Grey16>();
    ratios.emplace_back("GetPixelVtable", "GetPixelArray", "<= 15");
    ratios.emplace_back("GetPixelInvoke", "GetWidthInvoke", "<= 2");

    const tessaly::bench::RatioReporter* reporter = tessaly::bench::RunBenchmarks(argc, argv);
    std::error_code ignored;
    std::filesystem::remove_all(PngFolder(), ignored);
    if (!reporter) return 1;
    // By target, in the order the targets first appear.
    std::vector<std::string> targets;
    for (const auto& entry : ratios)
        if (std::find(targets.begin(), targets.end(), std::get<2>(entry)) == targets.end())
            targets.emplace_back(std::get<2>(entry));
    std::printf("\nRatios:\n");
    for (const std::string& target : targets) {
        std::printf("(target %s)\n", target.c_str());
        std::fflush(stdout);
        for (const auto& [slow, fast, wanted] : ratios)
            if (target == wanted) reporter->PrintRatio(slow.c_str(), fast.c_str());
    }
    return 0;
}
