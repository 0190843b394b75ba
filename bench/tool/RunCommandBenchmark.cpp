// `tessaly run`'s pipeline (RunPipeline::Run, the function the command calls) over a
// folder of PNG files of about 1 MiB each (1024 x 1024 8-bit noise), against decoding the
// same files alone: on one thread, and on as many threads as there are cores. The pipeline
// decodes on a pool of threads while the tool runs on the calling thread; it is meant to
// take at most 1.2 times as long as decoding alone on every core, the tool's work hidden
// behind the decoding.
//
// The files are written once into a folder under the temporary directory (after checking
// that it has room for them) and deleted when the program ends. Their number is 1000, or
// TESSALY_RUN_BENCH_FILES for a quicker run. Each repetition times the three in turn on
// the same files (warm in the page cache after writing), so a busy machine slows all three
// alike; run with --benchmark_repetitions=3 or more and note the load.
//
// Counters: the seconds of each, the ratios pipeline / decode, the processor time of the
// pipeline over its wall time (about the number of cores when it uses them all) and the
// largest resident set of the process, in MiB.
#include <benchmark/benchmark.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

#include "CsvWriter.h"
#include "ImageFileList.h"
#include "RunPipeline.h"
#include "ToolBinding.h"
#include "TessalyCore.h"
#include "com/core/ObjectPersistence.h"
#include "com/image/files/ImageFile.h"
#include "com/image/files/ImageFileObjects.h"
#include "com/transform/CLuxTransform2DLinear.h"
#include "platform/Bstr.h"
#include "platform/ClassTable.h"
#include "xnl/std/pelbuf/ccPelBuffer.h"

