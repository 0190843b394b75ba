#include "RunPipeline.h"

#include <malloc.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <mutex>
#include <thread>
#include <vector>

#include "FailureReport.h"
#include "OrderedBoundedQueue.h"
#include "com/core/MethodGuard.h"
#include "com/core/ccCOMError.h"
#include "com/image/files/ImageFile.h"
#include "com/image/files/ImageFileObjects.h"
#include "com/shape/Overlay.h"
#include "platform/Guid.h"

namespace tessaly::cli {

namespace {

// What a decoder hands the running thread: the pixels, or why there are none.
struct Decoded {
    std::optional<image::ImageFilePixels> pixels;
    std::exception_ptr failure;
    std::string problem;  // a folder that could not be listed
};

Decoded Decode(const ImageFileList::Entry& entry) {
    Decoded decoded;
    if (!entry.problem.empty()) {
        decoded.problem = entry.problem;
        return decoded;
    }
    try {
        decoded.pixels.emplace(image::ReadImageFile(entry.path));
    } catch (...) {
        decoded.failure = std::current_exception();
    }
    return decoded;
}

// Decoders started on construction and joined on destruction, the queue closed first so
// that none waits for room that will never come.
class DecoderPool {
public:
    DecoderPool(std::span<const ImageFileList::Entry> files, unsigned threads, size_t capacity)
        : queue_(capacity, files.size()) {
        for (unsigned i = 0; i < threads; ++i)
            threads_.emplace_back([this, files] {
                while (const auto ticket = queue_.Claim()) queue_.Put(*ticket, Decode(files[*ticket]));
            });
    }
    ~DecoderPool() {
        queue_.Close();
        for (std::thread& thread : threads_) thread.join();
    }
    std::optional<Decoded> Next() { return queue_.Take(); }

private:
    OrderedBoundedQueue<Decoded> queue_;
    std::vector<std::thread> threads_;
};

// Each file's pixels are allocated by a decoder and freed by the running thread a moment
// later, a few at a time. With the allocator's defaults, freeing them leaves more than its
// trim threshold free at the top of the decoder's heap, which it hands back to the kernel;
// the next file's pixels then fault every page in again (zeroed), about a tenth of the
// decoding time for 1 MiB images. The pipeline keeps that memory instead: its queue
// bounds how much there is. Fixing the thresholds also stops the allocator from moving
// them itself. Images above the mapping threshold (32 MiB) are still mapped and unmapped.
void KeepFreedPixelMemory() {
    static std::once_flag once;
    std::call_once(once, [] {
        mallopt(M_MMAP_THRESHOLD, 32 << 20);
        mallopt(M_TRIM_THRESHOLD, 512 << 20);
    });
}

struct Row {
    std::vector<std::string> fields;
    bool ran = false;
};

Row FailedRow(const std::string& file, HRESULT code, const std::string& text, size_t outputs) {
    Row row;
    row.fields = {file, FailureReport::Code(code), text, ""};
    row.fields.resize(4 + outputs);
    return row;
}

void WriteOverlay(ToolBinding& tool, ILuxImage* image, const std::filesystem::path& path) {
    const std::vector<ComPtr<ILuxShape>> shapes = tool.InputShapes();
    std::vector<ILuxShape*> drawn;
    for (const auto& shape : shapes) drawn.push_back(shape.get());
    const ComPtr<ILuxImage24PlanarColor> picture = shape::RenderOverlay(image, drawn, {.tintRegions = true});
    ComPtr<ILuxImage> asImage;
    core::ThrowIfFailed(picture->QueryInterface(ILuxImage::iid, asImage.OutVoid()));
    core::ThrowIfFailed(image::SaveImageFile(asImage.get(), path));
}

}  // namespace

std::string RunPipeline::OverlayNames::For(const std::filesystem::path& image) {
    const std::string stem = image.stem().string();
    std::string name = stem + ".png";
    for (int n = 2; !used_.insert(name).second; ++n) name = stem + "-" + std::to_string(n) + ".png";
    return name;
}

RunPipeline::Summary RunPipeline::Run(ToolBinding& tool, std::span<const ImageFileList::Entry> files, CsvWriter& csv,
                                      const Options& options) {
    std::vector<std::string> header = {"file", "status", "status_text", "time_ms"};
    header.insert(header.end(), tool.OutputNames().begin(), tool.OutputNames().end());
    csv.Row(header);
    if (options.overlays) std::filesystem::create_directories(*options.overlays);
    KeepFreedPixelMemory();

    const unsigned decoders = options.decoders ? options.decoders : std::max(1u, std::thread::hardware_concurrency());
    const size_t capacity = options.queueCapacity ? options.queueCapacity : 2 * size_t{decoders};
    const size_t outputs = tool.OutputNames().size();
    OverlayNames overlayNames;
    Summary summary;
    DecoderPool pool(files, decoders, capacity);
    for (const ImageFileList::Entry& entry : files) {
        std::optional<Decoded> decoded = pool.Next();
        if (!decoded) break;  // not reached: the pool hands out every file
        Row row;
        if (!decoded->problem.empty()) {
            row = FailedRow(entry.path, e_Lux_FileOpen, decoded->problem, outputs);
        } else {
            ComPtr<ILuxImage> image;
            const HRESULT made = core::Guarded("run", GUID_NULL, [&] {
                if (decoded->failure) std::rethrow_exception(decoded->failure);
                image = image::ImageFromFilePixels(*decoded->pixels);
                decoded->pixels.reset();
                const ToolBinding::Outcome outcome = tool.Run(image.get());
                char time[32];
                std::snprintf(time, sizeof time, "%.3f", outcome.milliseconds);
                row.fields = {entry.path, FailureReport::Code(outcome.code), outcome.text, time};
                row.fields.insert(row.fields.end(), outcome.results.begin(), outcome.results.end());
                row.ran = ToolBinding::Ran(outcome.code);
            });
            if (FAILED(made)) row = FailedRow(entry.path, made, FailureReport::Description(entry.path, made), outputs);
            if (row.ran && options.overlays) {
                const std::filesystem::path overlay = *options.overlays / overlayNames.For(entry.path);
                const HRESULT drawn = core::Guarded("run", GUID_NULL, [&] { WriteOverlay(tool, image.get(), overlay); });
                if (FAILED(drawn)) {
                    row.ran = false;
                    if (options.errors) FailureReport::Print(*options.errors, overlay.string(), drawn);
                }
            }
        }
        csv.Row(row.fields);
        ++summary.files;
        ++(row.ran ? summary.ran : summary.failed);
        if (options.progress) options.progress(summary.files);
    }
    return summary;
}

}  // namespace tessaly::cli