namespace {

using tessaly::Bstr;
using tessaly::ComPtr;
using Clock = std::chrono::steady_clock;

constexpr int32_t kSide = 1024;

uint64_t FileCount() {
    const char* text = std::getenv("TESSALY_RUN_BENCH_FILES");
    const long count = text ? std::atol(text) : 1000;
    return count > 0 ? static_cast<uint64_t>(count) : 1000;
}

unsigned Cores() { return std::max(1u, std::thread::hardware_concurrency()); }

double Seconds(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

// Of every thread of the process.
double ProcessorSeconds() {
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return time.tv_sec + time.tv_nsec * 1e-9;
}

double LargestResidentMiB() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss / 1024.0;  // kilobytes on Linux
}

#define CHECK_OK(call)                                                          \
    do {                                                                        \
        if (FAILED(call)) throw std::runtime_error(std::string("failed: ") + #call); \
    } while (0)

// The files and the saved tool, made on first use, removed at exit.
class Subjects {
public:
    static Subjects& Get() {
        static Subjects subjects;
        return subjects;
    }

    const std::string& Problem() const { return problem_; }
    const std::vector<tessaly::cli::ImageFileList::Entry>& Files() const { return files_; }
    const std::filesystem::path& Archive() const { return archive_; }
    uint64_t Bytes() const { return bytes_; }

    ~Subjects() {
        std::error_code ignored;
        if (!folder_.empty()) std::filesystem::remove_all(folder_, ignored);
    }

private:
    Subjects() {
        const uint64_t count = FileCount();
        folder_ = std::filesystem::temp_directory_path() / ("tessaly-run-bench-" + std::to_string(getpid()));
        const auto space = std::filesystem::space(std::filesystem::temp_directory_path());
        const uint64_t needed = count * (kSide * kSide + kSide * kSide / 8) + (uint64_t{256} << 20);
        if (space.available < needed) {
            problem_ = "not enough room in the temporary directory for " + std::to_string(count) + " files";
            folder_.clear();
            return;
        }
        std::filesystem::create_directories(folder_);
        WriteFiles(count);
        archive_ = folder_ / "tool.bin";
        SaveTool();
        const std::vector<std::string> arguments = {folder_.string()};
        files_ = tessaly::cli::ImageFileList::Expand(arguments);
        for (const auto& file : files_) bytes_ += std::filesystem::file_size(file.path);
    }

    // Noise over a ramp: every file different, each about 1 MiB as PNG.
    void WriteFiles(uint64_t count) {
        std::atomic<uint64_t> next{0};
        std::vector<std::thread> writers;
        for (unsigned t = 0; t < Cores(); ++t)
            writers.emplace_back([&] {
                for (uint64_t i; (i = next++) < count;) {
                    std::minstd_rand random(static_cast<uint32_t>(i + 1));
                    ccPelBuffer<uint8_t> pels(kSide, kSide);
                    for (int32_t y = 0; y < kSide; ++y) {
                        uint8_t* row = pels.RowPointer(y);
                        for (int32_t x = 0; x < kSide; ++x) row[x] = static_cast<uint8_t>(x / 8 + random() % 128);
                    }
                    char name[32];
                    std::snprintf(name, sizeof name, "image%05llu.png", static_cast<unsigned long long>(i));
                    tessaly::image::WriteImageFile(folder_ / name, tessaly::image::ImageFilePixels(pels));
                }
            });
        for (std::thread& writer : writers) writer.join();
    }

    // The demo's request at this size: a region in a fixture space rotated 20 degrees and
    // scaled 1.5, a quarter of the image each way, saved with its input image.
    void SaveTool() {
        ccPelBuffer<uint8_t> pels(kSide, kSide);
        const ComPtr<ILuxImage> image = tessaly::image::ImageFromFilePixels(tessaly::image::ImageFilePixels(pels));
        ComPtr<ILuxCoordinateSpaceTree> tree;
        CHECK_OK(image->get_CoordinateSpaceTree(tree.Out()));
        const double r = 20.0 * 3.14159265358979323846 / 180.0, s = 1.5;
        const auto fixture = tessaly::transform::CLuxTransform2DLinear::FromValue(
            cc2XformLinear(s * std::cos(r), -s * std::sin(r), s * std::sin(r), s * std::cos(r), kSide / 2.0, kSide / 2.0));
        CHECK_OK(tree->AddSpace(Bstr("@").get(), Bstr("Fixture").get(), static_cast<ILuxTransform2D*>(fixture.get()),
                                VARIANT_TRUE, luxAddSpaceDuplicateIsError));
        ComPtr<ILuxRectangleAffine> region;
        CHECK_OK(tessaly::CreateObject("Tessaly.LuxRectangleAffine", ILuxRectangleAffine::iid, region.OutVoid()));
        CHECK_OK(region->SetCenterLengthsRotationSkew(0, 0, kSide / 4.0, kSide / 4.0, 0, 0));
        CHECK_OK(region->put_SelectedSpaceName(Bstr("Fixture").get()));
        ComPtr<ILuxRegion> asRegion;
        CHECK_OK(region->QueryInterface(ILuxRegion::iid, asRegion.OutVoid()));
        ComPtr<ILuxRegionStatisticsTool> tool;
        CHECK_OK(tessaly::CreateObject("Tessaly.LuxRegionStatisticsTool", ILuxRegionStatisticsTool::iid, tool.OutVoid()));
        CHECK_OK(tool->putref_InputImage(image.get()));
        CHECK_OK(tool->putref_Region(asRegion.get()));
        CHECK_OK(tessaly::SaveObjectToFile(tool.get(), archive_.string(), luxPersistFormatBinary, luxPersistOptionAll));
    }

    std::filesystem::path folder_;
    std::filesystem::path archive_;
    std::vector<tessaly::cli::ImageFileList::Entry> files_;
    uint64_t bytes_ = 0;
    std::string problem_;
};

double DecodeAlone(const std::vector<tessaly::cli::ImageFileList::Entry>& files, unsigned threads) {
    const auto start = Clock::now();
    std::atomic<size_t> next{0};
    std::atomic<uint64_t> pixels{0};
    const auto decode = [&] {
        for (size_t i; (i = next++) < files.size();)
            pixels += static_cast<uint64_t>(tessaly::image::ReadImageFile(files[i].path).Width());
    };
    if (threads == 1) {
        decode();
    } else {
        std::vector<std::thread> pool;
        for (unsigned t = 0; t < threads; ++t) pool.emplace_back(decode);
        for (std::thread& thread : pool) thread.join();
    }
    benchmark::DoNotOptimize(pixels.load());
    return Seconds(start);
}

void BM_RunCommandPipeline(benchmark::State& state) {
    Subjects& subjects = Subjects::Get();
    if (!subjects.Problem().empty()) {
        state.SkipWithError(subjects.Problem().c_str());
        return;
    }
    const auto& files = subjects.Files();
    ComPtr<IDispatch> root;
    if (FAILED(tessaly::LoadObjectFromFile(subjects.Archive().string(), luxPersistFormatAny, root.Out()))) {
        state.SkipWithError("the saved tool does not load");
        return;
    }
    double oneThread = 0, allCores = 0, pipeline = 0, processor = 0;
    uint64_t failed = 0;
    {
        tessaly::cli::ToolBinding tool = tessaly::cli::ToolBinding::Bind(root.get());
        for (auto _ : state) {
            oneThread = DecodeAlone(files, 1);
            allCores = DecodeAlone(files, Cores());
            std::ofstream sink("/dev/null");
            tessaly::cli::CsvWriter csv(sink);
            const double processorBefore = ProcessorSeconds();
            const auto start = Clock::now();
            const auto summary = tessaly::cli::RunPipeline::Run(tool, files, csv, {});
            pipeline = Seconds(start);
            processor = ProcessorSeconds() - processorBefore;
            failed = summary.failed;
            state.SetIterationTime(pipeline);
        }
    }
    tessaly::ClearObjectGraph(root.get());
    if (failed) state.SkipWithError("some files failed in the pipeline");
    state.counters["files"] = static_cast<double>(files.size());
    state.counters["MiB_per_file"] = subjects.Bytes() / double(files.size()) / (1 << 20);
    state.counters["decode_1thread_s"] = oneThread;
    state.counters["decode_cores_s"] = allCores;
    state.counters["pipeline_s"] = pipeline;
    state.counters["ratio_vs_1thread"] = pipeline / oneThread;
    state.counters["ratio_vs_cores"] = pipeline / allCores;
    state.counters["pipeline_cpu_per_wall"] = processor / pipeline;
    state.counters["max_rss_MiB"] = LargestResidentMiB();
}
BENCHMARK(BM_RunCommandPipeline)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);

}  // namespace
